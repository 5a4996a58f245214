// SPDX-License-Identifier: ISC
// The editor of an effect, drawn and played with.
#pragma once

#include <limits>
#include <string>
#include <vector>

#include "display_run.h"

namespace quillhost {

struct ViewOptions {
    std::string spec, out, in, events, form = "Editor", page;
    double scale = 1;
    int variant = 0;  // of kViewVariants
    double at = std::numeric_limits<double>::infinity();
    bool asText = false, checks = false, withPopups = false, isSmall = false;
    DisplayOptions run;
};
inline const std::vector<std::string> kViewVariants = {"dark", "contrast"};

/// Does what the options say and gives the exit code.
int drawEditor(const Session& session, const ViewOptions& o);

}  // namespace quillhost
