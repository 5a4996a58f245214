// SPDX-License-Identifier: ISC
// What commands say of themselves, for those who write it elsewhere than in --help.
#pragma once

#include <string>
#include <vector>

namespace quillhost {

struct OptionTexts {
    std::vector<std::string> names;  // "-o", "--output"; of an argument "IN"
    std::string type;                // "FILE", "png|svg", ...; empty: a flag
    std::string help;
    bool isArgument = false;
    bool isRepeatable = false;
};

struct CommandTexts {
    std::string name, summary, examples;
    std::vector<OptionTexts> options;  // arguments first
};

/// All commands as the help lists them; the first has no name and the options that all take.
std::vector<CommandTexts> commandTexts();

}  // namespace quillhost
