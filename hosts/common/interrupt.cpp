// SPDX-License-Identifier: ISC
#include "interrupt.h"

#include <atomic>
#include <csignal>
#include <cstring>
#include <unistd.h>

#include "console.h"
#include "error.h"

namespace quillhost {
namespace {

constexpr int kSlots = 128;  // of files that are written side by side
std::atomic<const char*> gUnfinished[kSlots];

// Only calls that are safe in a signal handler.
void endNow(int signal)
{
    for (auto& slot : gUnfinished)
        if (const char* path = slot.load()) unlink(path);
    const char* const line = signal == SIGXFSZ   ? "quillhost: interrupted (file size limit)\n"
                             : signal == SIGXCPU ? "quillhost: interrupted (time limit)\n"
                                                 : "quillhost: interrupted\n";
    [[maybe_unused]] const auto written = write(consoleDescriptor(), line, std::strlen(line));
    _exit(signal == SIGINT ? kInterrupted : 128 + signal);
}

}  // namespace

void installSignalHandlers()
{
    struct sigaction action = {};
    action.sa_handler = endNow;
    sigemptyset(&action.sa_mask);
    constexpr int kEnding[] = {SIGINT, SIGTERM, SIGQUIT, SIGXCPU, SIGXFSZ};
    for (const int signal : kEnding) sigaddset(&action.sa_mask, signal);
    for (const int signal : kEnding) sigaction(signal, &action, nullptr);
    struct sigaction previous = {};
    sigaction(SIGHUP, nullptr, &previous);
    if (previous.sa_handler != SIG_IGN) sigaction(SIGHUP, &action, nullptr);  // else: nohup
    std::signal(SIGPIPE, SIG_IGN);
}

UnfinishedFile::UnfinishedFile(std::string path) : path_(std::move(path))
{
    for (int i = 0; i < kSlots; ++i) {
        const char* none = nullptr;
        if (gUnfinished[i].compare_exchange_strong(none, path_.c_str())) {
            slot_ = i;
            return;
        }
    }
}

UnfinishedFile::~UnfinishedFile()
{
    if (slot_ >= 0) gUnfinished[slot_] = nullptr;
}

}  // namespace quillhost
