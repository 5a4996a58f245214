// SPDX-License-Identifier: ISC
// A small effect on which the frame is tried.
#pragma once

#include <functional>
#include <utility>
#include <vector>

#include "dsp/smoothed.h"
#include "framework/effect_component.h"
#include "framework/precision_algorithm.h"

namespace quillworks::test {

struct ProbeSettings {
    float gain;
    float steps[3];
    float late;
};

/// Multiplies by a glided gain, adds the side-chain, and remembers what it was told.
template <typename T> struct ProbeCore {
    using Settings = ProbeSettings;
    static constexpr CoreHooks kHooks{.tempo = true, .wetOnly = true, .publish = true};
    enum Group : unsigned { Gain = 1, Steps = 2 };
    void prepare(const ProcessSpec& spec)
    {
        if (spec.sampleRate == 666) throw std::bad_alloc();
        gain.prepareHalfLife(4);
    }
    void reset() noexcept
    {
        gain.snap();
        ++resets;
    }
    void apply(const Settings& s, unsigned dirty) noexcept
    {
        if (dirty & Gain) gain.target(T(s.gain));
        if (dirty & Steps) sum = s.steps[0] + s.steps[1] + s.steps[2];
    }
    void process(const AudioBlock<T>& block) noexcept
    {
        transport = *block.transport;
        side = block.sideChainChannels;
        forEachSubBlock(block, [this](const AudioBlock<T>& part) {
            const auto g = gain.next(part);
            for (int c = 0; c < part.channels; ++c)
                for (int i = 0; i < part.frames; ++i)
                    part[c][i] *= g.from + (g.to - g.from) * T(i + 1) / T(part.frames);
            for (int c = 0; c < part.sideChainChannels; ++c)
                for (int i = 0; i < part.frames; ++i) part[0][i] += part.side(c)[i];
        });
    }
    void setTempo(double t) noexcept { tempo = t; }
    void setWetOnly(bool w) noexcept { wetOnly = w; }
    void publish(MeterSlots& meters) noexcept
    {
        meters.publish("Gain"_tag + 1, float(gain.current()));
        for (Tag c = 0; c < 4; ++c) meters.publish(700 + c, float(c));
    }

    Smoothed<T> gain;
    float sum = 0;
    int resets = 0, side = 0;
    double tempo = 0;
    bool wetOnly = false;
    VNK::Transport transport;
};

inline constexpr const char* kProbeTexts[] = {"Low", "Middle", "High"};
inline constexpr Parameter<ProbeSettings> kProbe[] = {
    {"gain",
     "Gain"_tag,
     "Gain",
     Kind::Float,
     -60,
     12,
     0,
     "Media.DB",
     &ProbeSettings::gain,
     ProbeCore<float>::Gain,
     conversion::decibels,
     {.minText = "Off"}},
    {"step",
     500,
     "Step",
     Kind::List,
     2,
     4,
     2,
     "",
     nullptr,
     ProbeCore<float>::Steps,
     conversion::asIs,
     {.texts = kProbeTexts},
     {.count = 3,
      .element = [](ProbeSettings& s, int i) -> float& { return s.steps[i]; },
      .defaultAt = [](int i) { return float(2 + i); }}},
    {"late", "Late"_tag, "Late", Kind::Toggle, 0, 1, 0, "", &ProbeSettings::late},
    {"undeclared", "Unde"_tag, "Undeclared"},
    {"level", "Gain"_tag + 1, "Level", Kind::Meter, 0, 2, 0.5},
    {"reset", "Rset"_tag, "Reset", Kind::Trigger},
    {"bypass", "Bypa"_tag, "Bypass", Kind::Bypass},
    {"", "Edit"_tag, "", Kind::Command},
    {"channel",
     700,
     "Channel",
     Kind::Reading,
     0,
     9,
     0,
     "",
     nullptr,
     0,
     conversion::asIs,
     {},
     {.count = 4, .perChannel = true}},
};

class ProbeAlgorithm final : public PrecisionAlgorithm<ProbeCore, AudioSideChainInsertAlgorithm> {
public:
    ProbeAlgorithm() : PrecisionAlgorithm(kProbe) {}
    bool acceptsArrangement(const VNK::SpeakerArrangement& in,
                            const VNK::SpeakerArrangement& out) const noexcept override
    {
        return in.channels <= out.channels;  // one channel to many
    }
    void setParameter(Tag tag, float value) noexcept override
    {
        seen.emplace_back(tag, value);
        PrecisionAlgorithm::setParameter(tag, value);
    }
    template <class F> void core(F&& f) { withCore(f); }
    std::vector<std::pair<Tag, float>> seen = [] {
        std::vector<std::pair<Tag, float>> v;
        v.reserve(1000);
        return v;
    }();
};

class ProbeComponent final : public AudioEffectComponent {
public:
    explicit ProbeComponent(ProbeAlgorithm& a)
        : AudioEffectComponent(a, {.viewPrefix = "Probe", .algorithmVersion = 3})
    {
        declareAttribute("mode", 7);
        declareText({.key = "source",
                     .title = "Source",
                     .help = "What is played.",
                     .defaultText = "factory:Probe",
                     .kind = VNK::TextKind::File});
        declareText({.key = "note", .title = "Note"});
    }
    bool acceptsText(const std::string&, const std::string& text,
                     std::string& reason) const override
    {
        return text != "refused" || (reason = "it is refused", false);
    }
    void textChanged(const std::string& key) noexcept override { told += key + " "; }
    std::string problemOf(const std::string& key) const override
    {
        return text(key) == "/missing" ? "there is no such file" : "";
    }
    void complete(StoredState& state) const override
    {
        if (!data.bytes.empty()) state.attributes["data"] = data;
    }
    void restored(const StoredState& state) override
    {
        const auto* stored = state.attribute<Blob>("data");
        data = stored ? *stored : Blob();
        told += "restored ";
    }
    using AudioEffectComponent::baseFolder;
    using AudioEffectComponent::moveText;
    std::string told;
    Blob data;
    Delays delays(double rate) const noexcept override
    {
        const bool isLate = isOn("late");
        if (meanwhile) std::exchange(meanwhile, {})();
        return isLate ? Delays{static_cast<std::uint32_t>(rate / 100), 2000} : Delays{};
    }
    mutable std::function<void()> meanwhile;
    void changed(const AlgorithmParameter& p, float, Setter by) noexcept override
    {
        if (p.key == "late") set("undeclared", value("late"), by);
    }
    void migrate(StoredState& state) const override
    {
        if (state.algorithmVersion.value_or(1) < 3) state.set("gain", -3);
    }
};

}  // namespace quillworks::test
