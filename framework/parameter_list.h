// SPDX-License-Identifier: ISC
// The parameters of one effect instance as its component holds them, built from the effect's table.
#pragma once

#include <atomic>
#include <string>
#include <string_view>
#include <vector>

#include "framework/parameter.h"

namespace quillworks {

/// One parameter: what it is (constant after construction) and its value.
struct AlgorithmParameter {
    std::string key;
    Tag tag = 0;
    const char* title = "";
    const char* unit = "";  // unit text or unit key, as declared
    VNK::ValueKind kind = VNK::ValueKind::Continuous;
    float minimum = 0;
    float maximum = 1;
    float defaultValue = 0;
    const Curve* curve = &curve::linear;
    std::uint32_t flags = 0;  // VNK::ParameterFlag
    std::int32_t index = -1;
    bool perChannel = false;  // the index is a channel

    ParameterNotes notes;
    Conversion forward = conversion::asIs;
    bool isTempo = false;
    int slot = -1;   // of the crossing; -1 for meters
    int meter = -1;  // of the meter slots; -1 for what is set

    bool has(VNK::ParameterFlag flag) const noexcept { return (flags & flag) != 0; }
    bool isStored() const noexcept
    {
        return !(flags & (VNK::isReadOnly | VNK::isTrigger | VNK::isNotStored));
    }
    /// The value within the range, and on a whole step for lists and toggles.
    float limited(float value) const noexcept;
};

/// A measured value outside the parameter list, or a read-only parameter.
struct AlgorithmMeter {
    std::string key;
    Tag tag = 0;
    const char* title = "";
    const char* unit = "";
    float minimum = 0, maximum = 1;
    std::int32_t index = -1;
    int meter = -1;           // slot
    bool perChannel = false;  // shown only for channels that are present
};

/// A slot of the crossing that is no parameter.
struct AlgorithmCommand {
    Tag tag = 0;
    int slot = -1;
};

class AlgorithmParameterList {
public:
    AlgorithmParameterList() = default;

    template <class S> explicit AlgorithmParameterList(std::span<const Parameter<S>> rows)
    {
        int slot = 0, meter = 0;
        for (const auto& row : rows)
            for (int i = 0; i < row.count(); ++i)
                add(described(row, i), row.kind, row.isMeter() ? meter++ : slot++,
                    row.family.perChannel);
    }

    const std::vector<AlgorithmParameter>& parameters() const noexcept { return parameters_; }
    const std::vector<AlgorithmMeter>& meters() const noexcept { return meters_; }
    /// Index of a key or tag, or -1.
    int find(std::string_view key) const noexcept;
    int findTag(Tag tag) const noexcept;
    /// Slot of a command, or -1.
    int commandSlot(Tag tag) const noexcept;

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
    void add(AlgorithmParameter parameter, Kind kind, int slot, bool perChannel);

    std::vector<AlgorithmParameter> parameters_;
    std::vector<AlgorithmMeter> meters_;
    std::vector<AlgorithmCommand> commands_;
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
