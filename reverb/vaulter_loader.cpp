// SPDX-License-Identifier: ISC
#include "reverb/vaulter_loader.h"

#include <algorithm>
#include <cmath>
#include <deque>

#include "framework/speakers.h"
#include "reverb/decay_analysis.h"

namespace quillworks {
namespace {

/// Where the decay of a file is measured that is kept in songs, in seconds.
constexpr double kFitStart = 0.15;
constexpr int kColumns = 512;  // of the envelope
constexpr std::size_t kMostBytes = std::size_t{1} << 30;
constexpr double kCutFade = 0.01;  // s
constexpr std::size_t kOneKilohertz = 5;

/// Decay time at 1 kHz behind `start` seconds, mean of the channels; 0 where there is none.
double middleDecay(const ResponseChannels& response, double start, double sampleRate)
{
    double sum = 0;
    int count = 0;
    for (const auto& x : response) {
        const auto decay = BandDecay::ofOctave(x, octaveCentre(kOneKilohertz), sampleRate);
        const auto line = decay.fit(start, 0, 25);
        if (!line || !(line->t60 > 0)) continue;
        sum += line->t60;
        ++count;
    }
    return count > 0 ? sum / count : 0;
}

/// The engine knows no LFE: its channels are the others, in their order.
void leaveOutLfe(ResponseMatrix& matrix, const VNK::SpeakerArrangement& layout)
{
    const SpeakerField field(layout);
    std::vector<int> place;
    int next = 0;
    for (int c = 0; c < field.channels(); ++c) place.push_back(field[c].isLfe ? -1 : next++);
    for (auto& path : matrix.paths) {
        path.input = place[static_cast<std::size_t>(path.input)];
        path.output = place[static_cast<std::size_t>(path.output)];
    }
}

int engineChannels(const VNK::SpeakerArrangement& layout)
{
    const SpeakerField field(layout);
    int count = 0;
    for (int c = 0; c < field.channels(); ++c) count += !field[c].isLfe;
    return count > 0 ? count : field.channels();
}

template <typename T> std::vector<float> peaksOf(const std::vector<T>& x)
{
    std::vector<float> peaks(kColumns);
    for (std::size_t i = 0; i < x.size(); ++i) {
        float& peak = peaks[i * kColumns / x.size()];
        peak = std::max(peak, static_cast<float>(std::abs(x[i])));
    }
    return peaks;
}

/// The fingerprint of a file, of which the last few are remembered: it takes longer than reading
/// it, and songs open one file many times.
class KnownFits {
public:
    template <class Make> static ResponseFingerprint of(const ResponseIdentity& file, Make&& make)
    {
        const auto isThis = [&](const auto& known) {
            return known.first.hash == file.hash && known.first.frames == file.frames &&
                   known.first.channels == file.channels &&
                   known.first.sampleRate == file.sampleRate;
        };
        static KnownFits& all = *new KnownFits;
        {
            const std::lock_guard lock(all.mutex_);
            const auto at = std::find_if(all.fits_.begin(), all.fits_.end(), isThis);
            if (at != all.fits_.end()) return at->second;
        }
        auto fit = make();
        const std::lock_guard lock(all.mutex_);
        if (all.fits_.size() == kMost) all.fits_.pop_front();
        all.fits_.emplace_back(file, fit);
        return fit;
    }

private:
    static constexpr std::size_t kMost = 32;

