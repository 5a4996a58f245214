// SPDX-License-Identifier: ISC
#include "editors/control.h"

#include <cmath>

namespace quillworks::editors {

void Control::checkText(Fonts& fonts, const Theme::Face& face, const std::string& text, double room,
                        std::vector<std::string>& problems) const
{
    const double width = fonts.width(face.weight, face.size, withMinus(text));
    if (width > room + 0.5)
        problems.push_back(kind_ + " \"" + title_ + "\": the text \"" + text + "\" takes " +
                           std::to_string(std::lround(width)) + " px of " +
                           std::to_string(std::lround(room)));
}

}  // namespace quillworks::editors
