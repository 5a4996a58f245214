// SPDX-License-Identifier: ISC
// The class pairs that pass their audio through: they try out the frame, and no host is offered
// them.
#pragma once

#include "framework/pass_through.h"

namespace quillworks {

using TestWahAlgorithm = PassThroughAlgorithm;
using TestWahComponent = PassThroughComponent<"TestWah">;
using TestPlugAlgorithm = PassThroughAlgorithm;
using TestPlugComponent = PassThroughComponent<"TestPlug">;
using MonoInStereoOutTestAlgorithm = PassThroughAlgorithm;
using MonoInStereoOutTestComponent = PassThroughComponent<"MonoInStereoOutTest">;
using StressAlgorithm = PassThroughAlgorithm;

}  // namespace quillworks
