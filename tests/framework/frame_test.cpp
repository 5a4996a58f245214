// SPDX-License-Identifier: ISC
// What the frame does around every effect.
#include "tests/support/effect_under_test.h"

namespace quillworks::test {
namespace {

TEST(Frame, PassesAudioThrough)
{
    EffectUnderTest<float> fx("Phaser");
    const auto x = noise<float>(1000);
    EXPECT_EQ(fx.run(x), x);
}

TEST(AudioThreadGuard, SeesAnAllocation)
{
    {
        AudioThreadGuard outer;  // the inner end would report; this one looks first
        void* volatile p = ::operator new(1000);
        EXPECT_STREQ(AudioThreadGuard::takeViolation(), "malloc");
        ::operator delete(p);
        AudioThreadGuard::takeViolation();
    }
}

}  // namespace
}  // namespace quillworks::test
