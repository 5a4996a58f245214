// SPDX-License-Identifier: ISC
#include <algorithm>
#include <cmath>

#include "dsp/decibel.h"
#include "dsp/sanitise.h"
#include "dsp/vec.h"
#include "dsp/vector_math.h"
#include "dynamics/lookahead.h"
#include "dynamics/multiband_dynamics.h"
#include "dynamics/multiband_meters.h"

namespace quillworks {
namespace {

constexpr double kPowerFloor = 1e-16;  // added to powers: -160 dB
constexpr float kNoLimit = 1e6f;       // dB
constexpr KeySharing kSharings[] = {KeySharing::Linked, KeySharing::PerChannel,
                                    KeySharing::MidSide};

}  // namespace

template <typename T> void MultiBandCore<T>::prepare(const ProcessSpec& spec)
{
    sampleRate_ = spec.sampleRate;
    channels_.prepare(sampleRate_, spec.channels, ReversedAllPass<T>::latency(sampleRate_));
    reversed_.prepare(sampleRate_, spec.channels, kMaxBands - 1);
    lookAhead_.resize(static_cast<std::size_t>(spec.channels * kMaxBands));
    for (auto& line : lookAhead_) line.prepare(lookAheadFrames(sampleRate_));
    for (const auto sharing : kSharings) {
        const int keys = channels_.sets(sharing) * kMaxBands;
        Bank& b = bank(sharing);
        b.above.prepare(keys);
        b.below.prepare(keys);
        b.gains.prepare(keys);
        b.low.prepare(keys);
    }
    dip_.prepare(sampleRate_);
    sharing_.prepare(sampleRate_, 0.01);
    const double half = glideSubBlocks(sampleRate_);
    constexpr double kTolerance = 0.0087;  // dB: 0.1 %
    for (int b = 0; b < kMaxBands; ++b) {
        gain_[b].prepare(half, kTolerance);
        range_[b].prepare(half, kTolerance);
    }
    amount_.prepare(half, 0.001);
    outGain_.prepare(half, kTolerance);
    mix_.prepare(sampleRate_, 0.03);
    switches_.prepare(sampleRate_);
    learner_.prepare(sampleRate_);
    levels_.prepare(spec);
}

template <typename T> void MultiBandCore<T>::reset() noexcept
{
    present_ = wanted_;
    dip_.reset();
    adopt();
    sharing_.snap();
    for (int b = 0; b < kMaxBands; ++b) {
        gain_[b].snap();
        range_[b].snap();
    }
    amount_.snap();
    outGain_.snap();
    mix_.snap();
    levels_.reset();
    history_.reset();
}

/// Everything begins anew with the present form.
template <typename T> void MultiBandCore<T>::adopt() noexcept
{
    present_ = wanted_;
    channels_.splitter().setBands(present_.bands);
    channels_.setBusDelay(present_.isLinear ? ReversedAllPass<T>::latency(sampleRate_) : 0);
    channels_.reset();
    reversed_.reset();
    for (auto& line : lookAhead_) line.reset();
    for (const auto sharing : kSharings) {
        const int sets = channels_.sets(sharing), keys = sets * present_.bands;
        Bank& b = bank(sharing);
        b.gains.shape(sets, present_.bands);
        b.low.shape(sets, present_.bands);
        b.above.use(keys);
        b.below.use(keys);
    }
    updateTimes();
    for (auto& b : banks_) {
        b.above.reset();
        b.below.reset();
    }
    updateCurves();
    updateSwitches();
    switches_.snap();
    restsBelow_ = false;
    learner_.start();
}

template <typename T> int MultiBandCore<T>::latency() const noexcept
{
    return (present_.isLinear ? ReversedAllPass<T>::latency(sampleRate_) : 0) +
           (present_.looksAhead ? lookAheadFrames(sampleRate_) : 0);
}

template <typename T> void MultiBandCore<T>::apply(const Settings& s, unsigned dirty) noexcept
{
    settings_ = s;
    if (dirty & Structure) {
        wanted_ = {static_cast<int>(s.bands), s.linear != 0, s.lookAhead != 0};
        if (wanted_ != present_) dip_.request();
    }
    if (dirty & Splits)
        for (int i = 0; i < kMaxBands - 1; ++i) channels_.splitter().target(i, s.split[i]);
    if (dirty & (Times | Splits)) updateTimes();
    if (dirty & Curves) updateCurves();
    if (dirty & Switches) updateSwitches();
    if (dirty & Stereo)
        sharing_.target(channels_.possible(static_cast<KeySharing>(static_cast<int>(s.stereo))));
    if (dirty & Gains) {
        for (int b = 0; b < kMaxBands; ++b) {
            gain_[b].target(s.gain[b]);
            range_[b].target(s.range[b]);
        }
        amount_.target(s.amount);
    }
    if (dirty & Mixing) {
        mix_.target(T(s.mix));
        outGain_.target(s.outGain);
    }
    if (dirty & Learning) {
        if ((s.learn != 0 && !isLearning_) || s.learnings != learnings_) learner_.start();
        learnings_ = s.learnings;
        isLearning_ = s.learn != 0;
    }
    if (dirty & Editor) levels_.setOpen(s.editorOpen != 0);
}

template <typename T> void MultiBandCore<T>::updateTimes() noexcept
{
    const auto& s = settings_;
    double edge = 0;  // Hz; a band has passed all splits below it, in whatever order they stand
    for (int b = 0; b < present_.bands; ++b) {
        if (b > 0) edge = std::max(edge, double(s.split[b - 1]));
        const double attack = followerCoefficient(sampleRate_, s.attack[b]);
        const double release = followerCoefficient(sampleRate_, s.release[b]);
        const int hold = KeyDetectors::holdFrames(sampleRate_, edge);
        for (auto& bank : banks_)
            for (int key = b; key < bank.above.keys(); key += present_.bands) {
                bank.above.setTimes(key, attack, release, hold);
                bank.below.setTimes(key, attack, release, hold);
            }
    }
}

template <typename T> void MultiBandCore<T>::updateCurves() noexcept
{
    const auto& s = settings_;
    asksBelow_ = false;
    for (int b = 0; b < present_.bands; ++b) {
        auto& law = law_[b];
        law.above = CompressionCurve::of(s.threshold[b], std::abs(s.slope[b]), s.knee);
        law.aboveSign = s.slope[b] < 0 ? T(1) : T(-1);
        law.lowThreshold = T(s.lowThreshold[b]);
        law.lowSlope = T(std::abs(s.lowRatio[b] - 1));
        law.lowSign = s.lowRatio[b] < 1 ? T(1) : T(-1);
        law.mostLow = s.amount > 0 ? std::min(T(s.range[b]) / T(s.amount), T(kNoLimit)) : kNoLimit;
        asksBelow_ |= law.lowSlope != 0;
    }
}

template <typename T> void MultiBandCore<T>::updateSwitches() noexcept
{
    switches_.target(settings_.bandOn, settings_.solo, settings_.mute, present_.bands);
}

template <typename T> void MultiBandCore<T>::process(const AudioBlock<T>& block) noexcept
{
    for (auto& meter : meter_) meter = {};
    levels_.around(
        block, [](T* x, int n) { sanitise(x, n, kLoudestSignal); },
        [this](const AudioBlock<T>& piece) {
            forEachSubBlock(piece, [this](const AudioBlock<T>& part) { processSlice(part); });
        });
    if (ground_) ground_->write(block.channel, block.frames);
}

template <typename T> void MultiBandCore<T>::processSlice(const AudioBlock<T>& part) noexcept
{
    const int n = part.frames;
    for (auto& seen : seen_) seen = {};
    if (dip_.next(part)) {
        adopt();
        dip_.wait(latency());
    }
    T* x[VNK::kMaxChannels];
    for (int c = 0; c < part.channels; ++c) x[c] = part[c];
    channels_.begin(part);
    if (present_.isLinear)
        reversed_.process(x, part, present_.bands - 1,
                          [&](int split) { return channels_.splitter().frequency(split); });
    channels_.split(part);

    if (sharing_.next(part)) {
        Bank &after = bank(sharing_.present()), &before = bank(sharing_.leaving());
        after.above.takeOver(before.above, present_.bands);
        after.below.takeOver(before.below, present_.bands);
    }
    switches_.next(part);
    const auto asSet = [](double value) { return value; };
    for (int b = 0; b < present_.bands; ++b) {
        gain_[b].follow(part, asSet);
        range_[b].follow(part, asSet);
    }
    amount_.follow(part, asSet);
    mixCourse_.follow(mix_, part);
    if (sharing_.isFading()) detect(sharing_.leaving(), part, false);
    detect(sharing_.present(), part, true);
    gather(part);

    applyGains(part);
    channels_.join(part);
    outGain_.follow(part, [](double db) { return dbToGain(db); });
    for (int c = 0; c < part.channels; ++c) {
        outGain_.scale(x[c], part);
        dip_.apply(x[c], n);
    }
    dip_.advance(n);
    switches_.advance(n);
    sharing_.advance(n);
}

/// Meters of the keys' powers, and what is learned of them.
template <typename T> void MultiBandCore<T>::measureKeys(KeyRows<T>& rows, int n) noexcept
{
    const int sets = rows.keys() / present_.bands;
    for (int b = 0; b < present_.bands; ++b) {
        for (int s = 0; s < sets; ++s)
            seen_[b].power = std::max(seen_[b].power, vec::peak(rows.of(s, b), n));
        if (!isLearning_) continue;
        T loudest[kSubBlock];
        vec::copy(loudest, rows.of(0, b), n);
        for (int s = 1; s < sets; ++s) vec::max(loudest, rows.of(s, b), n);
        learner_.take(b, loudest, n);
    }
    if (isLearning_) learner_.advance(n);
}

/// What the slice has shown, for the meters, which show the call's extremes, and the history.
template <typename T> void MultiBandCore<T>::gather(GridSlice slice) noexcept
{
    for (int b = 0; b < kMaxBands; ++b) {
        const Meter& seen = seen_[b];
        auto& [change, power] = meter_[b];
        power = std::max(power, seen.power);
        if (std::abs(seen.change) > std::abs(change)) change = seen.change;
        if (history_.isRead()) {
            const bool isHeard = b < present_.bands && switches_.isOn(b);
            history_.add(b, std::sqrt(double(seen.power)),
                         isHeard ? dbToGain(double(seen.change)) : 1.0);
        }
    }
    history_.end(slice);
}

/// Whether the parts below have something to do. They rest by whole sub-blocks, with everything
/// forgotten, and wake where a setting asks for them.
template <typename T> bool MultiBandCore<T>::runsBelow(GridSlice slice) noexcept
{
    if (asksBelow_) {
        restsBelow_ = false;
    } else if (slice.begins()) {
        restsBelow_ = bank(sharing_.present()).below.isIdle() &&
                      (!sharing_.isFading() || bank(sharing_.leaving()).below.isIdle());
        if (restsBelow_)
            for (auto& b : banks_) b.below.reset();
    }
    return !restsBelow_;
}

/// The gains of all keys of one sharing.
template <typename T>
void MultiBandCore<T>::detect(KeySharing sharing, GridSlice slice, bool isPresent) noexcept
{
    const int n = slice.frames;
    Bank& bank = this->bank(sharing);
    KeyRows<T>& rows = bank.gains;
    channels_.powers(sharing, rows.data(), n);
    if (isPresent) measureKeys(rows, n);
    rows.map(n, [](T* x, int count) { vec::decibelsFromPower(x, x, T(kPowerFloor), count); });
    const bool hasBelow = runsBelow(slice);
    if (hasBelow) {
        const int sets = rows.keys() / present_.bands;
        for (int s = 0; s < sets; ++s)
            for (int b = 0; b < present_.bands; ++b) {
                const auto& law = law_[b];
                const T *const level = rows.of(s, b), least = 0;
                T* const low = bank.low.of(s, b);
                for (int i = 0; i < n; ++i) {
                    const T asked = law.lowSlope * (law.lowThreshold - level[i]);
                    low[i] = std::min(std::max(asked, least), law.mostLow);
                }
            }
        bank.below.run(bank.low.data(), n);
    }
    rows.forEach([&](int b, T* row) { law_[b].above.reduce(row, n); });
    const bool isIdle = bank.above.run(rows.data(), n);
    bank.isIdle = isIdle && !hasBelow;
    if (bank.isIdle)
        rows.forEach([&](int b, T* row) { vec::copy(row, gain_[b].of(slice), n); });
    else
        combine(bank, hasBelow, slice, isPresent);
    rows.map(n, [](T* x, int count) { vec::gainFromDecibels(x, x, count); });
    rows.forEach([&](int b, T* row) { switches_.apply(b, row, mixCourse_, slice); });
}

/// Both parts to decibels of gain.
template <typename T>
void MultiBandCore<T>::combine(Bank& bank, bool hasBelow, GridSlice slice, bool isPresent) noexcept
{
    const int n = slice.frames, sets = bank.gains.keys() / present_.bands;
    const T* const amount = amount_.of(slice);
    for (int s = 0; s < sets; ++s)
        for (int b = 0; b < present_.bands; ++b) {
            const auto& law = law_[b];
            T* const row = bank.gains.of(s, b);
            const T* const range = range_[b].of(slice);
            if (hasBelow) {
                const T* const low = bank.low.of(s, b);
                for (int i = 0; i < n; ++i) row[i] = law.aboveSign * row[i] + law.lowSign * low[i];
            } else {
                vec::scale(row, law.aboveSign, n);
            }
            for (int i = 0; i < n; ++i) {
                const T change = amount[i] * row[i];
                row[i] = std::min(std::max(change, -range[i]), range[i]);
            }
            if (isPresent) {
                T& farthest = seen_[b].change;
                const T most = vec::peak(row, n);
                if (most > std::abs(farthest))
                    farthest = std::find(row, row + n, most) != row + n ? most : -most;
            }
            vec::addInplace(row, gain_[b].of(slice), n);
        }
}

/// The samples of a band that meet their gain: with look-ahead, those of a while ago.
template <typename T> const T* MultiBandCore<T>::delayed(int band, int channel, int n) noexcept
{
    const T* const x = channels_.band(band, channel);
    if (!present_.looksAhead) return x;
    return lookAhead_[static_cast<std::size_t>(channel * kMaxBands + band)].push(x, n);
}

template <typename T> void MultiBandCore<T>::applyGains(const AudioBlock<T>& part) noexcept
{
    const int n = part.frames;
    const auto isMatrix = [](KeySharing sharing) { return sharing == KeySharing::MidSide; };
    Bank& present = bank(sharing_.present());
    const bool isFading = sharing_.isFading();
    for (int b = 0; b < present_.bands; ++b) {
        if (!isFading && present.isIdle && gain_[b].is(0) && switches_.passes(b)) {
            for (int c = 0; present_.looksAhead && c < part.channels; ++c)
                vec::copy(channels_.band(b, c), delayed(b, c, n), n);
            continue;
        }
        if (isMatrix(sharing_.present()) || (isFading && isMatrix(sharing_.leaving()))) {
            applyToPair(b, n);
            continue;
        }
        for (int c = 0; c < part.channels; ++c) {
            T room[kSubBlock];
            const T* const gain = fadedRow(sharing_, room, n, [&](KeySharing sharing) {
                return bank(sharing).gains.of(sharing == KeySharing::Linked ? 0 : c, b);
            });
            vec::mulCopy(channels_.band(b, c), delayed(b, c, n), gain, n);
        }
    }
}

/// Mid and side times their gains: with a, d = (G_M +- G_S)/2, L becomes a L + d R and R d L + a R.
/// Everything else is linear, so they need not be formed in front of the bands.
template <typename T> void MultiBandCore<T>::applyToPair(int band, int n) noexcept
{
    T rooms[2][2][kSubBlock];
    Matrix gains = matrix(sharing_.present(), band, rooms[0], n);
    T faded[3][kSubBlock];
    if (sharing_.isFading()) {
        const Matrix before = matrix(sharing_.leaving(), band, rooms[1], n);
        const T none[kSubBlock] = {};
        const auto fade = [&](T* to, const T* fresh, const T* old) {
            vec::copy(to, fresh ? fresh : none, n);
            sharing_.fade().mix(to, old ? old : none, n);
        };
        fade(faded[0], gains.left, before.left);
        fade(faded[1], gains.right, before.right);
        fade(faded[2], gains.cross, before.cross);
        gains = {faded[0], faded[1], faded[2]};
    }
    const T* const left = delayed(band, 0, n);
    const T* const right = delayed(band, 1, n);
    T *const toLeft = channels_.band(band, 0), *const toRight = channels_.band(band, 1);
    for (int i = 0; i < n; ++i) {
        const T l = left[i], r = right[i];
        toLeft[i] = gains.left[i] * l + gains.cross[i] * r;
        toRight[i] = gains.right[i] * r + gains.cross[i] * l;
    }
}

template <typename T>
auto MultiBandCore<T>::matrix(KeySharing sharing, int band, T (*room)[kSubBlock], int n) noexcept
    -> Matrix
{
    KeyRows<T>& rows = bank(sharing).gains;
    const T* const first = rows.of(0, band);
    if (sharing == KeySharing::Linked) return {first, first, nullptr};
    const T* const second = rows.of(1, band);
    if (sharing == KeySharing::PerChannel) return {first, second, nullptr};
    for (int i = 0; i < n; ++i) {
        room[0][i] = (first[i] + second[i]) * T(0.5);
        room[1][i] = (first[i] - second[i]) * T(0.5);
    }
    return {room[0], room[0], room[1]};
}

template <typename T> void MultiBandCore<T>::publish(MeterSlots& meters) noexcept
{
    constexpr float kNone = std::numeric_limits<float>::quiet_NaN();  // of bands not in use
    meters.publishFamily(kBandChange, kMaxBands, [&](int b) {
        if (b >= present_.bands) return kNone;
        if (!switches_.isOn(b)) return 0.0f;
        return std::clamp(static_cast<float>(meter_[b].change), -kMostChange, kMostChange);
    });
    meters.publishFamily(kBandLevel, kMaxBands, [&](int b) {
        if (b >= present_.bands) return kNone;
        const double level = gainToDb(std::sqrt(double(meter_[b].power)));
        return std::clamp(static_cast<float>(level), kLowestLevel, kHighestLevel);
    });
    if (isLearning_)
        meters.publishFamily(kLearned, kMaxBands, [&](int b) {
            const double level = b < present_.bands ? learner_.level(b) : double(kNothingLearned);
            if (std::isnan(level)) return kNothingLearned;
            return std::clamp(static_cast<float>(level), kLowestLearned, kHighestLevel);
        });
    levels_.publish(meters);
}

template class MultiBandCore<float>;
template class MultiBandCore<double>;

}  // namespace quillworks
