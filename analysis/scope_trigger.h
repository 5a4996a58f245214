// SPDX-License-Identifier: ISC
// Decides which stretches of the signal an oscilloscope shows.
#pragma once

#include <optional>
#include <vector>

#include "analysis/fundamental.h"
#include "analysis/scope_history.h"

namespace quillworks {

enum class TriggerMode { Free, Auto, Normal, Single, Period, Beat };
enum class TriggerState { Waiting, Triggered, Automatic, Stopped };
enum class Slope { Rising, Falling, Either };

struct TriggerSettings {
    double span = 960;  // samples
    TriggerMode mode = TriggerMode::Auto;
    int source = 0;  // of ScopeHistory::setSource
    Slope slope = Slope::Rising;
    double level = 0;  // full scale = 1
    double hysteresis = 0.02;
    double holdOff = 0;       // samples
    double preTrigger = 0.1;  // of the span
    double beat = 4;          // quarter notes from beat to beat

    bool operator==(const TriggerSettings&) const = default;
};

/// From frame `from` on the song stands at position + (frame - origin) * step quarter notes; at no
/// known place while step is 0.
struct SongAnchor {
    std::int64_t from = 0, origin = 0;
    double position = 0, step = 0;

    bool operator==(const SongAnchor&) const = default;
};

/// A stretch of signal.
struct ScopeTrace {
    std::int64_t start = 0;  // number of its first frame
    int span = 0;            // frames
    /// The instant that triggered it, between the samples, counted like frames; none on a free run.
    std::optional<double> instant = {};
};

/// A function of the frames alone: every decision waits until a fixed number of frames is there.
class ScopeTrigger {
public:
    explicit ScopeTrigger(const ScopeHistory& history) : history_(history) {}

    void prepare(double sampleRate);
    /// The signal goes on behind a seam, where the history begins.
    void begin() { restart(); }
    /// The signal begins anew, and so does the count of frames.
    void clear();
    /// Waits for something new from the history's end on. A single shot that has been taken stays
    /// so, unless single shots have only now been chosen.
    void set(const TriggerSettings& settings);
    /// Makes a single shot possible again.
    void arm();
    void follow(const SongAnchor& anchor) { coming_.push_back(anchor); }

    /// `end` frames are there, one more than at the last call. Whether the trace shown is another.
    bool advance(std::int64_t end);
    const ScopeTrace& finished() const noexcept { return finished_; }
    TriggerState state() const noexcept { return state_; }

    /// Window of the sound in which the period is sought, in frames.
    int periodWindow() const noexcept { return fundamental_.window(); }

private:
    void restart();
    int span() const noexcept;
    int lead() const noexcept { return static_cast<int>(settings_.preTrigger * span() + 0.5); }
    double patience() const noexcept;
    bool followsBeat() const noexcept
    {
        return settings_.mode == TriggerMode::Beat && anchor_.step > 0;
    }
    void takeAnchors(std::int64_t end);
    bool hasFreeRun() const noexcept;
    bool fits(double instant) const noexcept;
    void examine(std::int64_t frame);
    void onEdge(std::int64_t before);
    void choose();
    void trigger(double instant);
    void findBeat(double from);

    const ScopeHistory& history_;
    TriggerSettings settings_;
    double sampleRate_ = 48000;
    SongAnchor anchor_;  // in force
    std::vector<SongAnchor> coming_;
    TriggerState state_ = TriggerState::Waiting;
    bool armsUp_ = false, armsDown_ = false;
    double since_ = 0;                   // the last instant, or where waiting began
    double notBefore_ = 0;               // of the next instant
    std::optional<double> freeRun_;      // where the next automatic trace begins
    std::optional<ScopeTrace> pending_;  // waits for its frames
    ScopeTrace finished_;
    std::optional<double> beat_;  // the next beat's instant

    // A choice between the crossings of one period.
    std::vector<double> rivals_;
    double period_ = 0;
    std::vector<float> reference_, rival_;  // waveforms over a period from an instant on
    Fundamental fundamental_;
    std::vector<float> window_;
};

}  // namespace quillworks
