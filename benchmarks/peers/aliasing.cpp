// SPDX-License-Identifier: ISC
// Aliases of distortions, ours and other people's, over drive and frequency: as a table and as a
// picture.
#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <numbers>
#include <utility>

#include "benchmarks/peers/contestant.h"
#include "picture.h"
#include "tests/support/build_paths.h"
#include "tests/support/power_spectrum.h"
#include "vnk/plugin_manager.h"

namespace quillworks::peers {
namespace {

using Json = nlohmann::json;

constexpr double kRate = 48000;
constexpr Format kFormat{.sampleRate = kRate, .channels = 2, .block = 256};
constexpr std::size_t kSettling = 32768, kSpectrum = 32768;  // frames
constexpr int kLobe = 8;                                     // bins on each side of a line
constexpr double kSilent = 1e-9;                             // power
constexpr double kAgreement = 3;                             // dB
constexpr double kHighest = 20000;                           // Hz, of what is heard
constexpr int kFrequencies = 18, kDrives = 9;
constexpr double kFirst = 200, kLast = 15000;     // Hz
constexpr double kCleanest = -120, kWorst = -20;  // dB, of the picture's colours

struct Options {
    std::string table = paths::source + "/benchmarks/peers/aliasing.json", module = paths::module,
                picture, only;
};

/// Not at a part of the sample rate, where aliases would fall on harmonics.
double frequencyAt(int i)
{
    return 1.0007 * kFirst * std::pow(kLast / kFirst, double(i) / (kFrequencies - 1));
}

struct Reading {
    double tone = 0;       // power, 0 for a signal that stands still
    double aliases = 0;    // power below 20 kHz that is no harmonic, against the harmonics, in dB
    double harmonics = 0;  // those above the tone, against the tone, as a ratio of amplitudes
};

Reading read(Contestant& contestant, Buffers& buffers, double frequency)
{
    std::vector<float> y;
    for (std::size_t at = 0; at < kSettling + kSpectrum; at += std::size_t(kFormat.block)) {
        for (std::size_t c = 0; c < 2; ++c)
            for (int i = 0; i < kFormat.block; ++i) {
                const double place = double(at) + i;
                buffers.in[c][static_cast<std::size_t>(i)] = static_cast<float>(
                    0.5 * std::sin(2 * std::numbers::pi * frequency / kRate * place));
            }
        contestant.beginBlock();
        contestant.run();
        contestant.endBlock();
        y.insert(y.end(), buffers.out[0].begin(), buffers.out[0].end());
    }
    const auto [least, most] = std::minmax_element(y.begin() + kSettling, y.end());
    if (!(*most - *least > 1e-6f * std::abs(*most))) return {};
    const auto power = test::powerSpectrum(y, kSettling, kSpectrum);
    const double binsOfTone = frequency / kRate * kSpectrum;
    double tone = 1e-30, harmonics = 0, rest = 1e-30;
    for (std::size_t k = kLobe; double(k) * kRate / kSpectrum < kHighest; ++k) {
        const double harmonic = double(k) / binsOfTone;
        const double away = std::abs(harmonic - std::round(harmonic)) * binsOfTone;
        (away > kLobe ? rest : harmonic < 1.5 ? tone : harmonics) += power[k];
    }
    return {tone, 10 * std::log10(rest / (tone + harmonics)), std::sqrt(harmonics / tone)};
}

struct Map {
    std::string name;
    Reading at[kDrives][kFrequencies];

