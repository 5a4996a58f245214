// SPDX-License-Identifier: ISC
// Tables that depend on a sample rate or a design, not on who reads them: once for the process.
#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <utility>

namespace quillworks {

/// Tables by key. One lives as long as somebody holds it. [any thread but audio]
template <class Key, class Table> class SharedTables {
public:
    /// The table of `key`: what another holds already, or make(), which may throw.
    template <class Make> std::shared_ptr<const Table> get(const Key& key, Make&& make)
    {
        const std::lock_guard lock(mutex_);
        auto& known = tables_[key];
        auto table = known.lock();
        if (!table) known = table = std::make_shared<const Table>(std::forward<Make>(make)());
        return table;
    }

private:
    std::mutex mutex_;
    std::map<Key, std::weak_ptr<const Table>> tables_;
};

}  // namespace quillworks
