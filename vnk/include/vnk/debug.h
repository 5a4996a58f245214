// SPDX-License-Identifier: ISC
// Debug messages and the sink a host sets for them.
#pragma once

#include "vnk/export.h"

namespace VNK {

/// Receives each message as written, line feed included. `context` is what was given with the sink.
using DebugSink = void (*)(const char* message, void* context);

/// Null gives messages back to standard error, where they go until a sink is set. Once it returns
/// the former sink is not called any more: it waits for a message that another thread is just
/// handing over. A sink may call both functions. [any thread but the audio thread]
VNK_API void setDebugSink(DebugSink sink, void* context) noexcept;
/// Null is no message. [any thread but the audio thread]
VNK_API void debugMessage(const char* message) noexcept;

}  // namespace VNK
