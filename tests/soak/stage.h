// SPDX-License-Identifier: ISC
// One effect of a chain under soak: driven as hosts drive it, and watched all the time.
#pragma once

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cmath>
#include <random>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "tests/soak/foreign_files.h"
#include "tests/support/audio_thread_guard.h"
#include "tests/support/counting_sink.h"
#include "tests/support/random_transport.h"
#include "tests/support/signals.h"
#include "vnk/effect_runner.h"
#include "vnk/hosted_effect.h"

namespace quillworks::test {

/// Tells of a fault and counts it. [any thread]
void found(const std::string& what);

/// Of the whole run. Output is judged where the input has been clean for a second.
inline std::atomic<std::uint64_t> gParameterChanges{0}, gFrames{0}, gFramesJudged{0};

template <typename T> std::vector<T*> pointers(Channels<T>& x, int offset = 0)
{
    std::vector<T*> p;
    for (auto& channel : x) p.push_back(channel.data() + offset);
    return p;
}

class Stage final : public VNK::IEffectListener {
public:
    /// The output may exceed 0 dBFS, or the loudest sample of input and side-chain since the last
    /// reset if that is louder, by 80 dB, or by 8 dB more than all gains of the effect together
    /// where that is more: a channel strip's add up to 144 dB. What runs away goes far beyond.
    static constexpr double kUsualDb = 80, kBeyondGainsDb = 8;
    /// A sample beyond it counts as bad, as NaN does: its square leaves the range of a float.
    static constexpr double kAbsurdLevel = 1e15;

    /// `files`, which outlive it, are what its texts name.
    Stage(VNK::IObject* adopted, ForeignFiles& files)
        : files_(files),
          component_(VNK::HostedEffect::adopt(adopted)),
          algorithm_(*component_->algorithm()),
          displays_(component_->queryInterface<VNK::IEffectDisplays>()),
          remembered_(state()),
          absurdGain_(std::pow(10, std::max(kUsualDb, gainsDb() + kBeyondGainsDb) / 20))
    {
        component_->setListener(this);
    }
    ~Stage()
    {
        if (isWatched_) displays_->setDisplaysOpen(false);
        component_->setListener(nullptr);
    }
    Stage(const Stage&) = delete;
    Stage& operator=(const Stage&) = delete;

    VNK::IEffectAlgorithm& algorithm() const { return algorithm_; }
    const VNK::RunSetup& setup() const { return setup_; }

    void prepare(const VNK::RunSetup& setup)
    {
        setup_ = setup;
        check(runner_.prepare(setup), "refuses its layout or rate");
        reset();
    }

    /// Until what the effect makes beside its sound is there.
    void waitUntilReady()
    {
        std::int64_t busy = 0;
        for (int i = 0; i < 60000 && component_->getInteger("busy", busy) && busy != 0; ++i)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        check(busy == 0, "is busy for a minute");
    }

    /// The latency may only have changed with a message, and is a second at most.
    void checkLatency()
    {
        const auto now = algorithm_.getLatency();
        check(now <= setup_.sampleRate, "announces an absurd latency");
        check(now == latency_ || announced_, "changes its latency without a word");
        latency_ = now;
        announced_ = false;
    }

    /// `fresh`, a new instance, takes the state of this one: it must announce the same and, after a
    /// reset of both, sound the same bit by bit. [not processing]
    template <typename T> void compareWith(Stage& fresh)
    {
        algorithm_.setTempo(120);
        readFilesAnew();
        fresh.prepare(setup_);
        fresh.algorithm_.setTempo(120);
        for (int i = 0; i < component_->countParameters(); ++i)  // what no state carries
            if (const auto p = parameter(i);
                !p.isStored() && p.isAutomatable() && !p.has(VNK::isTrigger))
                fresh.component_->setValue(i, component_->getValue(i));
        const auto saved = state();
        fresh.load(saved);
        check(fresh.state() == saved, "does not come back from its state");
        fresh.algorithm_.setWetOnly(wetOnly_);
        fresh.algorithm_.setSideChainActive(sideChainActive_);
        waitUntilReady();
        fresh.waitUntilReady();
        check(algorithm_.getLatency() == fresh.algorithm_.getLatency() &&
                  algorithm_.getTailLength() == fresh.algorithm_.getTailLength(),
              "announces other delays than a new instance");
        reset();
        fresh.reset();
        const int frames = std::min(2048, setup_.maxFrames);
        for (std::uint32_t block = 0; block < 3; ++block) {
            Channels<T> x;
            for (int c = std::max(setup_.input.channels, setup_.output.channels); c > 0; --c)
                x.push_back(noise<T>(std::size_t(frames), 100 * block + std::uint32_t(c), 2));
            Channels<T> y = x;
            process<T>(pointers(x).data(), pointers(x).data(), nullptr, 0, frames, {});
            fresh.process<T>(pointers(y).data(), pointers(y).data(), nullptr, 0, frames, {});
            // A filter that rings ahead of its peak does so for less than a quarter of its delay; a
            // quantiser makes whole steps of what rings, and its dither sounds at once; an
            // oversampler of linear phase rings all the way, and a drive raises that; a copy that
            // runs through zero overtakes the late sound; bands without phase ring ahead as long as
            // behind.
            const bool isEarly = component_->findParameter("quantizer") >= 0 ||
                                 component_->findParameter("drive") >= 0 ||
                                 component_->findParameter("thruzero") >= 0 || hasLinearPhase();
            const int early = std::min(frames, int(algorithm_.getLatency() * 3 / 4));
            check(block > 0 || isEarly ||
                      peakOf(pointers(x).data(), setup_.output.channels, early) < 1e-3,
                  "sounds before the latency it announces");
            check(x == y, "sounds other than a new instance with its state");
        }
        reset();
    }

