// SPDX-License-Identifier: ISC
#include "reverb/tank.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

#include "dsp/decibel.h"

namespace quillworks {
namespace {

constexpr double kFadeSeconds = 0.064, kFadeDistanceSeconds = 0.008, kFreezeSeconds = 0.03;
constexpr double kGlideSeconds = 0.03;
constexpr double kMotionHz = 0.12;
constexpr double kLeastHeard = 0.02;  // of the energy after a pass, that a level makes up for

int subBlocks(double sampleRate, double seconds) noexcept
{
    return std::max(1, static_cast<int>(seconds * sampleRate / kSubBlock + 0.5));
}

}  // namespace

LineLoss::LineLoss(std::span<const double> times, double line, double allPass) noexcept
{
    const double period = line + allPass, longest = *std::max_element(times.begin(), times.end());
    // An all-pass of at most 0.26 of its line: what is left for the filter is a loss throughout.
    const double middle = std::max(times[times.size() / 2], longest / 3);
    allPassDb = -60 * allPass / middle;
    std::transform(times.begin(), times.end(), seconds.begin(), [&](double t) {
        return allPass > 0 ? period / (period / t - allPass / middle) : t;
    });
}

template <typename T> void Tank<T>::prepare(const TankSpec& spec)
{
    spec_ = spec;
    const double rate = spec.sampleRate;
    const int n = spec.lines;
    geometry_ = TankGeometry(rate, n, spec.steps, spec.hasAllPasses, spec.seed);
    fadeLength_ = subBlocks(rate, kFadeSeconds);
    fadeDistance_ = subBlocks(rate, kFadeDistanceSeconds);
    freezeLength_ = subBlocks(rate, kFreezeSeconds);
    for (auto* value : {&allPass_, &motion_}) value->prepare(rate, kGlideSeconds);
    for (int p = 0; p < n / 2; ++p) {
        const double hertz = kMotionHz * (0.7 + 1.2 * p / n);
        const double angle = 2 * std::numbers::pi * hertz * kSubBlock / rate;
        stepCosine_[index(p)] = std::cos(angle);
        stepSine_[index(p)] = std::sin(angle);
    }

    const TankDelays most = geometry_.delays(spec.longest, spec.longestSpan);
    inflowCount_ = std::min(spec.inputs, n);
    const auto rings = [n](GridLines<T>& lines, int count, const TankDelays::PerLine& longest) {
        lines.prepare({longest.data(), index(count)}, n);
    };
    // Lines at a smaller size may meet another's prime where they do not at the largest.
    constexpr int kPrimes = 512;
    TankDelays::PerLine length{};
    std::transform(most.line.begin(), most.line.end(), length.begin(),
                   [](int d) { return d + kPrimes; });
    rings(lines_, n, length);
    std::transform(most.allPass.begin(), most.allPass.end(), length.begin(),
                   [](int d) { return d + kPrimes; });
    rings(allPasses_, spec.hasAllPasses ? n : 0, length);
    // Any line may be fed by any input.
    length.fill(*std::max_element(most.step[0].begin(), most.step[0].end()));
    rings(inflows_, inflowCount_, length);
    rings(steps_, spec.steps > 1 ? n : 0, most.step[1]);

    const double scale = 1 / std::sqrt(n);
    scale_ = T(scale);
    filter_.prepare(*spec.design, n, scale);
    for (int k = 0; k < spec.steps; ++k)
        for (int i = 0; i < n; ++i) sign_[k][i] = T(geometry_.sign(k, i) * scale);
    for (int c = 0; c < spec.inputs; ++c) {
        const int fed =
            c < inflowCount_ && spec.inputs <= n ? (n - c + spec.inputs - 1) / spec.inputs : 1;
        inputGain_[index(c)] = T(std::sqrt(n / (2.0 * fed)));
    }

    rooms_.require(static_cast<std::size_t>(kRow * ((3 + spec.steps) * n + spec.outputs + 1)));
    rooms_.fill(0);
    T* room = rooms_.data();
    const auto rows = [&](auto& list, int count) {
        for (int i = 0; i < count; ++i, room += kRow) list[index(i)] = room;
    };
    rows(lineRoom_, n);
    rows(allPassRoom_, n);
    rows(filtered_, n);
    for (int k = 0; k < spec.steps; ++k) rows(stepRoom_[k], n);
    rows(outputs_, spec.outputs);
    spare_ = room;

    if (seconds_[0] == 0) seconds_.fill(1);
    wanted_ =
        geometry_.delays(std::min(shortest_, spec.longest), std::min(span_, spec.longestSpan));
    reset();
}

template <typename T> void Tank<T>::reset() noexcept
{
    isChanging_ = isResized_ = false;
    now_ = wanted_;
    frozen_ = isFreezing_ ? freezeLength_ : 0;
    inflow_.set(isFreezing_ ? T(0) : T(1));
    outdated_ = 0;
    turn_ = 0;
    for (int i = 0; i < spec_.lines; ++i) {
        design(i);
        tune(i, false);
    }
    allPass_.snap();
    motion_.snap();
    g_ = {T(allPass_.current()), T(allPass_.current())};
    startMotion();
    clear();
}

template <typename T> void Tank<T>::clear() noexcept
{
    for (auto* lines : {&inflows_, &steps_, &lines_, &allPasses_}) lines->clear();
    filter_.reset();
    isBroken_ = false;
}

template <typename T> void Tank<T>::setSize(double shortest, double span) noexcept
{
    if (shortest == shortest_ && span == span_) return;
    shortest_ = shortest;
    span_ = span;
    isResized_ = true;
    wanted_ =
        geometry_.delays(std::min(shortest, spec_.longest), std::min(span, spec_.longestSpan));
}

template <typename T> void Tank<T>::setDecay(std::span<const double> seconds) noexcept
{
    if (std::equal(seconds.begin(), seconds.end(), seconds_.begin())) return;
    std::copy(seconds.begin(), seconds.end(), seconds_.begin());
    outdated_ = (1u << spec_.lines) - 1;
}

template <typename T> double Tank<T>::meanPeriod() const noexcept
{
    double sum = 0;
    for (int i = 0; i < spec_.lines; ++i) sum += wanted_.line[index(i)] + wanted_.allPass[index(i)];
    return sum / (spec_.lines * spec_.sampleRate);
}

template <typename T> int Tank<T>::shortestPath() const noexcept
{
    const auto least = [this](const TankDelays::PerLine& delays) {
        return *std::min_element(delays.begin(), delays.begin() + spec_.lines);
    };
    int path = least(wanted_.line);
    for (int k = 0; k < spec_.steps; ++k) path += least(wanted_.step[index(k)]);
    return path;
}

template <typename T> double Tank<T>::level(double seconds) const noexcept
{
    constexpr double kReference = 1.8;
    const auto energy = [this](double t) {
        double heard = 0, left = 0;
        for (std::size_t i = 0; i < index(spec_.lines); ++i) {
            const auto after = [&](int samples) {
                return std::pow(10, -6 * samples / (spec_.sampleRate * t)) / spec_.lines;
            };
            heard += after(wanted_.line[i]);
            left += after(wanted_.line[i] + wanted_.allPass[i]);
        }
        return std::max(heard, kLeastHeard) / (1 - left);
    };
    return std::pow(seconds / kReference, 0.25) * std::sqrt(energy(kReference) / energy(seconds));
}

/// Sub-blocks of the line's fade that are over; negative before, fadeLength_ and more behind it.
template <typename T> int Tank<T>::fadeOf(int line) const noexcept
{
    return isChanging_ ? change_ - line * fadeDistance_ : -1;
}

template <typename T> const TankDelays& Tank<T>::delaysOf(int line) const noexcept
{
    return fadeOf(line) >= 0 ? coming_ : now_;
}

template <typename T> void Tank<T>::design(int line) noexcept
{
    const TankDelays& delays = delaysOf(line);
    const auto times = static_cast<std::size_t>(spec_.design->times());
    const double own = delays.line[index(line)] / spec_.sampleRate;
    const double allPass = delays.allPass[index(line)] / spec_.sampleRate;
    const LineLoss loss({seconds_.data(), times}, own, allPass);
    gains_[index(line)] = spec_.design->design({loss.seconds.data(), times}, own + allPass);
    allPassDb_[index(line)] = loss.allPassDb;
}

/// To what has been designed, as far as the tank is not frozen: at once, or over the sub-block.
template <typename T> void Tank<T>::tune(int line, bool glides) noexcept
{
    const double lively = 1 - double(frozen_) / freezeLength_;
    const auto sections = spec_.design->sections(gains_[index(line)].scaled(lively));
    const T kept = T(dbToGain(allPassDb_[index(line)] * lively));
    if (glides)
        filter_.glide(line, sections);
    else
        filter_.set(line, sections);
    kept_.step[line] = glides ? (kept - kept_.to[line]) * (T(1) / kSubBlock) : T(0);
    kept_.to[line] = kept;
}

template <typename T> void Tank<T>::advance() noexcept
{
    filter_.begin();
    std::fill_n(kept_.step, kMostLines, T(0));
    advanceGeometry();
    advanceMotion();
    const auto g = allPass_.next(kWholeSubBlock);
    g_ = {T(g.from), T(g.to)};
    advanceFilters();
}

template <typename T> void Tank<T>::advanceGeometry() noexcept
{
    if (isChanging_) {
        ++change_;
        if (change_ >= (spec_.lines - 1) * fadeDistance_ + fadeLength_) {
            now_ = coming_;
            isChanging_ = false;
        }
    }
    if (isResized_ && !isChanging_ && !isFreezing_) {
        isResized_ = false;
        coming_ = wanted_;
        isChanging_ = wanted_.line != now_.line || wanted_.allPass != now_.allPass ||
                      wanted_.step != now_.step;
        change_ = 0;
    }
    if (isChanging_ && change_ % fadeDistance_ == 0 && change_ / fadeDistance_ < spec_.lines)
        outdated_ |= 1u << change_ / fadeDistance_;
}

template <typename T> void Tank<T>::startMotion() noexcept
{
    for (int p = 0; p < spec_.lines / 2; ++p) {
        const double angle = 2 * std::numbers::pi * geometry_.phase(p);
        phaseCosine_[index(p)] = std::cos(angle);
        phaseSine_[index(p)] = std::sin(angle);
    }
    advanceMotion();
}

template <typename T> void Tank<T>::advanceMotion() noexcept
{
    kernels_.rotate({phaseCosine_.data(), phaseSine_.data(), stepCosine_.data(), stepSine_.data(),
                     motion_.next(kWholeSubBlock).to, &cosine_, &sine_, spec_.lines / 2});
}

template <typename T> void Tank<T>::advanceFilters() noexcept
{
    const int before = frozen_;
    frozen_ = std::clamp(frozen_ + (isFreezing_ ? 1 : -1), 0, freezeLength_);
    if (outdated_ != 0) {
        while ((outdated_ >> turn_ & 1) == 0) turn_ = (turn_ + 1) % spec_.lines;
        outdated_ &= ~(1u << turn_);
        design(turn_);
        if (frozen_ == before) tune(turn_, true);
        turn_ = (turn_ + 1) % spec_.lines;
    }
    if (frozen_ == before) return inflow_.set(inflow_.at[kSubBlock - 1]);
    for (int i = 0; i < spec_.lines; ++i) tune(i, true);
    const T share = T(1) / T(freezeLength_);
    inflow_.follow({T(freezeLength_ - before) * share, T(freezeLength_ - frozen_) * share});
}

/// Where the samples of a line lie: at its old delay, its new one, or in `room` a mixture. A
/// mixture of two never has more energy than the louder.
template <typename T>
const T* Tank<T>::fade(const GridLines<T>& lines, int line, int from, int to, GridSlice slice,
                       T* room) const noexcept
{
    const int done = fadeOf(line);
    if (done < 0 || done >= fadeLength_ || from == to)
        return lines.read(line, done < 0 ? from : to, slice.frames, room);
    const T* const old = lines.read(line, from, slice.frames, room);
    const T* const fresh = lines.read(line, to, slice.frames, spare_);
    const T share = T(1) / T(fadeLength_ * kSubBlock);
    for (int i = 0; i < slice.frames; ++i) {
        const T weight = T(done * kSubBlock + slice.phase + i + 1) * share;
        room[i] = old[i] + (fresh[i] - old[i]) * weight;
    }
    return room;
}

template <typename T>
void Tank<T>::look(const GridLines<T>& lines, const TankDelays::PerLine& old,
                   const TankDelays::PerLine& fresh, GridSlice slice, Places& places,
                   const Rows& rooms) const noexcept
{
    if (!isChanging_ && lines.isFull()) return lines.look(old.data(), places.data());
    for (std::size_t i = 0; i < index(spec_.lines); ++i)
        places[i] = fade(lines, static_cast<int>(i), old[i], fresh[i], slice, rooms[i]);
}

template <typename T> void Tank<T>::feed(const T* const* in, GridSlice slice) noexcept
{
    const T* const level = inflow_.of(slice);
    T* rings[kMostLines];
    inflows_.next(rings);
    for (int c = 0; c < spec_.inputs; ++c) {
        const T* const x = in[c];
        const T gain = inputGain_[index(c)];
        T* const ring = rings[c % inflowCount_];
        if (c < inflowCount_)
            for (int i = 0; i < slice.frames; ++i) ring[i] = gain * level[i] * x[i];
        else
            for (int i = 0; i < slice.frames; ++i) ring[i] += gain * level[i] * x[i];
    }
    inflows_.committed(slice.frames);
}

/// Through the steps but for the last one's transform, which is that of the lines: `entering` is
/// where what it gets lies.
template <typename T> void Tank<T>::diffuse(GridSlice slice, Places& entering) noexcept
{
    const int n = spec_.lines;
    for (int k = 0; k < spec_.steps; ++k) {
        GridLines<T>& ring = k == 0 ? inflows_ : steps_;
        look(ring, now_.step[index(k)], coming_.step[index(k)], slice, entering, stepRoom_[k]);
        if (k + 1 < spec_.steps) {
            Rows to;
            steps_.next(to.data());
            kernels_.diffuse({entering.data(), to.data(), sign_[k], n, slice.frames});
            steps_.committed(slice.frames);
        }
        ring.advance(slice.frames);
    }
}

template <typename T> void Tank<T>::circulate(const Places& entering, GridSlice slice) noexcept
{
    const int n = spec_.lines;
    Places from, delayed;
    Rows to, allPass;
    look(lines_, now_.line, coming_.line, slice, from, lineRoom_);
    lines_.next(to.data());
    filter_.process(from.data(), filtered_.data(), slice);
    const bool isDecayed = spec_.isHeardDecayed;
    isBroken_ |= !kernels_.sumUp({isDecayed ? filtered_.data() : from.data(), outputs_.data(),
                                  isDecayed ? T(1) : scale_, spec_.outputs, n, slice.frames});
    if (spec_.hasAllPasses) {
        look(allPasses_, now_.allPass, coming_.allPass, slice, delayed, allPassRoom_);
        allPasses_.next(allPass.data());
    }
    const T gStep = (g_.to - g_.from) * (T(1) / kSubBlock);
    kernels_.feedBack({filtered_.data(), entering.data(), sign_[spec_.steps - 1], to.data(),
                       spec_.hasAllPasses ? delayed.data() : nullptr, allPass.data(), g_.to, gStep,
                       kept_, cosine_, sine_, n, slice.frames, slice.phase});
    for (auto* lines : {&lines_, &allPasses_}) {
        lines->committed(slice.frames);
        lines->advance(slice.frames);
    }
}

/// Only a fault reaches this: no setting lets the loop grow.
template <typename T> void Tank<T>::silence(GridSlice slice) noexcept
{
    for (int o = 0; o < spec_.outputs; ++o) std::fill_n(outputs_[index(o)], kRow, T(0));
    if (slice.ends()) clear();
}

template <typename T> void Tank<T>::process(const T* const* in, GridSlice slice) noexcept
{
    if (slice.begins()) advance();
    feed(in, slice);
    Places entering;
    diffuse(slice, entering);
    circulate(entering, slice);
    if (isBroken_) silence(slice);
}

template class Tank<float>;
template class Tank<double>;

}  // namespace quillworks
