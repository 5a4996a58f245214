// SPDX-License-Identifier: ISC
// Command lines of quillhost, a word to a line, up to where the first file would be opened.
#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <vector>

#include "command_line.h"
#include "error.h"
#include "session.h"
#include "tests/fuzz/fuzz_target.h"
#include "tests/support/build_paths.h"

namespace {

using namespace quillhost;
using quillworks::fuzz::require;

std::vector<std::string> linesOf(std::string_view text)
{
    std::vector<std::string> lines;
    while (!text.empty()) {
        const auto end = std::min(text.find('\n'), text.size());
        lines.emplace_back(text.substr(0, std::min(end, text.find('\0'))));  // as arguments do
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return lines;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static Session session(quillworks::paths::module, true);
    const auto text = quillworks::fuzz::textOf(data, size);
    const auto words = linesOf(text);
    try {
        const CommandLine line(words);
        require(line.command() || !line.answer().empty(), "there is a command or an answer");
        // Rendering goes on to read its words, but in an empty folder, and without paths and
        // standard input, it finds no sound file.
        if (!line.command() || line.command()->name != std::string_view("render")) return 0;
        if (text.find('/') != text.npos || std::count(words.begin(), words.end(), "-")) return 0;
        static const bool isElsewhere = [] {
            auto folder = (std::filesystem::temp_directory_path() / "quillhost-XXXXXX").string();
            if (!mkdtemp(folder.data())) throw std::runtime_error("no folder");
            std::filesystem::current_path(folder);
            return std::filesystem::remove(folder);
        }();
        require(isElsewhere, "there is an empty folder");
        line.run(session);
    } catch (const UsageError& e) {
        require(*e.what() != 0, "an error says what is wrong");
    } catch (const WorkError& e) {
        require(*e.what() != 0, "an error says what is wrong");
    }
    return 0;
}
