// SPDX-License-Identifier: ISC
// A measured value, read-only.
#pragma once

#include "editors/control.h"
#include "vnk/skin.h"

namespace quillworks::editors {

class Readout final : public Control {
public:
    /// The key is a read-only parameter's or a meter's.
    Readout(ControlHost& host, const VNK::SkinControl& skin, const Rect& bounds);

    void draw(Canvas& canvas) override;
    void tick(double seconds) override;
    void pointer(const PointerEvent& event) override;
    bool takesFocus() const override { return false; }
    std::string describe() const override { return text(reading()); }
    Tip tip() const override;
    int parameter() const override { return parameter_; }
    void check(Fonts& fonts, const Theme& theme, std::vector<std::string>& problems) const override;
    /// Texts that it may have to show.
    std::vector<std::string> sampleTexts() const;

private:
    void bind();
    float reading() const;
    std::string text(float value) const;
    void drawBar(Canvas& canvas, const Rect& r) const;
    double labelWidth(Fonts& fonts, const Theme& theme) const;

    std::string key_;
    int parameter_ = -1, meter_ = -1;
    unsigned layout_ = 0;
    float minimum_ = 0, maximum_ = 1;
    bool isLevel_ = false;  // drawn as a bar where there is room
    std::string shown_;
};

}  // namespace quillworks::editors
