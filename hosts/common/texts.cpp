// SPDX-License-Identifier: ISC
// Texts of effects and the files they name.
#include <filesystem>
#include <string_view>

#include "session.h"
#include "text.h"

namespace quillhost {
int Effect::findText(const std::string& key) const
{
    for (int i = 0; i < component_->countTexts(); ++i)
        if (sameName(text(i).key, key)) return i;
    return -1;
}

VNK::TextInfo Effect::text(int index) const
{
    VNK::TextInfo info;
    component_->getTextInfo(index, info);
    return info;
}

void Effect::setText(int index, const std::string& value) const
{
    const auto info = text(index);
    const bool isPath = info.kind != VNK::TextKind::Plain && !value.empty() &&
                        !value.starts_with(VNK::kFactoryPrefix);
    const auto given =
        isPath ? std::filesystem::absolute(value).lexically_normal().string() : value;
    if (!component_->setText(index, given.c_str()))
        throw WorkError(name() + ": " + info.key + "=" + value + ": " + component_->textRefusal());
}

std::vector<std::string> Effect::problems() const
{
    std::vector<std::string> all;
    for (int i = 0; i < component_->countTexts(); ++i)
        if (const std::string problem = component_->textProblem(i); !problem.empty())
            all.push_back(name() + ": " + problem);
    return all;
}

std::vector<std::string> Session::classAttribute(const Effect& effect, const std::string& key) const
{
    std::vector<std::string> parts;
    for (int c = 0; c < factory().countClasses(); ++c) {
        if (factory().getClass(c)->classId.text() != effect.classId()) continue;
        for (int i = 0; const auto* attribute = factory().getAttribute(c, i); ++i) {
            if (attribute->key != key || !attribute->text) continue;
            for (std::string_view rest = attribute->text; !rest.empty();) {
                const auto part = rest.substr(0, rest.find(';'));
                parts.emplace_back(part);
                rest.remove_prefix(std::min(rest.size(), part.size() + 1));
            }
        }
    }
    return parts;
}

}  // namespace quillhost
