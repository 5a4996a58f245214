// SPDX-License-Identifier: ISC
#include "adapters/lv2/turtle/turtle.h"

#include <charconv>

namespace quillworks::lv2::turtle {

std::string text(std::string_view s)
{
    std::string out = "\"";
    for (const char c : s) {
        if (c == '"' || c == '\\') out += '\\';
        if (c == '\n')
            out += "\\n";
        else
            out += c;
    }
    return out + "\"";
}

std::string number(float value)
{
    char digits[64];
    const auto end =
        std::to_chars(digits, digits + sizeof digits, value, std::chars_format::fixed).ptr;
    std::string out(digits, end);
    if (out.find('.') == out.npos) out += ".0";
    return out;
}

std::string integer(int value)
{
    return std::to_string(value);
}

std::string iri(std::string_view uri)
{
    return std::string("<").append(uri).append(">");
}

std::string Node::joined(const std::string& indent) const
{
    std::string out;
    for (std::size_t i = 0; i < statements_.size(); ++i)
        out += (i ? " ;\n" + indent : "") + statements_[i];
    return out;
}

std::string Node::of(std::string_view subject) const
{
    return std::string(subject) + "\n    " + joined("    ") + " .\n\n";
}

std::string Node::inBrackets(int indent) const
{
    const std::string pad(static_cast<std::size_t>(indent), ' ');
    return "[\n" + pad + "    " + joined(pad + "    ") + "\n" + pad + "]";
}

std::string list(const std::vector<std::string>& items, std::string_view separator)
{
    std::string out;
    for (std::size_t i = 0; i < items.size(); ++i)
        out += (i ? std::string(separator) : "") + items[i];
    return out;
}

}  // namespace quillworks::lv2::turtle
