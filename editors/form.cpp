// SPDX-License-Identifier: ISC
#include "editors/form.h"

#include <algorithm>
#include <cmath>

#include "editors/controls/display_control.h"
#include "editors/controls/file_field.h"
#include "editors/controls/knob.h"
#include "editors/controls/lists.h"
#include "editors/controls/readout.h"
#include "editors/controls/slider.h"
#include "editors/layout.h"

namespace quillworks::editors {
namespace {

constexpr double kPanelRadius = 6;
constexpr int kMicroHeight = 8;  // units up to which a form without header is laid out as a strip

class Builder {
public:
    Builder(ControlHost& host, const VNK::SkinView& view, const HeaderActions& actions,
            Fonts& fonts, const Theme& theme)
        : host_(host),
          view_(view),
          actions_(actions),
          fonts_(fonts),
          theme_(theme),
          pages_(pagesOf(view))
    {}

    std::vector<FormPart> make()
    {
        for (const auto& box : view_.boxes) {
            page_ = box.kind == "Header" ? -1 : pageOf(box);
            const Rect r{box.x * kUnit, box.y * kUnit, box.w * kUnit, box.h * kUnit};
            panel_ = box.title;
            if (box.kind == "Header") {
                Controls controls;
                makeHeader(host_, r, view_.name.ends_with("/Editor"), actions_, fonts_, theme_,
                           controls);
                for (auto& control : controls) add(std::move(control));
            } else if (box.kind == "Display") {
                add(std::make_unique<DisplayControl>(host_, box, r));
            } else if (view_.height <= kMicroHeight) {
                makeStrip(box, r);
            } else {
                makePanel(box, r);
            }
        }
        sortForTab();
        return std::move(parts_);
    }

private:
    int pageOf(const VNK::SkinBox& box) const
    {
        if (box.page.empty()) return 0;
        const auto at = std::find(pages_.begin() + 1, pages_.end(), box.page);
        return static_cast<int>(at - pages_.begin());
    }

    void add(std::unique_ptr<Control> control)
    {
        if (control) parts_.push_back({std::move(control), panel_, page_});
    }

    double width(Type type, const std::string& text) const
    {
        const auto& face = theme_.face(type);
        return fonts_.width(face.weight, face.size, withMinus(text));
    }
    double widest(Type type, const std::vector<std::string>& texts) const
    {
        double w = 0;
        for (const auto& text : texts) w = std::max(w, width(type, text));
        return w;
    }

    bool fitsSegments(int parameter, double room) const
    {
        const auto texts = choicesOf(host_.model(), parameter);
        return (widest(Type::Button, texts) + 4) * static_cast<double>(texts.size()) <= room;
    }

    std::unique_ptr<Control> makeControl(const VNK::SkinControl& skin, const Rect& r)
    {
        auto& model = host_.model();
        if (skin.kind == "Readout") return std::make_unique<Readout>(host_, skin, r);
        if (const int text = model.effect().findText(skin.key.c_str());
            skin.kind == "File" && text >= 0)
            return std::make_unique<FileField>(host_, skin, text, r);
        const int parameter = model.parameter(skin.key);
        if (parameter < 0) return nullptr;
        if (skin.kind == "Knob") return std::make_unique<Knob>(host_, skin, parameter, r);
        if (skin.kind == "Slider") return std::make_unique<Slider>(host_, skin, parameter, r);
        if (skin.kind == "Segments" && (r.isEmpty() || fitsSegments(parameter, r.w)))
            return std::make_unique<Segments>(host_, skin, parameter, r);
        if (skin.kind == "Segments") return std::make_unique<Choice>(host_, skin, parameter, r);
        if (skin.kind == "Choice") return std::make_unique<Choice>(host_, skin, parameter, r);
        return std::make_unique<Toggle>(host_, skin, parameter, r);
    }

