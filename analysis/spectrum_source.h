// SPDX-License-Identifier: ISC
// Which signals of a layout a spectrum is made of.
#pragma once

#include <string>
#include <vector>

#include "dsp/aligned_buffer.h"
#include "framework/audio_block.h"

namespace quillworks {

enum class SourceKind { EachChannel, Loudest, Sum, MidSide };

/// Signals are transformed; curves are shown. Each signal is a curve but of the loudest, which is
/// one curve of all.
class SpectrumSource {
public:
    /// `names`: of the channels. May throw std::bad_alloc.
    void prepare(SourceKind kind, const ProcessSpec& spec, const std::vector<std::string>& names);

    int signals() const noexcept { return signals_; }
    bool isLoudest() const noexcept { return kind_ == SourceKind::Loudest; }
    const std::vector<std::string>& curves() const noexcept { return curves_; }

    /// n channels' frames, at most CaptureRing::kMaxRead, as signals that last until the next call.
    const float* const* signalsOf(const float* const* x, int n) noexcept;

private:
    SourceKind kind_ = SourceKind::EachChannel;
    int channels_ = 0, signals_ = 0;
    int left_ = 0, right_ = -1;  // of the first pair
    std::vector<std::string> curves_;
    AlignedBuffer<float> mixed_[2];
    const float* mixedAt_[2] = {};
};

}  // namespace quillworks
