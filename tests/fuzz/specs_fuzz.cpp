// SPDX-License-Identifier: ISC
// Effects with settings as the command line writes them, "NAME:key=value,...".
#include "effect_spec.h"
#include "error.h"
#include "tests/fuzz/fuzz_target.h"
#include "tests/support/build_paths.h"

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    using namespace quillhost;
    using quillworks::fuzz::require;
    static const Session session(quillworks::paths::module, true);
    try {
        const auto spec = parseEffectSpec(std::string(quillworks::fuzz::textOf(data, size)));
        const Effect effect = createEffect(session, spec);
        for (int i = 0; i < effect.component().countParameters(); ++i) {
            const auto p = effect.parameter(i);
            const float value = effect.component().getValue(i);
            if (!p.has(VNK::isReadOnly))
                require(value >= p.minimum && value <= p.maximum, "values are within their ranges");
        }
    } catch (const std::runtime_error& e) {  // of usage, or a text that the effect does not take
        require(*e.what() != 0, "an error says what is wrong");
    }
    return 0;
}
