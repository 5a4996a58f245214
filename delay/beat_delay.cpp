// SPDX-License-Identifier: ISC
#include "delay/beat_delay.h"

#include <algorithm>
#include <numeric>

#include "dsp/vec.h"

namespace quillworks {
namespace {

using Core = BeatDelayCore<float>;
using S = BeatDelaySettings;
using namespace conversion;

constexpr double kLongest = 8;  // s
constexpr EchoDefaults kDefaults{40, 120, 7000, 6, 300, 30};
constexpr const char* kRoutings[] = {"Stereo", "Cross", "Ping-Pong Left", "Ping-Pong Right"};
constexpr NoteSync kSyncs[] = {{"sync", "beatsnu", "time"}, {"sync", "beatsright", "timeright"}};

// clang-format off
constexpr std::array kOwnRows{
    // key                      tag         title           kind          min  max   def  unit                  field           dirty          forward
    Parameter<S>{"link",       "Link"_tag, "Link Sides",   Kind::Toggle, 0,   1,    1,   "",                   &S::link,       Core::Time,    asIs,
     {.group = "Time", .help = "The right side has the delay of the left one.", .shortTitle = "Link"}},
    noteRow("beatsright",      "BtNR"_tag, "Right Beats",  0.5f, &S::beatsRight, Core::Time,
     {.group = "Time", .help = "Delay of the right side as a note value.", .shortTitle = "Beats R", .drivenBy = "link"}),
    Parameter<S>{"timeright",  "TimR"_tag, "Right Time",   Kind::Float,  1,   4000, 500, "Media.Milliseconds", &S::timeRight,  Core::Time,    milliseconds,
     {.group = "Time", .help = "Delay of the right side while it does not follow the tempo.", .shortTitle = "Time R", .curve = &curve::logarithmic, .drivenBy = "sync"}},
    Parameter<S>{"offset",     "Offs"_tag, "Offset",       Kind::Float,  -50, 50,   0,   "Media.Milliseconds", &S::offset,     Core::Time,    milliseconds,
     {.group = "Time", .help = "Moves all echoes before or behind the beat.", .flags = VNK::isBipolar}},
    Parameter<S>{"routing",    "Rout"_tag, "Routing",      Kind::List,   0,   3,    2,   "",                   &S::routing,    Core::Routing, asIs,
     {.group = "Feedback", .help = "Echoes stay on their side, change sides, or bounce from one side to the other.", .texts = kRoutings}},
};
constexpr std::array kWidthRow{
    Parameter<S>{"width",      "Wdth"_tag, "Echo Width",   Kind::Float,  0,   100,  85,  "%",                  &S::width,      Core::Width,   percent,
     {.group = "Output", .help = "How far apart the echoes of left and right are heard.", .shortTitle = "Width"}},
};
// clang-format on
constexpr auto kParameters =
    joinedRows(echoTimeRows<S>(0.375f, 375, &S::sync, &S::beats, &S::time, Core::Time), kOwnRows,
               echoFeedbackRow<S>(kDefaults), kWidthRow, echoRows<S>(kDefaults), echoReadings<S>());

struct SideTimes {
    double left, right;  // s
};

/// Halved until they fit with the offset, which is no part of the beat.
SideTimes timesOf(const S& s, double tempo, const StepDelays& delays)
{
    const bool isSynced = s.sync != 0;
    const auto side = [&](float beats, float time) {
        double t = isSynced ? exactNoteValue(double(beats)) * 120 / tempo : double(time);
        const double offset = double(s.offset);
        for (t = delays.fitting(t); delays.fitting(t + offset) != t + offset; t /= 2) {}
        return t + offset;
    };
    const double left = side(s.beats, s.time);
    return {left, s.link != 0 ? left : side(s.beatsRight, s.timeRight)};
}

}  // namespace

template <typename T> void BeatDelayCore<T>::prepare(const ProcessSpec& spec)
{
    channels_ = spec.channels;
    pairs_ = ChannelPairs::of(spec.layout);
    network_.prepare(channels_, 1, {spec.sampleRate, kLongest});
    output_.prepare(channels_, spec.sampleRate);
    entry_.prepare(channels_, spec.sampleRate);
    echoes_.prepare(channels_);
    width_.prepareHalfLife(2 * glideSubBlocks(spec.sampleRate));
}

template <typename T> void BeatDelayCore<T>::reset() noexcept
{
    network_.reset();
    output_.reset();
    entry_.snap();
    width_.reset();
}

template <typename T> void BeatDelayCore<T>::apply(const Settings& s, unsigned dirty) noexcept
{
    settings_ = s;
    network_.apply(s, dirty);
    output_.apply(s, dirty);
    if (dirty & Time) updateTimes();
    if (dirty & Width) width_.target(T(s.width));
    if (dirty & Routing) {
        const auto routing = static_cast<BeatRouting>(static_cast<int>(s.routing));
        int to[kMostEchoChannels];
        std::iota(to, to + channels_, 0);
        for (int p = 0; p < pairs_.count && routing != BeatRouting::Stereo; ++p) {
            const auto [left, right] = pairs_.pairs[static_cast<std::size_t>(p)];
            std::swap(to[left], to[right]);
        }
        network_.order().target({to, static_cast<std::size_t>(channels_)});
        entry_.target(routing == BeatRouting::Cross ? BeatRouting::Stereo : routing);
    }
}

template <typename T> void BeatDelayCore<T>::setTempo(double beatsPerMinute) noexcept
{
    tempo_ = beatsPerMinute;
    updateTimes();
}

template <typename T> void BeatDelayCore<T>::updateTimes() noexcept
{
    auto& lines = network_.lines();
    const auto times = timesOf(settings_, tempo_, lines.delays());
    lines.setTime(0, times.left);
    for (int p = 0; p < pairs_.count; ++p)
        lines.setTime(0, pairs_.pairs[static_cast<std::size_t>(p)].second, times.right);
}

/// What comes into the lines: the channels themselves, or the middle of each pair on the side where
/// the ping-pong begins.
template <typename T>
void BeatDelayCore<T>::enter(BeatRouting routing, const AudioBlock<T>& part,
                             const ChannelRows<T>& rows, ChannelList<const T>& in) const noexcept
{
    for (int c = 0; c < channels_; ++c) in[std::size_t(c)] = part[c];
    if (routing == BeatRouting::Stereo) return;
    for (int p = 0; p < pairs_.count; ++p) {
        const auto [left, right] = pairs_.pairs[static_cast<std::size_t>(p)];
        const bool isLeft = routing == BeatRouting::PingPongLeft;
        const int first = isLeft ? left : right, second = isLeft ? right : left;
        vec::addScale(rows[first], static_cast<const T*>(part[left]),
                      static_cast<const T*>(part[right]), T(0.5), part.frames);
        vec::clear(rows[second], part.frames);
        in[std::size_t(first)] = rows[first];
        in[std::size_t(second)] = rows[second];
    }
}

template <typename T> void BeatDelayCore<T>::narrow(T* const* echoes, GridSlice slice) noexcept
{
    width_.next(slice);
    for (int p = 0; p < pairs_.count; ++p) {
        const auto [left, right] = pairs_.pairs[static_cast<std::size_t>(p)];
        width_.process(echoes[left], echoes[right], slice);
    }
}

template <typename T> void BeatDelayCore<T>::process(const AudioBlock<T>& block) noexcept
{
    forEachSubBlock(block, [this](const AudioBlock<T>& part) {
        for (int c = 0; c < channels_; ++c) block_[std::size_t(c)] = part[c];
        const T* const* const in =
            entry_.next(part, [&](BeatRouting routing, const auto& rows, auto& list) {
                enter(routing, part, rows, list);
            });
        entry_.advance(part.frames);
        network_.process(in, echoes_.data(), part);
        narrow(echoes_.data(), part);
        output_.process(block_.data(), echoes_.data(), part);
    });
}

template class BeatDelayCore<float>;
template class BeatDelayCore<double>;

BeatDelayAlgorithm::BeatDelayAlgorithm() : EchoAlgorithm(kParameters) {}

BeatDelayComponent::BeatDelayComponent(BeatDelayAlgorithm& algorithm)
    : AudioEffectComponent(algorithm, {.viewPrefix = "BeatDelay"})
{}

void BeatDelayComponent::changed(const AlgorithmParameter& parameter, float before,
                                 Setter by) noexcept
{
    const auto read = [this](const char* key) { return value(key); };
    const float now = value(parameter.key.c_str());
    for (const auto& pair : kSyncs)
        if (const auto move = pair.moved(parameter.key, now, before, read, tempo()))
            set(move->key, move->value, by);
}

Delays BeatDelayComponent::delays(double sampleRate) const noexcept
{
    S s{};
    s.sync = value("sync");
    s.beats = soundingNoteValue(value("beatsnu"));
    s.beatsRight = soundingNoteValue(value("beatsright"));
    s.time = milliseconds(value("time"));
    s.timeRight = milliseconds(value("timeright"));
    s.link = value("link");
    s.offset = milliseconds(value("offset"));
    const StepDelays delays{sampleRate, kLongest};
    const auto times = timesOf(s, double(tempo()), delays);
    const int longest = std::max(delays.samples(times.left), delays.samples(times.right));
    return echoDelays(longest, double(percent(value("feedback"))), isOn("freeze"));
}

}  // namespace quillworks
