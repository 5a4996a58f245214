// SPDX-License-Identifier: ISC
#include "analysis/loudness_meter.h"

#include <algorithm>
#include <array>
#include <cmath>

namespace quillworks {
namespace {

/// Whether silence can still make a quantum of this.
bool rings(const KWeightingState& state)
{
    return std::any_of(state.begin(), state.end(), [](double v) { return std::abs(v) > 1e-13; });
}

}  // namespace

double loudnessWeight(VNK::Speaker speaker) noexcept
{
    switch (speaker) {
    case VNK::Speaker::LFE:
        return 0;
    case VNK::Speaker::Ls:
    case VNK::Speaker::Rs:
    case VNK::Speaker::Lw:
    case VNK::Speaker::Rw:
        return 1.41;
    default:
        return 1;
    }
}

void LoudnessMeter::prepare(double sampleRate, const VNK::SpeakerArrangement& layout)
{
    sampleRate_ = sampleRate;
    layout_ = layout;
    const auto channels = static_cast<std::size_t>(layout.channels);
    weights_.assign(channels, 1.0);
    weighting_ = KWeighting::at(sampleRate);
    tail_.prepare(weighting_);
    filters_.assign((channels + 1) / 2, {});
    own_.prepare(sampleRate, layout.channels);
    strict_.prepare(sampleRate, layout.channels);
}

void LoudnessMeter::reset() noexcept
{
    for (auto& f : filters_) f.reset();
    own_.reset();
    strict_.reset();
}

void LoudnessMeter::restart() noexcept
{
    own_.restart();
    strict_.restart();
}

void LoudnessMeter::setLaw(Law law) noexcept
{
    if (law == law_) return;
    law_ = law;
    reset();
}

void LoudnessMeter::useLayoutWeights(bool on) noexcept
{
    for (std::size_t c = 0; c < weights_.size(); ++c)
        weights_[c] = on ? loudnessWeight(layout_.speakers[c]) : 1;
}

template <typename T> void LoudnessMeter::add(const T* const* x, int n) noexcept
{
    if (law_ == Law::Strict)
        addBy(strict_, x, n);
    else
        addBy(own_, x, n);
}

template <typename T, class L>
void LoudnessMeter::addBy(L& law, const T* const* x, int frames) noexcept
{
    double a[kPiece], b[kPiece];  // weighted samples of two channels
    std::int64_t quanta[kPiece];
    const int channels = static_cast<int>(weights_.size());
    for (int done = 0; done < frames;) {
        const int n = std::min({frames - done, kPiece, law.untilNext()});
        for (int c = 0; c < channels; c += 2) {
            const int second = std::min(c + 1, channels - 1);  // a lone channel twice
            filters_[static_cast<std::size_t>(c / 2)].process(weighting_, x[c] + done,
                                                              x[second] + done, a, b, n);
            law.add(c, quantisePower(quanta, a, n));
            if (second > c) law.add(second, quantisePower(quanta, b, n));
        }
        law.advance(n, weights_);
        done += n;
    }
}

void LoudnessMeter::endProgramme() noexcept
{
    strict_.endProgramme();
    std::array<KWeightingState, VNK::kMaxChannels> ringing;
    const auto channels = weights_.size();
    for (std::size_t c = 0; c < channels; ++c) ringing[c] = filters_[c / 2].state(c % 2);
    for (int left = static_cast<int>(1.5 * sampleRate_ + 0.5); left > 0;) {
        const int n = std::min({left, strict_.untilNext(), KWeightingTail::kLongest});
        for (std::size_t c = 0; c < channels; ++c) {
            if (!rings(ringing[c])) continue;
            const double quanta = tail_.pass(ringing[c], n) * PowerQuanta::kPerUnit;
            const auto sum = static_cast<std::int64_t>(std::min(quanta, 9e18) + 0.5);
            strict_.add(static_cast<int>(c), {&sum, 1, sum});
        }
        strict_.advance(n, weights_);
        left -= n;
    }
}

template void LoudnessMeter::add(const float* const*, int) noexcept;
template void LoudnessMeter::add(const double* const*, int) noexcept;

}  // namespace quillworks
