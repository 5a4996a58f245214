// SPDX-License-Identifier: ISC
// The way round a reverb's engine: what goes into it, and what becomes of it on the way out.
#pragma once

#include <algorithm>
#include <array>

#include "dsp/crossfade.h"
#include "dsp/cut_filters.h"
#include "dsp/dry_wet.h"
#include "dsp/ducker.h"
#include "dsp/long_line.h"
#include "dsp/stereo_width.h"
#include "framework/precision_algorithm.h"
#include "framework/speakers.h"
#include "reverb/reverb_settings.h"

namespace quillworks {

/// Bad samples are kept out and the pre-delay put in front; behind the engine come the cuts, width,
/// ducking, level and the mix with the dry signal, which is not delayed. LFE channels are dry
/// alone. A single channel that becomes two stands on both, dry and wet.
///
///     void process(const AudioBlock<T>& block) noexcept
///     {
///         path_.process(block, [this](const T* const* in, T* const* out, GridSlice slice) {
///             // channels() rows of kRow each, the LFE left out; all of `out` is to be written
///         });
///     }
///
/// The output has the same bits however the signal is divided, if the engine's has.
template <typename T> class WetPath {
public:
    static constexpr int kMostChannels = 16;
    /// Frames that the engine's rows have room for: a sub-block, and what vectors of any width read
    /// and write too far.
    static constexpr int kRow = kSubBlock + 16;

    /// Up to kMostChannels channels. What the pre-delay can be at most, in seconds, is written to
    /// round and round: a short line stays in the cache. Allocates; may throw std::bad_alloc.
    void prepare(const ProcessSpec& spec, double longestPreDelay = kLongestPreDelay);
    /// Silence, and everything that glides at its target.
    void reset() noexcept;
    void apply(const ReverbSettings& settings, unsigned dirty) noexcept;
    void setTempo(double beatsPerMinute) noexcept;
    void setWetOnly(bool wetOnly) noexcept { mixer_.setWetOnly(wetOnly); }

    /// Channels that the engine hears and fills, 1 or more.
    int channels() const noexcept { return channels_; }
    /// The layout's channel that such a one is.
    int channel(int i) const noexcept { return channel_[static_cast<std::size_t>(i)]; }

    /// engine(in, out, slice) for each slice of the control grid.
    template <class Engine> void process(const AudioBlock<T>& block, Engine&& engine) noexcept
    {
        begin(block);
        forEachSubBlock(block, [&](const AudioBlock<T>& part) {
            Rows delayed(channels_), wet(channels_);
            const T* in[kMostChannels];
            takeIn(part, delayed.row, in);
            engine(static_cast<const T* const*>(in), static_cast<T* const*>(wet.row), part);
            bringOut(part, wet.row);
        });
        end(block);
    }
    /// The rows of reverbReadings().
    void publish(MeterSlots& meters) const noexcept;

private:
    /// Room for a slice of each channel, not cleared.
    struct Rows {
        explicit Rows(int channels) noexcept
        {
            for (int c = 0; c < channels; ++c) row[c] = samples[c];
        }
        alignas(64) T samples[kMostChannels][kRow];
        T* row[kMostChannels];
    };

    void begin(const AudioBlock<T>& block) noexcept;
    void takeIn(const AudioBlock<T>& part, T* const* room, const T** in) noexcept;
    void bringOut(const AudioBlock<T>& part, T* const* wet) noexcept;
    void end(const AudioBlock<T>& block) noexcept;
    void updatePreDelay() noexcept;

    double sampleRate_ = 44100;
    int channels_ = 0;
    std::array<int, kMostChannels> channel_{};
    std::array<int, kMostChannels> lfe_{};  // channels of the layout that are dry alone
    int lfeCount_ = 0;
    ChannelPairs pairs_;       // of the engine's channels
    bool isFromMono_ = false;  // one channel comes in and two go out
    double tempo_ = 120;
    ReverbSettings settings_;
    LongLine<T> line_;
    Switch<int> preDelay_;  // samples
    CutFilters<T> cuts_;
    StereoWidth<T> width_;
    Ducker<T> ducker_;
    Smoothed<T> level_;  // linear
    Course<T> levels_;
    DryWet<T> mixer_;
    PeakLevels<T> peaks_;
};

/// Takes any layout of up to 16 channels as it is, and a single channel to left and right.
template <template <typename> class Core> class WetPathAlgorithm : public PrecisionAlgorithm<Core> {
public:
    using PrecisionAlgorithm<Core>::PrecisionAlgorithm;

    bool acceptsArrangement(const VNK::SpeakerArrangement& input,
                            const VNK::SpeakerArrangement& output) const noexcept override
    {
        const bool isToStereo = input.channels == 1 && output.channels == 2 &&
                                output.find(VNK::Speaker::L) >= 0 &&
                                output.find(VNK::Speaker::R) >= 0;
        return isToStereo || (input.channels <= WetPath<float>::kMostChannels &&
                              PrecisionAlgorithm<Core>::acceptsArrangement(input, output));
    }
};

}  // namespace quillworks
