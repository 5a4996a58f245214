// SPDX-License-Identifier: ISC
// A part of a display that seldom changes, kept as a picture.
#pragma once

#include <string>

#include "editors/display.h"

namespace quillworks::editors {

class Layer {
public:
    /// It will be painted anew.
    void forget() noexcept { isStale_ = true; }

    /// As large as the display; `paint` draws it where it is stale.
    template <class F> void draw(Canvas& canvas, const Display& display, F&& paint)
    {
        if (prepare(canvas, display)) {
            Canvas own(image_.pixels(), display.scale(), canvas.fonts(), canvas.theme());
            paint(own);
        }
        canvas.image(image_, 0, 0);
    }

private:
    bool prepare(const Canvas& canvas, const Display& display);

    Image image_;
    std::string variant_;
    bool isStale_ = true;
};

}  // namespace quillworks::editors
