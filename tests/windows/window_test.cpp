// SPDX-License-Identifier: ISC
// Windows on a real server: what they show, take, and survive.
#include "editors/x11/window.h"

#include <array>
#include <atomic>
#include <cstring>
#include <filesystem>
#include <list>
#include <thread>

#include "tests/windows/box_surface.h"
#include "tests/windows/x_server.h"

namespace quillworks::test {
namespace {

// Key codes of the server's usual keyboard.
constexpr int kKeyA = 38, kKeyShift = 50, kKeySpace = 65, kKeyF1 = 67;

class Windows : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        server_ = std::make_unique<XServer>();
        if (server_->isThere()) desktop_ = std::make_unique<Desktop>();
    }
    static void TearDownTestSuite()
    {
        desktop_.reset();
        server_.reset();
    }
    void SetUp() override
    {
        if (!server_->isThere()) GTEST_SKIP() << "Xvfb is not installed";
        // Where it is nobody's.
        desktop().move(1200, 1000);
    }

    static Desktop& desktop() { return *desktop_; }

    struct Shown {
        std::unique_ptr<Record> record = std::make_unique<Record>();
        BoxSurface* surface = nullptr;
        std::unique_ptr<X11Window> window;

        X11Window* operator->() const { return window.get(); }
        bool until(const std::function<bool()>& f, double seconds = 5) const
        {
            return eventually(
                [&] {
                    window->processEvents();
                    window->tick();
                    return f();
                },
                seconds);
        }
        bool isAsDrawn() const
        {
            return until([&] {
                return desktop().pixels(window->id(), 0, 0, surface->width(), surface->height()) ==
                       surface->picture();
            });
        }
    };
    Shown open(X11Window::Setup setup)
    {
        Shown shown;
        auto surface = std::make_unique<BoxSurface>(*shown.record);
        shown.surface = surface.get();
        shown.window = X11Window::open(std::move(surface), std::move(setup));
        return shown;
    }
    Shown openIn(xcb_window_t parent)
    {
        X11Window::Setup setup;
        setup.parent = parent;
        auto shown = open(std::move(setup));
        EXPECT_TRUE(shown.window && shown.until([&] { return shown->isSeen(); }));
        return shown;
    }

    static inline std::unique_ptr<XServer> server_;
    static inline std::unique_ptr<Desktop> desktop_;
};

TEST_F(Windows, ShowWhatIsDrawnAndRedrawWhatWasPressed)
{
    const auto host = desktop().window(100, 100, 300, 300);
    auto view = openIn(host);
    EXPECT_TRUE(view.isAsDrawn());
    EXPECT_EQ(view.record->drawnUntimed, 0) << "the first picture was drawn before any value";
    desktop().click(110, 110);
    EXPECT_TRUE(view.until([&] { return view.record->count(PointerAction::Release) == 1; }));
    EXPECT_TRUE(view.isAsDrawn());
    // What another window has covered comes back.
    const auto cover = desktop().window(90, 90, 150, 150);
    xcb_destroy_window(desktop().xcb(), cover);
    EXPECT_TRUE(view.isAsDrawn());
    EXPECT_EQ(view->errors(), 0);
    xcb_destroy_window(desktop().xcb(), host);
}

TEST_F(Windows, ShowTheSameWhereTheServerCannotShareMemory)
{
    const std::string before = getenv("DISPLAY");
    {
        const XServer plain({"-extension", "MIT-SHM"});
        Desktop other;
        X11Window::Setup setup;
        setup.parent = other.window(0, 0, 900, 700);
        setup.userScale = 4;  // more than a request holds where there are no long ones
        auto view = open(setup);
        ASSERT_TRUE(view.window);
        EXPECT_TRUE(view.until(
            [&] { return other.pixels(view->id(), 0, 0, 800, 640) == view.surface->picture(); }));
        EXPECT_EQ(view->errors(), 0);
    }
    setenv("DISPLAY", before.c_str(), 1);
}

