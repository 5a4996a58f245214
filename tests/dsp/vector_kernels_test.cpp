// SPDX-License-Identifier: ISC
// Every kernel against its scalar law, on every instruction set of this processor.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <span>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

#include "dsp/vector_table.h"
#include "vectorlib/reference.h"

namespace quillworks {
namespace {

namespace lib = DSP::VectorLib;
using lib::Result;

/// Bytes that end where an unreadable page begins, or `offset` bytes from an aligned address;
/// around them others, which must survive beside destinations and are NaN beside sources.
class Guarded {
public:
    Guarded() : size_(static_cast<std::size_t>(sysconf(_SC_PAGESIZE)))
    {
        base_ = static_cast<std::byte*>(
            mmap(nullptr, 2 * size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        mprotect(base_ + size_, size_, PROT_NONE);
    }
    ~Guarded() { munmap(base_, 2 * size_); }
    Guarded(const Guarded&) = delete;
    Guarded& operator=(const Guarded&) = delete;

    void* place(std::span<const std::byte> bytes, int offset)
    {
        std::fill(base_, base_ + size_, kAround);
        at_ = offset < 0 ? base_ + size_ - bytes.size() : base_ + 512 + offset;
        std::copy(bytes.begin(), bytes.end(), at_);
        return at_;
    }
    bool untouchedAround(std::size_t size) const
    {
        const auto isAround = [](std::byte b) { return b == kAround; };
        return std::all_of(base_, at_, isAround) &&
               std::all_of(at_ + size, base_ + size_, isAround);
    }

private:
    static constexpr std::byte kAround{0xff};
    std::size_t size_;
    std::byte *base_, *at_ = nullptr;
};

constexpr int kMaxCount = 70;
constexpr unsigned kSeed = 20240611;

/// Noise with the special values strewn in.
template <class T> std::vector<T> samples(std::mt19937& random)
{
    using L = std::numeric_limits<T>;
    const T specials[] = {0,
                          -T(0),
                          1,
                          -1,
                          L::infinity(),
                          -L::infinity(),
                          L::quiet_NaN(),
                          L::denorm_min(),
                          L::max(),
                          L::lowest(),
                          L::min()};
    std::uniform_real_distribution<T> noise(-2, 2);
    std::vector<T> x(kMaxCount);
    for (auto& v : x) v = random() % 4 ? noise(random) : specials[random() % std::size(specials)];
    return x;
}

template <class T> T element(std::span<const std::byte> bytes, int i)
{
    T x;
    std::memcpy(&x, bytes.data() + static_cast<std::size_t>(i) * sizeof x, sizeof x);
    return x;
}

/// The same bits. Bytes of the other precision may be NaNs of many kinds; which of two of them a
/// sum keeps is the compiler's choice.
template <class T> bool agree(T a, T b, bool anyNaN)
{
    return std::memcmp(&a, &b, sizeof a) == 0 || (anyNaN && std::isnan(a) && std::isnan(b));
}

void callKernel(lib::RawKernel kernel, const std::vector<void*>& p, int n)
{
    using P = void*;
    // clang-format off
    switch (p.size()) {
    case 1: return reinterpret_cast<void (*)(P, int)>(kernel)(p[0], n);
    case 2: return reinterpret_cast<void (*)(P, P, int)>(kernel)(p[0], p[1], n);
    case 3: return reinterpret_cast<void (*)(P, P, P, int)>(kernel)(p[0], p[1], p[2], n);
    case 4: return reinterpret_cast<void (*)(P, P, P, P, int)>(kernel)(p[0], p[1], p[2], p[3], n);
    case 5: return reinterpret_cast<void (*)(P, P, P, P, P, int)>(kernel)(p[0], p[1], p[2], p[3], p[4], n);
    }
    // clang-format on
    FAIL() << "no such calling form";
}

/// Checks the kernels of `name` against the law, apart and with each source in turn at the address
/// of the destination.
template <class Law, class D, class S, class C>
void expectLaw(const char* name, int sources, int constants, Result result, int permitted)
{
    using Work = std::conditional_t<(sizeof(D) > sizeof(S)), D, S>;
    constexpr bool isMixed = sizeof(D) != sizeof(S);
    lib::VectorOpTableEntryRaw entry{name, {}};
    ASSERT_TRUE(lib::vectorLibraryBindFunction(&entry, permitted)) << name;
    for (int k = 0; k < 16; ++k) ASSERT_EQ(entry.slots[k], entry.slots[k + 16]) << name;

    std::mt19937 random(kSeed);
    Guarded d, s[2];
    C c[3] = {C(constants == 3 ? 0.1 : 0.7), C(-0.9), C(0.3)};
    for (int n = 1; n <= kMaxCount; ++n) {
        const auto dest = samples<D>(random);
        const std::vector<S> source[] = {samples<S>(random), samples<S>(random)};
        const auto bytesOf = [n](const auto& x) {
            return std::as_bytes(std::span(x).first(static_cast<std::size_t>(n)));
        };
        for (int inPlace = 0; inPlace <= sources; ++inPlace) {
            // In place, the source's bytes are the destination's too.
            std::vector<std::byte> memory(bytesOf(dest).begin(), bytesOf(dest).end());
            if (inPlace > 0) {
                const auto bytes = bytesOf(source[inPlace - 1]);
                memory.resize(std::max(memory.size(), bytes.size()));
                std::copy(bytes.begin(), bytes.end(), memory.begin());
            }
            std::vector<D> expected;
            D expectedPeak = 0;
            const Work step = (Work(c[1]) - Work(c[0])) / Work(n);
            for (int i = 0; i < n; ++i) {
                const auto k = static_cast<std::size_t>(i);
                const D was = element<D>(memory, i);
                const D value = static_cast<D>(
                    Law::of(Work(was), Work(source[0][k]), Work(source[1][k]), Work(c[0]),
                            Work(c[1]), Work(c[2]), Work(c[1]) - step * Work(n - 1 - i), Work(0)));
                expected.push_back(result == Result::Meters ? was : value);
                expectedPeak = lib::reference::max(std::fabs(value), expectedPeak);
            }
            for (int offset = -1; offset < 16; ++offset) {  // -1: against the unreadable page
                const auto place = [&](Guarded& g, std::span<const std::byte> bytes, auto size,
                                       int turn) {
                    return g.place(bytes, offset < 0 ? -1 : (offset + turn) % 16 * int(size));
                };
                void* const out =
                    place(d, memory, inPlace > 0 ? std::max(sizeof(D), sizeof(S)) : sizeof(D), 0);
                std::vector<void*> p = {out};
                for (int i = 0; i < sources; ++i)
                    p.push_back(i + 1 == inPlace
                                    ? out
                                    : place(s[i], bytesOf(source[i]), sizeof(S), 5 + 6 * i));
                for (int i = 0; i < constants; ++i) p.push_back(&c[i]);
                D peak = -1;
                if (result != Result::Stores) p.push_back(&peak);
                callKernel(entry.slots[n % 16], p, n);

                const std::span after(static_cast<const std::byte*>(out), memory.size());
                for (int i = 0; i < n; ++i) {
                    const D is = element<D>(after, i), wanted = expected[std::size_t(i)];
                    ASSERT_TRUE(agree(is, wanted, isMixed && inPlace > 0))
                        << name << " n " << n << " offset " << offset << " in place " << inPlace
                        << " element " << i << ": " << is << ", not " << wanted;
                }
                const auto written = static_cast<std::size_t>(n) * sizeof(D);
                ASSERT_TRUE(std::equal(after.begin() + std::ptrdiff_t(written), after.end(),
                                       memory.begin() + std::ptrdiff_t(written)) &&
                            d.untouchedAround(memory.size()))
                    << name << " n " << n << " offset " << offset << " in place " << inPlace;
                if (result != Result::Stores) {
                    ASSERT_EQ(peak, expectedPeak) << name << " n " << n;
                }
            }
        }
    }
}

class VectorKernels : public ::testing::TestWithParam<int> {
protected:
    void SetUp() override
    {
        lib::VectorOpTableEntryRaw entry = makeVectorTable().entries[0];
        if (!lib::vectorLibraryBindFunction(&entry, GetParam()))
            GTEST_SKIP() << "not on this processor";
    }
};

TEST_P(VectorKernels, EqualTheirLawBitForBitApartAndInPlace)
{
#define TYPED(front, operation, operands, sources, constants, result, law)                         \
    expectLaw<lib::reference::front##Law, float, float, float>(                                    \
        operation "_float" operands, sources, constants, Result::result, GetParam());              \
    expectLaw<lib::reference::front##Law, double, double, double>(                                 \
        operation "_double" operands, sources, constants, Result::result, GetParam());
#define MIXED(id, front, name, D, S, C, constants, law)                                            \
    expectLaw<lib::reference::id##Law, D, S, C>(name, 1, constants, Result::Stores, GetParam());
    VECTORLIB_OPERATIONS(TYPED, MIXED)
#undef TYPED
#undef MIXED
}

INSTANTIATE_TEST_SUITE_P(Sets, VectorKernels,
                         ::testing::Values(lib::kPermitScalar, lib::kPermitSse2, lib::kPermitAvx2,
                                           lib::kPermitAvx512, lib::kPermitAll),
                         [](const auto& info) {
                             return info.param == 8   ? "Scalar"
                                    : info.param == 1 ? "Sse2"
                                    : info.param == 2 ? "Avx2"
                                    : info.param == 4 ? "Avx512"
                                                      : "All";
                         });

TEST(VectorLibrary, KeepsToWhatTheEnvironmentAllows)
{
    const char* const best = std::getenv("QUILLWORKS_SIMD");
    if (best == nullptr) GTEST_SKIP() << "it allows everything";
    constexpr std::pair<const char*, int> kSets[] = {{"scalar", lib::kPermitScalar},
                                                     {"sse2", lib::kPermitSse2},
                                                     {"avx2", lib::kPermitAvx2},
                                                     {"avx512", lib::kPermitAvx512}};
    const auto named = [=](const auto& set) { return std::string_view(set.first) == best; };
    const auto* const last = std::find_if(std::begin(kSets), std::end(kSets), named);
    ASSERT_NE(last, std::end(kSets)) << best;
    for (const auto* set = last + 1; set != std::end(kSets); ++set)
        EXPECT_EQ(lib::availableTargets(set->second) & ~lib::availableTargets(last->second), 0)
            << set->first;
    EXPECT_NE(lib::availableTargets(lib::kPermitAll), 0);
}

TEST(VectorLibrary, KeepsToThePermittedSets)
{
    lib::VectorOpTableEntryRaw narrow{"opAddCopy_float_d1_s1_s2_num", {}}, best = narrow,
                                                                           none = narrow;
    ASSERT_TRUE(lib::vectorLibraryBindFunction(&narrow, lib::kPermitSse2));
    ASSERT_TRUE(lib::vectorLibraryBindFunction(&best, lib::kPermitAll));
    lib::VectorOpTableEntryRaw wider{narrow.name, {}};
    if (lib::vectorLibraryBindFunction(&wider, lib::kPermitAvx2)) {
        EXPECT_NE(narrow.slots[3], wider.slots[3]);
        EXPECT_NE(narrow.slots[3], best.slots[3]);
    }
    EXPECT_FALSE(lib::vectorLibraryBindFunction(&none, 0));
    EXPECT_EQ(none.slots[3], nullptr);
    for (const char* unknown :
         {"opAddCopy_float_d1_s1_s2", "opAddCopy", "opAddCopy_int_d1_s1_s2_num", "",
          "opFloatToDouble_d1_s1_num_float"}) {
        none.name = unknown;
        EXPECT_FALSE(lib::vectorLibraryBindFunction(&none, lib::kPermitAll)) << unknown;
    }
}

}  // namespace
}  // namespace quillworks
