// SPDX-License-Identifier: ISC
// quillhost plot --what loudness: loudness over time.
#pragma once

#include <string>

#include "effect_spec.h"

namespace quillhost {

struct LoudnessPlot {
    std::string spec;     // the effect whose output is shown, empty: the file as it is
    std::string in, out;  // .png, .svg or .json
    bool allowMissing = false;
};

/// Draws momentary, short-term and integrated loudness over the file, what the file has without the
/// effect behind it, or writes them as JSON, ten readings a second. Returns the exit code.
int plotLoudness(const Session& session, const LoudnessPlot& plot);

}  // namespace quillhost
