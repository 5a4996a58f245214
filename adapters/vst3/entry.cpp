// SPDX-License-Identifier: ISC
// What the file exports.
#include "adapters/vst3/factory.h"

extern "C" {

[[gnu::visibility("default")]] bool ModuleEntry(void* library)
{
    return library != nullptr;
}

[[gnu::visibility("default")]] bool ModuleExit()
{
    return true;
}

[[gnu::visibility("default")]] void* GetPluginFactory()
{
    return quillworks::vst3::Factory::get();
}
}
