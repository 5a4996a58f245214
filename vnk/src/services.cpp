// SPDX-License-Identifier: ISC
// Memory, clock and debug messages.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <mutex>
#include <sys/mman.h>
#include <unistd.h>

#include "vnk/debug.h"
#include "vnk/memory.h"

void* core_malloc(std::size_t bytes) noexcept
{
    return std::malloc(bytes);
}
void core_free(void* memory) noexcept
{
    std::free(memory);
}
void* core_calloc(std::size_t count, std::size_t bytes) noexcept
{
    // Freed memory comes back dirty, and calloc would write all of it: of a large block the system
    // is asked for fresh pages instead, which exist once they are written.
    constexpr std::size_t kLarge = 32 << 10;
    const bool isLarge = bytes != 0 && count >= (kLarge + bytes - 1) / bytes &&
                         count <= std::numeric_limits<std::size_t>::max() / bytes;
    if (!isLarge) return std::calloc(count, bytes);
    const std::size_t all = count * bytes;
    const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    auto* const block = static_cast<char*>(std::malloc(all));
    if (!block) return nullptr;
    const auto front = (page - reinterpret_cast<std::uintptr_t>(block) % page) % page;
    const std::size_t pages = (all - front) / page * page;
    if (madvise(block + front, pages, MADV_DONTNEED) != 0)  // pages that are locked
        std::memset(block + front, 0, pages);
    std::memset(block, 0, front);
    std::memset(block + front + pages, 0, all - front - pages);
    return block;
}
void* core_realloc(void* memory, std::size_t bytes) noexcept
{
    return std::realloc(memory, bytes);
}

std::uint64_t VNKGetSystemTicks() noexcept
{
    using namespace std::chrono;
    const auto now = steady_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(duration_cast<milliseconds>(now).count());
}

namespace VNK {
namespace {
// Held while the sink runs, so that who removes a sink may free what it uses. Recursive, for sinks
// that write messages or remove themselves.
std::recursive_mutex gMutex;
DebugSink gSink = nullptr;
void* gContext = nullptr;
}  // namespace

void setDebugSink(DebugSink sink, void* context) noexcept
{
    const std::lock_guard lock(gMutex);
    gSink = sink;
    gContext = context;
}

void debugMessage(const char* message) noexcept
{
    if (!message) return;
    const std::lock_guard lock(gMutex);
    if (gSink)
        gSink(message, gContext);
    else
        std::fputs(message, stderr);
}

}  // namespace VNK
