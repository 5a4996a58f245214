// SPDX-License-Identifier: ISC
// Binary states, each into the effect whose class it names.
#include <algorithm>

#include "framework/stored_state.h"
#include "tests/fuzz/fuzz_target.h"

namespace {

/// What can be read is written and read again as it was, whatever types it holds.
void comesBack(std::string_view data)
{
    using namespace quillworks;
    StoredState first, second;
    std::string reason;
    if (!readChunk(data.data(), data.size(), first, reason)) return;
    const auto chunk = writeChunk(first);
    fuzz::require(readChunk(chunk.data(), chunk.size(), second, reason), "what is written is read");
    fuzz::require(writeChunk(second) == chunk, "what is written comes back");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace quillworks::fuzz;
    constexpr std::size_t kClassAt = 8;  // after magic and version
    VNK::UID id;
    if (size >= kClassAt + sizeof id.bytes) std::copy_n(data + kClassAt, sizeof id.bytes, id.bytes);
    loadedOrUntouched(effectOf(id), &VNK::HostedEffect::loadState, textOf(data, size));
    comesBack(textOf(data, size));
    return 0;
}
