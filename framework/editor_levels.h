// SPDX-License-Identifier: ISC
// Levels before and behind an effect, measured and published while its editor is open.
#pragma once

#include <algorithm>
#include <cassert>
#include <cstddef>
#include <vector>

#include "dsp/aligned_buffer.h"
#include "dsp/level_lanes.h"
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

/// In slices, the channels of each in their order. What is measured waits until there is enough of
/// it or it is published: the envelopes are followed side by side, many frames at a time.
class EditorLevels {
public:
    static constexpr int kLongest = 256;  // frames of a slice

    /// Allocates.
    void prepare(const ProcessSpec& spec)
    {
        channels_ = spec.channels;
        times_.prepare(spec.sampleRate);
        pairs_.resize(static_cast<std::size_t>((channels_ + 1) / 2));
        waiting_.require(pairs_.size() * LevelLanes::kSignals * kRow);
        reset();
    }
    void reset() noexcept
    {
        for (auto& pair : pairs_) pair.reset();
        frames_[kInput] = frames_[kOutput] = 0;
    }
    /// Levels begin at silence whenever the editor opens.
    void setOpen(bool isOpen) noexcept
    {
        isOpen_ = isOpen;
        reset();
    }
    bool isOpen() const noexcept { return isOpen_; }

    /// n <= kLongest samples that enter or leave a channel. Nothing is measured while the editor is
    /// closed.
    template <typename T> void measureInput(int channel, const T* x, int n) noexcept
    {
        if (isOpen_) measure(kInput, channel, x, n);
    }
    template <typename T> void measureOutput(int channel, const T* x, int n) noexcept
    {
        if (isOpen_) measure(kOutput, channel, x, n);
    }
    /// The inputs of a slice, on the stack of who works on long ones: in place of measureInput()
    /// and measureOutput() keep() for each channel, and measure() with the outputs.
    struct Inputs {
        float samples[VNK::kMaxChannels][kLongest + LevelLanes::kReadsBeyond];
    };
    template <typename T> void keep(Inputs& inputs, int channel, const T* x, int n) const noexcept
    {
        copy(inputs.samples[channel], x, n);
    }
    template <typename T> void measure(const Inputs& inputs, const AudioBlock<T>& output) noexcept
    {
        float rows[2][kLongest + LevelLanes::kReadsBeyond];
        for (int c = 0; c < channels_; c += 2) {
            const int second = std::min(c + 1, channels_ - 1);  // a lone channel twice
            copy(rows[0], output[c], output.frames);
            copy(rows[1], output[second], output.frames);
            const float* const x[] = {inputs.samples[c], inputs.samples[second], rows[0], rows[1]};
            pairs_[static_cast<std::size_t>(c / 2)].run(times_, x, output.frames);
        }
    }
    void publish(MeterSlots& meters) noexcept
    {
        if (!isOpen_) return;
        follow();
        const auto publish = [&](const LevelFamily& family, auto level) {
            meters.publishFamily(family.tag, channels_, [&](int c) {
                return static_cast<float>(level(pairs_[static_cast<std::size_t>(c / 2)], c % 2));
            });
        };
        publish(kInputFast, [](const LevelLanes& pair, int c) { return pair.fast(c); });
        publish(kInputSlow, [](const LevelLanes& pair, int c) { return pair.slow(c); });
        publish(kOutputFast, [](const LevelLanes& pair, int c) { return pair.fast(2 + c); });
        publish(kOutputSlow, [](const LevelLanes& pair, int c) { return pair.slow(2 + c); });
    }

private:
    enum Side { kInput, kOutput };
    static constexpr int kEnough = 64;  // frames: longer rows would crowd the cache
    static constexpr int kRow = kLongest + LevelLanes::kReadsBeyond;

    /// Where the samples of a channel wait. Of a pair of channels the inputs come first.
    float* row(int channel, Side side) noexcept
    {
        return waiting_.data() +
               (channel / 2 * LevelLanes::kSignals + 2 * side + channel % 2) * kRow;
    }
    template <typename T> static void copy(float* to, const T* x, int n) noexcept
    {
        for (int i = 0; i < n; ++i) to[i] = static_cast<float>(x[i]);
    }
    template <typename T> void measure(Side side, int channel, const T* x, int n) noexcept
    {
        assert(n <= kLongest);
        n = std::min(n, kLongest);
        if (channel == 0) {
            if (frames_[side] + n > std::max(n, kEnough)) follow();
            begin_[side] = frames_[side];
            frames_[side] += n;
        }
        copy(row(channel, side) + begin_[side], x, n);
    }
    /// Takes on what waits.
    void follow() noexcept
    {
        const int in = frames_[kInput], out = frames_[kOutput];
        for (int c = 0; c < channels_; c += 2) {
            auto& pair = pairs_[static_cast<std::size_t>(c / 2)];
            const float* const x[] = {row(c, kInput), row(c + 1, kInput), row(c, kOutput),
                                      row(c + 1, kOutput)};
            if (in == out) {
                pair.run(times_, x, in);
                continue;
            }
            pair.runHalf(times_, x, kInput, in);
            pair.runHalf(times_, x, kOutput, out);
        }
        frames_[kInput] = frames_[kOutput] = 0;
    }

    bool isOpen_ = false;
    int channels_ = 0;
    int begin_[2] = {};              // of the present slice among the frames that wait
    int frames_[2] = {};             // that wait, of the inputs and of the outputs
    std::vector<LevelLanes> pairs_;  // of channels: both inputs, both outputs
    AlignedBuffer<float> waiting_;
    LevelLanes::Times times_;
};

}  // namespace quillworks