TEST_F(Windows, SendNothingWhileNothingChanges)
{
    const auto host = desktop().window(100, 100, 300, 300);
    auto view = openIn(host);
    ASSERT_TRUE(view.isAsDrawn());
    view.until([] { return false; }, 0.2);
    const auto before = xcb_no_operation(view->connection()).sequence;
    const int ticks = view.record->ticks;
    view.until([&] { return view.record->ticks - ticks >= 30; });
    EXPECT_EQ(xcb_no_operation(view->connection()).sequence - before, 1u);
    EXPECT_GE(view.record->ticks - ticks, 30);
    EXPECT_LE(view.record->ticks - ticks, 60) << "more often than eyes can see";
    xcb_destroy_window(desktop().xcb(), host);
}

TEST_F(Windows, OpenAndCloseAgainAndAgainAndManyAtOnce)
{
    const auto host = desktop().window(0, 0, 1000, 1000);
    const auto files = [] {
        return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
    };
    const auto before = files();
    for (int i = 0; i < 200; ++i) {
        auto view = openIn(host);
        ASSERT_TRUE(view.window);
        if (i % 20 == 0) {
            EXPECT_TRUE(view.isAsDrawn());
        }
        if (i % 3 == 0) view->hide();
        EXPECT_EQ(view->errors(), 0);
    }
    {
        std::list<Shown> views;
        for (int i = 0; i < 20; ++i) views.push_back(openIn(host));
        EXPECT_TRUE(views.back().isAsDrawn());
        for (auto i = std::next(views.begin(), 10); i != views.end();) i = views.erase(i);
    }
    EXPECT_EQ(files(), before);
    xcb_destroy_window(desktop().xcb(), host);
}

TEST_F(Windows, CloseDuringADragAndUnderAMenu)
{
    const auto host = desktop().window(100, 100, 300, 300);
    Record menu;
    {
        auto view = openIn(host);
        desktop().move(120, 120);
        desktop().press();
        ASSERT_TRUE(view.until([&] { return view.record->count(PointerAction::Press) == 1; }));
        view.record->host->showPopup(std::make_shared<BoxSurface>(menu), 10, 10);
        view.record->host->wantKeyboard(true);
    }
    desktop().release();
    EXPECT_EQ(menu.closed, 1);
    EXPECT_EQ(menu.host, nullptr);
    EXPECT_NE(desktop().focus(), 0u);
    // The pointer is free again.
    const Reply<xcb_grab_pointer_reply_t> grab(
        xcb_grab_pointer_reply(desktop().xcb(),
                               xcb_grab_pointer(desktop().xcb(), 0, host, 0, XCB_GRAB_MODE_ASYNC,
                                                XCB_GRAB_MODE_ASYNC, 0, 0, XCB_CURRENT_TIME),
                               nullptr));
    EXPECT_EQ(grab->status, XCB_GRAB_STATUS_SUCCESS);
    xcb_ungrab_pointer(desktop().xcb(), XCB_CURRENT_TIME);
    xcb_destroy_window(desktop().xcb(), host);
}

TEST_F(Windows, OutliveAParentThatIsDestroyedFirst)
{
    const auto host = desktop().window(100, 100, 300, 300);
    auto view = openIn(host);
    Record menu;
    view.record->host->showPopup(std::make_shared<BoxSurface>(menu), 10, 10);
    view.record->host->wantKeyboard(true);
    xcb_destroy_window(desktop().xcb(), host);
    desktop().finish();
    EXPECT_TRUE(view.until([&] { return !view->isOpen(); }));
    EXPECT_EQ(menu.closed, 1);
    view->setSize(400, 320);
    view->setScale(2);
    view.record->host->showPopup(std::make_shared<BoxSurface>(menu), 10, 10);
    view.record->host->wantKeyboard(false);
    view.until([] { return false; }, 0.1);
    EXPECT_EQ(view->popups(), 0);
}

