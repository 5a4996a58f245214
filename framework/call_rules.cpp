// SPDX-License-Identifier: ISC
#include "framework/call_rules.h"

#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace quillworks {
namespace {

/// The thread, by the address of something of its own.
const void* thisThread() noexcept
{
    static thread_local const char own = 0;
    return &own;
}

/// The instance whose block this thread is in, if any.
thread_local const CallRules* inBlockOf = nullptr;

}  // namespace

void ruleBroken(const char* rule) noexcept
{
    std::fprintf(stderr, "rule of the effect interface broken: %s\n", rule);
    std::abort();
}

void CallRules::enterMain() noexcept
{
    if (inBlockOf == this) ruleBroken("an operation of the main thread within a block");
    const void* before = nullptr;
    if (!main_.compare_exchange_strong(before, thisThread(), std::memory_order_relaxed) &&
        before != thisThread())
        ruleBroken("operations of the main thread on two threads at once");
    ++mainDepth_;
}

void CallRules::leaveMain() noexcept
{
    if (--mainDepth_ == 0) main_.store(nullptr, std::memory_order_relaxed);
}

void CallRules::enterExclusive(Exclusive::Kind kind) noexcept
{
    const void* before = nullptr;
    const bool isAlone =
        exclusive_.compare_exchange_strong(before, thisThread(), std::memory_order_relaxed);
    const bool isNested =
        before == thisThread() && kind == Exclusive::NotProcessing && inBlockOf != this;
    if (!isAlone && !isNested)
        ruleBroken(kind == Exclusive::Block ? "process while another call is at work"
                                            : "preparation or reset during process");
    ++exclusiveDepth_;
    if (kind == Exclusive::Block) inBlockOf = this;
}

void CallRules::leaveExclusive(Exclusive::Kind kind) noexcept
{
    if (kind == Exclusive::Block) inBlockOf = nullptr;
    if (--exclusiveDepth_ == 0) exclusive_.store(nullptr, std::memory_order_relaxed);
}

template <typename T> void checkAliasing(const VNK::ProcessData& data) noexcept
{
    const auto bytes = static_cast<std::uintptr_t>(data.frames) * sizeof(T);
    const auto overlap = [bytes](const void* a, const void* b) {
        const auto x = reinterpret_cast<std::uintptr_t>(a), y = reinterpret_cast<std::uintptr_t>(b);
        return a && b && x < y + bytes && y < x + bytes;
    };
    for (int o = 0; data.outputs && o < data.outputChannels; ++o) {
        const void* const out = data.outputs[o];
        for (int c = 0; data.inputs && c < data.inputChannels; ++c)
            if (out != data.inputs[c] && overlap(out, data.inputs[c]))
                ruleBroken("an output overlaps an input in part");
        for (int c = 0; c < o; ++c)
            if (out != data.outputs[c] && overlap(out, data.outputs[c]))
                ruleBroken("an output overlaps another in part");
        for (int c = 0; data.sideChain && c < data.sideChainChannels; ++c)
            if (overlap(out, data.sideChain[c])) ruleBroken("an output overlaps the side-chain");
    }
}

template void checkAliasing<float>(const VNK::ProcessData&) noexcept;
template void checkAliasing<double>(const VNK::ProcessData&) noexcept;

}  // namespace quillworks
