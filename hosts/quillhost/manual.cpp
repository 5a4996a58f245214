// SPDX-License-Identifier: ISC
// quillhost manual: the manual page and the completions of shells, from what the commands say of
// themselves, and the pages of the effects.
#include <algorithm>
#include <cctype>
#include <iostream>
#include <memory>
#include <utility>

#include "command.h"
#include "command_texts.h"
#include "manual_pages.h"
#include "session.h"

namespace quillhost {
namespace {

enum Kind { Man, Bash, Zsh, Pages };
const std::vector<std::string> kKinds = {"man", "bash", "zsh", "pages"};

/// Commands whose first argument is one of a few words.
constexpr std::pair<const char*, const char*> kActions[] = {
    {"preset", "save show"}, {"ir", "sweep solve of show"}, {"manual", "man bash zsh pages"}};

std::string replaced(std::string text, const std::string& what, const std::string& with)
{
    for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += with.size())
        text.replace(at, what.size(), with);
    return text;
}

/// The words of a type that names its values ("png|svg"); none where it only says of what kind they
/// are.
std::vector<std::string> choicesOf(const std::string& type)
{
    std::vector<std::string> words;
    if (type.find('|') == std::string::npos) return words;
    for (std::size_t at = 0; at <= type.size();) {
        const auto end = std::min(type.find('|', at), type.size());
        const auto word = type.substr(at, end - at);
        at = end + 1;
        const bool isKind =
            word.empty() || std::isupper(static_cast<unsigned char>(word[0])) || word[0] == '.';
        if (!isKind) words.push_back(word);
    }
    return words;
}

bool isFile(const OptionTexts& option)
{
    for (const char* kind : {"FILE", "IR", "IN"})
        if (option.type.starts_with(kind) || (option.isArgument && option.names[0] == kind))
            return true;
    return option.isArgument && (option.names[0] == "OUT" || option.names[0] == "ARGUMENTS");
}

bool isSpec(const OptionTexts& option)
{
    return option.type == "SPEC" ||
           (option.isArgument && (option.names[0] == "SPEC" || option.names[0] == "EFFECT"));
}

std::string joined(const std::vector<std::string>& words, const char* between)
{
    std::string all;
    for (const auto& word : words) {
        if (!all.empty()) all += between;
        all += word;
    }
    return all;
}

// The manual page.

std::string roff(const std::string& text)
{
    auto safe = replaced(replaced(text, "\\", "\\e"), "-", "\\-");
    if (safe.starts_with('.') || safe.starts_with('\'')) safe.insert(0, "\\&");
    return safe;
}

void printOptions(const CommandTexts& command)
{
    for (const auto& option : command.options) {
        std::cout << ".TP\n";
        if (option.isArgument)
            std::cout << ".I " << roff(option.names[0]) << "\n";
        else
            std::cout << ".B " << roff(joined(option.names, ", "))
                      << (option.type.empty()
                              ? ""
                              : std::string(" \\fI").append(roff(option.type)).append("\\fP"))
                      << "\n";
        std::cout << roff(option.help) << "\n";
    }
}

void printMan(const std::vector<CommandTexts>& all)
{
    std::cout << ".\\\" Made by quillhost manual man.\n"
                 ".TH QUILLHOST 1 \"\" \"Quillworks Pack\" \"User Commands\"\n"
                 ".SH NAME\nquillhost \\- run audio effects on sound files\n"
                 ".SH SYNOPSIS\n.B quillhost\n.RI [ OPTIONS ]\n.I COMMAND\n.RI [ ARGUMENTS ]\n"
                 ".SH DESCRIPTION\n"
                 "Renders sound files through effects in series, measures and plots what they do, "
                 "lists them and their parameters, and writes and reads their presets.\n"
                 "Results are on standard output, remarks on standard error. An output appears "
                 "under its name only when it is complete.\n"
                 ".PP\nAn effect is written\n.IR NAME [: KEY = VALUE ,...],\n"
                 "its name without regard to case, blanks and hyphens; an LV2 plug\\-in\n"
                 ".IR lv2: URI [: SYMBOL = VALUE ,...].\n"
                 ".SH OPTIONS\n";
    printOptions(all.front());
    std::cout << ".SH COMMANDS\n";
    for (std::size_t i = 1; i < all.size(); ++i) {
        const auto& command = all[i];
        std::cout << ".SS " << roff(command.name) << "\n" << roff(command.summary) << ".\n";
        printOptions(command);
        std::cout << ".PP\nExamples:\n.PP\n.nf\n" << roff(command.examples) << "\n.fi\n";
    }
    std::cout << ".SH ENVIRONMENT\n"
                 ".TP\n.B QUILLWORKS_MODULE\nThe module, where no option names one.\n"
                 ".TP\n.B QUILLWORKS_RESOURCES\nFolder of presets, controller pages and skins, in "
                 "place of the one installed.\n"
                 ".TP\n.B LV2_PATH\nFolders of LV2 bundles, in place of the usual ones.\n"
                 ".SH EXIT STATUS\n0 done, 1 failed or a limit was missed, 2 wrong usage, 130 "
                 "interrupted (129, 143 by hang\\-up and termination).\n";
}

// Completion. A word that begins an effect's settings is completed by asking the program.

constexpr const char* kBashBegin = R"sh(# Made by quillhost manual bash.
_quillhost_specs()
{
    local program=$1 word=$2
    if [[ $word == lv2:* ]]; then
        command -v lv2ls >/dev/null && lv2ls 2>/dev/null | sed 's/^/lv2:/'
    elif [[ $word == *:* ]]; then
        local before=${word%"${word##*[:,]}"}
        "$program" info "${word%%:*}" --json 2>/dev/null |
            sed -n 's/^ *"key": "\(.*\)",$/\1=/p' | sed "s|^|$before|"
    else
        "$program" list --json 2>/dev/null | sed -n 's/^.*"name": "\(.*\)",$/\1/p' |
            tr 'A-Z ' 'a-z-'
    fi
}

_quillhost()
{
    local program=${COMP_WORDS[0]} line=${COMP_LINE:0:COMP_POINT} command= previous= words= kind=
    local -a typed
    read -ra typed <<<"$line"
    # By blanks only: a colon or an equals sign does not end a word here.
    local word=
    [[ $line == *[[:space:]] ]] || { word=${typed[-1]}; unset 'typed[-1]'; }
    [[ ${#typed[@]} -gt 1 ]] && previous=${typed[-1]}
    local each
    for each in "${typed[@]:1}"; do
        case $each in
)sh";

constexpr const char* kBashEnd = R"sh(            esac ;;
    esac
    case $kind in
        spec) compopt -o nospace; mapfile -t COMPREPLY < <(
                  _quillhost_specs "$program" "$word" | while IFS= read -r each; do
                      [[ $each == "$word"* ]] && printf '%s\n' "$each"
                  done) ;;
        folder) compopt -o filenames; mapfile -t COMPREPLY < <(compgen -d -- "$word") ;;
        file) compopt -o filenames; mapfile -t COMPREPLY < <(compgen -f -- "$word") ;;
        *) mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word") ;;
    esac
    # The shell replaces only what stands behind the last of its own breaks.
    local done=${word%"${word##*[:=]}"} i
    for i in "${!COMPREPLY[@]}"; do COMPREPLY[i]=${COMPREPLY[i]#"$done"}; done
}
complete -F _quillhost quillhost
)sh";

