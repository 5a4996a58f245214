// SPDX-License-Identifier: ISC
// The limiter's static curve: from a level to the reduction that is wanted and the one that is due.
#pragma once

namespace quillworks {

/// Levels are relative to the ceiling. Above the threshold the curve rises with 1 / ratio until it
/// meets the working ceiling, a thousandth of a decibel below 0; both corners are rounded by
/// parabolas (Giannoulis, Massberg, Reiss 2012).
class LimitingCurve {
public:
    static constexpr double kMarginDb = -0.001;  // the working ceiling

    struct Shape {
        double ceiling = kMarginDb;                   // dB
        double corner = kMarginDb, knee = 0;          // dB; half-width
        double wallCorner = kMarginDb, wallKnee = 0;  // where the ratio ends
        double below = 0.5, above = 0.5;            // share of the reduction: 1 - 1/ratio, 1/ratio
        double kneeFactor = 0, wallKneeFactor = 0;  // 1 / (4 half-width), 0 for a hard corner
        double gate = 1;                            // linear level up to which nothing happens

        /// Without a knee the curve is the wall itself: wanted and due reductions are the same.
        bool isHard() const noexcept { return knee == 0; }
    };

    /// Steps in which a change takes place.
    void prepare(int subBlocksPerStep) noexcept { subBlocksPerStep_ = subBlocksPerStep; }
    /// Threshold in dB relative to the ceiling, <= 0; ratio 1 .. 20.
    void setTarget(double threshold, double ratio) noexcept;
    void snap() noexcept;
    bool isMoving() const noexcept { return step_ < kSteps; }
    /// To be called where a sub-block begins; true if the shape has changed.
    bool advance() noexcept;

    const Shape& shape() const noexcept { return shape_; }
    /// Half-width of the knee that belongs to a threshold, dB.
    static double kneeOf(double threshold) noexcept;
    /// Derives the shape for a threshold and a ratio.
    static Shape shapeOf(double threshold, double ratio) noexcept;

    /// From linear levels to reductions in dB, both >= 0: the one that
    /// the curve wants and the one without which the level would pass the working ceiling. Arrays
    /// padded to whole vectors of 8.
    void reductions(const double* levels, double* wanted, double* due, int n) const noexcept;

private:
    struct Setting {
        double threshold = 0, ratio = 2;
    };
    static constexpr int kSteps = 20;

    Setting now_, start_, target_;
    int step_ = kSteps;
    int subBlocksPerStep_ = 1, wait_ = 0;
    Shape shape_;
};

}  // namespace quillworks
