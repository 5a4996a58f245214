// SPDX-License-Identifier: ISC
// Standard error: our lines and nobody else's.
#pragma once

#include <string>
#include <string_view>

namespace quillhost {

/// Keeps standard error for this program: what the libraries it uses print there by themselves
/// (decoders on damaged files, font look-ups) goes nowhere from now on. Under a sanitizer, whose
/// reports go there too, it does nothing. Once, before there are threads.
void keepConsole();

/// Where our messages go. [any thread, signal handlers too]
int consoleDescriptor() noexcept;

/// "quillhost: " and the text as one line, control characters escaped. [any thread]
void say(std::string_view line);

}  // namespace quillhost
