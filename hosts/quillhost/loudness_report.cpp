// SPDX-License-Identifier: ISC
#include "loudness_report.h"

#include <algorithm>

#include "error.h"
#include "sound_file.h"
#include "vnk/effect_runner.h"

namespace quillhost {
namespace {

constexpr int kBlock = 4096;
constexpr const char* kMeasurement = "loudnessStrict";
constexpr std::int64_t kStarts = 1, kIsOver = 2;

}  // namespace

LoudnessGauge::LoudnessGauge(const Session& session) : effect_(session.create("Level Meter"))
{
    std::int64_t value = 0;
    if (!effect_.component().getInteger(kMeasurement, value))
        throw WorkError("this module's Level Meter does not measure programmes");
}

LoudnessReport LoudnessGauge::measure(const std::string& path, std::atomic<std::int64_t>& progress)
{
    SoundReader reader(path);
    auto& component = effect_.component();
    const bool isWide = reader.sampleFormat() == SampleFormat::Float64 ||
                        reader.sampleFormat() == SampleFormat::Pcm32;
    const auto layout = reader.layout();
    component.setInteger(kMeasurement, kStarts);
    VNK::EffectRunner runner(effect_.algorithm());
    const auto precision = isWide ? VNK::Precision::Double : VNK::Precision::Float;
    if (!runner.prepare({layout, layout, precision, double(reader.sampleRate()), kBlock}))
        throw WorkError(shownPath(path) + ": the meter does not run at this rate and layout");
    isWide ? play<double>(reader, progress) : play<float>(reader, progress);

    LoudnessReport r;
    r.file = path;
    r.remarks = reader.remarks();
    r.integrated = meter("integrated");
    r.momentaryMax = meter("momentaryMax");
    r.shortTermMax = meter("shortTermMax");
    r.range = meter("range");
    r.rangeLow = meter("rangeLow");
    r.rangeHigh = meter("rangeHigh");
    r.truePeak = meter("truePeak");
    for (int c = 0; c < reader.channels(); ++c) {
        r.samplePeak.push_back(meter("samplePeak" + std::to_string(c)));
        r.rms.push_back(meter("programmeRms" + std::to_string(c)));
    }
    r.frames = frames_;
    r.sampleRate = reader.sampleRate();
    r.channels = reader.channels();
    return r;
}

template <typename T>
void LoudnessGauge::play(SoundReader& reader, std::atomic<std::int64_t>& progress)
{
    const int channels = reader.channels();
    Planes<T> planes(channels, kBlock);
    const VNK::EffectRunner runner(effect_.algorithm());
    const auto process = [&](int n) {
        runner.process<T>({planes, channels}, {planes, channels}, n);
    };
    frames_ = 0;
    std::int64_t shown = 0;
    for (int n = 0; (n = reader.read(planes, kBlock)) > 0;) {
        process(n);
        frames_ += n;
        const auto all = reader.estimatedFrames();
        const auto now = all > 0 ? std::min<std::int64_t>(kWhole, kWhole * frames_ / all) : 0;
        if (now != shown) progress += now - std::exchange(shown, now);
        if (n < kBlock) break;
    }
    // The meter takes the change with a block, which it does not measure any more.
    effect_.component().setInteger(kMeasurement, kIsOver);
    planes.clear(0, 1);
    process(1);
}

float LoudnessGauge::meter(const std::string& key) const
{
    const auto& component = effect_.component();
    VNK::MeterInfo info;
    for (int i = 0; i < component.countMeters(); ++i)
        if (component.getMeter(i, info) && key == info.key) return component.readMeter(i);
    throw WorkError("this module's Level Meter has no reading " + key);
}

}  // namespace quillhost
