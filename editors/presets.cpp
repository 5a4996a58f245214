// SPDX-License-Identifier: ISC
#include "editors/presets.h"

namespace quillworks::editors {
namespace {

/// What stands before the last "/" of a name.
std::string folderOf(const std::string& name)
{
    const auto slash = name.rfind('/');
    return slash == std::string::npos ? std::string() : name.substr(0, slash);
}

std::string leafOf(const std::string& name)
{
    const auto slash = name.rfind('/');
    return slash == std::string::npos ? name : name.substr(slash + 1);
}

}  // namespace

std::string Presets::name() const
{
    const char* name = model_.effect().programName();
    return name && *name ? leafOf(name) : "(Unnamed)";
}

bool Presets::isModified() const
{
    return model_.editing() && model_.editing()->isModified();
}

std::vector<Presets::Entry> Presets::all() const
{
    std::vector<Entry> entries;
    for (int i = 0; i < model_.effect().countPrograms(); ++i)
        if (const char* title = model_.effect().programTitle(i))
            entries.push_back({title, i, false});
    if (auto* own = model_.userPresets())
        for (int i = 0; i < own->countUserPresets(); ++i)
            if (const char* name = own->userPresetName(i)) entries.push_back({name, i, true});
    return entries;
}

int Presets::current(const std::vector<Entry>& entries) const
{
    const char* program = model_.effect().programName();
    const std::string name = program ? program : "";
    int found = -1;
    for (std::size_t i = 0; i < entries.size(); ++i) {
        const auto& e = entries[i];
        if (e.name != name && (!e.isOwn || leafOf(e.name) != name)) continue;
        if (found < 0 || (e.name == loaded_ && e.isOwn == isLoadedOwn_))
            found = static_cast<int>(i);
    }
    return found;
}

void Presets::load(const Entry& entry)
{
    loaded_ = entry.name;
    isLoadedOwn_ = entry.isOwn;
    if (entry.isOwn)
        model_.userPresets()->loadUserPreset(entry.index);
    else
        model_.effect().loadProgram(entry.index);
}

void Presets::step(int by)
{
    const auto entries = all();
    const int count = static_cast<int>(entries.size());
    if (!count) return;
    const int at = current(entries);
    const int next = at < 0 ? (by > 0 ? 0 : count - 1) : (at + by + count) % count;
    load(entries[static_cast<std::size_t>(next)]);
}

ListContent Presets::list()
{
    if (auto* own = model_.userPresets()) own->findPresets();
    ListContent list;
    list.hasSearch = true;
    list.leastWidth = 260;
    const auto entries = all();
    const int chosen = current(entries);
    std::string folder;
    bool wasOwn = false;
    for (std::size_t i = 0; i < entries.size(); ++i) {
        const auto& e = entries[i];
        if (i == 0 || e.isOwn != wasOwn || folderOf(e.name) != folder) {
            folder = folderOf(e.name);
            wasOwn = e.isOwn;
            std::string heading = e.isOwn ? "Own" : "Factory";
            if (!folder.empty()) heading += " / " + folder;
            ListEntry line{heading, {}};
            line.startsGroup = i > 0;
            list.entries.push_back(std::move(line));
        }
        ListEntry line{leafOf(e.name), [this, e] { load(e); }};
        line.isChecked = static_cast<int>(i) == chosen;
        list.entries.push_back(std::move(line));
    }
    if (entries.empty()) list.entries.push_back({"No presets", {}});
    return list;
}

int Presets::ownIndex() const
{
    const auto entries = all();
    const int at = current(entries);
    if (at < 0 || !entries[static_cast<std::size_t>(at)].isOwn) return -1;
    return entries[static_cast<std::size_t>(at)].index;
}

bool Presets::isOwn() const
{
    return ownIndex() >= 0;
}

bool Presets::save(const std::string& name, bool replace, std::string& reason)
{
    if (!canSave()) return false;
    if (model_.userPresets()->saveUserPreset(name.c_str(), replace)) {
        loaded_ = name;
        isLoadedOwn_ = true;
        return true;
    }
    reason = model_.effect().refusalReason();
    return false;
}

bool Presets::rename(const std::string& name, std::string& reason)
{
    const int index = ownIndex();
    if (index >= 0 && model_.userPresets()->renameUserPreset(index, name.c_str())) return true;
    reason = model_.effect().refusalReason();
    return false;
}

bool Presets::remove(std::string& reason)
{
    const int index = ownIndex();
    if (index >= 0 && model_.userPresets()->removeUserPreset(index)) return true;
    reason = model_.effect().refusalReason();
    return false;
}

}  // namespace quillworks::editors
