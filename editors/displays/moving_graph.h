// SPDX-License-Identifier: ISC
// A graph that follows its data from tick to tick: of what it covers only those pixels are drawn
// anew that may be others than before, which are few where a curve moves over a large area.
#pragma once

#include <cstdint>
#include <vector>

#include "editors/displays/graph.h"

namespace quillworks::editors {

class MovingGraph {
public:
    /// The graph as it is from now on, empty and to be filled; before that what it was is kept.
    Graph& next(const Rect& area, double scale);
    /// Compares both and calls `tell(rect)` for what differs, in blocks that cover all of it and
    /// where showMoved() has something to draw. False where they cannot be compared: all of the
    /// area is other.
    template <class F> bool compare(F&& tell)
    {
        if (!mark()) return false;
        for (const auto& rect : told_) tell(rect);
        return true;
    }
    /// What has been told since the last call, over the canvas' ground and whatever is there.
    void showMoved(Canvas& canvas);
    /// All that is within the clip, over what is there.
    void show(Canvas& canvas) { now_.show(canvas); }
    const Graph& graph() const noexcept { return now_; }

private:
    bool mark();
    void markRows(std::size_t block, float from, float to);

    Graph now_, was_;
    std::size_t words_ = 0;             // of 64 rows, of a block
    std::vector<std::uint64_t> rows_;   // to be drawn, block by block
    std::vector<std::uint64_t> fresh_;  // of them those of this comparison
    std::vector<Rect> told_;
    std::vector<std::uint32_t> block_;  // as it is put together
};

}  // namespace quillworks::editors
