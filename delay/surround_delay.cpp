// SPDX-License-Identifier: ISC
#include "delay/surround_delay.h"

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>
#include <vector>

#include "dsp/vec.h"

namespace quillworks {
namespace {

using Core = SurroundDelayCore<float>;
using S = SurroundDelaySettings;
using namespace conversion;

constexpr double kLongest = 8;                 // s
constexpr double kHalf = 0.70710678118654752;  // of the power: the centre on each of two sides
constexpr double kGainTolerance = 1e-6;
constexpr EchoDefaults kDefaults{50, 120, 7000, 6, 300, 30};
constexpr NoteSync kSync{"sync", "beatsnu", "time"};
constexpr const char* kSources[] = {"As Played", "Point"};
constexpr const char* kPatterns[] = {"Stay",         "Clockwise", "Anticlockwise", "Front to Back",
                                     "Side to Side", "Opposite",  "Zigzag",        "Up and Down"};

constexpr const char* kSource = "Source";
constexpr const char* kWay = "Way";

// clang-format off
constexpr std::array kOwnRows{
    // key                       tag         title            kind          min   max  def  unit  field          dirty        forward
    Parameter<S>{"source",      "Srce"_tag, "Source",        Kind::List,   0,    1,   0,   "",   &S::source,    Core::Way,   asIs,
     {.group = kSource, .help = "Each speaker's echo begins in its place, or all begin as one source at a point.", .texts = kSources}},
    Parameter<S>{"start",       "Strt"_tag, "Start Angle",   Kind::Float,  -180, 180, 0,   "°",  &S::start,     Core::Place, asIs,
     {.group = kSource, .help = "Direction in which the point's echoes begin, clockwise from the front.", .shortTitle = "Angle", .flags = VNK::isBipolar, .wraps = true}},
    Parameter<S>{"startheight", "StrH"_tag, "Start Height",  Kind::Float,  0,    90,  0,   "°",  &S::height,    Core::Place, asIs,
     {.group = kSource, .help = "How high above the ear the point's echoes begin.", .shortTitle = "Height"}},
    Parameter<S>{"pattern",     "Patt"_tag, "Pattern",       Kind::List,   0,    7,   1,   "",   &S::pattern,   Core::Way,   asIs,
     {.group = kWay, .help = "Where each repeat is heard after the one before.", .texts = kPatterns}},
    Parameter<S>{"stagger",     "Stag"_tag, "Stagger",       Kind::Float,  -50,  50,  0,   "%",  &S::stagger,   Core::Time,  percent,
     {.group = kWay, .help = "How much later than the front the rear answers, or earlier.", .flags = VNK::isBipolar}},
    Parameter<S>{"centre",      "Cntr"_tag, "Centre Echo",   Kind::Toggle, 0,    1,   0,   "",   &S::centre,    Core::Way,   asIs,
     {.group = kWay, .help = "The centre speaker has echoes too; off, they leave it free.", .shortTitle = "Centre"}},
    Parameter<S>{"lfe",         "LFEL"_tag, "LFE Echo",      Kind::Float,  -96,  0,   -96, "dB", &S::lfe,       Core::Lfe,   decibelsOffAt<-96>,
     {.group = "Output", .help = "Level of the echoes of the LFE channel.", .shortTitle = "LFE", .curve = &curve::decibel, .minText = "Off", .flags = VNK::isDecibel}},
};
// clang-format on
constexpr auto kParameters =
    joinedRows(echoTimeRows<S>(0.5f, 500, &S::sync, &S::beats, &S::time, Core::Time), kOwnRows,
               echoFeedbackRow<S>(kDefaults), echoRows<S>(kDefaults), echoReadings<S>());

/// Of the speakers in front, in seconds.
double timeOf(const S& s, double tempo, const StepDelays& delays)
{
    const double time =
        s.sync != 0 ? exactNoteValue(double(s.beats)) * 120 / tempo : double(s.time);
    return delays.fitting(time);
}

/// How far behind a speaker stands: 0 in front .. 1 behind.
double rearOf(const SpeakerPlace& place)
{
    return place.isLfe ? 0 : (1 - std::cos(place.azimuth * std::numbers::pi / 180)) / 2;
}

}  // namespace

template <typename T> void SurroundDelayCore<T>::prepare(const ProcessSpec& spec)
{
    const SpeakerField field(spec.layout);
    channels_ = spec.channels;
    left_ = spec.layout.find(VNK::Speaker::L);
    right_ = spec.layout.find(VNK::Speaker::R);
    centre_ = left_ >= 0 && right_ >= 0 ? spec.layout.find(VNK::Speaker::C) : -1;
    std::vector<UnitVector> directions;
    for (int c = 0; c < channels_; ++c) {
        const auto& place = field[c];
        const double side = field.mirror(c) != c ? 0.5 : 1;  // two sides make one middle
        channel_[std::size_t(c)] = {place.isLfe, rearOf(place), T(place.isLfe ? 0 : side)};
        if (place.isLfe) continue;
        speakers_[directions.size()] = c;
        directions.push_back(place.direction());
    }
    if (directions.empty()) directions.push_back({1, 0, 0});  // no one hears a point
    panner_.prepare(directions);
    for (int pattern = 0; pattern < kEchoPatterns; ++pattern)
        for (const bool hasCentre : {false, true}) {
            const auto order =
                echoOrder(field, static_cast<EchoPattern>(pattern), hasCentre ? -1 : centre_);
            std::copy(order.begin(), order.end(), orders_[std::size_t(pattern)][hasCentre].begin());
        }
    network_.prepare(channels_, 1, {spec.sampleRate, kLongest});
    output_.prepare(channels_, spec.sampleRate);
    entry_.prepare(channels_, spec.sampleRate);
    echoes_.prepare(channels_);
    const double base = glideSubBlocks(spec.sampleRate);
    for (Gains& gains : gains_)
        for (auto& gain : gains) gain.prepare(2 * base, kGainTolerance);
    lfe_.prepare(2 * base, kGainTolerance);
}

template <typename T> void SurroundDelayCore<T>::reset() noexcept
{
    network_.reset();
    output_.reset();
    entry_.snap();
    lfe_.snap();
    hasPoint_ = false;
}

template <typename T> void SurroundDelayCore<T>::apply(const Settings& s, unsigned dirty) noexcept
{
    settings_ = s;
    network_.apply(s, dirty);
    output_.apply(s, dirty);
    if (dirty & Time) updateTimes();
    if (dirty & Place) updateGains();
    if (dirty & Lfe) lfe_.target(double(s.lfe));
    if (dirty & Way) {
        const bool hasCentre = s.centre != 0 || centre_ < 0;
        const auto pattern = static_cast<std::size_t>(s.pattern);
        network_.order().target(
            {orders_[pattern][hasCentre].data(), static_cast<std::size_t>(channels_)});
        entry_.target({s.source != 0, hasCentre});
    }
}

template <typename T> void SurroundDelayCore<T>::setTempo(double beatsPerMinute) noexcept
{
    tempo_ = beatsPerMinute;
    updateTimes();
}

template <typename T> void SurroundDelayCore<T>::updateTimes() noexcept
{
    auto& lines = network_.lines();
    const double time = timeOf(settings_, tempo_, lines.delays());
    for (int c = 0; c < channels_; ++c)
        lines.setTime(0, c, time * (1 + double(settings_.stagger) * channel_[std::size_t(c)].rear));
}

/// Without the centre its power goes to both sides alike.
template <typename T> void SurroundDelayCore<T>::updateGains() noexcept
{
    const SpeakerPlace place{double(settings_.start), double(settings_.height)};
    double found[HullPanner::kMostSpeakers];
    int hint = 0;
    panner_.powers(place.direction(), found, hint);
    std::array<double, kMostEchoChannels> powers{};
    for (int i = 0; i < panner_.speakers(); ++i)
        powers[std::size_t(speakers_[std::size_t(i)])] = found[i];
    for (const bool hasCentre : {true, false}) {
        if (!hasCentre && centre_ >= 0) {
            const double half = std::exchange(powers[std::size_t(centre_)], 0) / 2;
            powers[std::size_t(left_)] += half;
            powers[std::size_t(right_)] += half;
        }
        for (std::size_t c = 0; c < powers.size(); ++c)
            gains_[hasCentre][c].target(std::sqrt(powers[c]));
    }
}

/// The source, and the gains that bring it into the lines.
template <typename T> void SurroundDelayCore<T>::preparePoint(const AudioBlock<T>& part) noexcept
{
    const auto& routing = entry_.routing();
    if (part.begins()) {
        const bool isWanted = settings_.source != 0 || routing.present().isPoint ||
                              (routing.isFading() && routing.leaving().isPoint);
        if (isWanted && !hasPoint_)
            for (Gains& gains : gains_)
                for (auto& gain : gains) gain.snap();
        hasPoint_ = isWanted;
    }
    if (!hasPoint_) return;
    for (Gains& gains : gains_)
        for (int c = 0; c < channels_; ++c)
            gains[std::size_t(c)].follow(part, [](double gain) { return gain; });
    vec::clear(point_, part.frames);
    for (int c = 0; c < channels_; ++c)
        if (const T share = channel_[std::size_t(c)].inPoint; share != 0)
            vec::addScaled(point_, static_cast<const T*>(part[c]), share, part.frames);
}

template <typename T>
void SurroundDelayCore<T>::enter(const Entrance& entrance, const AudioBlock<T>& part,
                                 const ChannelRows<T>& rows,
                                 ChannelList<const T>& in) const noexcept
{
    for (int c = 0; c < channels_; ++c) {
        const T*& to = in[std::size_t(c)];
        to = part[c];
        if (!entrance.isPoint || channel_[std::size_t(c)].isLfe) continue;
        to = rows[c];
        const auto& gain = gains_[entrance.hasCentre][std::size_t(c)];
        if (gain.is(0))
            vec::clear(rows[c], part.frames);
        else
            vec::mulCopy(rows[c], point_, gain.of(part), part.frames);
    }
    if (!entrance.isPoint && !entrance.hasCentre) foldCentre(part, rows, in);
}

template <typename T>
void SurroundDelayCore<T>::foldCentre(const AudioBlock<T>& part, const ChannelRows<T>& rows,
                                      ChannelList<const T>& in) const noexcept
{
    const T* const centre = part[centre_];
    for (const int side : {left_, right_}) {
        vec::addScaledCopy(rows[side], static_cast<const T*>(part[side]), centre, T(kHalf),
                           part.frames);
        in[std::size_t(side)] = rows[side];
    }
    vec::clear(rows[centre_], part.frames);
    in[std::size_t(centre_)] = rows[centre_];
}

/// The echoes of LFE and centre on their way out.
template <typename T> void SurroundDelayCore<T>::leave(GridSlice slice) noexcept
{
    lfe_.follow(slice, [](double gain) { return gain; });
    for (int c = 0; c < channels_; ++c)
        if (channel_[std::size_t(c)].isLfe) lfe_.scale(echoes_[c], slice);
    const auto& routing = entry_.routing();
    const bool isHeard = routing.present().hasCentre;
    const bool wasHeard = routing.isFading() ? routing.leaving().hasCentre : isHeard;
    if (isHeard && wasHeard) return;
    T* const echo = echoes_[centre_];
    T old[kSubBlock];
    if (wasHeard)
        vec::copy(old, static_cast<const T*>(echo), slice.frames);
    else
        vec::clear(old, slice.frames);
    if (!isHeard) vec::clear(echo, slice.frames);
    if (isHeard != wasHeard) routing.fade().mix(echo, old, slice.frames);
}

template <typename T> void SurroundDelayCore<T>::process(const AudioBlock<T>& block) noexcept
{
    forEachSubBlock(block, [this](const AudioBlock<T>& part) {
        for (int c = 0; c < channels_; ++c) block_[std::size_t(c)] = part[c];
        preparePoint(part);
        const T* const* const in =
            entry_.next(part, [&](const Entrance& entrance, const auto& rows, auto& list) {
                enter(entrance, part, rows, list);
            });
        network_.process(in, echoes_.data(), part);
        leave(part);
        entry_.advance(part.frames);
        output_.process(block_.data(), echoes_.data(), part);
    });
}

template class SurroundDelayCore<float>;
template class SurroundDelayCore<double>;

SurroundDelayAlgorithm::SurroundDelayAlgorithm() : EchoAlgorithm(kParameters) {}

SurroundDelayComponent::SurroundDelayComponent(SurroundDelayAlgorithm& algorithm)
    : AudioEffectComponent(algorithm, {.viewPrefix = "SurroundDelay",
                                       .layouts = "stereo;mono;quad;5.1;7.1;5.1.4;7.1.4;9.1.6"}),
      of_(algorithm)
{}

void SurroundDelayComponent::changed(const AlgorithmParameter& parameter, float before,
                                     Setter by) noexcept
{
    const auto read = [this](const char* key) { return value(key); };
    const float now = value(parameter.key.c_str());
    if (const auto move = kSync.moved(parameter.key, now, before, read, tempo()))
        set(move->key, move->value, by);
}

void SurroundDelayComponent::reconcile() noexcept
{
    try {
        const SpeakerField field(of_.outputLayout());
        double farthest = 0;
        for (int c = 0; c < field.channels(); ++c) farthest = std::max(farthest, rearOf(field[c]));
        farthest_ = static_cast<float>(farthest);
    } catch (...) {
        farthest_ = 1;  // a tail that is too long
    }
}

Delays SurroundDelayComponent::delays(double sampleRate) const noexcept
{
    S s{};
    s.sync = value("sync");
    s.beats = soundingNoteValue(value("beatsnu"));
    s.time = milliseconds(value("time"));
    const StepDelays delays{sampleRate, kLongest};
    const double time = timeOf(s, double(tempo()), delays);
    const double stagger = std::max(0.0, double(percent(value("stagger"))));
    // What does not fit is halved, and the longest that fits may stand anywhere.
    const double longest = std::min(time * (1 + stagger * double(farthest_.load())), kLongest);
    return echoDelays(delays.samples(longest), double(percent(value("feedback"))), isOn("freeze"));
}

}  // namespace quillworks
