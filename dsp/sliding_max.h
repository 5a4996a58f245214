// SPDX-License-Identifier: ISC
// Largest value within a window that slides along a signal.
#pragma once

#include <cstddef>

#include "dsp/aligned_buffer.h"

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
    void prepare(int shortest, int longest);
    /// As after a signal of zeros.
    void reset() noexcept;
    /// As after the signal that `other`, prepared alike, has had.
    void takeOver(const SlidingMax& other) noexcept;
    /// Length of the second window; what has been heard so far counts.
    void setSecondWindow(int length) noexcept { setLength(windows_[1], length); }

    /// Asks for the memory of the next n samples.
    void fetchAhead(int n) const noexcept;
    /// Maxima over the first and, if wanted, the second window. `x` may be no output.
    void process(const double* x, int n, double* first, double* second = nullptr) noexcept;

    /// A run of samples within a block.
    struct Run {
        const double* x;
        double* open;          // copy of x, null where none is needed
        double top;            // of the open block
        const double* old[2];  // what the windows see of the blocks that they begin in
        int early[2];          // samples along which a window covers one block more
        double whole[2][2];    // maximum of the blocks that they cover, while early and then
        double* out[2];        // out[1] may be null
        int n;
    };

private:
    struct Window {
        int length = 1;
        int blocks = 0;            // complete blocks that a full window reaches into
        int rest = 0;              // samples of the open block up to which it needs one block more
        double top = 0, more = 0;  // of the blocks - 1 latest blocks, of `blocks`
    };

    void setLength(Window& w, int length) noexcept;
    void measure(Window& w) noexcept;
    const double* fromEnd(int back) const noexcept;
    const double* begunIn(const Window& w) const noexcept;
    double peakOf(int count) const noexcept;
    void closeBlock(const double* block) noexcept;

    int block_ = 1, slots_ = 2;
    AlignedBuffer<double> fromEnd_;  // of each slot, maxima from sample i to the block's end
    AlignedBuffer<double> tops_;     // of each slot, the block's maximum
    AlignedBuffer<double> open_;     // samples of the open block
    int present_ = 0;                // slot that the open block will take
    int at_ = 0;                     // samples in the open block
    double top_ = 0;                 // their maximum
    bool isSilent_ = false;          // nothing has come since all of them were zeros
    Window windows_[2];
};

}  // namespace quillworks
