// SPDX-License-Identifier: ISC
// All that `peers --json` has measured, as one picture and as a table for the documentation.
#include <CLI/CLI.hpp>
#include <nlohmann/json.hpp>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include "picture.h"

namespace quillworks::peers {
namespace {

using Json = nlohmann::json;
using quillhost::Picture;
namespace colour = quillhost::colour;

struct Entry {
    std::string name;
    double time = 0;  // ns a frame
    bool isOurs = false;
};
struct Row {
    std::string name;
    std::vector<Entry> entries;
    const Entry* ours() const
    {
        const auto at = std::find_if(entries.begin(), entries.end(),
                                     [](const auto& entry) { return entry.isOurs; });
        return at == entries.end() ? nullptr : &*at;
    }
};

/// Of several runs each row is that of the run in which all its contestants together were fastest:
/// a machine that is busy with other work slows all of them, but never speeds one up.
std::vector<Row> rowsOf(const std::vector<std::string>& files, int block)
{
    std::vector<Row> rows;
    const auto sum = [](const Row& row) {
        double all = 0;
        for (const auto& entry : row.entries) all += entry.time;
        return all;
    };
    for (const auto& path : files) {
        std::ifstream file(path);
        if (!file) throw std::runtime_error(path + ": cannot be read");
        for (const auto& measured : Json::parse(file)) {
            if (measured.at("block") != block) continue;
            const std::string whole = measured.at("name");
            Row row{whole.substr(0, std::min(whole.find(':'), whole.find(" ("))), {}};
            for (const auto& c : measured.at("contestants"))
                row.entries.push_back({c.at("name"), c.at("nsPerFrame"), c.at("ours")});
            if (!row.ours()) continue;
            const auto known = std::find_if(rows.begin(), rows.end(),
                                            [&](const auto& r) { return r.name == row.name; });
            if (known == rows.end())
                rows.push_back(std::move(row));
            else if (row.entries.size() > known->entries.size() ||
                     (row.entries.size() == known->entries.size() && sum(row) < sum(*known)))
                *known = std::move(row);
        }
    }
    if (rows.empty())
        throw std::runtime_error("nothing was measured at " + std::to_string(block) +
                                 " frames a block");
    return rows;
}

void printTable(const std::vector<Row>& rows)
{
    std::printf("| effect | ours | others (ours : theirs) |\n|---|---|---|\n");
    for (const auto& row : rows) {
        const double ours = row.ours()->time;
        std::printf("| %s | %.3g |", row.name.c_str(), ours);
        const char* before = " ";
        for (const auto& entry : row.entries) {
            if (entry.isOurs) continue;
            std::printf("%s%s %.3g (%.2f)", before, entry.name.c_str(), entry.time,
                        ours / entry.time);
            before = "; ";
        }
        std::printf(" |\n");
    }
}

void draw(const std::vector<Row>& rows, const std::string& path)
{
    constexpr double kTop = 84, kRow = 20, kLeft = 250, kRight = 840;
    constexpr double kFirst = 0.2, kLast = 5000;  // ns
    const double bottom = kTop + kRow * static_cast<double>(rows.size());
    Picture picture(path, bottom + 20);
    cairo_t* const cr = picture.context();
    picture.title("Nanoseconds a frame, beside other LV2 plug-ins",
                  "stereo, 48 kHz, one core; bars: ours, dots: others; further left is faster");
    const auto px = [&](double time) {
        return kLeft + (kRight - kLeft) * std::log(time / kFirst) / std::log(kLast / kFirst);
    };
    for (const double tick : {0.3, 1.0, 3.0, 10.0, 30.0, 100.0, 300.0, 1000.0, 3000.0}) {
        picture.setColour(colour::kGrid);
        cairo_rectangle(cr, std::floor(px(tick)), kTop, 1, bottom - kTop);
        cairo_fill(cr);
        char text[16];
        std::snprintf(text, sizeof text, "%g", tick);
        picture.text(px(tick), kTop - 5, text, Picture::Anchor::Middle, 10, colour::kAxis);
    }
    for (std::size_t i = 0; i < rows.size(); ++i) {
        const double y = kTop + kRow * static_cast<double>(i);
        picture.text(kLeft - 10, y + 14, rows[i].name, Picture::Anchor::Right, 11, colour::kLabel);
        picture.setColour(colour::kSecond);
        cairo_rectangle(cr, kLeft, y + 5, px(rows[i].ours()->time) - kLeft, kRow - 10);
        cairo_fill(cr);
        auto others = rows[i].entries;
        std::erase_if(others, [](const Entry& entry) { return entry.isOurs; });
        std::sort(others.begin(), others.end(),
                  [](const Entry& a, const Entry& b) { return a.time < b.time; });
        std::string names;  // of dots that stand too close for a name between them
        for (std::size_t k = 0; k < others.size(); ++k) {
            const double x = px(others[k].time);
            picture.setColour(colour::kText);
            cairo_arc(cr, x, y + kRow / 2, 3.5, 0, 6.2832);
            cairo_fill(cr);
            names += (names.empty() ? "" : ", ") +
                     others[k].name.substr(0, others[k].name.find_first_of(" ,"));
            const double wide = picture.textWidth(names, 9) + 12;
            if (k + 1 < others.size() && px(others[k + 1].time) - x < wide) continue;
            const double end = px(rows[i].ours()->time);
            const bool isOnBar = x + wide < end;
            picture.text(isOnBar ? x + 6 : std::max(x, end) + 6, y + 13, names,
                         Picture::Anchor::Left, 9, isOnBar ? colour::kBackground : colour::kAxis);
            names.clear();
        }
    }
    picture.finish();
}

}  // namespace
}  // namespace quillworks::peers

int main(int argc, char** argv)
{
    CLI::App app{"Draws what peers --json has measured, and prints it as a table."};
    std::vector<std::string> files;
    std::string picture;
    int block = 256;
    app.add_option("FILE", files, "What peers --json has printed; of several runs the fastest rows")
        ->required();
    app.add_option("--block", block, "Frames a block")->check(CLI::Range(1, 65536));
    app.add_option("-o,--output", picture, "Picture, .png or .svg");
    CLI11_PARSE(app, argc, argv);
    try {
        const auto rows = quillworks::peers::rowsOf(files, block);
        quillworks::peers::printTable(rows);
        if (!picture.empty()) quillworks::peers::draw(rows, picture);
        return 0;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "speeds: %s\n", e.what());
        return 2;
    }
}