    /// Harmonics of a tone near 1 kHz.
    double harmonics(int drive) const { return at[drive][kFrequencies / 3 + 1].harmonics; }
};

std::unique_ptr<Contestant> contestantOf(const Json& row, int drive, VNK::IClassFactory& factory,
                                         lilv::World& world, Buffers& buffers, std::string& reason)
{
    auto settings = row.at("settings").get<Settings>();
    const auto& range = row.at("drive");
    const float from = range.at("from"), to = range.at("to");
    settings[range.at("key")] = from + (to - from) * float(drive) / (kDrives - 1);
    if (row.contains("effect"))
        return ourEffect(factory, row["effect"], settings, kFormat, buffers, reason);
    return lv2Peer(world, row.at("uri"), settings, kFormat, buffers, reason);
}

bool measure(const Json& row, VNK::IClassFactory& factory, lilv::World& world, Map& map)
{
    map.name = row.at("name");
    Buffers buffers(kFormat);
    for (int d = 0; d < kDrives; ++d) {
        for (int f = 0; f < kFrequencies; ++f) {
            // One that starts from what it finds in its memory may stand still or howl: more of
            // them, in other places, until two agree.
            std::vector<std::unique_ptr<Contestant>> tried;
            for (int attempt = 0; attempt < 8; ++attempt) {
                std::string reason;
                tried.push_back(contestantOf(row, d, factory, world, buffers, reason));
                if (!tried.back()) {
                    std::fprintf(stderr, "left out: %s\n", reason.c_str());
                    return false;
                }
                const auto last =
                    std::exchange(map.at[d][f], read(*tried.back(), buffers, frequencyAt(f)));
                if (map.at[d][f].tone > kSilent &&
                    std::abs(last.aliases - map.at[d][f].aliases) < kAgreement)
                    break;
            }
        }
    }
    return true;
}

void print(const Map& map)
{
    std::printf("\n%s: aliases in dB, drive from its least (above) to its most\n  THD    Hz",
                map.name.c_str());
    for (int f = 0; f < kFrequencies; f += 2) std::printf("%7.0f", frequencyAt(f));
    for (int d = 0; d < kDrives; ++d) {
        std::printf("\n%5.1f %%  ", 100 * map.harmonics(d));
        for (int f = 0; f < kFrequencies; f += 2) std::printf("%7.1f", map.at[d][f].aliases);
    }
    std::printf("\n");
}

/// From the well's grey, where nothing is heard, over green and orange to white.
quillhost::Colour colourOf(const Reading& reading)
{
    const double db = reading.tone > kSilent ? reading.aliases : kCleanest;
    constexpr double kStops[][3] = {{0x1B, 0x1F, 0x26},
                                    {0x1F, 0x5A, 0x5E},
                                    {0x4F, 0xD1, 0xB5},
                                    {0xF5, 0xA7, 0x42},
                                    {255, 244, 235}};
    constexpr int kLastStop = int(std::size(kStops)) - 1;
    const double place = std::clamp((db - kCleanest) / (kWorst - kCleanest), 0.0, 1.0) * kLastStop;
    const int below = std::min(int(place), kLastStop - 1);
    unsigned colour = 0;
    for (int i = 0; i < 3; ++i) {
        const double from = kStops[below][i], to = kStops[below + 1][i];
        colour = colour << 8 | unsigned(from + (to - from) * (place - below) + 0.5);
    }
    return colour;
}

void draw(const std::vector<Map>& maps, const std::string& path)
{
    using namespace quillhost;
    constexpr int kColumns = 5;
    constexpr double kPanel = 148, kTall = 108, kGap = 18, kLeft = 44, kTop = 58, kRow = 158;
    const int rows = (int(maps.size()) + kColumns - 1) / kColumns;
    Picture picture(path, kTop + rows * kRow + 8);
    cairo_t* const cr = picture.context();
    picture.text(16, 24, "Aliases of a \u22126 dBFS sine, against its harmonics",
                 Picture::Anchor::Left, 15, colour::kText, true);
    picture.text(16, 41,
                 "Up: drive. Right: frequency in Hz. Above: most harmonics of a tone near 1 kHz.",
                 Picture::Anchor::Left, 11, colour::kLabel);
    for (int i = 0; i < 100; ++i) {  // the colours' scale
        picture.setColour(colourOf({1, kCleanest + i * (kWorst - kCleanest) / 99, 0}));
        cairo_rectangle(cr, 560 + 2.4 * i, 16, 2.6, 10);
        cairo_fill(cr);
    }
    for (const double db : {-120.0, -100.0, -80.0, -60.0, -40.0, -20.0}) {
        char text[16];
        std::snprintf(text, sizeof text, "\u2212%.0f%s", -db, db == kWorst ? " dB" : "");
        picture.text(560 + 240 * (db - kCleanest) / (kWorst - kCleanest), 40, text,
                     Picture::Anchor::Middle, 10, colour::kLabel);
    }
    for (std::size_t m = 0; m < maps.size(); ++m) {
        const double x = kLeft + double(m % kColumns) * (kPanel + kGap);
        const double y = kTop + double(m / kColumns) * kRow + 14;
        picture.text(x, y - 5, maps[m].name, Picture::Anchor::Left, 12, colour::kText, true);
        double most = 0;
        for (int d = 0; d < kDrives; ++d) most = std::max(most, maps[m].harmonics(d));
        char thd[16];
        std::snprintf(thd, sizeof thd, "%.0f %%", 100 * most);
        picture.text(x + kPanel, y - 5, thd, Picture::Anchor::Right, 10, colour::kAxis);
        for (int d = 0; d < kDrives; ++d)
            for (int f = 0; f < kFrequencies; ++f) {
                picture.setColour(colourOf(maps[m].at[d][f]));
                const double wide = kPanel / kFrequencies, tall = kTall / kDrives;
                cairo_rectangle(cr, x + f * wide, y + kTall - (d + 1) * tall, wide + 0.4,
                                tall + 0.4);
                cairo_fill(cr);
            }
        const auto scale = [&](double f, const char* text, Picture::Anchor anchor) {
            const double place = std::log(f / kFirst) / std::log(kLast / kFirst);
            picture.text(x + place * kPanel, y + kTall + 13, text, anchor, 10, colour::kAxis);
        };
        scale(kFirst, "200", Picture::Anchor::Left);
        scale(1000, "1k", Picture::Anchor::Middle);
        scale(5000, "5k", Picture::Anchor::Middle);
        scale(kLast, "15k", Picture::Anchor::Right);
        if (m % kColumns == 0) {
            picture.text(x - 6, y + 10, "most", Picture::Anchor::Right, 10, colour::kAxis);
            picture.text(x - 6, y + kTall, "least", Picture::Anchor::Right, 10, colour::kAxis);
        }
    }
    picture.finish();
}

int run(const Options& options)
{
    std::ifstream file(options.table);
    if (!file) throw std::runtime_error(options.table + ": cannot be read");
    const Json table = Json::parse(file);
    std::string reason;
    const auto module = VNK::LoadedModule::load(options.module.c_str(), reason);
    if (!module) throw std::runtime_error(reason);
    lilv::World world;
    std::vector<Map> maps;
    for (const auto& row : table.at("distortions")) {
        Map map;
        if (row.at("name").get<std::string>().find(options.only) == std::string::npos) continue;
        if (!measure(row, module->factory(), world, map)) continue;
        print(map);
        std::fflush(stdout);
        maps.push_back(map);
    }
    if (!options.picture.empty()) draw(maps, options.picture);
    return 0;
}

}  // namespace
}  // namespace quillworks::peers

int main(int argc, char** argv)
{
    quillworks::peers::Options options;
    CLI::App app{"Aliases of distortions over drive and frequency."};
    app.add_option("--table", options.table, "Whose");
    app.add_option("--module", options.module, "The module to load");
    app.add_option("--only", options.only, "Rows whose name contains this text");
    app.add_option("-o,--output", options.picture, "Picture, .png or .svg");
    CLI11_PARSE(app, argc, argv);
    try {
        return quillworks::peers::run(options);
    } catch (const std::exception& e) {
        std::fprintf(stderr, "aliasing: %s\n", e.what());
        return 2;
    }
}