    /// What people and hosts do beside the audio. [main thread]
    void fiddle(std::mt19937& random)
    {
        const auto i = static_cast<int>(random() % unsigned(component_->countParameters()));
        const auto tag = parameter(i).tag;
        switch (random() % 14) {
        case 13:
            return changeFile(random);
        case 0:
            return component_->setEditorOpen(random() % 2 == 0);
        case 12:
            return readDisplays(random);
        case 1:
            return algorithm_.setWetOnly(wetOnly_ = random() % 4 == 0);
        case 2:
            return algorithm_.setTempo(double(random() % 500));
        case 3:
            return readTextsAndMeters(i);
        case 4:
            return exchangeStates(random);
        case 5:
            component_->beginEdit(tag);
            setRandom(random);
            return component_->endEdit(tag);
        case 6:
            component_->beginGroupEdit();
            for (int n = 0; n < 3; ++n) setRandom(random);
            return component_->endGroupEdit();
        default:
            return setRandom(random);
        }
    }

    // [audio thread]
    void automate(std::mt19937& random)
    {
        const auto before = algorithm_.getLatency();
        checkGuarded([&] { setRandom(random, &VNK::HostedEffect::automate); });
        // Whoever automates looks himself.
        if (algorithm_.getLatency() != before) announced_ = true;
    }
    void toggleSideChain()
    {
        sideChainActive_ = !sideChainActive_ && algorithm_.hasSideChain();
        algorithm_.setSideChainActive(sideChainActive_);
    }
    void reset()
    {
        algorithm_.reset();
        cleanFrames_ = 1e9;
        loudest_ = 1;
    }
    /// One block. `out` may be `in`, in any order.
    template <typename T>
    void process(const T* const* in, T* const* out, const T* const* side, int sideChannels,
                 int frames, const VNK::Transport& transport)
    {
        const double heard =
            std::max(peakOf(in, setup_.input.channels, frames), peakOf(side, sideChannels, frames));
        checkGuarded([&] {
            runner_.process<T>({in, setup_.input.channels}, {out, setup_.output.channels}, frames,
                               {side, sideChannels}, &transport);
        });
        if (heard > kAbsurdLevel)
            cleanFrames_ = -frames;
        else
            loudest_ = std::max(loudest_, heard);
        if (cleanFrames_ >= setup_.sampleRate) {
            const double level = peakOf<T>(out, setup_.output.channels, frames);
            gFramesJudged += unsigned(frames);
            check(level <= kAbsurdLevel, "puts out what is no audio");
            check(!std::isfinite(level) || level <= absurdGain_ * loudest_, "runs away");
            if (!(level <= absurdGain_ * loudest_)) cleanFrames_ = 0;  // told once a second
        }
        cleanFrames_ += frames;
        gFrames += unsigned(frames);
    }

private:
    bool hasLinearPhase() const
    {
        const int phase = component_->findParameter("phase");
        if (phase < 0) return false;
        const char* const text = component_->choiceText(phase, int(component_->getValue(phase)));
        return text && std::string_view(text) == "Linear";
    }
    void message(const char* name) noexcept override
    {
        if (std::string_view(name) == "processSetupChanged") announced_ = true;
    }
    void parameterChanged(std::int32_t) noexcept override {}
    void editBegun(std::int32_t) noexcept override {}
    void editEnded(std::int32_t) noexcept override {}

    void check(bool isGood, const char* what) const
    {
        if (isGood) return;
        VNK::StringSink preset;
        component_->savePreset(what, preset);
        found(setup_.input.names() + " -> " + setup_.output.names() + " at " +
              std::to_string(setup_.sampleRate) + " Hz: " + what + "\n" + preset.text());
    }
    template <class F> void checkGuarded(F call) const
    {
        const char* violation = nullptr;
        {
            const AudioThreadGuard guard;
            call();
            violation = AudioThreadGuard::takeViolation();
        }
        check(!violation, violation);
    }
    VNK::ParameterInfo parameter(int index) const
    {
        VNK::ParameterInfo p;
        component_->getParameter(index, p);
        return p;
    }
    /// The largest gains that can be set, in series. Of a family one: they stand side by side.
    double gainsDb() const
    {
        double sum = 0;
        for (int i = 0; i < component_->countParameters(); ++i)
            if (const auto p = parameter(i);
                p.has(VNK::isDecibel) && !p.has(VNK::isReadOnly) && p.index <= 0)
                sum += std::max(0.0, double(p.maximum));
        return sum;
    }
    std::string state() const
    {
        VNK::StringSink sink;
        check(component_->saveState(sink), "does not save its state");
        return sink.text();
    }
    void load(const std::string& state)
    {
        check(component_->loadState(state.data(), state.size()), "refuses its own state");
    }

