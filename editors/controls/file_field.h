// SPDX-License-Identifier: ISC
// A text of an effect that names a file: its name, a list of the files beside it, and a place to
// drop one.
#pragma once

#include "editors/controls/buttons.h"

namespace quillworks::editors {

class FileField final : public Control {
public:
    /// `text` is the index of the effect's text.
    FileField(ControlHost& host, const VNK::SkinControl& skin, int text, const Rect& bounds);

    void draw(Canvas& canvas) override;
    void tick(double seconds) override;
    void pointer(const PointerEvent& event) override;
    void hover(bool isOver) override;
    bool key(const KeyEvent& event) override;
    bool drop(const std::string& path) override;
    Tip tip() const override;
    std::string describe() const override;

private:
    std::string path() const;
    void set(const std::string& path);
    void open(const std::string& folder);
    bool isListed(const std::string& name) const;

    int text_;
    VNK::TextInfo info_;
    std::string shown_, refusal_;
    Press press_;
    bool isHovered_ = false;
};

}  // namespace quillworks::editors
