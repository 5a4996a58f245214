// SPDX-License-Identifier: ISC
// An effect's state outside the effect: as preset document and as binary chunk.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "vnk/uid.h"

namespace quillworks {

/// Bytes that are no text.
struct Blob {
    std::string bytes;

    bool operator==(const Blob&) const = default;
};

using AttributeValue = std::variant<std::int64_t, float, std::string, Blob>;

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
    /// Value of an attribute that is of this type, or null.
    template <class V> const V* attribute(std::string_view key) const
    {
        const auto at = attributes.find(key);
        return at == attributes.end() ? nullptr : std::get_if<V>(&at->second);
    }
    /// Leaves out blobs beyond `most` bytes, the longest first, until the rest together has no
    /// more. Returns their keys, each in quotes; empty where all stay.
    std::string dropBlobsBeyond(std::size_t most);
};

inline constexpr std::size_t kLargestPreset = 1u << 20;  // bytes
/// Bytes of all blobs of a preset, where they stand as base64, and of a chunk.
inline constexpr std::size_t kLargestPresetBlobs = 700u << 10;
inline constexpr std::size_t kLargestChunkBlobs = 16u << 20;

/// UTF-8 document with the root AudioEffectPreset; floats read back to the same bits.
std::string writePreset(const StoredState& state);
/// Numbers that are no numbers, keys that stand twice, another root name, a newer version, or more
/// than kLargestPreset are refused with a reason. Values that are not finite are kept: who
/// applies them says so.
bool readPreset(const void* data, std::size_t bytes, StoredState& state, std::string& reason);

/// Little-endian chunk "FXST" with the sections AlgorithmData, ParameterData and ComponentData.
std::string writeChunk(const StoredState& state);
/// Unknown sections and keys are skipped; a length that passes the end, or a blob beyond
/// kLargestChunkBlobs, refuses the whole chunk.
bool readChunk(const void* data, std::size_t bytes, StoredState& state, std::string& reason);

}  // namespace quillworks
