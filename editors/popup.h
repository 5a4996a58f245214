// SPDX-License-Identifier: ISC
// Surfaces above a view: lists to choose from, and tips.
#pragma once

#include <memory>
#include <optional>

#include "editors/control.h"
#include "editors/text_entry.h"

namespace quillworks::editors {

/// How a popup looks: kept by it, since it may outlive its view for a moment.
struct Look {
    std::shared_ptr<Fonts> fonts;
    std::shared_ptr<const Theme> theme;
    double scale = 1;
};

/// A surface of a size of its own, drawn anew as a whole when it changes.
class Popup : public Surface {
public:
    explicit Popup(Look look) : look_(std::move(look)) {}

    void setHost(SurfaceHost* host) override { host_ = host; }
    int width() const override;
    int height() const override;
    bool isResizable() const override { return false; }
    void fitSize(int& w, int& h) const override;
    void setSize(int, int) override {}
    double scale() const override { return look_.scale; }
    void setScale(double scale) override;
    void tick(double) override {}
    std::vector<PixelRect> draw(const Pixels& picture, bool all) override;
    void pointer(const PointerEvent&) override {}
    void wheel(const WheelEvent&) override {}
    bool key(const KeyEvent&) override { return false; }
    void keyboardLost() override {}
    bool drop(double, double, const std::string&) override { return false; }

protected:
    virtual void paint(Canvas& canvas) = 0;
    void setContentSize(double w, double h)
    {
        w_ = w;
        h_ = h;
    }
    double contentWidth() const noexcept { return w_; }
    void damage() noexcept { isDamaged_ = true; }
    const Look& look() const noexcept { return look_; }
    SurfaceHost* surfaceHost() const noexcept { return host_; }
    double textWidth(Type type, const std::string& text) const;

private:
    Look look_;
    SurfaceHost* host_ = nullptr;
    double w_ = 1, h_ = 1;
    bool isDamaged_ = true;
};

/// Calls `done` once: with what was chosen, or with nothing where it was closed.
class ListPopup final : public Popup {
public:
    using Done = std::function<void(std::function<void()> chosen)>;

    ListPopup(Look look, ListContent content, Done done);

    /// Who made it is gone.
    void forget() noexcept { done_ = nullptr; }
    void pointer(const PointerEvent& event) override;
    void wheel(const WheelEvent& event) override;
    bool key(const KeyEvent& event) override;
    void closed() override;

private:
    void paint(Canvas& canvas) override;
    void narrow();
    void choose(int row);
    void moveTo(int row);
    void step(int by);
    bool canChoose(int row) const;
    int rowAt(double x, double y) const;
    double rowTop(int row) const;
    const ListEntry& entry(int row) const
    {
        return content_.entries[rows_[static_cast<std::size_t>(row)]];
    }
    int rowCount() const noexcept { return static_cast<int>(rows_.size()); }

    ListContent content_;
    std::vector<std::size_t> rows_;  // entries that the search leaves
    std::optional<TextEntry> search_;
    int current_ = -1, first_ = 0, visible_ = 0;
    bool wasPressed_ = false;
    Done done_;
};

class TipPopup final : public Popup {
public:
    TipPopup(Look look, const Tip& tip);

    bool takesPointer() const override { return false; }
    void closed() override {}

private:
    void paint(Canvas& canvas) override;

    std::string title_;
    std::vector<std::string> help_, lines_;
};

}  // namespace quillworks::editors
