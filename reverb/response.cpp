// SPDX-License-Identifier: ISC
#include "reverb/response.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <numeric>
#include <utility>

#include "dsp/resampler.h"

namespace quillworks {
namespace {

constexpr double kCutFade = 0.01;        // seconds
constexpr double kLengthFade = 1 / 5.0;  // of what is kept

void check(const IsCancelled& isCancelled)
{
    if (isCancelled && isCancelled()) throw Cancelled();
}

double energy(const ResponseChannels& response)
{
    double sum = 0;
    for (const auto& x : response) sum = std::inner_product(x.begin(), x.end(), x.begin(), sum);
    return sum;
}

std::size_t frames(const ResponseChannels& response)
{
    return response.empty() ? 0 : response.front().size();
}

/// A squared cosine over the last `n` samples.
void fadeOut(ResponseChannels& response, std::size_t n)
{
    n = std::min(n, frames(response));
    for (auto& x : response)
        for (std::size_t i = 0; i < n; ++i) {
            const double c =
                std::cos(std::numbers::pi / 2 * (static_cast<double>(i) + 0.5) / double(n));
            x[x.size() - n + i] *= c * c;
        }
}

}  // namespace

ResponseChannels resampledResponse(const ResponseChannels& response, double step,
                                   const IsCancelled& isCancelled)
{
    constexpr std::size_t kAtOnce = 4096;
    const Resampler resampler(step);
    const auto length =
        static_cast<std::size_t>(std::ceil(double(frames(response)) / step * (1 - 1e-15)));
    const auto before = static_cast<int>(std::ceil(resampler.reach() / step)) + 1;
    std::vector<double> early(static_cast<std::size_t>(before));
    ResponseChannels out;
    for (auto x : response) {
        auto& y = out.emplace_back(length);
        if (x.empty()) continue;
        const double first = std::exchange(x.front(), 0.0);
        for (std::size_t at = 0; at < length; at += kAtOnce) {
            check(isCancelled);
            resampler.read(x.data(), std::ssize(x), static_cast<std::int64_t>(at), y.data() + at,
                           static_cast<int>(std::min(kAtOnce, length - at)));
        }
        resampler.read(x.data(), std::ssize(x), -before, early.data(), before);
        y.front() += std::accumulate(early.begin(), early.end(), 0.0);
        for (auto& v : y) v *= step;
        y.front() += first;
    }
    return out;
}

ResponseChannels shapedResponse(const VNK::Sound<float>& file, const ResponseShape& shape,
                                double sampleRate, const IsCancelled& isCancelled)
{
    ResponseChannels response;
    for (const auto& x : file.channels) response.emplace_back(x.begin(), x.end());
    if (file.isCut())
        fadeOut(response, static_cast<std::size_t>(std::lround(kCutFade * file.sampleRate)));
    if (file.sampleRate != sampleRate)
        response = resampledResponse(response, file.sampleRate / sampleRate, isCancelled);

    const auto cut =
        std::min(static_cast<std::size_t>(shape.start * sampleRate + 0.5), frames(response));
    for (auto& x : response) x.erase(x.begin(), x.begin() + static_cast<std::ptrdiff_t>(cut));
    if (shape.stretch != 1) {
        const double before = energy(response);
        response = resampledResponse(response, 1 / shape.stretch, isCancelled);
        const double after = energy(response);
        const double gain = after > 0 ? std::sqrt(before / after) : 1;
        for (auto& x : response)
            for (auto& v : x) v *= gain;
    }
    if (shape.length < 1) {
        const auto kept = std::lround(shape.length * double(frames(response)));
        for (auto& x : response) x.resize(static_cast<std::size_t>(kept));
        fadeOut(response, static_cast<std::size_t>(std::lround(kLengthFade * double(kept))));
    }
    for (auto& x : response)
        if (x.empty()) x.push_back(0);
    return response;
}

void shortenDecay(ResponseChannels& response, double from, double t60, double decay,
                  double sampleRate)
{
    if (!(t60 > 0) || !(decay > 0)) return;
    const double decades = -3 * (1 / (t60 * decay) - 1 / t60) / sampleRate;  // per sample
    const auto start = static_cast<std::size_t>(std::max(0.0, from * sampleRate + 0.5));
    for (auto& x : response)
        for (std::size_t i = start; i < x.size(); ++i)
            x[i] *= std::pow(10, decades * static_cast<double>(i - start));
}

void reverseResponse(ResponseChannels& response)
{
    for (auto& x : response) std::reverse(x.begin(), x.end());
}

}  // namespace quillworks
