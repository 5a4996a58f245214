// SPDX-License-Identifier: ISC
#include "session.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <utility>

#include "console.h"
#include "lv2_effect.h"
#include "sound_file.h"
#include "text.h"
#include "vnk/debug.h"
#include "vnk/file.h"

namespace quillhost {
namespace {

namespace fs = std::filesystem;

constexpr const char* kModuleFile = "quillworks.so";
constexpr std::size_t kLargestPreset = 1 << 20;

thread_local std::vector<std::string>* apart = nullptr;  // where notes of this thread go

std::string moduleFile(const std::string& given, const fs::path& own)
{
    if (!given.empty()) return given;
    if (const char* path = std::getenv("QUILLWORKS_MODULE"); path && *path) return path;
    std::error_code error;
    const fs::path folder =
        own.empty() ? fs::read_symlink("/proc/self/exe", error).parent_path() : own;
    // Installed beside programs or beside libraries of other languages, in the build tree, or
    // copied to the binary.
    const fs::path places[] = {folder / "../lib/quillworks" / kModuleFile,
                               folder / "../../../quillworks" / kModuleFile,
                               folder / "../../module" / kModuleFile,
                               folder / "../../../module" / kModuleFile, folder / kModuleFile};
    for (const auto& place : places)
        if (fs::exists(place, error)) return place.lexically_normal().string();
    throw WorkError(std::string("the module ") + kModuleFile +
                    " is not where this program looks for it (--module FILE names it)");
}

/// Messages of the module become part of our one line.
void collect(const char* message, void* context)
{
    std::string& text = *static_cast<std::string*>(context);
    if (text.size() < 4096) text += message;
}
void discard(const char*, void*) {}

std::string oneLine(std::string text)
{
    while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) text.pop_back();
    for (char& c : text)
        if (c == '\n') c = ' ';
    return text;
}

std::string rangeText(const Effect& effect, int index)
{
    const auto p = effect.parameter(index);
    std::string text =
        p.kind == VNK::ValueKind::Toggle ? "0, 1, on, off" : effect.range(index, " to ");
    for (int i = 0; i < p.choices; ++i)
        text += (i ? ", " : ": ") + std::string(effect.component().choiceText(index, i));
    return text;
}

}  // namespace

std::string folderOf(const std::string& path)
{
    return fs::absolute(path).parent_path().string();
}

VNK::ParameterInfo Effect::parameter(int index) const
{
    VNK::ParameterInfo info{};
    component_->getParameter(index, info);
    return info;
}

int Effect::find(const std::string& key) const
{
    const int index = component_->findParameter(key.c_str());
    if (index >= 0) return index;
    for (int i = 0; i < component_->countParameters(); ++i)
        if (sameName(parameter(i).key, key)) return i;
    std::vector<std::string> keys;
    for (int i = 0; i < component_->countParameters(); ++i) keys.emplace_back(parameter(i).key);
    for (int i = 0; i < component_->countTexts(); ++i) keys.emplace_back(text(i).key);
    throw UsageError(name() + " has no parameter " + inQuotes(key) + " " + nearest(key, keys));
}

void Effect::refuse(int index, const std::string& text) const
{
    const auto p = parameter(index);
    double n = 0;
    const char* fault = !readNumber(text, n) ? " is not a value of this parameter ("
                        : n == std::nearbyint(n) || p.kind == VNK::ValueKind::Continuous
                            ? " is out of range ("
                            : " is not a whole number (";
    throw UsageError(name() + ": " + p.key + "=" + text + fault + rangeText(*this, index) + ")");
}

void Effect::requireSettable(const VNK::ParameterInfo& p) const
{
    if (p.has(VNK::isReadOnly))
        throw UsageError(name() + ": " + p.key + " is a measured value and cannot be set");
}

float Effect::value(int index, const std::string& text) const
{
    requireSettable(parameter(index));
    float value = 0;
    if (!component_->textToValue(index, text.c_str(), value)) refuse(index, text);
    return value;
}

float Effect::value(int index, double number) const
{
    const auto p = parameter(index);
    requireSettable(p);
    // In the parameter's own precision, so that a bound that is no exact fraction is within.
    const auto value = static_cast<float>(number);
    const bool isWhole = p.kind == VNK::ValueKind::Continuous || number == std::nearbyint(number);
    if (!(value >= p.minimum && value <= p.maximum) || !isWhole) refuse(index, shortText(number));
    return value;
}

void Effect::set(const std::string& key, const std::string& text) const
{
    if (const int own = findText(key); own >= 0) return setText(own, text);
    const int index = find(key);
    component_->setValue(index, value(index, text));
}

std::string Effect::loadPreset(const std::string& path) const
{
    std::string content, reason;
    if (!VNK::readFile(path.c_str(), kLargestPreset, content, reason))
        throw WorkError(path + ": " + oneLine(reason));
    component_->setBaseFolder(folderOf(path).c_str());
    if (!component_->loadPreset(content.data(), content.size()))
        throw WorkError(path + ": the preset does not load into " + name() + ": " +
                        oneLine(component_->refusalReason()));
    const std::string remark = component_->refusalReason();
    return remark.empty() ? remark : path + ": " + oneLine(remark);
}

