// SPDX-License-Identifier: ISC
// The engine behind a phase meter's displays.
#pragma once

#include <optional>

#include "analysis/band_correlation.h"
#include "analysis/correlation_matrix.h"
#include "analysis/delay_search.h"
#include "analysis/meter_engine.h"
#include "dsp/phase_correlation.h"
#include "framework/stereo_field.h"

namespace quillworks {

struct PhaseSettings {
    int pair = 0;       // of the layout's pairs, counted from 0
    double time = 0.3;  // seconds
    int fraction = 1;   // bands of 1/fraction octave
    bool autoGain = true;
    double gain = 0;           // dB
    double persistence = 0.4;  // seconds
    bool findsDelay = true;

    bool operator==(const PhaseSettings&) const = default;
};

class PhaseEngine final : public MeterEngine {
public:
    using MeterEngine::set;
    void set(const PhaseSettings& settings);

private:
    void prepareMeter(const ProcessSpec& spec) override;
    void releaseMeter() noexcept override;
    void begin(std::int64_t first) override;
    void clear() override;
    void take(const float* const* x, int n) override;
    void resetHolds() override;
    void publishMeter(MeterSlots& meters) noexcept override;
    void showMeter(int index, VNK::IDisplaySink& sink) const override;

    void choosePair() noexcept;
    void clearPair();
    void setTimes() noexcept;
    void follow(const float* left, const float* right, int n) noexcept;
    void build(std::int64_t first);
    bool isSilent() const noexcept;

    void showField(VNK::IDisplaySink& sink) const;
    void showRecent(VNK::IDisplaySink& sink) const;
    void showBands(VNK::IDisplaySink& sink) const;
    void showMatrix(VNK::IDisplaySink& sink) const;

    PhaseSettings settings_;
    std::optional<std::pair<int, int>> pair_;  // channels
    bool isBuilt_ = false;
    std::int64_t pairFrames_ = 0;  // since there is something known of the pair
    PhaseCorrelation correlation_;
    double lowest_ = 0;            // square of the lowest correlation, with its sign
    std::int64_t lowestFrom_ = 0;  // frames of the pair, from which it counts
    bool hasLowest_ = false;
    BandCorrelation bands_;
    DelaySearch delay_;
    StereoField field_;
    CorrelationMatrix matrix_;
};

}  // namespace quillworks
