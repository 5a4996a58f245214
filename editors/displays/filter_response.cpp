// SPDX-License-Identifier: ISC
#include "editors/displays/filter_response.h"

#include <algorithm>
#include <cmath>
#include <numbers>

namespace quillworks::editors {
namespace {

constexpr double kButterworthQ = std::numbers::sqrt2 / 2;
constexpr double kFourthOrderQ[] = {0.54119610, 1.30656296};

Response axis(double frequency, double corner)
{
    return {0, frequency / corner};
}

Response lowPass(const Response& s, double q)
{
    return 1.0 / (s * s + s / q + 1.0);
}

Response mixed(const Response& wet, double mix)
{
    return 1.0 - mix + mix * wet;
}

}  // namespace

double toDecibel(const Response& response) noexcept
{
    return 10 * std::log10(std::max(std::norm(response), 1e-20));
}

Response highCut(double frequency, double cut, int order)
{
    const auto s = axis(frequency, cut);
    if (order != 4) return lowPass(s, kButterworthQ);
    return lowPass(s, kFourthOrderQ[0]) * lowPass(s, kFourthOrderQ[1]);
}

Response lowCut(double frequency, double cut, int order)
{
    return std::conj(highCut(cut, frequency, order));  // the low-pass of 1/s
}

Response bell(double frequency, double centre, double gain, double q)
{
    const auto s = axis(frequency, centre);
    const double a = std::pow(10, gain / 40);
    return (s * s + s * a / q + 1.0) / (s * s + s / (a * q) + 1.0);
}

Response lowShelf(double frequency, double centre, double gain)
{
    const auto s = axis(frequency, centre);
    const double a = std::pow(10, gain / 40);
    const auto slope = s * std::sqrt(a) / kButterworthQ;
    return a * (s * s + slope + a) / (a * s * s + slope + 1.0);
}

Response highShelf(double frequency, double centre, double gain)
{
    return std::conj(lowShelf(centre, frequency, gain));  // of 1/s
}

Response swept(double frequency, SweptType type, double cutOff, double resonance)
{
    const auto s = axis(frequency, cutOff);
    const bool isSteep = type == SweptType::Low24 || type == SweptType::High24;
    const double q = isSteep                     ? 1.30656 * std::pow(20, resonance)
                     : type == SweptType::Band24 ? kButterworthQ * std::pow(20, resonance)
                                                 : kButterworthQ * std::pow(40, resonance);
    const auto low = lowPass(s, q);
    switch (type) {
    case SweptType::Low12:
        return low;
    case SweptType::Low24:
        return low * lowPass(s, kFourthOrderQ[0]);
    case SweptType::High12:
        return s * s * low;
    case SweptType::High24:
        return s * s * low * s * s * lowPass(s, kFourthOrderQ[0]);
    case SweptType::Band12:
        return s / q * low;
    case SweptType::Band24:
        return s / q * low * s / q * low;
    case SweptType::Notch:
        return 1.0 - s / q * low;
    default:
        return 1.0 + 2.0 * s / q * low;
    }
}

Response resonantCuts(double frequency, double low, double high, double resonance)
{
    const auto up = std::conj(axis(low, frequency)), down = axis(frequency, high);
    const double r = resonance * kButterworthQ;
    Response product = 1;
    for (const double peak : {0.0, (r - kButterworthQ) * 6}) {  // dB, of the second section
        const double q = std::sqrt(r / 2) * std::pow(10, peak / 40);
        product *= lowPass(up, q) * lowPass(down, q);
    }
    return product;
}

Response phaser(double frequency, double corner, int stages, double feedback, double mix)
{
    const Response s = axis(frequency, corner);
    Response stage = (1.0 - s) / (1.0 + s), chain = 1;
    for (int n = stages; n > 0; n /= 2, stage *= stage)
        if (n % 2) chain *= stage;
    // The mean of (1 + k A)/(1 - k A) over the spectrum is its value with the all-passes' own mean,
    // which nears -1 to the power of their number where the corner is far below the sample rate.
    const double mean = stages % 2 ? -feedback : feedback;
    const double scale = std::sqrt((1 - feedback * feedback) * (1 - mean) / (1 + mean));
    return mixed(scale * chain / (1.0 - feedback * chain), mix);
}

Response comb(double frequency, const Comb& c)
{
    const auto phase = Response(0, -2 * std::numbers::pi * frequency);
    const auto copy = std::exp(phase * c.delay);
    const double kept = 1 / std::sqrt(1 + std::norm(axis(frequency, c.damping)));
    const auto loop = (c.delay < 0 ? std::conj(copy) : copy) * kept;
    const double scale = std::sqrt(1 - c.feedback * c.feedback) * (c.isInverted ? -1 : 1);
    return mixed(scale * copy / (1.0 - c.feedback * loop), c.mix);
}

}  // namespace quillworks::editors
