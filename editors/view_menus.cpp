// SPDX-License-Identifier: ISC
// What a view opens above itself: tips, lists, the menu and the presets.
#include <cmath>

#include "editors/view.h"

namespace quillworks::editors {
namespace {

constexpr double kScales[] = {0.75, 1, 1.25, 1.5, 1.75, 2, 2.5, 3};

std::string percent(double factor)
{
    return std::to_string(std::lround(factor * 100)) + " %";
}

}  // namespace

void View::showTip(const Tip& tip, const Rect& anchor)
{
    if (tip.title.empty() || !host_) return;
    auto popup = std::make_shared<TipPopup>(look(), tip);
    Point place{anchor.x, anchor.bottom() + 6};
    // Of what is large the tip stands beside the pointer.
    if (anchor.h > 120 && anchor.contains(pointer_.x, pointer_.y))
        place = {pointer_.x + 12, pointer_.y + 18};
    tip_ = popup;
    const auto p = pixels({place.x, place.y, 1, 1});
    host_->showPopup(std::move(popup), p.x, p.y);
}

void View::hideTip()
{
    if (!tip_) return;
    tip_.reset();
    if (host_) host_->showPopup(nullptr, 0, 0);
}

void View::openList(const Rect& anchor, ListContent content)
{
    if (!host_) return;
    hideTip();
    const bool needsKeyboard = content.hasSearch || isKeyboardMode_;
    auto popup = std::make_shared<ListPopup>(look(), std::move(content),
                                             [this](std::function<void()> chosen) {
                                                 popup_.reset();
                                                 if (!host_) return;
                                                 host_->showPopup(nullptr, 0, 0);
                                                 if (chosen) chosen();
                                                 if (!popup_ && !entry_ && !isKeyboardMode_)
                                                     host_->wantKeyboard(false);
                                             });
    popup_ = popup;
    if (needsKeyboard) host_->wantKeyboard(true);
    host_->showPopup(std::move(popup), static_cast<int>(std::lround(anchor.x * scale_)),
                     static_cast<int>(std::lround((anchor.bottom() + 2) * scale_)));
}

void View::copyText(const std::string& text)
{
    if (host_) host_->copyText(text);
}

std::string View::pasteText()
{
    return host_ ? host_->pasteText() : std::string();
}

std::vector<ListEntry> View::commonEntries()
{
    std::vector<ListEntry> entries;
    if (auto* editing = model_.editing()) {
        ListEntry copy{editing->comparedSet() ? "Copy the setting to A" : "Copy the setting to B",
                       [editing] { editing->copyToOtherSet(); }};
        copy.startsGroup = true;
        entries.push_back(std::move(copy));
    }
    ListEntry scale{
        "Scale: " + percent(scale_), [this] {
            ListContent list;
            for (const double factor : kScales) {
                ListEntry entry{percent(factor), [this, factor] { chooseScale(factor); }};
                entry.isChecked = factor == scale_;
                list.entries.push_back(std::move(entry));
            }
            openList({pointer_.x, pointer_.y, 0, 0}, std::move(list));
        }};
    scale.opensList = scale.startsGroup = true;
    entries.push_back(std::move(scale));
    const bool hasContrast = theme_->variant() == "contrast";
    ListEntry variant{"High contrast", [this, hasContrast] {
                          setVariant(hasContrast ? "dark" : "contrast");
                          remember();
                      }};
    variant.isChecked = hasContrast;
    entries.push_back(std::move(variant));
    return entries;
}

void View::askName(const std::string& text,
                   std::function<bool(const std::string&, std::string&)> take)
{
    for (const auto& part : parts_) {
        if (part.control->kind() != "Presets") continue;
        TextRequest request;
        request.field = part.control->bounds();
        request.text = text;
        request.take = std::move(take);
        return editText(*part.control, std::move(request));
    }
}

std::vector<ListEntry> View::presetEntries()
{
    std::vector<ListEntry> entries;
    if (!presets_.canSave()) return entries;
    if (presets_.isOwn()) {
        const char* program = model_.effect().programName();
        entries.push_back({"Save preset", [this, name = std::string(program ? program : "")] {
                               std::string reason;
                               if (!presets_.save(name, true, reason))
                                   showTip({reason, {}, {}}, {pointer_.x, pointer_.y, 0, 0});
                           }});
        entries.push_back({"Rename preset…", [this] {
                               askName(presets_.name(), [this](const auto& name, auto& reason) {
                                   return presets_.rename(name, reason);
                               });
                           }});
        entries.push_back({"Delete preset", [this] {
                               std::string reason;
                               if (!presets_.remove(reason))
                                   showTip({reason, {}, {}}, {pointer_.x, pointer_.y, 0, 0});
                           }});
    }
    entries.push_back({"Save preset as…", [this] {
                           askName(presets_.name(), [this](const auto& name, auto& reason) {
                               return presets_.save(name, false, reason);
                           });
                       }});
    return entries;
}

void View::openMenu(const Rect& anchor)
{
    ListContent menu;
    menu.entries = presetEntries();
    if (auto* editing = model_.editing()) {
        ListEntry lock{"Presets leave the mix",
                       [editing] { editing->setWetLocked(!editing->isWetLocked()); }};
        lock.isChecked = editing->isWetLocked();
        lock.startsGroup = true;
        menu.entries.push_back(std::move(lock));
    }
    for (auto& entry : commonEntries()) menu.entries.push_back(std::move(entry));
    ListEntry keyboard{"Keyboard control", [this] { setKeyboardMode(!isKeyboardMode_); }};
    keyboard.isChecked = isKeyboardMode_;
    menu.entries.push_back(std::move(keyboard));
    ListEntry tips{"Tool tips", [this] {
                       settings_.tips = !settings_.tips;
                       remember();
                   }};
    tips.isChecked = settings_.tips;
    menu.entries.push_back(std::move(tips));
    openList(anchor, std::move(menu));
}

}  // namespace quillworks::editors
