// SPDX-License-Identifier: ISC
// THE table: one row per command, in the order the help lists them.
#include "command.h"

#include <algorithm>

namespace quillhost {

extern const Command kList, kInfo, kRender, kMeasure, kPlot, kPreset, kBench, kGenerate, kIr, kView,
    kCheck, kManual;

namespace {
constexpr const Command* kCommands[] = {
    &kList, &kInfo,   &kRender, &kGenerate, &kMeasure, &kPlot,
    &kView, &kPreset, &kIr,     &kBench,    &kCheck,   &kManual,
};
}  // namespace

std::span<const Command* const> commands()
{
    return kCommands;
}

CLI::Option* addChoice(CLI::App& app, const std::string& name, int& target,
                       const std::vector<std::string>& words, const std::string& help)
{
    std::string all;
    for (const auto& word : words) all += (all.empty() ? "" : "|") + word;
    return addRead(
        app, name,
        [=, &target](const std::string& text) {
            const auto at = std::find(words.begin(), words.end(), text);
            if (at == words.end())
                throw UsageError(name + " does not take " + inQuotes(text) + " (" + all + ")");
            target = static_cast<int>(at - words.begin());
        },
        help, all.c_str());
}

void requireArgument(const std::string& value, const char* name, const char* command)
{
    if (value.empty())
        throw UsageError(std::string(command) + " needs " + name + " (quillhost " + command +
                         " --help shows how)");
}

}  // namespace quillhost
