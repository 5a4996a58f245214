// SPDX-License-Identifier: ISC
#include "dynamics/gain_history.h"

#include <cmath>
#include <limits>

#include "dsp/control_grid.h"
#include "dsp/decibel.h"

namespace quillworks {

CaptureFormat GainHistory::format(const ProcessSpec& spec) const
{
    return {2 * static_cast<int>(names_.size()), spec.sampleRate / kSubBlock};
}

void GainHistory::prepare(const ProcessSpec& spec)
{
    rate_ = spec.sampleRate / kSubBlock;
    held_ = static_cast<std::size_t>(std::ceil(kSeconds * rate_));
    lines_.assign(2 * names_.size(), std::vector<float>(held_));
    reset();
}

void GainHistory::release() noexcept
{
    lines_ = {};
    count_ = 0;
}

void GainHistory::gap(std::int64_t)
{
    count_ = 0;  // what is shown has no seams
    ++lost_;
}

void GainHistory::feed(float* const* x, int n, std::int64_t)
{
    for (int i = 0; i < n; ++i, ++count_) {
        const auto at = static_cast<std::size_t>(count_) % held_;
        for (std::size_t c = 0; c < lines_.size(); ++c) {
            const auto value = double(x[c][i]);
            lines_[c][at] = value > kSilence ? static_cast<float>(gainToDb(value))
                                             : std::numeric_limits<float>::quiet_NaN();
        }
    }
}

void GainHistory::show(int, VNK::IDisplaySink& sink) const
{
    sink.number("lost", static_cast<double>(lost_));
    sink.number("rate", rate_);
    sink.number("count", static_cast<double>(count_));
    const auto shown = std::min(static_cast<std::size_t>(count_), held_);
    const auto first = static_cast<std::size_t>(count_) - shown;
    std::vector<float> values(shown);
    sink.beginList("bands");
    for (std::size_t b = 0; b < names_.size() && !lines_.empty(); ++b) {
        sink.beginObject(nullptr);
        sink.text("name", names_[b]);
        for (std::size_t which = 0; which < 2; ++which) {
            const auto& line = lines_[2 * b + which];
            const auto oldest = line.begin() + static_cast<std::ptrdiff_t>(first % held_);
            const auto end = std::copy(oldest, std::min(oldest + std::ptrdiff_t(shown), line.end()),
                                       values.begin());
            std::copy_n(line.begin(), values.end() - end, end);
            sink.numbers(which == 0 ? "level" : "gain", values.data(),
                         static_cast<std::int64_t>(shown));
        }
        sink.end();
    }
    sink.end();
}

}  // namespace quillworks
