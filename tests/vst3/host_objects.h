// SPDX-License-Identifier: ISC
// What a VST3 host hands to a plug-in: queues of values, streams, a handler of edits.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "adapters/vst3/abi.h"

namespace quillworks::test {

/// What a host's objects have in common: nobody counts on their life.
inline constexpr v3_funknown kHostObject{
    [](void*, const std::uint8_t*, void**) -> v3_result { return V3_NO_INTERFACE; },
    [](void*) { return std::uint32_t{1}; }, [](void*) { return std::uint32_t{1}; }};

struct Queue {
    const v3_param_value_queue_cpp* table = &kCalls;
    v3_param_id id = 0;
    int count = 0;
    std::array<std::pair<int, double>, 8> points{};

    static Queue& of(void* self) { return *static_cast<Queue*>(self); }
    static v3_result add(void* self, std::int32_t frame, double value, std::int32_t* index)
    {
        auto& q = of(self);
        if (q.count == int(q.points.size())) return V3_NOMEM;
        q.points[std::size_t(*index = q.count++)] = {frame, value};
        return V3_OK;
    }
    static const v3_param_value_queue_cpp kCalls;
};
inline const v3_param_value_queue_cpp Queue::kCalls{
    kHostObject,
    {[](void* self) { return of(self).id; }, [](void* self) { return of(self).count; },
     [](void* self, std::int32_t i, std::int32_t* frame, double* value) -> v3_result {
         std::tie(*frame, *value) = of(self).points[std::size_t(i)];
         return V3_OK;
     },
     add}};

/// Queues of a block, in either direction; room for them is there before the block.
struct Changes {
    const v3_param_changes_cpp* table = &kCalls;
    std::vector<Queue> queues;

    Changes() { queues.reserve(512); }
    void set(v3_param_id id, double value, int frame = 0)
    {
        std::int32_t at = 0;
        auto* const queue = add(this, &id, &at);
        Queue::add(queue, frame, value, &at);
    }
    v3_param_changes** get() { return reinterpret_cast<v3_param_changes**>(this); }

    static Changes& of(void* self) { return *static_cast<Changes*>(self); }
    static v3_param_value_queue** add(void* self, v3_param_id* id, std::int32_t* index)
    {
        auto& queues = of(self).queues;
        for (auto& queue : queues)
            if (queue.id == *id) return reinterpret_cast<v3_param_value_queue**>(&queue);
        if (queues.size() == queues.capacity()) return nullptr;
        *index = std::int32_t(queues.size());
        queues.emplace_back().id = *id;
        return reinterpret_cast<v3_param_value_queue**>(&queues.back());
    }
    static const v3_param_changes_cpp kCalls;
};
inline const v3_param_changes_cpp Changes::kCalls{
    kHostObject,
    {[](void* self) { return std::int32_t(of(self).queues.size()); },
     [](void* self, std::int32_t i) {
         return reinterpret_cast<v3_param_value_queue**>(&of(self).queues[std::size_t(i)]);
     },
     add}};

struct Stream {
    const void* table = &kCalls;
    std::string bytes;
    std::size_t at = 0, most = SIZE_MAX;

    v3_bstream** get() { return reinterpret_cast<v3_bstream**>(this); }
    static Stream& of(void* self) { return *static_cast<Stream*>(self); }
    struct Calls : v3_funknown {
        v3_bstream stream;
    };
    static const Calls kCalls;
};
inline const Stream::Calls Stream::kCalls{
    kHostObject,
    {[](void* self, void* to, std::int32_t n, std::int32_t* done) -> v3_result {
         auto& s = of(self);
         *done = std::int32_t(std::min({std::size_t(n), s.most, s.bytes.size() - s.at}));
         std::copy_n(s.bytes.data() + s.at, *done, static_cast<char*>(to));
         s.at += std::size_t(*done);
         return V3_OK;
     },
     [](void* self, void* from, std::int32_t n, std::int32_t* done) -> v3_result {
         *done = std::int32_t(std::min(std::size_t(n), of(self).most));
         of(self).bytes.append(static_cast<const char*>(from), std::size_t(*done));
         return V3_OK;
     },
     [](void*, std::int64_t, std::int32_t, std::int64_t*) -> v3_result { return V3_FALSE; },
     [](void*, std::int64_t*) -> v3_result { return V3_FALSE; }}};

struct Handler {
    const void* table = &kCalls;
    std::map<v3_param_id, double> edits;
    int restarts = 0;  // flags of all of them

    static Handler& of(void* self) { return *static_cast<Handler*>(self); }
    struct Calls : v3_funknown {
        v3_component_handler handler;
    };
    static const Calls kCalls;
};
inline const Handler::Calls Handler::kCalls{
    kHostObject,
    {[](void*, v3_param_id) -> v3_result { return V3_OK; },
     [](void* self, v3_param_id id, double value) -> v3_result {
         of(self).edits[id] = value;
         return V3_OK;
     },
     [](void*, v3_param_id) -> v3_result { return V3_OK; },
     [](void* self, std::int32_t flags) -> v3_result {
         of(self).restarts |= flags;
         return V3_OK;
     }}};

}  // namespace quillworks::test