constexpr const char* kZshBegin = R"sh(#compdef quillhost
# Made by quillhost manual zsh.
_quillhost_specs()
{
    local -a found
    if [[ $PREFIX == lv2:* ]]; then
        found=(${(f)"$(lv2ls 2>/dev/null | sed 's/^/lv2:/')"})
    elif [[ $PREFIX == *:* ]]; then
        local before=${PREFIX%${PREFIX##*[:,]}}
        found=(${(f)"$(quillhost info ${PREFIX%%:*} --json 2>/dev/null |
            sed -n 's/^ *"key": "\(.*\)",$/\1=/p' | sed "s|^|$before|")"})
    else
        found=(${(f)"$(quillhost list --json 2>/dev/null |
            sed -n 's/^.*"name": "\(.*\)",$/\1/p' | tr 'A-Z ' 'a-z-')"})
    fi
    compadd -S '' -a found
}

_quillhost()
{
    local context state state_descr line
    typeset -A opt_args
    local -a commands=(
)sh";

void printBash(const std::vector<CommandTexts>& all)
{
    std::string names;
    for (std::size_t i = 1; i < all.size(); ++i) {
        if (i > 1) names += '|';
        names += all[i].name;
    }
    std::cout << kBashBegin << "            " << names << ") command=$each; break ;;\n"
              << "        esac\n    done\n    case $command:$previous in\n";
    const auto row = [](const std::string& command, const OptionTexts& option) {
        if (option.isArgument || option.type.empty()) return;
        std::vector<std::string> patterns;
        for (const auto& name : option.names) patterns.push_back(command + ":" + name);
        const auto choices = choicesOf(option.type);
        std::string action = "return";
        if (!choices.empty())
            action = std::string("words='").append(joined(choices, " ")).append("'");
        else if (isSpec(option))
            action = "kind=spec";
        else if (option.type.starts_with("DIR"))
            action = "kind=folder";
        else if (isFile(option))
            action = "kind=file";
        std::cout << "        " << joined(patterns, "|") << ") " << action << " ;;\n";
    };
    for (std::size_t i = 1; i < all.size(); ++i)
        for (const auto& option : all[i].options) row(all[i].name, option);
    for (const auto& option : all.front().options) row("*", option);
    std::cout << "        *)\n            case $command in\n";
    for (const auto& command : all) {
        std::vector<std::string> words;
        bool takesSpec = false, takesFile = false;
        for (const auto& option : command.options) {
            if (!option.isArgument) words.push_back(option.names.back());
            takesSpec = takesSpec || (option.isArgument && isSpec(option));
            takesFile = takesFile || (option.isArgument && isFile(option));
        }
        words.push_back(command.name.empty() ? replaced(names, "|", " ")
                                             : "--help --quiet --module");
        std::cout << "                '" << command.name << "') words='" << joined(words, " ")
                  << "'";
        if (takesSpec || takesFile)
            std::cout << "; [[ $word == -* ]] || kind=" << (takesSpec ? "spec" : "file");
        for (const auto& [name, actions] : kActions)
            if (command.name == name)
                std::cout << "; [[ $previous == " << name << " ]] && kind= words='" << actions
                          << "'";
        std::cout << " ;;\n";
    }
    std::cout << kBashEnd;
}

void printZsh(const std::vector<CommandTexts>& all)
{
    const auto quoted = [](std::string text) {
        for (const char* c : {"[", "]", ":"}) text = replaced(text, c, std::string("\\") + c);
        return replaced(text, "'", "'\\''");
    };
    const auto value = [&](const OptionTexts& option) {
        const auto choices = choicesOf(option.type);
        std::string action = "( )";
        if (!choices.empty())
            action = std::string("(").append(joined(choices, " ")).append(")");
        else if (isSpec(option))
            action = "_quillhost_specs";
        else if (option.type.starts_with("DIR"))
            action = "_files -/";
        else if (isFile(option))
            action = "_files";
        return std::string(":")
            .append(quoted(option.isArgument ? option.names[0] : option.type))
            .append(":")
            .append(action);
    };
    const auto printArguments = [&](const CommandTexts& command) {
        bool hasArgument = false;
        for (const auto& option : command.options) {
            if (option.isArgument) {
                // All further words are alike to the shell.
                if (!std::exchange(hasArgument, true))
                    std::cout << " \\\n                '*" << value(option) << "'";
                continue;
            }
            for (const auto& name : option.names)
                std::cout << " \\\n                '" << (option.isRepeatable ? "*" : "") << name
                          << "[" << quoted(option.help) << "]"
                          << (option.type.empty() ? "" : value(option)) << "'";
        }
    };
    std::cout << kZshBegin;
    for (std::size_t i = 1; i < all.size(); ++i)
        std::cout << "        '" << all[i].name << ":" << quoted(all[i].summary) << "'\n";
    std::cout << "    )\n    _arguments -C";
    printArguments(all.front());
    std::cout << " \\\n                '1:command:->command' '*::argument:->argument'\n"
              << "    case $state in\n        command) _describe command commands ;;\n"
              << "        argument) case $words[1] in\n";
    for (std::size_t i = 1; i < all.size(); ++i) {
        std::cout << "            " << all[i].name << ") _arguments";
        printArguments(all[i]);
        std::cout << " ;;\n";
    }
    std::cout << "        esac ;;\n    esac\n}\n_quillhost \"$@\"\n";
}

struct Options {
    std::string kind, folder;
    bool checks = false;
};

#ifdef QUILLHOST_WITHOUT_EDITORS
int pages(const Session&, const Options&)
{
    throw WorkError(
        "this build, for a first look, writes no manual; ./install makes one that does");
}
#else
int pages(const Session& session, const Options& o)
{
    if (o.folder.empty()) throw UsageError("manual pages needs -o DIR");
    if (!o.checks) {
        writeManual(session, o.folder);
        return kDone;
    }
    const auto faults = manualFaults(session, o.folder);
    if (!faults.empty()) throw WorkError(o.folder + ": " + joined(faults, ", "));
    return kDone;
}
#endif

std::function<int(Session&)> declare(CLI::App& app)
{
    auto o = std::make_shared<Options>();
    addOption(app, "KIND", o->kind, "man, bash, zsh, or pages: Markdown, one per effect");
    addOption(app, "-o", o->folder, "where the pages go; their notes by hand are in DIR/notes",
              "DIR");
    addFlag(app, "--check", o->checks, "write no pages, but fail where those in DIR are others");
    return [o](Session& session) {
        requireArgument(o->kind, "man, bash, zsh or pages", "manual");
        const auto found = std::find(kKinds.begin(), kKinds.end(), o->kind);
        if (found == kKinds.end())
            throw UsageError("manual does not know " + inQuotes(o->kind) +
                             " (man, bash, zsh, pages)");
        if (found - kKinds.begin() == Pages) return pages(session, *o);
        if (!o->folder.empty() || o->checks)
            throw UsageError("manual takes -o and --check with pages alone");
        const auto all = commandTexts();
        switch (found - kKinds.begin()) {
        case Man:
            printMan(all);
            break;
        case Bash:
            printBash(all);
            break;
        default:
            printZsh(all);
        }
        return kDone;
    };
}
}  // namespace

extern const Command kManual;
const Command kManual = {"manual",
                         "the manual of the commands, a shell's completion, or the effects' pages",
                         "  quillhost manual man | man -l -\n"
                         "  source <(quillhost manual bash)\n"
                         "  quillhost manual zsh > ~/.zfunc/_quillhost\n"
                         "  quillhost manual pages -o docs/manual --check",
                         declare};

}  // namespace quillhost
