// SPDX-License-Identifier: ISC
// What editors cost: opening one, and a tick of it while the effect plays. Every effect of the
// pack, and the views of its analysers. QUILLWORKS_RESOURCES names the folder of the skin; with
// DISPLAY set windows are opened too.
#include <poll.h>
#include <time.h>
#include <xcb/xcb.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "adapters/editor/editor_window.h"
#include "editors/editor_surface.h"
#include "editors/x11/connection.h"
#include "module/class_registry.h"
#include "module/module_main.h"
#include "vnk/effect_runner.h"
#include "vnk/file.h"

namespace {

using namespace quillworks;
using Clock = std::chrono::steady_clock;

constexpr double kScale = 2;
constexpr int kRate = 48000, kTicks = 30, kBlock = kRate / kTicks;
constexpr int kWarmUp = 2 * kTicks;  // until meters and histories are full enough

struct Case {
    std::string effect;
    std::vector<std::pair<const char*, float>> values;
    std::string note;
};

/// As they open, and the other views of those that have several.
std::vector<Case> cases()
{
    std::vector<Case> all;
    const auto factory = VNK::Ref<VNK::IClassFactory>::adopt(VNKGetClassFactory());
    for (int i = 0; i < factory->countClasses(); ++i) {
        const std::string name = factory->getClass(i)->name->text();
        all.push_back({name, {}, ""});
        if (name == "Spectrum Meter") {
            all.push_back({name, {{"mode", 1}}, "bands"});
            all.push_back({name, {{"mode", 2}}, "sonogram"});
        }
        if (name == "Phase Meter") {
            all.push_back({name, {{"view", 1}}, "left and right"});
            all.push_back({name, {{"view", 2}}, "polar"});
        }
        if (name == "Groove Delay") {
            Case many{name, {}, "eight taps"};
            static const char* const keys[] = {"tapon0", "tapon1", "tapon2", "tapon3",
                                               "tapon4", "tapon5", "tapon6", "tapon7"};
            for (const char* key : keys) many.values.push_back({key, 1});
            all.push_back(many);
        }
    }
    return all;
}

struct Host {
    VNK::HostedEffect effect;
    VNK::EffectRunner runner;
    std::vector<float> left, right, outLeft, outRight;
    std::mt19937 random{1};
    VNK::Transport transport;

    explicit Host(const Case& test) : effect(VNK::HostedEffect::adopt(createEffect(test.effect)))
    {
        for (const auto& [key, value] : test.values) {
            const int parameter = effect.findParameter(key);
            if (parameter < 0 || !effect.setValue(parameter, value))
                std::fprintf(stderr, "%s has no %s\n", test.effect.c_str(), key);
        }
        runner = VNK::EffectRunner(*effect->algorithm());
        const auto stereo = VNK::SpeakerArrangement::withChannels(2);
        const auto mono = VNK::SpeakerArrangement::withChannels(1);
        if (!runner.prepare({stereo, stereo, VNK::Precision::Float, kRate, kBlock}))
            runner.prepare({mono, stereo, VNK::Precision::Float, kRate, kBlock});
        for (auto* x : {&left, &right, &outLeft, &outRight}) x->resize(kBlock);
        transport.playing = transport.positionKnown = transport.frameKnown = true;
        transport.tempo = 120;
    }

    /// A thirtieth of a second: noise of two channels that have half in common.
    void play()
    {
        std::normal_distribution<float> normal(0, 0.15f);
        for (int i = 0; i < kBlock; ++i) {
            const float common = normal(random);
            left[static_cast<std::size_t>(i)] = common + normal(random);
            right[static_cast<std::size_t>(i)] = common + normal(random);
        }
        const float* in[] = {left.data(), right.data()};
        float* out[] = {outLeft.data(), outRight.data()};
        runner.process<float>({in, runner.setup().input.channels}, {out, 2}, kBlock, {},
                              &transport);
        transport.frame += kBlock;
        transport.quarterNotes = double(transport.frame) / kRate * transport.tempo / 60;
    }
};

/// Milliseconds that this thread has had of a processor: those of a busy machine's other work are
/// none of ours.
double ownTime()
{
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return double(t.tv_sec) * 1e3 + double(t.tv_nsec) * 1e-6;
}

std::string resources()
{
    const char* const folder = std::getenv("QUILLWORKS_RESOURCES");
    return folder ? folder : "";
}

bool readSkin(VNK::Skin& skin)
{
    std::string text, reason;
    return VNK::readFile((resources() + "/skins/quillworks/skin.xml").c_str(), 1 << 24, text,
                         reason) &&
           VNK::readSkin(text.data(), text.size(), skin, reason);
}

struct Picture {
    std::vector<std::uint32_t> data;
    editors::Pixels pixels;

