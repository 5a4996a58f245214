// SPDX-License-Identifier: ISC
// Many files rendered alike.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "normalise.h"

namespace quillhost {

struct BatchOptions {
    std::string folder, suffix, extension;  // of the outputs
    int jobs = 0;                           // 0: the cores
    bool skipExisting = false, dryRun = false, json = false, strict = false, album = false;
    std::optional<LoudnessTarget> target;
};

struct RenderTask {
    std::string in, out;
};

/// Where each file goes: into the folder, under its own name with the suffix before the extension.
/// UsageError when two would go to the same place, or one onto a file that is read,
/// or the folder is a file.
std::vector<RenderTask> tasksFor(const std::vector<std::string>& files, const BatchOptions& options,
                                 const RenderPlan& plan);

/// Renders all, several side by side, and says in their order what became of each: a line on
/// standard output, or one JSON array (one object where there is one file and no folder). A file
/// that fails does not keep the others from being rendered. Returns the exit code.
int renderAll(const Session& session, const RenderPlan& plan, const std::vector<RenderTask>& tasks,
              const BatchOptions& options);

}  // namespace quillhost
