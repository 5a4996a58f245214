// SPDX-License-Identifier: ISC
// The exponential sweep that responses are measured with.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

namespace quillworks {

struct SweepSettings {
    double sampleRate = 48000;  // Hz
    double seconds = 8;         // wanted; see Sweep::seconds()
    double from = 20;           // Hz
    double level = 1;           // peak, linear

    bool operator==(const SweepSettings&) const = default;
};

/// Exponential sweep up to half the sample rate (Farina 2000), synchronised (Novak, Lotton, Simon
/// 2015): with L f1 a whole number, x(t) = sin(2 pi f1 L exp(t/L)) starts at zero and, shifted by
/// L ln n, is its own n-th harmonic, phase included. It fades in over one period of f1 and ends at
/// its last zero crossing instead of fading out, which would make the response ring before it
/// begins (Farina 2007).
class Sweep {
public:
    explicit Sweep(const SweepSettings& settings) noexcept;

    double sampleRate() const noexcept { return sampleRate_; }
    double from() const noexcept { return from_; }
    double to() const noexcept { return sampleRate_ / 2; }
    double level() const noexcept { return level_; }
    /// Its length, the nearest to the one wanted that has whole periods.
    double seconds() const noexcept;
    std::size_t frames() const noexcept { return frames_; }
    /// By how many seconds the response of harmonic n comes before the linear one: L ln n.
    double harmonicLead(int n) const noexcept;

    /// Worked out in double precision. May throw std::bad_alloc.
    std::vector<float> samples() const;

    /// The sweep that these samples are, told by its length and its zero crossings; nothing where
    /// they are none. Coarse samples may hide its last ones.
    static std::optional<Sweep> recognise(std::span<const float> samples, double sampleRate);

private:
    Sweep(double sampleRate, double from, double periods, double level) noexcept;
    double at(double seconds) const noexcept;

    double sampleRate_, from_, level_;
    double periods_;  // L f1, whole
    double growth_;   // L: seconds in which the frequency grows by e
    std::size_t frames_;
};

/// What is played from a file: silence, then for each source the sweep and time for the room.
struct SweepSchedule {
    std::size_t lead = 0;   // frames of silence
    std::size_t sweep = 0;  // frames
    std::size_t tail = 0;   // frames of silence behind each
    int sources = 1;        // sweeps one after the other

    static constexpr double kLeadSeconds = 0.1;

    std::size_t start(int source) const noexcept
    {
        return lead + static_cast<std::size_t>(source) * (sweep + tail);
    }
    std::size_t frames() const noexcept { return start(sources); }
};

/// A file that was made to be played: its sweep, and the samples of it as the file has them.
struct SweepFile {
    Sweep sweep;
    SweepSchedule schedule;
    std::vector<float> samples;

    /// Nothing where the channels hold no such thing. May throw std::bad_alloc.
    static std::optional<SweepFile> recognise(std::span<const float* const> channels,
                                              std::size_t frames, double sampleRate);
};

}  // namespace quillworks
