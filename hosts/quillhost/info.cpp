// SPDX-License-Identifier: ISC
// quillhost info: what one effect offers.
#include <iostream>
#include <nlohmann/json.hpp>

#include "chain.h"
#include "command.h"
#include "effect_info.h"
#include "table.h"

namespace quillhost {
namespace {

constexpr double kRate = 48000;

void printTable(const Session& session, const Effect& effect)
{
    std::cout << effect.name() << "  " << effect.classId() << "\n";
    if (effect.isPassThrough()) std::cout << "passes audio through for now\n";
    const auto tail = effect.algorithm().getTailLength();
    std::cout << "latency " << effect.algorithm().getLatency() << " samples at 48 kHz, tail "
              << (tail == VNK::kEndlessTail ? "endless" : fixedText(tail / kRate, 3) + " s")
              << "\n\n";
    std::vector<Row> rows = {{"key", "range", "default", "title"}};
    for (int i = 0; i < effect.component().countParameters(); ++i) {
        const auto p = effect.parameter(i);
        std::string range = effect.range(i, " .. ");
        if (p.kind == VNK::ValueKind::Toggle) range = "off, on";
        if (const auto texts = choicesOf(effect, i); !texts.empty() && texts.size() <= 32) {
            range.clear();
            for (const auto& text : texts) range += (range.empty() ? "" : ", ") + text;
        }
        if (p.has(VNK::isReadOnly)) range += " (meter)";
        rows.push_back({p.key, range, effect.text(i, p.defaultValue), p.title});
    }
    for (int i = 0; i < effect.component().countTexts(); ++i) {
        const auto t = effect.text(i);
        std::string kind = kindName(t.kind);
        for (const auto& type : fileTypes(session, effect, t)) kind += " " + type;
        rows.push_back({t.key, kind, t.defaultText, t.title});
    }
    constexpr std::size_t kRange = 1;
    std::cout << columns(rows, {}, kRange);
    std::string meters;
    for (int i = 0; i < effect.component().countMeters(); ++i) {
        VNK::MeterInfo m{};
        effect.component().getMeter(i, m);
        meters += std::string(" ") + m.key;
    }
    std::string shownViews;
    for (const auto& view : viewsOf(effect)) shownViews += " " + view;
    for (const auto& line : {"meters:" + meters, "views:" + shownViews}) {
        if (line.back() == ':') continue;
        std::string indent = "\n";
        for (const auto& part : wrapped(line, kPageWidth - 2)) {
            std::cout << indent << part << "\n";
            indent = "  ";
        }
    }
}

std::function<int(Session&)> declare(CLI::App& app)
{
    struct Options {
        std::string effect;
        bool json = false;
    };
    auto options = std::make_shared<Options>();
    addOption(app, "EFFECT", options->effect, "display name or class ID");
    addFlag(app, "--json", options->json,
            "as a JSON object; latency in samples at 48 kHz, tail in seconds, null if endless");
    return [options](Session& session) {
        requireArgument(options->effect, "EFFECT", "info");
        const Effect effect = session.create(options->effect);
        prepareAsUsual(effect);
        if (options->json)
            std::cout << effectInfo(session, effect).dump(1) << "\n";
        else
            printTable(session, effect);
        return kDone;
    };
}

}  // namespace

extern const Command kInfo;
const Command kInfo = {"info", "parameters, meters, views and delay of an effect",
                       "  quillhost info compressor\n"
                       "  quillhost info \"Analog Delay\" --json\n"
                       "  quillhost info 450B506D-EB47-44BD-90C3-6E870AD65083",
                       declare};

}  // namespace quillhost
