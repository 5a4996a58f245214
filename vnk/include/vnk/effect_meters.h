// SPDX-License-Identifier: ISC
// Interface of an effect: what it measures.
#pragma once

#include <cstdint>

#include "vnk/object.h"
#include "vnk/parameter.h"

namespace VNK {

/// Every measured value, the read-only parameters among them. The list depends on the channel
/// count.
class IEffectMeters : public IObject {
public:
    static constexpr UID iid = UID::constant("{7B6F6C63-5C25-4D0A-9C2B-3B8B0B2A1D06}");

    virtual std::int32_t countMeters() const noexcept = 0;
    virtual bool getMeter(std::int32_t index, MeterInfo& info) const noexcept = 0;
    /// [any thread]
    virtual float readMeter(std::int32_t index) const noexcept = 0;
    /// Text of a reading with its unit, "-" for not-a-number; cut and counted as by valueToText.
    virtual std::int32_t meterToText(std::int32_t index, float value, char* text,
                                     std::int32_t size) const noexcept = 0;
    /// Text of a list's step, counted from the minimum; null beyond the end.
    virtual const char* meterChoice(std::int32_t index, std::int32_t step) const noexcept = 0;
    /// Somebody begins or ceases to look at the meters; some run only meanwhile. Calls count: the
    /// effect sees the first beginning and the last end.
    virtual void setEditorOpen(bool open) noexcept = 0;

protected:
    ~IEffectMeters() = default;
};

/// All readings in one call, for those who show them after every block.
class IEffectReadings : public IObject {
public:
    static constexpr UID iid = UID::constant("{7B6F6C63-5C25-4D0A-9C2B-3B8B0B2A1D12}");

    /// The first `count` of IEffectMeters in their order, no more than there are; returns how many.
    /// [any thread]
    virtual std::int32_t readMeters(float* values, std::int32_t count) const noexcept = 0;

protected:
    ~IEffectReadings() = default;
};

}  // namespace VNK
