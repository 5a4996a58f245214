// SPDX-License-Identifier: ISC
#include "framework/effect_algorithm.h"

#include <cmath>

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

std::vector<std::pair<Tag, float>> startsOf(const AlgorithmParameterList& list)
{
    std::vector<std::pair<Tag, float>> starts;
    for (const auto& meter : list.meters()) starts.emplace_back(meter.tag, meter.defaultValue);
    return starts;
}

}  // namespace

/// Buffers of one precision: what the input was, for bypass and for channels that change places,
/// channels that the host has no output for, and what bypass plays where that is not the input.
template <typename T> struct AudioEffectAlgorithm::Scratch {
    Scratch(int channels, int maxFrames, bool isLaid)
        : frames(static_cast<std::size_t>(maxFrames)),
          dry(frames * static_cast<std::size_t>(channels)),
          spare(frames * static_cast<std::size_t>(channels)),
          silence(frames),
          laid(isLaid ? frames * static_cast<std::size_t>(channels) : 0)
    {}

    T* dryOf(int c) noexcept { return dry.data() + frames * static_cast<std::size_t>(c); }
    T* spareOf(int c) noexcept { return spare.data() + frames * static_cast<std::size_t>(c); }
    T* laidOf(int c) noexcept { return laid.data() + frames * static_cast<std::size_t>(c); }

    std::size_t frames;
    std::vector<T> dry, spare, silence, laid;
};

AudioEffectAlgorithm::AudioEffectAlgorithm(AlgorithmParameterList list)
    : list_(std::move(list)), crossing_(triggersOf(list_)), meters_(startsOf(list_))
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
    const bool changes = !(input == input_ && output == output_);
    input_ = input;
    output_ = output;
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
        ProcessSpec spec;
        spec.sampleRate = sampleRate;
        spec.maxFrames = maxFrames;
        spec.channels = std::max(input_.channels, output_.channels);
        spec.layout = output_;
        spec.inputLayout = input_;
        floatScratch_.reset();
        doubleScratch_.reset();
        bypassGains_.prepare(input_.channels, output_.channels, [this](int from, int to) {
            return bypassGain(input_, output_, from, to);
        });
        const bool isLaid = !bypassGains_.isIdentity();
        if (precision_ == VNK::Precision::Float)
            floatScratch_ = std::make_unique<Scratch<float>>(spec.channels, maxFrames, isLaid);
        else
            doubleScratch_ = std::make_unique<Scratch<double>>(spec.channels, maxFrames, isLaid);
        // What was set while the host was not processing is in force from now on.
        takeParameters();
        prepareCore(spec, precision_);
        spec_ = spec;
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
    if (sideChainActive_.exchange(active, std::memory_order_relaxed) == active) return;
    if (owner_) owner_->sideChainChanged();
}

void AudioEffectAlgorithm::setWetOnly(bool wetOnly) noexcept
{
    if (wetOnly_.exchange(wetOnly, std::memory_order_relaxed) != wetOnly && owner_)
        owner_->wetOnlyChanged();
}

void AudioEffectAlgorithm::tellOwner(const char* message) noexcept
{
    if (owner_) owner_->setupChanged(message);
}

void AudioEffectAlgorithm::setTempo(double beatsPerMinute) noexcept
{
    if (!std::isfinite(beatsPerMinute) || !(beatsPerMinute > 0)) return;
    const double tempo = std::clamp(beatsPerMinute, 10.0, 400.0);
    const double before = tempo_.exchange(tempo, std::memory_order_relaxed);
    if (tempo != before && owner_) owner_->tempoChanged();
}

void AudioEffectAlgorithm::setTransport(const VNK::Transport& transport) noexcept
{
    transport_ = transport;
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
    const bool isThere =
        input >= 0 && input < input_.channels && output >= 0 && output < output_.channels;
    return isThere ? bypassGain(input_, output_, input, output) : 0;
}

