// SPDX-License-Identifier: ISC
// In place of lv2_effect.cpp where lilv is missing.
#include "error.h"
#include "lv2_effect.h"

namespace quillhost {

const VNK::ClassDescription& lv2Class(const std::string& name)
{
    throw UsageError(name + ": this program was built without lilv and runs no LV2 plug-ins");
}

VNK::IObject* createLv2(const VNK::ClassDescription&)
{
    return nullptr;
}

}  // namespace quillhost
