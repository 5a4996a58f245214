// SPDX-License-Identifier: ISC
#include "reverb/decay_design.h"

#include <algorithm>
#include <cmath>
#include <numbers>

#include "dsp/shared_tables.h"

namespace quillworks {
namespace {

constexpr double kPeakQ = 1;
constexpr double kHighest = 0.42;  // of the rate, for a section
constexpr double kSlowest = 240;   // s
constexpr double kMostLoss = 90;   // dB a pass

/// 10^(decibels / unit).
double power(double decibels, double unit) noexcept
{
    return std::exp2(decibels * (std::numbers::ln10 / std::numbers::ln2 / unit));
}

double tangent(double frequency, double sampleRate) noexcept
{
    return std::tan(std::numbers::pi * frequency / sampleRate);
}

}  // namespace

DecayGains DecayGains::scaled(double share) const noexcept
{
    DecayGains gains{flat * share, {}};
    std::transform(std::begin(section), std::end(section), gains.section,
                   [share](double x) { return x * share; });
    return gains;
}

double DecayDesign::loss(double seconds, double period) noexcept
{
    return std::min(kMostLoss, 60 * period / seconds);
}

DecayDesign::DecayDesign(double sampleRate, int times, std::span<const Section> sections)
    : sampleRate_(sampleRate), times_(times), sections_(static_cast<int>(sections.size()))
{
    std::copy(sections.begin(), sections.end(), sectionList_.begin());
    for (std::size_t s = 0; s < sections.size(); ++s) {
        if (sectionList_[s].frequency > kHighest * sampleRate) sectionList_[s].kind = Kind::None;
        tangents_[s] = isUsed(int(s)) ? tangent(sectionList_[s].frequency, sampleRate) : 1;
    }
    // Octaves that there are none of at this rate leave no peaks behind.
    while (sections_ > DecaySections::kShelves && !isUsed(sections_ - 1)) --sections_;
    sections_ += sections_ % 2;

    // From 0 Hz to half the rate, and close together where peaks are sharpest.
    std::vector<double> frequencies{1e-3, 0.5 * sampleRate};
    constexpr int kSpread = 64;
    const double octaves = std::log2(0.499 * sampleRate / 20);
    for (int i = 0; i < kSpread; ++i)
        frequencies.push_back(20 * std::exp2(octaves * i / (kSpread - 1)));
    for (int s = DecaySections::kShelves; s < sections_; ++s)
        for (const double aside : {-0.06, 0.0, 0.06})
            if (isUsed(s))
                frequencies.push_back(sectionList_[static_cast<std::size_t>(s)].frequency *
                                      std::exp2(aside));
    guard_ = shares(frequencies);
}

/// With z on the unit circle and both sides turned by half the delay, numerator and denominator are
/// a real and an imaginary part, of which the gain A = sqrt(G) multiplies one and divides it below:
/// peak         2 (1 + g^2) cos w + 2 (g^2 - 1)   and  2 A (g/Q) sin w
/// low shelf    2 sin(w/2)                        and  2 A g cos(w/2)
/// high shelf   2 g cos(w/2)                      and  2 A sin(w/2)
double DecayDesign::share(int section, double frequency) const noexcept
{
    const double w = 2 * std::numbers::pi * frequency / sampleRate_;
    const auto s = static_cast<std::size_t>(section);
    const double g = tangents_[s];
    double fixed = 1, scaled = 0;
    switch (sectionList_[s].kind) {
    case Kind::LowShelf:
        fixed = std::sin(w / 2);
        scaled = g * std::cos(w / 2);
        break;
    case Kind::HighShelf:
        fixed = g * std::cos(w / 2);
        scaled = std::sin(w / 2);
        break;
    case Kind::Peak:
        fixed = (1 + g * g) * std::cos(w) + (g * g - 1);
        scaled = g / kPeakQ * std::sin(w);
        break;
    case Kind::None:
        break;
    }
    return scaled * scaled / (fixed * fixed + scaled * scaled);
}

DecayDesign::Shares DecayDesign::shares(std::span<const double> frequencies) const
{
    Shares shares{{}, static_cast<int>(frequencies.size())};
    for (int s = 0; s < sections_; ++s)
        for (const double frequency : frequencies) shares.q.push_back(share(s, frequency));
    return shares;
}

void DecayDesign::powers(const Shares& shares, const DecayGains& gains, double* out) const noexcept
{
    double above[kMostFrequencies], below[kMostFrequencies];
    const int n = shares.frequencies;
    std::fill_n(above, n, 1.0);
    std::fill_n(below, n, 1.0);
    for (int s = 0; s < sections_; ++s) {
        if (gains.section[s] == 0) continue;
        const double up = power(gains.section[s], 20) - 1, down = -up / (1 + up);
        const double* const q = shares.of(s);
        for (int i = 0; i < n; ++i) {
            above[i] *= 1 + q[i] * up;
            below[i] *= 1 + q[i] * down;
        }
    }
    for (int i = 0; i < n; ++i) out[i] = above[i] / below[i];
}

double DecayDesign::responseDb(const DecayGains& gains, double frequency) const noexcept
{
    double square = 1;
    for (int s = 0; s < sections_; ++s) {
        const double q = share(s, frequency), up = power(gains.section[s], 20);
        square *= (1 - q + q * up) / (1 - q + q / up);
    }
    return gains.flat + 10 * std::log10(square);
}

DecayGains DecayDesign::design(std::span<const double> seconds, double period) const noexcept
{
    DecayGains gains = solve(seconds, period);
    double squares[kMostFrequencies];
    powers(guard_, gains, squares);
    const double most = *std::max_element(squares, squares + guard_.frequencies);
    // Between the points looked at sharp peaks are up to 0.21 dB higher (60 s and 0.05 s in
    // neighbouring octaves).
    double steepest = 0;
    for (const double x : gains.section) steepest = std::max(steepest, std::abs(x));
    const double unseen = 0.25 * steepest * steepest / (kMostDb * kMostDb);
    gains.flat = std::min(gains.flat, -60 * period / kSlowest - unseen - 10 * std::log10(most));
    return gains;
}

DecaySections DecayDesign::sections(const DecayGains& gains) const noexcept
{
    DecaySections sections;
    sections.gain = power(gains.flat, 20);
    for (int i = 0; i < sections_; ++i) {
        const auto s = static_cast<std::size_t>(i);
        const double g = tangents_[s], A = power(gains.section[i], 40), change = A - 1 / A;
        double head = 1;
        switch (sectionList_[s].kind) {
        case Kind::LowShelf:
            head = 1 + g / A;
            sections.kappa[i] = g * change / head;
            sections.a1[i] = (g / A - 1) / head;
            break;
        case Kind::HighShelf:
            head = 1 / A + g;
            sections.kappa[i] = change / head;
            sections.a1[i] = (g - 1 / A) / head;
            break;
        case Kind::Peak:
            head = 1 + g / (A * kPeakQ) + g * g;
            sections.kappa[i] = change * (g / kPeakQ) / head;
            sections.a1[i] = 2 * (g * g - 1) / head;
            sections.a2[i] = (1 - g / (A * kPeakQ) + g * g) / head;
            break;
        case Kind::None:
            break;
        }
    }
    return sections;
}

std::shared_ptr<const OctaveDecayDesign> OctaveDecayDesign::at(double sampleRate)
{
    return SharedTables<double, OctaveDecayDesign>::instance().get(
        sampleRate, [&] { return OctaveDecayDesign(sampleRate); });
}

OctaveDecayDesign::OctaveDecayDesign(double sampleRate)
    : DecayDesign(sampleRate, kBands,
                  std::array<Section, DecaySections::kMost>{
                      {{Kind::LowShelf, 44},
                       {Kind::HighShelf, std::min(11314.0, 0.4 * sampleRate)},
                       {Kind::Peak, frequency(1)},
                       {Kind::Peak, frequency(2)},
                       {Kind::Peak, frequency(3)},
                       {Kind::Peak, frequency(4)},
                       {Kind::Peak, frequency(5)},
                       {Kind::Peak, frequency(6)},
                       {Kind::Peak, frequency(7)},
                       {Kind::Peak, frequency(8)}}})
{
    double frequencies[kMostPoints];
    for (int i = 0; i < kMostPoints; ++i) {
        const double f = 31.25 * std::exp2(0.5 * i);
        if (f >= 0.45 * sampleRate) break;
        frequencies[points_++] = f;
    }
    shares_ = shares({frequencies, static_cast<std::size_t>(points_)});
    for (int s = 0; s < sections(); ++s)
        if (isUsed(s)) section_[unknowns_++] = s;
    const auto points = static_cast<std::size_t>(points_);
    responses_.resize(static_cast<std::size_t>(++unknowns_) * points, 1.0);
    for (int u = 0; u < unknowns_ - 1; ++u) {
        DecayGains one;
        one.section[section_[u]] = 1;
        double* const row = responses_.data() + u * points_;
        powers(shares_, one, row);
        for (int m = 0; m < points_; ++m) row[m] = 10 * std::log10(row[m]);
    }
}

/// Gauss and Newton's method, with the responses to 1 dB for derivatives throughout.
DecayGains OctaveDecayDesign::fit(const double* target, const double* weight) const noexcept
{
    constexpr int kRounds = 7;
    const int n = unknowns_;
    double root[kMostUnknowns][kMostUnknowns];  // of the normal equations (Cholesky)
    double mean = 0;
    for (int a = 0; a < n; ++a) {
        const double* const rowA = responses_.data() + a * points_;
        for (int b = 0; b <= a; ++b) {
            const double* const rowB = responses_.data() + b * points_;
            double sum = 0;
            for (int m = 0; m < points_; ++m) sum += weight[m] * weight[m] * rowA[m] * rowB[m];
            root[a][b] = sum;
        }
        mean += root[a][a] / n;
    }
    for (int a = 0; a < n; ++a) {
        root[a][a] += 1e-6 * mean;
        for (int b = 0; b <= a; ++b) {
            double sum = root[a][b];
            for (int c = 0; c < b; ++c) sum -= root[a][c] * root[b][c];
            root[a][b] = a == b ? std::sqrt(sum) : sum / root[b][b];
        }
    }

    DecayGains gains;
    for (int m = 0; m < points_; ++m) gains.flat += target[m] / points_;
    for (int round = 0; round < kRounds; ++round) {
        double error[kMostPoints], step[kMostUnknowns];
        powers(shares_, gains, error);
        for (int m = 0; m < points_; ++m)
            error[m] = (target[m] - gains.flat - 10 * std::log10(error[m])) * weight[m] * weight[m];
        for (int a = 0; a < n; ++a) {
            const double* const row = responses_.data() + a * points_;
            double sum = 0;
            for (int m = 0; m < points_; ++m) sum += row[m] * error[m];
            for (int c = 0; c < a; ++c) sum -= root[a][c] * step[c];
            step[a] = sum / root[a][a];
        }
        for (int a = n - 1; a >= 0; --a) {
            for (int c = a + 1; c < n; ++c) step[a] -= root[c][a] * step[c];
            step[a] /= root[a][a];
        }
        for (int u = 0; u < n - 1; ++u) {
            double& x = gains.section[section_[u]];
            x = std::clamp(x + step[u], -kMostDb, kMostDb);
        }
        gains.flat += step[n - 1];
    }
    return gains;
}

DecayGains OctaveDecayDesign::solve(std::span<const double> seconds, double period) const noexcept
{
    double target[kMostPoints], weight[kMostPoints], most = 0;
    for (int m = 0; m < points_; ++m) {
        const double here = seconds[static_cast<std::size_t>(m / 2)];
        const double next = seconds[static_cast<std::size_t>((m + 1) / 2)];
        target[m] = -loss(2 / (1 / here + 1 / next), period);
        most = std::max(most, -target[m]);
    }
    for (int m = 0; m < points_; ++m)
        weight[m] = (m % 2 ? 0.5 : 1) / std::max(-target[m], 0.003 * most);
    return fit(target, weight);
}

DecayGains OctaveDecayDesign::match(std::span<const double> decibels) const noexcept
{
    double target[kMostPoints], weight[kMostPoints];
    for (int m = 0; m < points_; ++m) {
        const double here = decibels[static_cast<std::size_t>(m / 2)];
        const double next = decibels[static_cast<std::size_t>((m + 1) / 2)];
        target[m] = std::clamp((here + next) / 2, -kMostDb, kMostDb);
        weight[m] = m % 2 ? 0.5 : 1;
    }
    return fit(target, weight);
}

ShelfDecayDesign::ShelfDecayDesign(double sampleRate, double lowFrequency, double highFrequency)
    : DecayDesign(sampleRate, 3,
                  std::array<Section, 2>{
                      {{Kind::LowShelf, lowFrequency}, {Kind::HighShelf, highFrequency}}})
{}

DecayGains ShelfDecayDesign::solve(std::span<const double> seconds, double period) const noexcept
{
    DecayGains gains;
    gains.flat = -loss(seconds[1], period);
    for (int s = 0; s < 2; ++s)
        if (isUsed(s))
            gains.section[s] =
                std::clamp(-loss(seconds[static_cast<std::size_t>(2 * s)], period) - gains.flat,
                           -kMostDb, kMostDb);
    return gains;
}

DecayGains FlatDecayDesign::solve(std::span<const double> seconds, double period) const noexcept
{
    return {-loss(seconds[0], period), {}};
}

}  // namespace quillworks