TEST_F(Windows, OutliveTheServer)
{
    const std::string before = getenv("DISPLAY");
    XServer brief;
    X11Window::Setup setup;
    auto view = open(setup);
    ASSERT_TRUE(view.window);
    view->show();
    brief.stop();
    EXPECT_TRUE(view.until([&] { return !view->isOpen(); }));
    view.record->host->wantKeyboard(true);
    view.record->host->copyText("x");
    view.record->host->resize(300, 240);
    view.window.reset();
    setenv("DISPLAY", before.c_str(), 1);
}

TEST_F(Windows, FollowTheHostsSizeAndAskForTheirOwn)
{
    const auto host = desktop().window(100, 100, 800, 800);
    X11Window::Setup setup;
    setup.parent = host;
    bool may = true;
    int asked = 0;
    setup.mayResize = [&](int, int) { return ++asked, may; };
    auto view = open(setup);
    ASSERT_TRUE(view.window);
    desktop().resize(view->id(), 500, 320);  // twice as high, and room to spare
    EXPECT_TRUE(view.until([&] { return view.surface->width() == 400; }));
    EXPECT_TRUE(view.isAsDrawn());
    view->setSize(301, 239);
    EXPECT_EQ(view->width(), 299);
    EXPECT_TRUE(view.isAsDrawn());
    view.surface->setScale(3);
    view.record->host->resize(600, 480);
    EXPECT_EQ(asked, 1);
    EXPECT_TRUE(view.until([&] { return view->width() == 600; }) && view.isAsDrawn());
    may = false;
    view.surface->setScale(1);
    view.record->host->resize(200, 160);
    EXPECT_EQ(view->width(), 600) << "the host has refused";
    EXPECT_EQ(view.surface->width(), 600);
    EXPECT_TRUE(view.isAsDrawn());
    EXPECT_EQ(view->errors(), 0);
    xcb_destroy_window(desktop().xcb(), host);
}

TEST_F(Windows, StandStillWhileNobodySeesThem)
{
    const auto top = desktop().window(100, 100, 300, 300);
    const auto host = desktop().window(0, 0, 250, 250, top);
    auto view = openIn(host);
    const auto isStill = [&] {
        if (!view.until([&] { return !view->isSeen(); })) return false;
        const int ticks = view.record->ticks;
        view.until([] { return false; }, 0.15);
        return view.record->ticks == ticks;
    };
    const auto goesOn = [&] {
        const int ticks = view.record->ticks;
        return view.until([&] { return view.record->ticks > ticks; }) && view.isAsDrawn();
    };
    EXPECT_TRUE(goesOn());
    for (const auto window : {top, host}) {
        xcb_unmap_window(desktop().xcb(), window);
        desktop().finish();
        EXPECT_TRUE(isStill());
        xcb_map_window(desktop().xcb(), window);
        desktop().finish();
        EXPECT_TRUE(goesOn());
    }
    const auto cover = desktop().window(50, 50, 500, 500);
    EXPECT_TRUE(isStill());
    xcb_destroy_window(desktop().xcb(), cover);
    desktop().finish();
    EXPECT_TRUE(goesOn());
    xcb_destroy_window(desktop().xcb(), top);
}

