// SPDX-License-Identifier: ISC
// How far the work is, on standard error; only for people, and only when it takes long.
#pragma once

#include <chrono>
#include <cstdint>

namespace quillhost {

class Progress {
public:
    /// `total` < 0: not known. `framesPerSecond` gives the speed its meaning, 0: none shown.
    Progress(bool quiet, std::int64_t total, double framesPerSecond);
    ~Progress();
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    void show(std::int64_t done);
    /// Makes room for a line of text.
    void clear();

private:
    using Clock = std::chrono::steady_clock;
    bool isOn_;
    bool isShown_ = false;
    std::int64_t total_;
    double framesPerSecond_;
    Clock::time_point start_ = Clock::now(), next_;
};

}  // namespace quillhost
