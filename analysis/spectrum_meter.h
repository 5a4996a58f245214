// SPDX-License-Identifier: ISC
// Spectrum Meter: levels by frequency.
#pragma once

#include "analysis/spectrum_engine.h"

namespace quillworks {

class SpectrumMeterAlgorithm final : public MeterAlgorithm<CaptureCore, SpectrumEngine> {
public:
    SpectrumMeterAlgorithm();
};

class SpectrumMeterComponent final : public MeterComponent<SpectrumMeterAlgorithm> {
public:
    explicit SpectrumMeterComponent(SpectrumMeterAlgorithm& algorithm);
};

}  // namespace quillworks
