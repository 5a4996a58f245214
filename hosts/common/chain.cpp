// SPDX-License-Identifier: ISC
#include "chain.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <thread>

#include "error.h"
#include "text.h"

namespace quillhost {

Chain::Chain(const std::vector<Effect>& effects, const ChainSetup& setup)
    : setup_(setup), input_(setup.input)
{
    for (const auto& effect : effects)
        links_.push_back({effect, VNK::EffectRunner(effect.algorithm())});
    arrange();
    for (auto& link : links_) {
        link.setup.precision = setup.precision;
        link.setup.sampleRate = setup.sampleRate;
        link.setup.maxFrames = setup.block;
        auto& algorithm = link.effect.algorithm();
        link.hasSideChain = setup.sideChainChannels > 0 && algorithm.hasSideChain();
        algorithm.setSideChainActive(link.hasSideChain);
        if (!link.runner.prepare(link.setup))
            throw WorkError(link.effect.name() + " cannot run at " + shortText(setup.sampleRate) +
                            " Hz with " + std::to_string(link.setup.input.channels) +
                            " channels: there is not enough memory for blocks of " +
                            std::to_string(setup.block) + " frames");
    }
    restart();
}

/// Gives every effect its layouts: as they come, and from the first effect that can make the
/// layout asked for, that one.
void Chain::arrange()
{
    const auto accepts = [](const Link& link, const VNK::SpeakerArrangement& in,
                            const VNK::SpeakerArrangement& out) {
        return link.effect.algorithm().acceptsArrangement(in, out);
    };
    const auto& wanted = setup_.output;
    const bool isMade = wanted && std::any_of(links_.begin(), links_.end(), [&](const Link& link) {
                            return !(*wanted == input_) && accepts(link, input_, *wanted);
                        });
    // Nobody needs to turn it into anything: the file's channels are what the layout says.
    if (wanted && !isMade && wanted->channels == input_.channels) input_ = *wanted;
    output_ = input_;
    planeChannels_ = input_.channels;
    for (auto& link : links_) {
        link.setup.input = output_;
        if (wanted && !(output_ == *wanted) && accepts(link, output_, *wanted)) output_ = *wanted;
        const auto& input = link.setup.input;
        std::int64_t made = 0;
        if (!accepts(link, input, output_) &&
            link.effect.component().getInteger("audioOutputs", made))
            output_ = VNK::SpeakerArrangement::withChannels(static_cast<int>(made));
        link.setup.output = output_;
        if (!accepts(link, input, output_) || output_.channels > kMostChannels) {
            const char* const ports = link.effect.component().getString("audioPorts");
            throw WorkError(link.effect.name() + " does not take the layout " + input.names() +
                            " (" + std::to_string(input.channels) + " channels" +
                            (ports ? std::string("; it has ").append(ports) : "") + ")");
        }
        planeChannels_ = std::max(planeChannels_, output_.channels);
    }
    if (wanted && !(output_ == *wanted))
        throw UsageError("no effect of the chain turns " + std::to_string(input_.channels) +
                         " channels (" + input_.names() + ") into the layout " + wanted->names());
    if (setup_.precision == VNK::Precision::Float)
        floatScratch_ = Planes<float>(planeChannels_, setup_.block);
    else
        doubleScratch_ = Planes<double>(planeChannels_, setup_.block);
}

bool Chain::hasSideChain() const noexcept
{
    return std::any_of(links_.begin(), links_.end(),
                       [](const Link& link) { return link.effect.algorithm().hasSideChain(); });
}

std::int64_t Chain::latency() const noexcept
{
    std::int64_t sum = 0;
    for (const auto& link : links_) sum += link.effect.algorithm().getLatency();
    return sum;
}

std::int64_t Chain::tail(std::int64_t limit) const noexcept
{
    std::int64_t sum = 0;
    for (const auto& link : links_) {
        const auto tail = link.effect.algorithm().getTailLength();
        if (tail == VNK::kEndlessTail) return limit;
        sum += tail;
    }
    return std::min(sum, limit);
}

void Chain::restart() noexcept
{
    for (auto& link : links_) {
        link.effect.algorithm().reset();
        link.floatDry.reset();
        link.doubleDry.reset();
    }
    frame_ = tempoFrame_ = 0;
    tempoPosition_ = setup_.position;
    nextEvent_ = 0;
    isUnsettled_ = true;
    setTempo(setup_.tempo);
}

/// Song position of the next block, summed over the tempos so far.
double Chain::quarterNotes() const noexcept
{
    const auto frames = static_cast<double>(frame_ - tempoFrame_);
    return tempoPosition_ + frames / (setup_.sampleRate * 60 / tempo_);
}

void Chain::setTempo(double tempo) noexcept
{
    tempoPosition_ = quarterNotes();
    tempoFrame_ = frame_;
    tempo_ = tempo;
    for (auto& link : links_) link.effect.algorithm().setTempo(tempo);
}

void Chain::setAutomation(std::vector<AutomationEvent> events)
{
    events_ = std::move(events);
    for (std::size_t i = 0; i < links_.size(); ++i) {
        const int bypass = links_[i].effect.component().findParameter("bypass");
        const bool isAutomated =
            std::any_of(events_.begin(), events_.end(), [&](const AutomationEvent& event) {
                return event.effect == i && event.parameter == bypass;
            });
        if (isAutomated) followBypass(links_[i], bypass);
    }
}

void Chain::followBypass(Link& link, int parameter)
{
    constexpr double kLongestDelay = 0.25;  // seconds that automation may make of the delay
    auto& component = link.effect.component();
    const float value = component.getValue(parameter);
    component.setValue(parameter, 0);
    const auto latency = static_cast<int>(link.effect.algorithm().getLatency());
    if (latency == 0) {
        component.setValue(parameter, value);
        return;
    }
    link.bypass = parameter;
    link.isBypassed = value != 0;
    const int most = std::max(latency, static_cast<int>(kLongestDelay * setup_.sampleRate));
    const auto prepare = [&](auto& dry) {
        needingMemory("the delay of " + link.effect.name(), [&] {
            dry.prepare(link.effect.algorithm(), link.setup.input.channels,
                        link.setup.output.channels, setup_.sampleRate, setup_.block, most);
        });
    };
    setup_.precision == VNK::Precision::Float ? prepare(link.floatDry) : prepare(link.doubleDry);
}

float Chain::value(std::size_t effect, int parameter) const noexcept
{
    const auto& link = links_[effect];
    if (parameter == link.bypass) return link.isBypassed ? 1.0f : 0.0f;
    return link.effect.component().getValue(parameter);
}

/// Sets what is due at the next frame, and returns how many frames are left to the next event or to
/// the end of the block.
std::int64_t Chain::applyEvents()
{
    for (; nextEvent_ < events_.size() && events_[nextEvent_].frame <= frame_; ++nextEvent_) {
        const auto& event = events_[nextEvent_];
        auto& link = links_[event.effect];
        isUnsettled_ = true;
        if (link.effect.parameter(event.parameter).isTempo)
            setTempo(static_cast<double>(event.value));
        else if (event.parameter == link.bypass)
            link.isBypassed = event.value != 0;
        else
            link.effect.component().automate(event.parameter, event.value);
    }
    const std::int64_t left = setup_.block - frame_ % setup_.block;
    return nextEvent_ < events_.size() ? std::min(left, events_[nextEvent_].frame - frame_) : left;
}

template <typename T>
void Chain::runPiece(Planes<T>& planes, const Planes<T>* sideChain, int at, int frames)
{
    auto& spare = [this]() -> Planes<T>& {
        if constexpr (std::is_same_v<T, float>)
            return floatScratch_;
        else
            return doubleScratch_;
    }();
    VNK::Transport transport;
    transport.playing = transport.positionKnown = transport.frameKnown = true;
    transport.quarterNotes = quarterNotes();
    // Where the song would stand if it had had the first tempo before frame 0.
    transport.frame =
        std::llround(setup_.position * setup_.sampleRate * 60 / setup_.tempo) + frame_;
    transport.tempo = tempo_;

    for (std::size_t i = 0; i < links_.size(); ++i) {
        auto& link = links_[i];
        const int inputs = link.setup.input.channels, outputs = link.setup.output.channels;
        const bool inPlace = inputs == outputs;
        T *here[kMostChannels], *target[kMostChannels];
        for (int c = 0; c < inputs; ++c) here[c] = planes[c] + at;
        for (int c = 0; c < outputs; ++c) target[c] = inPlace ? here[c] : spare[c];
        VNK::ChannelPointers<const T> side;
        if (link.hasSideChain && sideChain) side = {*sideChain, setup_.sideChainChannels, at};
        const bool isFollowed = link.bypass >= 0;
        auto& dry = link.template dry<T>();
        if (isFollowed) dry.keep(here, frames);
        link.runner.template process<T>({here, inputs}, {target, outputs}, frames, side,
                                        setup_.playing ? &transport : nullptr);
        if (isFollowed)
            dry.mix(target, frames, static_cast<int>(link.effect.algorithm().getLatency()),
                    !link.isBypassed);
        if (!inPlace)
            for (int c = 0; c < outputs; ++c) std::copy_n(spare[c], frames, planes[c] + at);
        if (watcher_) watcher_(i, frame_, frames);
    }
}

template <typename T> void Chain::run(Planes<T>& planes, const Planes<T>* sideChain, int frames)
{
    VNK::runCut(
        frames, [this](int) { return applyEvents(); },
        [&](int at, int n) {
            runSettled(planes, sideChain, at, n);
            frame_ += n;
        });
}

template <typename T>
void Chain::runSettled(Planes<T>& planes, const Planes<T>* sideChain, int at, int frames)
{
    if (!isUnsettled_) return runPiece(planes, sideChain, at, frames);
    waitUntilReady();
    runPiece(planes, sideChain, at, frames);
    waitUntilReady();
    isUnsettled_ = false;
}

void Chain::waitUntilReady() const
{
    using Clock = std::chrono::steady_clock;
    constexpr auto kLongest = std::chrono::seconds(120);
    const auto isBusy = [](const Link& link) {
        std::int64_t busy = 0;
        return link.effect.component().getInteger("busy", busy) && busy != 0;
    };
    const auto start = Clock::now();
    for (const auto& link : links_)
        while (isBusy(link)) {
            if (Clock::now() - start > kLongest)
                throw WorkError(link.effect.name() + " is still busy after two minutes");
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
}

std::vector<std::string> Chain::problems() const
{
    waitUntilReady();
    std::vector<std::string> all;
    for (const auto& link : links_)
        for (auto& problem : link.effect.problems()) all.push_back(std::move(problem));
    return all;
}

void Chain::requireFiles(const Session& session, bool allowMissing) const
{
    for (const auto& problem : problems()) {
        if (!allowMissing) throw WorkError(problem + " (--allow-missing does without it)");
        session.note(problem);
    }
}

namespace {

Chain usualChain(const Effect& effect)
{
    ChainSetup setup;
    const auto usual = effect.usualLayouts();
    setup.input = usual.input;
    setup.output = usual.output;
    return {{effect}, setup};
}

}  // namespace

void prepareAsUsual(const Effect& effect)
{
    usualChain(effect).waitUntilReady();
}

void prepareAsUsual(const Effect& effect, const Session& session, bool allowMissing)
{
    usualChain(effect).requireFiles(session, allowMissing);
}

template void Chain::run(Planes<float>&, const Planes<float>*, int);
template void Chain::run(Planes<double>&, const Planes<double>*, int);

}  // namespace quillhost
