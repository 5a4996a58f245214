// SPDX-License-Identifier: ISC
#include "mixing/binaural_pan.h"

#include <algorithm>
#include <cmath>

#include "dsp/decibel.h"
#include "dsp/sanitise.h"
#include "framework/speakers.h"

namespace quillworks {
namespace {

using Core = PanToolCore<float>;
using S = PanToolSettings;
using namespace conversion;

constexpr Tag kOutPeak = 1200;
constexpr double kHighestPeak = 20;  // dB, that the meter shows
/// -4.5 dB for each of two sources: as loud as the pair, within 1.5 dB, however alike they are.
constexpr double kOfTwo = 0.59566;
constexpr double kReference = 1.5;  // m, where a source has its own level
constexpr double kNearest = 2;      // linear, the most that a near source gains
constexpr double kTail = 0.4;       // s, of the room
constexpr double kMeterSeconds = 0.3, kSilentPower = 1e-12, kLeastMono = -60;

constexpr const char* kPlaybacks[] = {"Headphones", "Loudspeakers"};

// clang-format off
constexpr Parameter<S> kParameters[] = {
    // key           tag         title            kind         min   max  def   unit  field             dirty           forward
    {"azimuth",      "Azim"_tag, "Azimuth",       Kind::Float, -180, 180, 0,    "°",  &S::azimuth,      Core::Place,    asIs,
     {.group = "Place", .help = "Angle from the front, to the right above zero.", .flags = VNK::isBipolar, .wraps = true}},
    {"elevation",    "Elev"_tag, "Elevation",     Kind::Float, -40,  90,  0,    "°",  &S::elevation,    Core::Place,    asIs,
     {.group = "Place", .help = "Angle above the height of the ears.", .flags = VNK::isBipolar, .origin = 0.0f}},
    {"width",        "Wdth"_tag, "Stereo Width",  Kind::Float, 0,    180, 60,   "°",  &S::width,        Core::Place,    asIs,
     {.group = "Place", .help = "Angle between the left and the right input.", .shortTitle = "Width"}},
    {"distance",     "Dist"_tag, "Distance",      Kind::Float, 0.3f, 10,  1.5f, "m",  &S::distance,     Core::Place,    asIs,
     {.group = "Place", .help = "How far away the sound is; far sounds are softer than their room.", .curve = &curve::logarithmic}},
    {"room",         "Room"_tag, "Room",          Kind::Float, 0,    100, 35,   "%",  &S::room,         Core::Room,     percent,
     {.group = "Room", .help = "Level of the reflections that take the sound out of the head."}},
    {"timing",       "Timi"_tag, "Ear Timing",    Kind::Float, 0,    100, 100,  "%",  &S::timing,       Core::Place,    percent,
     {.group = "Head", .help = "How much later the far ear hears; at zero a fold to mono has no notches.", .shortTitle = "Timing"}},
    {"head",         "Head"_tag, "Head Radius",   Kind::Float, 7,    10,  8.65f, "cm", &S::head,        Core::Place | Core::Speakers, asIs,
     {.group = "Head", .help = "Half the distance between the ears.", .shortTitle = "Head"}},
    {"playback",     "Play"_tag, "Playback",      Kind::List,  0,    1,   0,    "",   &S::playback,     Core::Speakers, asIs,
     {.group = "Playback", .help = "What it is heard over; for loudspeakers what each makes at the far ear is taken out.", .texts = kPlaybacks}},
    {"speakerangle", "Span"_tag, "Speaker Angle", Kind::Float, 20,   90,  60,   "°",  &S::speakerAngle, Core::Speakers, asIs,
     {.group = "Playback", .help = "Angle between the two loudspeakers as the listener sees it.", .shortTitle = "Angle"}},
    {"bypass",       "Bypa"_tag, "Bypass",        Kind::Bypass},
    {"outpeak",      kOutPeak,   "Out",           Kind::Reading, -144, 20, -144, "dB", nullptr, 0, asIs, {},
     {.count = 2, .perChannel = true}},
    {"correlation",  "Corr"_tag, "Correlation",   Kind::Meter, -1,   1,   0},
    {"monoloss",     "MnLs"_tag, "Mono Loss",     Kind::Meter, -60,  0,   0,    "dB"},
};
// clang-format on

}  // namespace

template <typename T> void PanToolCore<T>::prepare(const ProcessSpec& spec)
{
    inputs_ = spec.inputLayout.channels;
    outputs_ = spec.layout.channels;
    for (auto& source : sources_) source.prepare(spec.sampleRate);
    filters_.prepare(2 * inputs_, spec.sampleRate);
    images_.prepare(inputs_, spec.sampleRate);
    late_.prepare(spec.sampleRate);
    room_.prepareHalfLife(2 * glideSubBlocks(spec.sampleRate));
    onSpeakers_.prepare(spec.sampleRate, 0.02);
    canceller_.prepare(spec.sampleRate);
    correlation_.prepare(spec.sampleRate, kMeterSeconds);
    mono_.setTimes(spec.sampleRate, kMeterSeconds, kMeterSeconds);
    mean_.setTimes(spec.sampleRate, kMeterSeconds, kMeterSeconds);
}

template <typename T> void PanToolCore<T>::reset() noexcept
{
    for (auto& source : sources_) source.reset();
    filters_.reset();
    images_.reset();
    late_.reset();
    room_.snap();
    roomCourse_.set(room_.target());
    isRoomOpen_ = room_.target() != 0;
    onSpeakers_.snap();
    canceller_.reset();
    peaks_ = {};
    power_.reset();
    correlation_.reset();
    mono_.reset();
    mean_.reset();
}

template <typename T> void PanToolCore<T>::apply(const Settings& s, unsigned dirty) noexcept
{
    const double radius = double(s.head) / 100;
    if (dirty & Place) {
        const double nearness = std::min(kNearest, kReference / double(s.distance));
        for (int i = 0; i < inputs_; ++i) {
            const double beside = inputs_ == 1 ? 0 : (i - 0.5) * double(s.width);
            const auto at = SpeakerPlace{double(s.azimuth) + beside, double(s.elevation), false};
            const auto direction = at.direction();
            const double level = dbToGain(head::levelling(direction)) * (inputs_ == 1 ? 1 : kOfTwo);
            sources_[static_cast<std::size_t>(i)].place(
                head::lateness(direction, radius) * double(s.timing), level, nearness);
            for (int ear = 0; ear < 2; ++ear)
                filters_.target(2 * i + ear, head::colour(head::toEar(direction, ear)));
            images_.place(i, direction, double(s.distance), radius, double(s.timing));
        }
    }
    if (dirty & Room) room_.target(T(s.room));
    if (dirty & Speakers) {
        canceller_.place(double(s.speakerAngle), radius);
        onSpeakers_.target(s.playback != 0);
    }
}

template <typename T> void PanToolCore<T>::process(const AudioBlock<T>& block) noexcept
{
    forEachSubBlock(block, [this](const AudioBlock<T>& slice) { processSlice(slice); });
    for (int c = 0; c < outputs_; ++c) {
        T& peak = peaks_[static_cast<std::size_t>(c)];
        peak = std::max(peak, vec::peak(block[c], block.frames));
    }
    if (ring_) ring_->write(block.channel, block.frames);
}

template <typename T> void PanToolCore<T>::processSlice(const AudioBlock<T>& slice) noexcept
{
    const int n = slice.frames;
    Pair sources, ears, others;
    T* const heard[] = {ears.channels[0], ears.channels[1], others.channels[0], others.channels[1]};
    for (int i = 0; i < inputs_; ++i) {
        T* const x = sources.channels[i];
        vec::copy(x, static_cast<const T*>(slice[i]), n);
        sanitise(x, n, kLoudestSignal);
        sources_[static_cast<std::size_t>(i)].process(x, heard + 2 * i, slice);
    }
    filters_.process(heard, slice);
    for (int ear = 0; ear < 2 && inputs_ == 2; ++ear)
        vec::addInplace(ears.channels[ear], others.channels[ear], n);
    addRoom(sources, ears, slice);
    measure(ears, slice);
    feedSpeakers(ears, slice);
    if (outputs_ == 1)
        vec::addScale(slice[0], ears.channels[0], ears.channels[1], T(0.5), n);
    else
        for (int ear = 0; ear < 2; ++ear) vec::copy(slice[ear], ears.channels[ear], n);
}

template <typename T>
void PanToolCore<T>::addRoom(const Pair& sources, Pair& ears, GridSlice slice) noexcept
{
    roomCourse_.follow(room_, slice);
    if (slice.begins()) {
        const bool isOpen = !roomCourse_.is(0) || room_.isGliding();
        if (isOpen && !isRoomOpen_) {
            images_.reset();
            late_.reset();
        }
        isRoomOpen_ = isOpen;
    }
    if (!isRoomOpen_) return;
    const int n = slice.frames;
    Pair heard;
    T in[kSubBlock];
    if (inputs_ == 2)
        vec::addCopy(in, sources.channels[0], sources.channels[1], n);
    else
        vec::copy(in, sources.channels[0], n);
    late_.process(in, heard.channels[0], heard.channels[1], n);
    for (T* const ear : heard.channels) vec::scale(ear, T(2), n);
    images_.process(sources.channels, heard.channels, slice);
    for (int ear = 0; ear < 2; ++ear) {
        roomCourse_.scale(heard.channels[ear], slice);
        vec::addInplace(ears.channels[ear], heard.channels[ear], n);
    }
}

template <typename T> void PanToolCore<T>::feedSpeakers(Pair& ears, GridSlice slice) noexcept
{
    if (onSpeakers_.next(slice) && onSpeakers_.present()) canceller_.reset();
    if (!onSpeakers_.present() && !onSpeakers_.isFading()) return;
    const int n = slice.frames;
    Pair speakers;
    for (int i = 0; i < 2; ++i) vec::copy(speakers.channels[i], ears.channels[i], n);
    canceller_.process(speakers.channels[0], speakers.channels[1], slice);
    for (int i = 0; i < 2; ++i) {
        T *fresh = speakers.channels[i], *old = ears.channels[i];
        if (!onSpeakers_.present()) std::swap(fresh, old);
        onSpeakers_.fade().mix(fresh, old, n);
        if (fresh != ears.channels[i]) vec::copy(ears.channels[i], fresh, n);
    }
    onSpeakers_.advance(n);
}

template <typename T> void PanToolCore<T>::measure(const Pair& ears, GridSlice slice) noexcept
{
    power_.add(ears.channels[0], ears.channels[1], slice);
    if (!slice.ends()) return;
    const auto& m = power_.moments();
    correlation_.addSubBlock(m);
    mono_.next(std::max(0.0, (m.xx + m.yy + 2 * m.xy) / 4));
    mean_.next((m.xx + m.yy) / 2);
}

template <typename T> void PanToolCore<T>::publish(MeterSlots& meters) noexcept
{
    meters.publishFamily(kOutPeak, outputs_, [this](int c) {
        const double peak = gainToDb(double(peaks_[static_cast<std::size_t>(c)]));
        return static_cast<float>(std::min(peak, kHighestPeak));
    });
    meters.publish("Corr"_tag, static_cast<float>(correlation_.value()));
    const bool isSilent = mean_.value() < kSilentPower;
    const double share = isSilent ? 1 : mono_.value() / mean_.value();
    const double loss = std::clamp(10 * std::log10(std::max(share, 1e-10)), kLeastMono, 0.0);
    meters.publish("MnLs"_tag, static_cast<float>(loss));
    peaks_ = {};
}

template class PanToolCore<float>;
template class PanToolCore<double>;

PanToolAlgorithm::PanToolAlgorithm() : DisplayAlgorithm(kParameters) {}

bool PanToolAlgorithm::acceptsArrangement(const VNK::SpeakerArrangement& input,
                                          const VNK::SpeakerArrangement& output) const noexcept
{
    const bool isToStereo = input.channels == 1 && output.channels == 2 &&
                            output.find(VNK::Speaker::L) >= 0 && output.find(VNK::Speaker::R) >= 0;
    return isToStereo || (input == output && (input.channels == 1 || input.channels == 2));
}

PanToolComponent::PanToolComponent(PanToolAlgorithm& algorithm)
    : DisplayComponent(algorithm, {.viewPrefix = "PanTool", .layouts = "stereo;mono;mono>stereo"},
                       {kRecentField})
{}

Delays PanToolComponent::delays(double sampleRate) const noexcept
{
    if (value("room") == 0) return {};
    return {.latency = 0, .tail = static_cast<std::uint32_t>(std::ceil(kTail * sampleRate))};
}

}  // namespace quillworks
