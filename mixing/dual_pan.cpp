// SPDX-License-Identifier: ISC
#include "mixing/dual_pan.h"

#include <algorithm>
#include <cmath>

#include "dsp/decibel.h"
#include "dsp/sanitise.h"
#include "dsp/vec.h"

namespace quillworks {
namespace {

using Core = DualPanCore<float>;
using S = DualPanSettings;
using namespace conversion;

constexpr Tag kOutPeak = 1200;
constexpr double kHighestPeak = 20;       // dB, that the meter shows
constexpr float kLowestBass = 20;         // Hz; below, the filter is off
constexpr double kLowestGuard = 0.25119;  // -12 dB
constexpr double kGuardSeconds = 0.3;
/// Power far below any signal: in silence the guard has nothing to do.
constexpr double kGuardFloor = 1e-12;

constexpr const char* kLaws[] = {"-3 dB", "-4.5 dB", "-6 dB", "Balance", "0 dB"};

// clang-format off
constexpr Parameter<S> kParameters[] = {
    // key          tag         title          kind         min   max  def   unit  field           dirty         forward
    {"panleft",     "PanL"_tag, "Left Pan",    Kind::Float, -100, 100, -100, "%",  &S::panLeft,    Core::Matrix, percent,
     {.group = "Pan", .help = "Where the left input is heard, from left to right.", .shortTitle = "Pan L", .flags = VNK::isBipolar}},
    {"panright",    "PanR"_tag, "Right Pan",   Kind::Float, -100, 100, 100,  "%",  &S::panRight,   Core::Matrix, percent,
     {.group = "Pan", .help = "Where the right input is heard, from left to right.", .shortTitle = "Pan R", .flags = VNK::isBipolar}},
    {"position",    "Posi"_tag, "Position",    Kind::Float, -100, 100, 0,    "%",  &S::position,   Core::Matrix, percent,
     {.group = "Pan", .help = "Moves both inputs together.", .flags = VNK::isBipolar}},
    {"spread",      "Sprd"_tag, "Spread",      Kind::Float, -100, 100, 100,  "%",  &S::spread,     Core::Matrix, percent,
     {.group = "Pan", .help = "Draws both inputs together, and below zero lets them trade sides.", .flags = VNK::isBipolar}},
    {"levelleft",   "LevL"_tag, "Left Level",  Kind::Float, -48,  12,  0,    "dB", &S::levelLeft,  Core::Matrix, decibelsOffAt<-48>,
     {.group = "Level", .help = "Level of the left input.", .shortTitle = "Level L", .curve = &curve::decibel, .minText = "Off", .flags = kGainFlags}},
    {"levelright",  "LevR"_tag, "Right Level", Kind::Float, -48,  12,  0,    "dB", &S::levelRight, Core::Matrix, decibelsOffAt<-48>,
     {.group = "Level", .help = "Level of the right input.", .shortTitle = "Level R", .curve = &curve::decibel, .minText = "Off", .flags = kGainFlags}},
    {"law",         "Law "_tag, "Pan Law",     Kind::List,  0,    4,   0,    "",   &S::law,        Core::Matrix, asIs,
     {.group = "Pan", .help = "Gain of a point in the middle against one at a side.", .shortTitle = "Law", .texts = kLaws}},
    {"width",       "Wdth"_tag, "Width",       Kind::Float, 0,    200, 100,  "%",  &S::width,      Core::Matrix, percent,
     {.group = "Image", .help = "Level of the difference of left and right, ahead of the pan."}},
    {"rotate",      "Rota"_tag, "Rotate",      Kind::Float, -45,  45,  0,    "°",  &S::rotate,     Core::Matrix, asIs,
     {.group = "Image", .help = "Turns the whole image to the right without a change of its power.", .flags = VNK::isBipolar}},
    {"monobass",    "MnBs"_tag, "Mono Bass",   Kind::Float, 0,    400, 0,    "Hz", &S::monoBass,   Core::Side,   asIs,
     {.group = "Mono", .help = "Frequencies below are heard in the middle; off below 20 Hz.", .minText = "Off"}},
    {"guard",       "Grd "_tag, "Mono Guard",  Kind::Toggle, 0,   1,   0,    "",   &S::guard,      Core::Side,   asIs,
     {.group = "Mono", .help = "Lowers the difference of left and right where the fold to mono would lose more than 3 dB.", .shortTitle = "Guard"}},
    {"bypass",      "Bypa"_tag, "Bypass",      Kind::Bypass},
    {"correlation", "Corr"_tag, "Correlation", Kind::Meter, -1,   1,   0},
    {"guardgain",   "GrdR"_tag, "Guard Gain",  Kind::Meter, -12,  0,   0,    "dB"},
    {"outpeak",     kOutPeak,   "Out",         Kind::Reading, -144, 20, -144, "dB", nullptr, 0, asIs, {},
     {.count = VNK::kMaxChannels, .perChannel = true}},
};
// clang-format on

}  // namespace

template <typename T> void DualPanCore<T>::prepare(const ProcessSpec& spec)
{
    sampleRate_ = spec.sampleRate;
    isFromMono_ = spec.inputLayout.channels == 1 && spec.layout.channels == 2;
    const double base = glideSubBlocks(spec.sampleRate);
    for (Gain* gain : {&ll_, &lr_, &rl_, &rr_}) gain->prepare(2 * base);
    bass_.prepare(spec.sampleRate, 0.01);
    bassOctave_.prepareHalfLife(base);
    const auto layout = ChannelPairs::of(spec.layout);
    pairs_.assign(static_cast<std::size_t>(layout.count), {});
    for (std::size_t p = 0; p < pairs_.size(); ++p) {
        Pair& pair = pairs_[p];
        pair.left = layout.pairs[p].first;
        pair.right = layout.pairs[p].second;
        pair.mid.setTimes(spec.sampleRate, kGuardSeconds, kGuardSeconds);
        pair.side.setTimes(spec.sampleRate, kGuardSeconds, kGuardSeconds);
        pair.guard.prepare(2 * base);
        pair.correlation.prepare(spec.sampleRate);
    }
    peaks_.assign(static_cast<std::size_t>(spec.channels), T(0));
}

template <typename T> void DualPanCore<T>::reset() noexcept
{
    for (Gain* gain : {&ll_, &lr_, &rl_, &rr_}) gain->snap();
    bass_.snap();
    bassOctave_.snap();
    bassCoefficients_.snap(coefficients());
    isGuarding_ = wantsGuard_;
    hasSide_ = false;
    for (Pair& pair : pairs_) {
        pair.bass.reset();
        pair.before.reset();
        pair.heard.reset();
        pair.mid.reset();
        pair.side.reset();
        pair.guard.glide.target(1);
        pair.guard.snap();
        pair.correlation.reset();
    }
    std::fill(peaks_.begin(), peaks_.end(), T(0));
    lowestGuard_ = 1;
}

template <typename T> void DualPanCore<T>::apply(const Settings& s, unsigned dirty) noexcept
{
    if (dirty & Matrix) {
        const auto placeOf = [&](float pan) {
            return std::clamp(double(s.position) + double(s.spread) * double(pan), -1.0, 1.0);
        };
        const auto law = static_cast<PanLaw>(static_cast<int>(s.law));
        const auto m = StereoMatrix::panning(law, placeOf(s.panLeft), placeOf(s.panRight)) *
                       StereoMatrix::rotation(double(s.rotate)) *
                       StereoMatrix::width(double(s.width)) *
                       StereoMatrix::levels(double(s.levelLeft), double(s.levelRight));
        ll_.glide.target(m.ll);
        lr_.glide.target(m.lr);
        rl_.glide.target(m.rl);
        rr_.glide.target(m.rr);
    }
    if (dirty & Side) {
        const bool isOn = s.monoBass >= kLowestBass;
        bass_.target(isOn);
        // Switched off, the filter fades out at the corner it had.
        if (isOn) bassOctave_.target(std::log2(double(s.monoBass)));
        wantsGuard_ = s.guard != 0;
    }
}

template <typename T> SectionCoefficients<T> DualPanCore<T>::coefficients() const noexcept
{
    const double corner = std::max(double(kLowestBass), std::exp2(bassOctave_.current()));
    return SectionCoefficients<T>::highPass(corner, kButterworthQ, sampleRate_);
}

template <typename T> void DualPanCore<T>::process(const AudioBlock<T>& block) noexcept
{
    if (isFromMono_) vec::copy(block[1], static_cast<const T*>(block[0]), block.frames);
    forEachSubBlock(block, [this](const AudioBlock<T>& slice) {
        if (slice.begins()) beginSubBlock();
        for (Pair& pair : pairs_) processPair(pair, slice);
        bass_.advance(slice.frames);
    });
    for (int c = 0; c < block.channels; ++c) {
        T& peak = peaks_[static_cast<std::size_t>(c)];
        peak = std::max(peak, vec::peak(block[c], block.frames));
    }
}

template <typename T> void DualPanCore<T>::beginSubBlock() noexcept
{
    for (Gain* gain : {&ll_, &lr_, &rl_, &rr_}) gain->begin();
    isIdentity_ = ll_.course.is(1) && lr_.course.is(0) && rl_.course.is(0) && rr_.course.is(1);
    if (bass_.next(kWholeSubBlock) && bass_.present()) {
        bassOctave_.snap();
        bassCoefficients_.snap(coefficients());
        for (Pair& pair : pairs_) pair.bass.reset();
    } else if (bassOctave_.isGliding()) {
        bassOctave_.next(kWholeSubBlock);
        bassCoefficients_.follow(coefficients());
    } else if (bassCoefficients_.isMoving()) {
        bassCoefficients_.follow(bassCoefficients_.end());
    }
    if (isGuarding_ != wantsGuard_) {
        isGuarding_ = wantsGuard_;
        for (Pair& pair : pairs_) {
            pair.mid.reset();
            pair.side.reset();
            pair.guard.glide.target(1);
        }
    }
    // For the whole sub-block, even if a fade ends within it: taking mid and side apart and adding
    // them again rounds, and where it does must not depend on the calls.
    hasSide_ = isGuarding_ || bass_.present() || bass_.isFading();
    for (Pair& pair : pairs_) {
        pair.guard.begin();
        hasSide_ |= !pair.guard.course.is(1);
    }
}

template <typename T>
void DualPanCore<T>::processPair(Pair& pair, const AudioBlock<T>& slice) noexcept
{
    T* const left = slice[pair.left];
    T* const right = slice[pair.right];
    if (!isIdentity_) place(left, right, slice);
    if (hasSide_) shapeSide(pair, left, right, slice);
    pair.heard.add(left, right, slice);
    if (slice.ends()) pair.correlation.addSubBlock(pair.heard.moments());
}

template <typename T> void DualPanCore<T>::place(T* left, T* right, GridSlice slice) const noexcept
{
    const T* const ll = ll_.course.of(slice);
    const T* const lr = lr_.course.of(slice);
    const T* const rl = rl_.course.of(slice);
    const T* const rr = rr_.course.of(slice);
    for (int i = 0; i < slice.frames; ++i) {
        const T a = left[i], b = right[i];
        left[i] = ll[i] * a + lr[i] * b;
        right[i] = rl[i] * a + rr[i] * b;
    }
}

/// The mid stays as it is, and with it the fold to mono.
template <typename T>
void DualPanCore<T>::shapeSide(Pair& pair, T* left, T* right, GridSlice slice) noexcept
{
    const int n = slice.frames;
    T mid[kSubBlock], side[kSubBlock];
    // A fault upstream would keep the guard down for seconds.
    sanitise(left, n, kLoudestSignal);
    sanitise(right, n, kLoudestSignal);
    vec::addScale(mid, left, right, T(0.5), n);
    vec::subScale(side, left, right, T(0.5), n);
    filterSide(pair, side, slice);
    if (isGuarding_) {
        pair.before.add(mid, side, slice);
        if (slice.ends()) followGuard(pair);
    }
    const auto& gain = pair.guard.course;
    gain.scale(side, slice);
    lowestGuard_ = std::min(
        {lowestGuard_, double(gain.of(slice)[0]), double(gain.of(slice)[slice.frames - 1])});
    vec::addCopy(left, mid, side, n);
    vec::subCopy(right, mid, side, n);
}

template <typename T> void DualPanCore<T>::filterSide(Pair& pair, T* side, GridSlice slice) noexcept
{
    const int n = slice.frames;
    if (!bass_.present() && !bass_.isFading()) return;
    if (!bass_.isFading()) return bassCoefficients_.run(pair.bass, side, slice);
    T filtered[kSubBlock];
    std::copy_n(side, n, filtered);
    bassCoefficients_.run(pair.bass, filtered, slice);
    if (bass_.present()) {
        bass_.fade().mix(filtered, side, n);
        std::copy_n(filtered, n, side);
    } else {
        bass_.fade().mix(side, filtered, n);
    }
}

/// The mean product of left and right is that of the mid's square less that of the side's: at this
/// gain the correlation is 0, until the side is down as far as it may be.
template <typename T> void DualPanCore<T>::followGuard(Pair& pair) noexcept
{
    const auto& moments = pair.before.moments();
    const double mid = pair.mid.next(moments.xx), side = pair.side.next(moments.yy);
    const double gain = std::sqrt((mid + kGuardFloor) / (side + kGuardFloor));
    pair.guard.glide.target(std::clamp(gain, kLowestGuard, 1.0));
}

template <typename T> void DualPanCore<T>::publish(MeterSlots& meters) noexcept
{
    double lowest = 1;
    bool isHeard = false;  // a silent pair has no say
    for (const Pair& pair : pairs_) {
        if (!pair.correlation.hasValue()) continue;
        isHeard = true;
        lowest = std::min(lowest, pair.correlation.value());
    }
    meters.publish("Corr"_tag, isHeard ? static_cast<float>(lowest) : 0);
    meters.publish("GrdR"_tag, static_cast<float>(gainToDb(lowestGuard_)));
    meters.publishFamily(kOutPeak, static_cast<int>(peaks_.size()), [this](int c) {
        // Channels outside pairs pass as they are, an infinity too.
        const double peak = gainToDb(double(peaks_[static_cast<std::size_t>(c)]));
        return static_cast<float>(std::min(peak, kHighestPeak));
    });
    std::fill(peaks_.begin(), peaks_.end(), T(0));
    lowestGuard_ = 1;
}

template class DualPanCore<float>;
template class DualPanCore<double>;

DualPanAlgorithm::DualPanAlgorithm() : PrecisionAlgorithm(kParameters) {}

bool DualPanAlgorithm::acceptsArrangement(const VNK::SpeakerArrangement& input,
                                          const VNK::SpeakerArrangement& output) const noexcept
{
    const bool isToStereo = input.channels == 1 && output.channels == 2 &&
                            output.find(VNK::Speaker::L) >= 0 && output.find(VNK::Speaker::R) >= 0;
    return isToStereo || PrecisionAlgorithm::acceptsArrangement(input, output);
}

DualPanComponent::DualPanComponent(DualPanAlgorithm& algorithm)
    : AudioEffectComponent(
          algorithm,
          {.viewPrefix = "DualPan", .layouts = "stereo;mono;mono>stereo", .copiesAtDefaults = true})
{}

}  // namespace quillworks
