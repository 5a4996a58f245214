// SPDX-License-Identifier: ISC
// The words of the command line, understood but not yet acted upon.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "command.h"
#include "command_texts.h"

namespace quillhost {

class CommandLine {
public:
    /// The words after the program's name. UsageError for what is no command or what the command
    /// does not take.
    explicit CommandLine(std::vector<std::string> words);
    ~CommandLine();
    CommandLine(const CommandLine&) = delete;
    CommandLine& operator=(const CommandLine&) = delete;

    /// What to run; null where only help or the version is asked for, which answer() gives.
    const Command* command() const noexcept { return command_; }
    const std::string& answer() const noexcept { return answer_; }
    const std::string& module() const noexcept { return module_; }
    bool quiet() const noexcept { return quiet_; }

    /// Runs the command; gives the exit code.
    int run(Session& session) const { return body_(session); }

private:
    friend std::vector<CommandTexts> commandTexts();

    void addGlobals(CLI::App& app);

    std::unique_ptr<CLI::App> parser_;  // commands look options up in it while they run
    std::string module_, answer_;
    bool quiet_ = false;
    const Command* command_ = nullptr;
    std::function<int(Session&)> body_;
};

}  // namespace quillhost
