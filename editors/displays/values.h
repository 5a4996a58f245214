// SPDX-License-Identifier: ISC
// What the attributes of a display's box name: values of the effect, by key or tag, whichever of
// its lists they stand in.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "editors/effect_model.h"

namespace quillworks::editors {

/// A value, or all of a family, one after the other. Names that the effect lacks have none.
class Values {
public:
    Values() = default;
    Values(EffectModel& model, std::string name);

    int count() const { return static_cast<int>(indices().size()); }
    bool exist() const { return model_ && count() > 0; }
    /// As of the last tick; not-a-number where there is nothing to show.
    double operator[](int i) const;
    /// In decibels, where the effect measures amplitudes too.
    double decibels(int i) const;
    /// The largest of those that show something.
    double largestDecibels() const;
    /// To be set by hand; -1 for what is only read.
    int parameter(int i) const;
    std::string text(int i) const;
    std::string title(int i) const;

private:
    const std::vector<int>& indices() const;
    bool isAmplitude(int i) const;

    EffectModel* model_ = nullptr;
    std::string name_;
    bool isMeter_ = false;
    mutable std::vector<int> indices_;
    mutable unsigned layout_ = 0;  // that the indices of meters are of
};

/// A single value, 0 where the skin names none and there is no other fallback.
class Value {
public:
    Value() = default;
    Value(EffectModel& model, std::string name) : values_(model, std::move(name)) {}

    bool exists() const { return values_.exist(); }
    double get() const { return values_[0]; }
    double get(double fallback) const { return exists() ? values_[0] : fallback; }
    bool isOn() const { return get(0) > 0.5; }
    int parameter() const { return values_.parameter(0); }
    std::string text() const { return values_.text(0); }
    std::string title() const { return values_.title(0); }

private:
    Values values_;
};

}  // namespace quillworks::editors
