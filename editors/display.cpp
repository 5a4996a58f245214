// SPDX-License-Identifier: ISC
#include "editors/display.h"

#include <algorithm>
#include <utility>

namespace quillworks::editors {

std::vector<int> Grasp::parameters() const
{
    std::vector<int> all;
    for (const int p : {across, up, wheel})
        if (p >= 0 && std::find(all.begin(), all.end(), p) == all.end()) all.push_back(p);
    return all;
}

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

std::vector<Rect> Display::takeMoved() noexcept
{
    return std::exchange(moved_, {});
}

bool Display::takeStaticDamage() noexcept
{
    return std::exchange(isStaticDamaged_, false);
}

}  // namespace quillworks::editors
