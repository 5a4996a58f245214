// SPDX-License-Identifier: ISC
// The late part of a room: a feedback delay network with decay times by frequency.
#pragma once

#include <array>
#include <memory>
#include <span>

#include "dsp/course.h"
#include "reverb/decay_filter.h"
#include "reverb/grid_lines.h"
#include "reverb/tank_geometry.h"
#include "reverb/tank_kernels.h"

namespace quillworks {

struct TankSpec {
    double sampleRate = 44100;
    int lines = 16;          // 8 or 16
    int steps = 2;           // of diffusion, 1 or 2
    std::uint32_t seed = 1;  // of its lengths
    int inputs = 2;          // 1 .. 16
    int outputs = 2;         // 1 .. 16
    bool hasAllPasses = false;
    /// The outputs are taken behind the lines' filters: what comes later has decayed from the
    /// start. Else what comes out first is as loud from the longest line as from the shortest,
    /// which suits decays that are short beside the lines.
    bool isHeardDecayed = true;
    double longest = 0.05;  // the largest setSize() in seconds, both
    double longestSpan = 0.01;
    std::shared_ptr<const DecayDesign> design;  // of the lines' filters
};

/// What is lost on the way through a line, in seconds, and its all-pass. The all-pass's own delay
/// decays too (Dahl, Jot, "A reverberator based on absorbent all-pass filters", DAFx 2000), by the
/// decay time of the middle: else what it holds back for longer would decay more slowly than the
/// rest. Its filter does what is left, so that a longer way has lost more at every frequency.
struct LineLoss {
    double allPassDb = 0;  // of its delay, not above 0
    std::array<double, OctaveDecayDesign::kBands>
        seconds{};  // for the filter, of line and all-pass

