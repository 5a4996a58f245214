// SPDX-License-Identifier: ISC
// Interfaces of an effect: its parameters, and the gestures of whoever sets them.
#pragma once

#include <cstdint>

#include "vnk/object.h"
#include "vnk/parameter.h"

namespace VNK {

/// Parameters, in declaration order.
class IEffectParameters : public IObject {
public:
    static constexpr UID iid = UID::constant("{7B6F6C63-5C25-4D0A-9C2B-3B8B0B2A1D04}");

    virtual std::int32_t countParameters() const noexcept = 0;
    /// [any thread]
    virtual bool getParameter(std::int32_t index, ParameterInfo& info) const noexcept = 0;
    /// Index of a key, or -1.
    virtual std::int32_t findParameter(const char* key) const noexcept = 0;
    /// Value in the parameter's own unit; a meter's latest reading. [any thread]
    virtual float getValue(std::int32_t index) const noexcept = 0;
    /// Limits the value to the range and, for lists and toggles, to whole steps. Values that are
    /// not finite, and read-only parameters, are refused. A trigger acts for each value other
    /// than 0. While a group edit is open the value belongs to that gesture.
    virtual bool setValue(std::int32_t index, float value) noexcept = 0;
    /// The same for automation, between two blocks: no gesture, and the listener is not called.
    /// What else it has moved is told by changeCount, and by the algorithm's latency and tail.
    /// Refuses parameters marked isNotAutomatable. [audio thread]
    virtual bool automate(std::int32_t index, float value) noexcept = 0;
    /// As automate(), for parameters marked isNotAutomatable too: for formats that hand a person's
    /// settings over between two blocks, by the same way as automation, and tell the host by a mark
    /// of their own what is not to be automated. [audio thread]
    virtual bool setBetweenBlocks(std::int32_t index, float value) noexcept = 0;
    /// Position of the control, 0 .. 1, for a value, and back. [any thread]
    virtual float toNormalized(std::int32_t index, float value) const noexcept = 0;
    virtual float fromNormalized(std::int32_t index, float position) const noexcept = 0;
    /// Text with unit, cut to `size` - 1 bytes; returns the length of the whole text.
    virtual std::int32_t valueToText(std::int32_t index, float value, char* text,
                                     std::int32_t size) const noexcept = 0;
    /// Reads a number with or without the unit, or one of the list's texts. False if it is neither,
    /// or out of range.
    virtual bool textToValue(std::int32_t index, const char* text, float& value) const noexcept = 0;
    /// Text of a list's step, counted from the minimum; null beyond the end.
    virtual const char* choiceText(std::int32_t index, std::int32_t step) const noexcept = 0;
    /// Counts every change of the value, by whomever. [any thread]
    virtual std::uint32_t changeCount(std::int32_t index) const noexcept = 0;
    /// Names of the nodes of the parameter tree, root first; null beyond the end.
    virtual const char* treeNode(std::int32_t index) const noexcept = 0;

protected:
    ~IEffectParameters() = default;
};

/// A person holds a control. Nested calls count.
class IEffectGestures : public IObject {
public:
    static constexpr UID iid = UID::constant("{7B6F6C63-5C25-4D0A-9C2B-3B8B0B2A1D05}");

    virtual void beginEdit(Tag tag) noexcept = 0;
    virtual void endEdit(Tag tag) noexcept = 0;
    virtual void beginGroupEdit() noexcept = 0;
    virtual void endGroupEdit() noexcept = 0;

protected:
    ~IEffectGestures() = default;
};

}  // namespace VNK
