// SPDX-License-Identifier: ISC
#include "analysis/meter_engine.h"

#include <cmath>
#include <sstream>

namespace quillworks {

void MeterEngine::prepare(const ProcessSpec& spec)
{
    spec_ = spec;
    names_.clear();
    std::istringstream names(spec.layout.names());
    for (std::string name; names >> name;) names_.push_back(name);
    names_.resize(static_cast<std::size_t>(spec.channels), "-");
    prepareMeter(spec);
    isPrepared_ = isSeam_ = true;
    lost_ = bad_ = 0;
    clear();
}

void MeterEngine::release() noexcept
{
    isPrepared_ = false;
    releaseMeter();
}

void MeterEngine::reset()
{
    next_ = 0;
    isSeam_ = true;
    lost_ = bad_ = 0;
    clear();
}

void MeterEngine::gap(std::int64_t next)
{
    next_ = next;
    isSeam_ = true;
    if (!settings_.isFrozen) ++lost_;
}

void MeterEngine::set(const MeterSettings& settings)
{
    if (settings.isFrozen) isSeam_ = true;
    if (settings.holdResets != settings_.holdResets) {
        lost_ = bad_ = 0;
        resetHolds();
    }
    settings_ = settings;
}

void MeterEngine::feed(float* const* x, int n, std::int64_t first)
{
    next_ = first + n;
    if (settings_.isFrozen) return;
    for (int c = 0; c < spec_.channels; ++c)
        for (int i = 0; i < n; ++i)
            if (!std::isfinite(x[c][i])) {
                x[c][i] = 0;
                ++bad_;
            }
    if (isSeam_) begin(first);
    isSeam_ = false;
    take(x, n);
}

void MeterEngine::publish(MeterSlots& meters) noexcept
{
    meters.publish("Lost"_tag, static_cast<float>(lost_));
    meters.publish("Bad "_tag, static_cast<float>(bad_));
    publishMeter(meters);
}

void MeterEngine::show(int index, VNK::IDisplaySink& sink) const
{
    sink.number("lost", static_cast<double>(lost_));
    showMeter(index, sink);
}

}  // namespace quillworks
