// SPDX-License-Identifier: ISC
// The spectra of the last half minute, in rows of equal parts of an octave.
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <vector>

namespace quillworks {

class Sonogram {
public:
    static constexpr int kRows = 512;
    static constexpr double kSeconds = 30;
    static constexpr double kMostColumns = 60;  // a second

    struct Column {
        double time = 0;                   // seconds, middle of its transforms
        std::vector<float> decibels = {};  // curve by curve, kRows each
    };

    /// For transforms of `length` frames at multiples of a quarter of it. Forgets.
    void prepare(int curves, int length, double sampleRate);
    void release() noexcept;
    void clear() noexcept;
    /// The signal has a seam: the next transform begins a column.
    void begin() noexcept;
    /// Frequencies of the first and the last row, Hz. What is there already is stretched; what it
    /// does not hold is not-a-number.
    void setRange(double low, double high);
    /// The powers of a transform's bins, curve by curve; `end`: number of the frame behind it.
    void add(const std::vector<std::vector<double>>& powers, std::int64_t end);

    /// Hz; beyond half the sample rate there is nothing.
    double frequency(int row) const noexcept { return frequencyAt(low_, high_, row); }
    const std::deque<Column>& columns() const noexcept { return columns_; }  // oldest first

private:
    static double frequencyAt(double low, double high, double row) noexcept;
    void layOut() noexcept;
    float valueOf(const std::vector<double>& powers, int row) const noexcept;
    void stretch(double fromLow, double fromHigh);

    /// The bins of a row; if it has none, `last` is below `first`.
    struct Row {
        int first, last;
        double place;  // of its middle, in bins
    };
    int curves_ = 0, length_ = 1, perColumn_ = 1;
    double rate_ = 1, low_ = 20, high_ = 20000;
    std::array<Row, kRows> rows_{};
    std::vector<std::vector<double>> highest_;  // of the transforms of the next column
    double time_ = 0;                           // sum of the middles of those
    int count_ = 0;
    std::deque<Column> columns_;
};

}  // namespace quillworks
