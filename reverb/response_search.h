// SPDX-License-Identifier: ISC
// Finds the file of a response, though it has moved since a song or preset named it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "framework/stored_state.h"
#include "reverb/response.h"

namespace quillworks {

/// What tells one response file from another. Nothing is known of one that was never read: channels
/// is 0 then.
struct ResponseIdentity {
    std::string path;      // absolute
    std::string relative;  // to the preset or a root, empty if it lies in neither
    std::string name;      // of the file, with its ending
    std::uint64_t hash = 0;
    std::int64_t frames = 0;
    int sampleRate = 0;  // Hz
    int channels = 0;

    bool operator==(const ResponseIdentity&) const = default;
    /// As attributes "irpath", "irrel", "irname", "irhash", "irframes", "irrate", "irchannels".
    void store(StoredState& state) const;
    static ResponseIdentity of(const StoredState& state);
};

/// FNV-1a in 64 bits (Fowler, Noll, Vo 1991) of the samples as single precision numbers, least
/// byte first, frame by frame, of the first 2^20 frames.
std::uint64_t responseHash(const VNK::Sound<float>& sound);

/// Where files are looked for: the folder of the preset or song (may be empty), then roots.
struct ResponsePlaces {
    std::string baseFolder;
    std::vector<std::string> roots;

    /// The user's library ($XDG_DATA_HOME/quillworks/ir, else ~/.local/share/quillworks/ir), the
    /// responses that come with the effects, and the folders that QUILLWORKS_IR_PATH lists with
    /// colons between.
    static ResponsePlaces usual(std::string baseFolder);
    /// A path within the base folder or a root as it reads from there; empty for others.
    std::string relative(const std::string& path) const;
};

/// The file of a response that comes with the effects, for its name without an ending; it may not
/// be there. Such are named "factory:" and this name.
std::string factoryResponse(const std::string& name);

struct LoadedResponse {
    enum class Outcome { Loaded, Missing, Unreadable } outcome = Outcome::Missing;
    std::string reason;  // where it is not loaded: one line with the file's name
    VNK::Sound<float> sound;
    ResponseIdentity identity;
};

/// Reads the response that `file` names, a path or "factory:NAME". Where there is nothing it goes
/// by what is known of it from the last time: its place relative to the preset and to the roots,
/// then a file of its name and content anywhere under those, 6 levels deep and up to 20 000
/// entries. A mono file whose name ends in "L" or "Left" is loaded with its twin, which ends in "R"
/// or "Right", where that is mono too and of equal rate.
///
/// Throws Cancelled.
LoadedResponse loadResponse(const std::string& file, const ResponseIdentity& known,
                            const ResponsePlaces& places, const IsCancelled& isCancelled = {});
/// The content of a sound file that a song carries, whose identity is `known`.
LoadedResponse decodedResponse(const std::string& bytes, const ResponseIdentity& known,
                               const IsCancelled& isCancelled = {});

}  // namespace quillworks
