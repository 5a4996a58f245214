// SPDX-License-Identifier: ISC
#include "reverb/room_reverb.h"

#include <algorithm>
#include <cmath>
#include <vector>

#include "dsp/vec.h"

namespace quillworks {
namespace {

using Core = RoomReverbCore<float>;
using S = RoomReverbSettings;
using namespace conversion;

constexpr double kGlideSeconds = 0.03;  // of early and late
constexpr std::uint32_t kSeed = 5;      // of the tank's lengths: the most even decay of twelve
constexpr double kMostSpan = 0.2;       // of the first step of diffusion, in shortest lines
constexpr double kMostAllPass = 0.625;
constexpr float kSmallest = 2, kLargest = 60;  // m
constexpr double kUsualDistance = 0.4;
constexpr const char* kShapes[] = {"Room", "Chamber", "Hall", "Church", "Tunnel"};

constexpr const char* kRoom = "Room";
constexpr const char* kDecay = "Decay";

// clang-format off
constexpr std::array kRoomRows{
    // key                      tag         title             kind          min     max   def   unit  field               dirty                    forward
    Parameter<S>{"shape",      "Shap"_tag, "Shape",          Kind::List,   0,      4,    0,    "",   &S::shape,          Core::Room,              asIs,
     {.group = kRoom, .help = "Proportions of the room, heard in its first reflections.", .texts = kShapes}},
    Parameter<S>{"size",       "Size"_tag, "Size",           Kind::Float,  kSmallest, kLargest, 12, "m", &S::size,      Core::Room | Core::Lines | Core::Level, asIs,
     {.group = kRoom, .help = "Side of a cube of the same volume.", .curve = &curve::logarithmic}},
    Parameter<S>{"distance",   "Dist"_tag, "Distance",       Kind::Float,  0,      100,  40,   "%",  &S::distance,       Core::Room | Core::Level, percent,
     {.group = kRoom, .help = "How far away the sound is: further is later, softer at first, and wetter."}},
};
constexpr std::array kDecayRows{
    Parameter<S>{"decay",      "Deca"_tag, "Decay",          Kind::Float,  0.1f,   30,   1.4f, "s",  &S::decay,          Core::Decay,             asIs,
     {.group = kDecay, .help = "Time in which a sound of 1 kHz decays by 60 dB.", .curve = &curve::logarithmic}},
    Parameter<S>{"lowdecay",   "LoDc"_tag, "Low Decay",      Kind::Float,  0.25f,  2.5f, 1.1f, "x",  &S::lowDecay,       Core::Decay,             asIs,
     {.group = kDecay, .help = "How much longer than the middle the lows ring.", .shortTitle = "Low", .curve = &curve::logarithmic, .origin = 1.0f}},
    Parameter<S>{"lowfreq",    "LoDF"_tag, "Low Decay Freq", Kind::Float,  50,     1000, 250,  "Hz", &S::lowFrequency,   Core::Decay,             asIs,
     {.group = kDecay, .help = "Where the decay of the lows goes over to that of the middle.", .shortTitle = "Low Freq", .curve = &curve::logarithmic}},
    Parameter<S>{"highdecay",  "HiDc"_tag, "High Decay",     Kind::Float,  0.1f,   2,    0.6f, "x",  &S::highDecay,      Core::Decay,             asIs,
     {.group = kDecay, .help = "How much longer than the middle the highs ring.", .shortTitle = "High", .curve = &curve::logarithmic, .origin = 1.0f}},
    Parameter<S>{"highfreq",   "HiDF"_tag, "High Decay Freq", Kind::Float, 1000,   16000, 4500, "Hz", &S::highFrequency, Core::Decay,             asIs,
     {.group = kDecay, .help = "Where the decay of the middle goes over to that of the highs.", .shortTitle = "High Freq", .curve = &curve::logarithmic}},
    Parameter<S>{"air",        "Air "_tag, "Air",            Kind::Toggle, 0,      1,    1,    "",   &S::air,            Core::Decay,             asIs,
     {.group = kDecay, .help = "The air takes its part of the highs, as in a real room."}},
    Parameter<S>{"diffusion",  "Diff"_tag, "Diffusion",      Kind::Float,  0,      100,  80,   "%",  &S::diffusion,      Core::Lines,             percent,
     {.group = kRoom, .help = "How densely the reverberation sets in: low for single echoes, high for smoothness."}},
};
constexpr std::array kLevelRows{
    Parameter<S>{"early",      "ErLv"_tag, "Early",          Kind::Float,  -60,    6,    0,    "dB", &S::early,          Core::Level,             decibelsOffAt<-60>,
     {.group = "Output", .help = "Level of the first reflections.", .curve = &curve::decibel, .minText = "Off", .flags = kGainFlags}},
    Parameter<S>{"late",       "LtLv"_tag, "Late",           Kind::Float,  -60,    6,    0,    "dB", &S::late,           Core::Level,             decibelsOffAt<-60>,
     {.group = "Output", .help = "Level of the reverberation behind them.", .curve = &curve::decibel, .minText = "Off", .flags = kGainFlags}},
};
// clang-format on
constexpr auto kParameters = joinedRows(
    kRoomRows, preDelayRows<S>(), kDecayRows, reverbMotionRow<S>(50, &S::motion, Core::Lines),
    kLevelRows, reverbLowCutRow<S>(), reverbHighCutRow<S>(), reverbWidthRows<S>(),
    reverbFreezeRow(&S::freeze, Core::Freeze), reverbMixRows<S>(25), reverbReadings<S>());

/// Delay of the tank's shortest line in a room of so many metres: rooms twice as large are not
/// heard as twice as slow.
double lineSeconds(double size)
{
    return 0.015 + 0.040 * size / (size + 20);
}

}  // namespace

RoomDecay RoomReverbSettings::roomDecay() const noexcept
{
    return {double(decay),     double(lowDecay),      double(lowFrequency),
            double(highDecay), double(highFrequency), air != 0};
}

template <typename T> void RoomReverbCore<T>::prepare(const ProcessSpec& spec)
{
    path_.prepare(spec);
    const int channels = path_.channels();
    const SpeakerField field(spec.layout);
    std::vector<SpeakerPlace> places;
    for (int c = 0; c < channels; ++c) places.push_back(field[path_.channel(c)]);
    reflections_.prepare(spec.sampleRate, places);
    const double longest = lineSeconds(double(kLargest));
    tank_.prepare({.sampleRate = spec.sampleRate,
                   .seed = kSeed,
                   .inputs = channels,
                   .outputs = channels,
                   .hasAllPasses = true,
                   .longest = longest,
                   .longestSpan = kMostSpan * longest,
                   .design = OctaveDecayDesign::at(spec.sampleRate)});
    early_.prepare(spec.sampleRate, kGlideSeconds);
    late_.prepare(spec.sampleRate, kGlideSeconds);
}

template <typename T> void RoomReverbCore<T>::reset() noexcept
{
    path_.reset();
    reflections_.reset();
    tank_.reset();
    early_.snap();
    earlies_.set(early_.current());
    late_.snap();
    lates_.set(late_.current());
}

template <typename T> void RoomReverbCore<T>::apply(const Settings& s, unsigned dirty) noexcept
{
    path_.apply(s, dirty);
    const auto times = s.roomDecay().times();
    const double middle = times[RoomDecay::kMiddleBand];
    if (dirty & (Room | Decay))
        reflections_.target({.shape = static_cast<RoomShape>(static_cast<int>(s.shape)),
                             .size = double(s.size),
                             .distance = double(s.distance),
                             .decay = middle,
                             .highDecay = times[RoomDecay::kHighBand],
                             .highFrequency = double(s.highFrequency)});
    if (dirty & Lines) {
        const double shortest = lineSeconds(double(s.size)), diffusion = double(s.diffusion);
        tank_.setSize(shortest, kMostSpan * diffusion * shortest);
        tank_.setAllPass(kMostAllPass * diffusion);
        tank_.setMotion(double(s.motion));
    }
    if (dirty & Decay) tank_.setDecay(times);
    if (dirty & (Level | Lines | Decay)) {
        // Further away the room is louder against the sound that comes straight.
        const BoxRoom box(RoomShape::Room, 1);
        const double wetter = std::sqrt(box.reach(double(s.distance)) / box.reach(kUsualDistance));
        early_.target(T(s.early));
        late_.target(T(double(s.late) * wetter * tank_.level(middle)));
    }
    if (dirty & Freeze) tank_.freeze(s.freeze != 0);
}

template <typename T> void RoomReverbCore<T>::process(const AudioBlock<T>& block) noexcept
{
    path_.process(block, [this](const T* const* in, T* const* out, GridSlice slice) {
        reverberate(in, out, slice);
    });
}

template <typename T>
void RoomReverbCore<T>::reverberate(const T* const* in, T* const* out, GridSlice slice) noexcept
{
    const int n = slice.frames, channels = path_.channels();
    earlies_.follow(early_, slice);
    lates_.follow(late_, slice);
    tank_.process(in, slice);
    if (earlies_.is(0)) {
        reflections_.listen(in, slice);
        for (int c = 0; c < channels; ++c)
            vec::mulCopy(out[c], tank_.output(c), lates_.of(slice), n);
        return;
    }
    reflections_.process(in, out, slice);
    for (int c = 0; c < channels; ++c) {
        T* const y = out[c];
        const T *const late = tank_.output(c), *const e = earlies_.of(slice),
                       *const l = lates_.of(slice);
        for (int i = 0; i < n; ++i) y[i] = e[i] * y[i] + l[i] * late[i];
    }
}

template class RoomReverbCore<float>;
template class RoomReverbCore<double>;

ReverbAlgorithm::ReverbAlgorithm() : WetPathAlgorithm(kParameters) {}

ReverbComponent::ReverbComponent(ReverbAlgorithm& algorithm)
    : AudioEffectComponent(algorithm,
                           {.viewPrefix = "Reverb",
                            .layouts = "stereo;mono;mono>stereo;quad;5.1;7.1;5.1.4;7.1.4;9.1.6"})
{}

void ReverbComponent::changed(const AlgorithmParameter& parameter, float before, Setter by) noexcept
{
    const auto read = [this](const char* key) { return value(key); };
    const float now = value(parameter.key.c_str());
    if (const auto move = kPreDelaySync.moved(parameter.key, now, before, read, tempo()))
        set(move->key, move->value, by);
}

Delays ReverbComponent::delays(double sampleRate) const noexcept
{
    const auto read = [this](const char* key) { return value(key); };
    S s;
    s.decay = value("decay");
    s.lowDecay = value("lowdecay");
    s.lowFrequency = value("lowfreq");
    s.highDecay = value("highdecay");
    s.highFrequency = value("highfreq");
    s.air = value("air");
    const auto times = s.roomDecay().times();
    const double size = double(value("size"));
    const double late =
        *std::max_element(times.begin(), times.end()) + Tank<float>::longestLine(lineSeconds(size));
    const BoxRoom box(static_cast<RoomShape>(static_cast<int>(value("shape"))), size);
    const double wet = std::max(late, value("early") > -60 ? box.latest() : 0);
    return reverbDelays(readPreDelaySeconds(read, double(tempo())) + wet, isOn("freeze"),
                        sampleRate);
}

}  // namespace quillworks
