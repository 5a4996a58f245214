// SPDX-License-Identifier: ISC
// Random numbers that are the same on every machine: a hash, and generators for tables and noise.
#pragma once

#include <bit>
#include <cstdint>

namespace quillworks {

/// Chance as a function of a number, -1 <= r < 1, uniform: the n-th value of a voice is the same
/// whenever it is asked for, so modulation that counts n from the song's position repeats in every
/// bounce. The mixer is Wellons's lowbias32 (2018).
constexpr double hashRandom(std::uint32_t n, std::uint32_t voice) noexcept
{
    std::uint32_t x = n + 0x9E3779B9u * (voice + 1);
    x ^= x >> 16;
    x *= 0x7FEB352Du;
    x ^= x >> 15;
    x *= 0x846CA68Bu;
    x ^= x >> 16;
    return static_cast<std::int32_t>(x) * 0x1p-31;
}

/// Linear congruential generator of Numerical Recipes (Press et al. 1992): for tables that are
/// drawn once and must come out alike in every build. Its low bits are poor; next() leaves out
/// eight.
struct Lcg {
    std::uint32_t state = 0;  // the seed

    constexpr std::uint32_t step() noexcept { return state = state * 1664525u + 1013904223u; }
    /// 0 <= draw < 1, a multiple of 2^-24.
    constexpr double next() noexcept { return (step() >> 8) * 0x1p-24; }
};

/// The next 64 bits, and `state` advanced (Steele, Lea and Flood 2014). Any seed will do; the way
/// to seed other generators.
constexpr std::uint64_t splitmix64(std::uint64_t& state) noexcept
{
    std::uint64_t z = state += 0x9E3779B97F4A7C15u;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
    return z ^ (z >> 31);
}

/// xoshiro256++ 1.0 (Blackman and Vigna 2019): for noise. Period 2^256 - 1.
struct Xoshiro256pp {
    std::uint64_t s[4];

    /// Seeded as its authors advise, from splitmix64.
    explicit constexpr Xoshiro256pp(std::uint64_t seed = 0) noexcept : s{}
    {
        for (auto& word : s) word = splitmix64(seed);
    }
    constexpr std::uint64_t next() noexcept
    {
        const std::uint64_t result = std::rotl(s[0] + s[3], 23) + s[0];
        const std::uint64_t t = s[1] << 17;
        s[2] ^= s[0];
        s[3] ^= s[1];
        s[1] ^= s[2];
        s[0] ^= s[3];
        s[2] ^= t;
        s[3] = std::rotl(s[3], 45);
        return result;
    }
    /// 0 <= draw < 1, a multiple of 2^-53.
    constexpr double uniform() noexcept { return static_cast<double>(next() >> 11) * 0x1p-53; }
};

}  // namespace quillworks
