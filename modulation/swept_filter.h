// SPDX-License-Identifier: ISC
// A filter of second or fourth order whose corner may move as fast as it likes.
#pragma once

#include <array>

#include "dsp/aligned_buffer.h"
#include "dsp/course.h"
#include "dsp/smoothed.h"
#include "modulation/stereo_lfo.h"
#include "modulation/swept_filter_kernels.h"

namespace quillworks {

enum class FilterType { Low12, Low24, High12, High24, Band12, Band24, Notch, Peak };
inline constexpr int kFilterTypes = 8;

/// Two state-variable sections by the trapezoidal rule (Zavalishin 2012), whose damping grows with
/// the level of their bands. For silence at the input the rule gives (z1'^2 + z2'^2) - (z1^2 +
/// z2^2) = -4 g ke v1^2, never above 0 for any g > 0 and ke >= 0: no modulation, at any rate, can
/// add energy. So the damping needs no iteration and goes by the last sample's level.
///
/// Runs at once or twice the rate of the control grid, its input in as many phases; channels in
/// slots as of AllPassLattice.
template <typename T> class SweptFilter {
public:
    /// `sampleRate` of the control grid; factor 1 or 2. Allocates; may throw std::bad_alloc.
    void prepare(double sampleRate, int factor, int slots);
    /// Silence, and all at its target.
    void reset() noexcept;
    /// Goes over in 20 ms.
    void setType(FilterType type) noexcept;
    /// 0 .. 1; glides.
    void setResonance(double resonance) noexcept { resonance_.target(resonance); }

    /// Where a sub-block begins: to the share 0 .. 1 of the damping that grows with the level.
    void next(double drive) noexcept;
    /// Where groups of frames begin: `count` from the group `first` of the sub-block on. Warped
    /// frequencies at the inner rate, before the first group and where each ends.
    void lay(int first, int count, const double (*g)[kSides]) noexcept;
    /// x[p]: all slots of phase p, in place; null where a slot has no channel.
    void process(T* const* const* x, GridSlice slice) noexcept;

    /// Of the sharper section.
    static double qualityOf(FilterType type, double resonance) noexcept;

private:
    /// What a type is made of; types are faded by fading this.
    enum Part {
        kFirst12,      // of the first section's damping, the shares that belong to 12 dB,
        kFirst24,      // to 24 dB,
        kFirstBand24,  // and to the band-pass of 24 dB
        kSecond24,
        kSecondBand24,
        kWeights,  // six, as in SweptFilterValue
        kParts = kWeights + 6
    };
    using Parts = std::array<double, kParts>;
    static const Parts kPartsOf[kFilterTypes];

    int slots_ = 0, factor_ = 1;
    Smoothed<double> resonance_;
    FilterType type_ = FilterType::Low24;
    Parts parts_{}, step_{};             // at the end of the sub-block, and per sub-block
    int fadeLength_ = 1, fadeLeft_ = 0;  // sub-blocks
    bool isLaid_ = false;
    double drive_ = 0;
    std::array<T, kSweptFilterValues> to_{}, slope_{};
    bool moves_ = false;
    AlignedBuffer<T> rows_, states_;
};

}  // namespace quillworks
