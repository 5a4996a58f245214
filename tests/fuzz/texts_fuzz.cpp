// SPDX-License-Identifier: ISC
// Texts of values, for each parameter of each effect.
#include <algorithm>
#include <cstring>
#include <vector>

#include "tests/fuzz/fuzz_target.h"

namespace {

using namespace quillworks::fuzz;

/// One effect for each list of parameters: those that only pass audio through have the same.
std::vector<VNK::HostedEffect> distinctEffects()
{
    std::vector<VNK::HostedEffect> all;
    for (int i = 0; i < factory().countClasses(); ++i) {
        auto effect = create(factory().getClass(i)->classId);
        std::int64_t passes = 0;
        if (!effect->getInteger("passThrough", passes)) all.push_back(std::move(effect));
    }
    return all;
}

void checkText(const VNK::HostedEffect& effect, int index, const char* text)
{
    VNK::ParameterInfo p{};
    effect.getParameter(index, p);
    float value = 0;
    if (!effect.textToValue(index, text, value)) return;
    require(value >= p.minimum && value <= p.maximum, "values are within their ranges");
    require(p.kind == VNK::ValueKind::Continuous || value == std::nearbyint(value),
            "values of lists are whole");
    char shown[128];
    require(effect.valueToText(index, value, shown, sizeof shown) < 128, "texts are short");
    float again = 0;
    require(effect.textToValue(index, shown, again), "what is shown can be typed");
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const auto effects = distinctEffects();
    const std::string text(textOf(data, size));
    float number = 0;  // and the same bytes as a number that is to be shown
    std::memcpy(&number, text.data(), std::min(text.size(), sizeof number));
    for (const auto& effect : effects)
        for (int i = 0; i < effect->countParameters(); ++i) {
            checkText(*effect, i, text.c_str());
            char shown[8];
            const int length = effect->valueToText(i, number, shown, sizeof shown);
            require(length > 0 && std::memchr(shown, 0, sizeof shown), "a text ends where it must");
        }
    return 0;
}
