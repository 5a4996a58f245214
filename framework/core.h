// SPDX-License-Identifier: ISC
// What an effect's core must offer, and what it may.
#pragma once

#include <concepts>
#include <type_traits>

#include "framework/audio_block.h"
#include "framework/meter_slots.h"

namespace quillworks {

/// The optional hooks that a core has. Every core says so in `static constexpr CoreHooks kHooks`,
/// since one that is only found by its name would silently never be called under a misspelt one.
/// What is said and what is there must agree, to the exact signature.
struct CoreHooks {
    bool tempo = false;    // void setTempo(double beatsPerMinute) noexcept; before apply, when new
    bool wetOnly = false;  // void setWetOnly(bool) noexcept; before apply, when new
    bool publish = false;  // void publish(MeterSlots&) noexcept; behind each of the host's blocks
};

namespace detail {

/// A name that C has too is ambiguous in Named<C>: that finds members of any kind and access.
struct HookNames {
    int setTempo, setWetOnly, publish;
};
template <class C> struct Named : C, HookNames {};

template <class Member> struct SignatureOf;
template <class C, class R, class... A> struct SignatureOf<R (C::*)(A...) noexcept> {
    using Type = R(A...) noexcept;
};
template <class Member, class Signature>
concept HasSignature = std::same_as<typename SignatureOf<Member>::Type, Signature>;

}  // namespace detail

/// The verbs that every core of the sample type T has.
template <class C, typename T>
concept CoreVerbs = requires(C core, const ProcessSpec& spec, const AudioBlock<T>& block,
                             const typename C::Settings& settings, unsigned dirty)
{
    core.prepare(spec);  // sizes buffers; may throw std::bad_alloc
    {
        core.reset()
    }
    noexcept;  // clears state, smoothers take their targets
    {
        core.apply(settings, dirty)
    }
    noexcept;  // derives coefficients of the groups in `dirty`
    {
        core.process(block)
    }
    noexcept;  // in place
};

/// kHooks says what there is.
template <class C>
concept SaysItsHooks = requires
{
    requires std::same_as<decltype(C::kHooks), const CoreHooks>;
};

// For each hook: it is there exactly as in CoreHooks, or nothing of its name is.
template <class C> constexpr bool hasTempoHookAsSaid()
{
    if constexpr (C::kHooks.tempo) return requires
        {
            requires detail::HasSignature<decltype(&C::setTempo), void(double) noexcept>;
        };
    else
        return requires
        {
            &detail::Named<C>::setTempo;
        };
}
template <class C> constexpr bool hasWetOnlyHookAsSaid()
{
    if constexpr (C::kHooks.wetOnly) return requires
        {
            requires detail::HasSignature<decltype(&C::setWetOnly), void(bool) noexcept>;
        };
    else
        return requires
        {
            &detail::Named<C>::setWetOnly;
        };
}
template <class C> constexpr bool hasPublishHookAsSaid()
{
    if constexpr (C::kHooks.publish) return requires
        {
            requires detail::HasSignature<decltype(&C::publish), void(MeterSlots&) noexcept>;
        };
    else
        return requires
        {
            &detail::Named<C>::publish;
        };
}

template <class C, typename T>
concept Core = CoreVerbs<C, T> && SaysItsHooks<C> &&
    hasTempoHookAsSaid<C>() && hasWetOnlyHookAsSaid<C>() && hasPublishHookAsSaid<C>();

}  // namespace quillworks
