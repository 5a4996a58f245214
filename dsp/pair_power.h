// SPDX-License-Identifier: ISC
// Mean squares and mean product of two channels over each sub-block.
#pragma once

#include <cmath>

#include "dsp/control_grid.h"

namespace quillworks {

struct PairMoments {
    double xx = 0, yy = 0, xy = 0;
};

inline constexpr int kPairSums = 8;

/// Sums of products in which frame i of a sub-block counts for the sums of index i % 8.
template <typename T> struct PairSums {
    T xx[kPairSums]{}, yy[kPairSums]{}, xy[kPairSums]{};

    /// Those of a whole sub-block, for the instruction set at hand.
    static void (*const ofSubBlock)(const T* x, const T* y, PairSums& sums);

    void add(int frame, T x, T y) noexcept
    {
        const int k = frame % kPairSums;
        xx[k] += x * x;
        yy[k] += y * y;
        xy[k] += x * y;
    }
    PairMoments moments() const noexcept { return {mean(xx), mean(yy), mean(xy)}; }

private:
    static double mean(const T* s) noexcept
    {
        const auto two = [s](int k) { return double(s[k]) + double(s[k + kPairSums / 2]); };
        return ((two(0) + two(1)) + (two(2) + two(3))) / kSubBlock;
    }
};

template <> void (*const PairSums<float>::ofSubBlock)(const float*, const float*, PairSums<float>&);
template <>
void (*const PairSums<double>::ofSubBlock)(const double*, const double*, PairSums<double>&);

/// Summed in an order that hangs on the frame alone, so the moments have the same bits however the
/// signal is divided into calls. Products in the precision of the signal, and only four in a sum:
/// as exact as the samples are.
template <typename T> class PairPower {
public:
    void reset() noexcept
    {
        sums_ = {};
        moments_ = {};
    }
    /// A slice within one sub-block. Where that ends with it, moments() is that sub-block's.
    void add(const T* x, const T* y, GridSlice slice) noexcept
    {
        if (slice.frames == kSubBlock) {
            PairSums<T>::ofSubBlock(x, y, sums_);
        } else {
            if (slice.begins()) sums_ = {};
            for (int i = 0; i < slice.frames; ++i) sums_.add(slice.phase + i, x[i], y[i]);
            if (!slice.ends()) return;
        }
        moments_ = sums_.moments();
        const bool isSound =
            std::isfinite(moments_.xx) && std::isfinite(moments_.yy) && std::isfinite(moments_.xy);
        if (!isSound) moments_ = {};
    }
    /// Of the last whole sub-block; of one that is not finite 0.
    const PairMoments& moments() const noexcept { return moments_; }

private:
    PairSums<T> sums_;
    PairMoments moments_;
};

}  // namespace quillworks
