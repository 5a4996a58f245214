// SPDX-License-Identifier: ISC
// Memory, clock and debug messages.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <mutex>

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
