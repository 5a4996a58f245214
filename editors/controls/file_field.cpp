// SPDX-License-Identifier: ISC
#include "editors/controls/file_field.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>

#include "editors/controls/lists.h"

namespace quillworks::editors {
namespace {

namespace fs = std::filesystem;

std::string titleOf(const VNK::SkinControl& skin, const VNK::TextInfo& info)
{
    const auto own = skin.attributes.find("title");
    return own == skin.attributes.end() ? info.title : own->second;
}

VNK::TextInfo infoOf(const EffectModel& model, int text)
{
    VNK::TextInfo info;
    model.effect().getTextInfo(text, info);
    return info;
}

}  // namespace

FileField::FileField(ControlHost& host, const VNK::SkinControl& skin, int text, const Rect& bounds)
    : Control(host, skin.kind, titleOf(skin, infoOf(host.model(), text)), bounds),
      text_(text),
      info_(infoOf(host.model(), text))
{}

std::string FileField::path() const
{
    const char* text = model().effect().getText(text_);
    return text ? text : "";
}

std::string FileField::describe() const
{
    if (!refusal_.empty()) return refusal_;
    const auto whole = path();
    if (whole.empty()) return "None";
    const auto name = whole.substr(whole.find_last_of("/:") + 1);
    const char* problem = model().effect().textProblem(text_);
    return problem && *problem ? name + ": " + problem : name;
}

void FileField::draw(Canvas& canvas)
{
    shown_ = describe();
    drawField(canvas, bounds(), title(), shown_, isHovered_);
}

void FileField::tick(double)
{
    if (describe() != shown_) damage();
}

void FileField::hover(bool isOver)
{
    if (isHovered_ == isOver) return;
    isHovered_ = isOver;
    damage();
}

void FileField::pointer(const PointerEvent& event)
{
    if (!press_.pointer(event, bounds())) return;
    const auto whole = path();
    const char* home = std::getenv("HOME");
    open(whole.starts_with("/") ? fs::path(whole).parent_path().string() : home ? home : "/");
}

bool FileField::key(const KeyEvent& event)
{
    if (event.modifiers) return false;
    if (event.key == Key::Delete) {
        set(info_.defaultText);
        return true;
    }
    if (event.key == Key::Space) {
        const auto whole = path();
        open(whole.starts_with("/") ? fs::path(whole).parent_path().string() : "/");
        return true;
    }
    if (event.key != Key::Enter) return false;
    TextRequest request;
    request.field = bounds();
    request.type = Type::Button;
    request.align = Align::Left;
    request.text = path();
    request.take = [this](const std::string& typed, std::string& reason) {
        if (model().effect().setText(text_, typed.c_str())) return true;
        reason = model().effect().textRefusal();
        return false;
    };
    host().editText(*this, std::move(request));
    return true;
}

bool FileField::drop(const std::string& path)
{
    set(path);
    return true;
}

void FileField::set(const std::string& path)
{
    refusal_.clear();
    if (!model().effect().setText(text_, path.c_str())) refusal_ = model().effect().textRefusal();
    damage();
}

bool FileField::isListed(const std::string& name) const
{
    if (info_.kind == VNK::TextKind::Folder) return false;
    const char* types = model().effect().getString("fileTypes");
    if (!types || !*types) return true;
    std::string_view all = types;
    const auto dot = name.rfind('.');
    const auto extension = dot == std::string::npos ? std::string() : name.substr(dot + 1);
    const auto isSame = [&](std::string_view type) {
        return std::equal(type.begin(), type.end(), extension.begin(), extension.end(),
                          [](char a, char b) { return a == (b >= 'A' && b <= 'Z' ? b + 32 : b); });
    };
    while (!all.empty()) {
        const auto type = all.substr(0, all.find(';'));
        if (isSame(type)) return true;
        all.remove_prefix(std::min(all.size(), type.size() + 1));
    }
    return false;
}

void FileField::open(const std::string& folder)
{
    ListContent list;
    list.hasSearch = true;
    list.leastWidth = std::max(bounds().w, 280.0);
    list.entries.push_back({folder, {}});
    const auto enter = [this](std::string name, std::string path) {
        ListEntry entry{std::move(name), [this, path = std::move(path)] { open(path); }};
        entry.opensList = true;
        return entry;
    };
    if (folder != "/") list.entries.push_back(enter("..", fs::path(folder).parent_path().string()));
    std::vector<std::string> folders, files;
    std::error_code error;
    for (fs::directory_iterator at(folder, fs::directory_options::skip_permission_denied, error),
         end;
         !error && at != end; at.increment(error)) {
        const auto name = at->path().filename().string();
        if (name.starts_with(".")) continue;
        std::error_code ignored;
        if (at->is_directory(ignored))
            folders.push_back(name);
        else if (isListed(name))
            files.push_back(name);
    }
    std::sort(folders.begin(), folders.end());
    std::sort(files.begin(), files.end());
    const auto whole = [&](const std::string& name) { return (fs::path(folder) / name).string(); };
    if (info_.kind == VNK::TextKind::Folder)
        list.entries.push_back({"This folder", [this, folder] { set(folder); }});
    for (const auto& name : folders) list.entries.push_back(enter(name + "/", whole(name)));
    for (const auto& name : files) {
        ListEntry entry{name, [this, path = whole(name)] { set(path); }};
        entry.isChecked = whole(name) == path();
        list.entries.push_back(std::move(entry));
    }
    list.entries.push_back({"None", [this] { set(info_.defaultText); }});
    host().openList(bounds(), std::move(list));
}

Tip FileField::tip() const
{
    return {info_.title, info_.help, {path().empty() ? "None" : path()}};
}

}  // namespace quillworks::editors
