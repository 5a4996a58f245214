// SPDX-License-Identifier: ISC
// What commands that write sound have in common: how the format is asked for.
#pragma once

#include "command.h"
#include "output_format.h"

namespace quillhost {

/// --format; `target` gets a SampleFormat, and stays as it is where none is asked for.
CLI::Option* addFormat(CLI::App& app, int& target, const std::string& help);
/// --dither.
CLI::Option* addDither(CLI::App& app, int& target);

}  // namespace quillhost
