// SPDX-License-Identifier: ISC
// The classes of the module.
#pragma once

#include <string_view>

#include "framework/effect_component.h"
#include "vnk/class_factory.h"

namespace quillworks {

/// Registers the 31 offered classes in their order. False without memory.
bool registerClasses(VNK::IClassFactory& factory) noexcept;

/// A new component that belongs to the caller, by display name, the withheld classes included; null
/// for an unknown name. For code within the module and its tests.
VNK::IObject* createEffect(std::string_view name) noexcept;

}  // namespace quillworks
