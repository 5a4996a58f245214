// SPDX-License-Identifier: ISC
// Largest value within a window that slides along a signal.
#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

#include "dsp/vec.h"

namespace quillworks {

/// Maxima of one signal of values >= 0 over one or two windows that end at the present sample.
///
/// The signal is cut into blocks; of each complete block the running maxima from its end backwards
/// are kept. A window is then what has come of the open block, whole blocks, and the end of one
/// more: one comparison each per sample, for any window (Gil and Werman 1993). Blocks of about the
/// square root of the longest window keep the work at a block's end small, so that no sample costs
/// much more than any other, which a queue of candidates cannot promise.
class SlidingMax {
public:
    /// For windows of `shortest` to `longest` samples, both >= 1. Both are `shortest` until set.
    /// Allocates.
    void prepare(int shortest, int longest)
    {
        block_ = 1;
        while (2 * block_ < shortest && block_ * block_ < longest) block_ *= 2;
        slots_ = (longest - 1) / block_ + 2;
        fromEnd_.resize(static_cast<std::size_t>(slots_ * block_));
        tops_.resize(static_cast<std::size_t>(slots_));
        open_.resize(static_cast<std::size_t>(block_));
        sinceStart_.resize(static_cast<std::size_t>(block_));
        for (auto& w : windows_) w.length = shortest;
        reset();
    }
    /// As after a signal of zeros.
    void reset() noexcept
    {
        std::fill(fromEnd_.begin(), fromEnd_.end(), 0.0);
        std::fill(tops_.begin(), tops_.end(), 0.0);
        std::fill(open_.begin(), open_.end(), 0.0);
        present_ = at_ = 0;
        top_ = 0;
        for (auto& w : windows_) setLength(w, w.length);
    }
    /// Length of the second window; what has been heard so far counts.
    void setSecondWindow(int length) noexcept { setLength(windows_[1], length); }

    /// Maxima over the first and, if wanted, the second window. `x` may be no output.
    void process(const double* x, int n, double* first, double* second = nullptr) noexcept
    {
        for (int done = 0; done < n;) {
            const int run = std::min(n - done, block_ - at_);
            for (int i = 0; i < run; ++i) {
                const double v = x[done + i];
                open_[static_cast<std::size_t>(at_ + i)] = v;
                top_ = top_ > v ? top_ : v;
                sinceStart_[static_cast<std::size_t>(i)] = top_;
            }
            look(windows_[0], x + done, run, first + done);
            if (second) look(windows_[1], x + done, run, second + done);
            done += run;
            at_ += run;
            if (at_ == block_) closeBlock();
        }
    }

private:
    struct Window {
        int length = 1;
        int blocks = 0;            // complete blocks that a full window reaches into
        int rest = 0;              // samples of the open block up to which it needs one block more
        double top = 0, more = 0;  // of the blocks - 1 latest blocks, of `blocks`
    };

    void setLength(Window& w, int length) noexcept
    {
        w.length = length;
        w.blocks = (length - 1) / block_;
        w.rest = (length - 1) % block_;
        measure(w);
    }
    void measure(Window& w) noexcept
    {
        w.top = peakOf(w.blocks - 1);
        w.more = w.blocks > 0 ? std::max(w.top, *fromEnd(w.blocks)) : 0;
    }
    /// Where the backward maxima of the block `back` before the open one start.
    const double* fromEnd(int back) const noexcept
    {
        const int slot = present_ - back + (back > present_ ? slots_ : 0);
        return fromEnd_.data() + slot * block_;
    }
    /// Of the latest `count` complete blocks.
    double peakOf(int count) const noexcept
    {
        const int straight = std::clamp(count, 0, present_);
        const double late = vec::peak(tops_.data() + present_ - straight, straight);
        const int wrapped = count - straight;
        return wrapped > 0 ? std::max(late, vec::peak(tops_.data() + slots_ - wrapped, wrapped))
                           : late;
    }
    void look(const Window& w, const double* x, int run, double* out) const noexcept
    {
        if (w.length == 1) return vec::copy(out, x, run);
        const int early = std::clamp(w.rest - at_, 0, run);
        if (early > 0) join(fromEnd(w.blocks + 1) + block_ - w.rest + at_, w.more, 0, early, out);
        if (early < run) join(fromEnd(w.blocks) + at_ + early - w.rest, w.top, early, run, out);
    }
    void join(const double* old, double top, int from, int to, double* out) const noexcept
    {
        for (int i = from; i < to; ++i) {
            const double a = std::max(old[i - from], top);
            const double b = sinceStart_[static_cast<std::size_t>(i)];
            out[i] = a > b ? a : b;
        }
    }
    void closeBlock() noexcept
    {
        double* const kept = fromEnd_.data() + present_ * block_;
        double most = 0;
        for (int i = block_; i-- > 0;) {
            const double v = open_[static_cast<std::size_t>(i)];
            most = most > v ? most : v;
            kept[i] = most;
        }
        tops_[static_cast<std::size_t>(present_)] = most;
        present_ = present_ + 1 == slots_ ? 0 : present_ + 1;
        at_ = 0;
        top_ = 0;
        for (auto& w : windows_) measure(w);
    }

    int block_ = 1, slots_ = 2;
    std::vector<double> fromEnd_;     // of each slot, maxima from sample i to the block's end
    std::vector<double> tops_;        // of each slot, the block's maximum
    std::vector<double> open_;        // samples of the open block
    std::vector<double> sinceStart_;  // its maxima up to each sample of the present run
    int present_ = 0;                 // slot that the open block will take
    int at_ = 0;                      // samples in the open block
    double top_ = 0;                  // their maximum
    Window windows_[2];
};

}  // namespace quillworks
