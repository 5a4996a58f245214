// SPDX-License-Identifier: ISC
// Mean squares and mean product of two channels over each sub-block.
#pragma once

#include <algorithm>
#include <cmath>

#include "dsp/control_grid.h"

namespace quillworks {

struct PairMoments {
    double xx = 0, yy = 0, xy = 0;
};

/// Summed in an order that hangs on the frame alone, so the moments have the same bits however the
/// signal is divided into calls. Products in the precision of the signal and eight sums side by
/// side, each of four products: as exact as the samples are, and no chain from frame to frame.
template <typename T> class PairPower {
public:
    void reset() noexcept
    {
        clear();
        moments_ = {};
    }
    /// A slice within one sub-block. Where that ends with it, moments() is that sub-block's.
    void add(const T* x, const T* y, GridSlice slice) noexcept
    {
        if (slice.begins()) clear();
        if (slice.frames == kSubBlock)
            for (int i = 0; i < kSubBlock; i += kSums) addRow(x + i, y + i);
        else
            for (int i = 0; i < slice.frames; ++i) addTo((slice.phase + i) % kSums, x[i], y[i]);
        if (!slice.ends()) return;
        moments_ = {mean(xx_), mean(yy_), mean(xy_)};
        const bool isSound =
            std::isfinite(moments_.xx) && std::isfinite(moments_.yy) && std::isfinite(moments_.xy);
        if (!isSound) moments_ = {};
    }
    /// Of the last whole sub-block; of one that is not finite 0.
    const PairMoments& moments() const noexcept { return moments_; }

private:
    static constexpr int kSums = 8;

    void clear() noexcept
    {
        for (T* sums : {xx_, yy_, xy_}) std::fill(sums, sums + kSums, T(0));
    }
    void addTo(int k, T x, T y) noexcept
    {
        xx_[k] += x * x;
        yy_[k] += y * y;
        xy_[k] += x * y;
    }
    void addRow(const T* x, const T* y) noexcept
    {
        for (int k = 0; k < kSums; ++k) addTo(k, x[k], y[k]);
    }
    static double mean(const T* sums) noexcept
    {
        double sum = 0;
        for (int k = 0; k < kSums; ++k) sum += double(sums[k]);
        return sum / kSubBlock;
    }

    T xx_[kSums]{}, yy_[kSums]{}, xy_[kSums]{};
    PairMoments moments_;
};

}  // namespace quillworks
