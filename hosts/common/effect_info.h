// SPDX-License-Identifier: ISC
// What an effect offers, as a document.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include "session.h"

namespace quillhost {

/// Parameters, meters, texts, views and displays; latency in samples at 48 kHz and tail in seconds,
/// null if endless. The effect is prepared as usual.
nlohmann::ordered_json effectInfo(const Session& session, const Effect& effect);

/// Texts of a list's steps; none of other parameters and of very long lists.
std::vector<std::string> choicesOf(const Effect& effect, int index);
std::vector<std::string> viewsOf(const Effect& effect);
const char* kindName(VNK::TextKind kind);
/// The endings that a browser lists for a text.
std::vector<std::string> fileTypes(const Session& session, const Effect& effect,
                                   const VNK::TextInfo& text);

}  // namespace quillhost
