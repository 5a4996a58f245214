// SPDX-License-Identifier: ISC
#include "adapters/vst3/calls.h"

#include "adapters/vst3/instance.h"

namespace quillworks::vst3 {
namespace {

template <auto member> constexpr auto* call = &Call<member>::call;
using I = Instance;

constexpr v3_funknown kObject{call<&I::queryInterface>, call<&I::ref>, call<&I::unref>};
constexpr v3_plugin_base kBase{call<&I::initialize>, call<&I::terminate>};

}  // namespace

const v3_component_cpp kComponentCalls{
    kObject,
    kBase,
    {call<&I::getControllerClassId>, call<&I::setIoMode>, call<&I::getBusCount>,
     call<&I::getBusInfo>, call<&I::getRoutingInfo>, call<&I::activateBus>, call<&I::setActive>,
     call<&I::setState>, call<&I::getState>}};

const v3_audio_processor_cpp kProcessorCalls{
    kObject,
    {call<&I::setBusArrangements>, call<&I::getBusArrangement>, call<&I::canProcessSampleSize>,
     call<&I::getLatencySamples>, call<&I::setupProcessing>, call<&I::setProcessing>,
     call<&I::process>, call<&I::getTailSamples>}};

const v3_edit_controller_cpp kControllerCalls{
    kObject,
    kBase,
    {call<&I::setComponentState>, call<&I::setControllerState>, call<&I::getControllerState>,
     call<&I::getParameterCount>, call<&I::getParameterInfo>, call<&I::getStringForValue>,
     call<&I::getValueForString>, call<&I::toPlain>, call<&I::toNormalised>, call<&I::getParameter>,
     call<&I::setParameter>, call<&I::setComponentHandler>, call<&I::createView>}};

const v3_unit_information_cpp kUnitCalls{
    kObject,
    {call<&I::getUnitCount>, call<&I::getUnitInfo>, call<&I::getProgramListCount>,
     call<&I::getProgramListInfo>, call<&I::getProgramName>, call<&I::getProgramInfo>,
     call<&I::hasPitchNames>, call<&I::getPitchName>, call<&I::getSelectedUnit>,
     call<&I::selectUnit>, call<&I::getUnitByBus>, call<&I::setProgramData>}};

const v3_process_context_requirements_cpp kRequirementsCalls{kObject,
                                                             {call<&I::getContextRequirements>}};

}  // namespace quillworks::vst3