    std::mutex mutex_;
    std::deque<std::pair<ResponseIdentity, ResponseFingerprint>> fits_;
};

ResponseChannels inDouble(const VNK::Sound<float>& sound)
{
    ResponseChannels channels;
    for (const auto& x : sound.channels) channels.emplace_back(x.begin(), x.end());
    return channels;
}

}  // namespace

VaulterLoader::VaulterLoader() : values_{0.0f, 100.0f, 100.0f, 0.0f, 0.0f, 0.0f, 200.0f, 1.0f}
{
    job_ = std::make_unique<WorkerJob>([this](const auto& progress) { run(progress); });
}

VaulterLoader::~VaulterLoader() = default;

void VaulterLoader::set(Value which, float value) noexcept
{
    if (values_[which].exchange(value) == value) return;
    // Behind the measured part the tank's filters follow the decay by themselves.
    const bool isWhole = this->value(Mode) == 0 || this->value(Reverse) != 0;
    if (which == Decay && !isWhole) return;
    job_->request();
}

/// A song may be saved before its file has been read: until then what it said itself holds.
VaulterLoader::Report VaulterLoader::expected(const Source& source)
{
    Report report;
    report.identity = source.known;
    report.fit = source.fit;
    report.embedded = source.embedded;
    return report;
}

void VaulterLoader::expect(const Source& source)
{
    const std::lock_guard lock(mutex_);
    if (!report_.file) report_ = expected(source);
}

void VaulterLoader::setSource(Source source)
{
    {
        const std::lock_guard lock(mutex_);
        report_ = expected(source);
        source_ = std::move(source);
        ++sourceSerial_;
    }
    job_->requestNow();
}

template <typename T>
std::shared_ptr<VaulterExchange<T>> VaulterLoader::connect(const ProcessSpec& spec)
{
    {
        const std::lock_guard lock(mutex_);
        auto* const present = std::get_if<Exchange<T>>(&target_);
        if (present && (*present)->sampleRate == spec.sampleRate &&
            (*present)->layout == spec.layout)
            return *present;
    }
    auto fresh = std::make_shared<VaulterExchange<T>>();
    fresh->sampleRate = spec.sampleRate;
    fresh->layout = spec.layout;
    {
        const std::lock_guard lock(mutex_);
        target_ = fresh;
    }
    job_->requestNow();
    return fresh;
}

template std::shared_ptr<VaulterExchange<float>> VaulterLoader::connect(const ProcessSpec&);
template std::shared_ptr<VaulterExchange<double>> VaulterLoader::connect(const ProcessSpec&);

VaulterLoader::Report VaulterLoader::report() const
{
    const std::lock_guard lock(mutex_);
    return report_;
}

void VaulterLoader::setListener(std::function<void()> listener)
{
    const std::lock_guard lock(listenerMutex_);
    listener_ = std::move(listener);
}

double VaulterLoader::ringSeconds(const TailControls& controls) const noexcept
{
    const double convolved = seconds_.load();
    const auto mode = mode_.load();
    if (mode == TailMode::Whole) return convolved;
    std::array<double, kOctaves> measured{};
    for (std::size_t k = 0; k < kOctaves; ++k) measured[k] = std::max(0.05, t60_[k].load());
    const auto times = controls.times(measured, mode);
    return std::max(convolved, tailStart_.load() + *std::max_element(times.begin(), times.end()));
}

void VaulterLoader::run(const WorkerJob::Progress& progress)
{
    const IsCancelled isCancelled = [&] {
        return progress.isCancelled() || progress.isOvertaken();
    };
    Source source;
    Target target;
    std::uint32_t serial = 0;
    bool isRead = false;
    {
        const std::lock_guard lock(mutex_);
        serial = sourceSerial_;
        isRead = readSerial_ == serial;
        if (!isRead) source = source_;
        target = target_;
    }
    status_ = Status::Loading;
    progress_ = 0;
    try {
        if (!isRead) read(source, isCancelled);
        readSerial_ = serial;
        progress_ = 30;
        const auto make = [&](auto& exchange) {
            using Sample = std::conditional_t<
                std::is_same_v<std::decay_t<decltype(exchange)>, Exchange<float>>, float, double>;
            const auto made =
                plan(exchange->sampleRate, exchange->layout, sizeof(Sample), isCancelled);
            progress_ = 70;
            give(*exchange, made, isCancelled);
            tell(made);
        };
        if (auto* const exchange = std::get_if<Exchange<float>>(&target)) make(*exchange);
        if (auto* const exchange = std::get_if<Exchange<double>>(&target)) make(*exchange);
    } catch (const Cancelled&) {
        return;  // what has overtaken it comes next
    } catch (const std::bad_alloc&) {
        found_.problem = "there is not enough memory for the response";
        outcome_ = Status::Unreadable;
    }
    {
        const std::lock_guard lock(mutex_);
        report_ = found_;
    }
    status_ = outcome_;
    progress_ = 100;
    const std::lock_guard lock(listenerMutex_);
    if (listener_) listener_();
}

/// The sound in use becomes the source's, or stays.
void VaulterLoader::read(const Source& source, const IsCancelled& isCancelled)
{
    if (source.file.empty()) {
        sound_ = nullptr;
        found_ = {};
        outcome_ = Status::None;
        return;
    }
    using Outcome = LoadedResponse::Outcome;
    const auto places = ResponsePlaces::usual(source.baseFolder);
    auto loaded = loadResponse(source.file, source.known, places, isCancelled);
    if (loaded.outcome != Outcome::Loaded && !source.embedded.empty()) {
        auto carried = decodedResponse(source.embedded, source.known, isCancelled);
        if (carried.outcome == Outcome::Loaded) loaded = std::move(carried);
    }
    Report found;
    found.problem = loaded.reason;
    if (loaded.outcome == Outcome::Loaded) {
        found.identity = loaded.identity;
        found.fit =
            fingerprintOf(inDouble(loaded.sound), kFitStart, loaded.sound.sampleRate, isCancelled);
        if (loaded.sound.isCut()) found.problem = "only the first minute of it is played";
        found.file = std::make_shared<const VNK::Sound<float>>(std::move(loaded.sound));
        sound_ = found.file;
        outcome_ = Status::Playing;
    } else {
        found.identity = source.known;
        found.fit = source.fit;
        outcome_ = loaded.outcome == Outcome::Missing ? Status::Missing : Status::Unreadable;
        // A song sounds as nearly as can be had as it did; what a person tries out changes nothing.
        if (source.fit)
            sound_ = std::make_shared<const VNK::Sound<float>>(
                substituteResponse(*source.fit, isCancelled));
        else if (source.isRestored)
            sound_ = nullptr;
    }
    if (sound_ && !sound_->channels.empty()) {
        for (const auto& x : sound_->channels) {
            const auto peaks = peaksOf(x);
            found.whole.resize(peaks.size());
            std::transform(peaks.begin(), peaks.end(), found.whole.begin(), found.whole.begin(),
                           [](float a, float b) { return std::max(a, b); });
        }
        found.wholeSeconds = static_cast<double>(sound_->channels[0].size()) / sound_->sampleRate;
    }
    found_ = std::move(found);
}

VaulterPlan VaulterLoader::plan(double sampleRate, const VNK::SpeakerArrangement& layout,
                                int sampleBytes, const IsCancelled& isCancelled)
{
    VaulterPlan plan;
    plan.sampleRate = sampleRate;
    plan.channels = engineChannels(layout);
    found_.envelope.clear();
    if (!sound_ || sound_->channels.empty()) return plan;

    const ResponseShape shape{static_cast<double>(value(Start)) * 0.001,
                              static_cast<double>(value(Stretch)) * 0.01,
                              static_cast<double>(value(Length)) * 0.01};
    auto response = shapedResponse(*sound_, shape, sampleRate, isCancelled);
    limitMemory(response, plan.channels, sampleRate, sampleBytes);
    const bool isReversed = value(Reverse) != 0;
    plan.mode = isReversed ? TailMode::Whole : static_cast<TailMode>(static_cast<int>(value(Mode)));
    const double tailStart = static_cast<double>(value(TailFrom)) * 0.001;
    const double decay = static_cast<double>(value(Decay));
    if (plan.mode == TailMode::Whole && decay < 1)
        if (const double t60 = middleDecay(response, tailStart, sampleRate); t60 > 0)
            shortenDecay(response, tailStart, t60, decay, sampleRate);
    if (isReversed) reverseResponse(response);
    for (const auto& x : response) found_.envelope.push_back(peaksOf(x));
    progress_ = 50;
    const auto routing = static_cast<ResponseRouting>(static_cast<int>(value(Routing)));
    plan.matrix = routedResponse(std::move(response), routing, layout);
    leaveOutLfe(plan.matrix, layout);
    plan.autoGain = autoLevelGain(plan.matrix, sampleRate, isCancelled);
    if (plan.mode != TailMode::Whole)
        plan.tail =
            continueWithTank(plan.matrix, plan.channels, tailStart, sampleRate, isCancelled);
    if (!plan.tail) plan.mode = TailMode::Whole;
    return plan;
}

/// Spectra take twice the room of their samples, for each path's response and each input.
void VaulterLoader::limitMemory(ResponseChannels& response, int channels, double sampleRate,
                                int sampleBytes)
{
    const auto rows = response.size() + static_cast<std::size_t>(channels) + 1;
    const auto most = kMostBytes / (2 * static_cast<std::size_t>(sampleBytes) * rows);
    if (response.empty() || response[0].size() <= most) return;
    found_.problem = "it is too long for this sample rate and layout, its end is left out";
    const auto fade = static_cast<std::size_t>(kCutFade * sampleRate);
    for (auto& x : response) {
        x.resize(most);
        for (std::size_t i = 0; i < fade; ++i)
            x[most - 1 - i] *= static_cast<double>(i + 1) / static_cast<double>(fade);
    }
}

template <typename T>
void VaulterLoader::give(VaulterExchange<T>& exchange, const VaulterPlan& plan,
                         const IsCancelled& isCancelled)
{
    // Controls that are the same whenever it is made: the audio thread sets those in force.
    exchange.sounds.give(std::make_unique<VaulterSound<T>>(plan, TailControls{}, isCancelled));
}

void VaulterLoader::tell(const VaulterPlan& plan)
{
    const auto& responses = plan.matrix.responses;
    found_.seconds =
        responses.empty() ? 0 : static_cast<double>(responses[0].size()) / plan.sampleRate;
    found_.tailStart = plan.tail ? plan.tail->start : 0;
    found_.t60 = plan.tail ? plan.tail->t60 : std::array<double, kOctaves>{};
    seconds_ = found_.seconds;
    tailStart_ = found_.tailStart;
    for (std::size_t k = 0; k < kOctaves; ++k) t60_[k] = found_.t60[k];
    sampleRate_ = plan.sampleRate;
    mode_ = plan.mode;
}

}  // namespace quillworks
