// SPDX-License-Identifier: ISC
#include "loudness_report.h"

#include <algorithm>
#include <limits>

#include "error.h"

namespace quillhost {
namespace {

constexpr int kBlock = 4096;
constexpr const char* kMeasurement = "loudnessStrict";
constexpr std::int64_t kStarts = 1, kIsOver = 2;

}  // namespace

LoudnessGauge::LoudnessGauge(const Session& session)
    : effect_(session.create("Level Meter")), runner_(effect_.algorithm())
{
    std::int64_t value = 0;
    if (!effect_.component().getInteger(kMeasurement, value))
        throw WorkError("this module's Level Meter does not measure programmes");
}

LoudnessReport LoudnessGauge::measure(const std::string& path, std::atomic<std::int64_t>& progress)
{
    SoundReader reader(path);
    const bool isWide = reader.sampleFormat() == SampleFormat::Float64 ||
                        reader.sampleFormat() == SampleFormat::Pcm32;
    try {
        start(reader.layout(), reader.sampleRate(),
              isWide ? VNK::Precision::Double : VNK::Precision::Float);
    } catch (const WorkError& e) {
        throw WorkError(shownPath(path) + ": " + e.what());
    }
    isWide ? play<double>(reader, progress) : play<float>(reader, progress);
    auto report = finish();
    report.file = path;
    report.remarks = reader.remarks();
    return report;
}

template <typename T>
void LoudnessGauge::play(SoundReader& reader, std::atomic<std::int64_t>& progress)
{
    Planes<T> planes(reader.channels(), kBlock);
    std::int64_t shown = 0;
    for (int n = 0; (n = reader.read(planes, kBlock)) > 0;) {
        feed(planes, 0, n);
        const auto all = reader.estimatedFrames();
        const auto now = all > 0 ? std::min<std::int64_t>(kWhole, kWhole * frames_ / all) : 0;
        if (now != shown) progress += now - std::exchange(shown, now);
        if (n < kBlock) break;
    }
}

void LoudnessGauge::start(const VNK::SpeakerArrangement& layout, int sampleRate,
                          VNK::Precision precision)
{
    effect_.component().setInteger(kMeasurement, kStarts);
    if (!runner_.prepare({layout, layout, precision, double(sampleRate), kBlock}))
        throw WorkError("the meter does not run at this rate and layout");
    frames_ = 0;
}

template <typename T> void LoudnessGauge::feed(Planes<T>& planes, int from, int to)
{
    const int channels = runner_.setup().input.channels;
    for (int n = 0; from < to; from += n) {
        n = std::min(kBlock, to - from);
        runner_.process<T>({planes, channels, from}, {planes, channels, from}, n);
        frames_ += n;
    }
}
template void LoudnessGauge::feed(Planes<float>&, int, int);
template void LoudnessGauge::feed(Planes<double>&, int, int);

/// The meter takes the change with a block, which it does not measure any more.
template <typename T> void LoudnessGauge::end()
{
    effect_.component().setInteger(kMeasurement, kIsOver);
    const int channels = runner_.setup().input.channels;
    Planes<T> planes(channels, 1);
    runner_.process<T>({planes, channels}, {planes, channels}, 1);
}

LoudnessReport LoudnessGauge::finish()
{
    const auto& setup = runner_.setup();
    setup.precision == VNK::Precision::Double ? end<double>() : end<float>();
    LoudnessReport r;
    r.integrated = meter("integrated");
    r.momentaryMax = meter("momentaryMax");
    r.shortTermMax = meter("shortTermMax");
    r.range = meter("range");
    r.rangeLow = meter("rangeLow");
    r.rangeHigh = meter("rangeHigh");
    r.truePeak = meter("truePeak");
    for (int c = 0; c < setup.input.channels; ++c) {
        r.samplePeak.push_back(meter("samplePeak" + std::to_string(c)));
        r.rms.push_back(meter("programmeRms" + std::to_string(c)));
    }
    r.frames = frames_;
    r.sampleRate = static_cast<int>(setup.sampleRate);
    r.channels = setup.input.channels;
    return r;
}

LoudnessGauge::Reading LoudnessGauge::now() const
{
    constexpr float kNothing = -70;  // what the display's readings show where there is nothing
    const auto shown = [&](const char* key) {
        const float value = meter(key);
        return value > kNothing ? value : std::numeric_limits<float>::quiet_NaN();
    };
    return {shown("loundessMomentary"), shown("loundessShortTerm"), meter("integrated")};
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