TEST_F(Windows, TakeKeysOnlyWhileTheyAreWantedAndHandBackWhatTheyDoNotUse)
{
    const auto host = desktop().window(100, 100, 300, 300);
    auto view = openIn(host);
    std::vector<int> heard;  // by the host
    const auto listen = [&] {
        while (editors::Event e{xcb_poll_for_event(desktop().xcb())}) {
            const auto& key = reinterpret_cast<const xcb_key_press_event_t&>(*e);
            if ((e->response_type & 0x7F) == XCB_KEY_PRESS) heard.push_back(key.detail);
        }
    };
    xcb_set_input_focus(desktop().xcb(), XCB_INPUT_FOCUS_PARENT, host, XCB_CURRENT_TIME);
    desktop().move(150, 150);
    desktop().key(kKeySpace);
    view.until([] { return false; }, 0.05);
    listen();
    EXPECT_EQ(heard, std::vector{kKeySpace}) << "the view has not asked for the keyboard";
    EXPECT_TRUE(view.record->keys.empty());

    view.surface->onKey = [](const KeyEvent& e) { return e.key != Key::Space; };
    view.record->host->wantKeyboard(true);
    EXPECT_TRUE(eventually([&] { return desktop().focus() == view->id(); }));
    desktop().key(kKeyA);
    desktop().hold(kKeyShift);
    desktop().key(kKeyA);
    desktop().let(kKeyShift);
    desktop().key(kKeyF1);
    desktop().key(kKeySpace);
    ASSERT_TRUE(view.until([&] { return view.record->keys.size() == 5; }));
    EXPECT_EQ(view.record->typed, "aA ");
    EXPECT_EQ(view.record->keys[3], Key::F1);
    EXPECT_TRUE(eventually([&] { return listen(), heard.size() == 2; }));
    EXPECT_EQ(heard, (std::vector{kKeySpace, kKeySpace}));

    view.record->host->wantKeyboard(false);
    EXPECT_TRUE(eventually([&] { return desktop().focus() == host; }));
    view.record->host->wantKeyboard(true);
    view.until([] { return false; }, 0.05);
    EXPECT_EQ(view.record->lost, 0) << "it has given the keyboard back itself";
    xcb_set_input_focus(desktop().xcb(), XCB_INPUT_FOCUS_PARENT, host, XCB_CURRENT_TIME);
    desktop().finish();
    EXPECT_TRUE(view.until([&] { return view.record->lost == 1; }));
    xcb_destroy_window(desktop().xcb(), host);
}

TEST_F(Windows, CloseMenusByAPressBesideThemAndTipsByAnyPress)
{
    const auto host = desktop().window(100, 100, 300, 300);
    auto view = openIn(host);
    Record menu;
    auto surface = std::make_shared<BoxSurface>(menu, 80, 60);
    view.record->host->showPopup(surface, 190, 150);  // beyond the view's edge
    ASSERT_TRUE(view.until([&] {
        return desktop().pixels(desktop().windows().back(), 0, 0, 80, 60) == surface->picture();
    }));
    desktop().click(295, 255);
    EXPECT_TRUE(view.until([&] { return menu.count(PointerAction::Press) == 1; }));
    EXPECT_EQ(view->popups(), 1);
    for (const auto& [x, y] : {std::pair{110, 110}, std::pair{900, 900}}) {
        menu = {};
        view.record->pointer.clear();
        view.record->host->showPopup(surface, 50, 50);
        desktop().click(x, y);
        EXPECT_TRUE(view.until([&] { return menu.closed == 1; }));
        view.until([] { return false; }, 0.05);
        EXPECT_EQ(view.record->count(PointerAction::Press), 0) << "it has closed the menu";
        EXPECT_EQ(view.record->count(PointerAction::Release), 0);
        EXPECT_EQ(view->popups(), 0);
    }
    Record tip;
    view.record->host->showPopup(std::make_shared<BoxSurface>(tip, 80, 60, true), 100, 100);
    desktop().click(110, 110);
    EXPECT_TRUE(view.until([&] { return view.record->count(PointerAction::Release) == 1; }));
    EXPECT_EQ(tip.closed, 1);
    EXPECT_EQ(view->errors(), 0);
    xcb_destroy_window(desktop().xcb(), host);
}

