// SPDX-License-Identifier: ISC
// The host's queues of parameter changes in the order of their frames.
#pragma once

#include <algorithm>
#include <cstddef>
#include <vector>

#include "adapters/vst3/abi.h"

namespace quillworks::vst3 {

/// Merges the queues of one block. What they hold is taken as steps: the effects glide by
/// themselves.
class ChangeQueues {
public:
    /// Room for that many queues; more are left out. [main thread]
    explicit ChangeQueues(std::size_t most) { cursors_.reserve(most); }

    /// [audio thread, like all below]
    void begin(v3_param_changes** changes, int frames) noexcept
    {
        cursors_.clear();
        frames_ = frames;
        const int count = changes ? v3_cpp_obj(changes)->get_param_count(changes) : 0;
        for (int i = 0; i < count && cursors_.size() < cursors_.capacity(); ++i) {
            auto** const queue = v3_cpp_obj(changes)->get_param_data(changes, i);
            if (!queue) continue;
            Cursor cursor{queue, v3_cpp_obj(queue)->get_param_id(queue),
                          0,     v3_cpp_obj(queue)->get_point_count(queue),
                          0,     0};
            if (read(cursor)) cursors_.push_back(cursor);
        }
    }
    /// Frame of the next change, the block's length where there is none.
    int nextFrame() const noexcept
    {
        int frame = frames_;
        for (const auto& cursor : cursors_)
            if (cursor.point < cursor.count) frame = std::min(frame, cursor.frame);
        return frame;
    }
    /// change(id, value) for all that are due up to `frame`, queue by queue.
    template <class F> void takeUpTo(int frame, F&& change) noexcept
    {
        for (auto& cursor : cursors_)
            while (cursor.point < cursor.count && cursor.frame <= frame) {
                change(cursor.id, cursor.value);
                ++cursor.point;
                read(cursor);
            }
    }

private:
    struct Cursor {
        v3_param_value_queue** queue;
        v3_param_id id;
        int point, count;
        int frame;  // of the point; never before the one before it, nor beyond the block
        double value;
    };

    /// Skips points that the queue does not give.
    bool read(Cursor& cursor) const noexcept
    {
        for (; cursor.point < cursor.count; ++cursor.point) {
            std::int32_t offset = 0;
            const auto result = v3_cpp_obj(cursor.queue)
                                    ->get_point(cursor.queue, cursor.point, &offset, &cursor.value);
            if (result != V3_OK) continue;
            cursor.frame = std::clamp(offset, cursor.frame, std::max(cursor.frame, frames_));
            return true;
        }
        return false;
    }

    std::vector<Cursor> cursors_;
    int frames_ = 0;
};

}  // namespace quillworks::vst3
