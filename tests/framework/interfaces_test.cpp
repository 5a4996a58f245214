// SPDX-License-Identifier: ISC
// Interfaces of an effect: each is had by its own identifier, and one more breaks none.
#include <set>
#include <span>
#include <type_traits>

#include "framework/pass_through.h"
#include "tests/framework/frame_fixture.h"
#include "vnk/effect_displays.h"
#include "vnk/hosted_effect.h"

namespace quillworks::test {
namespace {

/// What a later version might add.
class IExtra : public VNK::IObject {
public:
    static constexpr VNK::UID iid = VNK::UID::constant("{00000000-0000-4000-8000-000000000042}");
    virtual int answer() const noexcept = 0;

protected:
    ~IExtra() = default;
};

class ExtraComponent final : public VNK::Extended<AudioEffectComponent, IExtra> {
public:
    explicit ExtraComponent(AudioEffectAlgorithm& a) : Extended(a, EffectTraits{.viewPrefix = "X"})
    {}
    ~ExtraComponent() override { ++ended; }
    int answer() const noexcept override { return 42; }
    static inline int ended = 0;
};

template <class... Is> struct Interfaces {
    static std::set<VNK::UID> ids() { return {Is::iid...}; }
    static bool areOf(VNK::IObject* object)
    {
        return (... && (object->queryInterface(Is::iid) != nullptr));
    }
    static constexpr auto count = sizeof...(Is);
};
using All =
    Interfaces<VNK::IEffectComponent, VNK::IEffectParameters, VNK::IEffectGestures,
               VNK::IEffectMeters, VNK::IEffectState, VNK::IEffectPrograms, VNK::IEffectAttributes,
               VNK::IEffectViews, VNK::IEffectReadings, VNK::IEffectTexts, VNK::IEffectDisplays,
               VNK::IEffectAlgorithm, VNK::IClassFactory, VNK::IString, VNK::IMutableCString>;

TEST(Interfaces, HaveIdentifiersOfTheirOwn)
{
    EXPECT_EQ(All::ids().size(), All::count);
}

TEST(Interfaces, CarryPlainStructuresOnly)
{
    const auto isPlain = []<class... Ts>(Interfaces<Ts...>) {
        return (... && (std::is_trivially_copyable_v<Ts> && std::is_standard_layout_v<Ts>));
    };
    EXPECT_TRUE(
        isPlain(Interfaces<VNK::UID, VNK::ParameterInfo, VNK::MeterInfo, VNK::TextInfo,
                           VNK::Transport, VNK::ProcessData, VNK::SpeakerArrangement,
                           VNK::ClassAttribute, VNK::ClassDescription, VNK::ModuleInformation>{}));
}

TEST(Interfaces, OneMoreStandsBesideTheOthersAndAllShareOneCount)
{
    const auto algorithm = VNK::Ref<PassThroughAlgorithm>::adopt(new PassThroughAlgorithm);
    auto* const made = new ExtraComponent(*algorithm);
    auto host = VNK::HostedEffect::adopt(static_cast<VNK::IEffectComponent*>(made));
    ASSERT_TRUE(host);
    EXPECT_EQ(host.countParameters(), 1) << "a host that knows nothing of it";
    auto extra = host.queryInterface<IExtra>();
    ASSERT_TRUE(extra);
    EXPECT_EQ(extra->answer(), 42);
    EXPECT_TRUE(VNK::queryInterface<VNK::IEffectMeters>(extra.get())) << "and back";
    EXPECT_FALSE(VNK::queryInterface<IExtra>(algorithm.get()));
    ExtraComponent::ended = 0;
    host = {};
    EXPECT_EQ(ExtraComponent::ended, 0);
    extra = {};
    EXPECT_EQ(ExtraComponent::ended, 1);
    EXPECT_FALSE(VNK::HostedEffect(algorithm.get())) << "an algorithm is no component";
}

TEST_F(Frame, RunnerCutsWhereSomethingIsDueAndTakesTheDelayOut)
{
    const auto mono = VNK::SpeakerArrangement::withChannels(1);
    VNK::EffectRunner runner(*algorithm);
    EXPECT_FALSE(runner.prepare({VNK::SpeakerArrangement::withChannels(2), mono}));
    ASSERT_TRUE(runner.prepare({mono, mono, VNK::Precision::Double, 48000, 64}));
    const Signal<double> x = noise<double>(200);
    Signal<double> y(200);
    const double* const in[] = {x.data()};
    const std::span out(&y, 1);  // pointers and containers alike
    VNK::LatencyTrim trim(100);
    int skipped = 0;
    std::string cuts;
    VNK::runCut(
        200,
        [&](int at) {  // an event at 96, and blocks of 64
            if (at == 96) component->automate(0, -20);
            return at < 96 ? std::min(96 - at, 64 - at % 64) : 64 - at % 64;
        },
        [&](int at, int n) {
            cuts += std::to_string(at) + "+" + std::to_string(n) + " ";
            skipped += trim.skip(n);
            EXPECT_EQ(skipped, std::min(at + n, 100));
            runner.process<double>({in, 1, at}, {out, 1, at}, n);
        });
    EXPECT_EQ(cuts, "0+64 64+32 96+32 128+64 192+8 ");
    for (std::size_t i = 0; i < 96; ++i) ASSERT_EQ(y[i], x[i]) << i;
    EXPECT_NE(y[96], x[96]) << "acts from its frame on";
}

}  // namespace
}  // namespace quillworks::test
