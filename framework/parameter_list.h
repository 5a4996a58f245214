// SPDX-License-Identifier: ISC
// The parameters and meters of an effect, built once from its table for component and algorithm.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "framework/meter_slots.h"
#include "framework/parameter.h"

namespace quillworks {

/// One parameter, or a measured value, constant after construction.
struct AlgorithmParameter {
    std::string key;
    Tag tag = 0;
    const char* title = "";
    const char* unit = "";  // unit text or unit key, as declared
    VNK::ValueKind kind = VNK::ValueKind::Continuous;
    float minimum = 0;
    float maximum = 1;
    float defaultValue = 0;  // of a meter: until something is measured
    const Curve* curve = &curve::linear;
    std::uint32_t flags = 0;  // VNK::ParameterFlag
    std::int32_t index = -1;
    bool perChannel = false;  // the index is a channel; meters: shown only for those present

    ParameterNotes notes;
    Conversion forward = conversion::asIs;
    bool isTempo = false;
    int slot = -1;   // in slots(); -1 for meters
    int meter = -1;  // in meters(); -1 for what is set

    bool has(VNK::ParameterFlag flag) const noexcept { return (flags & flag) != 0; }
    bool isStored() const noexcept
    {
        return !(flags & (VNK::isReadOnly | VNK::isTrigger | VNK::isNotStored));
    }
    /// The value within the range, and on a whole step for lists and toggles.
    float limited(float value) const noexcept;
    /// The value where a knob's arc begins.
    float origin() const noexcept;
};

/// What crosses to the audio thread: a parameter that is set, or a command.
struct AlgorithmSlot {
    Tag tag = 0;
    bool isTrigger = false;
};

class AlgorithmParameterList {
public:
    template <class S> explicit AlgorithmParameterList(std::span<const Parameter<S>> rows)
    {
        for (const auto& row : rows)
            for (int i = 0; i < row.count(); ++i) add(described(row, i), row.kind);
        meterTags_ = tagsOf(meters_);
    }

    // All in declaration order, families expanded.
    const std::vector<AlgorithmParameter>& parameters() const noexcept { return parameters_; }
    /// Readings, and the meters among the parameters.
    const std::vector<AlgorithmParameter>& meters() const noexcept { return meters_; }
    const MeterTags& meterTags() const noexcept { return meterTags_; }
    const std::vector<AlgorithmSlot>& slots() const noexcept { return slots_; }
    /// Index of a parameter by key or tag, or -1.
    int find(std::string_view key) const noexcept;
    int findTag(Tag tag) const noexcept;
    /// Index in slots(), or -1.
    int findSlot(Tag tag) const noexcept;

private:
    template <class S> static AlgorithmParameter described(const Parameter<S>& row, int i)
    {
        AlgorithmParameter p;
        const bool isFamily = row.family.count > 0;
        p.key = isFamily ? row.key + std::to_string(i) : row.key;
        p.tag = row.tag + static_cast<Tag>(i);
        p.title = row.title;
        p.unit = row.unit;
        p.minimum = row.min;
        p.maximum = row.max;
        p.defaultValue = row.defaultAt(i);
        p.curve = row.notes.curve;
        p.flags = row.notes.flags;
        p.index = isFamily ? i : -1;
        p.perChannel = row.family.perChannel;
        p.notes = row.notes;
        p.forward = row.forward;
        return p;
    }
    void add(AlgorithmParameter parameter, Kind kind);
    static MeterTags tagsOf(const std::vector<AlgorithmParameter>& meters);

    std::vector<AlgorithmParameter> parameters_;
    std::vector<AlgorithmParameter> meters_;
    MeterTags meterTags_;
    std::vector<AlgorithmSlot> slots_;
};

/// Values as text and back, independent of the locale.
struct AlgorithmParameterFormatter {
    /// The unit as shown: "dB" for "Media.DB", "ms" for "Media.Milliseconds", ...
    static const char* unitText(const AlgorithmParameter& parameter) noexcept;
    /// Text with unit.
    static std::string text(const AlgorithmParameter& parameter, float value);
    /// Reads a number, with or without unit, or one of the list's texts; for ratios also "4:1" and
    /// "1:2". False if the text is neither, or the value out of range.
    static bool value(const AlgorithmParameter& parameter, std::string_view text, float& value);
};

}  // namespace quillworks