    explicit Picture(const editors::Surface& surface)
        : data(static_cast<std::size_t>(surface.width()) *
               static_cast<std::size_t>(surface.height()))
    {
        pixels = {data.data(), surface.width(), surface.height(),
                  std::ptrdiff_t(surface.width()) * 4};
    }
};

std::unique_ptr<editors::Surface> surfaceOf(Host& host, const VNK::Skin& skin)
{
    const auto component = host.effect.queryInterface<VNK::IEffectComponent>();
    auto surface =
        editors::makeEditorSurface(component.get(), skin, host.effect->viewName(0), resources());
    if (surface) surface->setScale(kScale);
    return surface;
}

/// From the skin's file to the whole picture in memory.
double openInMemory(const Case& test)
{
    Host host(test);
    host.play();
    const auto start = ownTime();
    VNK::Skin skin;
    if (!readSkin(skin)) return 0;
    const auto surface = surfaceOf(host, skin);
    if (!surface) return 0;
    Picture picture(*surface);
    surface->tick(0);
    surface->draw(picture.pixels, true);
    return ownTime() - start;
}

/// The same to the picture in a window, as another program finds it on the screen: time that
/// passes, for the server has its part in it.
double openWindow(const Case& test)
{
    Host host(test);
    host.play();
    const auto start = Clock::now();
    adapters::EditorWindow::Setup setup;
    setup.effect = host.effect;
    setup.resources = resources();
    setup.window.hostScale = kScale;
    const auto editor = adapters::EditorWindow::open(std::move(setup));
    if (!editor) return 0;
    auto& window = editor->window();
    window.show();
    auto* const xcb = window.connection();
    for (int turn = 0; turn < 1000; ++turn) {
        pollfd readable{window.fd(), POLLIN, 0};
        poll(&readable, 1, 1);
        editor->poll();
        // Once it is seen it has been drawn, and its last pixel comes after that picture.
        if (!window.isSeen()) continue;
        const editors::Reply<xcb_get_image_reply_t> reply(xcb_get_image_reply(
            xcb,
            xcb_get_image(xcb, XCB_IMAGE_FORMAT_Z_PIXMAP, window.id(),
                          static_cast<std::int16_t>(window.width() - 1),
                          static_cast<std::int16_t>(window.height() - 1), 1, 1, ~0u),
            nullptr));
        if (reply) return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
    }
    return 0;
}

struct TickCost {
    double tick = std::numeric_limits<double>::infinity();  // ms: values read, figures worked out
    double draw = 0;
    double worst = std::numeric_limits<double>::infinity();  // of the ticks of a second
    double told = 0, changed = 0;  // thousands of pixels that a tick tells a window of, and of
                                   // those the ones that are others than before
};

/// The mean over a second, for the one that was disturbed least.
TickCost tickCost(const Case& test, int seconds)
{
    Host host(test);
    VNK::Skin skin;
    TickCost best;
    if (!readSkin(skin)) return best;
    const auto surface = surfaceOf(host, skin);
    if (!surface) return best;
    Picture picture(*surface);
    int ticks = 0;
    const auto turn = [&](double& tick, double& draw) {
        host.play();
        const double start = ownTime();
        surface->tick(ticks++ / double(kTicks));
        tick = ownTime() - start;
        surface->draw(picture.pixels, ticks == 1);
        draw = ownTime() - start - tick;
    };
    double tick = 0, draw = 0;
    for (int i = 0; i < kWarmUp; ++i) turn(tick, draw);
    for (int i = 0; seconds > 0 && i < kTicks; ++i) {
        host.play();
        surface->tick(ticks++ / double(kTicks));
        const auto before = picture.data;
        for (const auto& part : surface->draw(picture.pixels, false))
            best.told += double(part.w) * part.h / 1000 / kTicks;
        best.changed += double(picture.data.size() -
                               static_cast<std::size_t>(std::inner_product(
                                   before.begin(), before.end(), picture.data.begin(),
                                   std::ptrdiff_t{0}, std::plus<>(), std::equal_to<>()))) /
                        1000 / kTicks;
    }
    for (int second = 0; second < seconds; ++second) {
        double ticked = 0, drawn = 0, worst = 0;
        for (int i = 0; i < kTicks; ++i) {
            turn(tick, draw);
            ticked += tick / kTicks;
            drawn += draw / kTicks;
            worst = std::max(worst, tick + draw);
        }
        if (ticked + drawn < best.tick + best.draw) {
            best.tick = ticked;
            best.draw = drawn;
        }
        best.worst = std::min(best.worst, worst);
    }
    return best;
}

template <class F> double leastOf(int turns, F&& f)
{
    double least = std::numeric_limits<double>::infinity();
    for (int i = 0; i < turns; ++i) least = std::min(least, f());
    return least;
}

}  // namespace

int main(int argc, char** argv)
{
    int turns = 5, seconds = 8;
    std::string only;
    for (int i = 1; i + 1 < argc; i += 2) {
        const std::string option = argv[i];
        if (option == "--only")
            only = argv[i + 1];
        else if (option == "--turns")
            turns = std::atoi(argv[i + 1]);
        else if (option == "--seconds")
            seconds = std::atoi(argv[i + 1]);
        else
            return std::fprintf(
                       stderr, "editors_bench [--only EFFECT[, VIEW]] [--turns N] [--seconds N]\n"),
                   2;
    }
    const bool hasWindows = std::getenv("DISPLAY") != nullptr;
    std::printf(
        "scale %g; ms of one processor, windows ms that pass, thousands of pixels; least of "
        "%d openings, of %d seconds\n",
        kScale, turns, seconds);
    std::printf("%-32s %8s %8s %8s %8s %8s %8s %8s %8s\n", "", "memory", "window", "tick", "draw",
                "both", "worst", "told", "changed");
    for (const auto& test : cases()) {
        const auto name = test.effect + (test.note.empty() ? "" : ", " + test.note);
        if (!only.empty() && test.effect != only && name != only) continue;
        const double memory = leastOf(turns, [&] { return openInMemory(test); });
        const double window = hasWindows ? leastOf(turns, [&] { return openWindow(test); }) : 0;
        const auto cost = seconds > 0 ? tickCost(test, seconds) : TickCost{0, 0, 0};
        std::printf("%-32s %8.1f %8.1f %8.3f %8.3f %8.3f %8.3f %8.1f %8.1f\n", name.c_str(), memory,
                    window, cost.tick, cost.draw, cost.tick + cost.draw, cost.worst, cost.told,
                    cost.changed);
        std::fflush(stdout);
    }
}
