// SPDX-License-Identifier: ISC
// Plays the bundle's plug-ins through lilv, as hosts do, beside the effects they are made of.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>
#include <string>
#include <vector>

#include "adapters/lv2/catalogue.h"
#include "hosts/lilv/lilv_host.h"
#include "tests/support/audio_thread_guard.h"
#include "tests/support/effect_under_test.h"
#include "tests/support/every_effect.h"
#include "tests/support/signals.h"

namespace quillworks::test {

inline constexpr int kMaxFrames = 512;  // that plug-ins are promised

inline lilv::World& world()
{
    static lilv::World one;
    return one;
}

inline const lv2::Catalogue& catalogue()
{
    static const lv2::Catalogue one;
    return one;
}

inline Channels<float> noiseChannels(int channels, std::size_t frames, std::uint32_t seed = kSeed)
{
    Channels<float> x;
    for (int c = 0; c < channels; ++c)
        x.push_back(noise<float>(frames, seed + static_cast<std::uint32_t>(c)));
    return x;
}

/// Bit for bit, without printing thousands of samples where not.
inline ::testing::AssertionResult isSame(const Channels<float>& a, const Channels<float>& b)
{
    if (a == b) return ::testing::AssertionSuccess();
    for (std::size_t c = 0; c < a.size() && c < b.size(); ++c)
        for (std::size_t i = 0; i < a[c].size() && i < b[c].size(); ++i)
            if (a[c][i] != b[c][i])
                return ::testing::AssertionFailure()
                       << "channel " << c << ", frame " << i << ": " << a[c][i] << " and "
                       << b[c][i] << "; at most " << peakDifferenceDb(a, b) << " dB apart";
    return ::testing::AssertionFailure() << "other sizes";
}

class Lv2UnderTest {
public:
    explicit Lv2UnderTest(const std::string& uri, lilv::Features features = lilv::Features::All,
                          double sampleRate = 48000)
    {
        std::string reason;
        instance_ = lilv::Instance::create(world(), uri, sampleRate, kMaxFrames, reason, features);
        if (!instance_) throw std::runtime_error(reason);
        for (const auto& port : instance_->ports())
            if (port.designation == LV2_CORE__latency) latency_ = port.symbol;
        for (const auto& plugin : catalogue().plugins())
            if (plugin.uri == uri) mainInputs_ = std::size_t(plugin.input.channels);
        instance_->activate();
    }

    lilv::Instance& instance() { return *instance_; }
    Lv2UnderTest& set(const std::string& symbol, float value)
    {
        EXPECT_TRUE(instance_->set(symbol, value)) << symbol;
        if (symbol == "freewheel") waits_ = value != 0;
        return *this;
    }
    bool has(const std::string& symbol) const { return instance_->find(symbol) >= 0; }
    int latency() const { return static_cast<int>(instance_->get(latency_)); }
    /// Switches the bus on and feeds it from here on; it must last for all that is played.
    Lv2UnderTest& sideChain(Channels<float> signal)
    {
        side_ = std::move(signal);
        sidePlayed_ = 0;
        return set("sidechain", 1);
    }
    bool hasSideChain() const { return instance_->audioInputs().size() > mainInputs_; }
    int sideChannels() const
    {
        return static_cast<int>(instance_->audioInputs().size() - mainInputs_);
    }

    /// Runs one block of `in` into `out`, both from frame `at` on, with the guard of the audio
    /// thread round the plug-in's own work.
    void runBlock(Channels<float>& in, Channels<float>& out, std::size_t at, int n)
    {
        auto& i = *instance_;
        for (std::size_t c = 0; c < mainInputs_; ++c)
            i.connect(i.audioInputs()[c], in[c].data() + at);
        for (std::size_t c = 0; c < i.audioOutputs().size(); ++c)
            i.connect(i.audioOutputs()[c], out[c].data() + at);
        for (std::size_t c = 0; c < side_.size(); ++c)
            i.connect(i.audioInputs()[mainInputs_ + c], side_[c].data() + sidePlayed_);
        sidePlayed_ += static_cast<std::size_t>(n);
        // Where it may wait for work on other threads, it has waited before the guard looks.
        if (waits_) i.run(0);
        {
            const AudioThreadGuard guard;
            i.run(n);
        }
        i.endBlock();
        i.beginBlock();
    }

