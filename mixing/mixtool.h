// SPDX-License-Identifier: ISC
// Mix tool: gain, polarity, channel swap, mid/side, DC blocking and per-channel level, mute and
// solo.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "dsp/dc_blocker.h"
#include "framework/editor_levels.h"
#include "framework/effect_component.h"
#include "framework/precision_algorithm.h"
#include "framework/speakers.h"
#include "mixing/decibel_glide.h"

namespace quillworks {

inline constexpr int kMixToolChannels = 16;

struct MixToolSettings {
    float gain;     // linear
    float dcBlock;  // toggles: on while not 0
    float swap;
    float midSide;
    float levels[kMixToolChannels];  // linear
    // Bit c stands for channel c.
    std::uint32_t sidePolarity;     // inverted by the switches of left and right
    std::uint32_t channelPolarity;  // inverted by the channels' own switches
    std::uint32_t muted;            // by the user
    std::uint32_t soloed;
    float editorOpen;
};

template <typename T> class MixToolCore {
public:
    using Settings = MixToolSettings;
    static constexpr CoreHooks kHooks{.publish = true};
    enum Group : unsigned { Routing = 1, Gain = 2, Levels = 4, Editor = 8 };

    void prepare(const ProcessSpec& spec);
    void reset() noexcept;
    void apply(const Settings& settings, unsigned dirty) noexcept;
    void process(const AudioBlock<T>& block) noexcept;
    void publish(MeterSlots& meters) noexcept { measured_.publish(meters); }

private:
    /// What happens to the channels of a step, beside polarity and gain.
    enum class Mode { Plain, Swap, MidSide };
    struct Channel {
        DecibelGlide level;
        DcBlocker dcBlocker;
        T sign = 1;  // of the last sample seen
    };

    void processStep(const AudioBlock<T>& step) noexcept;
    void invertAndScale(const AudioBlock<T>& step, int first, T gain) noexcept;
    void switchAtZeroCrossing(Channel& channel, std::uint32_t bit, T* x, int n, T gain) noexcept;
    void swap(const AudioBlock<T>& step) noexcept;
    void midSide(const AudioBlock<T>& step, T gain) noexcept;
    bool isAtRest() const noexcept;

    Mode mode_ = Mode::Plain;
    bool isSwapped_ = false, isMidSide_ = false;
    bool blocksDc_ = false, blockedDc_ = false;  // now and in the block before
    std::uint32_t polarity_ = 0;                 // as set
    std::uint32_t heardPolarity_ = 0;            // in effect: the rest waits for a zero crossing
    DecibelGlide gain_;
    ChannelPairs pairs_;
    std::vector<Channel> channels_;
    EditorLevels measured_;
};

class MixToolAlgorithm final : public PrecisionAlgorithm<MixToolCore> {
public:
    MixToolAlgorithm();
    bool acceptsArrangement(const VNK::SpeakerArrangement& input,
                            const VNK::SpeakerArrangement& output) const noexcept override;
    void setParameter(Tag tag, float value) noexcept override;
};

class MixToolComponent final : public AudioEffectComponent {
public:
    explicit MixToolComponent(MixToolAlgorithm& algorithm);

private:
    void changed(const AlgorithmParameter& parameter, float before, Setter by) noexcept override;
    void reconcile() noexcept override;
    void clearFullSolo(Setter by) noexcept;
    void joinPolarity(Tag moved, Setter by) noexcept;
};

}  // namespace quillworks
