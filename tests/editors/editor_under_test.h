// SPDX-License-Identifier: ISC
// An effect's view without a window, with what hands do to the effect written down.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <utility>

#include "editors/view.h"
#include "editors/view_offscreen.h"
#include "module/class_registry.h"

namespace quillworks::test {

inline std::string resources()
{
    const char* folder = std::getenv("QUILLWORKS_RESOURCES");
    return folder ? folder : "";
}

inline const VNK::Skin& skin()
{
    static const VNK::Skin read = [] {
        std::ifstream file(resources() + "/skins/quillworks/skin.xml");
        const std::string document{std::istreambuf_iterator<char>(file), {}};
        VNK::Skin skin;
        std::string reason;
        if (!VNK::readSkin(document.data(), document.size(), skin, reason))
            throw std::runtime_error("the skin: " + reason);
        return skin;
    }();
    return read;
}

inline std::shared_ptr<editors::Fonts> fonts()
{
    std::string reason;
    std::shared_ptr<editors::Fonts> loaded =
        editors::Fonts::load(resources() + "/skins/fonts", reason);
    if (!loaded) throw std::runtime_error(reason);
    return loaded;
}

class EditorUnderTest {
public:
    /// "Compressor", "Compressor/Editor".
    EditorUnderTest(const std::string& effect, const std::string& form, double scale = 1)
        : effect_(VNK::HostedEffect::adopt(createEffect(effect))),
          view_(setup(form, scale)),
          window_(view_)
    {
        window_.wait(0.05);
    }

    const VNK::HostedEffect& effect() const { return effect_; }
    editors::View& view() { return view_; }
    editors::OffscreenWindow& window() { return window_; }

    editors::Control& control(const std::string& key)
    {
        const int parameter = view_.effectModel().parameter(key);
        for (int page = 0; page < view_.countPages(); ++page)
            for (auto* control : view_.controls(page))
                if (parameter >= 0 && control->parameter() == parameter) return *control;
        throw std::runtime_error("no control of " + key);
    }
    /// Middle of a control, device pixels.
    editors::Point place(const std::string& key)
    {
        const auto c = control(key).bounds().centre();
        return {c.x * view_.scale(), c.y * view_.scale()};
    }
    void click(editors::Point p, int button = 1)
    {
        window_.press(p.x, p.y, button);
        window_.release(p.x, p.y, button);
    }
    void type(const std::string& text)
    {
        for (const char c : text) window_.key(editors::Key::None, std::string(1, c));
    }
    float value(const std::string& key)
    {
        return effect_.getValue(effect_.findParameter(key.c_str()));
    }
    std::vector<editors::GestureRecorder::Event> takeEvents() { return std::exchange(events_, {}); }
    /// The same as text: "begin ratio, ratio=4, end ratio".
    std::string gestures()
    {
        std::string text;
        for (const auto& event : takeEvents()) {
            if (!text.empty()) text += ", ";
            switch (event.what) {
            case editors::GestureRecorder::Event::Begin:
                text += "begin " + event.key;
                break;
            case editors::GestureRecorder::Event::Value:
                text += event.key + "=" + number(event.value);
                break;
            case editors::GestureRecorder::Event::End:
                text += "end " + event.key;
                break;
            default:
                text += "group";
            }
        }
        return text;
    }

private:
    static std::string number(float value)
    {
        char text[32];
        std::snprintf(text, sizeof text, "%.4g", static_cast<double>(value));
        return text;
    }
    editors::ViewSetup setup(const std::string& form, double scale)
    {
        editors::ViewSetup setup;
        setup.effect = effect_;
        setup.skin = &skin();
        setup.name = form;
        setup.fonts = fonts();
        setup.writer = std::make_unique<editors::GestureRecorder>(effect_, events_);
        setup.settings.scale = scale;
        return setup;
    }

    VNK::HostedEffect effect_;
    std::vector<editors::GestureRecorder::Event> events_;
    editors::View view_;
    editors::OffscreenWindow window_;
};

}  // namespace quillworks::test
