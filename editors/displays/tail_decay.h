// SPDX-License-Identifier: ISC
// Display of how long a loaded response rings in each octave: as it was measured, and as its tail
// is played.
#pragma once

#include "editors/displays/response_display.h"

namespace quillworks::editors {

class TailDecay final : public ResponseDisplay {
public:
    TailDecay(const VNK::SkinBox& box, EffectModel& model);

    void draw(Canvas& canvas) override;
    std::string describe() const override;
    std::string tip(double x, double y) const override;

protected:
    void ticked(double seconds) override;
    void look(std::vector<double>& numbers) const override;
    /// In seconds, played or measured.
    double response(int side, double hertz) const override;
    bool drawsOver() const override { return true; }
    int curves() const override { return 2; }
    void place() override;

private:
    enum class Mode { Whole, Continue, Replace };
    Mode mode() const { return static_cast<Mode>(static_cast<int>(mode_.get(0))); }
    double measured(double hertz) const;
    bool isThere() const { return !octaves_.empty(); }

    Value mode_, decay_, time_, stretch_;
    std::vector<double> octaves_;  // s, from 31.25 Hz on; empty: nothing is measured
};

}  // namespace quillworks::editors