    /// What a control needs: it is made once at no place to ask it for its texts.
    LayoutItem measure(const VNK::SkinControl& skin)
    {
        LayoutItem item;
        item.isKnob = skin.kind == "Knob";
        const auto control = makeControl(skin, {});
        if (item.isKnob || !control) return item;
        const double label = width(Type::Label, control->title());
        if (skin.kind == "Readout") {
            const auto& readout = static_cast<const Readout&>(*control);
            const double value = widest(Type::Value, readout.sampleTexts());
            item.least = std::max(value, width(Type::Axis, control->title()));
            item.good = label + 6 + value;
            item.most = 320;
        } else if (skin.kind == "Slider") {
            const auto& slider = static_cast<const ParameterControl&>(*control);
            const auto texts = slider.sampleTexts();
            item.least = width(Type::Axis, control->title()) + Slider::kNarrowGap +
                         widest(Type::Label, texts);
            item.good = std::max(label + 6 + widest(Type::Value, texts), Slider::kNarrow);
            item.most = 240;
        } else if (skin.kind == "Segments") {
            const auto texts = choicesOf(host_.model(), control->parameter());
            const double segments = static_cast<double>(texts.size()) * widest(Type::Button, texts);
            const auto count = static_cast<double>(texts.size());
            // Where they do not fit side by side they become a field.
            item.least = widest(Type::Button, texts) + kChoicePadding + kChoiceArrows;
            item.good = segments + count * kSegmentPadding + label + kLabelGap;
            item.most = 360;
        } else if (skin.kind == "Choice") {
            const auto texts = choicesOf(host_.model(), control->parameter());
            item.least = widest(Type::Button, texts) + kChoicePadding + kChoiceArrows;
            item.good = item.least + label + kLabelGap;
            item.most = 240;
        } else if (skin.kind == "File") {
            item.least = 120;
            item.good = 280;
            item.most = 2000;
        } else {
            item.least = width(Type::Button, control->title()) + 6;
            item.good = std::max(kRowHeight, item.least + 10);
            item.most = 176;
        }
        item.least = std::ceil(item.least);
        item.good = std::ceil(item.good);
        return item;
    }

    void makePanel(const VNK::SkinBox& box, const Rect& r)
    {
        add(std::make_unique<Ground>(host_, box.title, r, kPanelRadius));
        std::vector<LayoutItem> items;
        for (const auto& control : box.controls) items.push_back(measure(control));
        for (std::size_t i = 0; i < items.size(); ++i) {
            const auto under = box.controls[i].attributes.find("under");
            if (under == box.controls[i].attributes.end()) continue;
            for (std::size_t k = 0; k < items.size(); ++k)
                if (box.controls[k].key == under->second) items[i].under = static_cast<int>(k);
        }
        const auto places = layOutPanel(r.w, r.h, !box.title.empty(), items);
        for (std::size_t i = 0; i < items.size(); ++i)
            add(makeControl(box.controls[i], places[i].moved(r.x, r.y)));
    }

    /// A form too low for knobs: the switch and title above, what is set as sliders below.
    void makeStrip(const VNK::SkinBox& box, const Rect& r)
    {
        add(std::make_unique<Ground>(host_, "", r, 0));
        std::vector<VNK::SkinControl> above, below;
        for (auto control : box.controls) {
            const bool isReadout = control.kind == "Readout";
            if (control.kind == "Knob") control.kind = "Slider";
            (isReadout && above.empty() && box.controls.size() <= 3 ? above : below)
                .push_back(std::move(control));
        }
        const bool hasTitle = r.w >= view_.width * kUnit - 1;
        double y = r.y + (r.h - kRowHeight) / 2;
        double right = r.right() - 12;
        if (!above.empty() && hasTitle) {
            const double title = 38 + std::ceil(width(Type::CompactTitle, view_.title)) + 8;
            const double w = std::min(measure(above[0]).good, right - r.x - title);
            add(makeControl(above[0], {right - w, r.y + 3, w, kRowHeight}));
            right -= w + 8;
        } else {
            below.insert(below.begin(), above.begin(), above.end());
        }
        if (hasTitle) {
            double left = r.x + 8;
            if (auto power = makePower(host_, {left, r.y + 3, kRowHeight, kRowHeight})) {
                add(std::move(power));
                left += 30;
            }
            add(std::make_unique<Caption>(host_, view_.title,
                                          Rect{left, r.y + 3, right - left, kRowHeight},
                                          Type::CompactTitle, Color::Text));
            y = r.bottom() - kRowHeight - 3;
        }
        std::vector<LayoutItem> items;
        for (const auto& control : below) items.push_back(measure(control));
        const auto count = static_cast<double>(below.size());
        if (below.empty()) return;
        const double gap = below.size() < 3 ? 10 : 6;
        const double w = (r.w - 16 - gap * (count - 1)) / count;
        for (std::size_t i = 0; i < below.size(); ++i)
            add(makeControl(below[i],
                            {r.x + 8 + static_cast<double>(i) * (w + gap), y, w, kRowHeight}));
    }

    /// Reading order: the header, then panels and displays from the top and the left as they
    /// stand, and within them the same.
    void sortForTab()
    {
        std::stable_sort(parts_.begin(), parts_.end(),
                         [](const FormPart& a, const FormPart& b) { return a.page < b.page; });
    }

