// SPDX-License-Identifier: ISC
#include "loudness_picture.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>
#include <optional>

#include "picture.h"
#include "progress.h"
#include "rendering.h"
#include "text.h"

namespace quillhost {
namespace {

using Json = nlohmann::ordered_json;

constexpr int kPerSecond = 10;  // readings
constexpr double kTop = 84;     // below title and subtitle

/// Readings at the end of each tenth of a second.
struct Course {
    std::vector<LoudnessGauge::Reading> readings;
    LoudnessReport whole = {};

    double seconds() const { return double(whole.frames) / whole.sampleRate; }
};

/// Measures what passes, reading by reading.
class CourseSink final : public SoundSink {
public:
    explicit CourseSink(const Session& session) : gauge_(session) {}

    void begin(const SoundShape& shape, const VNK::SpeakerArrangement& layout,
               VNK::Precision precision, const SoundReader&) override
    {
        gauge_.start(layout, shape.sampleRate, precision);
        sampleRate_ = shape.sampleRate;
    }
    void write(Planes<float>& planes, int from, int to) override { feed(planes, from, to); }
    void write(Planes<double>& planes, int from, int to) override { feed(planes, from, to); }
    Course finish()
    {
        course_.whole = gauge_.finish();
        return std::move(course_);
    }

private:
    template <typename T> void feed(Planes<T>& planes, int from, int to)
    {
        while (from < to) {
            const auto next =
                (std::int64_t(course_.readings.size()) + 1) * sampleRate_ / kPerSecond;
            const int n = static_cast<int>(std::min<std::int64_t>(to - from, next - frame_));
            gauge_.feed(planes, from, from + n);
            from += n;
            frame_ += n;
            if (frame_ == next) course_.readings.push_back(gauge_.now());
        }
    }