TEST_F(Windows, ChooseAMenusItemThatClosesItAndOpensAnother)
{
    const auto host = desktop().window(100, 100, 300, 300);
    auto view = openIn(host);
    Record menu, next;
    auto first = std::make_shared<BoxSurface>(menu, 80, 60);
    first->onPointer = [&](const PointerEvent& event) {
        if (event.action == PointerAction::Press)
            view.record->host->showPopup(std::make_shared<BoxSurface>(next, 40, 40), 0, 0);
    };
    view.record->host->showPopup(first, 50, 50);
    first.reset();
    desktop().click(160, 160);
    EXPECT_TRUE(view.until([&] { return next.host != nullptr; }));
    EXPECT_EQ(menu.host, nullptr);
    EXPECT_EQ(menu.closed, 0) << "the view has closed it itself";
    xcb_destroy_window(desktop().xcb(), host);
}

TEST_F(Windows, CopyToAndPasteFromOtherPrograms)
{
    const auto host = desktop().window(100, 100, 300, 300);
    auto from = openIn(host), to = openIn(host);
    EXPECT_EQ(to.record->host->pasteText(), "");
    const std::string text = "2.5 kHz \u2212 \u00e9";
    from.record->host->copyText(text);
    xcb_get_input_focus(from->connection());
    std::atomic<bool> isDone{false};
    std::thread other([&] {
        while (!isDone) {
            from.window->processEvents();
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    });
    std::string pasted;
    eventually([&] { return !(pasted = to.record->host->pasteText()).empty(); });
    isDone = true;
    other.join();
    EXPECT_EQ(pasted, text);
    xcb_destroy_window(desktop().xcb(), host);
}

TEST_F(Windows, TakeAFileThatIsDropped)
{
    const auto host = desktop().window(100, 100, 300, 300);
    auto view = openIn(host);
    const auto source = desktop().window(600, 600, 50, 50);
    auto* const xcb = desktop().xcb();
    const auto atom = [&](std::string name) {
        const Reply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(
            xcb, xcb_intern_atom(xcb, 0, static_cast<std::uint16_t>(name.size()), name.data()),
            nullptr));
        return reply->atom;
    };
    const auto send = [&](const char* type, std::array<std::uint32_t, 5> data) {
        xcb_client_message_event_t message{};
        message.response_type = XCB_CLIENT_MESSAGE;
        message.format = 32;
        message.window = view->id();
        message.type = atom(type);
        std::copy(data.begin(), data.end(), message.data.data32);
        xcb_send_event(xcb, 0, view->id(), 0, reinterpret_cast<const char*>(&message));
        desktop().finish();
    };
    // Messages of nobody that has entered are left alone.
    send("XdndPosition", {source, 0, 0, 0, 0});
    send("XdndDrop", {source, 0, 0, 0, 0});
    const auto files = atom("text/uri-list"), selection = atom("XdndSelection");
    xcb_set_selection_owner(xcb, source, selection, XCB_CURRENT_TIME);
    send("XdndEnter", {source, 5u << 24, files, 0, 0});
    send("XdndPosition", {source, 0, (150u << 16) | 160u, 0, atom("XdndActionCopy")});
    send("XdndDrop", {source, 0, 0, 0, 0});
    bool isAccepted = false, isFinished = false;
    const std::string list = "# a comment\r\nfile:///tmp/big%20hall.wav\r\n";
    const auto play = [&] {
        while (editors::Event e{xcb_poll_for_event(xcb)}) {
            if ((e->response_type & 0x7F) == XCB_SELECTION_REQUEST) {
                const auto& request = reinterpret_cast<const xcb_selection_request_event_t&>(*e);
                xcb_change_property(xcb, XCB_PROP_MODE_REPLACE, request.requestor, request.property,
                                    files, 8, static_cast<std::uint32_t>(list.size()), list.data());
                xcb_selection_notify_event_t reply{
                    XCB_SELECTION_NOTIFY, 0,         0,     request.time,
                    request.requestor,    selection, files, request.property};
                char bytes[32] = {};
                std::memcpy(bytes, &reply, sizeof reply);
                xcb_send_event(xcb, 0, request.requestor, 0, bytes);
                xcb_flush(xcb);
            } else if ((e->response_type & 0x7F) == XCB_CLIENT_MESSAGE) {
                const auto& message = reinterpret_cast<const xcb_client_message_event_t&>(*e);
                isAccepted |= message.type == atom("XdndStatus") && message.data.data32[1] & 1;
                isFinished |= message.type == atom("XdndFinished") && message.data.data32[1] == 1;
            }
        }
        return isFinished;
    };
    EXPECT_TRUE(view.until(play));
    EXPECT_TRUE(isAccepted);
    EXPECT_EQ(view.record->dropped, std::vector<std::string>{"/tmp/big hall.wav"});
    xcb_destroy_window(xcb, host);
}

