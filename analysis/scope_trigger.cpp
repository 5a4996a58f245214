// SPDX-License-Identifier: ISC
#include "analysis/scope_trigger.h"

#include <algorithm>
#include <cmath>

namespace quillworks {
namespace {

constexpr double kPatience = 0.1;  // seconds without an edge before traces run free
constexpr double kLeastHysteresis = 1e-6;
constexpr std::size_t kMostRivals = 64;
// Beats that follow each other by a span may round to a frame less than it.
constexpr double kBeatTolerance = 2;
// Sums of positions miss a whole frame by less.
constexpr double kRounding = 1e-6;

/// How alike two waveforms are, 1 at most.
double likeness(const std::vector<float>& a, const std::vector<float>& b)
{
    double product = 0, powerA = 0, powerB = 0;
    for (std::size_t i = 0; i < std::min(a.size(), b.size()); ++i) {
        product += double(a[i]) * double(b[i]);
        powerA += double(a[i]) * double(a[i]);
        powerB += double(b[i]) * double(b[i]);
    }
    return product / std::max(std::sqrt(powerA * powerB), 1e-30);
}

}  // namespace

void ScopeTrigger::prepare(double sampleRate)
{
    sampleRate_ = sampleRate;
    const int scale = sampleRate < 50000    ? 1
                      : sampleRate < 100000 ? 2
                      : sampleRate < 200000 ? 4
                                            : 8;
    fundamental_.prepare(std::max(2048 * scale, static_cast<int>(0.05 * sampleRate)));
    clear();
}

void ScopeTrigger::clear()
{
    coming_.clear();
    anchor_ = {};
    state_ = TriggerState::Waiting;
    restart();
}

void ScopeTrigger::set(const TriggerSettings& settings)
{
    if (settings == settings_) return;
    const bool isChosen = settings.mode != settings_.mode;
    settings_ = settings;
    const bool staysTaken = state_ == TriggerState::Stopped && !isChosen;
    state_ = staysTaken ? TriggerState::Stopped : TriggerState::Waiting;
    restart();
}

void ScopeTrigger::arm()
{
    if (settings_.mode != TriggerMode::Single) return;
    state_ = TriggerState::Waiting;
    restart();
}

/// Waits anew from the present frame on.
void ScopeTrigger::restart()
{
    pending_.reset();
    rivals_.clear();
    reference_.clear();
    beat_.reset();
    armsUp_ = armsDown_ = false;
    since_ = notBefore_ = static_cast<double>(history_.end());
    freeRun_.reset();
    if (settings_.mode == TriggerMode::Free)
        freeRun_ = since_;
    else if (hasFreeRun())
        freeRun_ = since_ + patience();
}

int ScopeTrigger::span() const noexcept
{
    return std::clamp(static_cast<int>(settings_.span + 0.5), 2, history_.longestSpan());
}

double ScopeTrigger::patience() const noexcept
{
    return std::max(double(span()), kPatience * sampleRate_);
}

bool ScopeTrigger::hasFreeRun() const noexcept
{
    return settings_.mode == TriggerMode::Free || settings_.mode == TriggerMode::Auto ||
           settings_.mode == TriggerMode::Period || settings_.mode == TriggerMode::Beat;
}

bool ScopeTrigger::fits(double instant) const noexcept
{
    return instant >= notBefore_ &&
           static_cast<std::int64_t>(std::floor(instant)) - lead() >= history_.first();
}

void ScopeTrigger::takeAnchors(std::int64_t end)
{
    auto next = coming_.begin();
    for (; next != coming_.end() && next->from < end; ++next) {
        const bool wasLocked = anchor_.step > 0;
        SongAnchor renewed = *next;
        renewed.from = anchor_.from;
        if (renewed == anchor_) continue;
        anchor_ = *next;
        findBeat(static_cast<double>(anchor_.from));
        if (wasLocked && anchor_.step == 0 && freeRun_)
            freeRun_ = static_cast<double>(anchor_.from) + patience();
    }
    coming_.erase(coming_.begin(), next);
}

bool ScopeTrigger::advance(std::int64_t end)
{
    takeAnchors(end);
    if (!beat_ && followsBeat()) findBeat(notBefore_);

    if (state_ != TriggerState::Stopped) {
        if (followsBeat()) {
            if (beat_ && *beat_ <= static_cast<double>(end - 1)) {
                const double instant = *beat_;
                if (static_cast<std::int64_t>(instant + kRounding) - lead() >= history_.first())
                    trigger(instant);
                else
                    findBeat(instant + 1);
            }
        } else if (settings_.mode != TriggerMode::Free) {
            examine(end - 1 - kScopeReach);
            const auto isDue = [&] {
                return static_cast<double>(end) >= rivals_.front() + 2 * period_ + kScopeReach + 1;
            };
            if (!rivals_.empty() && isDue()) choose();
        }
    }
    if (!pending_ && freeRun_ && !followsBeat() && static_cast<double>(end) > *freeRun_) {
        state_ = TriggerState::Automatic;
        pending_ = ScopeTrace{static_cast<std::int64_t>(std::ceil(*freeRun_ - kRounding)), span()};
        freeRun_ = static_cast<double>(pending_->start + pending_->span);
    }
    const bool isWaiting = !pending_ && state_ == TriggerState::Triggered && !hasFreeRun();
    if (isWaiting && static_cast<double>(end) > since_ + patience()) state_ = TriggerState::Waiting;

    if (!pending_ || end < pending_->start + pending_->span) return false;
    finished_ = *pending_;
    pending_.reset();
    if (settings_.mode == TriggerMode::Single) state_ = TriggerState::Stopped;
    return true;
}

/// Looks for an edge between a frame and the one before.
void ScopeTrigger::examine(std::int64_t frame)
{
    if (frame <= history_.first()) return;
    const double level = settings_.level, margin = std::max(settings_.hysteresis, kLeastHysteresis);
    const auto before = double(history_.source(frame - 1)), now = double(history_.source(frame));
    const bool up = armsUp_ && before < level && now >= level;
    const bool down = armsDown_ && before > level && now <= level;
    armsUp_ = (armsUp_ && !up) || now < level - margin;
    armsDown_ = (armsDown_ && !down) || now > level + margin;
    if ((up && settings_.slope != Slope::Falling) || (down && settings_.slope != Slope::Rising))
        onEdge(frame - 1);
}

void ScopeTrigger::onEdge(std::int64_t before)
{
    if (static_cast<double>(before + 1) < notBefore_) return;
    const double instant = history_.crossing(before, settings_.level);
    if (!fits(instant)) return;
    if (settings_.mode != TriggerMode::Period) return trigger(instant);
    if (rivals_.empty()) {
        const int n = fundamental_.window();
        if (before - n < history_.first()) return trigger(instant);
        window_.resize(static_cast<std::size_t>(n));
        history_.copySource(before - n, n, window_.data());
        const auto period = fundamental_.period(window_.data());
        if (!period) return trigger(instant);
        period_ = *period;
    }
    if (rivals_.empty() || (instant < rivals_.front() + period_ && rivals_.size() < kMostRivals))
        rivals_.push_back(instant);
}

/// Takes the edge whose period is most like the last one shown.
void ScopeTrigger::choose()
{
    const auto n = static_cast<std::size_t>(period_ + 0.5);
    double best = -2, chosen = rivals_.front();
    std::vector<float> kept;
    for (const double rival : rivals_) {
        rival_.resize(n);
        history_.waveform(rival, rival_);
        const double like = reference_.empty() ? 0 : likeness(rival_, reference_);
        if (like <= best) continue;
        best = like;
        chosen = rival;
        kept.swap(rival_);
    }
    reference_.swap(kept);
    rivals_.clear();
    trigger(chosen);
}

void ScopeTrigger::trigger(double instant)
{
    const auto whole = static_cast<std::int64_t>(std::floor(instant + kRounding));
    pending_ = ScopeTrace{whole - lead(), span(), instant};
    state_ = TriggerState::Triggered;
    since_ = instant;
    notBefore_ = instant + std::max(double(span() - lead()), settings_.holdOff);
    if (hasFreeRun()) freeRun_ = since_ + patience();
    if (settings_.mode == TriggerMode::Single) notBefore_ = 1e300;  // until it is armed
    findBeat(std::max(notBefore_ - kBeatTolerance, instant + 1));
}

/// The first beat from a frame on.
void ScopeTrigger::findBeat(double from)
{
    beat_.reset();
    if (!followsBeat()) return;
    from = std::max(from, static_cast<double>(anchor_.from));
    const auto origin = static_cast<double>(anchor_.origin);
    const double place = (anchor_.position + (from - origin) * anchor_.step) / settings_.beat;
    const double framesPerBeat = settings_.beat / anchor_.step;
    const double beat = std::ceil(place - kRounding / framesPerBeat);
    beat_ = origin + (beat * settings_.beat - anchor_.position) / anchor_.step;
}

}  // namespace quillworks