void AudioEffectAlgorithm::takeParameters() noexcept
{
    crossing_.drain([this](std::size_t slot, float value) {
        const Tag tag = list_.slots()[slot].tag;
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
        processAs(data, *floatScratch_);
    else
        processAs(data, *doubleScratch_);
    if (!bypass_.isOff()) publish(meters_);
    transport_ = {};
}

template <typename T>
void AudioEffectAlgorithm::processAs(const VNK::ProcessData& data, Scratch<T>& scratch) noexcept
{
    const int channels = spec_.channels;
    const int inputs = data.inputs ? std::min(data.inputChannels, channels) : 0;
    const int outputs = data.outputs ? std::min(data.outputChannels, channels) : 0;
    // A host may hand the input of one channel as the output of another.
    bool crosses = false;
    for (int i = 0; i < inputs; ++i)
        for (int o = 0; o < outputs; ++o)
            crosses |= i != o && data.inputs[i] && data.inputs[i] == data.outputs[o];

    T* channel[VNK::kMaxChannels];
    const T* side[VNK::kMaxChannels];
    AudioBlock<T> piece;
    piece.channel = channel;
    piece.channels = channels;
    piece.inputChannels = inputs;
    piece.outputChannels = outputs;
    piece.sideChain = side;
    piece.transport = &transport_;
    for (int done = 0; done < data.frames; done += piece.frames) {
        piece.frames = std::min(data.frames - done, spec_.maxFrames);
        const auto input = [&](int c) {
            const void* const given = data.inputs[c];
            return given ? static_cast<const T*>(given) + done : scratch.silence.data();
        };
        if (crosses)
            for (int c = 0; c < inputs; ++c) vec::copy(scratch.dryOf(c), input(c), piece.frames);
        for (int c = 0; c < channels; ++c) {
            channel[c] = c < outputs && data.outputs[c] ? static_cast<T*>(data.outputs[c]) + done
                                                        : scratch.spareOf(c);
            if (c >= inputs)
                vec::clear(channel[c], piece.frames);
            else if (crosses)
                vec::copy(channel[c], scratch.dryOf(c), piece.frames);
            else if (channel[c] != input(c))
                vec::copy(channel[c], input(c), piece.frames);
        }
        if (isSideChainActive()) {
            const bool isFed = data.sideChain && data.sideChainChannels > 0;
            piece.sideChainChannels =
                isFed ? std::min(data.sideChainChannels, VNK::kMaxChannels) : 1;
            for (int c = 0; c < piece.sideChainChannels; ++c)
                side[c] = isFed && data.sideChain[c]
                              ? static_cast<const T*>(data.sideChain[c]) + done
                              : scratch.silence.data();
        }
        processPiece(piece, scratch);
        if (!transport_.playing) continue;  // both clocks stand
        if (transport_.frameKnown) transport_.frame += piece.frames;
        // The song's own tempo, which need not lie within what effects are told.
        const bool isTold = std::isfinite(transport_.tempo) && transport_.tempo > 0;
        const double tempo = isTold ? transport_.tempo : tempoSeen_;
        if (transport_.positionKnown)
            transport_.quarterNotes += piece.frames / spec_.sampleRate * tempo / 60;
    }
}

template <typename T>
void AudioEffectAlgorithm::processPiece(AudioBlock<T>& piece, Scratch<T>& scratch) noexcept
{
    const auto latency = static_cast<int>(ownLatency_.read());
    if (bypass_.startsAfresh(latency)) restartCore();
    if (bypass_.isOn()) return runCore(piece);
    const int heard = piece.outputChannels;
    const bool isLaid = !bypassGains_.isIdentity();
    if (bypass_.isOff() && !isLaid) return;

    const auto dryOf = [&](int c) { return isLaid ? scratch.laidOf(c) : scratch.dryOf(c); };
    for (int c = 0; c < heard; ++c)
        if (isLaid)
            bypassGains_.play(piece.channel, piece.inputChannels, c, dryOf(c), piece.frames);
        else
            vec::copy(dryOf(c), piece[c], piece.frames);
    if (bypass_.isOff()) {
        for (int c = 0; c < heard; ++c) vec::copy(piece[c], dryOf(c), piece.frames);
        return;
    }
    runCore(piece);
    for (int done = 0; done < piece.frames;) {
        const int n = bypass_.run(piece.frames - done);
        const auto w = bypass_.advance(n);
        for (int c = 0; c < heard; ++c) {
            T* const out = piece[c] + done;
            const T* const dry = dryOf(c) + done;
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
