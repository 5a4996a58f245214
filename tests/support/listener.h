// SPDX-License-Identifier: ISC
// A host's ear: what an effect tells, in order.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "vnk/effect.h"

namespace quillworks::test {

struct Listener final : VNK::IEffectListener {
    void message(const char* name) noexcept override { messages.emplace_back(name); }
    void parameterChanged(std::int32_t i) noexcept override { changed.push_back(i); }
    void editBegun(std::int32_t i) noexcept override { edits.push_back(i); }
    void editEnded(std::int32_t i) noexcept override { edits.push_back(-i); }

    auto count(const std::string& name) const
    {
        return std::count(messages.begin(), messages.end(), name);
    }

    std::vector<std::string> messages;
    std::vector<int> changed, edits;
};

}  // namespace quillworks::test
