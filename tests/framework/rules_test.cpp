// SPDX-License-Identifier: ISC
// Faults that do not compile, and those that end a checked build.
#include <thread>

#include "tests/framework/frame_fixture.h"

namespace quillworks::test {
namespace {

/// A core without hooks, to be spoilt.
struct Plain {
    struct Settings {};
    static constexpr CoreHooks kHooks{};
    void prepare(const ProcessSpec&) {}
    void reset() noexcept {}
    void apply(const Settings&, unsigned) noexcept {}
    void process(const AudioBlock<float>&) noexcept {}
};
static_assert(Core<Plain, float> && Core<ProbeCore<float>, float>);
static_assert(!Core<Plain, double>, "its process takes blocks of the other precision");

struct ThatThrows : Plain {
    void process(const AudioBlock<float>&) {}
};
struct WithoutProcess {
    using Settings = Plain::Settings;
    [[maybe_unused]] static constexpr CoreHooks kHooks{};
    void prepare(const ProcessSpec&) {}
    void reset() noexcept {}
    void apply(const Settings&, unsigned) noexcept {}
};
static_assert(!Core<ThatThrows, float> && !Core<WithoutProcess, float>);

struct Silent : Plain {  // has a hook and does not say so
    void setTempo(double) noexcept {}
};
struct Promising : Plain {  // says so and has none
    static constexpr CoreHooks kHooks{.publish = true};
};
struct Misspelt : Plain {
    static constexpr CoreHooks kHooks{.wetOnly = true};
    void setWetonly(bool) noexcept {}
};
struct OfAnotherType : Plain {  // callable all the same, and would cut the tempo to whole numbers
    static constexpr CoreHooks kHooks{.tempo = true};
    void setTempo(int) noexcept {}
};
struct Throwing : Plain {
    static constexpr CoreHooks kHooks{.tempo = true};
    void setTempo(double) {}
};
struct Overloaded : Plain {
    static constexpr CoreHooks kHooks{.publish = true};
    void publish(MeterSlots&) noexcept {}
    void publish(int) noexcept {}
};
class Private : public Plain {
    void publish(MeterSlots&) noexcept {}
};
struct NoFunction : Plain {
    bool publish = false;
};
struct Good : Plain {
    static constexpr CoreHooks kHooks{.tempo = true, .publish = true};
    void setTempo(double) noexcept {}
    void publish(MeterSlots&) noexcept {}
};
struct Inheriting : Good {};
static_assert(!Core<Silent, float> && !Core<Promising, float> && !Core<Misspelt, float>);
static_assert(!Core<OfAnotherType, float> && !Core<Throwing, float> && !Core<Overloaded, float>);
static_assert(!Core<Private, float> && !Core<NoFunction, float>);
static_assert(Core<Good, float> && Core<Inheriting, float>);

TEST_F(Frame, BrokenRulesEndACheckedBuild)
{
    if constexpr (!kChecksRules) GTEST_SKIP() << "only debug and sanitizer builds check";
    prepare(2, 64);
    Signal<float> x(128), y(128);
    const auto process = [&](float* in, float* out, float* out2, const float* side) {
        const void* inputs[] = {in, in + 64};
        void* outputs[] = {out, out2};
        const void* sides[] = {side};
        algorithm->process({inputs, 2, outputs, 2, sides, side ? 1 : 0, 64});
    };
    process(x.data(), x.data(), x.data() + 64, nullptr);  // in place
    process(x.data(), x.data() + 64, x.data(), nullptr);  // places changed
    process(x.data(), y.data(), y.data(), nullptr);       // nobody hears either
    EXPECT_DEATH(process(x.data(), x.data() + 1, y.data(), nullptr), "overlaps an input in part");
    EXPECT_DEATH(process(x.data(), y.data(), y.data() + 63, nullptr), "overlaps another in part");
    EXPECT_DEATH(process(x.data(), y.data(), y.data() + 64, y.data()), "overlaps the side-chain");
    using Exclusive = CallRules::Exclusive;
    {
        const Exclusive block(algorithm->rules(), Exclusive::Block);
        EXPECT_DEATH(set("gain", 1), "of the main thread within a block");
        EXPECT_DEATH(algorithm->reset(), "reset during process");
        EXPECT_DEATH(process(x.data(), y.data(), y.data() + 64, nullptr),
                     "another call is at work");
        std::thread([&] { set("gain", 1); }).join();  // as it should be
    }
    const CallRules::MainThread main(algorithm->rules());
    set("gain", 1);  // operations may call each other
    EXPECT_DEATH(std::thread([&] { set("gain", 1); }).join(), "on two threads at once");
}

}  // namespace
}  // namespace quillworks::test
