// SPDX-License-Identifier: ISC
// Display of programme loudness (EBU R 128): integrated, short-term and momentary on the EBU scale,
// the range, the true peak, and the last minute.
#pragma once

#include <vector>

#include "editors/displays/bound_display.h"
#include "editors/displays/graph.h"
#include "editors/displays/plot.h"

namespace quillworks::editors {

class Loudness final : public BoundDisplay {
public:
    Loudness(const VNK::SkinBox& box, EffectModel& model);

    void drawStatic(Canvas& canvas) override;
    void draw(Canvas& canvas) override;
    std::string describe() const override;

protected:
    void sized() override;
    void ticked(double seconds) override;
    void look(std::vector<double>& numbers) const override;
    void lookStatic(std::vector<double>& numbers) const override;

private:
    static constexpr double kTarget = -23;  // LUFS
    static constexpr double kSeconds = 60;
    double units(double lufs) const { return isAbsolute_ ? lufs : lufs - kTarget; }
    double length() const;

    Value momentary_, shortTerm_, integrated_, low_, high_, truePeak_;
    bool isAbsolute_ = false, isWide_ = false;  // LUFS; the scale of +18
    Plot bars_, history_;
    std::vector<double> past_;  // short-term, twice a second, oldest first
    double taken_ = -1;
    Graph graph_;
    std::vector<Point> points_;
};

}  // namespace quillworks::editors
