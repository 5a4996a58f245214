// SPDX-License-Identifier: ISC
// Tables that depend on a sample rate or a design, not on who reads them: once for the process.
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <utility>

namespace quillworks {

/// The tables of one kind, by key. One lives as long as somebody holds it. What knows of them is
/// never destroyed: a worker thread may be making one while the process ends. [any thread but
/// audio]
template <class Key, class Table> class SharedTables {
public:
    static SharedTables& instance()
    {
        alignas(SharedTables) static std::byte place[sizeof(SharedTables)];
        static auto* const tables = new (place) SharedTables;
        return *tables;
    }

    /// The table of `key`: what another holds already, or make(), which may throw.
    template <class Make> std::shared_ptr<const Table> get(const Key& key, Make&& make)
    {
        const std::lock_guard lock(mutex_);
        const auto at = held_.try_emplace(key).first;
        auto held = at->second.lock();
        if (!held) {
            try {
                held = std::make_shared<const Held>(key, make);
            } catch (...) {
                held_.erase(at);
                throw;
            }
            at->second = held;
        }
        const Table& table = held->table;
        return {std::move(held), &table};
    }

private:
    SharedTables() = default;

    struct Held {
        template <class Make> Held(const Key& k, Make& make) : key(k), table(make()) {}
        ~Held() { instance().forget(key); }

        const Key key;
        const Table table;
    };

    /// Nothing of a table stays, so that a module leaves nothing behind when it is unloaded.
    void forget(const Key& key)
    {
        const std::lock_guard lock(mutex_);
        const auto at = held_.find(key);
        if (at != held_.end() && at->second.expired()) held_.erase(at);
    }

    std::mutex mutex_;
    std::map<Key, std::weak_ptr<const Held>> held_;
};

}  // namespace quillworks
