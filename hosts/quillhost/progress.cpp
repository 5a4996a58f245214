// SPDX-License-Identifier: ISC
#include "progress.h"

#include <algorithm>
#include <cstdio>
#include <unistd.h>
#include <utility>

#include "console.h"
#include "text.h"

namespace quillhost {

Progress::Progress(bool quiet, std::int64_t total, double framesPerSecond)
    : isOn_(!quiet && isatty(consoleDescriptor())),
      total_(total),
      framesPerSecond_(framesPerSecond),
      next_(start_ + std::chrono::milliseconds(500))
{}

Progress::~Progress()
{
    clear();
}

void Progress::clear()
{
    if (std::exchange(isShown_, false)) dprintf(consoleDescriptor(), "\r\033[K");
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
    std::string line = "\r\033[K";
    if (total_ > 0) line += fixedText(std::min(100.0, 100 * frames / double(total_)), 0) + " %  ";
    if (framesPerSecond_ > 0)
        line += fixedText(frames / framesPerSecond_, 1) + " s done, " +
                fixedText(frames / framesPerSecond_ / seconds, 0) + " times real time";
    dprintf(consoleDescriptor(), "%s", line.c_str());
}

}  // namespace quillhost
