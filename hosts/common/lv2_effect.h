// SPDX-License-Identifier: ISC
// Other people's LV2 plug-ins as effects of a chain.
#pragma once

#include <string>

#include "error.h"
#include "vnk/class_factory.h"

namespace quillhost {

/// Before the URI in the name of an effect: "lv2:http://...".
inline constexpr const char* kLv2Prefix = "lv2:";

inline bool isLv2(const std::string& name)
{
    return name.starts_with(kLv2Prefix);
}

#if QUILLHOST_LV2
/// The class of an installed plug-in, for the life of the process; UsageError with the nearest URIs
/// when there is none. The first call reads what is installed. [main thread]
const VNK::ClassDescription& lv2Class(const std::string& name);
/// A new effect, null for a class that is no plug-in's. It has the interfaces of vnk/effect.h:
/// input controls are parameters under their symbols, output controls meters. A plug-in with one
/// input and one output takes any layout, an instance to a channel. Audio inputs marked as
/// side-chain, and those of a stereo plug-in beyond the second, are the side-chain. WorkError where
/// it needs what this host does not have. [main thread]
VNK::IObject* createLv2(const VNK::ClassDescription& description);
#else
inline const VNK::ClassDescription& lv2Class(const std::string& name)
{
    throw UsageError(name + ": this quillhost was built without lilv and runs no LV2 plug-ins");
}
inline VNK::IObject* createLv2(const VNK::ClassDescription&)
{
    return nullptr;
}
#endif

}  // namespace quillhost
