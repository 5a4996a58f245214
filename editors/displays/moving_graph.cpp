// SPDX-License-Identifier: ISC
#include "editors/displays/moving_graph.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <utility>

#include "editors/displays/blend.h"

namespace quillworks::editors {
namespace {

constexpr int kWide = 2;                  // strips whose rows are drawn together
constexpr int kColumns = kWide * kStrip;  // of them
constexpr int kWordRows = 64;             // of a word

/// Whole ones in moves whose size is known.
void copyRows(std::uint32_t* to, std::ptrdiff_t toStride, const std::uint32_t* from,
              std::ptrdiff_t fromStride, std::size_t bytes, int rows)
{
    constexpr std::size_t kWhole = 4 * kColumns;
    for (int y = 0; y < rows; ++y, to += toStride, from += fromStride) {
        if (bytes == kWhole)
            std::memcpy(to, from, kWhole);
        else
            std::memcpy(to, from, bytes);
    }
}

}  // namespace

Graph& MovingGraph::next(const Rect& area, double scale)
{
    std::swap(now_, was_);
    now_.begin(area, scale);
    return now_;
}

void MovingGraph::markRows(std::size_t block, float from, float to)
{
    const int first = static_cast<int>(std::max(from, 0.0f));
    const int last = static_cast<int>(std::ceil(std::min(to, static_cast<float>(now_.height_))));
    auto* const rows = fresh_.data() + block * words_;
    for (int row = first; row < last;) {
        const int within = row % kWordRows, count = std::min(last - row, kWordRows - within);
        rows[row / kWordRows] |= (~0ull >> (kWordRows - count)) << within;
        row += count;
    }
}

bool MovingGraph::mark()
{
    told_.clear();
    const auto blocks = static_cast<std::size_t>((now_.width_ + kColumns - 1) / kColumns);
    words_ = static_cast<std::size_t>((now_.height_ + kWordRows - 1) / kWordRows);
    const auto isAlike = [this] {
        const auto &a = now_.area_, &b = was_.area_;
        if (a.x != b.x || a.y != b.y || now_.width_ != was_.width_ ||
            now_.height_ != was_.height_ || now_.count_ != was_.count_)
            return false;
        const auto same = [](Ink p, Ink q) { return p.color == q.color && p.opacity == q.opacity; };
        return std::equal(now_.layers_.begin(),
                          now_.layers_.begin() + static_cast<std::ptrdiff_t>(now_.count_),
                          was_.layers_.begin(), [&](const auto& p, const auto& q) {
                              return same(p.top, q.top) && same(p.bottom, q.bottom);
                          });
    };
    fresh_.assign(blocks * words_, 0);
    if (!isAlike() || rows_.size() != fresh_.size()) {
        rows_.assign(blocks * words_, 0);
        return false;
    }
    constexpr int kBlockParts = kColumns * Graph::kParts;
    const int parts = now_.width_ * Graph::kParts;
    for (std::size_t l = 0; l < now_.count_; ++l) {
        const auto &now = now_.layers_[l].extents, &was = was_.layers_[l].extents;
        for (std::size_t block = 0; block < blocks; ++block) {
            const int begin = static_cast<int>(block) * kBlockParts;
            const auto count = static_cast<std::size_t>(std::min(kBlockParts, parts - begin));
            const float *const top = now.top.data() + begin, *const bottom =
                                                                 now.bottom.data() + begin;
            const float *const oldTop = was.top.data() + begin, *const oldBottom =
                                                                    was.bottom.data() + begin;
            if (std::memcmp(top, oldTop, count * sizeof(float)) == 0 &&
                std::memcmp(bottom, oldBottom, count * sizeof(float)) == 0)
                continue;
            // What lies between the old top and the new one, and the same of the bottoms. One that
            // was nowhere differs by all of the other.
            float upperFrom = 1e30f, upperTo = -1e30f, lowerFrom = 1e30f, lowerTo = -1e30f;
            for (std::size_t p = 0; p < count; ++p) {
                const float first = std::min(top[p], oldTop[p]);
                const float last = std::max(bottom[p], oldBottom[p]);
                const bool isOther = top[p] != oldTop[p], isOtherBelow = bottom[p] != oldBottom[p];
                upperFrom = std::min(upperFrom, isOther ? first : 1e30f);
                upperTo = std::max(upperTo,
                                   isOther ? std::min(std::max(top[p], oldTop[p]), last) : -1e30f);
                lowerFrom = std::min(
                    lowerFrom,
                    isOtherBelow ? std::max(std::min(bottom[p], oldBottom[p]), first) : 1e30f);
                lowerTo = std::max(lowerTo, isOtherBelow ? last : -1e30f);
            }
            if (upperFrom < upperTo) markRows(block, upperFrom, upperTo);
            if (lowerFrom < lowerTo) markRows(block, lowerFrom, lowerTo);
        }
    }
    for (std::size_t block = 0; block < blocks; ++block) {
        int first = now_.height_, last = 0;
        for (std::size_t i = 0; i < words_; ++i) {
            const auto bits = fresh_[block * words_ + i];
            if (!bits) continue;
            const int row = static_cast<int>(i) * kWordRows;
            first = std::min(first, row + std::countr_zero(bits));
            last = std::max(last, row + kWordRows - std::countl_zero(bits));
        }
        if (first >= last) continue;
        const double pixel = 1 / now_.scale_, x = double(block) * kColumns;
        const double right = std::min(x + kColumns, double(now_.width_));
        told_.push_back({now_.area_.x + x * pixel, now_.area_.y + first * pixel,
                         (right - x) * pixel, (last - first) * pixel});
    }
    for (std::size_t i = 0; i < rows_.size(); ++i) rows_[i] |= fresh_[i];
    return true;
}

void MovingGraph::showMoved(Canvas& canvas)
{
    now_.mixColours(canvas);
    const auto place = canvas.inPicture(now_.area_.x, now_.area_.y, now_.width_, now_.height_);
    block_.resize(static_cast<std::size_t>(now_.height_ * kColumns));
    canvas.paint(place, [&](const Pixels& pixels, const PixelRect& part) {
        const auto& ground = canvas.ground();
        const auto stride = pixels.stride / 4, under = ground.stride / 4;
        const int top = part.y - place.y, left = part.x - place.x;
        const auto drawRows = [&](int x, int from, int to) {
            from = std::max(from, top);
            to = std::min(to, top + part.h);
            const int begin = std::max(x, left), end = std::min({x + kColumns, left + part.w});
            if (from >= to || begin >= end) return;
            const auto bytes = static_cast<std::size_t>(end - begin) * 4;
            const auto* below = ground.data + (place.y + from) * under + place.x + begin;
            auto* row = pixels.data + (place.y + from) * stride + place.x + begin;
            copyRows(block_.data(), kColumns, below, under, bytes, to - from);
            // What lies beyond the border is drawn too, and goes nowhere.
            for (int column = begin; column < end; column += kStrip)
                for (std::size_t i = 0; i < now_.count_; ++i)
                    now_.drawStrip(now_.layers_[i], block_.data() + (column - begin), kColumns,
                                   {column, from, kStrip, to - from});
            copyRows(row, stride, block_.data(), kColumns, bytes, to - from);
        };
        for (std::size_t block = 0; block * words_ < rows_.size(); ++block) {
            const int x = static_cast<int>(block) * kColumns;
            int begun = -1;  // row in which what is being collected begins
            for (std::size_t word = 0; word < words_; ++word) {
                const auto bits = rows_[block * words_ + word];
                const int row = static_cast<int>(word) * kWordRows;
                for (int at = 0; at < kWordRows;) {
                    const auto rest = (begun < 0 ? bits : ~bits) >> at;
                    if (!rest) break;
                    at += std::countr_zero(rest);
                    if (begun < 0) {
                        begun = row + at;
                    } else {
                        drawRows(x, begun, row + at);
                        begun = -1;
                    }
                }
            }
            if (begun >= 0) drawRows(x, begun, now_.height_);
        }
    });
    std::fill(rows_.begin(), rows_.end(), 0);
}

}  // namespace quillworks::editors