TEST_F(Windows, ReadListsOfFiles)
{
    using Files = std::vector<std::string>;
    EXPECT_EQ(filesOf("file:///a\r\nhttp://x/b\r\nfile://host/c%41%2"), (Files{"/a", "/cA%2"}));
    EXPECT_EQ(filesOf("file://\nfile:///a%00b\n%"), Files{});
}

TEST_F(Windows, AreAsLargeAsTheUserTheHostOrTheScreenWants)
{
    const auto host = desktop().window(100, 100, 300, 300);
    const std::string dpi = "Xcursor.size:\t24\nXft.dpi:\t144\n";
    xcb_change_property(desktop().xcb(), XCB_PROP_MODE_REPLACE, desktop().root(),
                        XCB_ATOM_RESOURCE_MANAGER, XCB_ATOM_STRING, 8,
                        static_cast<std::uint32_t>(dpi.size()), dpi.data());
    desktop().finish();
    const auto scale = [&](double user, double ofHost) {
        X11Window::Setup setup;
        setup.parent = host;
        setup.userScale = user;
        setup.hostScale = ofHost;
        return open(setup).surface->scale();
    };
    EXPECT_EQ(scale(0, 0), 1.5);
    EXPECT_EQ(scale(0, 2.04), 2);
    EXPECT_EQ(scale(1.25, 2), 1.25);
    EXPECT_EQ(scale(100, 0), 4);
    xcb_delete_property(desktop().xcb(), desktop().root(), XCB_ATOM_RESOURCE_MANAGER);
    xcb_destroy_window(desktop().xcb(), host);
}

TEST_F(Windows, StandByThemselvesUntilTheyAreClosedOrEmbedded)
{
    auto view = open({});
    ASSERT_TRUE(view.window);
    view->show();
    EXPECT_TRUE(view.isAsDrawn());
    const auto host = desktop().window(300, 300, 300, 300);
    EXPECT_TRUE(view->embedIn(host));
    EXPECT_TRUE(view.isAsDrawn());
    desktop().click(310, 310);
    EXPECT_TRUE(view.until([&] { return view.record->count(PointerAction::Press) == 1; }));
    xcb_client_message_event_t message{};
    message.response_type = XCB_CLIENT_MESSAGE;
    message.format = 32;
    message.window = view->id();
    const auto atom = [&](std::string name) {
        const Reply<xcb_intern_atom_reply_t> reply(xcb_intern_atom_reply(
            desktop().xcb(),
            xcb_intern_atom(desktop().xcb(), 0, static_cast<std::uint16_t>(name.size()),
                            name.data()),
            nullptr));
        return reply->atom;
    };
    message.type = atom("WM_PROTOCOLS");
    message.data.data32[0] = atom("WM_DELETE_WINDOW");
    xcb_send_event(desktop().xcb(), 0, view->id(), 0, reinterpret_cast<const char*>(&message));
    desktop().finish();
    EXPECT_TRUE(view.until([&] { return !view->isOpen(); }));
    xcb_destroy_window(desktop().xcb(), host);
}

}  // namespace
}  // namespace quillworks::test
