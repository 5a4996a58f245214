// SPDX-License-Identifier: ISC
// The binary interface of VST3 as C structures, and what those leave out of it.
#pragma once

#include <cstdint>

#include <travesty/audio_processor.h>
#include <travesty/component.h>
#include <travesty/edit_controller.h>
#include <travesty/factory.h>
#include <travesty/unit.h>
#include <travesty/view.h>

namespace quillworks::vst3 {

// Places beyond those of the structures' own list.
inline constexpr v3_speaker_arrangement kTopSideLeft = 1ull << 24, kTopSideRight = 1ull << 25,
                                        kWideLeft = 1ull << 59, kWideRight = 1ull << 60;

inline constexpr std::int32_t kManyInstances = 0x7FFFFFFF;
inline constexpr std::int32_t kUnicode = 0x10;  // of a factory: texts of its third form are UTF-16
inline constexpr const char* kAudioClass = "Audio Module Class";
inline constexpr const char* kFormatVersion = "VST 3.7";
inline constexpr std::int32_t kRootUnit = 0, kNoParent = -1, kNoPrograms = -1;

/// The object behind a pointer of the format, of whatever interface: its table, and whose it is.
template <class Owner> struct Face {
    const void* table;
    Owner* owner;
};

/// The function of a table that calls a member of the object: &Call<&Instance::process>::call.
template <auto member> struct Call;
template <class Owner, class Result, class... Arguments,
          Result (Owner::*member)(Arguments...) noexcept>
struct Call<member> {
    static Result V3_API call(void* self, Arguments... arguments)
    {
        return (static_cast<Face<Owner>*>(self)->owner->*member)(arguments...);
    }
};

}  // namespace quillworks::vst3