    LoudnessGauge gauge_;
    Course course_;
    int sampleRate_ = 0;
    std::int64_t frame_ = 0;
};

Course courseOf(const Session& session, const RenderPlan& plan, const std::string& path)
{
    CourseSink sink(session);
    std::optional<Progress> progress;
    renderFile(session, plan, path, sink,
               [&](std::int64_t done, std::int64_t total, int sampleRate) {
                   if (!progress) progress.emplace(session.quiet(), total, sampleRate);
                   progress->show(done);
               });
    return sink.finish();
}

Json jsonOf(float value)
{
    return std::isfinite(value) ? Json(asShown(value)) : Json(nullptr);
}

Json jsonOf(const Course& course)
{
    Json time = Json::array(), momentary = time, shortTerm = time, integrated = time;
    for (std::size_t i = 0; i < course.readings.size(); ++i) {
        const auto& r = course.readings[i];
        time.push_back(double(i + 1) / kPerSecond);
        momentary.push_back(jsonOf(r.momentary));
        shortTerm.push_back(jsonOf(r.shortTerm));
        integrated.push_back(jsonOf(r.integrated));
    }
    return {{"time", time},
            {"momentary", momentary},
            {"shortTerm", shortTerm},
            {"integrated", integrated},
            {"whole",
             {{"integrated", jsonOf(course.whole.integrated)},
              {"range", jsonOf(course.whole.range)},
              {"truePeak", jsonOf(course.whole.truePeak)}}}};
}

/// One of the readings over time, no more points than a picture shows: the loudest of each stretch,
/// and the last of what is integrated.
std::vector<Point> pointsOf(const Course& course, float LoudnessGauge::Reading::*reading,
                            double perSecond)
{
    constexpr std::size_t kMost = 1500;
    const std::size_t width = course.readings.size() / kMost + 1;
    std::vector<Point> points;
    for (std::size_t i = 0; i < course.readings.size(); i += width) {
        float shown = std::nanf("");
        const auto end = std::min(i + width, course.readings.size());
        for (std::size_t k = i; k < end; ++k) {
            const float value = course.readings[k].*reading;
            const bool isLast = reading == &LoudnessGauge::Reading::integrated;
            shown = isLast || !(value <= shown) ? value : shown;
        }
        points.push_back({double(end) / kPerSecond * perSecond, double(shown)});
    }
    return points;
}

std::string figures(const LoudnessReport& r)
{
    const auto shown = [](float value) { return std::isfinite(value) ? fixedText(value, 1) : "-"; };
    return "integrated " + shown(r.integrated) + " LUFS, range " + shown(r.range) +
           " LU, true peak " + shown(r.truePeak) + " dBTP";
}

void draw(const Course& course, const std::optional<Course>& before, Colour accent,
          Picture& picture)
{
    using Reading = LoudnessGauge::Reading;
    const double seconds = course.seconds();
    const bool inMinutes = seconds > 600;
    const double unit = inMinutes ? 1.0 / 60 : 1;
    const auto momentary = pointsOf(course, &Reading::momentary, unit);
    const auto shortTerm = pointsOf(course, &Reading::shortTerm, unit);
    const auto integrated = pointsOf(course, &Reading::integrated, unit);
    std::vector<Point> input;
    if (before) input = pointsOf(*before, &Reading::shortTerm, unit);

    double high = -60, low = 0;
    const std::initializer_list<const std::vector<Point>*> shown = {&momentary, &shortTerm, &input};
    for (const auto* points : shown)
        for (const auto& p : *points)
            if (std::isfinite(p.y)) {
                high = std::max(high, p.y);
                if (points != &momentary) low = std::min(low, p.y);
            }
    const double top = std::ceil((high + 1) / 6) * 6;
    const double bottom = std::clamp(std::floor((low - 1) / 6) * 6, top - 48, top - 18);
    Graph graph(picture, kTop, picture.height() - 56,
                {inMinutes ? "time in min" : "time in s", 0, seconds * unit},
                {"loudness in LUFS", bottom, top, false, roundTicks(bottom, top, 12, true)});
    for (auto& p : input)
        if (!std::isfinite(p.y)) p.y = bottom;
    if (before) graph.area(input, colour::kLevel);
    graph.line(momentary, colour::kOut, 1);
    graph.line(shortTerm, accent, 2.5);
    graph.line(integrated, colour::kSecond, 2, true);
    std::vector<Graph::Key> keys = {{"integrated", colour::kSecond},
                                    {"short-term (3 s)", accent},
                                    {"momentary (0.4 s)", colour::kOut}};
    if (before) keys.push_back({"input, short-term", colour::kLevel});
    graph.legend(keys);
}

}  // namespace

int plotLoudness(const Session& session, const LoudnessPlot& plot)
{
    RenderPlan plan;
    plan.allowMissing = plot.allowMissing;
    std::optional<Course> before;
    auto accent = accentOf("");
    std::string title = "Loudness", subtitle = plot.in.substr(plot.in.find_last_of('/') + 1);
    if (!plot.spec.empty()) {
        plan.effects = {parseEffectSpec(plot.spec)};
        const auto& effect = session.find(plan.effects[0].name);
        accent = accentOf(effect.subCategory->text());
        title = std::string(effect.name->text()) + ": loudness";
    }
    // Refused before the work is done.
    std::optional<Picture> picture;
    std::optional<OutputFile> file;
    if (plot.out.ends_with(".json"))
        file.emplace(plot.out);
    else
        picture.emplace(plot.out, 520);

    const auto course = courseOf(session, plan, plot.in);
    if (!plot.spec.empty()) {
        plan.effects.clear();
        std::vector<std::string> saidBefore;
        const Session::NotesApart apart(saidBefore);
        before = courseOf(session, plan, plot.in);
    }
    if (file) {
        Json all = {{"file", plot.in}, {"sampleRate", course.whole.sampleRate}};
        all.update(jsonOf(course));
        if (before) all["before"] = jsonOf(*before);
        file->write(all.dump(1, ' ', false, Json::error_handler_t::replace) + "\n");
        file->finish();
        return kDone;
    }
    picture->title(title, subtitle + ": " + figures(course.whole));
    draw(course, before, accent, *picture);
    picture->finish();
    return kDone;
}

}  // namespace quillhost
