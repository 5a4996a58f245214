// SPDX-License-Identifier: ISC
#include "editors/displays/values.h"

#include <cmath>
#include <limits>
#include <utility>

namespace quillworks::editors {

Values::Values(EffectModel& model, std::string name) : model_(&model), name_(std::move(name))
{
    if (name_.empty()) return;
    indices_ = model.parameters(name_);
    isMeter_ = indices_.empty();
}

const std::vector<int>& Values::indices() const
{
    if (isMeter_ && layout_ != model_->layout()) {
        layout_ = model_->layout();
        indices_ = model_->meterFamily(name_);
    }
    return indices_;
}

double Values::operator[](int i) const
{
    if (i < 0 || i >= count()) return std::numeric_limits<double>::quiet_NaN();
    const int at = indices()[static_cast<std::size_t>(i)];
    return double(isMeter_ ? model_->reading(at) : model_->value(at));
}

bool Values::isAmplitude(int i) const
{
    const int at = indices()[static_cast<std::size_t>(i)];
    return *(isMeter_ ? model_->meterInfo(at).unit : model_->info(at).unit) == '\0';
}

double Values::decibels(int i) const
{
    const double value = (*this)[i];
    if (std::isnan(value) || !isAmplitude(i)) return value;
    return value > 1e-7 ? 20 * std::log10(value) : -140;
}

double Values::largestDecibels() const
{
    double largest = std::numeric_limits<double>::quiet_NaN();
    for (int i = 0; i < count(); ++i) {
        const double value = decibels(i);
        if (!(value <= largest)) largest = std::isnan(value) ? largest : value;
    }
    return largest;
}

int Values::parameter(int i) const
{
    if (isMeter_ || i < 0 || i >= count()) return -1;
    const int at = indices()[static_cast<std::size_t>(i)];
    return model_->info(at).has(VNK::isReadOnly) ? -1 : at;
}

std::string Values::text(int i) const
{
    if (i < 0 || i >= count()) return {};
    const int at = indices()[static_cast<std::size_t>(i)];
    return isMeter_ ? model_->meterText(at, model_->reading(at)) : model_->text(at);
}

std::string Values::title(int i) const
{
    if (i < 0 || i >= count()) return {};
    const int at = indices()[static_cast<std::size_t>(i)];
    return isMeter_ ? model_->meterInfo(at).title : model_->info(at).shortTitle;
}

}  // namespace quillworks::editors
