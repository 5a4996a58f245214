// SPDX-License-Identifier: ISC
// Preset documents, each into the effect whose class it names.
#include "framework/stored_state.h"
#include "tests/fuzz/fuzz_target.h"

namespace {

/// What can be read is written and read again as it was, whatever types it holds.
void comesBack(std::string_view document)
{
    using namespace quillworks;
    StoredState first, second;
    std::string reason;
    if (!readPreset(document.data(), document.size(), first, reason)) return;
    first.dropBlobsBeyond(kLargestPresetBlobs);
    const auto written = writePreset(first);
    if (written.size() > kLargestPreset) return;  // escaped, it may be longer than it was
    fuzz::require(readPreset(written.data(), written.size(), second, reason),
                  "what is written is read");
    fuzz::require(writePreset(second) == written, "what is written comes back");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace quillworks::fuzz;
    const auto document = textOf(data, size);
    constexpr std::string_view kClass = "classID=\"";
    VNK::UID id;
    if (const auto at = document.find(kClass); at != document.npos)
        VNK::UID::parse(document.substr(at + kClass.size(), 38), id);
    loadedOrUntouched(effectOf(id), &VNK::HostedEffect::loadPreset, document);
    comesBack(document);
    return 0;
}
