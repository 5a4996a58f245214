// SPDX-License-Identifier: ISC
// Display of a room's first reflections over time, those from the left up and from the right down.
#pragma once

#include <vector>

#include "editors/displays/bound_display.h"
#include "editors/displays/plot.h"

namespace quillworks::editors {

/// A reflection of the sound after the direct one.
struct Reflection {
    double seconds, decibels;
    double side;  // -1 from the left .. 1 from the right
};
/// Image sources of a shoebox room up to the third order (Allen and Berkley, "Image method for
/// efficiently simulating small-room acoustics", 1979). `size` in m is the edge of a cube as large,
/// `distance` 0 .. 1, `decay` in s to -60 dB.
std::vector<Reflection> reflectionsOf(int shape, double size, double distance, double decay);

class Reflections final : public BoundDisplay {
public:
    Reflections(const VNK::SkinBox& box, EffectModel& model)
        : BoundDisplay(box, model),
          shape_(value("shape")),
          size_(value("size")),
          distance_(value("distance")),
          decay_(value("decay"))
    {}

    void drawStatic(Canvas& canvas) override;
    void draw(Canvas& canvas) override;
    std::string describe() const override;

protected:
    void sized() override;
    void look(std::vector<double>& numbers) const override;
    void lookStatic(std::vector<double>& numbers) const override;

private:
    double span() const;
    std::vector<Reflection> list() const;

    Value shape_, size_, distance_, decay_;
    Plot plot_;
};

}  // namespace quillworks::editors