Effect::Layouts Effect::usualLayouts() const
{
    constexpr const char* kNames[] = {"stereo", "mono", "5.1"};
    const auto accepts = [this](const char* from, const char* to, Layouts& layouts) {
        return VNK::SpeakerArrangement::named(from, layouts.input) &&
               VNK::SpeakerArrangement::named(to, layouts.output) &&
               algorithm().acceptsArrangement(layouts.input, layouts.output);
    };
    Layouts layouts;
    for (const char* name : kNames)
        if (accepts(name, name, layouts)) return layouts;
    for (const char* from : kNames)
        for (const char* to : kNames)
            if (accepts(from, to, layouts)) return layouts;
    std::int64_t ins = 0, outs = 0;
    if (component_->getInteger("audioInputs", ins) &&
        component_->getInteger("audioOutputs", outs) && std::max(ins, outs) <= kMostChannels) {
        layouts.output = VNK::SpeakerArrangement::withChannels(static_cast<int>(outs));
        layouts.input = ins == 0 ? layouts.output
                                 : VNK::SpeakerArrangement::withChannels(static_cast<int>(ins));
        if (algorithm().acceptsArrangement(layouts.input, layouts.output)) return layouts;
    }
    throw WorkError(name() + " takes neither stereo nor mono nor 5.1");
}

bool Effect::isPassThrough() const
{
    std::int64_t value = 0;
    return component_->getInteger("passThrough", value) && value == 1;
}

std::string Effect::text(int index, float value) const
{
    char buffer[256];
    component_->valueToText(index, value, buffer, sizeof buffer);
    return buffer;
}

std::string Effect::range(int index, const char* to) const
{
    const auto p = parameter(index);
    const auto isNumber = [](const std::string& word) {
        double n = 0;
        return readNumber(word.substr(0, word.find(' ')), n);
    };
    const auto low = text(index, p.minimum), high = text(index, p.maximum);
    if (p.kind == VNK::ValueKind::Continuous && !isNumber(low) && !isNumber(high))
        return low + to + high;
    return shortText(p.minimum) + to + shortText(p.maximum) +
           (*p.unit ? std::string(" ") + p.unit : "");
}

Session::Session(const std::string& module, bool quiet, const std::string& own) : quiet_(quiet)
{
    const std::string path = moduleFile(module, own);
    std::string reason, messages;
    VNK::setDebugSink(collect, &messages);
    // A name without a slash would be looked for in the library path.
    const auto file = path.find('/') == std::string::npos ? "./" + path : path;
    module_ = VNK::LoadedModule::load(file.c_str(), reason);
    VNK::setDebugSink(discard, nullptr);
    path_ = file;
    if (module_) return;
    reason = oneLine(reason);
    messages = oneLine(messages);
    if (reason.starts_with(file)) reason.erase(0, reason.find_first_not_of(": ", file.size()));
    if (!messages.empty() && reason.find(messages) == std::string::npos) reason += ": " + messages;
    throw WorkError("module " + path + " does not load: " + reason);
}

std::string Session::resourcesFolder() const
{
    if (const char* named = std::getenv("QUILLWORKS_RESOURCES"); named && *named) return named;
    std::error_code error;
    const auto folder = fs::canonical(path_, error).parent_path();
    for (const char* place : {"resources", "../share/quillworks", "../../share/quillworks"})
        if (fs::is_directory(folder / place / "skins", error))
            return (folder / place).lexically_normal().string();
    throw WorkError("the data of the module " + path_ + " is not beside it");
}

std::vector<const VNK::ClassDescription*> Session::classes() const
{
    std::vector<const VNK::ClassDescription*> all;
    for (int i = 0; i < factory().countClasses(); ++i) all.push_back(factory().getClass(i));
    return all;
}

const VNK::ClassDescription* Session::search(const std::string& name) const
{
    if (isLv2(name)) return &lv2Class(name);
    VNK::UID id;
    const bool isId = VNK::UID::parse(name, id) || VNK::UID::parse("{" + name + "}", id);
    for (const auto* c : classes())
        if (isId ? c->classId == id : sameName(c->name->text(), name)) return c;
    return nullptr;
}

const VNK::ClassDescription& Session::find(const std::string& name) const
{
    if (const auto* found = search(name)) return *found;
    std::vector<std::string> names;
    for (const auto* c : classes()) names.emplace_back(c->name->text());
    throw UsageError("there is no effect " + inQuotes(name) + " " + nearest(name, names));
}

Effect Session::create(const VNK::ClassDescription& description) const
{
    auto component = VNK::HostedEffect::adopt(
        needingMemory(std::string("the effect ") + description.name->text(), [&] {
            VNK::IObject* const plugin = createLv2(description);
            return plugin ? plugin : factory().createInstance(description.classId);
        }));
    if (!component || !component->algorithm())
        throw WorkError(std::string("the effect ") + description.name->text() +
                        " is not available");
    return {std::move(component), description};
}

Session::NotesApart::NotesApart(std::vector<std::string>& notes) noexcept
    : before_(std::exchange(apart, &notes))
{}

Session::NotesApart::~NotesApart()
{
    apart = before_;
}

void Session::note(const std::string& line) const
{
    if (!quiet_) (apart ? *apart : notes_).push_back(line);
}

void Session::sayNotes() const
{
    for (const auto& line : notes_) say(line);
    notes_.clear();
}

void Session::note(const std::string& file, const std::vector<std::string>& remarks) const
{
    for (const auto& remark : remarks) note(file + ": " + remark);
}

void Session::noteThoseThatPassThrough(const std::vector<Effect>& effects) const
{
    std::vector<std::string> names;
    for (const auto& effect : effects)
        if (effect.isPassThrough() &&
            std::find(names.begin(), names.end(), effect.name()) == names.end())
            names.push_back(effect.name());
    if (names.empty()) return;
    std::string list;
    for (const auto& name : names) list += (list.empty() ? "" : ", ") + name;
    note(list + (names.size() == 1 ? " passes" : " pass") + " audio through for now");
}

}  // namespace quillhost
