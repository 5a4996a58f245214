// SPDX-License-Identifier: ISC
#include "reverb/vaulter_sound.h"

#include <algorithm>
#include <cmath>

#include "dsp/vec.h"

namespace quillworks {
namespace {

constexpr std::size_t kOneKilohertz = 5;  // of the octaves
constexpr double kShortestT60 = 0.05, kLongestT60 = 240;
/// Decays by this many times 60 dB before it counts as silent.
constexpr double kSilent = 1.5;

}  // namespace

std::array<double, kOctaves> TailControls::times(const std::array<double, kOctaves>& measured,
                                                 TailMode mode) const noexcept
{
    const double factor = mode == TailMode::Replace ? replaceTime / measured[kOneKilohertz] : decay;
    auto times = measured;
    for (double& t : times) t = std::clamp(t * factor, kShortestT60, kLongestT60);
    return times;
}

template <typename T>
VaulterSound<T>::VaulterSound(const VaulterPlan& plan, const TailControls& controls,
                              const IsCancelled& isCancelled)
    : channels_(plan.channels),
      sampleRate_(plan.sampleRate),
      autoGain_(plan.autoGain),
      mode_(plan.tail ? plan.mode : TailMode::Whole)
{
    const auto& matrix = plan.matrix;
    if (matrix.responses.empty() || matrix.paths.empty()) return;
    std::size_t longest = matrix.responses[0].size();
    if (plan.tail) longest = std::max(longest, plan.tail->feeds[0].size());
    const int length = static_cast<int>(longest);
    std::vector<ConvolverPath> paths;
    for (const auto& path : matrix.paths) paths.push_back({path.input, path.output, path.response});
    std::vector<std::vector<float>> responses;
    const auto add = [&](const std::vector<double>& x) {
        auto& y = responses.emplace_back(x.begin(), x.end());
        y.resize(longest);
    };
    for (const auto& response : matrix.responses) add(response);
    if (plan.tail) {
        const int feeds = static_cast<int>(responses.size());
        for (const auto& feed : plan.tail->feeds) add(feed);
        for (const auto& path : matrix.paths)
            paths.push_back({path.input, channels_ + path.output, feeds + path.response});
        t60_ = plan.tail->t60;
        tank_ = std::make_unique<Tank<T>>();
        tank_->setMotion(controls.motion);
        prepareContinuedTank(*tank_, sampleRate_, channels_, controls.times(t60_, mode_));
        const auto design = OctaveDecayDesign::at(sampleRate_);
        equaliser_.prepare(*design, channels_);
        for (int o = 0; o < channels_; ++o)
            equaliser_.set(o, design->sections(plan.tail->equaliser[static_cast<std::size_t>(o)]));
        setTail(controls);
        tank_->reset();
    }
    std::vector<const float*> rows;
    for (const auto& response : responses) rows.push_back(response.data());
    convolver_ = PartitionedConvolver<T>::make(channels_, tank_ ? 2 * channels_ : channels_,
                                               std::move(paths), rows, length, isCancelled);
    if (!convolver_) throw Cancelled();
}

template <typename T> std::int64_t VaulterSound<T>::ringFrames() const noexcept
{
    if (!convolver_) return 0;
    // The largest blocks come to their end behind the last tap.
    constexpr int kBlocks = 2 * 16384;
    const double tank = tank_ ? kSilent * longest_ * sampleRate_ : 0;
    return convolver_->length() + kBlocks + static_cast<std::int64_t>(tank);
}

template <typename T> void VaulterSound<T>::reset() noexcept
{
    if (convolver_) convolver_->reset();
    if (!tank_) return;
    tank_->reset();
    equaliser_.reset();
}

template <typename T> void VaulterSound<T>::setTail(const TailControls& controls) noexcept
{
    if (!tank_) return;
    const auto times = controls.times(t60_, mode_);
    longest_ = *std::max_element(times.begin(), times.end());
    tank_->setDecay(times);
    tank_->setMotion(controls.motion);
    tank_->freeze(controls.isFrozen);
}

template <typename T>
void VaulterSound<T>::process(const T* const* in, T* const* out, GridSlice slice, const T* early,
                              const T* late) noexcept
{
    const int n = slice.frames;
    if (!convolver_) {
        for (int c = 0; c < channels_; ++c) vec::clear(out[c], n);
        return;
    }
    T* rows[2 * kMostChannels];
    for (int r = 0; r < convolver_->outputs(); ++r) rows[r] = rows_[r];
    convolver_->process(in, rows, n);
    for (int c = 0; c < channels_; ++c) vec::mulCopy(out[c], rows[c], early, n);
    if (!tank_) return;
    tank_->process(rows + channels_, slice);
    if (slice.begins()) equaliser_.begin();
    equaliser_.process(tank_->outputs(), rows, slice);
    for (int c = 0; c < channels_; ++c) {
        vec::mulInplace(rows[c], late, n);
        vec::addInplace(out[c], static_cast<const T*>(rows[c]), n);
    }
}

template class VaulterSound<float>;
template class VaulterSound<double>;

}  // namespace quillworks
