// SPDX-License-Identifier: ISC
#include "analysis/delay_search.h"

#include <algorithm>
#include <bit>
#include <cmath>

#include "dsp/capture_ring.h"
#include "dsp/vec.h"

namespace quillworks {
namespace {

constexpr double kSearches = 4;  // a second
constexpr double kAverageSeconds = 1;

/// The power of two nearest to 0.68 s.
int comparedFrames(double sampleRate)
{
    const double wanted = 0.68 * sampleRate;
    const auto above = std::bit_ceil(static_cast<unsigned>(std::ceil(wanted)));
    return static_cast<int>(above - wanted <= wanted - above / 2 ? above : above / 2);
}

}  // namespace

void DelaySearch::prepare(double sampleRate)
{
    rate_ = sampleRate;
    length_ = comparedFrames(sampleRate);
    for (auto& recent : recent_) recent.prepare(length_, CaptureRing::kMaxRead);
    const auto padded = 2 * static_cast<std::size_t>(length_);
    fft_.setSize(static_cast<std::uint32_t>(padded), FftPlanning::Repeatable);
    if (!fft_.isReady()) throw std::bad_alloc();
    padded_.require(padded);
    average_.require(padded);
    for (auto& spectrum : spectra_) spectrum.require(padded);
    clear();
}

void DelaySearch::release() noexcept
{
    length_ = 0;
    for (auto& recent : recent_) recent = RecentSamples<float>();
    fft_.setSize(0);
    padded_.clear();
    average_.clear();
    for (auto& spectrum : spectra_) spectrum.clear();
    clear();
}

void DelaySearch::clear() noexcept
{
    isFirst_ = true;
    result_.reset();
}

std::int64_t DelaySearch::nextSearch() const noexcept
{
    const auto k = std::floor(static_cast<double>(end_) * kSearches / rate_);
    const auto at = [&](double step) { return std::llround((k + step) * rate_ / kSearches); };
    return at(0) > end_ ? at(0) : at(1) > end_ ? at(1) : at(2);
}

void DelaySearch::take(const float* left, const float* right, int n) noexcept
{
    for (int done = 0; done < n;) {
        const auto next = nextSearch();
        const int run = static_cast<int>(std::min<std::int64_t>(n - done, next - end_));
        vec::copy(recent_[0].append(run), left + done, run);
        vec::copy(recent_[1].append(run), right + done, run);
        done += run;
        end_ += run;
        if (end_ == next && end_ - first_ >= length_) search();
    }
}

void DelaySearch::search() noexcept
{
    for (int c = 0; c < 2; ++c) {
        vec::copy(padded_.data(), recent_[c].end() - length_, length_);
        vec::clear(padded_.data() + length_, length_);
        fft_.forward(padded_.data(), spectra_[c].data());
    }
    const float *const l = spectra_[0].data(), *const r = spectra_[1].data();
    const float part =
        isFirst_ ? 1 : static_cast<float>(1 - std::exp(-1 / (kSearches * kAverageSeconds)));
    isFirst_ = false;
    const auto average = [&](std::size_t i, float now) {
        average_[i] += part * (now - average_[i]);
    };
    if (part == 1) average_.fill(0);
    // Every bin with its phase alone; a bin of silence tells nothing.
    constexpr float kLeast = 1e-12f;
    for (std::size_t i = 0; i < 2; ++i) {
        const float cross = l[i] * r[i];  // 0 Hz and half the sample rate are real
        average(i, cross / (std::abs(cross) + kLeast));
    }
    for (std::size_t i = 2; i < average_.size(); i += 2) {
        const float re = l[i] * r[i] + l[i + 1] * r[i + 1], im = l[i] * r[i + 1] - l[i + 1] * r[i];
        const float size = std::sqrt(re * re + im * im) + kLeast;
        average(i, re / size);
        average(i + 1, im / size);
    }
    fft_.inverse(average_.data(), padded_.data());

    // Later by t is at t; earlier, wrapped, at the end.
    const int size = 2 * length_, reach = static_cast<int>(std::lround(kFarthest * rate_));
    const auto at = [&](int lag) {
        return double(padded_[static_cast<std::size_t>(lag < 0 ? lag + size : lag)]);
    };
    int best = 0;
    for (int lag = -reach; lag <= reach; ++lag)
        if (std::abs(at(lag)) > std::abs(at(best))) best = lag;
    const double b = std::abs(at(best)), a = std::abs(at(best - 1)), c = std::abs(at(best + 1));
    const double bend = a - 2 * b + c;
    const double place = bend < 0 ? std::clamp((a - c) / (2 * bend), -0.5, 0.5) : 0;
    result_ = {std::clamp(best + place, -kFarthest * rate_, kFarthest * rate_), std::min(b, 1.0),
               at(best) < 0 ? -1 : 1};
}

}  // namespace quillworks
