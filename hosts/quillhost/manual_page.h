// SPDX-License-Identifier: ISC
// A page of the manual: what an effect says of itself, as Markdown.
#pragma once

#include <string>

#include "session.h"

namespace quillhost {

/// What tables cannot know, written by hand as Markdown.
struct ManualNotes {
    std::string summary;  // the first paragraph: one sentence that says what the effect is for
    std::string about;    // further paragraphs
    std::string more;     // sections: from the first line on that begins with "## "
};

ManualNotes manualNotes(const std::string& text);

/// "compressor", "analog-delay": the name of an effect's page and picture.
std::string pageName(const std::string& effect);

/// The page of an effect as it opens. Asks it for its delay at settings and rates, so that it is
/// prepared again and again; may end on other settings than it came with.
std::string manualPage(const Session& session, const Effect& effect, const ManualNotes& notes);

}  // namespace quillhost
