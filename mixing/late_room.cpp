// SPDX-License-Identifier: ISC
#include "mixing/late_room.h"

#include <algorithm>
#include <cmath>

#include "dsp/control_grid.h"
#include "dsp/fetch_ahead.h"

namespace quillworks {
namespace {

constexpr double kSeconds[] = {0.0231, 0.0293, 0.0347, 0.0419};
constexpr double kReverberation = 0.35;  // s to -60 dB
constexpr double kTreble = 5000;         // Hz, that the walls take

}  // namespace

template <typename T> void LateRoom<T>::prepare(double sampleRate)
{
    for (std::size_t i = 0; i < kLines; ++i) {
        delay_[i] = std::max(1, static_cast<int>(kSeconds[i] * sampleRate + 0.5));
        const auto gain = T(std::pow(10, -3 * delay_[i] / (sampleRate * kReverberation)));
        low_[i] = OnePoleCoefficients<T>::lowPass(kTreble, sampleRate);
        low_[i].l *= gain;
        low_[i].h *= gain;
    }
    lines_.prepare(kLines, delay_.back() + LongLine<T>::kMirror);
    reset();
}

template <typename T> void LateRoom<T>::reset() noexcept
{
    lines_.clear();
    z_.fill(0);
}

template <typename T> void LateRoom<T>::process(const T* in, T* left, T* right, int n) noexcept
{
    T x[kLines][kSubBlock];
    for (int done = 0; done < n;) {
        const int m = std::min(n - done, delay_.front());  // at very low rates a line is shorter
        for (std::size_t i = 0; i < kLines; ++i) {
            lines_.copy(static_cast<int>(i), x[i], delay_[i] - 1, m);
            fetchAhead(lines_.at(static_cast<int>(i), delay_[i] - 1) + m, kSubBlock);
        }
        auto z = z_;
        for (int k = 0; k < m; ++k)
            for (std::size_t i = 0; i < kLines; ++i) {
                const T from = x[i][k];
                x[i][k] = low_[i].l * z[i] + low_[i].h * from;
                z[i] += low_[i].b * (from - z[i]);
            }
        z_ = z;
        for (int k = 0; k < m; ++k) {
            const T a = x[0][k], b = x[1][k], c = x[2][k], d = x[3][k];
            left[done + k] = a + c;
            right[done + k] = b - d;
            const T given = T(0.25) * in[done + k];
            x[0][k] = given + T(0.5) * ((a + b) + (c + d));
            x[1][k] = given + T(0.5) * ((a - b) + (c - d));
            x[2][k] = given + T(0.5) * ((a + b) - (c + d));
            x[3][k] = given + T(0.5) * ((a - b) - (c - d));
        }
        const T* const rows[kLines] = {x[0], x[1], x[2], x[3]};
        lines_.write(rows, m);
        done += m;
    }
}

template class LateRoom<float>;
template class LateRoom<double>;

}  // namespace quillworks
