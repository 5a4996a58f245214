// SPDX-License-Identifier: ISC
// Automation files of quillhost, for a chain of two effects.
#include <algorithm>

#include "automation.h"
#include "error.h"
#include "tests/fuzz/fuzz_target.h"
#include "tests/support/build_paths.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace quillhost;
    using quillworks::fuzz::require;
    static const Session session(quillworks::paths::module, true);
    static const std::vector<Effect> effects = {session.create("Compressor"),
                                                session.create("Analog Delay")};
    try {
        const auto text = quillworks::fuzz::textOf(data, size);
        const auto events = parseAutomation(text, "file", effects).events;
        require(std::is_sorted(events.begin(), events.end(),
                               [](auto& a, auto& b) { return a.frame < b.frame; }),
                "events are in their order");
        for (const auto& event : events) {
            require(event.frame >= 0 && event.effect < effects.size(), "events are in reach");
            const auto p = effects[event.effect].parameter(event.parameter);
            require(event.value >= p.minimum && event.value <= p.maximum,
                    "values are within their ranges");
        }
    } catch (const UsageError&) {
    } catch (const WorkError&) {}
    return 0;
}
