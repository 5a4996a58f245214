// SPDX-License-Identifier: ISC
#include "normalise.h"

#include <algorithm>
#include <cmath>

#include "text.h"

namespace quillhost {
namespace {

constexpr double kClose = 0.05;          // LU: nearer than this nothing is done anew
constexpr double kTolerance = 0.1;       // LU: what counts as met
constexpr double kPeakTolerance = 0.05;  // dB of true peak, which two meters may differ by
constexpr double kMostGain = 24;         // dB of one mix tool
constexpr int kMostPasses = 6, kMostNarrowings = 6;

struct Named {
    const char* name;
    LoudnessTarget target;
};
const Named kTargets[] = {
    {"ebu-r128", {-23, -1, {}}},
    {"atsc-a85", {-24, -2, {}}},
    {"streaming", {-14, -1, {}}},
    {"podcast", {-16, -1, {}}},
};

std::string shown(double value)
{
    return fixedText(value, 1);
}

EffectSpec gainOf(double db)
{
    return {"mixtool", {{"gain", shortText(db)}}, {}};
}

}  // namespace

LoudnessTarget targetNamed(const std::string& name)
{
    std::string names;
    for (const auto& named : kTargets) {
        if (sameName(named.name, name)) return named.target;
        names += (names.empty() ? "" : ", ") + std::string(named.name);
    }
    throw UsageError("there is no target " + inQuotes(name) + " (" + names + ")");
}

Normaliser::Normaliser(const Session& session)
    : session_(session), input_(session), output_(session)
{}

namespace {

/// The plan with what brings its output to the target behind it.
template <class Attempt> RenderPlan extended(const RenderPlan& plan, const Attempt& attempt)
{
    RenderPlan with = plan;
    auto& effects = with.effects;
    if (attempt.ratio > 1)
        effects.push_back({"compressor",
                           {{"threshold", shortText(attempt.threshold)},
                            {"ratio", shortText(attempt.ratio)},
                            {"knee", "12"},
                            {"attack", "400"},
                            {"release", "2000"},
                            {"adaptive", "off"},
                            {"lookAhead", "off"}},
                           {}});
    for (double left = attempt.gain; left != 0;) {
        const double part = std::clamp(left, -kMostGain, kMostGain);
        effects.push_back(gainOf(part));
        left = std::abs(left) > kMostGain ? left - part : 0;
    }
    if (attempt.limits)
        effects.push_back(
            {"limiter", {{"ceiling", shortText(attempt.ceiling)}, {"highqual", "on"}}, {}});
    return with;
}

/// Whether what comes out is the file itself.
bool isPlain(const RenderPlan& plan)
{
    return plan.effects.empty() && plan.rate == 0 && plan.layout.empty() && plan.tail.empty();
}

}  // namespace

LoudnessReport Normaliser::measure(const RenderPlan& plan, const Attempt& attempt,
                                   const std::string& in, const Watched& watched)
{
    MeasuringSink sink(output_);
    RenderPlan with = extended(plan, attempt);
    with.meters.clear();
    std::vector<std::string> ignored;  // the last pass says it
    const Session::NotesApart apart(ignored);
    const bool isAsItIs = isPlain(with);
    renderFile(session_, with, in, sink, watched, before_ || isAsItIs ? nullptr : &input_);
    const auto report = output_.finish();
    if (!before_) before_ = isAsItIs ? report : input_.finish();
    return report;
}

/// Finds the compression after which the range is no wider than `most`.
void Normaliser::narrow(const RenderPlan& plan, double most, Attempt& attempt,
                        LoudnessReport& measured, const std::string& in, const Watched& watched)
{
    // From the quiet end on, so that all of the range is compressed.
    attempt.threshold = std::clamp(double(measured.rangeLow), -48.0, 0.0);
    attempt.ratio = 1;
    const auto isTooWide = [&] { return double(measured.range) > most; };
    for (int i = 0; i < kMostNarrowings && isTooWide(); ++i) {
        // Speeds and knee let more through than the ratio says.
        const double over = double(measured.range) / most;
        attempt.ratio = std::min(20.0, attempt.ratio * 1.2 * std::pow(over, i == 0 ? 1 : 2));
        measured = measure(plan, attempt, in, watched);
    }
}

Normalised Normaliser::run(const RenderPlan& plan, const LoudnessTarget& target,
                           const std::string& in, const std::string& out, const Watched& watched)
{
    before_.reset();
    Attempt attempt;
    auto measured = measure(plan, attempt, in, watched);
    if (target.rangeMax && double(measured.range) > *target.rangeMax)
        narrow(plan, *target.rangeMax, attempt, measured, in, watched);
    if (std::isfinite(measured.integrated))
        attempt.gain = target.loudness - double(measured.integrated);
    return finish(plan, target, attempt, true, measured, in, out, watched);
}

Normalised Normaliser::runWith(double gain, const RenderPlan& plan, const LoudnessTarget& target,
                               const std::string& in, const std::string& out,
                               const Watched& watched)
{
    before_.reset();
    Attempt attempt;
    const auto measured = measure(plan, attempt, in, watched);
    attempt.gain = gain;
    return finish(plan, target, attempt, false, measured, in, out, watched);
}

Normalised Normaliser::finish(const RenderPlan& plan, const LoudnessTarget& target, Attempt attempt,
                              bool mayCorrect, const LoudnessReport& first, const std::string& in,
                              const std::string& out, const Watched& watched)
{
    const auto over = [&](double truePeak) { return truePeak - target.truePeak; };
    attempt.ceiling = target.truePeak;
    Normalised result;
    result.before = *before_;
    double loudest = -1e9;  // that the limiter let through
    for (int pass = 1;; ++pass) {
        attempt.limits |= over(double(first.truePeak) + attempt.gain) > kPeakTolerance;
        FileSink file(out, plan);
        MeasuringSink sink(output_, &file);
        const auto with = extended(plan, attempt);
        std::vector<std::string> notes;
        {
            const Session::NotesApart apart(notes);
            result.rendered = renderFile(session_, with, in, sink, watched);
        }
        result.after = output_.finish();
        result.gain = attempt.gain;
        result.limits = attempt.limits;
        const double reached = double(result.after.integrated);
        const double miss = target.loudness - reached;
        const double excess = over(double(result.after.truePeak));
        const bool isPeaking = attempt.limits && excess > kPeakTolerance;
        // Without a limiter too: what lay below the absolute gate may lie above it now.
        const bool isOff = mayCorrect && std::abs(miss) > kClose &&
                           (miss < 0 || !attempt.limits || reached > loudest + 0.02);
        if (pass < kMostPasses && (isPeaking || isOff)) {
            if (attempt.limits) loudest = std::max(loudest, reached);
            // A limiter takes back part of what is added.
            if (isOff) attempt.gain += miss * (miss > 0 && attempt.limits ? 1.5 : 1);
            if (isPeaking) attempt.ceiling = std::max(-12.0, attempt.ceiling - excess);
            continue;
        }
        for (const auto& note : notes) session_.note(note);
        file.finish(session_);
        result.clipped = file.clipped();
        if (!std::isfinite(result.after.integrated))
            result.missed = "it is too short or too quiet to have a loudness";
        else if (mayCorrect && !(std::abs(miss) <= kTolerance))
            result.missed =
                shown(reached) + " LUFS is what " +
                (attempt.limits ? "the ceiling of " + shown(target.truePeak) + " dBTP allows"
                                : "can be had");
        else if (excess > kPeakTolerance)
            result.missed = "its true peak is " + shown(result.after.truePeak) + " dBTP";
        else if (target.rangeMax && double(result.after.range) > *target.rangeMax + kTolerance)
            result.missed = "its range is " + shown(result.after.range) + " LU";
        return result;
    }
}

Normalised Normaliser::measured(const RenderPlan& plan, const std::string& in,
                                const std::string& out, const Watched& watched)
{
    FileSink file(out, plan);
    MeasuringSink sink(output_, &file);
    Normalised result;
    result.rendered = renderFile(session_, plan, in, sink, watched, &input_);
    result.before = input_.finish();
    result.after = output_.finish();
    file.finish(session_);
    result.clipped = file.clipped();
    return result;
}

double Normaliser::albumGain(const RenderPlan& plan, const LoudnessTarget& target,
                             const std::vector<std::string>& files, std::size_t& at,
                             const Watched& watched)
{
    /// All files are one programme.
    class Album final : public SoundSink {
    public:
        explicit Album(LoudnessGauge& gauge) : gauge_(gauge) {}
        void begin(const SoundShape& shape, const VNK::SpeakerArrangement& layout,
                   VNK::Precision precision, const SoundReader& source) override
        {
            if (!layout_) {
                gauge_.start(layout, shape.sampleRate, precision);
                layout_ = layout;
                rate_ = shape.sampleRate;
            } else if (!(*layout_ == layout) || rate_ != shape.sampleRate) {
                throw NoAlbum(shownPath(source.path()) +
                              ": its rate or layout is not that of the files before it, so they "
                              "are no album (--rate makes rates alike)");
            }
        }
        void write(Planes<float>& planes, int from, int to) override
        {
            gauge_.feed(planes, from, to);
        }
        void write(Planes<double>& planes, int from, int to) override
        {
            gauge_.feed(planes, from, to);
        }

    private:
        LoudnessGauge& gauge_;
        std::optional<VNK::SpeakerArrangement> layout_;
        int rate_ = 0;
    };
    Album album(output_);
    std::vector<std::string> ignored;
    const Session::NotesApart apart(ignored);
    for (at = 0; at < files.size(); ++at) renderFile(session_, plan, files[at], album, watched);
    const double loudness = output_.finish().integrated;
    if (!std::isfinite(loudness))
        throw NoAlbum("the files together are too short or too quiet to have a loudness");
    return target.loudness - loudness;
}

}  // namespace quillhost