    using Set = bool (VNK::HostedEffect::*)(std::int32_t, float) const noexcept;
    void setRandom(std::mt19937& random, Set set = &VNK::HostedEffect::setValue)
    {
        const auto i = static_cast<int>(random() % unsigned(component_->countParameters()));
        const auto p = parameter(i);
        // Else every effect would be bypassed half the time.
        if (!p.isAutomatable() || (p.has(VNK::isBypass) && random() % 4 != 0)) return;
        const float ends[] = {p.minimum, p.maximum, p.defaultValue};
        const auto end = random() % 16;
        const float position = float(random() >> 8) / float(1 << 24);
        (*component_.*set)(i, end < 3 ? ends[end] : component_->fromNormalized(i, position));
        ++gParameterChanges;
    }

    void readTextsAndMeters(int index)
    {
        char text[64];
        float value = 0;
        std::int64_t n = 0;
        component_->valueToText(index, component_->getValue(index), text, sizeof text);
        component_->textToValue(index, text, value);
        component_->getInteger("sideChainActive", n);
        check(component_->getInteger("channelcount", n) && n == setup_.output.channels,
              "has the attributes of another layout");
        check(algorithm_.getLatency() <= setup_.sampleRate, "announces an absurd latency");
        algorithm_.getTailLength();
        for (int i = 0; i < component_->countMeters(); ++i)
            check(!std::isinf(component_->readMeter(i)), "has an infinite meter");
    }

    void readDisplays(std::mt19937& random)
    {
        if (!displays_) return;
        if (const bool isWatched = random() % 8 != 0; isWatched != isWatched_)
            displays_->setDisplaysOpen(isWatched_ = isWatched);
        displays_->updateDisplays();
        valuesOf(*displays_);
    }

    template <class F> void forEachFile(F call)
    {
        VNK::TextInfo text;
        for (int i = 0; component_->getTextInfo(i, text); ++i)
            if (text.kind == VNK::TextKind::File) call(i);
    }
    void changeFile(std::mt19937& random)
    {
        forEachFile([&](int i) {
            component_->setText(i, files_.any(random).c_str());
            component_->textProblem(i);
        });
    }
    /// So that every file is the one on disk: one that was gone, broken or refused leaves the last
    /// one at work, which a new instance does not have.
    void readFilesAnew()
    {
        forEachFile([&](int i) {
            const std::string name = component_->getText(i);
            component_->setText(i, name.c_str());
            waitUntilReady();
            if (*component_->textProblem(i)) component_->setText(i, files_.good().c_str());
        });
        waitUntilReady();
    }

    void exchangeStates(std::mt19937& random)
    {
        VNK::StringSink preset;
        auto now = state();
        switch (random() % 5) {
        case 0:
            remembered_ = now;
            return;
        case 1:
            return load(remembered_);
        case 2:  // a damaged one, refused or put right
            now[random() % now.size()] ^= static_cast<char>(1 << random() % 7);
            component_->loadState(now.data(), now.size());
            return;
        case 3:
            component_->savePreset("Soak", preset);
            return check(component_->loadPreset(preset.text().data(), preset.text().size()),
                         "refuses its own preset");
        default:
            if (const int count = component_->countPrograms(); count > 0)
                check(component_->loadProgram(static_cast<int>(random() % unsigned(count))),
                      "refuses a program");
        }
    }

    /// Infinite if any sample is not finite.
    template <typename T> static double peakOf(const T* const* x, int channels, int frames)
    {
        double peak = 0;
        for (int c = 0; c < channels; ++c)
            for (int i = 0; i < frames; ++i) {
                const double level = std::abs(double(x[c][i]));
                if (!(level <= peak)) peak = std::isnan(level) ? INFINITY : level;
            }
        return peak;
    }

    ForeignFiles& files_;
    VNK::HostedEffect component_;
    VNK::IEffectAlgorithm& algorithm_;
    VNK::EffectRunner runner_{algorithm_};
    VNK::RunSetup setup_;
    VNK::Ref<VNK::IEffectDisplays> displays_;
    bool wetOnly_ = false, isWatched_ = false;
    std::string remembered_;  // a state of before
    double absurdGain_;       // linear
    std::uint32_t latency_ = 0;
    std::atomic<bool> announced_{true};

    // Of the audio thread.
    bool sideChainActive_ = false;
    double cleanFrames_ = 1e9;  // since the last bad input sample
    double loudest_ = 1;        // linear
};

}  // namespace quillworks::test
