// SPDX-License-Identifier: ISC
// Partitioned convolution against the sum that it stands for.
#include "reverb/partitioned_convolver.h"

#include <gtest/gtest.h>

#include "tests/support/effect_under_test.h"

namespace quillworks::test {
namespace {

template <typename T> class Convolver : public ::testing::Test {
protected:
    static constexpr ConvolverPath kPaths[] = {{1, 1, 0}, {0, 0, 0}, {0, 1, 1}, {1, 2, 2}};

    /// Three responses: full, silent at both ends, a single tap at the end.
    explicit Convolver() : responses_(3) {}
    std::unique_ptr<PartitionedConvolver<T>> make(int length)
    {
        const auto n = static_cast<std::size_t>(length);
        responses_ = {noise<float>(n, 1), noise<float>(n, 2), Signal<float>(n)};
        for (std::size_t i = 0; i < n; ++i)
            if (i < n / 2 || i > n - n / 8) responses_[1][i] = 0;
        responses_[2].back() = 1;
        const float* const rows[] = {responses_[0].data(), responses_[1].data(),
                                     responses_[2].data()};
        return PartitionedConvolver<T>::make(2, 3, {std::begin(kPaths), std::end(kPaths)}, rows,
                                             length, {});
    }
    /// In calls of these lengths, in turn.
    static Channels<T> run(PartitionedConvolver<T>& convolver, const Channels<T>& x,
                           std::initializer_list<int> calls)
    {
        Channels<T> y(3, Signal<T>(x[0].size()));
        const int frames = static_cast<int>(x[0].size());
        auto call = calls.begin();
        for (int done = 0; done < frames;) {
            const int n = std::min(*call, frames - done);
            const T* const in[] = {x[0].data() + done, x[1].data() + done};
            T* const out[] = {y[0].data() + done, y[1].data() + done, y[2].data() + done};
            convolver.process(in, out, n);
            done += n;
            if (++call == calls.end()) call = calls.begin();
        }
        return y;
    }
    double directly(const Channels<T>& x, std::size_t output, std::size_t i) const
    {
        double sum = 0;
        for (const auto& path : kPaths) {
            if (path.output != static_cast<int>(output)) continue;
            const auto& in = x[static_cast<std::size_t>(path.input)];
            const auto& h = responses_[static_cast<std::size_t>(path.response)];
            for (std::size_t k = 0; k < h.size() && k <= i; ++k) sum += double(h[k]) * in[i - k];
        }
        return sum;
    }

private:
    Channels<float> responses_;
};
TYPED_TEST_SUITE(Convolver, Precisions);

TYPED_TEST(Convolver, IsTheSumOverAllTapsAtEveryLength)
{
    const bool isFloat = std::is_same_v<TypeParam, float>;
    for (const int length : {1, 63, 64, 65, 1024, 1100, 8193, 33000, 148000}) {
        const auto convolver = this->make(length);
        const auto frames = static_cast<std::size_t>(length + length / 3 + 2000);
        const Channels<TypeParam> x{noise<TypeParam>(frames, 3), noise<TypeParam>(frames, 4)};
        const auto y = this->run(*convolver, x, {480, 1, 31, 999});
        double error = 0, power = 0;
        for (std::size_t i = 0; i < frames; i += frames / 60 + 1)
            for (std::size_t o = 0; o < 3; ++o) {
                const double expected = this->directly(x, o, i);
                error += std::pow(y[o][i] - expected, 2);
                power += expected * expected;
            }
        EXPECT_LT(10 * std::log10(error / power), isFloat ? -122 : -260) << length << " taps";
    }
}

TYPED_TEST(Convolver, GivesTheSameBitsHoweverTheSignalIsDividedAndAfterReset)
{
    const auto convolver = this->make(20000);
    const Channels<TypeParam> x{noise<TypeParam>(30000, 5), noise<TypeParam>(30000, 6)};
    const auto whole = this->run(*convolver, x, {30000});
    for (const auto& calls : {std::initializer_list<int>{1}, {32}, {100}, {17, 512, 3, 64}}) {
        convolver->reset();
        EXPECT_EQ(this->run(*convolver, x, calls), whole) << *calls.begin();
    }
}

TYPED_TEST(Convolver, IsNotMadeOnceItIsCancelled)
{
    const Signal<float> h(30000, 1.0f);
    const float* const rows[] = {h.data()};
    int asked = 0;
    EXPECT_FALSE(PartitionedConvolver<TypeParam>::make(1, 1, {{0, 0, 0}}, rows, 30000,
                                                       [&] { return ++asked > 5; }));
}

}  // namespace
}  // namespace quillworks::test
