// SPDX-License-Identifier: ISC
#include "sounds.h"

#include "arrays.h"
#include "host.h"
#include "loudness_report.h"
#include "output_format.h"
#include "sound_source.h"
#include "text.h"

namespace quillworks::python {

using quillhost::LoudnessReport;
using quillhost::Planes;
using quillhost::UsageError;

namespace {

constexpr int kChunk = 16384;  // frames

template <typename T> py::tuple readAs(quillhost::SoundSource& source)
{
    const int channels = source.file().channels();
    std::vector<std::vector<T>> sound(static_cast<std::size_t>(channels));
    {
        Unlocked unlocked;
        Planes<T> planes(channels, kChunk);
        for (int n = kChunk; n == kChunk; unlocked.listen()) {
            n = source.read(planes, kChunk);
            for (int c = 0; c < channels; ++c) {
                auto& channel = sound[static_cast<std::size_t>(c)];
                channel.insert(channel.end(), planes[c], planes[c] + n);
            }
        }
    }
    const auto frames = static_cast<py::ssize_t>(sound[0].size());
    auto array = newArray<T>(channels, frames, false);
    for (int c = 0; c < channels; ++c)
        std::copy_n(sound[static_cast<std::size_t>(c)].data(), frames,
                    array.mutable_data() + c * frames);
    return py::make_tuple(array, source.sampleRate());
}

VNK::SpeakerArrangement layoutOf(const SoundArray& sound, const std::string& name)
{
    const auto layout = name.empty() ? VNK::SpeakerArrangement::withChannels(sound.channels())
                                     : quillhost::layoutNamed(name);
    if (layout.channels != sound.channels())
        throw UsageError("the layout " + name + " has " + std::to_string(layout.channels) +
                         " channels and the sound " + std::to_string(sound.channels()));
    return layout;
}

void requireRate(int rate)
{
    if (rate < quillhost::kLowestRate || rate > quillhost::kHighestRate)
        throw UsageError("a sampling rate of " + std::to_string(rate) +
                         " Hz is not one (8000 to 384000)");
}

/// Hands an array over in planes, piece by piece.
template <typename T, class Work> void inPieces(const SoundArray& sound, Work work)
{
    Unlocked unlocked;
    Planes<T> planes(sound.channels(), kChunk);
    for (py::ssize_t at = 0; at < sound.frames(); at += kChunk) {
        const int n = static_cast<int>(std::min<py::ssize_t>(kChunk, sound.frames() - at));
        sound.read(planes, 0, at, n);
        work(planes, n);
        unlocked.listen();
    }
}

py::tuple figures(const std::vector<float>& values)
{
    py::tuple all(values.size());
    for (std::size_t i = 0; i < values.size(); ++i) all[i] = quillhost::asShown(values[i]);
    return all;
}

py::dict figures(const LoudnessReport& r)
{
    using quillhost::asShown;
    py::dict all;
    all["integrated"] = asShown(r.integrated);
    all["momentary_max"] = asShown(r.momentaryMax);
    all["short_term_max"] = asShown(r.shortTermMax);
    all["range"] = asShown(r.range);
    all["range_low"] = asShown(r.rangeLow);
    all["range_high"] = asShown(r.rangeHigh);
    all["true_peak"] = asShown(r.truePeak);
    all["sample_peak"] = figures(r.samplePeak);
    all["rms"] = figures(r.rms);
    all["frames"] = r.frames;
    all["sample_rate"] = r.sampleRate;
    all["channels"] = r.channels;
    return all;
}

}  // namespace

py::tuple readSound(const std::string& path, int rate, bool asDouble)
{
    if (rate != 0) requireRate(rate);
    return warning([&] {
        quillhost::SoundSource source(path, rate);
        const auto result = asDouble ? readAs<double>(source) : readAs<float>(source);
        session().note(path, source.file().remarks());
        return result;
    });
}

void writeSound(const std::string& path, const py::array& array, int rate, int format, int dither,
                const std::string& layout)
{
    const SoundArray sound(array, "the sound");
    requireRate(rate);
    const quillhost::SoundShape shape{sound.channels(), rate,
                                      quillhost::waveMask(layoutOf(sound, layout)), sound.frames()};
    warning([&] {
        quillhost::SoundWriter writer(
            path, shape,
            quillhost::chooseFormat(path, shape, format, quillhost::SampleFormat::Float32),
            static_cast<quillhost::Dither>(dither));
        const auto write = [&](const auto& planes, int n) { writer.write(planes, 0, n); };
        sound.isDouble() ? inPieces<double>(sound, write) : inPieces<float>(sound, write);
        {
            const Unlocked unlocked;  // the disc may take its time
            writer.finish();
        }
        quillhost::noteClipping(session(), path, writer);
    });
}

py::dict measureFile(const std::string& path)
{
    return warning([&] {
        quillhost::LoudnessGauge gauge(session());
        std::atomic<std::int64_t> progress = 0;
        LoudnessReport report;
        {
            const Unlocked unlocked;
            report = gauge.measure(path, progress);
        }
        session().note(path, report.remarks);
        return figures(report);
    });
}

py::dict measureArray(const py::array& array, int rate, const std::string& layout)
{
    const SoundArray sound(array, "the sound");
    requireRate(rate);
    quillhost::LoudnessGauge gauge(session());
    gauge.start(layoutOf(sound, layout), rate,
                sound.isDouble() ? VNK::Precision::Double : VNK::Precision::Float);
    const auto feed = [&](auto& planes, int n) { gauge.feed(planes, 0, n); };
    sound.isDouble() ? inPieces<double>(sound, feed) : inPieces<float>(sound, feed);
    return figures(gauge.finish());
}

}  // namespace quillworks::python
