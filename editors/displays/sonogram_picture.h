// SPDX-License-Identifier: ISC
// A sonogram: time to the right, frequency upwards, level as light.
#pragma once

#include <string>
#include <vector>

#include "editors/displays/plot.h"
#include "editors/effect_model.h"

namespace quillworks::editors {

class SonogramPicture {
public:
    static constexpr double kSeconds = 30;

    /// The levels that are darkest and lightest. Another range draws everything anew.
    void setLevels(double low, double high);
    void resize(int width, int height);
    /// Takes in what is new; whether there is.
    bool update(EffectModel& model);
    void draw(Canvas& canvas, const Rect& area);

private:
    struct Column {
        double time;
        std::vector<float> levels;  // of the loudest of all curves, lowest frequency first
    };
    void paint(const Theme& theme, int from);

    double low_ = -90, high_ = 0;
    std::vector<Column> columns_;  // oldest first
    double painted_ = 0;           // time at the right edge of the picture
    bool isStale_ = true;
    ScrollingImage image_;
    std::string variant_;
};

}  // namespace quillworks::editors
