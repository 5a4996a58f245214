// SPDX-License-Identifier: ISC
#include "dynamics/expander.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "dsp/sanitise.h"
#include "dsp/vec.h"
#include "dsp/vector_math.h"
#include "framework/sidechain_source.h"

namespace quillworks {
namespace {

using Core = ExpanderCore<float>;
using S = ExpanderSettings;
using namespace conversion;

constexpr int kMaxChannels = VNK::kMaxChannels;

// clang-format off
constexpr Parameter<S> kParameters[] = {
    // key             tag          title                kind           min    max    def   unit                  field          dirty                  forward        notes
    {"ratio",        "Rati"_tag, "Ratio",             Kind::Float,  0.05f,     1,     1, "Media.Ratio",        &S::slope,      Core::Curve,           ratioToSlope,
        {.group = "Levels", .help = "How many dB the input falls below the threshold for each dB that the output shall fall; 1 leaves it alone.", .curve = &curve::middleAt<400>}},
    {"highthresh",   "HiTh"_tag, "Threshold",         Kind::Float,    -60,     0,   -60, "Media.DB",           &S::threshold,  Core::Curve,           asIs,
        {.group = "Levels", .help = "Level below which the signal is lowered.", .shortTitle = "Thresh", .curve = &curve::decibel, .flags = VNK::isDecibel}},
    {"range",        "Rnge"_tag, "Range",             Kind::Float,    -72,     0,   -72, "Media.DB",           &S::range,      Core::Curve,           asIs,
        {.group = "Levels", .help = "The most that the signal is lowered by.", .curve = &curve::decibel, .flags = VNK::isDecibel}},
    {"attack",       "Atak"_tag, "Attack",            Kind::Float,   0.1f,   500,    50, "Media.Milliseconds", &S::attack,     Core::Times,           milliseconds,
        {.group = "Envelope", .help = "Time in which the signal comes up when it passes the threshold.", .curve = &curve::logarithmic}},
    {"release",      "Rels"_tag, "Release",           Kind::Float,     50,  2000,   100, "Media.Milliseconds", &S::release,    Core::Times,           milliseconds,
        {.group = "Envelope", .help = "Time in which it goes down again.", .curve = &curve::logarithmic}},
    {"internalside", "SExt"_tag, "Sidechain Filter",  Kind::Toggle,     0,     1,     0, "",                   &S::filter,     Core::Switches,        asIs,
        {.group = "Sidechain / Filter", .help = "Puts the filter in front of the detector.", .shortTitle = "Filter"}},
    {"intlisten",    "SCls"_tag, "Filter Listen",     Kind::Toggle,     0,     1,     0, "",                   &S::listen,     Core::Switches,        asIs,
        {.group = "Sidechain / Filter", .help = "Lets you hear what the detector hears, while the filter is on.", .shortTitle = "Listen"}},
    {"filterlow",    "IntL"_tag, "Sidechain LC-Freq", Kind::Float,     20, 16000,    20, "Hz",                 &S::lowCut,     Core::Filters,         asIs,
        {.group = "Sidechain / Filter", .help = "Frequencies below do not open the expander.", .shortTitle = "Low Cut", .curve = &curve::logarithmic, .minText = "Off"}},
    {"filterhigh",   "FrqH"_tag, "Sidechain HC-Freq", Kind::Float,     20, 16000, 16000, "Hz",                 &S::highCut,    Core::Filters,         asIs,
        {.group = "Sidechain / Filter", .help = "Frequencies above do not open the expander.", .shortTitle = "High Cut", .curve = &curve::logarithmic, .maxText = "Off"}},
    {"swapfreqs",    "SCSw"_tag, "Swap Frequencies",  Kind::Toggle,     0,     1,     0, "",                   nullptr,        0,                     asIs,
        {.group = "Sidechain / Filter", .help = "Exchanges the two frequencies: a band is rejected instead of passed.", .shortTitle = "Swap"}},
    {"duck",         "Invt"_tag, "Duck",              Kind::Toggle,     0,     1,     1, "",                   &S::duck,       Core::Switches,        asIs,
        {.group = "Sidechain / Filter", .help = "Keyed by an external side-chain, lowers the signal while the key is loud instead of while it is quiet."}},
    {"lookahead",    "LkAh"_tag, "LkAh",              Kind::Toggle,     0,     1,     1, "",                   &S::lookAhead,  Core::LookAheadSwitch, asIs,
        {.group = "Envelope", .help = "Delays the audio by 2 ms so that the expander opens in time for sharp attacks, and holds it open for as long."}},
    {"reduction",    "Redu"_tag, "Reduction",         Kind::Meter,    -96,     0,     0, "dB"},
    {"bypass",       "Bypa"_tag, "Bypass",            Kind::Bypass},
    {"editor",       "Edit"_tag, "Editor",            Kind::Command,    0,     1,     0, "",                   &S::editorOpen, Core::Editor},
    levelRow<S>(kInputFast),
    levelRow<S>(kInputSlow),
};
// clang-format on

}  // namespace

template <typename T> void ExpanderCore<T>::prepare(const ProcessSpec& spec)
{
    sampleRate_ = spec.sampleRate;
    delays_.resize(static_cast<std::size_t>(spec.channels));
    for (auto& delay : delays_) delay.prepare(lookAheadFrames(sampleRate_));
    gain_.setSampleRate(sampleRate_);
    smoother_.prepare(sampleRate_);
    filter_.prepare(sampleRate_, spec.channels);
    levels_.prepare(spec);
    lowCut_.prepareHalfLife(glideSubBlocks(sampleRate_));
    highCut_.prepareHalfLife(glideSubBlocks(sampleRate_));
}

template <typename T> void ExpanderCore<T>::reset() noexcept
{
    gain_.reset();
    smoother_.reset();
    lowCut_.snap();
    highCut_.snap();
    filter_.tune(lowCut_.target(), highCut_.target());
    filter_.reset();
    for (auto& delay : delays_) delay.reset();
    levels_.reset();
}

template <typename T> void ExpanderCore<T>::apply(const Settings& s, unsigned dirty) noexcept
{
    if (dirty & Curve) {
        gain_.setRange(s.range);
        gain_.setThreshold(s.threshold);
        gain_.setSlope(s.slope);
    }
    if (dirty & Times) {
        gain_.setAttack(s.attack);
        gain_.setRelease(s.release);
    }
    if (dirty & Filters) {
        lowCut_.target(s.lowCut);
        highCut_.target(s.highCut);
        lowCut_.setTolerance(s.lowCut * 0.001);
        highCut_.setTolerance(s.highCut * 0.001);
    }
    if (dirty & Switches) {
        const bool wasFiltered = std::exchange(k_.filter, s.filter != 0);
        if (k_.filter && !wasFiltered) filter_.reset();  // not what it heard before it went off
        k_.listen = s.listen != 0;
        k_.duck = s.duck != 0;
    }
    if (dirty & LookAheadSwitch && k_.lookAhead != (s.lookAhead != 0)) {
        k_.lookAhead = s.lookAhead != 0;
        gain_.setHold(k_.lookAhead ? 0.002 : 0);
        for (auto& delay : delays_) delay.reset();
    }
    if (dirty & Editor) levels_.setOpen(s.editorOpen != 0);
}

template <typename T> void ExpanderCore<T>::process(const AudioBlock<T>& block) noexcept
{
    lowest_ = 0;
    // Another key: what the filters of this one have heard is past.
    if (std::exchange(keyChannels_, block.sideChainChannels) != block.sideChainChannels)
        filter_.reset();
    levels_.around(
        block, [](T* x, int n) { sanitise(x, n); },
        [this](const AudioBlock<T>& piece) {
            forEachSubBlock(piece, [this](const AudioBlock<T>& part) { processSlice(part); });
        });
}

template <typename T> void ExpanderCore<T>::processSlice(const AudioBlock<T>& part) noexcept
{
    const int n = part.frames;
    glideFilter(part);

    const bool listens = k_.filter && k_.listen;
    T heard[kMaxChannels][kSubBlock];  // what the detector hears of each channel, for listening
    double level[kSubBlock];
    takeLevel(level, part, listens ? heard : nullptr);

    T gain[kSubBlock];
    bool isConstant = gain_.run(level, gain, n);
    if (k_.duck && part.sideChainChannels > 0 && gain_.expands())
        vec::complement(gain, T(gain_.range()), n);
    lowest_ = std::min(lowest_, -double(isConstant ? std::abs(gain[0]) : vec::peak(gain, n)));
    isConstant = smoother_.run(gain, isConstant, part);

    for (int c = 0; c < part.channels; ++c) {
        T* const x = part[c];
        if (listens) vec::copy(x, heard[c], n);
        const T* const delayed = k_.lookAhead ? delays_[static_cast<std::size_t>(c)].push(x, n) : x;
        if (listens || (isConstant && gain[0] == 1)) {
            if (delayed != x) vec::copy(x, delayed, n);
        } else {
            vec::mulCopy(x, delayed, gain, n);
        }
    }
}

template <typename T> void ExpanderCore<T>::glideFilter(GridSlice slice) noexcept
{
    if (slice.begins() && (lowCut_.isGliding() || highCut_.isGliding())) {
        lowCut_.next(slice);
        highCut_.next(slice);
        filter_.tune(lowCut_.current(), highCut_.current(), highCut_.target() < lowCut_.target());
    }
    filter_.next(slice);
}

/// The largest magnitude among the channels of the key, filtered; what was filtered goes to
/// `heard` unless that is null.
template <typename T>
void ExpanderCore<T>::takeLevel(double* level, const AudioBlock<T>& part,
                                T (*heard)[kSubBlock]) noexcept
{
    const int n = part.frames;
    const bool isExternal = part.sideChainChannels > 0;
    if (!k_.filter && !isExternal) {
        T largest[kSubBlock];
        vec::absCopy(largest, part[0], n);
        for (int c = 1; c < part.channels; ++c) vec::maxAbs(largest, part[c], n);
        return takeChannel(level, largest, n);
    }
    const bool isMean = isExternal && part.sideChainChannels < part.channels;
    double key[kSubBlock];
    for (int c = 0; c < part.channels; ++c) {
        if (c == 0 || !isMean) {
            if (!isExternal)
                takeChannel(key, part[c], n);
            else if (isMean)
                takeBusMean(key, part);
            else
                takeBusChannel(key, part, c);
            if (k_.filter) filter_.run(c, key, part);
            if (c == 0)
                vec::absCopy(level, key, n);
            else
                vec::maxAbs(level, key, n);
        }
        if (heard)
            for (int i = 0; i < n; ++i) heard[c][i] = T(key[i]);
    }
}

template <typename T> void ExpanderCore<T>::publish(MeterSlots& meters) noexcept
{
    meters.publish("Redu"_tag, static_cast<float>(lowest_));
    levels_.publish(meters);
}

template class ExpanderCore<float>;
template class ExpanderCore<double>;

ExpanderAlgorithm::ExpanderAlgorithm() : PrecisionAlgorithm(kParameters) {}

ExpanderComponent::ExpanderComponent(ExpanderAlgorithm& algorithm)
    : SidechainComponent(
          algorithm, {.viewPrefix = "Expander", .views = {"Editor", "Compact"}, .kind = "expander"},
          {.lowCut = "filterlow", .highCut = "filterhigh", .lookAhead = "lookahead"})
{}

}  // namespace quillworks
