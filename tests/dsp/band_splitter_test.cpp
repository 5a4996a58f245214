// SPDX-License-Identifier: ISC
// Bands in lanes against sections one by one, on every instruction set; the sum of the bands.
#include "dsp/band_splitter.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <complex>
#include <limits>
#include <string>
#include <vector>

#include "dsp/band_splitter_kernels.h"
#include "tests/support/audio_thread_guard.h"
#include "tests/support/signals.h"
#include "vectorlib/vector_library.h"

namespace quillworks {
namespace {

using namespace test;
using namespace DSP::VectorLib;

template <typename T> class Splitter : public ::testing::Test {
protected:
    static constexpr double kTolerance = sizeof(T) == 4 ? 2e-6 : 4e-15;
};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(Splitter, Precisions);

/// Coefficients that move, for the splits of both sides, with room to read too far.
template <typename T> struct Rows {
    std::vector<T> to[3], step[3], z[6];
    std::vector<SectionRamp<T>> pass, low;  // by split

    explicit Rows(bool moves)
    {
        for (auto* row : {to, to + 1, to + 2, step, step + 1, step + 2}) row->assign(16, T(0));
        for (auto& row : z) row.assign(16, T(0));
        for (int s = 0; s < 4; ++s) {
            const double f = 200 * std::exp2(1.3 * s), after = moves ? 1.5 * f : f;
            using C = SectionCoefficients<T>;
            pass.emplace_back().snap(C::allPass(f, kButterworthQ, 48000));
            pass.back().follow(C::allPass(after, kButterworthQ, 48000));
            low.emplace_back().snap(C::lowPass(f, kButterworthQ, 48000));
            low.back().follow(C::lowPass(after, kButterworthQ, 48000));
            for (std::size_t lane = std::size_t(2 * s); lane < std::size_t(2 * s + 2); ++lane) {
                to[0][lane] = pass.back().end().r, step[0][lane] = pass.back().step().r;
                to[1][lane] = pass.back().end().b1, step[1][lane] = pass.back().step().b1;
                to[2][lane] = pass.back().end().b2, step[2][lane] = pass.back().step().b2;
                for (std::size_t k = 0; k < 6; ++k) z[k][lane] = T(0.01 * double(k * lane));
            }
        }
    }
    /// The bands of x, and their sum behind the all-passes.
    Channels<T> modelled(const Signal<T>& x, int splits, int side, GridSlice slice) const
    {
        Channels<T> bands;
        auto rest = x;
        const auto state = [&](int k, int s) {
            const auto lane = std::size_t(2 * s + side);
            return SectionState<T>{z[k][lane], z[k + 1][lane]};
        };
        for (int s = 0; s < splits; ++s) {
            auto first = state(0, s), same = first, second = state(2, s);
            auto below = rest;
            low[std::size_t(s)].run(first, below.data(), slice);
            low[std::size_t(s)].run(second, below.data(), slice);
            pass[std::size_t(s)].run(same, rest.data(), slice);
            for (std::size_t i = 0; i < rest.size(); ++i) rest[i] -= below[i];
            bands.push_back(below);
        }
        bands.push_back(rest);
        Signal<T> sum(x.size(), T(0));
        for (int j = 0; j + 1 < splits; ++j) {
            auto s = state(4, j);
            for (std::size_t i = 0; i < sum.size(); ++i) sum[i] += bands[std::size_t(j)][i];
            pass[std::size_t(j + 1)].run(s, sum.data(), slice);
        }
        bands.push_back(sum);
        return bands;
    }
};

TYPED_TEST(Splitter, LanesAreTheSectionsOneByOneAtEveryCountAndInstructionSet)
{
    using T = TypeParam;
    constexpr std::ptrdiff_t kStride = kSubBlock + 16;
    for (const int set : {kPermitScalar, kPermitSse2, kPermitAvx2, kPermitAvx512}) {
        const auto* kernels = bandKernels<T>(set);
        if (!kernels) continue;
        for (int splits = 1; splits <= 4; ++splits)
            for (int n = 1; n <= kSubBlock; ++n)
                for (const bool moves : {false, true}) {
                    SCOPED_TRACE(std::to_string(set) + ": " + std::to_string(splits) + " x " +
                                 std::to_string(n));
                    const GridSlice slice{n, (kSubBlock - n) / 2};
                    const Channels<T> x{noise<T>(std::size_t(n), 1), noise<T>(std::size_t(n), 2)};
                    Rows<T> rows(moves);
                    const Channels<T> wanted[2] = {rows.modelled(x[0], splits, 0, slice),
                                                   rows.modelled(x[1], splits, 1, slice)};
                    std::vector<T> bands(10 * kStride);
                    SplitRun<T> split{};
                    JoinRun<T> join{};
                    for (int k = 0; k < 3; ++k) {
                        split.to[k] = rows.to[k].data(), split.step[k] = rows.step[k].data();
                        join.to[k] = split.to[k] + 2, join.step[k] = split.step[k] + 2;
                    }
                    for (int k = 0; k < 4; ++k) split.z[k] = rows.z[k].data();
                    join.z[0] = rows.z[4].data(), join.z[1] = rows.z[5].data();
                    split.frames = join.frames = n, split.phase = join.phase = slice.phase;
                    split.moves = join.moves = moves;
                    split.count = splits, join.count = splits - 1;
                    split.stride = join.stride = kStride;
                    split.band = bands.data() + 8, join.band = split.band;
                    Channels<T> sum(2, Signal<T>(std::size_t(n)));
                    for (std::size_t c = 0; c < 2; ++c)
                        split.channel[c] = x[c].data(), join.channel[c] = sum[c].data();
                    kernels->split(split);
                    if (join.count > 0) kernels->join(join);
                    for (int c = 0; c < 2; ++c) {
                        for (int b = 0; b <= splits; ++b) {
                            const T* const row = split.band + (2 * b + c) * kStride;
                            ASSERT_LT(peakDifferenceDb(Signal<T>(row, row + n),
                                                       wanted[c][std::size_t(b)]),
                                      db(this->kTolerance))
                                << b;
                        }
                        ASSERT_LT(peakDifferenceDb(sum[std::size_t(c)], wanted[c].back()),
                                  db(this->kTolerance));
                    }
                }
    }
}

/// Channels through bands of which f(bands, slice) may change what it likes.
template <typename T, class F>
Channels<T> through(BandSplitter<T>& splitter, Channels<T> x, int block, F&& f)
{
    const int frames = static_cast<int>(x[0].size());
    BandRows<T> bands;
    for (int at = 0; at < frames;) {
        const GridSlice slice{
            std::min({frames - at, block - at % block, kSubBlock - at % kSubBlock}),
            at % kSubBlock};
        const AudioThreadGuard guard;
        splitter.begin(slice);
        for (std::size_t c = 0; c < x.size(); c += 2) {
            T* const left = x[c].data() + at;
            T* const right = c + 1 < x.size() ? x[c + 1].data() + at : nullptr;
            splitter.split(int(c / 2), left, right, bands, slice);
            f(bands, at);
            splitter.join(int(c / 2), bands, left, right, slice);
        }
        EXPECT_EQ(AudioThreadGuard::takeViolation(), nullptr);
        at += slice.frames;
    }
    return x;
}

constexpr auto kUntouched = [](auto&, int) {};

TYPED_TEST(Splitter, BandsAddUpToAnAllPassInAnyOrderOfTheSplits)
{
    using T = TypeParam;
    for (const auto& splits : std::vector<std::vector<double>>{
             {700}, {160, 2500}, {2500, 160}, {100, 500, 2500, 8000}, {9000, 9100, 80, 400}}) {
        BandSplitter<T> splitter;
        splitter.setBands(int(splits.size()) + 1);
        for (std::size_t s = 0; s < splits.size(); ++s) splitter.target(int(s), splits[s]);
        splitter.prepare(48000, 1);
        Channels<T> x(2, Signal<T>(48000));
        x[0][0] = 1;
        const auto y = through(splitter, x, 480, kUntouched);
        for (const double f : {20.0, 100.0, 160.0, 500.0, 2000.0, 9000.0, 20000.0}) {
            std::complex<double> h = 0;
            for (std::size_t i = 0; i < y[0].size(); ++i)
                h += double(y[0][i]) *
                     std::polar(1.0, -2 * std::numbers::pi * f / 48000 * double(i));
            EXPECT_NEAR(20 * std::log10(std::abs(h)), 0, 1e-4) << f;
        }
        EXPECT_EQ(y[1], x[1]);
    }
}

TYPED_TEST(Splitter, SplitsGlideTheSameAtAllBlockLengthsAndBadSamplesPass)
{
    using T = TypeParam;
    const auto run = [](int block, T bad) {
        BandSplitter<T> splitter;
        splitter.setBands(5);
        for (int s = 0; s < 4; ++s) splitter.target(s, 100 * std::exp2(2 * s));
        splitter.prepare(44100, 2);
        Channels<T> x{noise<T>(3200, 1), noise<T>(3200, 2), noise<T>(3200, 3)};
        x[2][100] = bad;
        return through(splitter, x, block, [&](BandRows<T>& bands, int at) {
            if (at == 640)
                for (int s = 0; s < 4; ++s) splitter.target(s, 90 * std::exp2(1.5 * s));
            for (int i = 0; i < kSubBlock; ++i) bands.of(1, 0)[i] *= T(0.5);
        });
    };
    const auto whole = run(3200, 0);
    for (const int block : {1, 7, 32}) EXPECT_EQ(run(block, 0), whole) << block;
    const auto y = run(3200, std::numeric_limits<T>::quiet_NaN());
    EXPECT_EQ(y[0], whole[0]);
    EXPECT_TRUE(isFinite(y[2], 128));
}

}  // namespace
}  // namespace quillworks
