// SPDX-License-Identifier: ISC
// A converter pair with a clock of its own: sample, quantise, hold.
#pragma once

#include <memory>
#include <vector>

#include "distortion/digitiser_kernels.h"
#include "distortion/quantiser.h"
#include "distortion/sample_clock.h"
#include "dsp/crossfade.h"
#include "dsp/gliding_course.h"
#include "dsp/recent_samples.h"
#include "dsp/sinc_table.h"

namespace quillworks {

/// Samples its input at the times of its clock by a windowed sinc, quantises what it finds, and
/// plays it as steps that are band-limited (Stilson and Smith 1996; Valimaki and Huovilainen 2007):
/// the only frequencies it adds are those of a converter of that rate, whatever the rate of the
/// signal. While the clock is off it quantises sample by sample. Channels have the clock in common.
///
/// All in double: so the decisions of the quantiser do not hang on the precision around it.
class Digitiser {
public:
    static constexpr int kLatency = 32;  // frames, clock on or off

    /// `glideHalfLife` in sub-blocks. Allocates; may throw std::bad_alloc.
    void prepare(double sampleRate, int channels, double glideHalfLife);
    void reset() noexcept;

    /// Rate in Hz, above 0 and below the signal's rate, or the clock off. Changes of that fade.
    void setClock(bool isOn, double rate) noexcept;
    void setJitter(double share) noexcept { jitter_.target(share); }
    /// Bits, 1 .. 24 and parts of one.
    void setQuantiser(QuantiserLaw law, double bits) noexcept;
    /// Share of triangular dither, 0 .. 1.
    void setDither(double share) noexcept { dither_.target(share); }

    /// All channels in place; a slice lies within a sub-block.
    void process(double* const* x, GridSlice slice) noexcept;

private:
    static constexpr int kMaxEdges = SampleClock::kMaxEdges;

    struct Channel {
        RecentSamples<double> past;
        double held = 0;              // value that the latest step leads to
        double level = 0;             // of the output
        int age = kStepTaps;          // frames since the latest step, or more than its length
        double sums[kDrawnFrames]{};  // what the level grows by in the coming frames
    };

    void follow(GridSlice slice) noexcept;
    void startClock(GridSlice slice) noexcept;
    void layEdges(GridSlice slice) noexcept;
    void convert(double* x, int n, const double* steps, const double* dither, const double* fade,
                 std::uint32_t index, int channel) const noexcept;
    void drawEdges(int n) noexcept;
    int completion(std::size_t channel, int n) const noexcept;
    template <std::size_t count> void play(std::size_t first, int n, double* const* out) noexcept;

    double sampleRate_ = 44100;
    std::shared_ptr<const SincTable<double>> taps_, increments_;
    Switch<bool> isClocked_;
    Switch<QuantiserLaw> law_;
    GlidingCourse<double> period_, jitter_, steps_, dither_;
    SampleClock clock_;
    std::uint32_t frames_ = 0;  // since the last reset, for the dither without a clock
    std::vector<Channel> channels_;

    // Of the slice.
    SampleClock::Edges edges_;
    double fade_[kSubBlock]{};  // weight of a new law
    double edgeSteps_[kMaxEdges], edgeDither_[kMaxEdges], edgeFade_[kMaxEdges];
    double tapPlace_[kMaxEdges], incrementPlace_[kMaxEdges];  // in the rows of the tables
    // What all channels find at the edges, and what they step by there.
    struct Found {
        double value[kMaxEdges], step[kMaxEdges];
    };
    std::vector<Found> found_;
    // For the kernels, by channel.
    std::vector<const double*> pasts_, heights_;
    std::vector<double*> values_, sums_;
    AlignedBuffer<double> rows_;
};

}  // namespace quillworks
