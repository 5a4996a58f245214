// SPDX-License-Identifier: ISC
#include "reverb/swellroom.h"

#include <algorithm>
#include <cmath>

#include "dsp/vec.h"

namespace quillworks {
namespace {

using Core = SwellroomCore<float>;
using S = SwellroomSettings;
using namespace conversion;

// clang-format off
constexpr std::array kOwnRows{
    // key                  tag         title     kind         min   max  def   unit          field       dirty                       forward
    Parameter<S>{"size",   "Size"_tag, "Size",   Kind::Float,  0,    100, 45,   "%",          &S::size,   Core::Size,                 percent,
     {.group = "Room", .help = "Size of the room: how far apart its echoes are."}},
    Parameter<S>{"decay",  "Deca"_tag, "Decay",  Kind::Float,  0.2f, 20,  1.8f, "s",          &S::decay,  Core::Decay | Core::Swell,  asIs,
     {.group = "Room", .help = "Time in which the reverberation falls by 60 dB.", .curve = &curve::logarithmic}},
    Parameter<S>{"swell",  "Swel"_tag, "Swell",  Kind::Float,  0,    100, 0,    "%",          &S::swell,  Core::Swell,                percent,
     {.group = "Room", .help = "Lets the reverberation rise behind the sound before it falls."}},
    Parameter<S>{"damp",   "Damp"_tag, "Damp",   Kind::Float,  0,    100, 40,   "%",          &S::damp,   Core::Decay,                percent,
     {.group = "Tone", .help = "Lets the highs decay faster."}},
    Parameter<S>{"warmth", "Warm"_tag, "Warmth", Kind::Float,  -100, 100, 0,    "%",          &S::warmth, Core::Decay,                percent,
     {.group = "Tone", .help = "Lets the lows last longer than the rest, up to twice as long, or shorter.", .flags = VNK::isBipolar}},
};
// clang-format on
constexpr auto kParameters =
    joinedRows(preDelayRow<S>(10), kOwnRows, reverbLowCutRow<S>(80), reverbWidthRows<S>(),
               reverbMixRows<S>(20), reverbReadings<S>());

constexpr double kLowShelf = 200, kHighShelf = 3500;  // Hz
constexpr double kGlideSeconds = 0.03;
constexpr double kMotion = 0.5;
constexpr double kShortestSwell = 0.05;  // s

/// Delay of the shortest line in seconds; size 0 .. 1 is 4 to 40 m.
double shortestLine(double size) noexcept
{
    const double metres = 4 * std::pow(10, size);
    return 0.015 + 0.040 * metres / (metres + 20);
}
double diffusion(double shortest) noexcept
{
    return 0.16 * shortest;
}
/// Of the second tank: its lines differ from the first one's.
double swellLine(double shortest) noexcept
{
    return 0.77 * shortest;
}
constexpr double kSwellDiffusion = 0.01;  // s

/// Of the lows, the middle and the highs, in seconds.
std::array<double, 3> decayTimes(const S& s) noexcept
{
    const double decay = double(s.decay);
    return {decay * std::exp2(double(s.warmth)), decay, decay * (1 - 0.9 * double(s.damp))};
}
double swellTime(const S& s) noexcept
{
    return std::max(kShortestSwell, double(s.decay) * double(s.swell));
}

}  // namespace

template <typename T> void SwellroomCore<T>::prepare(const ProcessSpec& spec)
{
    path_.prepare(spec, double(conversion::milliseconds(kLongestReverbPreDelay)));
    const double longest = shortestLine(1);
    TankSpec tank;
    tank.sampleRate = spec.sampleRate;
    tank.inputs = tank.outputs = path_.channels();
    tank.longest = longest;
    tank.longestSpan = diffusion(longest);
    tank.design = std::make_shared<ShelfDecayDesign>(spec.sampleRate, kLowShelf, kHighShelf);
    tank_.setMotion(kMotion);
    tank_.prepare(tank);
    tank.lines = 8;
    tank.steps = 1;
    tank.seed = 7;
    tank.hasAllPasses = true;
    tank.isHeardDecayed = false;
    tank.longest = swellLine(longest);
    tank.longestSpan = kSwellDiffusion;
    tank.design = std::make_shared<FlatDecayDesign>(spec.sampleRate);
    swellTank_.setMotion(kMotion);
    swellTank_.setAllPass(0.5);
    swellTank_.prepare(tank);
    const double halfLife = halfLifeSubBlocks(spec.sampleRate, kGlideSeconds);
    for (auto* gain : {&direct_, &swelled_, &level_}) gain->prepareHalfLife(halfLife);
}

template <typename T> void SwellroomCore<T>::reset() noexcept
{
    path_.reset();
    tank_.reset();
    isSwelling_ = false;
    for (auto* gain : {&direct_, &swelled_, &level_}) gain->snap();
    directs_.set(direct_.current());
    swelleds_.set(swelled_.current());
    levels_.set(level_.current());
}

template <typename T> void SwellroomCore<T>::apply(const Settings& s, unsigned dirty) noexcept
{
    path_.apply(s, dirty);
    if (dirty & Size) {
        const double shortest = shortestLine(double(s.size));
        tank_.setSize(shortest, diffusion(shortest));
        swellTank_.setSize(swellLine(shortest), kSwellDiffusion);
    }
    if (dirty & Decay) tank_.setDecay(decayTimes(s));
    if (dirty & (Size | Decay)) level_.target(T(tank_.level(double(s.decay))));
    if (dirty & (Size | Swell)) {
        const double seconds = swellTime(s), share = std::min(1.0, 10 * double(s.swell));
        swellTank_.setDecay({&seconds, 1});
        // What a tank adds up while it decays, taken off again.
        const double gathered = std::log(1e6) * swellTank_.totalPeriod() / (4 * seconds);
        direct_.target(T(1 - share));
        swelled_.target(T(share * std::min(1.0, std::sqrt(gathered))));
    }
}

/// What goes into the tank, if it is not the input itself. Without swell the second tank sleeps.
template <typename T>
bool SwellroomCore<T>::swell(const T* const* in, T* const* out, GridSlice slice) noexcept
{
    if (slice.begins()) {
        const bool isAsked = swelled_.target() != 0 || swelled_.isGliding() || direct_.isGliding();
        if (isAsked && !isSwelling_) swellTank_.reset();
        isSwelling_ = isAsked;
    }
    if (!isSwelling_) return false;
    directs_.follow(direct_, slice);
    swelleds_.follow(swelled_, slice);
    swellTank_.process(in, slice);
    const T *const direct = directs_.of(slice), *const swelled = swelleds_.of(slice);
    for (int c = 0; c < path_.channels(); ++c) {
        const T *const x = in[c], *const late = swellTank_.output(c);
        T* const y = out[c];
        for (int i = 0; i < slice.frames; ++i) y[i] = direct[i] * x[i] + swelled[i] * late[i];
    }
    return true;
}

template <typename T>
void SwellroomCore<T>::reverberate(const T* const* in, T* const* out, GridSlice slice) noexcept
{
    tank_.process(swell(in, out, slice) ? out : in, slice);
    levels_.follow(level_, slice);
    for (int c = 0; c < path_.channels(); ++c)
        vec::mulCopy(out[c], tank_.output(c), levels_.of(slice), slice.frames);
}

template <typename T> void SwellroomCore<T>::process(const AudioBlock<T>& block) noexcept
{
    path_.process(block, [this](const T* const* in, T* const* out, GridSlice slice) {
        reverberate(in, out, slice);
    });
}

template class SwellroomCore<float>;
template class SwellroomCore<double>;

SwellroomAlgorithm::SwellroomAlgorithm() : WetPathAlgorithm(kParameters) {}

SwellroomComponent::SwellroomComponent(SwellroomAlgorithm& algorithm)
    : AudioEffectComponent(algorithm,
                           {.viewPrefix = "Swellroom", .layouts = "stereo;mono;mono>stereo"})
{}

Delays SwellroomComponent::delays(double sampleRate) const noexcept
{
    S s{};
    s.decay = value("decay");
    s.swell = percent(value("swell"));
    s.damp = percent(value("damp"));
    s.warmth = percent(value("warmth"));
    const double shortest = shortestLine(double(percent(value("size"))));
    const auto times = decayTimes(s);
    double tail = double(milliseconds(value("predelay"))) +
                  *std::max_element(times.begin(), times.end()) +
                  Tank<float>::longestLine(shortest);
    if (s.swell > 0) tail += swellTime(s) + Tank<float>::longestLine(swellLine(shortest));
    return reverbDelays(tail, false, sampleRate);
}

}  // namespace quillworks
