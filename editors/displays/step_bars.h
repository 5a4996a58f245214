// SPDX-License-Identifier: ISC
// Display of a row of steps to draw, with the one that is played.
#pragma once

#include "editors/displays/bound_display.h"
#include "editors/displays/plot.h"

namespace quillworks::editors {

class StepBars final : public BoundDisplay {
public:
    StepBars(const VNK::SkinBox& box, EffectModel& model);

    void drawStatic(Canvas& canvas) override;
    void draw(Canvas& canvas) override;
    /// Paints from step to step, all of it one gesture; with Control a straight line.
    bool pointer(const PointerEvent& event) override;
    bool wheel(const WheelEvent& event) override;
    bool key(const KeyEvent& event) override;
    bool takesFocus() const override { return levels_.count() > 0; }
    void setFocus(bool has) override;
    std::vector<Grasp> grasps() override;
    int focusedGrasp() const override { return chosen_; }
    void focusGrasp(int grasp) override;
    std::string describe() const override;
    std::string tip(double x, double y) const override;

protected:
    void sized() override;
    void look(std::vector<double>& numbers) const override;
    void lookStatic(std::vector<double>& numbers) const override;

private:
    int steps() const;
    int at(double x) const;
    Rect bar(int step) const;
    void paint(Point to);
    void set(int step, double y);

    Values levels_;
    Value steps_, position_;
    Plot plot_;
    bool isPainting_ = false, hasFocus_ = false;
    int chosen_ = 0;
    Point last_;
    std::vector<int> touched_;  // parameters that are held
    double pressed_ = -1;
};

}  // namespace quillworks::editors
