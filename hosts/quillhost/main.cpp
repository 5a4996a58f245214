// SPDX-License-Identifier: ISC
// quillhost: runs the effects of a module on sound files.
#include <cstdio>
#include <iostream>
#include <new>

#include "command.h"
#include "error.h"
#include "interrupt.h"
#include "session.h"

namespace quillhost {
namespace {

struct Globals {
    std::string module;
    bool quiet = false;
};

struct Entry {
    const Command* command;
    CLI::App* app;
    std::function<int(Session&)> run;
};

void addGlobals(CLI::App& app, Globals& globals)
{
    app.set_help_flag("-h,--help", "show this help");
    app.add_option("--module", globals.module,
                   "module file (default: QUILLWORKS_MODULE, else the one installed)")
        ->type_name("FILE");
    app.add_flag("-q,--quiet", globals.quiet, "no progress and no remarks");
    app.allow_extras();  // told apart below, with the nearest names
}

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

int run(int argc, char** argv)
{
    Globals globals;
    CLI::App app("Runs audio effects on sound files.", "quillhost");
    addGlobals(app, globals);
    app.set_version_flag("--version", "quillhost " QUILLHOST_VERSION);
    app.footer("quillhost COMMAND --help shows a command's options and examples.\n"
               "Exit codes: 0 done, 1 failed, 2 wrong usage, 130 interrupted.");
    app.failure_message(CLI::FailureMessage::simple);
    std::vector<Entry> entries;
    for (const auto* command : commands()) {
        auto* sub = app.add_subcommand(command->name, command->summary);
        addGlobals(*sub, globals);
        sub->footer(std::string("Examples:\n") + command->examples);
        auto body = command->declare(*sub);
        entries.push_back({command, sub, std::move(body)});
    }

    // `help` and `help COMMAND` are `--help`.
    std::vector<std::string> words(argv + 1, argv + argc);
    if (!words.empty() && words[0] == "help") {
        words.erase(words.begin());
        words.emplace_back("--help");
    }
    std::reverse(words.begin(), words.end());  // the order that the parser takes
    try {
        app.parse(words);
    } catch (const CLI::Success& asked) {  // help or version
        if (app.remaining_size() > 0 && app.get_subcommands().empty()) refuseExtras(app);
        app.exit(asked, std::cout, std::cerr);
        return kDone;
    } catch (const CLI::ParseError& error) {
        throw UsageError(error.what());
    }
    refuseExtras(app);
    for (const auto& entry : entries) {
        if (!entry.app->parsed()) continue;
        refuseExtras(*entry.app);
        Session session(globals.module, globals.quiet);
        return entry.run(session);
    }
    throw UsageError("no command given (" + commandNames() + ")");
}

int report(const std::string& what, int code)
{
    std::string line = what.substr(0, what.find('\n'));
    std::fprintf(stderr, "quillhost: %s\n", line.c_str());
    return code;
}

}  // namespace
}  // namespace quillhost

int main(int argc, char** argv)
{
    using namespace quillhost;
    installSignalHandlers();
    try {
        const int code = run(argc, argv);
        std::cout.flush();
        if (!std::cout) return report("standard output cannot be written", kFailed);
        return code;
    } catch (const UsageError& e) {
        return report(e.what(), kWrongUsage);
    } catch (const std::bad_alloc&) {
        return report("there is not enough memory", kFailed);
    } catch (const std::exception& e) {
        return report(e.what(), kFailed);
    }
}
