// SPDX-License-Identifier: ISC
// Integrated loudness and loudness range from histograms of fixed size, however long the programme.
#pragma once
#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>

namespace quillworks {

/// LUFS of a K-weighted, channel-weighted mean square; -144 for none.
double loudnessOf(double power) noexcept;

inline constexpr double kAbsoluteGate = -70;  // LUFS
inline constexpr double kNoLoudness = -144;   // what an empty measurement reads

/// How many values fell into each bin, and in all.
template <int bins> class BinCounts {
public:
    void clear() noexcept
    {
        counts_.fill(0);
        total_ = 0;
    }
    /// Values beyond an end count in the bin there.
    void add(int bin) noexcept
    {
        ++counts_[static_cast<std::size_t>(std::clamp(bin, 0, bins - 1))];
        ++total_;
    }
    std::uint32_t operator[](std::size_t bin) const noexcept { return counts_[bin]; }
    std::uint32_t total() const noexcept { return total_; }

private:
    std::array<std::uint32_t, bins> counts_{};
    std::uint32_t total_ = 0;
};

/// Gating blocks by power: 2280 bins of 0.05 in 20 log10 of the mean square from -90 to +24. A bin
/// stands for its lower edge; blocks below the first bin count in it.
class BlockHistogram {
public:
    static constexpr int kBins = 2280;

    void clear() noexcept { counts_.clear(); }
    void add(double power) noexcept;
    /// LUFS: mean of the blocks more than 10 LU below the mean of all left out (EBU R 128).
    double integrated() const noexcept;

private:
    BinCounts<kBins> counts_;
};

/// Short-term values by loudness: 3000 bins over -72 .. +10 LUFS, each standing for its centre.
class RangeHistogram {
public:
    static constexpr int kBins = 3000;
    static constexpr std::uint32_t kFewest = 20;  // values below which there is no range

    struct Range {
        double low = -70, high = -70;  // LUFS
        double width = 0;              // LU
    };

    void clear() noexcept { counts_.clear(); }
    void add(double lufs) noexcept;
    /// From the 10th to the 95th percentile of the values above the mean of all less 20 LU. The
    /// mean is that of the values in LUFS, not of their powers.
    Range range() const noexcept;

private:
    BinCounts<kBins> counts_;
};

}  // namespace quillworks
