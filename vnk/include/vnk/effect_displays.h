// SPDX-License-Identifier: ISC
// Interface of an effect: pictures of the signal that do not fit into a meter.
#pragma once

#include <cstdint>

#include "vnk/object.h"

namespace VNK {

/// Takes what a display shows, piece by piece: objects, lists and values, as in JSON. Every piece
/// of an object has a key, a piece of a list has null. Not-a-number means that there is nothing to
/// show.
class IDisplaySink {
public:
    virtual void beginObject(const char* key) = 0;
    virtual void beginList(const char* key) = 0;
    /// Ends the object or list begun last.
    virtual void end() = 0;
    virtual void number(const char* key, double value) = 0;
    virtual void numbers(const char* key, const float* values, std::int64_t count) = 0;
    virtual void numbers(const char* key, const double* values, std::int64_t count) = 0;
    virtual void text(const char* key, const char* text) = 0;
    virtual void flag(const char* key, bool value) = 0;

protected:
    ~IDisplaySink() = default;
};

/// What some effects offer beside their meters (`queryInterface`; the others give null). The audio
/// thread only hands the signal over; figures are made on the thread that asks, so that neither
/// depends on the other. All views of one effect show the same figures. The display's figures that
/// are numbers on their own are the effect's meters.
class IEffectDisplays : public IObject {
public:
    static constexpr UID iid = UID::constant("{4B6C8E62-7D0B-4A0E-9A55-0E3B7E1A6C11}");

    /// Name of a display ("spectrum"); null beyond the end.
    virtual const char* displayName(std::int32_t index) const noexcept = 0;
    /// Somebody begins or ceases to read. Calls count. Until the first beginning and after the last
    /// end nothing is taken in and there is nothing to show. [any thread but audio]
    virtual void setDisplaysOpen(bool open) noexcept = 0;
    /// Takes in what has been played since the last call, with the present settings. In time if it
    /// comes every half second; what comes too late is left out and counted. [any thread but audio]
    virtual void updateDisplays() noexcept = 0;
    /// What a display shows now, as the members of an object that the caller has begun. False where
    /// there is none of that name or memory ran out. [any thread but audio]
    virtual bool snapshot(const char* name, IDisplaySink* sink) noexcept = 0;

protected:
    ~IEffectDisplays() = default;
};

}  // namespace VNK
