// SPDX-License-Identifier: ISC
// What one thread takes away while another uses it. Meant for the thread sanitizer.
#include <atomic>
#include <memory>
#include <thread>

#include "dsp/aligned_buffer.h"
#include "framework/removable.h"
#include "tests/support/effect_under_test.h"
#include "tests/support/listener.h"
#include "vnk/debug.h"

namespace quillworks::test {
namespace {

/// Runs f until it goes.
class Meanwhile {
public:
    template <class F>
    explicit Meanwhile(F f)
        : thread_([this, f]() mutable {
              while (!stop_.load()) {
                  f();
                  ++rounds_;
              }
          })
    {}
    ~Meanwhile()
    {
        stop_ = true;
        thread_.join();
    }
    /// Waits until it has run n times more.
    void await(int n) const
    {
        for (const int until = rounds_.load() + n; rounds_.load() < until;)
            std::this_thread::yield();
    }

private:
    std::atomic<bool> stop_{false};
    std::atomic<int> rounds_{0};
    std::thread thread_;
};

/// Freed memory is filled, and a call that comes late finds that out.
struct ShortLived {
    std::atomic<int> calls{0};
    std::atomic<bool> isAlive{true};
    static inline std::atomic<int> lateCalls{0};

    ~ShortLived() { isAlive = false; }
    void call()
    {
        for (int i = 0; i < 20; ++i) lateCalls += !isAlive;
        ++calls;
    }
};

TEST(Removal, AListenerIsCalledByNobodyOnceItIsTakenAway)
{
    struct Ear final : VNK::IEffectListener, ShortLived {
        void message(const char*) noexcept override { call(); }
        void parameterChanged(std::int32_t) noexcept override {}
        void editBegun(std::int32_t) noexcept override {}
        void editEnded(std::int32_t) noexcept override {}
    };
    EffectUnderTest<float> fx("Compressor");
    bool isActive = false;
    const Meanwhile audio([&] { fx.algorithm().setSideChainActive(isActive = !isActive); });
    int calls = 0;
    for (int i = 0; i < 100; ++i) {
        const auto ear = std::make_unique<Ear>();
        fx.component().setListener(ear.get());
        audio.await(3);
        fx.component().setListener(nullptr);
        calls += ear->calls;
    }
    EXPECT_GT(calls, 0);
    EXPECT_EQ(ShortLived::lateCalls, 0);
}

TEST(Removal, AListenerMayTakeItselfAwayWithinACall)
{
    struct Ear final : VNK::IEffectListener {
        explicit Ear(const VNK::HostedEffect& c) : component(c) {}
        void message(const char*) noexcept override
        {
            ++calls;
            component.setListener(nullptr);
        }
        void parameterChanged(std::int32_t) noexcept override {}
        void editBegun(std::int32_t) noexcept override {}
        void editEnded(std::int32_t) noexcept override {}
        const VNK::HostedEffect& component;
        int calls = 0;
    };
    EffectUnderTest<float> fx("Compressor");
    Ear ear(fx.component());
    fx.component().setListener(&ear);
    fx.algorithm().setSideChainActive(true);
    fx.algorithm().setSideChainActive(false);
    EXPECT_EQ(ear.calls, 1);
}

TEST(Removal, ADebugSinkIsCalledByNobodyOnceItIsTakenAway)
{
    const auto silent = [](const char*, void*) {};
    VNK::setDebugSink(silent, nullptr);
    {
        const Meanwhile other([] { VNK::debugMessage("x\n"); });
        for (int i = 0; i < 100; ++i) {
            const auto sink = std::make_unique<ShortLived>();
            VNK::setDebugSink(
                [](const char*, void* context) { static_cast<ShortLived*>(context)->call(); },
                sink.get());
            other.await(2);
            VNK::setDebugSink(silent, nullptr);
        }
    }
    VNK::setDebugSink(nullptr, nullptr);
    EXPECT_EQ(ShortLived::lateCalls, 0);
}

TEST(Removal, BuffersGoBackToTheMemoryTheyCameFrom)
{
    static std::atomic<int> taken{0};
    static constexpr BufferMemory counting{[](std::size_t bytes) noexcept {
                                               ++taken;
                                               return std::malloc(bytes);
                                           },
                                           [](void* memory) noexcept {
                                               --taken;
                                               std::free(memory);
                                           }};
    {
        const Meanwhile worker([] { AlignedBuffer<float> buffer(100); });
        for (int i = 0; i < 100; ++i) {
            const auto& before = BufferMemory::exchangeService(counting);
            worker.await(2);
            BufferMemory::exchangeService(before);
        }
    }
    EXPECT_EQ(taken, 0);
}

}  // namespace
}  // namespace quillworks::test
