// SPDX-License-Identifier: ISC
// Levels before and behind an effect, measured and published while its editor is open.
#pragma once

#include <algorithm>
#include <cstddef>
#include <type_traits>
#include <vector>

#include "dsp/level_lanes.h"
#include "dsp/vec.h"
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

/// Inputs wait on the stack of who plays a block until the outputs are there: all followers of a
/// pair of channels go side by side, and no instance has rows of its own.
class EditorLevels {
public:
    static constexpr int kLongest = 256;  // frames of a piece

    /// Allocates.
    void prepare(const ProcessSpec& spec)
    {
        channels_ = spec.channels;
        times_.prepare(spec.sampleRate);
        pairs_.resize(static_cast<std::size_t>((channels_ + 1) / 2));
        reset();
    }
    void reset() noexcept
    {
        for (auto& pair : pairs_) pair.reset();
    }
    /// Levels begin at silence whenever the editor opens.
    void setOpen(bool isOpen) noexcept
    {
        isOpen_ = isOpen;
        reset();
    }
    bool isOpen() const noexcept { return isOpen_; }

    /// Plays a block by play(piece), each piece after take(x, n) of its channels, behind which its
    /// inputs are measured. Nothing is measured while the editor is closed. Pieces end with the
    /// block or with a sub-block of the grid.
    template <typename T, class Take, class Play>
    void around(const AudioBlock<T>& block, Take&& take, Play&& play) noexcept
    {
        for (int done = 0; done < block.frames;) {
            const int phase = (block.phase + done) % kSubBlock;
            const auto piece = block.slice(done, std::min(kLongest - phase, block.frames - done));
            for (int c = 0; c < piece.channels; ++c) take(piece[c], piece.frames);
            if (isOpen_)
                playMeasured(piece, play);
            else
                play(piece);
            done += piece.frames;
        }
    }

    /// For those who cut their pieces by themselves, of at most kLongest frames.
    struct Inputs {
        alignas(32) float samples[VNK::kMaxChannels][kLongest + LevelLanes::kReadsBeyond];
    };
    template <typename T> void keep(Inputs& inputs, int channel, const T* x, int n) const noexcept
    {
        copy(inputs.samples[channel], x, n);
    }
    template <typename T> void measure(const Inputs& inputs, const AudioBlock<T>& output) noexcept
    {
        alignas(32) float rows[2][kLongest + LevelLanes::kReadsBeyond];
        const int n = output.frames;
        const auto rowOf = [&](int c, float* room) -> const float* {
            if constexpr (std::is_same_v<T, float>)
                if (n % LevelLanes::kReadsBeyond == 0) return output[c];
            copy(room, output[c], n);
            return room;
        };
        for (int c = 0; c < channels_; c += 2) {
            const int second = std::min(c + 1, channels_ - 1);  // a lone channel twice
            const float* const x[] = {inputs.samples[c], inputs.samples[second], rowOf(c, rows[0]),
                                      rowOf(second, rows[1])};
            pairs_[static_cast<std::size_t>(c / 2)].run(times_, x, n);
        }
    }
    void publish(MeterSlots& meters) noexcept
    {
        if (!isOpen_) return;
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
    template <typename T> static void copy(float* to, const T* x, int n) noexcept
    {
        if constexpr (std::is_same_v<T, float>)
            vec::copy(to, x, n);
        else
            for (int i = 0; i < n; ++i) to[i] = static_cast<float>(x[i]);
    }
    /// Apart, so that a closed editor does not take this much of the stack.
    template <typename T, class Play>
    [[gnu::noinline]] void playMeasured(const AudioBlock<T>& piece, Play&& play) noexcept
    {
        Inputs inputs;
        for (int c = 0; c < piece.channels; ++c) keep(inputs, c, piece[c], piece.frames);
        play(piece);
        measure(inputs, piece);
    }

    bool isOpen_ = false;
    int channels_ = 0;
    std::vector<LevelLanes> pairs_;  // of channels: both inputs, both outputs
    LevelLanes::Times times_;
};

}  // namespace quillworks
