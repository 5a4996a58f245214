// SPDX-License-Identifier: ISC
// A response ready to be played: convolver, tank, and what belongs to them.
#pragma once

#include <memory>
#include <optional>

#include "framework/audio_block.h"
#include "framework/handover.h"
#include "reverb/continued_tail.h"
#include "reverb/decay_analysis.h"
#include "reverb/partitioned_convolver.h"

namespace quillworks {

/// The list "tailmode".
enum class TailMode { Whole, Continue, Replace };

/// What a response has become for a layout and rate.
struct VaulterPlan {
    double sampleRate = 44100;
    int channels = 0;       // of the engine: inputs and outputs
    ResponseMatrix matrix;  // by the engine's channels; silent without responses
    std::optional<ContinuedTail> tail;
    TailMode mode = TailMode::Whole;  // Whole without a tail
    double autoGain = 1;
};

/// What moves while it is played.
struct TailControls {
    double decay = 1;        // of the times that were measured, for Continue
    double replaceTime = 2;  // s at 1 kHz, for Replace
    double motion = 0;       // 0 .. 1
    bool isFrozen = false;

    /// Decay times of a response's tank.
    std::array<double, kOctaves> times(const std::array<double, kOctaves>& measured,
                                       TailMode mode) const noexcept;
};

template <typename T> class VaulterSound {
public:
    static constexpr int kMostChannels = Tank<T>::kMostChannels;

    /// May throw std::bad_alloc, and Cancelled. [worker thread]
    VaulterSound(const VaulterPlan& plan, const TailControls& controls,
                 const IsCancelled& isCancelled);

    bool hasTank() const noexcept { return tank_ != nullptr; }
    double autoGain() const noexcept { return autoGain_; }
    /// Frames after which nothing is heard of an input that has ended.
    std::int64_t ringFrames() const noexcept;

    void reset() noexcept;
    void setTail(const TailControls& controls) noexcept;
    /// The tank, silent, at its settings at once.
    void snapTail() noexcept
    {
        if (tank_) tank_->reset();
    }
    /// Writes a slice of each output: the convolved part times `early`, the tank's times `late`.
    void process(const T* const* in, T* const* out, GridSlice slice, const T* early,
                 const T* late) noexcept;

private:
    static constexpr int kRow = DecayFilter<T>::kRow;

    int channels_;
    double sampleRate_, autoGain_;
    TailMode mode_;
    std::array<double, kOctaves> t60_{};
    double longest_ = 0;  // s, decay time of the tank as it was set last
    std::unique_ptr<PartitionedConvolver<T>> convolver_;
    std::unique_ptr<Tank<T>> tank_;
    DecayFilter<T> equaliser_;
    alignas(64) T rows_[2 * kMostChannels][kRow]{};  // of the convolver's outputs
};

/// The way of sounds for one rate and layout from the worker to the audio thread.
template <typename T> struct VaulterExchange {
    double sampleRate;
    VNK::SpeakerArrangement layout;
    Handover<VaulterSound<T>> sounds;
};

extern template class VaulterSound<float>;
extern template class VaulterSound<double>;

}  // namespace quillworks
