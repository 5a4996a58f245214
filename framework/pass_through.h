// SPDX-License-Identifier: ISC
// Effects of the pack that do not process yet: the class pair, its "bypass", and audio untouched.
#pragma once

#include <algorithm>

#include "framework/effect_component.h"
#include "framework/precision_algorithm.h"

namespace quillworks {

/// A view prefix as a template argument.
template <std::size_t N> struct FixedString {
    char text[N];
    constexpr FixedString(const char (&s)[N]) { std::copy_n(s, N, text); }
};

struct PassThroughSettings {};

template <typename T> class PassThroughCore {
public:
    using Settings = PassThroughSettings;
    static constexpr CoreHooks kHooks{};
    void prepare(const ProcessSpec&) {}
    void reset() noexcept {}
    void apply(const Settings&, unsigned) noexcept {}
    void process(const AudioBlock<T>&) noexcept {}  // the frame has put the input there already
};

inline constexpr Parameter<PassThroughSettings> kPassThroughParameters[] = {
    {"bypass", "Bypa"_tag, "Bypass", Kind::Bypass},
};

class PassThroughAlgorithm : public PrecisionAlgorithm<PassThroughCore> {
public:
    PassThroughAlgorithm() : PrecisionAlgorithm(kPassThroughParameters) {}
};

/// Tells itself apart from the finished effects by the attribute "passThrough".
template <FixedString ViewPrefix> class PassThroughComponent : public AudioEffectComponent {
public:
    explicit PassThroughComponent(AudioEffectAlgorithm& algorithm)
        : AudioEffectComponent(algorithm, {.viewPrefix = ViewPrefix.text})
    {
        publishAttribute("passThrough", std::int64_t{1});
    }
};

}  // namespace quillworks
