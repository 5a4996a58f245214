// SPDX-License-Identifier: ISC
// Sections in lanes against sections one after the other, on every instruction set; the two cuts.
#include "dsp/section_chain.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <limits>
#include <string>
#include <utility>
#include <vector>

#include "dsp/cut_filters.h"
#include "dsp/section_chain_kernels.h"
#include "tests/support/audio_thread_guard.h"
#include "tests/support/signals.h"
#include "vectorlib/vector_library.h"

namespace quillworks {
namespace {

using namespace test;
using namespace DSP::VectorLib;

template <typename T> class Chains : public ::testing::Test {
protected:
    static constexpr double kTolerance = sizeof(T) == 4 ? 2e-6 : 4e-15;
};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(Chains, Precisions);

/// The coefficients of section s on a side: all kinds, none like another.
template <typename T> SectionCoefficients<T> made(int s, int side, double octaves = 0)
{
    using C = SectionCoefficients<T>;
    const double f = 150 * std::exp2(octaves + 0.37 * s + 0.1 * side), q = 0.6 + 0.1 * (s % 5);
    switch (s % 5) {
    case 0:
        return C::allPass(f, q, 48000);
    case 1:
        return C::lowPass(8000 + f, q, 48000);
    case 2:
        return C::notch(f, q, 48000);
    case 3:
        return C::highPass(f / 4, q, 48000);
    default:
        return C::of(warpedFrequency(f, 48000), 1 / q, {1, 0.5, -0.1});
    }
}

/// A kernel's rows for sections that move, with room to read too far.
template <typename T> struct Rows {
    explicit Rows(int sections) : count(sections)
    {
        for (auto* row : {&z[0], &z[1]}) row->assign(std::size_t(2 * count + 16), T(0.123));
        for (int k = 0; k < 6; ++k) {
            to[k].assign(std::size_t(2 * count + 16), T(0.5));
            step[k] = to[k];
        }
        for (int lane = 0; lane < 2 * count; ++lane) {
            SectionRamp<T> ramp;
            ramp.snap(made<T>(lane / 2, lane % 2));
            ramp.follow(made<T>(lane / 2, lane % 2, 0.5));
            ramps.push_back(ramp);
            put(to, lane, ramp.end());
            put(step, lane, ramp.step());
            z[0][std::size_t(lane)] = T(0.01 * lane);
            z[1][std::size_t(lane)] = T(-0.02 * lane);
        }
    }
    static void put(std::vector<T> (&rows)[6], int lane, const SectionCoefficients<T>& c)
    {
        const T values[] = {c.r, c.b1, c.b2, c.c1, c.c2, c.d};
        for (int k = 0; k < 6; ++k) rows[k][std::size_t(lane)] = values[k];
    }
    SectionRun<T> run(T* left, T* right, GridSlice slice, bool moves)
    {
        SectionRun<T> r{};
        for (int k = 0; k < 6; ++k) r.to[k] = to[k].data(), r.step[k] = step[k].data();
        r.z1 = z[0].data(), r.z2 = z[1].data();
        r.channel[0] = left, r.channel[1] = right;
        r.count = count, r.frames = slice.frames, r.phase = slice.phase, r.moves = moves;
        return r;
    }

    int count;
    std::vector<T> to[6], step[6], z[2];
    std::vector<SectionRamp<T>> ramps;  // by lane
};

TYPED_TEST(Chains, LanesAreTheSectionsOneByOneAtEveryCountAndInstructionSet)
{
    using T = TypeParam;
    for (const int set : {kPermitScalar, kPermitSse2, kPermitAvx2, kPermitAvx512}) {
        const auto* kernel = sectionKernel<T>(set);
        if (!kernel) continue;
        for (const int sections : {1, 2, 3, 4, 5, 6, 7, 8, 13, 16})
            for (int n = 1; n <= kSubBlock; ++n)
                for (const bool moves : {false, true})
                    for (const bool isPair : {true, false}) {
                        if (sections > kernel->mostSections) continue;
                        SCOPED_TRACE(std::to_string(set) + ": " + std::to_string(sections) + " x " +
                                     std::to_string(n));
                        const GridSlice slice{n, (kSubBlock - n) / 2};
                        auto left = noise<T>(kSubBlock + 2, 1), right = noise<T>(kSubBlock + 2, 2);
                        Signal<T> wanted[2] = {left, right};
                        Rows<T> rows(sections);
                        std::vector<SectionState<T>> states;
                        for (int lane = 0; lane < 2 * sections; ++lane) {
                            const auto i = std::size_t(lane);
                            SectionState<T> state{rows.z[0][i], rows.z[1][i]};
                            T* const x = wanted[lane % 2].data() + 1;
                            if (moves)
                                rows.ramps[i].run(state, x, slice);
                            else
                                state.run(rows.ramps[i].end(), x, n);
                            states.push_back(state);
                        }
                        kernel->run(rows.run(left.data() + 1, isPair ? right.data() + 1 : nullptr,
                                             slice, moves));
                        ASSERT_LT(peakDifferenceDb(left, wanted[0]), db(this->kTolerance));
                        if (!isPair) wanted[1] = right;
                        ASSERT_LT(peakDifferenceDb(right, wanted[1]), db(this->kTolerance));
                        for (std::size_t lane = 0; lane < states.size(); ++lane) {
                            if (!isPair && lane % 2 == 1) continue;
                            ASSERT_NEAR(rows.z[0][lane], states[lane].z1, this->kTolerance) << lane;
                            ASSERT_NEAR(rows.z[1][lane], states[lane].z2, this->kTolerance) << lane;
                        }
                        for (std::size_t beyond = states.size(); beyond < rows.z[0].size();
                             ++beyond)
                            ASSERT_TRUE(rows.z[0][beyond] == T(0.123) &&
                                        rows.z[1][beyond] == T(0.123));
                    }
    }
}

/// A signal of several channels through f(pointers, slice), in blocks.
template <typename T, class F> Channels<T> inBlocks(Channels<T> x, int block, F&& f)
{
    const int frames = static_cast<int>(x[0].size());
    for (int at = 0; at < frames;) {
        const GridSlice slice{
            std::min({frames - at, block - at % block, kSubBlock - at % kSubBlock}),
            at % kSubBlock};
        std::vector<T*> part;
        for (auto& channel : x) part.push_back(channel.data() + at);
        const AudioThreadGuard guard;
        f(part.data(), slice, at);
        EXPECT_EQ(AudioThreadGuard::takeViolation(), nullptr);
        at += slice.frames;
    }
    return x;
}

TYPED_TEST(Chains, OfAnyLengthAndChannelsGlideTheSameAtAllBlockLengths)
{
    using T = TypeParam;
    constexpr int kSections = 21;  // more than one run of any kernel but the scalar one
    const Channels<T> x{noise<T>(640, 1), noise<T>(640, 2), noise<T>(640, 3)};
    const auto run = [&](int block) {
        SectionChain<T> chain;
        chain.prepare(kSections, 3);
        return inBlocks(x, block, [&](T* const* part, GridSlice slice, int at) {
            for (int s = 0; slice.begins() && s < kSections; ++s)
                for (int side = 0; side < 2; ++side) {
                    if (at == 0) chain.set(s, side, made<T>(s, side));
                    if (at == 320) chain.glide(s, side, made<T>(s, side, 1));
                }
            if (at == 480) chain.clear(4, 2);
            chain.process(part, slice);
        });
    };
    const auto whole = run(640);
    for (const int block : {1, 7, 32}) EXPECT_EQ(run(block), whole) << block;
    auto wanted = x;
    for (int c = 0; c < 3; ++c)
        for (int s = 0; s < kSections; ++s) {
            SectionRamp<T> ramp;
            ramp.snap(made<T>(s, c % 2));
            SectionState<T> state;
            for (int at = 0; at < 640; at += kSubBlock) {
                ramp.follow(made<T>(s, c % 2, at < 320 ? 0 : 1));
                if (at == 480 && (s == 4 || s == 5)) state.reset();
                ramp.run(state, wanted[std::size_t(c)].data() + at, kWholeSubBlock);
            }
        }
    EXPECT_LT(peakDifferenceDb(whole, wanted), db(20 * this->kTolerance));
}

TYPED_TEST(Chains, OneSectionOverManyChannelsIsAsOverTheirPairs)
{
    using T = TypeParam;
    for (const std::size_t channels : {3u, 4u, 5u, 8u, 13u, 16u, 17u}) {
        Channels<T> x;
        for (std::size_t c = 0; c < channels; ++c) x.push_back(noise<T>(200, unsigned(c)));
        const auto run = [&](const Channels<T>& in, int block) {
            SectionChain<T> chain;
            chain.prepare(2, static_cast<int>(in.size()));
            return inBlocks(in, block, [&](T* const* part, GridSlice slice, int at) {
                for (int side = 0; side < 2; ++side) {
                    if (at == 0) chain.set(1, side, made<T>(1, side));
                    if (at == 64) chain.glide(1, side, made<T>(1, side, 1));
                }
                chain.process(part, slice, 1, 1);
            });
        };
        const auto whole = run(x, 200);
        for (const int block : {1, 7}) EXPECT_EQ(run(x, block), whole) << channels;
        for (std::size_t c = 0; c < channels; c += 2) {
            const Channels<T> pair{x[c], x[std::min(c + 1, channels - 1)]};
            const auto alone = run(pair, 200);
            EXPECT_EQ(whole[c], alone[0]) << channels << ", " << c;
            if (c + 1 < channels) {
                EXPECT_EQ(whole[c + 1], alone[1]) << channels << ", " << c;
            }
        }
    }
}

TYPED_TEST(Chains, RecoverFromBadSamplesWithoutTouchingOtherPairs)
{
    using T = TypeParam;
    Channels<T> x(4, noise<T>(320));
    const auto clean = x;
    x[1][40] = std::numeric_limits<T>::quiet_NaN();
    const auto run = [&](const Channels<T>& in) {
        SectionChain<T> chain;
        chain.prepare(3, 4);
        for (int s = 0; s < 3; ++s) chain.set(s, made<T>(s, 0));
        return inBlocks(in, 320,
                        [&](T* const* part, GridSlice slice, int) { chain.process(part, slice); });
    };
    const auto y = run(x), wanted = run(clean);
    EXPECT_EQ(y[2], wanted[2]);
    EXPECT_EQ(y[3], wanted[3]);
    for (const int c : {0, 1}) EXPECT_TRUE(isFinite(y[std::size_t(c)], 64));
}

TYPED_TEST(Chains, InBlocksAreTheSectionsOneByOneHoweverDivided)
{
    using T = TypeParam;
    Channels<T> x;
    for (unsigned c = 0; c < 3; ++c) x.push_back(noise<T>(640, c));
    // A corner at which single precision has few digits to spare.
    const auto low = SectionCoefficients<T>::highPass(30, 0.7, 384000);
    const auto run = [&](int block) {
        SectionChain<T> chain;
        chain.prepare(2, 3, SectionForm::Blocks);
        return inBlocks(x, block, [&](T* const* part, GridSlice slice, int at) {
            for (int side = 0; slice.begins() && side < 2; ++side) {
                if (at == 0) chain.set(0, side, made<T>(3, side)), chain.set(1, side, low);
                if (at == 320) chain.glide(0, side, made<T>(3, side, 1));
            }
            chain.process(part, slice);
        });
    };
    const auto whole = run(640);
    for (const int block : {1, 5, 8, 24}) EXPECT_EQ(run(block), whole) << block;
    for (std::size_t c = 0; c < 3; ++c) {
        SectionRamp<T> ramp;
        ramp.snap(made<T>(3, int(c % 2)));
        SectionState<T> state;
        SectionState<double> second;
        const SectionCoefficients<double> still{low.r, low.b1, low.b2, low.c1, low.c2, low.d};
        auto wanted = x[c];
        for (int at = 0; at < 640; at += kSubBlock) {
            ramp.follow(made<T>(3, int(c % 2), at < 320 ? 0 : 1));
            ramp.run(state, wanted.data() + at, kWholeSubBlock);
        }
        for (T& y : wanted) y = T(second.next(still, double(y)));
        EXPECT_LT(peakDifferenceDb(whole[c], wanted), db(this->kTolerance)) << c;
    }
}

/// Two channels of x through cuts that f(filters, frame) tunes.
template <typename T, class F>
Channels<T> cut(const typename CutFilters<T>::Design& design, const Signal<T>& x, int block, F&& f)
{
    CutFilters<T> filters;
    filters.prepare(design, 2, 48000, glideSubBlocks(48000));
    f(filters, -1);
    filters.reset();
    return inBlocks(Channels<T>{x, x}, block, [&](T* const* part, GridSlice slice, int at) {
        f(filters, at);
        filters.process(part, slice);
    });
}

TYPED_TEST(Chains, CutsAreButterworthAndCopyAtTheirNeutralEnds)
{
    using T = TypeParam;
    using Filters = CutFilters<T>;
    constexpr std::size_t kFrames = 48000;
    for (const int order : {2, 4}) {
        const typename Filters::Design design{order, order, 20, 16000};
        const auto x = noise<T>(2000);
        // Ends read back from text; a high cut that the rate has no room for.
        for (const auto& [low, high] :
             {std::pair{20.0f, 16000.0f}, {20.00003f, 15999.99f}, {20, 21601}}) {
            const auto y = cut<T>(design, x, 2000, [&, low = low, high = high](Filters& f, int at) {
                f.tune(low, high);
                EXPECT_TRUE(at < 0 || f.isIdle());
            });
            EXPECT_EQ(y[1], x);
        }
        for (const double f : {50.0, 300.0, 4000.0, 12000.0}) {
            const auto tone = sine<T>(kFrames, f, 48000);
            const auto y = cut<T>(design, tone, 48000, [](Filters& c, int) { c.tune(300, 4000); });
            const auto away = [&](double corner) {
                return std::tan(std::numbers::pi * f / 48000) /
                       std::tan(std::numbers::pi * corner / 48000);
            };
            const double wanted = 1 / std::sqrt((1 + std::pow(away(4000), 2 * order)) *
                                                (1 + std::pow(away(300), -2 * order)));
            EXPECT_NEAR(amplitudeAt(y[0], f, 48000, 24000, 48000), wanted, 1e-5) << f;
        }
    }
}

TYPED_TEST(Chains, CutsComeAndGoWithoutATickAndTheSameAtAllBlockLengths)
{
    using T = TypeParam;
    using Filters = CutFilters<T>;
    const auto tone = sine<T>(9600, 440, 48000);
    for (const auto& design : {typename Filters::Design{2, 2, 20, 16000}, {4, 4, 20, 16000}}) {
        const auto run = [&](int block) {
            return cut<T>(design, tone, block, [](Filters& f, int at) {
                if (at < 2400)
                    f.tune(20, 16000);
                else if (at < 4800)
                    f.tune(300, 900);
                else
                    f.tune(20, 16000);
            });
        };
        const auto y = run(9600);
        EXPECT_EQ(Signal<T>(y[0].begin(), y[0].begin() + 2400),
                  Signal<T>(tone.begin(), tone.begin() + 2400));
        EXPECT_EQ(Signal<T>(y[0].end() - 2400, y[0].end()),
                  Signal<T>(tone.end() - 2400, tone.end()));
        EXPECT_LT(rms(y[0], 3600, 4800), 0.98 * rms(tone, 3600, 4800));
        EXPECT_LT(largestStep(y[0]), 1.1 * largestStep(tone));
        for (const int block : {1, 7, 32}) EXPECT_EQ(run(block), y) << block;
    }
}

}  // namespace
}  // namespace quillworks
