// SPDX-License-Identifier: ISC
#include "framework/effect_algorithm.h"

#include <cmath>
#include <utility>

#include "dsp/flush_denormals.h"
#include "dsp/vec.h"

namespace quillworks {
namespace {

constexpr Tag kBypassTag = "Bypa"_tag;

std::vector<bool> triggersOf(const AlgorithmParameterList& list)
{
    std::vector<bool> isTrigger;
    for (const auto& slot : list.slots()) isTrigger.push_back(slot.isTrigger);
    return isTrigger;
}

std::vector<float> startsOf(const AlgorithmParameterList& list)
{
    std::vector<float> starts;
    for (const auto& meter : list.meters()) starts.push_back(meter.defaultValue);
    return starts;
}

/// What a side-chain bus plays that nobody feeds. Never written.
constexpr int kSilence = 4096;  // frames
alignas(64) double silence[kSilence];

/// Room for channels that need a place of their own, on the stack: no instance keeps any.
constexpr int kRows = 4096;  // samples
/// Signals that need it are cut into pieces of at most so many frames.
constexpr int kLongestRow = 256;

}  // namespace

AudioEffectAlgorithm::AudioEffectAlgorithm(std::shared_ptr<const AlgorithmParameterList> list)
    : crossing_(triggersOf(*list)),
      meters_(list->meterTags(), startsOf(*list)),
      cold_(std::make_unique<Cold>(list))
{}

AudioEffectAlgorithm::~AudioEffectAlgorithm() = default;

bool AudioEffectAlgorithm::acceptsArrangement(const VNK::SpeakerArrangement& input,
                                              const VNK::SpeakerArrangement& output) const noexcept
{
    return input == output && input.channels >= 1 && input.channels <= VNK::kMaxChannels;
}

bool AudioSynthAlgorithm::acceptsArrangement(const VNK::SpeakerArrangement&,
                                             const VNK::SpeakerArrangement& output) const noexcept
{
    return output.channels >= 1 && output.channels <= VNK::kMaxChannels;
}

bool AudioEffectAlgorithm::setSpeakerArrangement(const VNK::SpeakerArrangement& input,
                                                 const VNK::SpeakerArrangement& output) noexcept
{
    const CallRules::Exclusive rule(rules_, CallRules::Exclusive::NotProcessing);
    if (!input.isValid() || !output.isValid() || !acceptsArrangement(input, output)) return false;
    const bool changes = !(input == cold_->input && output == cold_->output);
    cold_->input = input;
    cold_->output = output;
    isPrepared_ = false;
    tellOwner(changes ? "speakerTypeChanged" : nullptr);
    return true;
}

void AudioEffectAlgorithm::setPrecision(VNK::Precision precision) noexcept
{
    const CallRules::Exclusive rule(rules_, CallRules::Exclusive::NotProcessing);
    if (precision == precision_) return;
    precision_ = precision;
    isPrepared_ = false;
}

bool AudioEffectAlgorithm::setSampleRate(std::int32_t maxFrames, double sampleRate) noexcept
{
    const CallRules::Exclusive rule(rules_, CallRules::Exclusive::NotProcessing);
    if (!(sampleRate >= 1 && sampleRate <= VNK::kHighestSampleRate) || maxFrames < 1) return false;
    isPrepared_ = false;
    try {
        const auto& input = cold_->input;
        const auto& output = cold_->output;
        ProcessSpec spec;
        spec.sampleRate = sampleRate;
        spec.maxFrames = maxFrames;
        spec.channels = std::max(input.channels, output.channels);
        spec.layout = output;
        spec.inputLayout = input;
        cold_->bypassGains.prepare(input.channels, output.channels, [&](int from, int to) {
            return bypassGain(input, output, from, to);
        });
        // What was set while the host was not processing is in force from now on.
        takeParameters();
        prepareCore(spec, precision_);
        cold_->spec = spec;
        channels_ = spec.channels;
        maxFrames_ = maxFrames;
    } catch (...) {
        return false;
    }
    bypass_.prepare(sampleRate);
    tempoSeen_ = 0;
    isPrepared_ = true;
    setCoreWetOnly(wetOnlySeen_);
    reset();
    tellOwner(nullptr);
    return true;
}

void AudioEffectAlgorithm::reset() noexcept
{
    const CallRules::Exclusive rule(rules_, CallRules::Exclusive::NotProcessing);
    if (!isPrepared_) return;
    isFresh_ = true;
    takeParameters();
    applyChanges();
    restartCore();
    bypass_.snap();
}

void AudioEffectAlgorithm::restartCore() noexcept
{
    resetCore();
    gridPhase_ = 0;
}

void AudioEffectAlgorithm::setSideChainActive(bool active) noexcept
{
    active = active && hasSideChain();
    if (sideChainActive_.load(std::memory_order_relaxed) == active ||  // exchange is a bus lock
        sideChainActive_.exchange(active, std::memory_order_relaxed) == active)
        return;
    if (auto* const owner = cold_->owner) owner->sideChainChanged();
}

void AudioEffectAlgorithm::setWetOnly(bool wetOnly) noexcept
{
    if (wetOnly_.exchange(wetOnly, std::memory_order_relaxed) == wetOnly) return;
    if (auto* const owner = cold_->owner) owner->wetOnlyChanged();
}

void AudioEffectAlgorithm::tellOwner(const char* message) noexcept
{
    if (auto* const owner = cold_->owner) owner->setupChanged(message);
}

void AudioEffectAlgorithm::setTempo(double beatsPerMinute) noexcept
{
    if (!std::isfinite(beatsPerMinute) || !(beatsPerMinute > 0)) return;
    const double tempo = std::clamp(beatsPerMinute, 10.0, 400.0);
    if (tempo == tempo_.load(std::memory_order_relaxed) ||  // exchange is a bus lock
        tempo == tempo_.exchange(tempo, std::memory_order_relaxed))
        return;
    if (auto* const owner = cold_->owner) owner->tempoChanged();
}

void AudioEffectAlgorithm::setTransport(const VNK::Transport& transport) noexcept
{
    transport_ = transport;
    hasTransport_ = true;
    setTempo(transport.tempo);
}

void AudioEffectAlgorithm::setDelays(std::uint32_t stamp, std::uint32_t latency, std::uint32_t tail,
                                     bool bypassed) noexcept
{
    ownLatency_.publish(stamp, latency);
    ownTail_.publish(stamp, tail);
    reportsBypassed_.publish(stamp, bypassed ? 1 : 0);
}

// A bypassed effect neither delays nor rings on.
std::uint32_t AudioEffectAlgorithm::getLatency() const noexcept
{
    return reportsBypassed_.read() ? 0 : ownLatency_.read();
}

std::uint32_t AudioEffectAlgorithm::getTailLength() const noexcept
{
    return reportsBypassed_.read() ? 0 : ownTail_.read();
}

float AudioEffectAlgorithm::getBypassGain(std::int32_t input, std::int32_t output) const noexcept
{
    const bool isThere = input >= 0 && input < inputLayout().channels && output >= 0 &&
                         output < outputLayout().channels;
    return isThere ? bypassGain(inputLayout(), outputLayout(), input, output) : 0;
}

void AudioEffectAlgorithm::takeParameters() noexcept
{
    crossing_.drain([this](std::size_t slot, float value) {
        const Tag tag = parameterList().slots()[slot].tag;
        if (tag == kBypassTag)
            bypass_.set(value != 0);
        else
            setParameter(tag, value);
    });
}

void AudioEffectAlgorithm::process(const VNK::ProcessData& data) noexcept
{
    const CallRules::Exclusive rule(rules_, CallRules::Exclusive::Block);
    if constexpr (kChecksRules) {
        if (!isPrepared_) ruleBroken("process without a preparation that succeeded");
        if (precision_ == VNK::Precision::Float)
            checkAliasing<float>(data);
        else
            checkAliasing<double>(data);
    }
    if (!isPrepared_ || data.frames <= 0) return;
    const FlushDenormals flush;
    takeParameters();
    if (const bool wetOnly = isWetOnly(); wetOnly != wetOnlySeen_) {
        wetOnlySeen_ = wetOnly;
        setCoreWetOnly(wetOnly);
    }
    if (const double tempo = this->tempo(); tempo != tempoSeen_) {
        tempoSeen_ = tempo;
        setCoreTempo(tempo);
    }
    applyChanges();
    if (isFresh_) {  // what was set since the reset is in force from the first sample: nothing
                     // glides
        restartCore();
        bypass_.snap();
        isFresh_ = false;
    }
    if (precision_ == VNK::Precision::Float)
        processAs<float>(data);
    else
        processAs<double>(data);
    if (!bypass_.isOff()) publish(meters_);
    if (std::exchange(hasTransport_, false)) transport_ = {};
}

/// A host's block on its way, cut into pieces where that must be.
template <typename T> struct AudioEffectAlgorithm::Course {
    Course(const VNK::ProcessData& block, int channels) noexcept
        : data(block),
          inputs(block.inputs ? std::min(block.inputChannels, channels) : 0),
          outputs(block.outputs ? std::min(block.outputChannels, channels) : 0)
    {
        for (int i = 0; i < inputs; ++i)
            for (int o = 0; o < outputs; ++o)
                crosses |= i != o && data.inputs[i] && data.inputs[i] == data.outputs[o];
        for (int c = 0; c < channels; ++c) spares += isHeard(c) ? 0 : 1;
        piece.channel = channel;
        piece.channels = channels;
        piece.inputChannels = inputs;
        piece.outputChannels = outputs;
        piece.sideChain = side;
    }

    const VNK::ProcessData& data;
    int inputs, outputs;
    bool crosses = false;  // the input of one channel is the output of another
    int spares = 0;        // channels that the host has no output for
    int done = 0;          // frames
    AudioBlock<T> piece = {};
    T* channel[VNK::kMaxChannels];
    const T* side[VNK::kMaxChannels];

    bool isHeard(int c) const noexcept { return c < outputs && data.outputs[c]; }
    /// Null: silence.
    const T* input(int c) const noexcept
    {
        const void* const given = data.inputs[c];
        return given ? static_cast<const T*>(given) + done : nullptr;
    }
    int left() const noexcept { return data.frames - done; }
};

template <typename T> void AudioEffectAlgorithm::processAs(const VNK::ProcessData& data) noexcept
{
    Course<T> course(data, channels_);
    auto& piece = course.piece;
    piece.transport = &transport_;
    while (course.left() > 0) {
        if (bypass_.startsAfresh(static_cast<int>(ownLatency_.read()))) restartCore();
        if (course.spares > 0 || course.crosses || needsDry())
            processWithRows(course);
        else
            processPiece<T>(course, course.left(), nullptr, 0);
        course.done += piece.frames;
        if (course.left() > 0) advanceTransport(piece.frames);
    }
}

void AudioEffectAlgorithm::advanceTransport(int frames) noexcept
{
    if (!transport_.playing) return;  // both clocks stand
    if (transport_.frameKnown) transport_.frame += frames;
    // The song's own tempo, which need not lie within what effects are told.
    const bool isTold = std::isfinite(transport_.tempo) && transport_.tempo > 0;
    const double tempo = isTold ? transport_.tempo : tempoSeen_;
    if (transport_.positionKnown)
        transport_.quarterNotes += frames / spec().sampleRate * tempo / 60;
}

/// Apart, so that the usual block does not take this much of the stack.
template <typename T>
[[gnu::noinline]] void AudioEffectAlgorithm::processWithRows(Course<T>& course) noexcept
{
    alignas(64) T rows[kRows];
    const int copies =
        std::max(course.crosses ? course.inputs : 0, needsDry() ? course.outputs : 0);
    const int count = std::max(1, course.spares + copies);
    const int length = std::min(kLongestRow, kRows / count / kSubBlock * kSubBlock);
    processPiece(course, std::min(course.left(), length), rows, length);
}

/// `rows` of `length` frames: the spare channels, then copies.
template <typename T>
void AudioEffectAlgorithm::processPiece(Course<T>& course, int frames, T* rows, int length) noexcept
{
    auto& piece = course.piece;
    const auto& data = course.data;
    const bool hasSide = isSideChainActive();
    const bool isFed = hasSide && data.sideChain && data.sideChainChannels > 0;
    if (hasSide) frames = std::min(frames, kSilence);
    piece.frames = frames = std::min(frames, maxFrames_);

    T* const copies = rows + course.spares * length;
    const auto copyOf = [=](int c) { return copies + c * length; };
    if (course.crosses)
        for (int c = 0; c < course.inputs; ++c)
            if (const T* const in = course.input(c)) vec::copy(copyOf(c), in, frames);
    for (int c = 0, spare = 0; c < channels_; ++c) {
        T*& channel = course.channel[c];
        channel = course.isHeard(c) ? static_cast<T*>(data.outputs[c]) + course.done
                                    : rows + spare++ * length;
        const T* const in = c < course.inputs ? course.input(c) : nullptr;
        if (!in)
            vec::clear(channel, frames);
        else if (course.crosses)
            vec::copy(channel, copyOf(c), frames);
        else if (channel != in)
            vec::copy(channel, in, frames);
    }
    if (hasSide) {
        piece.sideChainChannels = isFed ? std::min(data.sideChainChannels, VNK::kMaxChannels) : 1;
        for (int c = 0; c < piece.sideChainChannels; ++c)
            course.side[c] = isFed && data.sideChain[c]
                                 ? static_cast<const T*>(data.sideChain[c]) + course.done
                                 : reinterpret_cast<const T*>(silence);
    }
    if (bypass_.isOn()) return runCore(piece);
    if (!needsDry()) return;

    const int heard = piece.outputChannels;
    for (int c = 0; c < heard; ++c)
        if (isLaid())
            cold_->bypassGains.play(piece.channel, piece.inputChannels, c, copyOf(c), frames);
        else
            vec::copy(copyOf(c), piece[c], frames);
    if (bypass_.isOff()) {
        for (int c = 0; c < heard; ++c) vec::copy(piece[c], copyOf(c), frames);
        return;
    }
    runCore(piece);
    fade(piece, copies, length);
}

/// Towards or away from the bypass's channels, `length` frames apart.
template <typename T>
void AudioEffectAlgorithm::fade(const AudioBlock<T>& piece, const T* bypass, int length) noexcept
{
    for (int done = 0; done < piece.frames;) {
        const int n = bypass_.run(piece.frames - done);
        const auto w = bypass_.advance(n);
        for (int c = 0; c < piece.outputChannels; ++c) {
            T* const out = piece[c] + done;
            const T* const dry = bypass + c * length + done;
            if (w.from == 1 && w.to == 1) continue;
            if (w.from == 0 && w.to == 0) {
                vec::copy(out, dry, n);
                continue;
            }
            vec::subInplace(out, dry, n);
            vec::rampGain(out, T(w.from), T(w.to), n);
            vec::addInplace(out, dry, n);
        }
        done += n;
    }
}

template <typename T> void AudioEffectAlgorithm::runCore(AudioBlock<T>& block) noexcept
{
    block.phase = gridPhase_;
    processCore(block);
    gridPhase_ = (gridPhase_ + block.frames) % kSubBlock;
}

}  // namespace quillworks
