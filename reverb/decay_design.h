// SPDX-License-Identifier: ISC
// How much each octave of a sound fades per pass through a delay: the design of the filters that
// give a feedback delay network its decay times.
#pragma once

#include <array>
#include <memory>
#include <span>
#include <vector>

namespace quillworks {

/// Coefficients of one decay filter, a gain and the sections behind it, in this order: the low
/// shelf, the high shelf (both or none) and an even number of peaks. Each section adds to the
/// signal what it filters out of it, so that one that changes nothing (kappa 0) is the identity to
/// the bit, and its gain at 0 Hz and half the rate is exact whatever its coefficients' rounding:
///
///     low shelf   1 + kappa (1 + z^-1) / (1 + a1 z^-1)
///     high shelf  1 + kappa (1 - z^-1) / (1 + a1 z^-1)
///     peak        1 + kappa (1 - z^-2) / (1 + a1 z^-1 + a2 z^-2)
struct DecaySections {
    static constexpr int kShelves = 2, kMostPeaks = 8, kMost = kShelves + kMostPeaks;

    double gain = 1;
    double kappa[kMost]{}, a1[kMost]{}, a2[kMost]{};
};

/// Gains of a decay filter in dB: the flat one, and one for each section as in DecaySections.
struct DecayGains {
    double flat = 0;
    double section[DecaySections::kMost]{};

    /// The same filter with all its decibels times `share`: 0 is the identity.
    DecayGains scaled(double share) const noexcept;
};

/// Turns decay times into filters, for one sample rate. What the sections need is tabulated where
/// a design is made; the rest may run on the audio thread. Sections: low and high shelf of first
/// order, peaks of second order, with equal gains to both sides of 0 dB (Jot, Chaigne, "Digital
/// delay networks for designing artificial reverberators", AES 1991; Prawda, Schlecht, Välimäki,
/// "Improved reverberation time control for feedback delay networks", DAFx 2019).
class DecayDesign {
public:
    virtual ~DecayDesign() = default;

    /// How many decay times it takes.
    int times() const noexcept { return times_; }
    /// Of the filters: 0, or 2 and more.
    int sections() const noexcept { return sections_; }
    /// The even number of peaks among them, of which the last may be none.
    int peaks() const noexcept { return sections_ == 0 ? 0 : sections_ - DecaySections::kShelves; }

    /// Gains with which a sound that passes the filter every `period` seconds decays by 60 dB in
    /// `seconds` (above 0, times() of them). No frequency decays slower than in 240 s, or faster
    /// than by 90 dB a pass. [any thread]
    DecayGains design(std::span<const double> seconds, double period) const noexcept;
    /// [any thread]
    DecaySections sections(const DecayGains& gains) const noexcept;
    /// What the filter of these gains does at a frequency in Hz, in dB. [any thread]
    double responseDb(const DecayGains& gains, double frequency) const noexcept;

    /// Loss per pass in dB, at most 90.
    static double loss(double seconds, double period) noexcept;

protected:
    enum class Kind { LowShelf, HighShelf, Peak, None };
    struct Section {
        Kind kind = Kind::None;
        double frequency = 0;  // Hz
    };
    /// At one frequency a section's magnitude squared is (p + q G)/(p + q/G), G its gain's root of
    /// the power: of p + q = 1 only q is kept.
    struct Shares {
        std::vector<double> q;  // by section and frequency
        int frequencies = 0;
        const double* of(int section) const noexcept { return q.data() + section * frequencies; }
    };

    /// For `times` decay times and any sections; a section above 0.42 of the rate is left out.
    DecayDesign(double sampleRate, int times, std::span<const Section> sections);

    virtual DecayGains solve(std::span<const double> seconds, double period) const noexcept = 0;
    bool isUsed(int section) const noexcept
    {
        return sectionList_[static_cast<std::size_t>(section)].kind != Kind::None;
    }
    Shares shares(std::span<const double> frequencies) const;
    /// Magnitudes squared over the flat gain at the frequencies of `shares`.
    void powers(const Shares& shares, const DecayGains& gains, double* out) const noexcept;

    static constexpr double kMostDb = 40;  // of a section
    static constexpr int kMostFrequencies = 96;
    const double sampleRate_;

private:
    double share(int section, double frequency) const noexcept;

    int times_, sections_;
    std::array<Section, DecaySections::kMost> sectionList_{};
    std::array<double, DecaySections::kMost> tangents_{};  // tan(pi f / fs)
    Shares guard_;                                         // where no magnitude may be too large
};

/// Ten octave bands, 31.25 Hz to 16 kHz: least squares of the error relative to the loss at the
/// octaves and between them (Schlecht, Habets, "Accurate reverberation time control in feedback
/// delay networks", DAFx 2017; Välimäki, Liski, "Accurate cascade graphic equalizer", IEEE SPL
/// 2017). Between the octaves 1/T is linear in log f.
class OctaveDecayDesign final : public DecayDesign {
public:
    static constexpr int kBands = 10;
    static constexpr double frequency(int band) noexcept { return 31.25 * (1 << band); }

    /// The design of a rate, shared by all who use it. May throw std::bad_alloc. [main thread]
    static std::shared_ptr<const OctaveDecayDesign> at(double sampleRate);
    explicit OctaveDecayDesign(double sampleRate);

    /// As an equaliser: gains in dB at the ten bands, within +-40, linear between them in log f.
    DecayGains match(std::span<const double> decibels) const noexcept;

private:
    static constexpr int kMostPoints = 2 * kBands - 1, kMostUnknowns = DecaySections::kMost + 1;

    DecayGains solve(std::span<const double> seconds, double period) const noexcept override;
    DecayGains fit(const double* target, const double* weight) const noexcept;

    int points_ = 0, unknowns_ = 0;
    Shares shares_;                  // at the points
    int section_[kMostUnknowns]{};   // of each unknown but the last, which is the flat gain
    std::vector<double> responses_;  // in dB to 1 dB, by unknown and point
};

/// Three times: of the lows, the middle and the highs, parted by two shelves.
class ShelfDecayDesign final : public DecayDesign {
public:
    /// May throw std::bad_alloc.
    ShelfDecayDesign(double sampleRate, double lowFrequency, double highFrequency);

private:
    DecayGains solve(std::span<const double> seconds, double period) const noexcept override;
};

/// One time for all frequencies: no sections.
class FlatDecayDesign final : public DecayDesign {
public:
    explicit FlatDecayDesign(double sampleRate) : DecayDesign(sampleRate, 1, {}) {}

private:
    DecayGains solve(std::span<const double> seconds, double period) const noexcept override;
};

}  // namespace quillworks
