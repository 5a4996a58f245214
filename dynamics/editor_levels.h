// SPDX-License-Identifier: ISC
// Levels before and behind an effect, measured and published while its editor is open.
#pragma once

#include <cstddef>
#include <vector>

#include "dsp/follower.h"
#include "framework/audio_block.h"
#include "framework/meter_slots.h"
#include "framework/parameter.h"

namespace quillworks {

/// Linear levels of every channel, which fall in 1 s and in 3 s.
struct LevelFamily {
    const char* key;
    Tag tag;  // of channel 0
    const char* title;
};
inline constexpr LevelFamily kInputFast{"inlevel", 1000, "InLevels"};
inline constexpr LevelFamily kInputSlow{"inlevelslow", 1100, "InLevels Slow"};
inline constexpr LevelFamily kOutputFast{"outlevel", 1200, "OutLevels"};
inline constexpr LevelFamily kOutputSlow{"outlevelslow", 1300, "OutLevels Slow"};

/// The table's row of one of these families. An effect may leave out those it does not measure.
template <class Settings> constexpr Parameter<Settings> levelRow(const LevelFamily& family)
{
    return {.key = family.key,
            .tag = family.tag,
            .title = family.title,
            .kind = Kind::Reading,
            .family = {.count = VNK::kMaxChannels, .perChannel = true}};
}

class EditorLevels {
public:
    /// Allocates.
    void prepare(const ProcessSpec& spec)
    {
        channels_.resize(static_cast<std::size_t>(spec.channels));
        for (auto& ch : channels_) {
            ch.input.prepare(spec.sampleRate);
            ch.output.prepare(spec.sampleRate);
        }
    }
    void reset() noexcept
    {
        for (auto& ch : channels_) {
            ch.input.reset();
            ch.output.reset();
        }
    }
    /// Levels begin at silence whenever the editor opens.
    void setOpen(bool isOpen) noexcept
    {
        isOpen_ = isOpen;
        reset();
    }
    bool isOpen() const noexcept { return isOpen_; }

    /// n samples that enter or leave a channel. Nothing is measured while the editor is closed.
    template <typename T> void measureInput(int channel, const T* x, int n) noexcept
    {
        if (isOpen_) channels_[static_cast<std::size_t>(channel)].input.run(x, n);
    }
    template <typename T> void measureOutput(int channel, const T* x, int n) noexcept
    {
        if (isOpen_) channels_[static_cast<std::size_t>(channel)].output.run(x, n);
    }
    void publish(MeterSlots& meters) const noexcept
    {
        if (!isOpen_) return;
        const auto publish = [&](const LevelFamily& family, auto level) {
            meters.publishFamily(family.tag, static_cast<int>(channels_.size()), [&](int c) {
                return static_cast<float>(level(channels_[static_cast<std::size_t>(c)]));
            });
        };
        publish(kInputFast, [](const Channel& ch) { return ch.input.fast.envelope; });
        publish(kInputSlow, [](const Channel& ch) { return ch.input.slow.envelope; });
        publish(kOutputFast, [](const Channel& ch) { return ch.output.fast.envelope; });
        publish(kOutputSlow, [](const Channel& ch) { return ch.output.slow.envelope; });
    }

private:
    struct Channel {
        LevelMeterPair input, output;
    };

    std::vector<Channel> channels_;
    bool isOpen_ = false;
};

}  // namespace quillworks
