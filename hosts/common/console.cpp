// SPDX-License-Identifier: ISC
#include "console.h"

#include <atomic>
#include <fcntl.h>
#include <unistd.h>

#include "text.h"

namespace quillhost {
namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kIsSanitized = true;
#else
constexpr bool kIsSanitized = false;
#endif

std::atomic<int> gConsole = STDERR_FILENO;

}  // namespace

void keepConsole()
{
    if (kIsSanitized) return;
    const int console = fcntl(STDERR_FILENO, F_DUPFD_CLOEXEC, 3);
    const int nowhere = open("/dev/null", O_WRONLY | O_CLOEXEC);
    // Without one of the two everybody goes on as before.
    if (console >= 0 && nowhere >= 0 && dup2(nowhere, STDERR_FILENO) >= 0) gConsole = console;
    if (nowhere >= 0) close(nowhere);
}

int consoleDescriptor() noexcept
{
    return gConsole;
}

void say(std::string_view line)
{
    while (!line.empty() && line.back() == '\n') line.remove_suffix(1);
    const std::string text = "quillhost: " + escaped(line) + "\n";
    // In one call, so that the lines of several threads do not mix.
    [[maybe_unused]] const auto written = write(consoleDescriptor(), text.data(), text.size());
}

}  // namespace quillhost
