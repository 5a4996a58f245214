// SPDX-License-Identifier: ISC
#include "reverb/partitioned_convolver.h"

#include <algorithm>

#include "dsp/short_fir.h"
#include "dsp/vec.h"

namespace quillworks {
namespace {

using planar::kGroup;

// Relative costs, measured: a step of a transform per point, a product per bin and partition.
constexpr double kStepCost = 0.17, kProductCost = 0.16;
constexpr int kMostProducts = 4096;  // of bins and partitions in a unit
constexpr int kMostGathered = 64;    // groups in a unit, each far from the next

struct LayerPlan {
    int points, firstTap;
};
/// The first block of a layer is heard two blocks after it began, but that of the first one, whose
/// work is done at once, after one.
constexpr LayerPlan kLayers[] = {{64, 64}, {512, 1024}, {4096, 8192}, {16384, 32768}};

}  // namespace

template <typename T>
PartitionedConvolver<T>::Layer::Layer(int points, int first, int lastTap)
    : transform(points),
      firstTap(first),
      partitions((lastTap - first + points - 1) / points),
      ticks(points / kTick),
      slots(partitions | 1)  // an odd number of lines apart
{}

template <typename T>
std::unique_ptr<PartitionedConvolver<T>>
PartitionedConvolver<T>::make(int inputs, int outputs, std::vector<ConvolverPath> paths,
                              std::span<const float* const> responses, int length,
                              const std::function<bool()>& isCancelled)
{
    std::unique_ptr<PartitionedConvolver> made(new PartitionedConvolver);
    made->inputs_ = inputs;
    made->outputs_ = outputs;
    made->length_ = length;
    made->paths_ = std::move(paths);
    if (!made->build(responses, isCancelled)) return nullptr;
    made->reset();
    return made;
}

template <typename T>
bool PartitionedConvolver<T>::build(std::span<const float* const> responses,
                                    const std::function<bool()>& isCancelled)
{
    std::stable_sort(paths_.begin(), paths_.end(),
                     [](const auto& a, const auto& b) { return a.output < b.output; });
    history_.require(static_cast<std::size_t>(inputs_) * kHistory);
    tail_.require(static_cast<std::size_t>(outputs_) * kTick);
    for (const float* const response : responses) {
        Head& head = heads_.emplace_back();
        const int n = std::min(length_, kTick);
        for (int k = 0; k < n; ++k) head.taps[k] = T(response[k]);
        while (head.last < n && head.taps[head.last] == 0) ++head.last;
        head.first = head.last;
        for (int k = head.first; k < n; ++k)
            if (head.taps[k] != 0) head.last = k + 1;
    }
    for (std::size_t l = 0; l < std::size(kLayers); ++l) {
        const auto [points, firstTap] = kLayers[l];
        int lastTap = length_;
        if (l + 1 < std::size(kLayers) && (l < 2 || length_ > kLongResponse))
            lastTap = std::min(length_, kLayers[l + 1].firstTap);
        if (lastTap <= firstTap || (l == 3 && length_ <= kLongResponse)) break;
        Layer& layer = *layers_.emplace_back(std::make_unique<Layer>(points, firstTap, lastTap));
        layer.scratch.require(layer.transform.scratchValues());
        for (const float* const response : responses)
            if (!transformResponse(layer, response, layer.spectra.emplace_back(), isCancelled))
                return false;
        const auto p = static_cast<std::size_t>(points);
        const auto inputs = static_cast<std::size_t>(inputs_);
        layer.past.requireUncleared(inputs * 2 * p * static_cast<std::size_t>(layer.slots));
        layer.blocks.require(inputs * 3 * p);
        layer.results.require(static_cast<std::size_t>(outputs_) * 2 * p);
        listUnits(layer);
    }
    return true;
}

template <typename T>
bool PartitionedConvolver<T>::transformResponse(Layer& layer, const float* response,
                                                Spectra& spectra,
                                                const std::function<bool()>& isCancelled)
{
    const int p = layer.transform.points();
    const auto taps = [&](int partition) {
        const int first = layer.firstTap + partition * p;
        return std::span(response + first, static_cast<std::size_t>(std::min(p, length_ - first)));
    };
    const auto isSilent = [&](int partition) {
        return std::ranges::all_of(taps(partition), [](float x) { return x == 0; });
    };
    spectra.last = layer.partitions;
    while (spectra.last > 0 && isSilent(spectra.last - 1)) --spectra.last;
    while (spectra.first < spectra.last && isSilent(spectra.first)) ++spectra.first;
    const int count = spectra.last - spectra.first;
    if (count == 0) return true;
    spectra.values.requireUncleared(layer.transform.values() * static_cast<std::size_t>(count));
    AlignedBuffer<T> block(2 * static_cast<std::size_t>(p));
    for (int k = 0; k < count; ++k) {
        if (isCancelled && isCancelled()) return false;
        block.fill(0);
        const auto from = taps(spectra.first + k);
        std::copy(from.begin(), from.end(), block.data());
        for (int step = 0; step < layer.transform.steps(); ++step)
            layer.transform.forwardStep(step, block.data(), block.data() + p, layer.scratch.data());
        // The inverse gives P times the signal.
        layer.transform.gather(layer.scratch.data(), 1 / T(p),
                               spectra.values.data() + 2 * kGroup * k, 2 * kGroup * count, 0,
                               layer.transform.groups());
    }
    return true;
}

template <typename T> void PartitionedConvolver<T>::listUnits(Layer& layer)
{
    const int p = layer.transform.points(), steps = layer.transform.steps();
    double cost = 0;
    const auto add = [&](Unit unit, double own) {
        unit.cost = cost += own;
        layer.units.push_back(unit);
    };
    std::vector<bool> isHeard(static_cast<std::size_t>(inputs_));
    layer.feeds.assign(static_cast<std::size_t>(outputs_), false);
    const auto spectraOf = [&](const ConvolverPath& path) -> const Spectra& {
        return layer.spectra[static_cast<std::size_t>(path.response)];
    };
    for (const auto& path : paths_)
        if (spectraOf(path).last > spectraOf(path).first) {
            isHeard[static_cast<std::size_t>(path.input)] = true;
            layer.feeds[static_cast<std::size_t>(path.output)] = true;
        }
    for (int input = 0; input < inputs_; ++input) {
        if (!isHeard[static_cast<std::size_t>(input)]) continue;
        for (int step = 0; step < steps; ++step) add({Unit::Forward, input, step}, kStepCost * p);
        for (int g = 0; g < p / kGroup; g += kMostGathered) {
            const int groups = std::min(kMostGathered, p / kGroup - g);
            add({Unit::Gather, input, g, groups}, kStepCost * groups * kGroup);
        }
    }
    for (int output = 0; output < outputs_; ++output) {
        if (!layer.feeds[static_cast<std::size_t>(output)]) continue;
        bool isFirst = true;
        for (std::size_t i = 0; i < paths_.size(); ++i) {
            const auto& path = paths_[i];
            const int count = spectraOf(path).last - spectraOf(path).first;
            if (path.output != output || count == 0) continue;
            const int most = std::max(1, kMostProducts / kGroup / count);
            for (int g = 0; g < p / kGroup; g += most) {
                const int groups = std::min(most, p / kGroup - g);
                add({Unit::Product, static_cast<int>(i), g, groups, !isFirst},
                    kProductCost * groups * kGroup * count);
            }
            isFirst = false;
        }
        for (int step = 0; step < steps; ++step) add({Unit::Inverse, output, step}, kStepCost * p);
    }
}

template <typename T> void PartitionedConvolver<T>::reset() noexcept
{
    position_ = 0;
    history_.fill(0);
    tail_.fill(0);
    for (auto& layer : layers_) {
        layer->blocks.fill(0);
        layer->newest = layer->valid = layer->filling = layer->playing = layer->filled = 0;
        layer->isPlaying = layer->isMade = false;
        layer->unit = layer->units.size();
    }
}

template <typename T>
void PartitionedConvolver<T>::process(const T* const* in, T* const* out, int frames) noexcept
{
    for (int done = 0; done < frames;) {
        const int n = std::min(kTick - position_, frames - done);
        const int at = kTick + position_;
        for (int i = 0; i < inputs_; ++i) vec::copy(history(i) + at, in[i] + done, n);
        for (int o = 0; o < outputs_; ++o) vec::copy(out[o] + done, tail(o) + position_, n);
        for (const auto& path : paths_) {
            const Head& head = heads_[static_cast<std::size_t>(path.response)];
            if (head.first == head.last) continue;
            addFiltered(out[path.output] + done, history(path.input) + at - head.first,
                        head.taps + head.first, head.last - head.first, n);
        }
        done += n;
        position_ += n;
        if (position_ == kTick) endTick();
    }
}

template <typename T> void PartitionedConvolver<T>::endTick() noexcept
{
    position_ = 0;
    tail_.fill(0);
    for (auto& layer : layers_) {
        fill(*layer);
        work(*layer);
        play(*layer);
    }
    for (int i = 0; i < inputs_; ++i) vec::copy(history(i), history(i) + kTick, kTick);
}

/// The tick that has come goes into the open block; a full one is made the newest.
template <typename T> void PartitionedConvolver<T>::fill(Layer& layer) noexcept
{
    const int p = layer.transform.points();
    for (int i = 0; i < inputs_; ++i)
        vec::copy(layer.blocks.data() + (3 * i + layer.filling) * p + layer.filled * kTick,
                  history(i) + kTick, kTick);
    if (++layer.filled < layer.ticks) return;
    layer.filled = 0;
    layer.filling = (layer.filling + 1) % 3;
    layer.newest = (layer.newest == 0 ? layer.slots : layer.newest) - 1;
    layer.valid = std::min(layer.valid + 1, layer.partitions);
    layer.unit = 0;
    // What has been made of the block before is heard from now on.
    layer.playing = 1 - layer.playing;
    layer.isPlaying = layer.isMade;
    layer.isMade = true;
}

/// As large a share of the work as the share of the block's time that will have passed.
template <typename T> void PartitionedConvolver<T>::work(Layer& layer) noexcept
{
    if (layer.unit == layer.units.size()) return;
    const double due = layer.units.back().cost * (layer.filled + 1) / layer.ticks;
    while (layer.unit < layer.units.size() &&
           (layer.unit == 0 || layer.units[layer.unit - 1].cost < due ||
            layer.filled + 1 == layer.ticks))
        run(layer, layer.units[layer.unit++]);
}

template <typename T> void PartitionedConvolver<T>::run(Layer& layer, const Unit& unit) noexcept
{
    const int p = layer.transform.points();
    T* const scratch = layer.scratch.data();
    switch (unit.kind) {
    case Unit::Forward: {
        const T* const blocks = layer.blocks.data() + 3 * unit.index * p;
        const int newer = (layer.filling + 2) % 3, older = (layer.filling + 1) % 3;
        layer.transform.forwardStep(unit.step, blocks + older * p, blocks + newer * p, scratch);
        break;
    }
    case Unit::Gather: {
        const std::ptrdiff_t ring = std::ptrdiff_t{2} * p * layer.slots;
        layer.transform.gather(scratch, T(1),
                               layer.past.data() + unit.index * ring + 2 * kGroup * layer.newest,
                               2 * kGroup * layer.slots, unit.step, unit.groups);
        break;
    }
    case Unit::Product:
        runProduct(layer, unit);
        break;
    case Unit::Inverse: {
        T* const result =
            layer.results.data() + (2 * unit.index + 1 - layer.playing) * std::ptrdiff_t{p};
        layer.transform.inverseStep(unit.step, scratch, result);
        break;
    }
    }
}

template <typename T>
void PartitionedConvolver<T>::runProduct(Layer& layer, const Unit& unit) noexcept
{
    const auto& path = paths_[static_cast<std::size_t>(unit.index)];
    const Spectra& spectra = layer.spectra[static_cast<std::size_t>(path.response)];
    const int count = spectra.last - spectra.first;
    const int known = std::clamp(layer.valid - spectra.first, 0, count);
    const int slot = (layer.newest + spectra.first) % layer.slots;
    const int firstRun = std::min(known, layer.slots - slot);
    const std::ptrdiff_t xStep = 2 * kGroup * layer.slots, hStep = 2 * kGroup * count;
    const T* const x = layer.past.data() +
                       path.input * xStep * (layer.transform.points() / kGroup) + unit.step * xStep;
    T* const scratch = layer.scratch.data();
    const int bin = unit.step * kGroup;
    layer.transform.product({{x + 2 * kGroup * slot, x},
                             {firstRun, known - firstRun},
                             xStep,
                             spectra.values.data() + unit.step * hStep,
                             hStep,
                             layer.transform.spectrumRe(scratch) + bin,
                             layer.transform.spectrumIm(scratch) + bin,
                             unit.groups,
                             unit.adds});
}

template <typename T> void PartitionedConvolver<T>::play(const Layer& layer) noexcept
{
    const std::ptrdiff_t p = layer.transform.points();
    // The first layer's result is heard at once, its work being done.
    const bool isAtOnce = layer.ticks == 1;
    if (!(isAtOnce ? layer.isMade : layer.isPlaying)) return;
    const int which = isAtOnce ? 1 - layer.playing : layer.playing;
    for (int o = 0; o < outputs_; ++o)
        if (layer.feeds[static_cast<std::size_t>(o)])
            vec::addInplace(
                tail(o), layer.results.data() + (2 * o + which) * p + layer.filled * kTick, kTick);
}

template class PartitionedConvolver<float>;
template class PartitionedConvolver<double>;

}  // namespace quillworks
