// SPDX-License-Identifier: ISC
#include "command_line.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <sstream>

namespace quillhost {
namespace {

struct Entry {
    const Command* command;
    CLI::App* app;
    std::function<int(Session&)> run;
};

std::string commandNames()
{
    std::string names;
    for (const auto* c : commands()) names += (names.empty() ? "" : ", ") + std::string(c->name);
    return names;
}

[[noreturn]] void refuseWord(const CLI::App& app, const std::string& word)
{
    std::vector<std::string> names;
    const bool isOption = word.size() > 1 && word.front() == '-';
    if (isOption) {
        for (const auto* option : app.get_options())
            for (const auto& name : option->get_lnames()) names.push_back("--" + name);
        throw UsageError("there is no option " + inQuotes(word.substr(0, word.find('='))) + " " +
                         nearest(word.substr(0, word.find('=')), names));
    }
    if (app.get_parent())
        throw UsageError(app.get_name() + " does not take the argument " + inQuotes(word) +
                         " (quillhost " + app.get_name() + " --help shows what it takes)");
    for (const auto* c : commands()) names.emplace_back(c->name);
    throw UsageError("there is no command " + inQuotes(word) + " " + nearest(word, names));
}

void refuseExtras(const CLI::App& app)
{
    const auto extras = app.remaining();
    for (const auto& word : extras)
        if (word.size() > 1 && word.front() == '-' && word != "--") refuseWord(app, word);
    for (const auto& word : extras)
        if (word != "--") refuseWord(app, word);
}

CLI::Option* named(CLI::Option* option, const char* type)
{
    return type == nullptr ? option : option->type_name(type);
}

}  // namespace

CLI::Option* addOption(CLI::App& app, const std::string& name, std::string& target,
                       const std::string& help, const char* type)
{
    return named(app.add_option(name, target, help), type);
}

CLI::Option* addOption(CLI::App& app, const std::string& name, std::vector<std::string>& target,
                       const std::string& help, const char* type)
{
    return named(app.add_option(name, target, help), type);
}

CLI::Option* addRepeatable(CLI::App& app, const std::string& name, std::vector<std::string>& target,
                           const std::string& help, const char* type)
{
    return addOption(app, name, target, help, type)->allow_extra_args(false);
}

CLI::Option* addFlag(CLI::App& app, const std::string& name, bool& target, const std::string& help)
{
    return app.add_flag(name, target, help);
}

CLI::Option* addRead(CLI::App& app, const std::string& name,
                     std::function<void(const std::string& text)> read, const std::string& help,
                     const char* type)
{
    return named(app.add_option_function<std::string>(name, std::move(read), help), type);
}

std::string nameOf(const CLI::Option* option)
{
    return option->get_name();
}

bool isGiven(const CLI::Option* option)
{
    return option->count() > 0;
}

std::vector<const CLI::Option*> optionsGiven(const CLI::App& app)
{
    return {app.parse_order().begin(), app.parse_order().end()};
}

CommandLine::~CommandLine() = default;

namespace {

OptionTexts textsOf(const CLI::Option& option)
{
    OptionTexts texts;
    texts.isArgument = option.get_positional();
    if (texts.isArgument) texts.names.push_back(option.get_name(true));
    for (const auto& name : option.get_snames()) texts.names.push_back("-" + name);
    for (const auto& name : option.get_lnames()) texts.names.push_back("--" + name);
    if (option.get_items_expected_max() > 0) texts.type = option.get_type_name();
    texts.help = option.get_description();
    texts.isRepeatable = option.get_items_expected_max() > 1;
    return texts;
}

}  // namespace

std::vector<CommandTexts> commandTexts()
{
    std::vector<CommandTexts> all;
    std::vector<std::string> general;
    const auto add = [&](const char* name, const char* summary, const char* examples,
                         const CLI::App& app) {
        all.push_back({name, summary, examples, {}});
        auto& options = all.back().options;
        for (const auto* option : app.get_options()) options.push_back(textsOf(*option));
        std::stable_partition(options.begin(), options.end(),
                              [](const OptionTexts& texts) { return texts.isArgument; });
    };
    {
        const CommandLine line({"--version"});
        add("", "", "", *line.parser_);
    }
    for (const auto* command : commands()) {
        CLI::App app;
        app.set_help_flag();
        const auto body = command->declare(app);
        add(command->name, command->summary, command->examples, app);
    }
    return all;
}

void CommandLine::addGlobals(CLI::App& app)
{
    app.set_help_flag("-h,--help", "show this help");
    app.add_option("--module", module_,
                   "module file (default: QUILLWORKS_MODULE, else the one installed)")
        ->type_name("FILE");
    app.add_flag("-q,--quiet", quiet_, "no progress and no remarks");
    app.allow_extras();  // told apart below, with the nearest names
}

CommandLine::CommandLine(std::vector<std::string> words)
    : parser_(std::make_unique<CLI::App>("Runs audio effects on sound files.", "quillhost"))
{
    auto& app = *parser_;
    addGlobals(app);
    app.set_version_flag("--version", "quillhost " QUILLHOST_VERSION);
    app.footer("quillhost COMMAND --help shows a command's options and examples.\n"
               "Exit codes: 0 done, 1 failed, 2 wrong usage, 130 interrupted.");
    app.failure_message(CLI::FailureMessage::simple);
    std::vector<Entry> entries;
    for (const auto* command : commands()) {
        auto* sub = app.add_subcommand(command->name, command->summary);
        // The options of a command that is not named are not asked for.
        if (std::find(words.begin(), words.end(), command->name) == words.end()) continue;
        addGlobals(*sub);
        sub->footer(std::string("Examples:\n") + command->examples);
        auto body = command->declare(*sub);
        entries.push_back({command, sub, std::move(body)});
    }

    // `help` and `help COMMAND` are `--help`.
    if (!words.empty() && words[0] == "help") {
        words.erase(words.begin());
        words.emplace_back("--help");
    }
    std::reverse(words.begin(), words.end());  // the order that the parser takes
    try {
        app.parse(words);
    } catch (const CLI::Success& asked) {  // help or version
        if (app.remaining_size() > 0 && app.get_subcommands().empty()) refuseExtras(app);
        std::ostringstream answer;
        app.exit(asked, answer, answer);
        answer_ = answer.str();
        return;
    } catch (const CLI::ParseError& error) {
        throw UsageError(error.what());
    }
    refuseExtras(app);
    for (auto& entry : entries) {
        if (!entry.app->parsed()) continue;
        refuseExtras(*entry.app);
        command_ = entry.command;
        body_ = std::move(entry.run);
        return;
    }
    throw UsageError("no command given (" + commandNames() + ")");
}

}  // namespace quillhost
