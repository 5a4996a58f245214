// SPDX-License-Identifier: ISC
// The two entry points, for code that is linked with the module instead of loading it.
#pragma once

#include <cstdint>

#include "vnk/class_factory.h"

extern "C" {
/// Reason 1 loads, 2 unloads, others do nothing. False when the module does not load.
VNK_API bool VNKModuleMain(void* module, std::int32_t reason);
/// The module's class factory with one reference for the caller; null without memory.
VNK_API VNK::IClassFactory* VNKGetClassFactory();
}
