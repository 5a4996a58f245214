// SPDX-License-Identifier: ISC
#include "editors/displays/layer.h"

#include <cmath>

namespace quillworks::editors {

bool Layer::prepare(const Canvas& canvas, const Display& display)
{
    const int w = static_cast<int>(std::ceil(display.width() * display.scale() - 1e-6));
    const int h = static_cast<int>(std::ceil(display.height() * display.scale() - 1e-6));
    const bool hasSize = image_.width() == w && image_.height() == h;
    if (!isStale_ && hasSize && variant_ == canvas.theme().variant()) return false;
    if (hasSize)
        image_.clear({0, 0, w, h});
    else
        image_ = Image(w, h);
    variant_ = canvas.theme().variant();
    isStale_ = false;
    return true;
}

}  // namespace quillworks::editors