    Channels<float> play(Channels<float> in, int block = kMaxFrames)
    {
        Channels<float> out(instance_->audioOutputs().size(), Signal<float>(in.front().size()));
        for (std::size_t at = 0; at < in.front().size(); at += static_cast<std::size_t>(block))
            runBlock(in, out, at,
                     static_cast<int>(
                         std::min(static_cast<std::size_t>(block), in.front().size() - at)));
        return out;
    }

private:
    std::unique_ptr<lilv::Instance> instance_;
    std::string latency_;
    std::size_t mainInputs_ = 0;
    Channels<float> side_;
    std::size_t sidePlayed_ = 0;
    bool waits_ = false;
};

/// The effect of a plug-in, prepared alike.
inline EffectUnderTest<float> effectOf(const lv2::Plugin& plugin, double sampleRate = 48000)
{
    EffectUnderTest<float> effect(plugin.effect->name->text(), sampleRate);
    effect.component().setEditorOpen(true);
    effect.layouts(plugin.input, plugin.output).prepare(plugin.input.channels, kMaxFrames);
    return effect;
}

/// What reads a file for each of its presets does so in two layouts under a sanitizer, not in all.
inline bool isTooSlowHere(EffectUnderTest<float>& effect, const lv2::Plugin& plugin)
{
    return kIsSanitised && effect.component().countTexts() > 0 && plugin.input.channels > 2;
}

/// The port of a parameter of the component's list, -1 without one. Its symbol is the parameter's
/// key unless the plug-in has a port of that name itself.
inline int portOf(const lv2::Plugin& plugin, int parameter)
{
    const auto at =
        std::find_if(plugin.ports.begin(), plugin.ports.end(), [&](const lv2::Port& port) {
            return port.role == lv2::Port::Role::Parameter && port.index == parameter;
        });
    return at == plugin.ports.end() ? -1 : static_cast<int>(at - plugin.ports.begin());
}

/// What bypass plays of an input.
inline Channels<float> laidOut(const lv2::Plugin& plugin, const Channels<float>& in)
{
    const auto effect = catalogue().create(plugin);
    Channels<float> out;
    for (int to = 0; to < plugin.output.channels; ++to) {
        auto& heard = out.emplace_back(in.front().size());
        for (std::size_t from = 0; from < in.size(); ++from) {
            const float gain = effect->algorithm()->getBypassGain(int(from), to);
            for (std::size_t i = 0; i < heard.size() && gain != 0; ++i)
                heard[i] += in[from][i] * gain;
        }
    }
    return out;
}

/// Sets every automatable parameter but the bypass switch to the same random value in both, in the
/// order of the ports.
inline void randomise(EffectUnderTest<float>& effect, Lv2UnderTest& plugin, std::uint32_t seed)
{
    std::mt19937 random(seed);
    auto& component = effect.component();
    VNK::ParameterInfo p;
    for (int i = 0; component.getParameter(i, p); ++i) {
        const float position = std::uniform_real_distribution<float>(0, 1)(random);
        if (!p.isAutomatable() || p.has(VNK::isBypass) || !plugin.has(p.key)) continue;
        const float value = component.fromNormalized(i, position);
        // A port that stands still, or says what is so already, is no news.
        const bool isNews = plugin.instance().get(p.key) != value && component.getValue(i) != value;
        plugin.set(p.key, value);
        if (isNews) component.setValue(i, value);
    }
}

}  // namespace quillworks::test