    LineLoss(std::span<const double> times, double line, double allPass) noexcept;
};

/// Delay lines of different prime lengths, mixed by a Hadamard matrix, each with a filter that
/// takes the decibels which its length owes the decay time (Stautner, Puckette 1982; Jot, Chaigne
/// 1991). The sound enters through Hadamard matrices with short delays in front of them, the last
/// of which is that of the lines: it is dense before it comes round for the first time, and since
/// nothing goes back, without colour. Optionally there is an all-pass in each line, which decays as
/// it does. In front of the matrix, where the sound does not enter yet, pairs of lines rotate
/// slowly: a matrix that varies in time but keeps energy (Schlecht, Habets, "Time-varying feedback
/// matrices in feedback delay networks and their application in artificial reverberation", JASA
/// 2015), so no resonance stands, no pitch is bent and a frozen sound can move for ever.
///
/// A change of size fades each line to its new length, one line after the other, without bending
/// the pitch; one change at a time, the latest waits, and while frozen all wait. Input and outputs
/// are planar; every input injects the same energy, the first into the even lines and the second
/// into the odd ones where there are two. The outputs are different sums of the same lines.
///
/// The same bits however the signal is divided into slices. The work of a sub-block is bounded: of
/// one line the filter is designed in it. What is not finite clears the tank.
template <typename T> class Tank {
public:
    static constexpr int kMostChannels = 16;

    /// Allocates for the largest geometry, without touching it; may throw std::bad_alloc.
    /// Everything is as set before or at its default: the shortest size, 1 s, no motion, not
    /// frozen.
    void prepare(const TankSpec& spec);
    /// Silence; everything at its target.
    void reset() noexcept;
    /// Silence. Between sub-blocks.
    void clear() noexcept;

    /// Delay of the shortest line, and of the first step of diffusion, in seconds.
    void setSize(double shortest, double span) noexcept;
    /// Times in which the sound decays by 60 dB: as many as the design takes, in seconds.
    void setDecay(std::span<const double> seconds) noexcept;
    /// Coefficient of the all-passes, 0 .. below 1; glides.
    void setAllPass(double g) noexcept { allPass_.target(g); }
    /// 0 .. 1: pairs rotate by up to half a turn to each side; glides.
    void setMotion(double amount) noexcept { motion_.target(amount); }
    /// Nothing comes in and nothing decays, from 30 ms later on; or back.
    void freeze(bool isOn) noexcept { isFreezing_ = isOn; }
    /// Nothing comes in, nor decays.
    bool isFrozen() const noexcept { return frozen_ == freezeLength_; }

    /// A slice of all inputs.
    void process(const T* const* in, GridSlice slice) noexcept;
    /// What it gave, until the next process().
    const T* output(int o) const noexcept { return outputs_[index(o)]; }
    const T* const* outputs() const noexcept { return outputs_.data(); }

    // Of the size last set:
    /// Mean of the lines' delays with their all-passes, and their sum, in seconds.
    double meanPeriod() const noexcept;
    double totalPeriod() const noexcept { return meanPeriod() * spec_.lines; }
    /// From an input to the earliest sound, in samples.
    int shortestPath() const noexcept;

    /// Gain that makes a decay time four times longer 3 dB louder: half of what the lines would
    /// gain by themselves, of which a share `a` of the energy is left after a pass, and a/(1 - a)
    /// heard; 1 at 1.8 s. `seconds` at 1 kHz.
    double level(double seconds) const noexcept;
    /// Delay of the longest line in seconds, at most, as a tail counts it.
    static double longestLine(double shortest) noexcept { return shortest * TankGeometry::kRatio; }

private:
    static constexpr int kMostLines = TankDelays::kMostLines, kMostSteps = TankDelays::kMostSteps;
    static constexpr int kRow = GridLines<T>::kRow;
    using Rows = std::array<T*, kMostLines>;
    using Places = std::array<const T*, kMostLines>;
    static std::size_t index(int i) noexcept { return static_cast<std::size_t>(i); }

    void advance() noexcept;
    void advanceGeometry() noexcept;
    void advanceMotion() noexcept;
    void startMotion() noexcept;
    void advanceFilters() noexcept;
    void design(int line) noexcept;
    void tune(int line, bool glides) noexcept;
    const TankDelays& delaysOf(int line) const noexcept;
    int fadeOf(int line) const noexcept;
    void look(const GridLines<T>& lines, const TankDelays::PerLine& old,
              const TankDelays::PerLine& fresh, GridSlice slice, Places& places,
              const Rows& rooms) const noexcept;
    const T* fade(const GridLines<T>& lines, int line, int from, int to, GridSlice slice,
                  T* room) const noexcept;
    void feed(const T* const* in, GridSlice slice) noexcept;
    void diffuse(GridSlice slice, Places& entering) noexcept;
    void circulate(const Places& entering, GridSlice slice) noexcept;
    void silence(GridSlice slice) noexcept;

    TankSpec spec_;
    TankGeometry geometry_;
    double shortest_ = 0, span_ = 0;  // as set
    TankDelays wanted_, coming_, now_;
    bool isResized_ = false;                 // wanted_ is new
    bool isChanging_ = false;                // from now_ to coming_
    int change_ = 0;                         // its sub-blocks so far
    int fadeLength_ = 1, fadeDistance_ = 1;  // sub-blocks: of a line, and from line to line

    std::array<double, OctaveDecayDesign::kBands> seconds_{};
    std::array<DecayGains, kMostLines> gains_{};
    std::array<double, kMostLines> allPassDb_{};
    Moving<T> kept_{};       // of the all-passes' delays
    unsigned outdated_ = 0;  // bit i: the filter of line i
    int turn_ = 0;           // whose filter is looked at next
    DecayFilter<T> filter_;

    bool isFreezing_ = false, isBroken_ = false;
    int frozen_ = 0, freezeLength_ = 1;  // sub-blocks
    Course<T> inflow_;

    Smoothed<double> allPass_, motion_;
    Ramp<T> g_{0, 0};
    // Of each pair's phase, and of what it advances by in a sub-block.
    std::array<double, kMostLines / 2> phaseCosine_{}, phaseSine_{}, stepCosine_{}, stepSine_{};
    Moving<T> cosine_{}, sine_{};

    GridLines<T> inflows_, steps_, lines_, allPasses_;
    int inflowCount_ = 1;
    std::array<T, kMostChannels> inputGain_{};
    T scale_ = 1;                       // that makes the transform keep energy
    T sign_[kMostSteps][kMostLines]{};  // times it
    const TankKernels<T>& kernels_ = tankKernels<T>();
    AlignedBuffer<T> rooms_;
    Rows lineRoom_{}, allPassRoom_{}, stepRoom_[kMostSteps]{}, filtered_{};
    std::array<T*, kMostChannels> outputs_{};
    T* spare_ = nullptr;
};

}  // namespace quillworks
