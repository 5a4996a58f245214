// SPDX-License-Identifier: ISC
#include "delay/tape_line.h"

#include <algorithm>
#include <cmath>

namespace quillworks {
namespace {

// The last 36 recorded samples and those of a sub-block are in use.
constexpr int kRecordCapacity = 128;

constexpr int kLeastTape = 512;  // well above what one sub-block writes, at any sample rate

/// Cut-offs stay this much above the Nyquist frequency of the slower side: speeds a little off 1,
/// as in a slow vibrato, keep the whole treble.
constexpr float kMargin = 1.03f;

/// Places of the heads are whole multiples of 2^-28 of a sample: sums of them are exact, and a
/// place is the same from wherever in the signal it is counted.
double onGrid(double samples)
{
    constexpr double kWhole = 3 << 23;  // from here on doubles are multiples of 2^-28
    return samples + kWhole - kWhole;
}

}  // namespace

void TapeLine::prepare(int channels, double sampleRate, double glideHalfLifeSamples)
{
    rows_ = &SincRows::shared();
    channels_ = channels;
    recorded_.prepare(channels, kRecordCapacity);
    tape_.prepare(channels, std::max(static_cast<int>(kLongest * sampleRate) + 64, kLeastTape));
    length_.prepare(glideHalfLifeSamples);
    recordRows_ = playRows_ = rows_->below(1);
}

void TapeLine::reset() noexcept
{
    recorded_.clear();
    tape_.clear();
    length_.snap();
    remainder_ = 0;
}

void TapeLine::begin(Ramp<float> speed) noexcept
{
    if (speed.from == 1 && speed.to == 1 && remainder_ != 0) {
        // The motor has come to rest at 1: the heads slide onto the tape's samples, at most by
        // 0.1 %, so that from there on the way is transparent again.
        const double step = std::clamp(remainder_, -1.0 / kSubBlock, 1.0 / kSubBlock);
        speed.from = speed.to = static_cast<float>(1 - step / kSubBlock);
        if (std::abs(remainder_) < 1e-5) remainder_ = 0;
        if (remainder_ == 0) speed = {1, 1};
    }
    const bool rests = length_.isResting();
    isSteady_ = rests && remainder_ == 0 && speed.from == 1 && speed.to == 1;
    if (isSteady_) return;

    const double before = length_.current();
    length_.next(lengths_, kSubBlock);
    for (double& length : lengths_) length = onGrid(length);
    for (int i = 0; i < kSubBlock; ++i)
        speed_[i] = speed.from + (speed.to - speed.from) * float(i + 1) / kSubBlock;
    const float slowest = std::min(speed.from, speed.to);
    recordRows_ = rows_->below(kMargin * slowest);
    // Over the tape the play head moves with it and against its own glide.
    const double glide = rests ? 0 : lengths_[0] - before;
    const auto fastest = std::max(std::abs(speed.from - glide), std::abs(speed.to - glide));
    playRows_ = rows_->below(kMargin / std::max(0.1f, static_cast<float>(fastest)));
}

/// Samples from `phase` on whose tape the record head can write before they are recorded. A tape
/// sample is due half a tape sample before the tape has come to it; the record head looks kHeads
/// samples back and 16 ahead from there: 4 samples less half a tape sample's time.
int TapeLine::lead(int phase) const noexcept
{
    constexpr int kMost = 3;
    const float slowest = std::min(speed_[phase], speed_[std::min(phase + kMost, kSubBlock) - 1]);
    return slowest >= 0.5f ? kMost : slowest >= 0.25f ? 2 : slowest > kSlowest ? 1 : 0;
}

int TapeLine::run(int phase, int n) const noexcept
{
    if (isSteady()) return std::min(n, kPlay + static_cast<int>(length_.current()));
    const double shortest = std::min(lengths_[phase], lengths_[phase + n - 1]);
    const float fastest = std::max(speed_[phase], speed_[phase + n - 1]);
    // The play head's last tap lies kPlay - 16 + length tape samples behind the present one, which
    // has to be reached by what the record head can write in advance. Without a lead the speed is
    // so low that this is several samples even at length 0.
    return std::min(n, lead(phase) + static_cast<int>((shortest + 1.5) / double(fastest)));
}

/// Which tape samples become due in the next n output samples, and where the heads stand. Speeds
/// are floats of at least 1/8, so the sums of positions are exact.
void TapeLine::move(int phase, int n) noexcept
{
    double position = remainder_;  // from the tape sample that was nearest before
    int moved = 0;
    const int lead = this->lead(phase);
    ahead_ = 0;
    for (int i = 0; i < n; ++i) {
        const double speed = double(speed_[phase + i]);
        const double perTape = onGrid(1 / speed);
        // Tape sample j, counted from 1, passes the record head at the time i + (j - position) /
        // speed after the last recorded sample. Mostly one or two do; what is written too much is
        // overwritten.
        const double at = kHeads - i - onGrid((moved + 1 - position) * perTape);
        recordAt_[moved] = at;
        recordAt_[moved + 1] = at - perTape;
        position += speed;
        const int now = static_cast<int>(position + 0.5);
        for (int j = moved + 2; j < now; ++j) recordAt_[j] = at - (j - moved) * perTape;
        moved = now;
        playAt_[i] = kPlay + lengths_[phase + i] - position;
        if (i < lead) ahead_ = moved;
    }
    remainder_ = position - moved;
    newTape_ = moved;
}

void TapeLine::play(int phase, int n, float* const* out) noexcept
{
    if (isSteady()) {
        tape_.copy(out, kPlay - 1 + static_cast<int>(length_.current()), n);
        return;
    }
    move(phase, n);
    if (ahead_ > 0) {
        float buffer[2][kMaxNew];
        float* const tape[2] = {buffer[0], buffer[1]};
        recorded_.read(tape, recordAt_, ahead_, recordRows_);
        tape_.write(tape, ahead_);
        for (int i = 0; i < n; ++i) playAt_[i] += ahead_;
    }
    tape_.read(out, playAt_, n, playRows_);
}

void TapeLine::record(const float* const* in, int n) noexcept
{
    recorded_.write(in, n);
    float buffer[2][kMaxNew];
    float* const tape[2] = {buffer[0], buffer[1]};
    if (isSteady()) {
        recorded_.copy(tape, n - 1 + kHeads, n);
        tape_.write(tape, n);
        return;
    }
    const int left = newTape_ - ahead_;
    if (left <= 0) return;
    for (int i = ahead_; i < newTape_; ++i) recordAt_[i] += n;
    recorded_.read(tape, recordAt_ + ahead_, left, recordRows_);
    tape_.write(tape, left);
}

}  // namespace quillworks
