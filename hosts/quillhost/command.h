// SPDX-License-Identifier: ISC
// What a command is. Each lives in a file of its own and has a row in the table of commands.cpp.
#pragma once

#include <functional>
#include <span>
#include <string>
#include <vector>

#include "text.h"

// Of the parser's templates, which compile for seconds, only command_line.cpp sees more.
namespace CLI {
class App;
class Option;
}  // namespace CLI

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

/// An option (--name) or a positional argument (NAME) that takes a text, or several. `type` is what
/// the help calls the text, null for the parser's own word.
CLI::Option* addOption(CLI::App& app, const std::string& name, std::string& target,
                       const std::string& help, const char* type = nullptr);
CLI::Option* addOption(CLI::App& app, const std::string& name, std::vector<std::string>& target,
                       const std::string& help, const char* type = nullptr);

/// An option that may be given several times, each time with one text.
CLI::Option* addRepeatable(CLI::App& app, const std::string& name, std::vector<std::string>& target,
                           const std::string& help, const char* type);

CLI::Option* addFlag(CLI::App& app, const std::string& name, bool& target, const std::string& help);

/// An option whose text `read` understands, or throws at.
CLI::Option* addRead(CLI::App& app, const std::string& name,
                     std::function<void(const std::string& text)> read, const std::string& help,
                     const char* type);

/// An option that takes a number within a range, "." in every locale.
template <class N>
CLI::Option* addNumber(CLI::App& app, const std::string& name, N& target, N min, N max,
                       const std::string& help)
{
    return addRead(
        app, name, [=, &target](const std::string& text) { target = number(name, text, min, max); },
        help, "N");
}

/// An option that takes one of a few words; `target` gets the word's position.
CLI::Option* addChoice(CLI::App& app, const std::string& name, int& target,
                       const std::vector<std::string>& words, const std::string& help);

bool isGiven(const CLI::Option* option);
/// As the help names it ("--fx").
std::string nameOf(const CLI::Option* option);

/// The options given, in their order, once for each time.
std::vector<const CLI::Option*> optionsGiven(const CLI::App& app);

/// UsageError unless the argument was given.
void requireArgument(const std::string& value, const char* name, const char* command);

}  // namespace quillhost
