// SPDX-License-Identifier: ISC
#include "mixing/surround_panner.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "dsp/decibel.h"
#include "dsp/sanitise.h"
#include "dsp/vec.h"

namespace quillworks {
namespace {

using Core = SurroundPanCore<float>;
using S = SurroundPanSettings;
using namespace conversion;

constexpr Tag kLeftGain = 1000, kRightGain = 1100, kOutPeak = 1200;
constexpr int kShownChannels = 16;
constexpr double kHighestPeak = 20;      // dB, that the meter shows
constexpr double kLfeCorner = 120;       // Hz
constexpr double kModeSeconds = 0.02;    // from one law to the other
constexpr double kSmallestShare = 1e-6;  // of a range: a glide nearer than that has arrived

constexpr const char* kModes[] = {"Direction", "Room"};

// clang-format off
constexpr Parameter<S> kParameters[] = {
    // key         tag         title           kind         min   max  def  unit  field          dirty        forward
    {"x",          "PosX"_tag, "Left/Right",   Kind::Float, -100, 100, 0,   "%",  &S::x,          Core::Place, percent,
     {.group = "Place", .help = "Place between left and right.", .shortTitle = "L/R", .flags = VNK::isBipolar}},
    {"y",          "PosY"_tag, "Front/Back",   Kind::Float, -100, 100, 100, "%",  &S::y,          Core::Place, percent,
     {.group = "Place", .help = "Place between back and front; 100 is the front.", .shortTitle = "F/B", .flags = VNK::isBipolar}},
    {"elevation",  "Elev"_tag, "Elevation",    Kind::Float, 0,    90,  0,   "°",  &S::elevation,  Core::Place, asIs,
     {.group = "Place", .help = "Angle above the height of the ears."}},
    {"width",      "Wdth"_tag, "Stereo Width", Kind::Float, 0,    180, 60,  "°",  &S::width,      Core::Place, asIs,
     {.group = "Place", .help = "Angle between the left and the right input.", .shortTitle = "Width"}},
    {"mode",       "Mode"_tag, "Mode",         Kind::List,  0,    1,   0,   "",   &S::mode,       Core::Place, asIs,
     {.group = "Size", .help = "By direction, from the speakers around it, or by its distance from each, for sources inside the room.", .texts = kModes}},
    {"spread",     "Sprd"_tag, "Spread",       Kind::Float, 0,    100, 0,   "%",  &S::spread,     Core::Place, percent,
     {.group = "Size", .help = "Size of the source, up to all speakers alike."}},
    {"divergence", "Dvrg"_tag, "Divergence",   Kind::Float, 0,    100, 0,   "%",  &S::divergence, Core::Place, percent,
     {.group = "Size", .help = "Sends a part of the source to either side of it, for seats off the middle.", .shortTitle = "Diverge"}},
    {"centre",     "Cntr"_tag, "Centre",       Kind::Float, 0,    100, 100, "%",  &S::centre,     Core::Place, percent,
     {.group = "Size", .help = "What the centre speaker keeps of its part; left and right share the rest."}},
    {"lfe",        "LFEL"_tag, "LFE Send",     Kind::Float, -96,  6,   -96, "dB", &S::lfe,        Core::Place, decibelsOffAt<-96>,
     {.group = "Level", .help = "Level of what lies below 120 Hz in the LFE channel.", .shortTitle = "LFE", .curve = &curve::decibel, .minText = "Off", .flags = kGainFlags}},
    {"level",      "Levl"_tag, "Level",        Kind::Float, -96,  12,  0,   "dB", &S::level,      Core::Place, decibels,
     {.group = "Level", .help = "Level of all outputs.", .curve = &curve::decibel, .flags = kGainFlags}},
    {"bypass",     "Bypa"_tag, "Bypass",       Kind::Bypass},
    {"leftgain",   kLeftGain,  "Left Gain",    Kind::Reading, 0, 2, 0, "", nullptr, 0, asIs, {},
     {.count = kShownChannels, .perChannel = true}},
    {"rightgain",  kRightGain, "Right Gain",   Kind::Reading, 0, 2, 0, "", nullptr, 0, asIs, {},
     {.count = kShownChannels, .perChannel = true}},
    {"outpeak",    kOutPeak,   "Out",          Kind::Reading, -144, 20, -144, "dB", nullptr, 0, asIs, {},
     {.count = kShownChannels, .perChannel = true}},
};
// clang-format on

}  // namespace

template <typename T> void SurroundPanCore<T>::prepare(const ProcessSpec& spec)
{
    inputs_ = spec.inputLayout.channels;
    powers_.prepare(spec.layout);
    const double base = glideSubBlocks(spec.sampleRate);
    const std::pair<Smoothed<double>*, double> ranges[] = {
        {&x_, 2},      {&y_, 2},          {&elevation_, 90}, {&width_, 180}, {&spread_, 1},
        {&centre_, 1}, {&divergence_, 1}, {&lfe_, 1},        {&level_, 1}};
    for (const auto& [glide, range] : ranges) {
        glide->prepareHalfLife(2 * base);
        glide->setTolerance(kSmallestShare * range);
    }
    shareStep_ = kSubBlock / (kModeSeconds * spec.sampleRate);
    outputs_.assign(static_cast<std::size_t>(spec.layout.channels), {});
    for (int c = 0; c < spec.layout.channels; ++c)
        outputs_[static_cast<std::size_t>(c)].isLfe = spec.layout.speakers[c] == VNK::Speaker::LFE;
    for (std::size_t i = 0; i < 2; ++i)
        low_[i] = SectionCoefficients<T>::lowPass(kLfeCorner, kButterworth4Q[i], spec.sampleRate);
}

template <typename T> void SurroundPanCore<T>::reset() noexcept
{
    for (auto* glide :
         {&x_, &y_, &elevation_, &width_, &spread_, &divergence_, &centre_, &lfe_, &level_})
        glide->snap();
    distanceShare_ = wantedShare_;
    search_ = {};
    findPowers();
    layGains();
    layGains();  // from there to there: nothing moves
    for (auto& output : outputs_) {
        output.low = {};
        output.peak = 0;
    }
}

template <typename T> void SurroundPanCore<T>::apply(const Settings& s, unsigned) noexcept
{
    x_.target(double(s.x));
    y_.target(double(s.y));
    elevation_.target(double(s.elevation));
    width_.target(double(s.width));
    spread_.target(double(s.spread));
    divergence_.target(double(s.divergence));
    centre_.target(double(s.centre));
    lfe_.target(double(s.lfe));
    level_.target(double(s.level));
    wantedShare_ = s.mode != 0;
}

template <typename T> void SurroundPanCore<T>::process(const AudioBlock<T>& block) noexcept
{
    for (int done = 0; done < block.frames;) {
        const int phase = (block.phase + done) % kSubBlock;
        if (phase == 0) beginSubBlock();
        // While all stands, sub-blocks need not be told apart.
        const int longest = isStill() ? kRun : kSubBlock - phase;
        const int n = std::min(longest, block.frames - done);
        play(block.slice(done, n));
        done += n;
    }
}

template <typename T> bool SurroundPanCore<T>::isPlaceGliding() const noexcept
{
    return distanceShare_ != wantedShare_ || x_.isGliding() || y_.isGliding() ||
           elevation_.isGliding() || width_.isGliding() || spread_.isGliding() ||
           divergence_.isGliding() || centre_.isGliding();
}

template <typename T> void SurroundPanCore<T>::beginSubBlock() noexcept
{
    if (isStill()) return;
    if (isPlaceGliding()) {
        for (auto* glide : {&x_, &y_, &elevation_, &width_, &spread_, &divergence_, &centre_})
            glide->next(kWholeSubBlock);
        const double way = wantedShare_ - distanceShare_;
        distanceShare_ = std::abs(way) <= shareStep_
                             ? wantedShare_
                             : distanceShare_ + std::copysign(shareStep_, way);
        findPowers();
    }
    lfe_.next(kWholeSubBlock);
    level_.next(kWholeSubBlock);
    layGains();
}

template <typename T> void SurroundPanCore<T>::findPowers() noexcept
{
    PanPlace place;
    place.x = x_.current();
    place.y = y_.current();
    place.elevation = elevation_.current();
    place.spread = spread_.current();
    place.divergence = divergence_.current();
    place.centre = centre_.current();
    place.distanceShare = distanceShare_;
    for (int i = 0; i < inputs_; ++i) {
        const auto input = static_cast<std::size_t>(i);
        place.turn = inputs_ == 1 ? 0 : (i - 0.5) * width_.current();
        double powers[PanPowers::kMost];
        powers_.of(place, powers, search_[input]);
        for (std::size_t c = 0; c < outputs_.size(); ++c)
            outputs_[c].placed[input] = std::sqrt(powers[c]);
    }
}

/// Lets the gains move to where place and level are at the end of the sub-block.
template <typename T> void SurroundPanCore<T>::layGains() noexcept
{
    const double level = level_.current();
    isMoving_ = false;
    for (auto& output : outputs_) {
        if (output.isLfe) output.placed.fill(lfe_.current());
        for (std::size_t i = 0; i < std::size_t(inputs_); ++i) {
            output.gain[i].follow(T(output.placed[i] * level));
            isMoving_ |= output.gain[i].isMoving();
        }
    }
}

template <typename T> void SurroundPanCore<T>::play(const AudioBlock<T>& block) noexcept
{
    const int n = block.frames;
    T input[kMostInputs][kRun];
    for (int i = 0; i < inputs_; ++i) vec::copy(input[i], block[i], n);
    const T* const other = inputs_ == 2 ? input[1] : nullptr;
    for (std::size_t c = 0; c < outputs_.size(); ++c) {
        auto& output = outputs_[c];
        T* const out = block[static_cast<int>(c)];
        if (output.isSilent()) {
            output.low = {};
            // What holds no input is silent already.
            if (static_cast<int>(c) < block.inputChannels) vec::clear(out, n);
            continue;
        }
        T peak;
        if (output.isLfe) {
            playLfe(output, input[0], other, out, block);
            peak = vec::peak(out, n);
        } else {
            peak = mix(output, input[0], other, out, block);
        }
        output.peak = std::max(output.peak, peak);
    }
}

template <typename T>
T SurroundPanCore<T>::mix(const Output& output, const T* left, const T* right, T* out,
                          GridSlice slice) noexcept
{
    Gain l = output.gain[0], r = output.gain[1];
    if (r.isSilent()) right = nullptr;
    if (right && l.isSilent()) {
        left = std::exchange(right, nullptr);
        l = r;
    }
    return mixPanned<T>(out, left, right, l, r, kSubBlock - 1 - slice.phase, slice.frames);
}

template <typename T>
void SurroundPanCore<T>::playLfe(Output& output, const T* left, const T* right, T* out,
                                 GridSlice slice) const noexcept
{
    const int n = slice.frames;
    if (right)
        vec::addScale(out, left, right, T(0.5), n);
    else
        vec::copy(out, left, n);
    sanitise(out, n);
    for (std::size_t i = 0; i < 2; ++i) output.low[i].run(low_[i], out, n);
    for (int i = 0; i < n; ++i) out[i] *= output.gain[0].at(slice.phase + i);
}

template <typename T> void SurroundPanCore<T>::publish(MeterSlots& meters) noexcept
{
    const int shown = std::min(kShownChannels, static_cast<int>(outputs_.size()));
    const auto at = [this](int c) -> Output& { return outputs_[static_cast<std::size_t>(c)]; };
    meters.publishFamily(kLeftGain, shown,
                         [&](int c) { return static_cast<float>(at(c).placed[0]); });
    meters.publishFamily(kRightGain, shown, [&](int c) {
        return inputs_ == 1 ? 0 : static_cast<float>(at(c).placed[1]);
    });
    meters.publishFamily(kOutPeak, shown, [&](int c) {
        return static_cast<float>(std::min(gainToDb(double(at(c).peak)), kHighestPeak));
    });
    for (auto& output : outputs_) output.peak = 0;
}

template class SurroundPanCore<float>;
template class SurroundPanCore<double>;

SurroundPanAlgorithm::SurroundPanAlgorithm() : PrecisionAlgorithm(kParameters) {}

bool SurroundPanAlgorithm::acceptsArrangement(const VNK::SpeakerArrangement& input,
                                              const VNK::SpeakerArrangement& output) const noexcept
{
    return (input.channels == 1 || input.channels == 2) && output.channels >= 1 &&
           output.channels <= VNK::kMaxChannels;
}

SurroundPanComponent::SurroundPanComponent(SurroundPanAlgorithm& algorithm)
    : AudioEffectComponent(
          algorithm, {.viewPrefix = "SurroundPan",
                      .layouts = "stereo;mono;mono>stereo;mono>lcr;mono>quad;mono>5.0;mono>5.1;"
                                 "mono>7.0;mono>7.1;mono>5.1.4;mono>7.1.2;mono>7.1.4;mono>9.1.6;"
                                 "stereo>mono;stereo>lcr;stereo>quad;stereo>5.0;stereo>5.1;"
                                 "stereo>7.0;stereo>7.1;stereo>5.1.4;stereo>7.1.2;stereo>7.1.4;"
                                 "stereo>9.1.6"})
{}

}  // namespace quillworks
