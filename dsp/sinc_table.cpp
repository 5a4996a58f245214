// SPDX-License-Identifier: ISC
#include "dsp/sinc_table.h"

#include <cmath>
#include <vector>

#include "dsp/kaiser.h"
#include "dsp/shared_tables.h"

namespace quillworks {
namespace {

/// The kernel's integrals from t = 0, 1/phases .. taps/2 to its end, scaled to a half at 0. From
/// the end, where they are 0, so that small values keep their digits; the kernel being even, they
/// hold for t < 0 too.
class Tails {
public:
    explicit Tails(const SincDesign& d) : phases_(d.phases)
    {
        const KaiserWindow window(d.beta);
        const double half = d.taps / 2;
        const int count = d.taps / 2 * d.phases + 1;
        area_.resize(static_cast<std::size_t>(count));
        moment_.resize(static_cast<std::size_t>(count));
        const auto kernel = [&](double t) { return sinc(d.cut * t) * window(t / half); };
        const double width = 1.0 / d.phases;
        double above = kernel(half);
        for (int i = count - 2; i >= 0; --i) {  // Simpson's rule
            const double t = i * width, middle = t + width / 2;
            const double at = kernel(t), between = kernel(middle);
            const auto k = static_cast<std::size_t>(i);
            area_[k] = area_[k + 1] + (at + 4 * between + above) * (width / 6);
            moment_[k] = moment_[k + 1] +
                         (t * at + 4 * middle * between + (t + width) * above) * (width / 6);
            above = at;
        }
        scale_ = 0.5 / area_[0];
    }
    /// 1 minus the band-limited step at time i/phases >= 0; 0 beyond the kernel.
    double step(int i) const { return i < int(area_.size()) ? scale_ * area_[std::size_t(i)] : 0; }
    /// The area under that from there on, by parts.
    double corner(int i) const
    {
        if (i >= int(area_.size())) return 0;
        const auto k = static_cast<std::size_t>(i);
        return scale_ * (moment_[k] - i * (1.0 / phases_) * area_[k]);
    }

private:
    int phases_;
    double scale_;
    std::vector<double> area_, moment_;
};

/// Row of phase i / phases of the integrals.
void integralRow(const SincDesign& d, const Tails& tails, int i, double* out)
{
    const int half = d.taps / 2;
    // Whether the sample counts as behind the event is told by its place in the row: at a phase of
    // 1 one that lies on the event itself does not.
    const auto residual = [&](int k) {
        const int at = (k - half) * d.phases + i;
        return k < half ? tails.step(-at) : -tails.step(at);
    };
    if (d.kind == SincKind::Corner) {
        for (int k = 0; k < d.taps; ++k) out[k] = tails.corner(std::abs((k - half) * d.phases + i));
    } else if (d.kind == SincKind::Step) {
        for (int k = 0; k < d.taps; ++k) out[k] = residual(k);
    } else {
        double before = 0;
        for (int k = 0; k <= d.taps; ++k) {
            const double now = k < d.taps ? residual(k) : 0;
            out[k] = now - before + (k == half);
            before = now;
        }
    }
}

}  // namespace

void sincWindow(const SincDesign& d, double phase, double* out) noexcept
{
    const KaiserWindow window(d.beta);
    const int half = d.taps / 2;
    for (int k = 0; k < d.taps; ++k) out[k] = window((k - (half - 1) - phase) / half);
}

void sincTaps(const SincDesign& d, double phase, const double* window, double* out) noexcept
{
    double sum = 0;
    for (int k = 0; k < d.taps; ++k) {
        const double distance = k - (d.taps / 2 - 1) - phase;
        out[k] = window[k] * sinc(d.cut * distance);
        // The zeros of the widest sinc fall on samples, and are to be none but 0 there.
        if (d.cut == 1 && (phase == 0 || phase == 1) && distance != 0) out[k] = 0;
        sum += out[k];
    }
    for (int k = 0; k < d.taps; ++k) out[k] /= sum;
}

template <typename T>
SincTable<T>::SincTable(const SincDesign& design)
    : design_(design), taps_(design.taps + (design.kind == SincKind::Increment))
{
    rows_.require(static_cast<std::size_t>((design.phases + 2) * taps_));
    std::vector<double> row(static_cast<std::size_t>(taps_)), window(row.size());
    std::unique_ptr<Tails> tails;
    if (design.kind != SincKind::Taps) tails = std::make_unique<Tails>(design);
    T* to = rows_.data();
    for (int i = 0; i <= design.phases; ++i) {
        if (tails) {
            integralRow(design, *tails, i, row.data());
        } else {
            const double phase = double(i) / design.phases;
            sincWindow(design, phase, window.data());
            sincTaps(design, phase, window.data(), row.data());
        }
        for (const double tap : row) *to++ = static_cast<T>(tap);
    }
}

template <typename T>
std::shared_ptr<const SincTable<T>> SincTable<T>::shared(const SincDesign& design)
{
    return SharedTables<SincDesign, SincTable>::instance().get(design,
                                                               [&] { return SincTable(design); });
}

template class SincTable<float>;
template class SincTable<double>;

}  // namespace quillworks
