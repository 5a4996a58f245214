// SPDX-License-Identifier: ISC
// A server without a screen for each test program, and a client of it that plays the host, the hand
// and the eye.
#pragma once

#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>
#include <xcb/xtest.h>

#include <chrono>
#include <csignal>
#include <string>
#include <thread>
#include <vector>

#include "editors/x11/connection.h"

namespace quillworks::test {

using editors::Reply;

/// Runs while it lives; DISPLAY names it meanwhile.
class XServer {
public:
    explicit XServer(std::vector<const char*> options = {})
    {
        int ends[2];
        if (pipe(ends) != 0) return;
        const std::string fd = std::to_string(ends[1]);
        std::vector<const char*> arguments = {"Xvfb",      "-displayfd", fd.c_str(),
                                              "-screen",   "0",          "1280x1024x24",
                                              "-nolisten", "tcp",        "-noreset"};
        arguments.insert(arguments.end(), options.begin(), options.end());
        arguments.push_back(nullptr);
        process_ = fork();
        if (process_ == 0) {
            close(ends[0]);
            // It goes with the program, and writes nothing among its lines.
            prctl(PR_SET_PDEATHSIG, SIGKILL);
            if (!std::freopen("/dev/null", "w", stdout) || !std::freopen("/dev/null", "w", stderr))
                _exit(126);
            execvp("Xvfb", const_cast<char* const*>(arguments.data()));
            _exit(127);
        }
        close(ends[1]);
        std::string number;
        for (char c; read(ends[0], &c, 1) == 1 && c != '\n';) number += c;
        close(ends[0]);
        if (number.empty()) return;
        isThere_ = true;
        setenv("DISPLAY", (":" + number).c_str(), 1);
    }
    ~XServer() { stop(); }
    XServer(const XServer&) = delete;
    XServer& operator=(const XServer&) = delete;
    /// False where the machine has none.
    bool isThere() const { return isThere_; }
    void stop()
    {
        if (process_ > 0) {
            kill(process_, SIGKILL);
            waitpid(process_, nullptr, 0);
        }
        process_ = -1;
    }

private:
    pid_t process_ = -1;
    bool isThere_ = false;
};

/// Waits for what a server does in its own time.
template <class F> bool eventually(F&& f, double seconds = 5)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    while (!f()) {
        if (std::chrono::steady_clock::now() > end) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

class Desktop {
public:
    Desktop() : xcb_(xcb_connect(nullptr, nullptr))
    {
        screen_ = xcb_setup_roots_iterator(xcb_get_setup(xcb_)).data;
    }
    ~Desktop() { xcb_disconnect(xcb_); }
    Desktop(const Desktop&) = delete;
    Desktop& operator=(const Desktop&) = delete;

    xcb_connection_t* xcb() const { return xcb_; }
    xcb_window_t root() const { return screen_->root; }

    /// A window as hosts have, shown at once.
    xcb_window_t window(int x, int y, int width, int height, xcb_window_t parent = 0)
    {
        const auto id = xcb_generate_id(xcb_);
        const std::uint32_t values[] = {1, XCB_EVENT_MASK_KEY_PRESS | XCB_EVENT_MASK_KEY_RELEASE};
        xcb_create_window(xcb_, XCB_COPY_FROM_PARENT, id, parent ? parent : root(),
                          static_cast<std::int16_t>(x), static_cast<std::int16_t>(y),
                          static_cast<std::uint16_t>(width), static_cast<std::uint16_t>(height), 0,
                          XCB_WINDOW_CLASS_INPUT_OUTPUT, screen_->root_visual,
                          XCB_CW_OVERRIDE_REDIRECT | XCB_CW_EVENT_MASK, values);
        xcb_map_window(xcb_, id);
        finish();
        return id;
    }
    void resize(xcb_window_t window, std::uint32_t width, std::uint32_t height)
    {
        const std::uint32_t size[] = {width, height};
        xcb_configure_window(xcb_, window, XCB_CONFIG_WINDOW_WIDTH | XCB_CONFIG_WINDOW_HEIGHT,
                             size);
        finish();
    }
    /// All requests so far are carried out.
    void finish()
    {
        Reply<xcb_get_input_focus_reply_t>(
            xcb_get_input_focus_reply(xcb_, xcb_get_input_focus(xcb_), nullptr));
    }
    xcb_window_t focus()
    {
        const Reply<xcb_get_input_focus_reply_t> reply(
            xcb_get_input_focus_reply(xcb_, xcb_get_input_focus(xcb_), nullptr));
        return reply ? reply->focus : 0;
    }
    /// 0xRRGGBB as the window shows them; empty where it cannot be seen.
    std::vector<std::uint32_t> pixels(xcb_drawable_t window, int x, int y, int width, int height)
    {
        const Reply<xcb_get_image_reply_t> reply(xcb_get_image_reply(
            xcb_,
            xcb_get_image(xcb_, XCB_IMAGE_FORMAT_Z_PIXMAP, window, static_cast<std::int16_t>(x),
                          static_cast<std::int16_t>(y), static_cast<std::uint16_t>(width),
                          static_cast<std::uint16_t>(height), ~0u),
            nullptr));
        if (!reply) return {};
        const auto* const data =
            reinterpret_cast<const std::uint32_t*>(xcb_get_image_data(reply.get()));
        std::vector<std::uint32_t> out(data, data + xcb_get_image_data_length(reply.get()) / 4);
        for (auto& pixel : out) pixel &= 0xFFFFFF;
        return out;
    }
    /// The windows that lie directly on the screen, the topmost last.
    std::vector<xcb_window_t> windows()
    {
        const Reply<xcb_query_tree_reply_t> tree(
            xcb_query_tree_reply(xcb_, xcb_query_tree(xcb_, root()), nullptr));
        const auto* const all = xcb_query_tree_children(tree.get());
        return {all, all + xcb_query_tree_children_length(tree.get())};
    }

    // The hand.
    void move(int x, int y) { fake(XCB_MOTION_NOTIFY, 0, x, y); }
    void press(int button = 1) { fake(XCB_BUTTON_PRESS, button); }
    void release(int button = 1) { fake(XCB_BUTTON_RELEASE, button); }
    void click(int x, int y, int button = 1)
    {
        move(x, y);
        press(button);
        release(button);
    }
    void key(int code)
    {
        fake(XCB_KEY_PRESS, code);
        fake(XCB_KEY_RELEASE, code);
    }
    void hold(int code) { fake(XCB_KEY_PRESS, code); }
    void let(int code) { fake(XCB_KEY_RELEASE, code); }

private:
    void fake(int type, int detail, int x = 0, int y = 0)
    {
        xcb_test_fake_input(xcb_, static_cast<std::uint8_t>(type),
                            static_cast<std::uint8_t>(detail), 0, root(),
                            static_cast<std::int16_t>(x), static_cast<std::int16_t>(y), 0);
        finish();
    }

    xcb_connection_t* xcb_;
    const xcb_screen_t* screen_ = nullptr;
};

}  // namespace quillworks::test
