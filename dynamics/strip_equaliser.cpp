// SPDX-License-Identifier: ISC
#include "dynamics/strip_equaliser.h"

#include <algorithm>
#include <cmath>

namespace quillworks {
namespace {

constexpr double kOctaveTolerance = 0.00144;  // 0.1 %
constexpr double kGainTolerance = 0.00868;    // dB: 0.1 %
constexpr double kOuterBellQ = 0.7;

enum { kLow, kLowMid, kHighMid, kHigh };

}  // namespace

void StripCourses::prepare(double sampleRate) noexcept
{
    const double halfLife = glideSubBlocks(sampleRate);
    const auto prepare = [&](Smoothed<double>& value, double tolerance) {
        value.prepareHalfLife(halfLife);
        value.setTolerance(tolerance);
    };
    prepare(cut_, kOctaveTolerance);
    for (auto& band : bands_) {
        prepare(band.octave, kOctaveTolerance);
        prepare(band.q, kOctaveTolerance);
        prepare(band.gain, kGainTolerance);
    }
}

void StripCourses::snap() noexcept
{
    cut_.snap();
    for (auto& band : bands_) {
        band.octave.snap();
        band.q.snap();
        band.gain.snap();
        band.isIn = false;
    }
}

void StripCourses::setBand(int i, double frequency, double db, double q) noexcept
{
    auto& band = bands_[i];
    band.octave.target(std::log2(frequency));
    band.q.target(std::log2(q));
    band.gain.target(db);
}

void StripCourses::advance() noexcept
{
    cutMoves_ = cut_.isGliding();
    if (cutMoves_) cut_.next(kWholeSubBlock);
    for (auto& band : bands_) {
        band.before = band.db();
        if (band.before == 0 && band.gain.target() == 0) {  // where it comes in, it stands
            band.isIn = false;
            band.octave.snap();
            band.q.snap();
            band.gain.snap();
            continue;
        }
        const bool isNew = !band.isIn;
        band.moves = band.octave.isGliding() || band.q.isGliding() || band.gain.isGliding();
        band.isIn = true;
        if (band.moves) {
            band.octave.next(kWholeSubBlock);
            band.q.next(kWholeSubBlock);
            band.gain.next(kWholeSubBlock);
        }
        if (band.moves || isNew) {
            band.frequency = std::exp2(band.octave.current());
            band.resonance = std::exp2(band.q.current());
        }
    }
}

template <typename T> void StripEqualiser<T>::prepare(double sampleRate, int channels)
{
    sampleRate_ = sampleRate;
    chain_.prepare(kSections, channels);
}

template <typename T> void StripEqualiser<T>::reset(const StripPath& path) noexcept
{
    path_ = path;
    for (int s = 0; s < kSections; ++s) leaveOut(s);
    chain_.reset();
}

template <typename T>
void StripEqualiser<T>::takeOver(const StripEqualiser& other, const StripPath& path) noexcept
{
    path_ = path;
    chain_.takeOver(other.chain_);
    std::copy_n(other.isLaid_, kSections, isLaid_);
    if (path.cutOrder != other.path_.cutOrder)
        for (int s = 0; s < kCutSections; ++s) leaveOut(s);
    if (path.lowIsBell != other.path_.lowIsBell) leaveOut(kCutSections + kLow);
    if (path.highIsBell != other.path_.highIsBell) leaveOut(kCutSections + kHigh);
}

template <typename T> void StripEqualiser<T>::leaveOut(int section) noexcept
{
    chain_.set(section, {});
    chain_.clear(section, 1);
    isLaid_[section] = false;
}

template <typename T> void StripEqualiser<T>::follow(const StripCourses& courses) noexcept
{
    followCut(courses);
    firstBand_ = StripCourses::kBands;
    lastBand_ = -1;
    for (int i = 0; i < StripCourses::kBands; ++i) {
        const auto& band = courses.band(i);
        const int section = kCutSections + i;
        if (!band.isIn) {
            if (isLaid_[section]) leaveOut(section);
            continue;
        }
        firstBand_ = std::min(firstBand_, i);
        lastBand_ = i;
        if (!isLaid_[section]) {
            isLaid_[section] = true;
            chain_.set(section, design(i, band, band.before).template section<T>());
        } else if (!band.moves) {
            continue;
        }
        chain_.glide(section, design(i, band, band.db()).template section<T>());
    }
}

template <typename T> void StripEqualiser<T>::followCut(const StripCourses& courses) noexcept
{
    if (!hasCut()) return;
    const double frequency = courses.cutFrequency();
    for (int s = firstCut(); s < kCutSections; ++s) {
        if (isLaid_[s] && courses.cutMoves()) chain_.glide(s, cutSection(s, frequency));
        if (!isLaid_[s]) chain_.set(s, cutSection(s, frequency));
        isLaid_[s] = true;
    }
}

template <typename T>
SectionCoefficients<T> StripEqualiser<T>::cutSection(int section, double frequency) const noexcept
{
    const double q = path_.cutOrder == 4 ? kButterworth4Q[section] : kButterworthQ;
    return Coefficients::highPass(frequency, q, sampleRate_);
}

template <typename T>
MatchedBand StripEqualiser<T>::design(int band, const StripCourses::Band& at,
                                      double db) const noexcept
{
    const bool isOuter = band == kLow || band == kHigh;
    if (band == kLow && !path_.lowIsBell)
        return MatchedBand::lowShelf(at.frequency, db, sampleRate_);
    if (band == kHigh && !path_.highIsBell)
        return MatchedBand::highShelf(at.frequency, db, sampleRate_);
    return MatchedBand::bell(at.frequency, db, isOuter ? kOuterBellQ : at.resonance, sampleRate_);
}

template <typename T> void StripEqualiser<T>::processCut(T* const* x, GridSlice slice) noexcept
{
    if (hasCut()) chain_.process(x, slice, firstCut(), kCutSections - firstCut());
}

template <typename T> void StripEqualiser<T>::processBands(T* const* x, GridSlice slice) noexcept
{
    if (hasBands()) chain_.process(x, slice, kCutSections + firstBand_, lastBand_ + 1 - firstBand_);
}

template <typename T> void StripEqualiser<T>::process(T* const* x, GridSlice slice) noexcept
{
    if (!hasCut()) return processBands(x, slice);
    const int first = firstCut();
    chain_.process(x, slice, first, kCutSections + lastBand_ + 1 - first);
}

template class StripEqualiser<float>;
template class StripEqualiser<double>;

}  // namespace quillworks
