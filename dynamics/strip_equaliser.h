// SPDX-License-Identifier: ISC
// The channel strip's filters: low cut and four bands in one chain of sections.
#pragma once

#include "dsp/matched_band.h"
#include "dsp/section_chain.h"
#include "dsp/smoothed.h"

namespace quillworks {

/// What of the strip's path cannot glide: another one is cross-faded with the one before.
struct StripPath {
    int cutOrder = 0;  // of the low cut: 0 (off), 2 or 4
    bool lowIsBell = false, highIsBell = false;
    bool dynamicsFirst = false;

    bool operator==(const StripPath&) const = default;
};

/// Frequencies, Q and gains on their way to what is set: octaves, octaves and decibels, at the
/// pack's pace. Shared by the two runs of a cross-fade.
class StripCourses {
public:
    static constexpr int kBands = 4;  // low, low mid, high mid, high

    struct Band {
        Smoothed<double> octave, q, gain;
        bool isIn = false;     // heard in the open sub-block
        bool moves = false;    // in the open sub-block
        double frequency = 0;  // at its end, in Hz
        double resonance = 0;  // Q
        double before = 0;     // gain where it begins, dB

        double db() const noexcept { return gain.current(); }
    };

    void prepare(double sampleRate) noexcept;
    /// At the targets.
    void snap() noexcept;
    /// Frequency in Hz, gain in dB.
    void setBand(int band, double frequency, double db, double q) noexcept;
    void setCut(double frequency) noexcept { cut_.target(std::log2(frequency)); }
    /// The low cut comes in: at its frequency.
    void startCut() noexcept { cut_.snap(); }

    /// Where a sub-block begins.
    void advance() noexcept;
    const Band& band(int i) const noexcept { return bands_[i]; }
    double cutFrequency() const noexcept { return std::exp2(cut_.current()); }
    bool cutMoves() const noexcept { return cutMoves_; }

private:
    Band bands_[kBands];
    Smoothed<double> cut_;
    bool cutMoves_ = false;
};

/// One run of the filters. A band at 0 dB that does not move is left out, and so is a low cut that
/// is off: with all of them out nothing is done. What comes in starts from silence.
template <typename T> class StripEqualiser {
public:
    static constexpr int kCutSections = 2;
    static constexpr int kSections = kCutSections + StripCourses::kBands;

    /// Allocates; may throw std::bad_alloc.
    void prepare(double sampleRate, int channels);
    /// Silence, on this path.
    void reset(const StripPath& path) noexcept;
    /// Goes on from where `other` stands, on another path: filters that this one has not, or has of
    /// another kind, start from silence.
    void takeOver(const StripEqualiser& other, const StripPath& path) noexcept;

    /// Where a sub-block begins, behind StripCourses::advance().
    void follow(const StripCourses& courses) noexcept;
    bool hasCut() const noexcept { return path_.cutOrder > 0; }
    bool hasBands() const noexcept { return firstBand_ <= lastBand_; }
    /// In place: the low cut, the bands, or both.
    void processCut(T* const* x, GridSlice slice) noexcept;
    void processBands(T* const* x, GridSlice slice) noexcept;
    void process(T* const* x, GridSlice slice) noexcept;

private:
    using Coefficients = SectionCoefficients<T>;

    int firstCut() const noexcept { return path_.cutOrder == 4 ? 0 : 1; }
    Coefficients cutSection(int section, double frequency) const noexcept;
    MatchedBand design(int band, const StripCourses::Band& at, double db) const noexcept;
    void followCut(const StripCourses& courses) noexcept;
    void leaveOut(int section) noexcept;

    double sampleRate_ = 44100;
    StripPath path_;
    SectionChain<T> chain_;              // low cut, then the bands
    bool isLaid_[kSections]{};           // the section has coefficients of its filter
    int firstBand_ = 0, lastBand_ = -1;  // that are in
};

}  // namespace quillworks
