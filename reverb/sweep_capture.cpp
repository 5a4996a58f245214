// SPDX-License-Identifier: ISC
#include "reverb/sweep_capture.h"

#include <algorithm>
#include <cmath>

namespace quillworks {

double CapturePlan::bytes() const noexcept
{
    const double paths = sourceCount() * (inputs + (hasReference ? 1 : 0));
    const double frames =
        static_cast<double>(Sweep(sweep).frames()) + tailSeconds * sweep.sampleRate;
    return sizeof(float) * (paths + 1) * frames;
}

SweepCapture::SweepCapture(const CapturePlan& plan, const CaptureShape& shape)
    : plan_(plan),
      serial_(shape.serial),
      isRefused_(plan.bytes() > CapturePlan::kMostBytes),
      data_(Sweep(plan.sweep))
{
    if (isRefused_) return;
    const auto count = [](int n) { return static_cast<std::size_t>(n); };
    data_.excitation = data_.sweep.samples();
    data_.tail = static_cast<std::size_t>(std::lround(plan.tailSeconds * plan.sweep.sampleRate));
    data_.sources = plan.sourceCount();
    data_.microphones = plan.inputs;
    const std::vector<float> silence(data_.frames());
    data_.recorded.assign(count(data_.sources) * count(data_.microphones), silence);
    if (plan.hasReference) data_.reference.assign(count(data_.sources), silence);
    noiseFrames_ =
        static_cast<int>(std::lround((kQuietSeconds - kNoiseFromSeconds) * plan.sweep.sampleRate));
    data_.noise.assign(count(plan.inputs), std::vector<float>(count(noiseFrames_)));
}

std::unique_ptr<SweepCapture> SweepCapture::refused(CapturePlan plan, const CaptureShape& shape)
{
    plan.tailSeconds = CapturePlan::kMostBytes;  // beyond any
    return std::make_unique<SweepCapture>(plan, shape);
}

void SweepCapture::takeNoise(const float* const* inputs, int first, int frames) noexcept
{
    for (std::size_t c = 0; c < data_.noise.size(); ++c)
        std::copy_n(inputs[c], frames, data_.noise[c].data() + first);
}

void SweepCapture::take(const float* const* inputs, const float* reference, int source, int first,
                        int frames) noexcept
{
    const auto add = [=](std::vector<float>& to, const float* x) {
        float* const at = to.data() + first;
        for (int i = 0; i < frames; ++i) at[i] += x[i];
    };
    const auto row = static_cast<std::size_t>(source) * static_cast<std::size_t>(plan_.inputs);
    for (std::size_t c = 0; c < static_cast<std::size_t>(plan_.inputs); ++c) {
        add(data_.recorded[row + c], inputs[c]);
        for (int i = 0; i < frames; ++i)
            data_.clipped += std::abs(inputs[c][i]) >= kFullScale ? 1 : 0;
    }
    if (reference && plan_.hasReference)
        add(data_.reference[static_cast<std::size_t>(source)], reference);
}

SweepMeasurement& SweepCapture::finish() noexcept
{
    const float share = 1 / static_cast<float>(plan_.passes);
    const auto scale = [share](auto& rows) {
        for (auto& row : rows)
            for (float& x : row) x *= share;
    };
    if (plan_.passes > 1) scale(data_.recorded), scale(data_.reference);
    plan_.passes = 1;
    // A bus that brought nothing is no loopback.
    for (const auto& row : data_.reference)
        if (std::all_of(row.begin(), row.end(), [](float x) { return x == 0; })) {
            data_.reference.clear();
            break;
        }
    return data_;
}

void CaptureExchange::prepare(double sampleRate, int inputs, int outputs)
{
    {
        const std::lock_guard lock(mutex_);
        shape_ = {sampleRate, inputs, outputs, shape_.serial + 1};
    }
    if (isWaiting()) requestWork();
}

CaptureShape CaptureExchange::shape() const
{
    const std::lock_guard lock(mutex_);
    return shape_;
}

void CaptureExchange::offer(std::unique_ptr<SweepCapture> capture)
{
    captures_.push_back(std::move(capture));
    if (auto* const late = offered_.exchange(captures_.back().get(), std::memory_order_acq_rel))
        late->giveBack(SweepCapture::State::Abandoned);
}

bool CaptureExchange::isOffered(const CapturePlan& plan) const noexcept
{
    const auto* const last = captures_.empty() ? nullptr : captures_.back().get();
    return last && offered_.load(std::memory_order_relaxed) == last && last->plan() == plan &&
           last->serial() == shape().serial;
}

std::unique_ptr<SweepCapture> CaptureExchange::collect()
{
    std::erase_if(captures_,
                  [](const auto& c) { return c->state() == SweepCapture::State::Abandoned; });
    const auto done = std::find_if(captures_.begin(), captures_.end(), [](const auto& c) {
        return c->state() == SweepCapture::State::Complete;
    });
    if (done == captures_.end()) return {};
    auto capture = std::move(*done);
    captures_.erase(done);
    return capture;
}

SweepCapture* CaptureExchange::take() noexcept
{
    return offered_.exchange(nullptr, std::memory_order_acq_rel);
}

}  // namespace quillworks
