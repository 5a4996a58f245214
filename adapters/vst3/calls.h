// SPDX-License-Identifier: ISC
// The tables of functions that hosts call, one for each interface of a plug-in.
#pragma once

#include "adapters/vst3/abi.h"

namespace quillworks::vst3 {

extern const v3_component_cpp kComponentCalls;
extern const v3_audio_processor_cpp kProcessorCalls;
extern const v3_edit_controller_cpp kControllerCalls;
extern const v3_unit_information_cpp kUnitCalls;
extern const v3_process_context_requirements_cpp kRequirementsCalls;

}  // namespace quillworks::vst3
