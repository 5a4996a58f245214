// SPDX-License-Identifier: ISC
#include "analysis/spectrum_source.h"

#include "dsp/capture_ring.h"
#include "dsp/vec.h"
#include "framework/speakers.h"

namespace quillworks {

void SpectrumSource::prepare(SourceKind kind, const ProcessSpec& spec,
                             const std::vector<std::string>& names)
{
    kind_ = kind;
    channels_ = signals_ = spec.channels;
    const auto pairs = ChannelPairs::of(spec.layout);
    left_ = pairs.count > 0 ? pairs.pairs[0].first : 0;
    right_ = pairs.count > 0 ? pairs.pairs[0].second : -1;
    switch (kind) {
    case SourceKind::EachChannel:
        curves_ = names;
        break;
    case SourceKind::Loudest:
        curves_ = {"Loudest"};
        break;
    case SourceKind::Sum:
        curves_ = {"Sum"};
        signals_ = 1;
        break;
    case SourceKind::MidSide:
        if (right_ < 0)
            curves_ = {names[0]};
        else
            curves_ = {"Mid", "Side"};
        signals_ = static_cast<int>(curves_.size());
        break;
    }
    const bool isMixed = kind == SourceKind::Sum || kind == SourceKind::MidSide;
    for (int i = 0; i < 2; ++i) {
        mixed_[i].require(isMixed && i < signals_ ? std::size_t{CaptureRing::kMaxRead} : 0);
        mixedAt_[i] = mixed_[i].data();
    }
}

const float* const* SpectrumSource::signalsOf(const float* const* x, int n) noexcept
{
    float* const first = mixed_[0].data();
    if (kind_ == SourceKind::Sum) {
        vec::copy(first, x[0], n);
        for (int c = 1; c < channels_; ++c) vec::addInplace(first, x[c], n);
        if (channels_ > 1) vec::scale(first, 1.0f / static_cast<float>(channels_), n);
        return mixedAt_;
    }
    if (kind_ == SourceKind::MidSide && right_ < 0) {
        vec::copy(first, x[0], n);
        return mixedAt_;
    }
    if (kind_ == SourceKind::MidSide) {
        vec::addScale(first, x[left_], x[right_], 0.5f, n);
        vec::subScale(mixed_[1].data(), x[left_], x[right_], 0.5f, n);
        return mixedAt_;
    }
    return x;
}

}  // namespace quillworks
