// SPDX-License-Identifier: ISC
#include "dsp/fft.h"

#include "tests/dsp/counting_memory.h"
#include "tests/support/audio_thread_guard.h"
#include "tests/support/signals.h"
#include "vectorlib/vector_library.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <complex>
#include <gtest/gtest.h>
#include <numbers>
#include <thread>
#include <vector>

namespace quillworks {
namespace {

using test::noise;

/// Bins of a direct transform with its angles reduced exactly and its sums in long double.
class DirectDft {
public:
    explicit DirectDft(std::size_t n) : turn_(n)
    {
        const long double step = 2 * std::numbers::pi_v<long double> / static_cast<long double>(n);
        for (std::size_t i = 0; i < n; ++i)
            turn_[i] = std::polar(1.0L, -step * static_cast<long double>(i));
    }
    template <typename T> std::complex<long double> bin(const std::vector<T>& x, std::size_t k)
    {
        std::complex<long double> sum = 0;
        for (std::size_t i = 0; i < x.size(); ++i)
            sum += turn_[k * i % x.size()] * static_cast<long double>(x[i]);
        return sum;
    }

private:
    std::vector<std::complex<long double>> turn_;
};

template <typename T> std::complex<long double> unpacked(const std::vector<T>& s, std::size_t k)
{
    if (k == 0) return s[0];
    if (k == s.size() / 2) return s[1];
    return {s[2 * k], s[2 * k + 1]};
}

template <typename T> double relativeRms(const std::vector<T>& a, const std::vector<T>& b)
{
    double error = 0, power = 0;
    for (std::size_t i = 0; i < a.size(); ++i) {
        error += std::pow(double(a[i]) - double(b[i]), 2);
        power += std::pow(double(b[i]), 2);
    }
    return std::sqrt(error / power);
}

template <typename T> class FftOf : public ::testing::Test {
protected:
    static constexpr bool isFloat = sizeof(T) == 4;
    Fft<T> fft;
};
using Precisions = ::testing::Types<float, double>;
TYPED_TEST_SUITE(FftOf, Precisions);

/// RMS error of a spectrum relative to the direct one: all bins of short ones, of long ones some at
/// either end and in the middle.
template <typename T> double spectrumError(const std::vector<T>& x, const std::vector<T>& spectrum)
{
    const std::size_t nyquist = x.size() / 2;
    DirectDft direct(x.size());
    long double error = 0, power = 0;
    for (std::size_t k = 0; k <= nyquist; ++k) {
        const bool isNearEdge =
            std::min({k, nyquist - k, k > nyquist / 2 ? k - nyquist / 2 : nyquist / 2 - k}) < 12;
        if (nyquist > 512 && !isNearEdge) continue;
        const auto expected = direct.bin(x, k);
        error += std::norm(unpacked(spectrum, k) - expected);
        power += std::norm(expected);
    }
    return static_cast<double>(std::sqrt(error / power));
}

TYPED_TEST(FftOf, AgreesWithADirectTransformInPackedOrder)
{
    using T = TypeParam;
    for (std::uint32_t n = 2; n <= 65536; n *= 2) {
        const auto x = noise<T>(n);
        std::vector<T> spectrum(n);
        this->fft.setSize(n);
        this->fft.forward(x.data(), spectrum.data());
        EXPECT_LE(spectrumError(x, spectrum), this->isFloat ? 3e-7 : 1e-15) << n;
    }
}

TYPED_TEST(FftOf, HoldsOnEveryInstructionSet)
{
    using T = TypeParam;
    using namespace DSP::VectorLib;
    for (const int set : {kPermitSse2, kPermitAvx2, kPermitAvx512}) {
        if (!packed::kernels<T>(set).split) continue;
        Fft<T> fft(set);
        for (std::uint32_t n = 2; n <= 256; n *= 2) {
            const auto x = noise<T>(n);
            std::vector<T> s(n), back(n), square(n);
            fft.setSize(n);
            fft.forward(x.data(), s.data());
            fft.inverse(s.data(), back.data());
            fft.multiply(s.data(), s.data(), square.data());
            EXPECT_LE(spectrumError(x, s), this->isFloat ? 3e-7 : 1e-15) << n;
            EXPECT_LE(relativeRms(back, x), this->isFloat ? 5e-7 : 2e-15) << n;
            for (std::size_t k = 0; k <= n / 2; ++k) {
                const auto expected = unpacked(s, k) * unpacked(s, k);
                EXPECT_LE(std::abs(unpacked(square, k) - expected),
                          std::abs(expected) * (this->isFloat ? 2e-7 : 4e-16))
                    << n << " bin " << k << " on set " << set;
            }
        }
    }
}

TYPED_TEST(FftOf, InverseGivesTheSignalBackFromAnyBufferAndWithoutTheHeap)
{
    using T = TypeParam;
    const auto transform = [](auto&& call) {
        test::AudioThreadGuard guard;
        call();
    };
    for (const int order : {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16, 17, 19}) {
        const std::size_t n = std::size_t{1} << order;
        const auto x = noise<T>(n);
        this->fft.setSize(static_cast<std::uint32_t>(n));
        AlignedBuffer<T> from(n + 1), spectrum(n + 1), to(n + 1);
        std::vector<T> expected;
        for (const std::size_t misfit : {0u, 1u}) {
            T *const a = from.data() + misfit, *const s = spectrum.data() + misfit;
            T* const b = to.data() + misfit;
            std::copy(x.begin(), x.end(), a);
            transform([&] { this->fft.forward(a, s); });
            ASSERT_TRUE(std::equal(x.begin(), x.end(), a)) << n << ": the signal is only read";
            const std::vector<T> kept(s, s + n);
            transform([&] { this->fft.inverse(s, b); });
            ASSERT_TRUE(std::equal(kept.begin(), kept.end(), s)) << n << ": so is the spectrum";
            transform([&] { this->fft.forward(a, a); });
            ASSERT_TRUE(std::equal(kept.begin(), kept.end(), a)) << n << ": in place";
            transform([&] { this->fft.inverse(a, a); });
            ASSERT_TRUE(std::equal(b, b + n, a)) << n << ": in place";
            EXPECT_LE(relativeRms(std::vector<T>(b, b + n), x), this->isFloat ? 5e-7 : 2e-15) << n;
            EXPECT_TRUE(misfit == 0 || kept == expected) << n << ": any alignment";
            expected = kept;
        }
    }
}

TYPED_TEST(FftOf, ProductOfSpectraIsCircularConvolution)
{
    using T = TypeParam;
    for (const std::uint32_t n : {1u, 2u, 4u, 8u, 16u, 128u, 512u}) {
        const auto x = noise<T>(n, 1), y = noise<T>(n, 2);
        std::vector<T> expected(n);
        for (std::size_t i = 0; i < n; ++i) {
            long double sum = 0;
            for (std::size_t j = 0; j < n; ++j)
                sum +=
                    static_cast<long double>(x[j]) * static_cast<long double>(y[(i + n - j) % n]);
            expected[i] = static_cast<T>(sum);
        }
        this->fft.setSize(n);
        std::vector<T> a(n), b(n), c(n);
        this->fft.forward(x.data(), a.data());
        this->fft.forward(y.data(), b.data());
        this->fft.multiply(a.data(), b.data(), c.data());
        this->fft.multiply(a.data(), b.data(), b.data());
        EXPECT_EQ(b, c);
        this->fft.inverse(c.data(), c.data());
        EXPECT_LE(relativeRms(c, expected), this->isFloat ? 1e-6 : 4e-15) << n;
    }
}

TYPED_TEST(FftOf, BinsMapToTheStoredSize)
{
    using T = TypeParam;
    std::vector<T> s{3, 5, 1, 2, 4, 6, 7, 8};
    this->fft.setSize(8);
    const T powers[] = {9, 5, 52, 113, 25, 25, 25};
    for (std::uint32_t k = 0; k < 7; ++k)
        EXPECT_EQ(this->fft.binPower(s.data(), k), powers[k]) << k;
    this->fft.scaleBin(s.data(), 0, 2);
    this->fft.scaleBin(s.data(), 2, 3);
    this->fft.scaleBin(s.data(), 4, 4);
    this->fft.scaleBin(s.data(), 9, 2);
    EXPECT_EQ(s, (std::vector<T>{6, 40, 1, 2, 12, 18, 7, 8}));

    this->fft.setSize(6);  // transformed as 8, but its upper half starts at bin 3
    EXPECT_EQ(this->fft.binPower(s.data(), 2), 144 + 324);
    EXPECT_EQ(this->fft.binPower(s.data(), 3), 1600);
    this->fft.setSize(1);
    EXPECT_EQ(this->fft.binPower(s.data(), 1), 36);
}

TYPED_TEST(FftOf, SizesRoundUpToTheNextPowerOfTwo)
{
    for (const auto& [n, order] :
         {std::pair{1u, 0}, {2u, 1}, {3u, 2}, {1000u, 10}, {1024u, 10}, {1025u, 11}}) {
        this->fft.setSize(n);
        EXPECT_EQ(this->fft.size(), n);
        EXPECT_EQ(this->fft.order(), order) << n;
        EXPECT_EQ(this->fft.length(), std::size_t{1} << order);
        EXPECT_TRUE(this->fft.isReady());
    }
}

TYPED_TEST(FftOf, AllocatesWhenAByteCountChangesOnly)
{
    using T = TypeParam;
    CountingMemory memory;
    const auto allocationsOf = [&](std::uint32_t n) {
        const int before = memory.allocations;
        this->fft.setSize(n);
        return memory.allocations - before;
    };
    EXPECT_EQ(allocationsOf(1024), 2);  // work and twiddles
    {
        test::AudioThreadGuard guard;  // a guard against planning anew, here and below
        EXPECT_EQ(allocationsOf(1024), 0);
        EXPECT_EQ(allocationsOf(1000), 0);
    }
    EXPECT_EQ(this->fft.size(), 1000u);
    std::vector<T> x = noise<T>(1024), y(1024), z(1024);
    this->fft.forward(x.data(), y.data());
    EXPECT_FALSE(this->fft.isDivisionRequested());
    {
        test::AudioThreadGuard guard;
        this->fft.divideInverseByN(false);
    }
    EXPECT_TRUE(this->fft.isDivisionRequested());
    this->fft.forward(x.data(), z.data());
    EXPECT_EQ(y, z);
    EXPECT_EQ(memory.allocations, 2);
    EXPECT_EQ(allocationsOf(256), 2);
    EXPECT_EQ(memory.releases, 2);
    EXPECT_EQ(allocationsOf(0), 0);
    EXPECT_EQ(memory.releases, 4);
}

TYPED_TEST(FftOf, GivesZerosWithoutMemoryAndRecoversWithTheNextSize)
{
    using T = TypeParam;
    CountingMemory memory;
    memory.isExhausted = true;
    this->fft.setSize(64);
    EXPECT_FALSE(this->fft.isReady());
    EXPECT_EQ(this->fft.size(), 64u);
    std::vector<T> x = noise<T>(64), y(65, T(7));
    this->fft.forward(x.data(), y.data());
    EXPECT_EQ(std::count(y.begin(), y.end(), T(0)), 64);
    y.assign(65, T(7));
    this->fft.inverse(x.data(), y.data());
    EXPECT_EQ(std::count(y.begin(), y.end(), T(0)), 64);
    memory.isExhausted = false;
    this->fft.setSize(32);
    EXPECT_TRUE(this->fft.isReady());
    this->fft.setSize(2u << Fft<T>::kMaxOrder);
    EXPECT_FALSE(this->fft.isReady()) << "beyond the largest order";
}

TEST(Fft, RepeatablePlansKnowNothingOfMeasuredOnes)
{
    const std::size_t n = 8192;
    const auto x = noise<float>(n, 1);
    const auto spectrum = [&](FftPlanning planning) {
        Fft<float> fft;
        fft.setSize(n, planning);
        std::vector<float> bins(n);
        fft.forward(x.data(), bins.data());
        return bins;
    };
    const auto before = spectrum(FftPlanning::Repeatable);
    spectrum(FftPlanning::Measured);
    EXPECT_EQ(spectrum(FftPlanning::Repeatable), before);
}

TEST(Fft, ObjectsWorkOnThreadsOfTheirOwnWhileOthersArePlanned)
{
    const std::size_t n = 2048;
    std::atomic<bool> isPlanned = false;
    std::atomic<int> faults = 0, rounds = 0;
    const auto work = [&]<typename T>(Fft<T>& fft, unsigned seed) {
        const auto x = noise<T>(n, seed);
        std::vector<T> expected(n), spectrum(n), back(n);
        fft.forward(x.data(), expected.data());
        do {
            fft.forward(x.data(), spectrum.data());
            fft.inverse(spectrum.data(), back.data());
            faults += spectrum != expected || relativeRms(back, x) > 5e-7;
            ++rounds;
        } while (!isPlanned || rounds < 100);
    };
    Fft<float> a, b;
    Fft<double> c;
    a.setSize(n);
    b.setSize(n);
    c.setSize(n);
    std::thread threads[] = {std::thread([&] { work(a, 1); }), std::thread([&] { work(b, 2); }),
                             std::thread([&] { work(c, 3); })};
    const auto plan = [] {
        for (int i = 0; i < 100; ++i)
            for (std::uint32_t size = 4; size <= 1024; size *= 2) {
                Fft<float> other;
                other.setSize(size);
                Fft<double> third;
                third.setSize(size);
            }
    };
    std::thread planner(plan);
    plan();
    planner.join();
    isPlanned = true;
    for (auto& t : threads) t.join();
    EXPECT_EQ(faults, 0);
}

}  // namespace
}  // namespace quillworks
