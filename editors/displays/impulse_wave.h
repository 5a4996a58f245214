// SPDX-License-Identifier: ISC
// Display of an impulse response: its peaks over time, where its made tail begins, and what of it
// cannot be shown. Of a file that is cut and drawn out, the whole of it lies behind, with handles
// at both cuts and at the tail.
#pragma once

#include <vector>

#include "editors/displays/graph.h"
#include "editors/displays/handles.h"
#include "editors/displays/plot.h"

namespace quillworks::editors {

class ImpulseWave final : public HandleDisplay {
public:
    ImpulseWave(const VNK::SkinBox& box, EffectModel& model);

    void drawStatic(Canvas& canvas) override;
    void draw(Canvas& canvas) override;
    std::string describe() const override;
    std::string tip(double x, double y) const override;

protected:
    void sized() override;
    void ticked(double seconds) override;
    void place() override;
    void look(std::vector<double>& numbers) const override;
    void lookStatic(std::vector<double>& numbers) const override;

private:
    using Line = std::vector<double>;
    bool hasWhole() const { return length_.exists() && wholeSeconds_ > 0; }
    double stretch() const { return stretch_.get(100) / 100; }
    /// Seconds on the axis: of all that is shown, of what is played its beginning and its end.
    double span() const { return hasWhole() ? wholeSeconds_ * stretch() : seconds_; }
    double begin() const;
    double end() const;
    bool hasTail() const { return tailStart_.exists() && tailMode_.get(0) > 0.5; }
    void outline(const Line& line, double from, double to, double raise, bool isReversed);
    void drawCuts(Canvas& canvas);

    Value start_, length_, stretch_, reverse_, tailMode_, tailStart_;
    /// In dB over the highest of all, column by column.
    std::vector<Line> lines_, now_;
    Line whole_, wholeNow_;
    double seconds_ = 0, madeTail_ = 0, wholeSeconds_ = 0;
    std::string failure_;
    Plot plot_;
    Graph graph_;
    std::vector<Point> points_;
};

}  // namespace quillworks::editors
