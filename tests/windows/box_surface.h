// SPDX-License-Identifier: ISC
// A surface of coloured boxes, each of which changes its colour when it is pressed, and which keeps
// a record of all that comes.
#pragma once

#include <algorithm>
#include <cmath>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "editors/surface.h"

namespace quillworks::test {

using namespace editors;

/// What outlives the surface.
struct Record {
    std::vector<PointerEvent> pointer;
    std::vector<WheelEvent> wheel;
    std::string typed;
    std::vector<Key> keys;
    std::vector<std::string> dropped;
    int ticks = 0, drawn = 0, drawnUntimed = 0, lost = 0, closed = 0;
    SurfaceHost* host = nullptr;

    int count(PointerAction action) const
    {
        return static_cast<int>(std::count_if(pointer.begin(), pointer.end(),
                                              [&](const auto& e) { return e.action == action; }));
    }
};

class BoxSurface final : public Surface {
public:
    static constexpr int kBoxes = 4;  // in a row and in a column

    explicit BoxSurface(Record& record, int width = 200, int height = 160, bool isTip = false)
        : record_(record), baseWidth_(width), baseHeight_(height), isTip_(isTip)
    {
        setScale(1);
    }

    std::uint32_t colorAt(int x, int y) const
    {
        const auto box =
            static_cast<std::size_t>(y * kBoxes / height_ * kBoxes + x * kBoxes / width_);
        return 0x203040u + static_cast<std::uint32_t>(box) * 0x050301u + (box_[box] ? 0x808080 : 0);
    }
    /// As it should look.
    std::vector<std::uint32_t> picture() const
    {
        std::vector<std::uint32_t> all;
        for (int y = 0; y < height_; ++y)
            for (int x = 0; x < width_; ++x) all.push_back(colorAt(x, y));
        return all;
    }

    std::function<void(const PointerEvent&)> onPointer;
    std::function<bool(const KeyEvent&)> onKey;

    void setHost(SurfaceHost* host) override { record_.host = host; }
    int width() const override { return width_; }
    int height() const override { return height_; }
    bool isResizable() const override { return false; }
    void fitSize(int& width, int& height) const override
    {
        const double scale = std::clamp(
            std::min(double(width) / baseWidth_, double(height) / baseHeight_), 0.5, 4.0);
        width = static_cast<int>(std::lround(baseWidth_ * scale));
        height = static_cast<int>(std::lround(baseHeight_ * scale));
    }
    void setSize(int width, int) override { setScale(double(width) / baseWidth_); }
    double scale() const override { return scale_; }
    void setScale(double scale) override
    {
        scale_ = scale;
        width_ = static_cast<int>(std::lround(baseWidth_ * scale));
        height_ = static_cast<int>(std::lround(baseHeight_ * scale));
        isDirty_ = true;
    }
    void tick(double) override { ++record_.ticks; }
    std::vector<PixelRect> draw(const Pixels& picture, bool all) override
    {
        std::vector<PixelRect> damage = std::move(damage_);
        damage_.clear();
        if (all || std::exchange(isDirty_, false)) damage = {{0, 0, width_, height_}};
        isDirty_ = false;
        for (const auto& part : damage)
            for (int y = part.y; y < part.y + part.h; ++y)
                for (int x = part.x; x < part.x + part.w; ++x)
                    picture.data[y * (picture.stride / 4) + x] = 0xFF000000u | colorAt(x, y);
        record_.drawn += !damage.empty();
        record_.drawnUntimed += record_.ticks == 0;
        return damage;
    }
    void pointer(const PointerEvent& event) override
    {
        record_.pointer.push_back(event);
        if (event.action == PointerAction::Press) toggle(int(event.x), int(event.y));
        if (onPointer) onPointer(event);
    }
    void wheel(const WheelEvent& event) override { record_.wheel.push_back(event); }
    bool key(const KeyEvent& event) override
    {
        record_.keys.push_back(event.key);
        record_.typed += event.text;
        return !onKey || onKey(event);
    }
    void keyboardLost() override { ++record_.lost; }
    bool drop(double, double, const std::string& path) override
    {
        record_.dropped.push_back(path);
        return true;
    }
    void closed() override { ++record_.closed; }
    bool takesPointer() const override { return !isTip_; }

private:
    void toggle(int x, int y)
    {
        const int column = x * kBoxes / width_, row = y * kBoxes / height_;
        const auto box = static_cast<std::size_t>(row * kBoxes + column);
        if (x < 0 || y < 0 || box >= std::size(box_)) return;
        box_[box] = !box_[box];
        const auto edge = [](int i, int size) { return (i * size + kBoxes - 1) / kBoxes; };
        const int left = edge(column, width_), top = edge(row, height_);
        damage_.push_back(
            {left, top, edge(column + 1, width_) - left, edge(row + 1, height_) - top});
    }

    Record& record_;
    int baseWidth_, baseHeight_;
    bool isTip_;
    double scale_ = 1;
    int width_ = 0, height_ = 0;
    bool box_[kBoxes * kBoxes] = {};
    bool isDirty_ = true;
    std::vector<PixelRect> damage_;
};

}  // namespace quillworks::test
