// SPDX-License-Identifier: ISC
// How a command ends early: the exception carries the line for standard error.
#pragma once

#include <new>
#include <stdexcept>
#include <string>

namespace quillhost {

inline constexpr int kDone = 0;
inline constexpr int kFailed = 1;  // or a limit that was asked for is missed
inline constexpr int kWrongUsage = 2;
inline constexpr int kInterrupted = 130;

/// The command line asks for something that does not exist.
struct UsageError : std::runtime_error {
    using runtime_error::runtime_error;
};

/// The work cannot be done: a file, the disc, the effect.
struct WorkError : std::runtime_error {
    using runtime_error::runtime_error;
};

/// Runs `work`; when there is no memory for it the WorkError says for what.
template <class Work> auto needingMemory(const std::string& what, Work work)
{
    try {
        return work();
    } catch (const std::bad_alloc&) {
        throw WorkError("there is not enough memory for " + what);
    }
}

}  // namespace quillhost
