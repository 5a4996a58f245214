// SPDX-License-Identifier: ISC
// Drives an effect by name and keys through the host-facing interface, as a host does.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <limits>
#include <string>
#include <thread>

#include "module/class_registry.h"
#include "tests/support/audio_thread_guard.h"
#include "tests/support/signals.h"
#include "vnk/effect_runner.h"
#include "vnk/hosted_effect.h"

namespace quillworks::test {

using Precisions = ::testing::Types<float, double>;

/// Waits for what an effect has under way on another thread (files, tables): while its attribute
/// "busy" is 1 it does not sound as it will.
template <class Component> void waitUntilReady(Component& component)
{
    std::int64_t busy = 0;
    for (int i = 0; i < 120000 && component.getInteger("busy", busy) && busy != 0; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    EXPECT_EQ(busy, 0) << "still busy after two minutes";
}

/// Every process call runs under the audio-thread guard: an allocation, lock or system call in it
/// fails the test.
template <typename T> class EffectUnderTest {
public:
    explicit EffectUnderTest(const std::string& name, double sampleRate = 48000, int channels = 0)
        : rate_(sampleRate), channels_(channels)
    {
        component_ = VNK::HostedEffect::adopt(createEffect(name));
        if (!component_) throw std::runtime_error("no effect " + name);
        runner_ = VNK::EffectRunner(algorithm());
    }

    const VNK::HostedEffect& component() { return *component_; }
    VNK::IEffectAlgorithm& algorithm() { return *component_->algorithm(); }

    int indexOf(const std::string& key)
    {
        const int i = component_->findParameter(key.c_str());
        if (i < 0) throw std::runtime_error("no parameter " + key);
        return i;
    }
    /// Value in the parameter's own unit, within its range.
    EffectUnderTest& set(const std::string& key, double value)
    {
        EXPECT_TRUE(component_->setValue(indexOf(key), static_cast<float>(value))) << key;
        return *this;
    }
    float get(const std::string& key) { return component_->getValue(indexOf(key)); }
    float meter(const std::string& key)
    {
        for (int i = 0; i < component_->countMeters(); ++i) {
            VNK::MeterInfo info;
            component_->getMeter(i, info);
            if (key == info.key) return component_->readMeter(i);
        }
        throw std::runtime_error("no meter " + key);
    }
    /// Every automatable parameter at random, the bypass switch left off.
    EffectUnderTest& randomise(std::uint32_t seed)
    {
        std::mt19937 random(seed);
        for (int i = 0; i < component_->countParameters(); ++i) {
            VNK::ParameterInfo info;
            component_->getParameter(i, info);
            const float position = std::uniform_real_distribution<float>(0, 1)(random);
            if (info.isAutomatable() && !info.has(VNK::isBypass))
                component_->setValue(i, component_->fromNormalized(i, position));
        }
        return *this;
    }

    EffectUnderTest& sampleRate(double rate) { return rate_ = rate, *this; }
    EffectUnderTest& layout(const VNK::SpeakerArrangement& arrangement)
    {
        return layouts(arrangement, arrangement);
    }
    EffectUnderTest& layouts(const VNK::SpeakerArrangement& input,
                             const VNK::SpeakerArrangement& output)
    {
        input_ = input;
        output_ = output;
        channels_ = input.channels;
        return *this;
    }
    EffectUnderTest& tempo(double beatsPerMinute) { return tempo_ = beatsPerMinute, *this; }
    EffectUnderTest& sideChain(Channels<T> signal)
    {
        side_ = std::move(signal);
        algorithm().setSideChainActive(!side_.empty());
        return *this;
    }

    /// Prepares for `channels` (0: as constructed, else 1) and blocks of `maxFrames`; resets.
    EffectUnderTest& prepare(int channels = 0, int maxFrames = 4800)
    {
        if (channels == 0) channels = channels_ ? channels_ : 1;
        channels_ = channels;
        if (input_.channels != channels)
            input_ = output_ = VNK::SpeakerArrangement::withChannels(channels);
        const auto precision =
            std::is_same_v<T, float> ? VNK::Precision::Float : VNK::Precision::Double;
        EXPECT_TRUE(runner_.prepare({input_, output_, precision, rate_, maxFrames}));
        prepared_ = true;
        played_ = 0;
        return *this;
    }

    /// Plays a signal in blocks of `block` frames; prepares before, unless prepare() has been
    /// called. Calls go on where the last one ended.
    Channels<T> play(const Channels<T>& in, int block = 512)
    {
        if (!prepared_) prepare(static_cast<int>(in.size()));
        waitUntilReady(*component_);
        // Frames that an effect leaves unwritten are found by what looks at the result.
        constexpr T unwritten = std::numeric_limits<T>::quiet_NaN();
        Channels<T> out(static_cast<std::size_t>(output_.channels),
                        Signal<T>(in.front().size(), unwritten));
        const auto frames = static_cast<int>(in.front().size());
        for (int at = 0; at < frames; at += block)
            processBlock(in, out, at, std::min(block, frames - at));
        return out;
    }
    /// One channel.
    Signal<T> run(const Signal<T>& in, int block = 512) { return play({in}, block).front(); }

    /// Plays a signal six times on every channel, a parameter at its two ends by turns.
    Signal<T> runWhileSwitching(const std::string& key, const Signal<T>& in)
    {
        VNK::ParameterInfo info;
        component_->getParameter(indexOf(key), info);
        Signal<T> out;
        for (int turn = 0; turn < 6; ++turn) {
            set(key, turn % 2 ? info.minimum : info.maximum);
            const auto y = play(Channels<T>(static_cast<std::size_t>(channels_), in), 37).front();
            out.insert(out.end(), y.begin(), y.end());
        }
        return out;
    }

    /// Frames at .. at + n of `in` to `out`, which may be `in`.
    void processBlock(const Channels<T>& in, Channels<T>& out, int at, int n)
    {
        for (auto& side : side_)
            side.resize(std::max(side.size(), played_ + static_cast<std::size_t>(n)));
        {
            const AudioThreadGuard guard;
            algorithm().setTempo(tempo_);
            runner_.process<T>({in, int(in.size()), at}, {out, int(out.size()), at}, n,
                               {side_, int(side_.size()), static_cast<std::int64_t>(played_)});
        }
        played_ += static_cast<std::size_t>(n);
    }

private:
    VNK::HostedEffect component_;
    VNK::EffectRunner runner_;
    double rate_;
    int channels_;
    VNK::SpeakerArrangement input_, output_;
    double tempo_ = 120;
    Channels<T> side_;
    std::size_t played_ = 0;
    bool prepared_ = false;
};

}  // namespace quillworks::test
