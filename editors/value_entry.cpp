// SPDX-License-Identifier: ISC
#include "editors/value_entry.h"

namespace quillworks::editors {

void setOnce(EffectModel& model, int parameter, float value)
{
    model.begin(parameter);
    model.set(parameter, value);
    model.end(parameter);
}

TextRequest valueRequest(EffectModel& model, int parameter, const Rect& field,
                         const std::string& text, bool isWhole)
{
    TextRequest request;
    request.field = field;
    request.text = text;
    request.isSelected = isWhole;
    request.take = [&model, parameter](const std::string& typed, std::string& reason) {
        float read = 0;
        if (!model.read(parameter, typed, read)) {
            const auto& info = model.info(parameter);
            reason = "Not a value of " + std::string(info.title) + ": " +
                     model.text(parameter, info.minimum) + " to " +
                     model.text(parameter, info.maximum);
            return false;
        }
        setOnce(model, parameter, read);
        return true;
    };
    return request;
}

bool beginsValue(const KeyEvent& event)
{
    return event.text.size() == 1 && !(event.modifiers & (kControl | kAlt)) &&
           std::string_view("0123456789-+.,").find(event.text[0]) != std::string_view::npos;
}

void addValueEntries(std::vector<ListEntry>& entries, ControlHost& host, int parameter,
                     std::function<void()> enter)
{
    auto& model = host.model();
    const auto& info = model.info(parameter);
    ListEntry title{info.title, {}};
    title.startsGroup = !entries.empty();
    entries.push_back(std::move(title));
    if (enter) entries.push_back({"Enter value…", std::move(enter)});
    entries.push_back(
        {"Default (" + model.text(parameter, info.defaultValue) + ")",
         [&model, parameter] { setOnce(model, parameter, model.info(parameter).defaultValue); }});
    entries.push_back(
        {"Copy", [&host, parameter] { host.copyText(host.model().text(parameter)); }});
    entries.push_back({"Paste", [&host, parameter] {
                           float read = 0;
                           if (host.model().read(parameter, host.pasteText(), read))
                               setOnce(host.model(), parameter, read);
                       }});
}

}  // namespace quillworks::editors
