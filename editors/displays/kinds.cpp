// SPDX-License-Identifier: ISC
// The kinds of display by the names that a skin gives them.
#include "editors/display.h"
#include "editors/displays/band_correlation.h"
#include "editors/displays/band_curve.h"
#include "editors/displays/band_knobs.h"
#include "editors/displays/comb_curve.h"
#include "editors/displays/curve_display.h"
#include "editors/displays/decay_curve.h"
#include "editors/displays/filter_curve.h"
#include "editors/displays/gain_history.h"
#include "editors/displays/impulse_wave.h"
#include "editors/displays/level_bars.h"
#include "editors/displays/loudness.h"
#include "editors/displays/meters.h"
#include "editors/displays/mod_wave.h"
#include "editors/displays/pan_arc.h"
#include "editors/displays/pan_field.h"
#include "editors/displays/reflections.h"
#include "editors/displays/response_spectrum.h"
#include "editors/displays/shape_curve.h"
#include "editors/displays/spectrum.h"
#include "editors/displays/step_bars.h"
#include "editors/displays/step_curve.h"
#include "editors/displays/stereo_field.h"
#include "editors/displays/swell_curve.h"
#include "editors/displays/tail_decay.h"
#include "editors/displays/tap_grid.h"
#include "editors/displays/taps.h"
#include "editors/displays/trace.h"
#include "editors/displays/voice_field.h"

namespace quillworks::editors {
namespace {

using Make = std::unique_ptr<Display> (*)(const VNK::SkinBox&, EffectModel&);

struct Kind {
    std::string_view name;
    Make make;
};

template <class D> std::unique_ptr<Display> make(const VNK::SkinBox& box, EffectModel& model)
{
    return std::make_unique<D>(box, model);
}

/// One row per kind.
constexpr Kind kKinds[] = {
    {"BandCorrelation", make<BandCorrelation>},
    {"BandCurve", make<BandCurve>},
    {"BandKnobs", make<BandKnobs>},
    {"CombCurve", make<CombCurve>},
    {"CurveDisplay", make<CurveDisplay>},
    {"DecayCurve", make<DecayCurve>},
    {"EchoLine", make<EchoLine>},
    {"FilterCurve", make<FilterCurve>},
    {"GainHistory", make<GainHistory>},
    {"ImpulseWave", make<ImpulseWave>},
    {"Loudness", make<Loudness>},
    {"Meters", make<Meters>},
    {"ModWave", make<ModWave>},
    {"PanArc", make<PanArc>},
    {"PanField", make<PanField>},
    {"Reflections", make<Reflections>},
    {"ResponseSpectrum", make<ResponseSpectrum>},
    {"ShapeCurve", make<ShapeCurve>},
    {"Spectrum", make<Spectrum>},
    {"StepBars", make<StepBars>},
    {"StepCurve", make<StepCurve>},
    {"StereoField", make<StereoField>},
    {"SwellCurve", make<SwellCurve>},
    {"TailDecay", make<TailDecay>},
    {"TapGrid", make<TapGrid>},
    {"Taps", make<Taps>},
    {"Trace", make<Trace>},
    {"VoiceField", make<VoiceField>},
};

}  // namespace

std::unique_ptr<Display> makeDisplay(const VNK::SkinBox& box, EffectModel& model)
{
    const auto kind = box.attributes.find("kind");
    if (kind == box.attributes.end()) return nullptr;
    // Meters of levels alone, each channel with its mean and what is held, are a level meter.
    if (kind->second == "Meters" && box.attributes.contains("level"))
        return make<LevelBars>(box, model);
    for (const auto& row : kKinds)
        if (row.name == kind->second) return row.make(box, model);
    return nullptr;
}

}  // namespace quillworks::editors
