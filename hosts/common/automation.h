// SPDX-License-Identifier: ISC
// Parameter changes at exact frames, from a JSON file.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "session.h"

namespace quillhost {

struct AutomationEvent {
    std::int64_t frame = 0;
    std::size_t effect = 0;  // of the chain
    int parameter = 0;
    float value = 0;  // in the parameter's unit
};

struct Automation {
    std::vector<AutomationEvent> events;
    std::vector<std::string> remarks;  // on what is allowed and hardly meant
};

/// Reads an array of {"frame", "fx", "key", "value"}; a value is a number, a truth value or a text
/// of the list. Sorted by frame, events of one frame in the order of the file. WorkError for a file
/// that cannot be read, UsageError for what does not fit the effects.
Automation readAutomation(const std::string& path, const std::vector<Effect>& effects);
/// The same from what the file holds; `path` is its name in messages.
Automation parseAutomation(std::string_view content, const std::string& path,
                           const std::vector<Effect>& effects);

}  // namespace quillhost
