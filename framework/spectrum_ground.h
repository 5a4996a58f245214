// SPDX-License-Identifier: ISC
// Display of the spectrum that an effect puts out, as the ground of a curve over frequency.
#pragma once

#include <vector>

#include "dsp/fft.h"
#include "framework/display_engine.h"
#include "framework/twelfth_bands.h"

namespace quillworks {

/// For cores that capture what they put out.
inline constexpr const char* kSpectrumGround = ".spectrum";

/// Powers of twelfths of an octave of the first two channels together, in transforms of about a
/// sixth of a second that overlap by three quarters, averaged over 0.2 s. The display has
/// "frequency", the bands' centres in Hz, and "level" in dB: 0 for a sine of full scale that one
/// band holds, flat for pink noise, null in silence.
class SpectrumGround final : public DisplayEngine {
public:
    CaptureFormat format(const ProcessSpec& spec) const override;
    void prepare(const ProcessSpec& spec) override;
    void release() noexcept override;
    void reset() override;
    void gap(std::int64_t) override { count_ = 0; }  // no transform goes over a seam
    void feed(float* const* x, int n, std::int64_t first) override;
    void publish(MeterSlots&) noexcept override {}
    void show(int index, VNK::IDisplaySink& sink) const override;

private:
    void analyse();

    TwelfthBands bands_;
    Fft<float> fft_;
    std::vector<std::vector<float>> heard_;  // of each channel the last frames, rings
    std::vector<float> window_, frame_;
    std::vector<float> power_;  // of each band, averaged
    double scale_ = 1, share_ = 1;
    std::size_t hop_ = 0;
    std::size_t place_ = 0;  // in the rings
    std::size_t count_ = 0;  // frames since the last seam, or since the last transform and as many
};

}  // namespace quillworks
