// SPDX-License-Identifier: ISC
// An effect behind the switch that its format has for it: while that is off, what the bypass plays
// is heard as late as the effect would be, so that the host's delay compensation stays right.
#pragma once

#include <memory>

#include "adapters/common/song_position.h"
#include "vnk/dry_path.h"
#include "vnk/effect_runner.h"
#include "vnk/hosted_effect.h"

namespace quillworks::adapters {

/// A host's buffers; null is a silent input, or an output that nobody hears.
template <typename T> struct HostBuffers {
    const T* const* inputs;
    T* const* outputs;
    const T* const* sideChain;
};

/// The effect outlives it.
template <typename T> class SwitchedEffect {
public:
    /// Layouts, precision, rate, reset. Blocks longer than `setup.maxFrames` are cut. `sides` is
    /// the side-chain's channel count, 2 at most. False where the effect cannot run so.
    /// [main thread, not processing]
    bool prepare(const VNK::HostedEffect& effect, const VNK::RunSetup& setup, int sides);
    /// [not processing]
    void reset() noexcept
    {
        runner_.algorithm().reset();
        dry_.reset();
    }

    VNK::IEffectAlgorithm& algorithm() const noexcept { return runner_.algorithm(); }
    int latency() const noexcept { return static_cast<int>(algorithm().getLatency()); }
    bool isSideChainOn() const noexcept { return isSideChainOn_; }
    /// [between two blocks]
    void setSideChain(bool isOn) noexcept
    {
        if (isOn == isSideChainOn_) return;
        isSideChainOn_ = isOn;
        algorithm().setSideChainActive(isOn);
    }

    /// Plays frames from .. from + frames of the buffers, which may be one and the same.
    /// [audio thread, prepared]
    void process(const HostBuffers<T>& buffers, int from, int frames, bool isOn,
                 SongPosition& position) noexcept;

private:
    /// Latencies beyond this are not matched while the effect is switched off.
    static constexpr double kLongestDrySeconds = 0.25;
    static constexpr int kMostSides = 2;

    void processPiece(const HostBuffers<T>& buffers, int first, int n, bool isOn,
                      SongPosition& position) noexcept;

    VNK::EffectRunner runner_;
    int maxFrames_ = 0;
    int inputs_ = 0, outputs_ = 0, sides_ = 0;
    bool isSideChainOn_ = false;  // as the effect was told last
    VNK::DryPath<T> dry_;
    std::unique_ptr<T[]> sideCopy_;  // for a side-chain that shares its buffer with an output
};

}  // namespace quillworks::adapters
