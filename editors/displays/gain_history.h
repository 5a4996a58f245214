// SPDX-License-Identifier: ISC
// Display of the last seconds: input and output level and what was taken, scrolling.
#pragma once

#include <array>
#include <vector>

#include "editors/displays/bound_display.h"
#include "editors/displays/plot.h"
#include "vnk/effect_displays.h"

namespace quillworks::editors {

/// What an effect's own stream of levels and gains has brought since the last time.
class GainStream {
public:
    struct Step {
        double level, gain;  // dB
    };
    /// The steps that are new, oldest first; at most those of the last `seconds`. False where the
    /// effect has no such stream, or one of more than one band.
    bool read(EffectModel& model, double seconds, std::vector<Step>& steps);
    double rate() const noexcept { return rate_; }

private:
    double rate_ = 0, count_ = -1;
};

class GainHistory final : public BoundDisplay {
public:
    static constexpr double kSeconds = 8;

    GainHistory(const VNK::SkinBox& box, EffectModel& model);

    void drawStatic(Canvas& canvas) override;
    void draw(Canvas& canvas) override;
    std::string describe() const override;
    Rect covered() const override;

protected:
    void sized() override;
    void ticked(double seconds) override;
    /// The scales and lines beside the course; that is damaged as it goes on.
    void look(std::vector<double>& numbers) const override;

private:
    /// In dB; not-a-number where there is nothing.
    struct Column {
        double input, output, reduction;
    };
    Column now() const;
    void add(const Column& column);
    void takeStream(double seconds);
    void takeMeters(double seconds);
    const Column& at(int column) const;
    void paint(Canvas& canvas, int from);
    bool isQuiet(const Column& column) const;

    Values inputs_, outputs_, reductions_;
    Value threshold_, hysteresis_, ceiling_;
    GainStream stream_;
    bool usesStream_ = false;
    Plot plot_;
    int columns_ = 0;           // device pixels
    std::vector<Column> ring_;  // the last columns_, the oldest at newest_ + 1
    int newest_ = 0;
    int added_ = 0;                  // since the picture was painted
    int quiet_ = 0;                  // columns since anything was to be seen
    double begun_ = -1, taken_ = 0;  // seconds: of the first tick, and up to where columns are
    Column last_{};
    double filling_ = 0;  // steps of the stream in the open column
    Column open_{};
    ScrollingImage image_;
    std::string variant_;
    std::vector<GainStream::Step> steps_;
    std::vector<Point> points_;
};

}  // namespace quillworks::editors
