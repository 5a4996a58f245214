// SPDX-License-Identifier: ISC
// What controls and displays see of an effect: its values as of the last tick, and a hand's changes
// as gestures. It knows the host-facing interfaces alone, never the algorithm.
#pragma once

#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "editors/display_data.h"
#include "vnk/effect_editing.h"
#include "vnk/hosted_effect.h"

namespace quillworks::editors {

/// Where changes by hand go: a host's own way, or the component. Indices are those of parameters.
class ParameterWriter {
public:
    virtual ~ParameterWriter() = default;
    virtual void begin(int parameter) = 0;
    virtual void set(int parameter, float value) = 0;
    virtual void end(int parameter) = 0;
    /// Around gestures that belong together.
    virtual void beginGroup() {}
    virtual void endGroup() {}
};

/// [main thread]
class EffectModel {
public:
    /// Counts as an editor of the effect until it goes. Without a writer changes go to the
    /// component.
    explicit EffectModel(VNK::HostedEffect effect,
                         std::unique_ptr<ParameterWriter> writer = nullptr);
    ~EffectModel();
    EffectModel(const EffectModel&) = delete;
    EffectModel& operator=(const EffectModel&) = delete;

    const VNK::HostedEffect& effect() const noexcept { return effect_; }
    /// Null where the effect has none.
    VNK::IEffectEditing* editing() const noexcept { return editing_.get(); }
    VNK::IEffectUserPresets* userPresets() const noexcept { return userPresets_.get(); }

    /// Reads what has changed, and all meters, once.
    void tick(double seconds);
    double seconds() const noexcept { return seconds_; }  // of the last tick

    // Parameters, read-only ones among them.
    int countParameters() const noexcept { return static_cast<int>(infos_.size()); }
    const VNK::ParameterInfo& info(int parameter) const { return infos_[at(parameter)]; }
    /// By key, four-letter tag or number of the tag; -1 if there is none.
    int parameter(std::string_view name) const;
    /// All of a family ("steplevel": steplevel0, ...; or the tag of the first), by index; the one
    /// where the name is that of one.
    std::vector<int> parameters(std::string_view name) const;
    float value(int parameter) const { return values_[at(parameter)]; }
    /// Place of the control, 0 .. 1.
    float position(int parameter) const;
    std::string text(int parameter) const { return text(parameter, value(parameter)); }
    std::string text(int parameter, float value) const;
    /// With a parameter's unit or without; false where it is no value of it.
    bool read(int parameter, const std::string& text, float& value) const;
    /// Changes with every change of any parameter or text, or of what editing() counts.
    unsigned changes() const noexcept { return changes_; }
    /// The same of one parameter.
    unsigned changes(int parameter) const { return counts_[at(parameter)]; }

    // Hands. A value is set within begin and end; set() outside of them is one gesture.
    void begin(int parameter);
    void set(int parameter, float value);
    void setPosition(int parameter, float position);
    void end(int parameter);
    void beginGroup();
    void endGroup();
    bool isHeld(int parameter) const { return held_[at(parameter)] > 0; }

    /// What one display has chosen for the others of its view, such as a "band"; no parameter.
    int chosen(const std::string& what) const;
    void choose(const std::string& what, int index) { choices_[what] = index; }

    // Meters. The list depends on the channels; whoever keeps indices asks again when layout()
    // changes.
    unsigned layout() const noexcept { return layout_; }
    int countMeters() const noexcept { return static_cast<int>(meters_.size()); }
    const VNK::MeterInfo& meterInfo(int meter) const { return meters_[at(meter)]; }
    int meter(std::string_view name) const;
    /// All of a family, as parameters(): one per channel for names such as "1000" or "level0".
    std::vector<int> meterFamily(std::string_view name) const;
    /// As of the last tick; not-a-number: nothing to show. So for an index of -1.
    float reading(int meter) const noexcept;
    std::string meterText(int meter, float value) const;

    /// What a display of the effect shows, read at most once a tick; a null node where it has none
    /// of this name.
    const DisplayNode& display(const std::string& name);
    /// The same for sinks of the caller's own, read anew with every call; false where there is
    /// none of this name. Who asks at a tick gets what the tick has brought: ticks() counts them.
    bool snapshot(const char* name, VNK::IDisplaySink& sink);
    unsigned ticks() const noexcept { return ticks_; }
    /// From now on what the effect's displays show is worked out, readings that come of it too;
    /// whoever asks for a display has it so anyway. Nothing where the effect has none.
    void openDisplays();

private:
    static std::size_t at(int index) noexcept { return static_cast<std::size_t>(index); }
    void readMeterList();

    struct Shown {
        DisplayNode node;
        unsigned tick = 0;
    };
    VNK::HostedEffect effect_;
    VNK::Ref<VNK::IEffectEditing> editing_;
    VNK::Ref<VNK::IEffectUserPresets> userPresets_;
    VNK::Ref<VNK::IEffectDisplays> displays_;
    std::unique_ptr<ParameterWriter> writer_;
    std::vector<VNK::ParameterInfo> infos_;
    std::vector<float> values_;
    std::vector<std::uint32_t> seen_;  // the component's counters
    std::vector<unsigned> counts_;
    std::vector<int> held_;
    int groups_ = 0;
    std::vector<std::uint32_t> texts_;
    std::uint32_t edits_ = 0;
    std::vector<VNK::MeterInfo> meters_;
    std::vector<float> readings_;
    std::map<std::string, Shown> shown_;
    std::map<std::string, int> choices_;
    unsigned changes_ = 0, layout_ = 0, ticks_ = 0;
    bool isOpen_ = false;  // displays
    double seconds_ = 0;
};

}  // namespace quillworks::editors
