// SPDX-License-Identifier: ISC
#include "adapters/common/switched_effect.h"

#include <algorithm>

namespace quillworks::adapters {

template <typename T>
bool SwitchedEffect<T>::prepare(const VNK::HostedEffect& effect, const VNK::RunSetup& setup,
                                int sides)
{
    runner_ = VNK::EffectRunner(*effect.algorithm());
    if (!runner_.prepare(setup)) return false;
    maxFrames_ = setup.maxFrames;
    inputs_ = setup.input.channels;
    outputs_ = setup.output.channels;
    sides_ = std::clamp(sides, 0, kMostSides);
    sideCopy_ = std::make_unique_for_overwrite<T[]>(static_cast<std::size_t>(sides_) *
                                                    static_cast<std::size_t>(maxFrames_));
    dry_.prepare(*effect.algorithm(), inputs_, outputs_, setup.sampleRate, maxFrames_,
                 static_cast<int>(kLongestDrySeconds * setup.sampleRate));
    return true;
}

template <typename T>
void SwitchedEffect<T>::process(const HostBuffers<T>& buffers, int from, int frames, bool isOn,
                                SongPosition& position) noexcept
{
    VNK::runCut(
        frames, [this](int) { return maxFrames_; },
        [&](int at, int n) { processPiece(buffers, from + at, n, isOn, position); });
}

template <typename T>
void SwitchedEffect<T>::processPiece(const HostBuffers<T>& buffers, int first, int n, bool isOn,
                                     SongPosition& position) noexcept
{
    const T* in[VNK::kMaxChannels];
    T* out[VNK::kMaxChannels];
    const T* side[kMostSides];
    const auto overlapsOutput = [&](const T* x) {
        return std::any_of(out, out + outputs_,
                           [&](const T* y) { return y && x < y + n && y < x + n; });
    };
    for (int c = 0; c < inputs_; ++c) {
        const T* const x = buffers.inputs[c];
        in[c] = x ? x + first : nullptr;
    }
    for (int c = 0; c < outputs_; ++c) {
        T* const y = buffers.outputs[c];
        out[c] = y ? y + first : nullptr;
    }
    const int sides = isSideChainOn_ ? sides_ : 0;
    for (int c = 0; c < sides; ++c) {
        const T* const x = buffers.sideChain[c];
        side[c] = x ? x + first : nullptr;
        if (!x || !overlapsOutput(side[c])) continue;
        T* const copy = sideCopy_.get() + c * maxFrames_;
        std::copy_n(side[c], n, copy);
        side[c] = copy;
    }
    const bool skipsDry = dry_.canSkip(isOn);
    if (!skipsDry) dry_.keep(in, n);
    position.tell(algorithm());
    runner_.process<T>({in, inputs_}, {out, outputs_}, n, {side, sides});
    position.advance(n);
    if (skipsDry)
        dry_.skip();
    else
        dry_.mix(out, n, latency(), isOn);
}

template class SwitchedEffect<float>;
template class SwitchedEffect<double>;

}  // namespace quillworks::adapters
