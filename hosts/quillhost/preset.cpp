// SPDX-License-Identifier: ISC
// quillhost preset: writes and reads preset files.
#include <iostream>
#include <nlohmann/json.hpp>

#include "chain.h"
#include "command.h"
#include "effect_spec.h"
#include "output_file.h"
#include "table.h"
#include "vnk/buffer.h"

namespace quillhost {
namespace {

using Json = nlohmann::ordered_json;

struct Options {
    std::string action;
    std::vector<std::string> words;
    std::string name;
    bool json = false, allowMissing = false;
};

/// "loud.fxpreset" -> "loud".
std::string titleOf(const std::string& path)
{
    if (path == "-") return "";
    const auto slash = path.find_last_of('/');
    const auto file = slash == std::string::npos ? path : path.substr(slash + 1);
    return file.substr(0, file.find_last_of('.'));
}

int save(const Session& session, const Options& options)
{
    if (options.words.size() != 2)
        throw UsageError("preset save takes SPEC and FILE (quillhost preset --help shows how)");
    const auto& path = options.words[1];
    const Effect effect = createEffect(session, parseEffectSpec(options.words[0]));
    session.noteThoseThatPassThrough({effect});
    prepareAsUsual(effect, session, options.allowMissing);
    if (path != "-") effect.component().setBaseFolder(folderOf(path).c_str());
    VNK::StringSink document;
    const auto title = options.name.empty() ? titleOf(path) : options.name;
    if (!effect.component().savePreset(title.c_str(), document))
        throw WorkError(effect.name() + " does not give its preset");
    if (const std::string remark = effect.component().refusalReason(); !remark.empty())
        session.note(path + ": " + remark);
    OutputFile file(path);
    file.write(document.text());
    file.finish();
    return kDone;
}

int show(const Session& session, const Options& options)
{
    if (options.words.size() != 1)
        throw UsageError("preset show takes one FILE (quillhost preset --help shows how)");
    const Effect effect = createFromPreset(session, options.words[0]);
    const auto& component = effect.component();
    std::vector<Row> rows;
    Json values = Json::object();
    for (int i = 0; i < component.countParameters(); ++i) {
        const auto p = effect.parameter(i);
        if (!p.isStored()) continue;
        const float value = component.getValue(i);
        rows.push_back({p.key, effect.text(i, value), p.title});
        values[p.key] = asShown(value);
    }
    Json texts = Json::object();
    for (int i = 0; i < component.countTexts(); ++i) {
        const auto t = effect.text(i);
        rows.push_back({t.key, escaped(component.getText(i)), t.title});
        texts[t.key] = component.getText(i);
    }
    if (options.json)  // a title need not be UTF-8
        std::cout << Json{{"effect", effect.name()},
                          {"classId", effect.classId()},
                          {"name", component.programName()},
                          {"parameters", values},
                          {"texts", texts}}
                         .dump(1, ' ', false, Json::error_handler_t::replace)
                  << "\n";
    else
        std::cout << effect.name() << ": " << escaped(component.programName()) << "\n\n"
                  << columns(rows);
    return kDone;
}

std::function<int(Session&)> declare(CLI::App& app)
{
    auto o = std::make_shared<Options>();
    addOption(app, "ACTION", o->action, "save SPEC FILE, or show FILE");
    addOption(app, "ARGUMENTS", o->words, "SPEC is NAME:key=value,...; FILE ends in .fxpreset", "");
    addOption(app, "--name", o->name, "title to save (the file's name)", "TEXT");
    addFlag(app, "--json", o->json, "show as a JSON object");
    addFlag(app, "--allow-missing", o->allowMissing,
            "save though a file that the effect names cannot be had");
    return [o](Session& session) {
        if (o->action == "save") return save(session, *o);
        if (o->action == "show") return show(session, *o);
        throw UsageError("preset does not know " + inQuotes(o->action) +
                         " (preset save SPEC FILE, preset show FILE)");
    };
}

}  // namespace

extern const Command kPreset;
const Command kPreset = {
    "preset", "writes and reads preset files",
    "  quillhost preset save compressor:threshold=-24,ratio=3 gentle.fxpreset\n"
    "  quillhost preset show gentle.fxpreset\n"
    "  quillhost render in.wav out.wav --fx compressor --preset gentle.fxpreset",
    declare};

}  // namespace quillhost
