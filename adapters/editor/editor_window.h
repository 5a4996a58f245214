// SPDX-License-Identifier: ISC
// An effect's editor in a window, with all that it needs to live.
#pragma once

#include <memory>
#include <string>
#include <utility>

#include "editors/effect_model.h"
#include "editors/x11/window.h"
#include "vnk/hosted_effect.h"
#include "vnk/skin.h"

namespace quillworks::adapters {

/// Everything on one thread, that of the host's windows. [main thread]
class EditorWindow {
public:
    struct Setup {
        VNK::HostedEffect effect;
        std::string resources;  // folder of the skin and its fonts
        /// Where a hand's changes go; null: to the component.
        std::unique_ptr<editors::ParameterWriter> writer;
        editors::X11Window::Setup window;
    };
    /// The first of the effect's views. Null where it cannot be had: no server, no skin.
    static std::unique_ptr<EditorWindow> open(Setup setup);

    editors::X11Window& window() noexcept { return *window_; }
    /// What the host's timer calls, some thirty times a second. False once the window is gone.
    bool poll();

private:
    EditorWindow() = default;

    // The window, and in it the view, goes first.
    std::shared_ptr<const VNK::Skin> skin_;
    std::unique_ptr<editors::X11Window> window_;
};

/// Sets values on the component as a person's, and has them told to the host by who listens.
class TellingWriter final : public editors::ParameterWriter {
public:
    /// The listener outlives the writer.
    TellingWriter(VNK::HostedEffect effect, VNK::IEffectListener& listener) noexcept
        : effect_(std::move(effect)), listener_(listener)
    {}

    void begin(int parameter) override { effect_.beginEdit(tag(parameter)); }
    void set(int parameter, float value) override
    {
        if (effect_.setValue(parameter, value)) listener_.parameterChanged(parameter);
    }
    void end(int parameter) override { effect_.endEdit(tag(parameter)); }
    void beginGroup() override { effect_.beginGroupEdit(); }
    void endGroup() override { effect_.endGroupEdit(); }

private:
    VNK::Tag tag(int parameter) const noexcept
    {
        VNK::ParameterInfo info{};
        effect_.getParameter(parameter, info);
        return info.tag;
    }

    VNK::HostedEffect effect_;
    VNK::IEffectListener& listener_;
};

}  // namespace quillworks::adapters
