// SPDX-License-Identifier: ISC
// The editor of an effect as a picture or a list of texts, with hands played to it.
#include <cairo.h>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>

#include "chain.h"
#include "editors/controls/display_control.h"
#include "editors/view.h"
#include "editors/view_offscreen.h"
#include "effect_spec.h"
#include "error.h"
#include "picture.h"
#include "skin_file.h"
#include "sound_file.h"
#include "view.h"
#include "vnk/file.h"

namespace quillhost {
namespace {

namespace ed = quillworks::editors;
using Json = nlohmann::ordered_json;

constexpr int kTicks = 30;  // a second
constexpr int kUnseen = 3;  // of 255, that no eye tells apart

/// "Compressor/Editor" of "Editor"; UsageError with the effect's views.
std::string viewNamed(const Effect& effect, const std::string& form)
{
    std::string all;
    for (int i = 0; const char* name = effect.component().viewName(i); ++i) {
        const std::string view = name;
        if (view == form || view.ends_with("/" + form)) return view;
        all += (all.empty() ? "" : ", ") + view.substr(view.find('/') + 1);
    }
    // The smallest form goes by another name with some.
    throw UsageError(effect.name() + " has no form " + inQuotes(form) + " (" + all + ")");
}

/// Hands, one JSON object a line: {"do":"drag","key":"ratio","dx":0,"dy":-40}.
class Hands {
public:
    Hands(ed::View& view, ed::OffscreenWindow& window) : view_(view), window_(window) {}

    void play(const std::string& path)
    {
        std::ifstream file(path);
        if (!file) throw WorkError(shownPath(path) + " cannot be read");
        std::string line;
        for (int number = 1; std::getline(file, line); ++number) {
            if (line.find_first_not_of(" \t\r") == std::string::npos) continue;
            const auto where = shownPath(path) + ", line " + std::to_string(number) + ": ";
            const auto event = Json::parse(line, nullptr, false);
            if (!event.is_object()) throw UsageError(where + "not a JSON object");
            try {
                play(event);
            } catch (const Json::exception&) {
                throw UsageError(where + "a value is missing or of another kind");
            } catch (const UsageError& e) {
                throw UsageError(where + e.what());
            }
        }
    }

private:
    /// In device pixels: the middle of the control of a key, or of what moves it in a display of
    /// the kind named, or a place in logical pixels; x and y count from there.
    ed::Point place(const Json& event) const
    {
        ed::Point p{event.value("x", 0.0), event.value("y", 0.0)};
        if (event.contains("key")) {
            const auto key = event.at("key").get<std::string>();
            const auto found =
                middleOf(view_.effectModel().parameter(key), event.value("display", std::string()));
            if (!found) throw UsageError("the form shows no " + inQuotes(key));
            p = {p.x + found->x, p.y + found->y};
        }
        return {p.x * view_.scale(), p.y * view_.scale()};
    }

    std::optional<ed::Point> middleOf(int parameter, const std::string& kind) const
    {
        if (parameter < 0) return {};
        for (auto* control : view_.controls(view_.page())) {
            if (kind.empty() && control->parameter() == parameter)
                return control->bounds().centre();
            const auto* shown = dynamic_cast<ed::DisplayControl*>(control);
            if (!shown || !shown->display() || shown->title() != kind) continue;
            for (const auto& grasp : shown->display()->grasps())
                for (const int p : grasp.parameters())
                    if (p == parameter)
                        return ed::Point{shown->bounds().x + grasp.at.centre().x,
                                         shown->bounds().y + grasp.at.centre().y};
        }
        return {};
    }

    static unsigned modifiers(const Json& event)
    {
        return (event.value("shift", false) ? ed::kShift : 0u) |
               (event.value("control", false) ? ed::kControl : 0u) |
               (event.value("alt", false) ? ed::kAlt : 0u);
    }

    void type(const Json& event)
    {
        constexpr std::pair<const char*, ed::Key> kNames[] = {
            {"Tab", ed::Key::Tab},       {"Enter", ed::Key::Enter},
            {"Escape", ed::Key::Escape}, {"Space", ed::Key::Space},
            {"Delete", ed::Key::Delete}, {"Backspace", ed::Key::Backspace},
            {"Left", ed::Key::Left},     {"Right", ed::Key::Right},
            {"Up", ed::Key::Up},         {"Down", ed::Key::Down},
            {"PageUp", ed::Key::PageUp}, {"PageDown", ed::Key::PageDown},
            {"Home", ed::Key::Home},     {"End", ed::Key::End},
            {"F1", ed::Key::F1},         {"F10", ed::Key::F10},
            {"Menu", ed::Key::Menu},
        };
        const auto name = event.at("name").get<std::string>();
        for (const auto& [known, key] : kNames)
            if (name == known)
                return void(window_.key(key, key == ed::Key::Space ? " " : "", modifiers(event)));
        throw UsageError("there is no key " + inQuotes(name));
    }

    void play(const Json& event)
    {
        const auto what = event.at("do").get<std::string>();
        const unsigned held = modifiers(event);
        const int button = event.value("button", 1);
        if (what == "wait") return window_.wait(event.value("seconds", 1.0 / kTicks));
        if (what == "key") return type(event);
        if (what == "text") {
            for (const char c : event.at("text").get<std::string>())
                window_.key(ed::Key::None, std::string(1, c), held);
            return;
        }
        const auto p = place(event);
        if (what == "move") return window_.move(p.x, p.y, held);
        if (what == "press") return window_.press(p.x, p.y, button, held);
        if (what == "release") return window_.release(p.x, p.y, button, held);
        if (what == "wheel") return window_.wheel(p.x, p.y, event.value("notches", 1.0), held);
        if (what == "click") {
            for (int i = 0; i < event.value("count", 1); ++i) {
                window_.press(p.x, p.y, button, held);
                window_.release(p.x, p.y, button, held);
            }
            return;
        }
        if (what != "drag") throw UsageError("there is nothing called " + inQuotes(what));
        const double dx = event.value("dx", 0.0) * view_.scale();
        const double dy = event.value("dy", 0.0) * view_.scale();
        constexpr int kSteps = 8;
        window_.press(p.x, p.y, button, held);
        for (int i = 1; i <= kSteps; ++i)
            window_.move(p.x + dx * i / kSteps, p.y + dy * i / kSteps, held);
        window_.release(p.x + dx, p.y + dy, button, held);
    }

