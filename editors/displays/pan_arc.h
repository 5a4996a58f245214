// SPDX-License-Identifier: ISC
// Display of a stereo image as a half circle: a ring for the place of each input, which moves along
// it, and the direction that the energy of what is heard has.
#pragma once

#include <array>

#include "editors/displays/handles.h"
#include "editors/displays/plot.h"

namespace quillworks::editors {

class PanArc final : public HandleDisplay {
public:
    PanArc(const VNK::SkinBox& box, EffectModel& model);

    void drawStatic(Canvas& canvas) override;
    void draw(Canvas& canvas) override;
    std::string describe() const override;
    std::string tip(double x, double y) const override;

protected:
    void sized() override;
    void place() override;
    void look(std::vector<double>& numbers) const override;
    void ticked(double seconds) override;

private:
    struct Input {
        Value pan, level;
        const char* name;
    };
    /// Of an input, -1 left .. 1 right, as the position and the spread of both leave it.
    double placeOf(const Input& input) const;
    /// What the pan has to be for that.
    double panFor(double place) const;
    /// Where a place lies on the arc, or `radius` of the way to it.
    Point at(double place, double radius = 1) const;
    Point arrow() const;

    std::array<Input, 2> inputs_;
    Value position_, spread_;
    Values outputs_;
    Point middle_;                               // of the circle
    double reach_ = 0;                           // px
    double left_ = 0, right_ = 0, before_ = -1;  // mean powers of what is heard; seconds
    Point shown_;                                // the arrow's tip, as it was drawn
};

}  // namespace quillworks::editors
