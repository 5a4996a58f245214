// SPDX-License-Identifier: ISC
#include "rendering.h"

#include <cmath>
#include <mutex>
#include <optional>

#include "meter_log.h"
#include "text.h"

namespace quillhost {
namespace {

constexpr int kChunk = 16384;               // frames read at a time, if blocks are not longer
constexpr double kLongestAutoTail = 60;     // seconds
constexpr double kLongestTail = 24 * 3600;  // seconds

std::mutex gMaking;  // of effects and meters, which is the work of a host's main thread

/// The mask that says where the channels belong: that of the file while they are what they were.
std::uint32_t outputMask(const Chain& chain, const SoundReader& in)
{
    if (chain.output() == in.layout()) return in.mask();
    return waveMask(chain.output());
}

/// Seconds of the tail asked for as frames; -1 for "auto".
std::int64_t askedTail(const RenderPlan& plan, int sampleRate)
{
    if (plan.tail.empty()) return 0;
    if (plan.tail == "auto") return -1;
    const double seconds = number("--tail", plan.tail, 0.0, kLongestTail);
    return std::llround(seconds * sampleRate);
}

template <typename T> class Rendering {
public:
    Rendering(const RenderPlan& plan, SoundSource& in, SoundSource* sideChain, Chain& chain)
        : in_(in),
          sideIn_(sideChain),
          chain_(chain),
          chunk_(in.file().isStream() ? plan.block : plan.block * std::max(1, kChunk / plan.block)),
          planes_(std::max(chain.planeChannels(), in.file().channels()), chunk_),
          side_(sideChain ? sideChain->file().channels() : 0, chunk_),
          skipped_(plan.keepLatency ? 0 : chain.latency()),
          trim_(skipped_)
    {}

    std::int64_t tail(std::int64_t asked) const
    {
        if (asked >= 0) return asked;
        const auto limit = static_cast<std::int64_t>(kLongestAutoTail * in_.sampleRate());
        const auto own = chain_.tail(limit);
        return own == limit ? limit : std::max<std::int64_t>(0, own - skipped_);
    }

    void run(SoundSink& sink, std::int64_t askedTail, LoudnessGauge* input, const Watched& watched,
             std::int64_t total)
    {
        std::int64_t end = -1;  // of the processing, once it is known
        for (bool isOver = false; !isOver;) {
            int n = 0;
            if (end < 0) {
                n = in_.read(planes_, chunk_);
                if (input) input->feed(planes_, 0, n);
                if (n < chunk_) end = done_ + n + tail(askedTail) + skipped_;
            }
            const int run =
                end < 0 ? n : static_cast<int>(std::min<std::int64_t>(chunk_, end - done_));
            planes_.clear(n, run);
            if (sideIn_) {
                const int got = sideEnded_ ? 0 : sideIn_->read(side_, run);
                sideEnded_ = got < run;
                side_.clear(got, run);
            }
            chain_.run(planes_, sideIn_ ? &side_ : nullptr, run);
            const int from = trim_.skip(run);
            if (from < run) sink.write(planes_, from, run);
            written_ += std::max(0, run - from);
            done_ += run;
            isOver = end >= 0 && done_ >= end;
            watched(done_, total, in_.sampleRate());
        }
    }
    std::int64_t written() const noexcept { return written_; }

private:
    SoundSource& in_;
    SoundSource* sideIn_;
    Chain& chain_;
    int chunk_;
    Planes<T> planes_, side_;
    std::int64_t skipped_;  // what the output begins with and does not write
    VNK::LatencyTrim trim_;
    std::int64_t done_ = 0, written_ = 0;
    bool sideEnded_ = false;
};

template <typename T>
Rendered renderAs(const Session& session, const RenderPlan& plan, SoundSource& in,
                  SoundSource* sideChain, const std::vector<Effect>& effects, Chain& chain,
                  SoundSink& sink, const Watched& watched, LoudnessGauge* input)
{
    if (sideChain && !chain.hasSideChain())
        session.note("no effect of the chain has a side-chain: --sidechain has no effect");
    bool isAutomated = false;
    if (!plan.automation.empty()) {
        auto automation = readAutomation(plan.automation, effects);
        for (const auto& remark : automation.remarks) session.note(remark);
        isAutomated = !automation.events.empty();
        chain.setAutomation(std::move(automation.events));
    }
    Rendering<T> rendering(plan, in, sideChain, chain);
    const auto asked = askedTail(plan, in.sampleRate());
    const auto& file = in.file();
    SoundShape shape{chain.output().channels, in.sampleRate(), outputMask(chain, file), -1};
    // Automation may change what the tail is when the input ends.
    if (in.frames() >= 0 && !(asked < 0 && isAutomated))
        shape.frames = in.frames() + rendering.tail(asked);
    constexpr auto kPrecision =
        sizeof(T) == sizeof(float) ? VNK::Precision::Float : VNK::Precision::Double;
    sink.begin(shape, chain.output(), kPrecision, file);
    if (input) input->start(file.layout(), in.sampleRate(), kPrecision);

    std::optional<MeterLog> log;
    if (!plan.meters.empty()) {
        log.emplace(plan.meters, effects);
        chain.setWatcher([&](std::size_t effect, std::int64_t frame, int frames) {
            log->write(chain, effect, frame, frames);
        });
    }
    Rendered result{0, chain.latency(), in.sampleRate(), shape.channels};
    rendering.run(sink, asked, input, watched,
                  shape.frames < 0 ? in.estimatedFrames() : shape.frames);
    result.frames = rendering.written();
    chain.waitUntilReady();
    if (log) log->finish();
    session.note(shownPath(file.path()), file.remarks());
    if (sideChain) session.note(shownPath(sideChain->file().path()), sideChain->file().remarks());
    if (const auto left = chain.eventsLeft(); left > 0)
        session.note(plan.automation + ": " + std::to_string(left) +
                     (left == 1 ? " entry lies" : " entries lie") +
                     " behind the end of the sound and had no effect");
    return result;
}

}  // namespace

void checkPlan(const RenderPlan& plan)
{
    if (!plan.layout.empty()) layoutNamed(plan.layout);
    askedTail(plan, kLowestRate);
}

void FileSink::begin(const SoundShape& shape, const VNK::SpeakerArrangement&, VNK::Precision,
                     const SoundReader& source)
{
    const auto format = chooseFormat(path_, shape, plan_.format, source.sampleFormat());
    writer_ = std::make_unique<SoundWriter>(path_, shape, format, static_cast<Dither>(plan_.dither),
                                            &source);
}

void FileSink::finish(const Session& session)
{
    writer_->finish();
    noteClipping(session, path_, *writer_);
}

void MeasuringSink::begin(const SoundShape& shape, const VNK::SpeakerArrangement& layout,
                          VNK::Precision precision, const SoundReader& source)
{
    gauge_.start(layout, shape.sampleRate, precision);
    if (next_) next_->begin(shape, layout, precision, source);
}

template <typename T> void MeasuringSink::pass(Planes<T>& planes, int from, int to)
{
    gauge_.feed(planes, from, to);
    if (next_) next_->write(planes, from, to);
}

Rendered renderFile(const Session& session, const RenderPlan& plan, const std::string& path,
                    SoundSink& sink, const Watched& watched, LoudnessGauge* input)
{
    std::unique_lock making(gMaking);
    std::vector<Effect> effects;
    for (const auto& spec : plan.effects) effects.push_back(createEffect(session, spec));
    session.noteThoseThatPassThrough(effects);
    making.unlock();

    ChainSetup setup;
    if (!plan.layout.empty()) setup.output = layoutNamed(plan.layout);
    SoundSource in(path, plan.rate);
    std::optional<SoundSource> sideChain;
    if (!plan.sideChain.empty()) {
        sideChain.emplace(plan.sideChain, plan.rate);
        if (sideChain->sampleRate() != in.sampleRate())
            throw WorkError(plan.sideChain + ": its sampling rate of " +
                            std::to_string(sideChain->sampleRate()) + " Hz is not that of " +
                            shownPath(path) + ", " + std::to_string(in.sampleRate()) + " Hz");
        setup.sideChainChannels = sideChain->file().channels();
    }
    setup.sampleRate = in.sampleRate();
    setup.block = plan.block;
    setup.precision = plan.precision == 0 ? VNK::Precision::Float : VNK::Precision::Double;
    setup.input = in.file().layout();
    setup.tempo = plan.tempo;
    setup.playing = !plan.stopped;
    setup.position = plan.position;
    making.lock();
    Chain chain(effects, setup);
    making.unlock();
    chain.requireFiles(session, plan.allowMissing);
    auto* const side = sideChain ? &*sideChain : nullptr;
    return (setup.precision == VNK::Precision::Float
                ? renderAs<float>
                : renderAs<double>)(session, plan, in, side, effects, chain, sink, watched, input);
}

}  // namespace quillhost
