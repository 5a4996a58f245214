// SPDX-License-Identifier: ISC
// Phase Meter: how two channels go together.
#pragma once

#include "analysis/phase_engine.h"

namespace quillworks {

class PhaseMeterAlgorithm final : public MeterAlgorithm<CaptureCore, PhaseEngine> {
public:
    PhaseMeterAlgorithm();
};

class PhaseMeterComponent final : public MeterComponent<PhaseMeterAlgorithm> {
public:
    explicit PhaseMeterComponent(PhaseMeterAlgorithm& algorithm);
};

}  // namespace quillworks
