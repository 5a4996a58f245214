// SPDX-License-Identifier: ISC
#include "progress.h"

#include <cstdio>
#include <unistd.h>

namespace quillhost {

Progress::Progress(bool quiet, std::int64_t total, double framesPerSecond)
    : isOn_(!quiet && isatty(STDERR_FILENO)),
      total_(total),
      framesPerSecond_(framesPerSecond),
      next_(start_ + std::chrono::milliseconds(500))
{}

Progress::~Progress()
{
    if (isShown_) std::fputs("\r\033[K", stderr);
}

void Progress::show(std::int64_t done)
{
    if (!isOn_) return;
    const auto now = Clock::now();
    if (now < next_) return;
    next_ = now + std::chrono::milliseconds(100);
    isShown_ = true;
    const double seconds = std::chrono::duration<double>(now - start_).count();
    const double frames = static_cast<double>(done);
    std::fputs("\r\033[K", stderr);
    if (total_ > 0) std::fprintf(stderr, "%3.0f %%  ", 100 * frames / double(total_));
    if (framesPerSecond_ > 0)
        std::fprintf(stderr, "%.1f s done, %.0f times real time", frames / framesPerSecond_,
                     frames / framesPerSecond_ / seconds);
    std::fflush(stderr);
}

}  // namespace quillhost