    ControlHost& host_;
    const VNK::SkinView& view_;
    const HeaderActions& actions_;
    Fonts& fonts_;
    const Theme& theme_;
    std::vector<std::string> pages_;
    std::vector<FormPart> parts_;
    std::string panel_;
    int page_ = 0;
};

/// Knobs, or buttons, that a panel of an automatic form takes before it goes on in another.
constexpr std::size_t kMostKnobs = 6, kMostButtons = 6;
constexpr int kFormWidth = 105, kPanelHeight = 20, kMargin = 2, kHeader = 5;

const char* kindFor(const VNK::ParameterInfo& info)
{
    if (info.has(VNK::isReadOnly)) return "Readout";
    if (info.has(VNK::isTrigger)) return "Button";
    if (info.kind == VNK::ValueKind::Toggle) return "Toggle";
    if (info.kind == VNK::ValueKind::List) return info.choices ? "Choice" : "Knob";
    return "Knob";
}

int widthFor(const VNK::SkinBox& panel)
{
    int knobs = 0, buttons = 0;
    for (const auto& control : panel.controls) {
        if (control.kind == "Knob")
            ++knobs;
        else
            buttons += control.kind == "Choice" ? 16 : 13;
    }
    return std::min(kFormWidth - 2 * kMargin, std::max({knobs * 9 + 2, buttons + 2, 11}));
}

}  // namespace

std::vector<std::string> pagesOf(const VNK::SkinView& view)
{
    std::vector<std::string> pages{"Main"};
    for (const auto& box : view.boxes)
        if (!box.page.empty() && std::find(pages.begin(), pages.end(), box.page) == pages.end())
            pages.push_back(box.page);
    return pages;
}

std::vector<FormPart> makeForm(ControlHost& host, const VNK::SkinView& view,
                               const HeaderActions& actions, Fonts& fonts, const Theme& theme)
{
    return Builder(host, view, actions, fonts, theme).make();
}

VNK::SkinView automaticForm(const EffectModel& model, const std::string& viewName,
                            const std::string& title)
{
    VNK::SkinView view;
    view.name = viewName;
    view.title = title;
    view.width = kFormWidth;
    std::vector<VNK::SkinBox> panels;
    const auto add = [&](const std::string& group, VNK::SkinControl control) {
        const bool isKnob = control.kind == "Knob";
        auto at = std::find_if(panels.rbegin(), panels.rend(),
                               [&](const auto& p) { return p.title == group; });
        const auto isFull = [&](const VNK::SkinBox& p) {
            const auto knobs = static_cast<std::size_t>(
                std::count_if(p.controls.begin(), p.controls.end(),
                              [](const auto& c) { return c.kind == "Knob"; }));
            return isKnob ? knobs >= kMostKnobs : p.controls.size() - knobs >= kMostButtons;
        };
        if (at == panels.rend() || isFull(*at)) {
            VNK::SkinBox panel;
            panel.kind = "Panel";
            panel.title = group;
            panels.push_back(std::move(panel));
            at = panels.rbegin();
        }
        at->controls.push_back(std::move(control));
    };
    for (int i = 0; i < model.effect().countTexts(); ++i) {
        VNK::TextInfo text;
        if (model.effect().getTextInfo(i, text) && text.kind != VNK::TextKind::Plain)
            add("File", {"File", text.key, {}});
    }
    for (int i = 0; i < model.countParameters(); ++i) {
        const auto& info = model.info(i);
        if (info.has(VNK::isHidden) || info.has(VNK::isBypass)) continue;
        const std::string group = info.group && *info.group ? info.group : title;
        add(group, {kindFor(info), info.key, {}});
    }
    VNK::SkinBox header;
    header.kind = "Header";
    header.w = kFormWidth;
    header.h = kHeader;
    view.boxes.push_back(header);
    int x = kMargin, y = kHeader + 1;
    for (auto& panel : panels) {
        panel.w = widthFor(panel);
        panel.h = kPanelHeight;
        if (x > kMargin && x + panel.w > kFormWidth - kMargin) {
            x = kMargin;
            y += kPanelHeight + 1;
        }
        panel.x = x;
        panel.y = y;
        x += panel.w + 1;
        view.boxes.push_back(std::move(panel));
    }
    view.height = y + (panels.empty() ? 0 : kPanelHeight) + 1;
    return view;
}

}  // namespace quillworks::editors
