// SPDX-License-Identifier: ISC
#include "editors/layout.h"

#include <cmath>
#include <limits>

namespace quillworks::editors {
namespace {

constexpr double kInset = 12;     // of rows from a panel's sides
constexpr double kKnobInset = 8;  // of the first knob
constexpr double kFoot = 8;       // below the last row
constexpr double kTight = 5;      // that rows may take of title and foot
constexpr double kUnderWidth = 76;
constexpr double kWidestCell = 112;
constexpr double kImpossible = 1e6;

using Items = std::span<const LayoutItem>;

/// Widths of a row's items that together take `width`: as equal as their needs allow.
std::vector<double> shareWidth(Items row, double width)
{
    const auto sum = [&](double LayoutItem::*need) {
        double s = 0;
        for (const auto& item : row) s += item.*need;
        return s;
    };
    const double equal = width / static_cast<double>(row.size());
    const auto need = sum(&LayoutItem::good) <= width ? &LayoutItem::good : &LayoutItem::least;
    std::vector<double> widths(row.size(), equal);
    if (const double least = sum(&LayoutItem::least); least > width) {
        for (std::size_t i = 0; i < row.size(); ++i) widths[i] = row[i].least * width / least;
        return widths;
    }
    // Water finds its level: whoever needs more than an equal share of the rest gets that.
    std::vector<bool> isFixed(row.size());
    for (std::size_t round = 0; round <= row.size(); ++round) {
        double rest = width;
        double open = 0;
        for (std::size_t i = 0; i < row.size(); ++i)
            if (isFixed[i])
                rest -= widths[i];
            else
                open += 1;
        bool hasChanged = false;
        for (std::size_t i = 0; i < row.size(); ++i) {
            if (isFixed[i]) continue;
            widths[i] = rest / open;
            if (row[i].*need > widths[i] + 1e-9) {
                widths[i] = row[i].*need;
                isFixed[i] = hasChanged = true;
            }
        }
        if (!hasChanged) break;
    }
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::min(widths[i], row[i].most);
    return widths;
}

double gapOf(std::size_t columns)
{
    return columns < 3 ? 8 : 4;
}

struct Rows {
    double cost = kImpossible;
    std::vector<Rect> places;
    std::size_t rows = 0;
};

/// Items in rows of `columns` within a rectangle, from its top.
Rows inRows(Items items, std::size_t columns, const Rect& within, double rowGap)
{
    Rows result;
    result.rows = (items.size() + columns - 1) / columns;
    result.cost = 0;
    const double gap = gapOf(columns);
    // Full rows first, and none with a lonely rest where it can be shared out evenly.
    columns = (items.size() + result.rows - 1) / result.rows;
    for (std::size_t first = 0, r = 0; first < items.size(); first += columns, ++r) {
        const auto row = items.subspan(first, std::min(columns, items.size() - first));
        const double all = within.w - gap * static_cast<double>(columns - 1);
        const double equal = all / static_cast<double>(columns);
        bool isEven = true;
        for (const auto& item : row) isEven &= item.good <= equal;
        // Even columns stand beneath each other.
        auto widths =
            shareWidth(row, isEven ? equal * static_cast<double>(row.size())
                                   : within.w - gap * static_cast<double>(row.size() - 1));
        double x = within.x;
        for (std::size_t i = 0; i < row.size(); ++i) {
            const double w = widths[i];
            if (w < row[i].least - 0.5) result.cost += 200 + 10 * (row[i].least - w);
            if (w < row[i].good - 0.5) result.cost += 12;
            result.places.push_back(
                {x, within.y + static_cast<double>(r) * (kRowHeight + rowGap), w, kRowHeight});
            x += w + gap;
        }
    }
    return result;
}

double heightOf(std::size_t rows, double gap)
{
    return rows ? static_cast<double>(rows) * (kRowHeight + gap) - gap : 0;
}

/// The cheapest division into rows that fit the height.
Rows bestRows(Items items, const Rect& within)
{
    Rows best;
    for (std::size_t columns = 1; columns <= items.size(); ++columns) {
        const auto rows = (items.size() + columns - 1) / columns;
        double gap = 8;
        while (gap > 0 && heightOf(rows, gap) > within.h) gap -= 1;
        if (heightOf(rows, gap) > within.h + 0.5) continue;
        auto found = inRows(items, columns, within, gap);
        // A matrix of many keeps its columns, a few stand in few rows.
        if (items.size() <= 12) found.cost += 0.5 * static_cast<double>(rows);
        if (found.cost < best.cost) best = std::move(found);
    }
    if (best.places.empty() && !items.empty()) best = inRows(items, items.size(), within, 4);
    return best;
}

struct Candidate {
    double cost = kImpossible;
    std::vector<Rect> knobs, rows;
};

void placeKnobs(Candidate& c, std::size_t count, double left, double top, double width,
                double height)
{
    const auto n = static_cast<double>(count);
    const double pitch = std::clamp(width / n, std::min(kKnobWidth, width / n), kWidestCell);
    const double start = left + (width - pitch * n) / 2;
    for (std::size_t i = 0; i < count; ++i) {
        const double middle = start + (static_cast<double>(i) + 0.5) * pitch;
        const double w = std::min(kKnobWidth, pitch);
        c.knobs.push_back({middle - w / 2, top, w, height});
    }
}

}  // namespace

std::vector<Rect> layOutPanel(double width, double height, bool hasTitle,
                              std::span<const LayoutItem> items)
{
    std::vector<LayoutItem> rows;
    std::vector<std::size_t> rowItems, knobItems;
    const bool isUnderAlone =
        std::count_if(items.begin(), items.end(), [](const auto& i) { return !i.isKnob; }) == 1;
    for (std::size_t i = 0; i < items.size(); ++i) {
        (items[i].isKnob ? knobItems : rowItems).push_back(i);
        if (!items[i].isKnob) rows.push_back(items[i]);
    }
    const double top = hasTitle ? kPanelTitle : kFoot;
    const double bottom = height - kFoot;
    const Rect inner{kInset, top, width - 2 * kInset, bottom - top};
    const double knobRoom = width - 2 * kKnobInset;
    const auto knobs = knobItems.size();

    Candidate best;
    const auto consider = [&](Candidate c) {
        if (c.cost < best.cost || (best.knobs.empty() && best.rows.empty())) best = std::move(c);
    };
    const auto shrinkCost = [](double h) {
        return h < kLowestKnob ? kImpossible / 10 : std::max(0.0, 84 - h) * 0.8;
    };
    if (!knobs) {
        auto room = inner;
        if (const auto tight = bestRows(rows, inner); tight.cost > 100)
            room = {inner.x, inner.y - 3, inner.w, inner.h + kTight};
        auto found = bestRows(rows, room);
        best = {found.cost, {}, std::move(found.places)};
    } else if (rows.empty()) {
        Candidate c;
        const double h = std::min(kKnobHeight, bottom - top + kFoot);
        // In a high panel they hang a little below the title, not in the middle of nowhere.
        placeKnobs(c, knobs, kKnobInset, top + std::clamp((bottom - top - h) / 2, 0.0, 12.0),
                   knobRoom, h);
        best = std::move(c);
    } else {
        for (std::size_t count = 1; count <= std::min<std::size_t>(4, rows.size()); ++count) {
            const double block = heightOf(count, 4);
            const double h = std::min(kKnobHeight, bottom - top - block);
            const auto columns = (rows.size() + count - 1) / count;
            auto found = inRows(rows, columns, {inner.x, bottom - block, inner.w, block}, 4);
            if (found.rows != count) continue;
            Candidate c;
            c.cost = found.cost + shrinkCost(h) + 14 * static_cast<double>(count - 1);
            c.rows = std::move(found.places);
            placeKnobs(c, knobs, kKnobInset, top, knobRoom, std::max(h, kLowestKnob));
            consider(std::move(c));
        }
        const double beside = kKnobInset + kKnobWidth * static_cast<double>(knobs);
        if (width - beside > 60) {
            const Rect room{beside + 8, top + 4, width - beside - 8 - kInset, bottom - top - 4};
            auto found = bestRows(rows, room);
            const double h = std::min(kKnobHeight, bottom - top + 4);
            Candidate c;
            c.cost = found.cost + shrinkCost(h) + 16;
            c.rows = std::move(found.places);
            placeKnobs(c, knobs, kKnobInset, top, beside - kKnobInset, h);
            consider(std::move(c));
        }
    }

    std::vector<Rect> places(items.size());
    for (std::size_t i = 0; i < knobs; ++i) places[knobItems[i]] = best.knobs[i];
    for (std::size_t i = 0; i < rowItems.size(); ++i) {
        auto& place = places[rowItems[i]] = best.rows[i];
        const int under = items[rowItems[i]].under;
        if (!isUnderAlone || under < 0 || place.y < bottom - kRowHeight - 0.5) continue;
        place.w = std::min(kUnderWidth, inner.w);
        place.x = std::clamp(places[static_cast<std::size_t>(under)].centre().x - place.w / 2,
                             inner.x, inner.right() - place.w);
    }
    return places;
}

}  // namespace quillworks::editors
