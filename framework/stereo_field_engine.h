// SPDX-License-Identifier: ISC
// Display of what an effect puts out as the newest points of a goniometer.
#pragma once

#include <algorithm>

#include "framework/display_engine.h"
#include "framework/stereo_field.h"

namespace quillworks {

/// For cores that capture what they put out. Its display is kRecentField: the points of the first
/// two channels, or of one as both, at the gain at which they fill the display.
class StereoFieldEngine final : public DisplayEngine {
public:
    CaptureFormat format(const ProcessSpec& spec) const override
    {
        return {std::min(spec.channels, 2), spec.sampleRate};
    }
    void prepare(const ProcessSpec& spec) override
    {
        channels_ = format(spec).channels;
        field_.prepare(spec.sampleRate);
        field_.clear(0);
    }
    void release() noexcept override { field_.release(); }
    void reset() override { field_.clear(0); }
    void gap(std::int64_t) override { field_.begin(); }
    void feed(float* const* x, int n, std::int64_t) override
    {
        field_.take(x[0], x[channels_ - 1], n);
    }
    void publish(MeterSlots&) noexcept override {}
    void show(int, VNK::IDisplaySink& sink) const override { field_.showRecent(sink); }

private:
    StereoField field_;
    int channels_ = 2;
};

}  // namespace quillworks
