// SPDX-License-Identifier: ISC
// Effects run over a file for what their displays show of it.
#pragma once

#include <limits>
#include <string>
#include <vector>

#include "command.h"
#include "displays.h"
#include "effect_spec.h"

namespace quillhost {

/// What the commands on displays have in common with `render`.
struct DisplayOptions {
    std::vector<std::string> presets;
    std::string automation;
    int block = 512;
    int precision = 0;  // 0: 32 bits, 1: 64
    double tempo = 120, position = 0;
    bool allowMissing = false;  // files that the effect names
};
/// Declares them and returns those declared.
std::vector<const CLI::Option*> addDisplayOptions(CLI::App& app, DisplayOptions& options);

/// An effect that has run over a file, with what it shows at its end or at `seconds`.
struct DisplayRun {
    Effect effect;
    Displays displays;
    std::int64_t frames;
    int sampleRate, channels;
    std::vector<std::string> remarks;  // on the file and the automation
};
/// `measure FILE... --fx SPEC`: meters and displays after each whole file, on standard output. The
/// exit code; a file that cannot be read is said and does not stop the others.
int measureDisplays(const Session& session, const std::string& spec, const DisplayOptions& options,
                    const std::vector<std::string>& files, const std::vector<std::string>& displays,
                    bool asJson);
/// `plot SPEC --what display`: what one display shows, as JSON or a picture.
struct DisplayPlot {
    std::string spec, in, out, display;
    double seconds = std::numeric_limits<double>::infinity();
    DisplayOptions options;
};
int plotDisplay(const Session& session, const DisplayPlot& plot);

DisplayRun runDisplays(const Session& session, const EffectSpec& spec,
                       const DisplayOptions& options, const std::string& path,
                       double seconds = std::numeric_limits<double>::infinity());

}  // namespace quillhost
