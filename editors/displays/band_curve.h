// SPDX-License-Identifier: ISC
// Display of bands over frequency: crossovers to drag, and in each band its threshold, its gain,
// its level and what is taken of it.
#pragma once

#include <string>
#include <vector>

#include "editors/displays/ground_bars.h"
#include "editors/displays/handles.h"
#include "editors/displays/layer.h"
#include "editors/displays/plot.h"

namespace quillworks::editors {

class BandCurve final : public HandleDisplay {
public:
    BandCurve(const VNK::SkinBox& box, EffectModel& model);

    void drawStatic(Canvas& canvas) override;
    void draw(Canvas& canvas) override;
    bool pointer(const PointerEvent& event) override;
    std::string describe() const override;
    std::string tip(double x, double y) const override;

protected:
    void sized() override;
    void place() override;
    void look(std::vector<double>& numbers) const override;
    void lookChanged() override;
    void ticked(double seconds) override;

private:
    int bands() const;
    void drawSet(Canvas& canvas);
    bool isChosen(int band) const { return !choice_.empty() && model().chosen(choice_) == band; }
    /// Lower edge of a band; the upper one of the last is that of the plot.
    double edge(int band) const;

    std::vector<Value> splits_;
    Value bands_;
    Values thresholds_, gains_, reductions_, levels_;
    int chosen_ = -1;     // band, as it was drawn last
    std::string choice_;  // name under which a pressed band is chosen for other displays
    Plot plot_;
    GroundBars ground_;
    Layer set_;  // what hands have set, while something lies behind
    struct Band {
        double threshold, gain, level, change;
    };
    std::vector<Band> shown_;
    std::vector<double> edges_;
};

}  // namespace quillworks::editors
