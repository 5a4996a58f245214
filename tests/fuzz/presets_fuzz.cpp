// SPDX-License-Identifier: ISC
// Preset documents, each into the effect whose class it names.
#include "tests/fuzz/fuzz_target.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace quillworks::fuzz;
    const auto document = textOf(data, size);
    constexpr std::string_view kClass = "classID=\"";
    VNK::UID id;
    if (const auto at = document.find(kClass); at != document.npos)
        VNK::UID::parse(document.substr(at + kClass.size(), 38), id);
    loadedOrUntouched(effectOf(id), &VNK::HostedEffect::loadPreset, document);
    return 0;
}
