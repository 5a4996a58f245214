// SPDX-License-Identifier: ISC
// What a command is. Each lives in a file of its own and has a row in the table of commands.cpp.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <span>
#include <string>

#include "text.h"

namespace quillhost {

class Session;

struct Command {
    const char* name;
    const char* summary;
    const char* examples;  // shown below the options
    /// Declares options and arguments on `app`; what it returns runs after they have been read and
    /// gives the exit code. Failures are thrown.
    std::function<int(Session&)> (*declare)(CLI::App& app);
};

std::span<const Command* const> commands();

/// An option that takes a number within a range, "." in every locale.
template <class N>
CLI::Option* addNumber(CLI::App& app, const std::string& name, N& target, N min, N max,
                       const std::string& help)
{
    return app
        .add_option_function<std::string>(
            name, [=, &target](const std::string& text) { target = number(name, text, min, max); },
            help)
        ->type_name("N");
}

/// An option that takes one of a few words; `target` gets the word's position.
CLI::Option* addChoice(CLI::App& app, const std::string& name, int& target,
                       const std::vector<std::string>& words, const std::string& help);

/// UsageError unless the argument was given.
void requireArgument(const std::string& value, const char* name, const char* command);

}  // namespace quillhost
