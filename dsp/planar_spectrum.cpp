// SPDX-License-Identifier: ISC
#include "dsp/planar_spectrum.h"

#include <cassert>
#include <cmath>
#include <numbers>

#include "dsp/shared_tables.h"
#include "dsp/vec.h"

namespace quillworks {
namespace {

/// exp(-2 pi i turns)
template <typename T> void root(double turns, T& re, T& im)
{
    const double angle = -2 * std::numbers::pi * (turns - std::floor(turns));
    re = static_cast<T>(std::cos(angle));
    im = static_cast<T>(std::sin(angle));
}

/// Frequency of the value that a decimation in frequency by quarters (and a last half) leaves in
/// `row` of `length`.
int frequencyOf(int row, int length)
{
    if (length <= 2) return row;
    const int quarter = length / 4;
    return 4 * frequencyOf(row % quarter, quarter) + row / quarter;
}

}  // namespace

template <typename T> int PlanarTransform<T>::columnSteps(int length) noexcept
{
    int steps = 0;
    for (; length > 1; length = length == 2 ? 1 : length / 4) ++steps;
    return steps;
}

template <typename T>
typename PlanarTransform<T>::Tables PlanarTransform<T>::makeTables(int points, int rows,
                                                                   int columns)
{
    const auto n = static_cast<std::size_t>(points);
    Tables tables;
    tables.twist.require(2 * n);
    tables.turn.require(2 * n);
    for (int i = 0; i < points; ++i) {
        T* const twist = tables.twist.data() + i;
        // A quarter of a turn over all points, forward.
        root(-0.25 * i / points, twist[0], twist[n]);
        T* const turn = tables.turn.data() + i;
        const auto k = std::int64_t{frequencyOf(i / columns, rows)} * (i % columns);
        root(static_cast<double>(k) / points, turn[0], turn[n]);
    }
    for (const auto& [table, size] : {std::pair{&tables.rows, rows}, {&tables.columns, columns}}) {
        table->require(4 * static_cast<std::size_t>(size));
        T* w = table->data();
        for (int length = size; length > 2; length /= 4)
            for (int j = 0; j < length / 4; ++j)
                for (int k = 1; k < 4; ++k, w += 2) root(double(j * k) / length, w[0], w[1]);
    }
    return tables;
}

template <typename T>
PlanarTransform<T>::PlanarTransform(int points, int permitted)
    : points_(points), kernels_(planar::kernels<T>(permitted))
{
    assert(points >= 64 && points <= 65536 && (points & (points - 1)) == 0);
    rows_ = 8;
    while (rows_ * rows_ < points) rows_ *= 2;
    columns_ = points / rows_;
    tables_ = SharedTables<int, Tables>::instance().get(
        points, [&] { return makeTables(points, rows_, columns_); });
}

template <typename T>
void PlanarTransform<T>::columnPass(bool forward, int pass, T* matrix, int rows, int columns,
                                    const T* tables) const noexcept
{
    int length = rows;
    for (int k = 0; k < pass; ++k) {
        tables += 6 * (length / 4);
        length /= 4;
    }
    const planar::Columns<T> run{matrix, matrix + row(), rows, columns, length, tables};
    (forward ? kernels_->forwardColumns : kernels_->inverseColumns)(run);
}

template <typename T>
void PlanarTransform<T>::forwardStep(int step, const T* older, const T* newer,
                                     T* scratch) const noexcept
{
    const auto n = static_cast<std::size_t>(points_);
    const int first = columnSteps(rows_);
    if (step == 0) {
        const T* const w = tables_->twist.data();
        kernels_->twist(older, newer, w, w + n, scratch, scratch + row(), points_);
    } else if (step <= first) {
        columnPass(true, step - 1, scratch, rows_, columns_, tables_->rows.data());
    } else if (step == first + 1) {
        const T* const w = tables_->turn.data();
        kernels_->turn(scratch, scratch + row(), w, w + n, spectrumRe(scratch), spectrumIm(scratch),
                       rows_, columns_);
    } else {
        columnPass(true, step - first - 2, spectrumRe(scratch), columns_, rows_,
                   tables_->columns.data());
    }
}

template <typename T>
void PlanarTransform<T>::inverseStep(int step, T* scratch, T* out) const noexcept
{
    const auto n = static_cast<std::size_t>(points_);
    const int last = columnSteps(columns_);
    if (step < last) {
        columnPass(false, last - 1 - step, spectrumRe(scratch), columns_, rows_,
                   tables_->columns.data());
    } else if (step == last) {
        const T* const w = tables_->turn.data();
        kernels_->turnBack(spectrumRe(scratch), spectrumIm(scratch), w, w + n, scratch,
                           scratch + row(), columns_, rows_);
    } else if (step < steps() - 1) {
        columnPass(false, steps() - 2 - step, scratch, rows_, columns_, tables_->rows.data());
    } else {
        const T* const w = tables_->twist.data();
        kernels_->untwist(scratch, scratch + row(), w, w + n, out, points_);
    }
}

template <typename T>
void PlanarTransform<T>::gather(const T* scratch, T gain, T* to, std::ptrdiff_t groupStep,
                                int firstGroup, int groups) const noexcept
{
    for (int g = firstGroup; g < firstGroup + groups; ++g) {
        const T* const re = scratch + 2 * row() + g * planar::kGroup;
        T* const group = to + g * groupStep;
        for (int i = 0; i < planar::kGroup; ++i) {
            group[i] = gain * re[i];
            group[planar::kGroup + i] = gain * re[row() + i];
        }
    }
}

template class PlanarTransform<float>;
template class PlanarTransform<double>;

}  // namespace quillworks
