// SPDX-License-Identifier: ISC
// The engine behind an oscilloscope's display.
#pragma once

#include <optional>
#include <vector>

#include "analysis/meter_engine.h"
#include "analysis/scope_readings.h"
#include "analysis/scope_trigger.h"

namespace quillworks {

/// The song's course as it crosses to the engine: each value as two floats of a capture ring.
inline constexpr int kSongChannels = 8;
void packAnchor(const SongAnchor& anchor, float (&to)[kSongChannels]) noexcept;

class ScopeEngine final : public MeterEngine {
public:
    /// Where the song's course comes from; what is captured there lies before its frames.
    void follow(CaptureRing& song) noexcept { song_ = &song; }
    using MeterEngine::set;
    /// `arms`: how often a single shot has been armed.
    void set(const TriggerSettings& settings, std::uint32_t arms);

private:
    void prepareMeter(const ProcessSpec& spec) override;
    void releaseMeter() noexcept override;
    void begin(std::int64_t first) override;
    void clear() override;
    void take(const float* const* x, int n) override;
    void publishMeter(MeterSlots& meters) noexcept override;
    void showMeter(int index, VNK::IDisplaySink& sink) const override;

    void readSong();
    void keepTrace();
    void readTrace();

    TriggerSettings settings_;
    std::uint32_t arms_ = 0;
    ScopeHistory history_;
    ScopeTrigger trigger_{history_};
    CaptureRing* song_ = nullptr;
    std::optional<CaptureRing::Reader> songReader_;
    std::vector<float> songFrames_;

    std::optional<ScopeTrace> shown_;
    std::vector<std::vector<float>> lines_;  // the shown trace, channel by channel
    std::vector<float> source_;              // what triggered it, from kScopeReach frames earlier
    std::vector<float> window_;              // the sound before its end
    bool isRead_ = true;
    ScopeReader reader_;
    Fundamental fundamental_;
    ScopeReadings readings_;
};

}  // namespace quillworks
