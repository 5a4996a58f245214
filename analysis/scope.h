// SPDX-License-Identifier: ISC
// Scope: the waveform, standing still.
#pragma once

#include "analysis/scope_engine.h"
#include "framework/song_clock.h"

namespace quillworks {

/// Nothing of an oscilloscope's settings reaches the sound.
struct ScopeSettings {};

/// Hands signal and song on to the display.
template <typename T> class ScopeCore {
public:
    using Settings = ScopeSettings;
    static constexpr CoreHooks kHooks{};

    void prepare(const ProcessSpec& spec) { clock_.prepare(spec.sampleRate); }
    void reset() noexcept;
    void apply(const Settings&, unsigned) noexcept {}
    void process(const AudioBlock<T>& block) noexcept;
    void setCapture(CaptureRing& ring) noexcept { ring_ = &ring; }
    void setSong(CaptureRing& ring) noexcept { song_ = &ring; }

private:
    void captureSong(const AudioBlock<T>& block) noexcept;

    SongClock clock_;
    CaptureRing* ring_ = nullptr;
    CaptureRing* song_ = nullptr;
    SongAnchor anchor_;       // as captured last
    std::int64_t again_ = 0;  // frame from which it is captured anew, for those who came later
};

class TestScopeAlgorithm final : public MeterAlgorithm<ScopeCore, ScopeEngine> {
public:
    TestScopeAlgorithm();

private:
    void prepareCore(const ProcessSpec& spec, VNK::Precision precision) override;
    void resetCore() noexcept override;

    CaptureRing song_;
};

class TestScopeComponent final : public MeterComponent<TestScopeAlgorithm> {
public:
    explicit TestScopeComponent(TestScopeAlgorithm& algorithm);

private:
    void changed(const AlgorithmParameter& parameter, float before, Setter by) noexcept override;
};

}  // namespace quillworks
