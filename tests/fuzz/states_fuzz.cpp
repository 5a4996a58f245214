// SPDX-License-Identifier: ISC
// Binary states, each into the effect whose class it names.
#include <algorithm>

#include "tests/fuzz/fuzz_target.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace quillworks::fuzz;
    constexpr std::size_t kClassAt = 8;  // after magic and version
    VNK::UID id;
    if (size >= kClassAt + sizeof id.bytes) std::copy_n(data + kClassAt, sizeof id.bytes, id.bytes);
    loadedOrUntouched(effectOf(id), &VNK::HostedEffect::loadState, textOf(data, size));
    return 0;
}
