// SPDX-License-Identifier: ISC
// Files through effects in series.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "chain.h"
#include "effect_spec.h"
#include "loudness_report.h"
#include "output_options.h"
#include "sound_source.h"

namespace quillhost {

/// What a rendering is asked to do, whichever file it is of.
struct RenderPlan {
    std::vector<EffectSpec> effects;
    std::string automation, meters, sideChain, layout, tail;
    int block = 512;
    int precision = 0;  // 0: 32 bits, 1: 64
    int format = kAnyFormat;
    int dither = 0;  // a Dither
    int rate = 0;    // Hz, 0: that of the file
    double tempo = 120, position = 0;
    bool stopped = false, keepLatency = false, allowMissing = false;
};

/// UsageError for what is wrong with the plan whatever the file.
void checkPlan(const RenderPlan& plan);

/// Where rendered sound goes.
class SoundSink {
public:
    virtual ~SoundSink() = default;
    /// Before the first frames.
    virtual void begin(const SoundShape& shape, const VNK::SpeakerArrangement& layout,
                       VNK::Precision precision, const SoundReader& source) = 0;
    virtual void write(Planes<float>& planes, int from, int to) = 0;
    virtual void write(Planes<double>& planes, int from, int to) = 0;
};

/// Writes a file in the plan's format.
class FileSink final : public SoundSink {
public:
    FileSink(std::string path, const RenderPlan& plan) : path_(std::move(path)), plan_(plan) {}

    void begin(const SoundShape& shape, const VNK::SpeakerArrangement& layout,
               VNK::Precision precision, const SoundReader& source) override;
    void write(Planes<float>& planes, int from, int to) override
    {
        writer_->write(planes, from, to);
    }
    void write(Planes<double>& planes, int from, int to) override
    {
        writer_->write(planes, from, to);
    }
    /// Gives the file its name; until then nothing is seen of it.
    void finish(const Session& session);
    std::int64_t clipped() const noexcept { return writer_->clipped(); }

private:
    std::string path_;
    const RenderPlan& plan_;
    std::unique_ptr<SoundWriter> writer_;
};

/// Measures what passes, on the way to another sink where there is one.
class MeasuringSink final : public SoundSink {
public:
    explicit MeasuringSink(LoudnessGauge& gauge, SoundSink* next = nullptr)
        : gauge_(gauge), next_(next)
    {}

    void begin(const SoundShape& shape, const VNK::SpeakerArrangement& layout,
               VNK::Precision precision, const SoundReader& source) override;
    void write(Planes<float>& planes, int from, int to) override { pass(planes, from, to); }
    void write(Planes<double>& planes, int from, int to) override { pass(planes, from, to); }

private:
    template <typename T> void pass(Planes<T>& planes, int from, int to);

    LoudnessGauge& gauge_;
    SoundSink* next_;
};

/// What became known of a file on its way.
struct Rendered {
    std::int64_t frames = 0;  // of the output
    std::int64_t latency = 0;
    int sampleRate = 0, channels = 0;
};

/// Called with the frames done and the total, below 0 while it is not known.
using Watched = std::function<void(std::int64_t done, std::int64_t total, int sampleRate)>;

/// One file through new effects into a sink. `input`, if there is one, measures the file as it
/// comes. [any thread, one per sink]
Rendered renderFile(const Session& session, const RenderPlan& plan, const std::string& path,
                    SoundSink& sink, const Watched& watched, LoudnessGauge* input = nullptr);

}  // namespace quillhost
