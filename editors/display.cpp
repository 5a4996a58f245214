// SPDX-License-Identifier: ISC
#include "editors/display.h"

#include <utility>

namespace quillworks::editors {

void Display::setSize(double width, double height, double scale)
{
    width_ = width;
    height_ = height;
    scale_ = scale;
    sized();
    damageStatic();
}

std::vector<Rect> Display::takeDamage() noexcept
{
    return std::exchange(damage_, {});
}

bool Display::takeStaticDamage() noexcept
{
    return std::exchange(isStaticDamaged_, false);
}

}  // namespace quillworks::editors
