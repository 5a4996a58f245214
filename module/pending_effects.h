// SPDX-License-Identifier: ISC
// The class pairs that pass their audio through: those that try out the frame, and any effect until
// it is built and takes its name from here to its family's folder.
#pragma once

#include "framework/pass_through.h"

namespace quillworks {

// Never offered to a host: classes for trying out the frame.
using TestWahAlgorithm = PassThroughAlgorithm;
using TestWahComponent = PassThroughComponent<"TestWah">;
using TestPlugAlgorithm = PassThroughAlgorithm;
using TestPlugComponent = PassThroughComponent<"TestPlug">;
using MonoInStereoOutTestAlgorithm = PassThroughAlgorithm;
using MonoInStereoOutTestComponent = PassThroughComponent<"MonoInStereoOutTest">;
using StressAlgorithm = PassThroughAlgorithm;

}  // namespace quillworks
