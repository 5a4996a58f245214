// SPDX-License-Identifier: ISC
// Messages that quote a document.
#pragma once

#include <string>

namespace VNK {

/// Control characters as blanks: a name with a line break in it must not break the line of reason.
inline std::string oneLine(std::string text)
{
    for (char& c : text)
        if (static_cast<unsigned char>(c) < ' ') c = ' ';
    return text;
}

}  // namespace VNK