    ed::View& view_;
    ed::OffscreenWindow& window_;
};

/// Plays a file to the effect while its view looks on, 30 times a second.
void playTo(const Effect& effect, const Session& session, const ViewOptions& o,
            ed::OffscreenWindow& window)
{
    SoundReader in(o.in);
    ChainSetup setup;
    setup.sampleRate = in.sampleRate();
    setup.block = std::max(1, in.sampleRate() / kTicks);
    setup.input = in.layout();
    setup.tempo = o.run.tempo;
    setup.position = o.run.position;
    Chain chain({effect}, setup);
    chain.requireFiles(session, o.run.allowMissing);
    Planes<float> planes(std::max(chain.planeChannels(), in.channels()), setup.block);
    const auto most = std::isfinite(o.at) ? std::llround(o.at * in.sampleRate())
                                          : std::numeric_limits<std::int64_t>::max();
    for (std::int64_t done = 0; done < most;) {
        const int wanted = static_cast<int>(std::min<std::int64_t>(setup.block, most - done));
        const int n = in.read(planes, wanted);
        if (n > 0) chain.run(planes, static_cast<const Planes<float>*>(nullptr), n);
        done += n;
        const bool isOver = n < wanted || done >= most;
        // What is under way then is seen too.
        if (isOver) chain.waitUntilReady();
        window.wait(1.0 / kTicks);
        if (isOver) break;
    }
    session.note(shownPath(o.in), in.remarks());
}

void writePicture(const ed::Image& picture, int tolerance, OutputFile& file)
{
    const auto& p = picture.pixels();
    auto* const surface = cairo_image_surface_create_for_data(
        reinterpret_cast<unsigned char*>(p.data), CAIRO_FORMAT_RGB24, p.width, p.height,
        static_cast<int>(p.stride));
    const std::unique_ptr<cairo_surface_t, decltype(&cairo_surface_destroy)> owner(
        surface, cairo_surface_destroy);
    finishPng(surface, file, tolerance);
}

void printGestures(const std::vector<ed::GestureRecorder::Event>& events)
{
    constexpr const char* kWords[] = {"begin", "value", "end", "beginGroup", "endGroup"};
    for (const auto& event : events) {
        Json line = {{"do", kWords[event.what]}};
        if (!event.key.empty()) line["key"] = event.key;
        if (event.what == ed::GestureRecorder::Event::Value) line["value"] = asShown(event.value);
        std::cout << line.dump() << "\n";
    }
}

}  // namespace

int drawEditor(const Session& session, const ViewOptions& o)
{
    EffectSpec spec = parseEffectSpec(o.spec);
    spec.presets = o.run.presets;
    const Effect effect = createEffect(session, spec);
    session.noteThoseThatPassThrough({effect});
    const auto view = viewNamed(effect, o.form);
    if (!o.out.empty() && !o.out.ends_with(".png"))
        throw UsageError(o.out + ": pictures of editors end in .png");
    std::optional<OutputFile> file;
    if (!o.out.empty()) file.emplace(o.out);

    const auto resources = session.resourcesFolder();
    const auto skin = skinOf(resources);
    std::string reason;
    std::shared_ptr<ed::Fonts> fonts = ed::Fonts::load(resources + "/skins/fonts", reason);
    if (!fonts) throw WorkError(reason);
    std::vector<ed::GestureRecorder::Event> gestures;
    ed::ViewSetup setup;
    setup.effect = effect.component();
    setup.skin = &skin;
    setup.name = view;
    setup.fonts = fonts;
    setup.writer = std::make_unique<ed::GestureRecorder>(effect.component(), gestures);
    setup.settings.scale = o.scale;
    setup.settings.variant = kViewVariants[static_cast<std::size_t>(o.variant)];
    ed::View shown(std::move(setup));
    ed::OffscreenWindow window(shown);
    if (o.in.empty()) {
        prepareAsUsual(effect, session, true);
        window.wait(1.0 / kTicks);
    } else {
        playTo(effect, session, o, window);
    }
    if (!o.page.empty()) {
        const auto pages = ed::pagesOf(shown.form());
        const auto at = std::find(pages.begin(), pages.end(), o.page);
        if (at == pages.end())
            throw UsageError(view + " has no page " + inQuotes(o.page) + " (its first is Main)");
        shown.showPage(static_cast<int>(at - pages.begin()));
        window.wait(1.0 / kTicks);
    }
    if (!o.events.empty()) {
        Hands(shown, window).play(o.events);
        window.wait(1.0 / kTicks);
        printGestures(gestures);
    }
    if (o.asText)
        for (const auto& line : shown.texts()) std::cout << line << "\n";
    const auto problems = shown.problems();
    for (const auto& problem : problems) session.note(problem);
    if (file)
        writePicture(o.withPopups ? window.withPopups() : window.picture(), o.isSmall ? kUnseen : 0,
                     *file);
    return o.checks && !problems.empty() ? kFailed : kDone;
}

}  // namespace quillhost
