// SPDX-License-Identifier: ISC
// Display of a static curve: input to output level of a compressor or expander, with the level that
// is present, and the threshold to drag.
#pragma once

#include "editors/displays/handles.h"
#include "editors/displays/layer.h"
#include "editors/displays/plot.h"
#include "editors/displays/static_gain.h"

namespace quillworks::editors {

class CurveDisplay final : public HandleDisplay {
public:
    CurveDisplay(const VNK::SkinBox& box, EffectModel& model);

    void drawStatic(Canvas& canvas) override;
    void draw(Canvas& canvas) override;
    std::string describe() const override;
    std::string tip(double x, double y) const override;

protected:
    void sized() override;
    void place() override;
    void ticked(double seconds) override;
    void look(std::vector<double>& numbers) const override;
    void lookChanged() override
    {
        curve_.forget();
        damage();
    }

private:
    double output(double input) const;
    Point dot() const;
    void drawCurve(Canvas& canvas);

    /// Of families the value of the band that is chosen.
    double of(const Values& values, double fallback) const;
    int band() const;
    bool isOfBand() const { return lowRatio_.exist(); }
    BandLaw law() const;
    double knee() const { return knee_.get(kneeWidth_); }

    Values threshold_, ratio_, range_, lowThreshold_, lowRatio_, gain_, bandLevels_;
    Value knee_, on_, point_, amount_;
    double kneeWidth_ = 0;  // dB, of an effect whose knee nobody sets
    std::string choice_;    // name of what is chosen; empty: nothing is
    Values levels_;         // where no `point` is named
    Plot plot_;
    std::vector<Point> points_;
    Layer curve_;
    Point dot_;
};

}  // namespace quillworks::editors
