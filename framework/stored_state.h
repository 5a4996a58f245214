// SPDX-License-Identifier: ISC
// An effect's state outside the effect: as preset document and as binary chunk.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "vnk/uid.h"

namespace quillworks {

using AttributeValue = std::variant<std::int64_t, float, std::string>;

struct StoredState {
    VNK::UID classId;
    std::string className;  // display name of the effect
    std::string name;       // of the preset; empty without one
    std::optional<std::int64_t> algorithmVersion;
    std::vector<std::pair<std::string, float>> parameters;  // as stored, may hold unknown keys
    std::map<std::string, AttributeValue, std::less<>> attributes;

    /// Value of a parameter key, or null.
    float* find(const std::string& key);
    void set(const std::string& key, float value);
};

inline constexpr std::size_t kLargestPreset = 1u << 20;  // bytes

/// UTF-8 document with the root AudioEffectPreset; floats read back to the same bits.
std::string writePreset(const StoredState& state);
/// Numbers that are no numbers, keys that stand twice, another root name, a newer version, or more
/// than kLargestPreset are refused with a reason. Values that are not finite are kept: who
/// applies them says so.
bool readPreset(const void* data, std::size_t bytes, StoredState& state, std::string& reason);

/// Little-endian chunk "FXST" with the sections AlgorithmData, ParameterData and ComponentData.
std::string writeChunk(const StoredState& state);
/// Unknown sections and keys are skipped; a length that passes the end refuses the whole chunk.
bool readChunk(const void* data, std::size_t bytes, StoredState& state, std::string& reason);

}  // namespace quillworks
