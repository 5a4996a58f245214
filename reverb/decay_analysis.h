// SPDX-License-Identifier: ISC
// Room acoustics of an impulse response: onset, octave bands, and how each dies away.
//
// Pure functions, of any thread but the audio thread; all may throw std::bad_alloc.
#pragma once

#include <cstddef>
#include <optional>
#include <span>
#include <vector>

namespace quillworks {

/// Octaves that responses are judged in: 31.25 Hz to 16 kHz.
inline constexpr int kOctaves = 10;
constexpr double octaveCentre(int k) noexcept  // Hz
{
    return 31.25 * static_cast<double>(1 << k);
}
/// Whether the octave around `centre` Hz is heard at a sample rate.
constexpr bool hasOctave(double centre, double sampleRate) noexcept
{
    return centre <= 0.42 * sampleRate;
}

/// The first sample that is within `range` dB of the largest; the length in silence.
std::size_t firstSound(std::span<const double> response, double range = 20) noexcept;

/// An octave of a response: Butterworth filters of the fourth order, corners at centre/sqrt 2 and
/// centre*sqrt 2 Hz. Filtered backwards in time, so that what rings on is the beginning of a decay
/// and not its end (Jacobsen and Rindel 1987).
std::vector<double> octaveBand(std::span<const double> response, double centre, double sampleRate);

/// A straight decay: the level falls by 60 dB in `t60` seconds and stood at `density`, as a mean
/// square of samples, at `time` seconds. `range` dB of the decay were used.
struct DecayLine {
    double t60, density, time, range;
};

/// How a band of a response dies away into its noise floor: Schroeder's backward integral (1965)
/// without the noise, up to where decay and floor meet (Lundeby, Vigran, Bietz, Vorlaender 1995),
/// and with what the decay would have gone on to there.
class BandDecay {
public:
    /// `bandwidth` in Hz: narrow noise must be averaged for longer to tell its level.
    BandDecay(std::span<const double> band, double bandwidth, double sampleRate);
    /// Of an octave of a response.
    static BandDecay ofOctave(std::span<const double> response, double centre, double sampleRate);

    /// Mean square of the noise floor; 0 where the decay goes on to the end.
    double noise() const noexcept { return noise_; }
    /// Where decay and floor meet, in seconds; the end where they do not.
    double crossing() const noexcept;
    /// By how many dB it falls before it meets the floor; 0 where there is no decay.
    double falls() const noexcept { return falls_; }
    /// Sum of the squares from `time` seconds on, without noise.
    double energyFrom(double time) const noexcept;
    /// Line through the integral from where it is `above` dB under its value at `time` seconds
    /// down to `below` dB under it, or to the noise; nothing where there is no decay.
    std::optional<DecayLine> fit(double time, double above, double below) const;
    /// Reverberation time in seconds out of 30 dB of the decay from -5 dB on (ISO 3382-1), or,
    /// unless `isStrict`, the 20 or 10 dB that there are.
    std::optional<double> reverberationTime(bool isStrict = false) const;

private:
    struct Line {  // of the level in dB over the time in bins
        double offset = 0, slope = 0;
        double at(double bin) const noexcept { return offset + slope * bin; }
    };

    double mean(std::size_t from, std::size_t to) const noexcept;
    std::optional<Line> regression(std::size_t from, std::size_t to, std::size_t interval) const;
    void findFloor(double bandwidth);
    void integrate();

    double binSeconds_ = 0.001;
    std::size_t binLength_ = 1;      // samples
    std::vector<double> upTo_;       // sum of the squares of the bins before each
    std::vector<double> remaining_;  // Schroeder's integral from each bin on
    std::size_t peak_ = 0;           // the loudest bin
    double noise_ = 0;
    double crossing_ = 0;  // bins
    double falls_ = 0;     // dB
    std::optional<Line> late_;
};

/// Early to late energy in an octave, in dB: the first 80 ms from `start` (a sample) on against the
/// rest without noise (C80 of ISO 3382-1; cut before it is filtered, as the standard advises).
/// Nothing where either is missing.
std::optional<double> clarity(std::span<const double> response, std::size_t start, double centre,
                              double sampleRate);

/// T30 in seconds and C80 in dB, means of the octaves 500 Hz and 1 kHz over all paths; NaN where
/// none of them can tell.
struct RoomFigures {
    double t30, c80;
};
RoomFigures roomFigures(std::span<const std::vector<double>> paths, double sampleRate);

}  // namespace quillworks
