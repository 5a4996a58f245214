// SPDX-License-Identifier: ISC
// The order of calls around a block, for all who run effects: hosts, adapters, tests, benchmarks.
// Nothing of this crosses the module boundary.
#pragma once

#include <algorithm>
#include <cstdint>
#include <type_traits>

#include "vnk/effect.h"

namespace VNK {

/// What an effect is prepared for.
struct RunSetup {
    SpeakerArrangement input, output;
    Precision precision = Precision::Float;
    double sampleRate = 48000;     // Hz
    std::int32_t maxFrames = 512;  // longest block
};

/// Pointers to one frame of each channel, for a block that begins there. `Sample` is const for
/// inputs.
template <typename Sample> class ChannelPointers {
public:
    ChannelPointers() noexcept {}  // no channels
    /// Of anything whose [c] is a pointer (null: silent, or not heard) or a container. At most
    /// kMaxChannels are taken.
    template <class Buffers>
    ChannelPointers(Buffers&& buffers, int channels, std::int64_t frame = 0) noexcept
        : count_(std::clamp(channels, 0, kMaxChannels))
    {
        for (int c = 0; c < count_; ++c) {
            Sample* first = nullptr;
            if constexpr (requires { buffers[0].data(); })
                first = buffers[static_cast<std::size_t>(c)].data();
            else
                first = buffers[c];
            pointers_[c] = first ? first + frame : nullptr;
        }
    }

    auto get() const noexcept { return pointers_; }
    std::int32_t count() const noexcept { return count_; }

private:
    using Void = std::conditional_t<std::is_const_v<Sample>, const void, void>;

    Void* pointers_[kMaxChannels];  // left as they are beyond the count: this is made per block
    std::int32_t count_ = 0;
};

/// Runs one effect. Owns nothing: the effect outlives it.
class EffectRunner {
public:
    EffectRunner() = default;
    explicit EffectRunner(IEffectAlgorithm& algorithm) noexcept : algorithm_(&algorithm) {}

    IEffectAlgorithm& algorithm() const noexcept { return *algorithm_; }
    const RunSetup& setup() const noexcept { return setup_; }

    /// Layouts, precision, rate, reset. False where the effect refuses the layouts or cannot run
    /// so; it must not be processed then. [main thread, not processing]
    bool prepare(const RunSetup& setup) noexcept
    {
        setup_ = setup;
        if (!algorithm_->setSpeakerArrangement(setup.input, setup.output)) return false;
        algorithm_->setPrecision(setup.precision);
        if (!algorithm_->setSampleRate(setup.maxFrames, setup.sampleRate)) return false;
        algorithm_->reset();
        return true;
    }

    /// One block of the precision that it is prepared for; outputs may be inputs. Without a
    /// transport the song's position is unknown. Parameters have been set before.
    /// [audio thread, prepared]
    template <typename T>
    void process(const ChannelPointers<const T>& in, const ChannelPointers<T>& out, int frames,
                 const ChannelPointers<const T>& sideChain = {},
                 const Transport* transport = nullptr) const noexcept
    {
        ProcessData data;
        data.inputs = in.get();
        data.inputChannels = in.count();
        data.outputs = out.get();
        data.outputChannels = out.count();
        data.sideChain = sideChain.count() > 0 ? sideChain.get() : nullptr;
        data.sideChainChannels = sideChain.count();
        data.frames = frames;
        if (transport) algorithm_->setTransport(*transport);
        algorithm_->process(data);
    }

private:
    IEffectAlgorithm* algorithm_ = nullptr;
    RunSetup setup_;
};

/// Cuts `frames` frames where something is due. `due(at)` does what is due at a frame and returns
/// how many frames may follow at most, at least 1; `run(at, n)` processes them.
template <class Due, class Run> void runCut(int frames, Due&& due, Run&& run)
{
    for (int at = 0; at < frames;) {
        const auto n = static_cast<int>(std::min<std::int64_t>(frames - at, due(at)));
        run(at, n);
        at += n;
    }
}

/// Takes the delay of what is run out of a signal that comes in pieces.
class LatencyTrim {
public:
    /// The delay in samples, as it is when the signal begins.
    explicit LatencyTrim(std::int64_t latency) noexcept : left_(std::max<std::int64_t>(0, latency))
    {}

    /// How many frames at the start of the next piece belong to the delay.
    int skip(int frames) noexcept
    {
        const auto n = std::min<std::int64_t>(left_, frames);
        left_ -= n;
        return static_cast<int>(n);
    }

private:
    std::int64_t left_;
};

}  // namespace VNK
