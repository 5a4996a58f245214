// SPDX-License-Identifier: ISC
// Display of what a dynamics effect heard and did over the last seconds.
#pragma once

#include <array>
#include <vector>

#include "framework/display_engine.h"

namespace quillworks {

/// Hands the highest level of each sub-block and its farthest gain from 1 to the display, for one
/// or more bands. [audio thread]
template <int bands> class GainCapture {
public:
    static constexpr int kChannels = 2 * bands;  // level and gain by turns

    void setRing(CaptureRing& ring) noexcept { ring_ = &ring; }
    void reset() noexcept { values_ = kNothing; }
    /// Whether anybody will see it; else nothing need be added.
    bool isRead() const noexcept { return ring_ && ring_->isRead(); }
    /// Of a slice: both linear.
    void add(int band, double level, double gain) noexcept
    {
        auto& value = values_[static_cast<std::size_t>(band)];
        value.loudest = std::max(value.loudest, static_cast<float>(level));
        value.lowest = std::min(value.lowest, static_cast<float>(gain));
        value.highest = std::max(value.highest, static_cast<float>(gain));
    }
    /// All bands of the slice have been added.
    void end(GridSlice slice) noexcept
    {
        if (!ring_ || slice.phase + slice.frames < kSubBlock) return;
        const float* channel[kChannels];
        for (std::size_t b = 0; b < bands; ++b) {
            const auto& value = values_[b];
            channel[2 * b] = &value.loudest;
            const bool rises = value.lowest * value.highest > 1;  // more than it falls, in decibels
            channel[2 * b + 1] = rises ? &value.highest : &value.lowest;
        }
        ring_->write(channel, 1);
        reset();
    }

private:
    struct Value {
        float loudest = 0, lowest = 1e30f, highest = 0;
    };
    static constexpr std::array<Value, bands> kNothing{};

    std::array<Value, bands> values_{};
    CaptureRing* ring_ = nullptr;
};

/// Keeps the last 8 s of it, in decibels. Its display "history" has "rate", the values a second,
/// "count", how many there have been, and for each band "level" and "gain" of the last ones, oldest
/// first, null in silence.
class GainHistory final : public DisplayEngine {
public:
    static constexpr double kSeconds = 8;

    explicit GainHistory(std::vector<const char*> bands) : names_(std::move(bands)) {}

    CaptureFormat format(const ProcessSpec& spec) const override;
    void prepare(const ProcessSpec& spec) override;
    void release() noexcept override;
    void reset() override { count_ = lost_ = 0; }
    void gap(std::int64_t next) override;
    void feed(float* const* x, int n, std::int64_t first) override;
    void publish(MeterSlots&) noexcept override {}
    void show(int index, VNK::IDisplaySink& sink) const override;

private:
    std::vector<const char*> names_;
    std::vector<std::vector<float>> lines_;  // level and gain of each band in dB, rings of `held_`
    double rate_ = 0;
    std::size_t held_ = 0;
    std::int64_t count_ = 0;  // values since the display began
    std::int64_t lost_ = 0;
};

}  // namespace quillworks
