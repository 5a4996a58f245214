// SPDX-License-Identifier: ISC
#include "text.h"

#include <algorithm>
#include <numeric>
#include <vector>

namespace quillhost {
namespace {

/// Insertions, deletions, substitutions and swaps of neighbours that turn a into b (optimal string
/// alignment distance).
std::size_t distance(std::string_view a, std::string_view b)
{
    std::vector<std::size_t> older(b.size() + 1), old(b.size() + 1), now(b.size() + 1);
    std::iota(old.begin(), old.end(), std::size_t{0});
    for (std::size_t i = 1; i <= a.size(); ++i) {
        now[0] = i;
        for (std::size_t j = 1; j <= b.size(); ++j) {
            now[j] = std::min({old[j] + 1, now[j - 1] + 1, old[j - 1] + (a[i - 1] != b[j - 1])});
            if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1])
                now[j] = std::min(now[j], older[j - 2] + 1);
        }
        older.swap(old);
        old.swap(now);
    }
    return old[b.size()];
}

}  // namespace

std::string folded(std::string_view name)
{
    std::string text;
    for (const char c : name)
        if (c != ' ' && c != '-' && c != '_')
            text += c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
    return text;
}

std::string nearest(std::string_view word, std::span<const std::string> names)
{
    constexpr std::size_t kShown = 3;
    const std::string wanted = folded(word);
    std::vector<std::pair<std::size_t, const std::string*>> ranked;
    for (const auto& name : names) {
        const std::string candidate = folded(name);
        std::size_t d = distance(wanted, candidate);
        // A part of the name counts as close, whatever the rest is.
        if (wanted.size() > 1 && candidate.find(wanted) != std::string::npos) d = d > 0 ? 1 : 0;
        ranked.emplace_back(d, &name);
    }
    std::stable_sort(ranked.begin(), ranked.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    std::string text;
    for (std::size_t i = 0; i < std::min(kShown, ranked.size()); ++i)
        text += (i ? ", " : "(nearest: ") + *ranked[i].second;
    return text.empty() ? text : text + ")";
}

std::string escaped(std::string_view text)
{
    constexpr char kDigits[] = "0123456789abcdef";
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto c = static_cast<unsigned char>(text[i]);
        const auto next = i + 1 < text.size() ? static_cast<unsigned char>(text[i + 1]) : 0;
        const bool isC1 = c == 0xC2 && next >= 0x80 && next < 0xA0;  // as UTF-8
        if (c == '\n' || c == '\t' || c == '\r') {
            result += c == '\n' ? "\\n" : c == '\t' ? "\\t" : "\\r";
        } else if (c < ' ' || c == 0x7F || isC1) {
            const auto shown = isC1 ? static_cast<unsigned char>(text[++i]) : c;
            result += {'\\', 'x', kDigits[shown >> 4], kDigits[shown & 15]};
        } else {
            result += text[i];
        }
    }
    return result;
}

std::string inQuotes(std::string_view text)
{
    std::string result = "\"";
    return result.append(escaped(text)).append("\"");
}

std::string fixedText(double value, int digits)
{
    if (std::isnan(value)) return "-";
    char buffer[400];
    std::string text(
        buffer,
        std::to_chars(buffer, buffer + sizeof buffer, value, std::chars_format::fixed, digits).ptr);
    const bool isZero = text.find_first_not_of("-0.") == std::string::npos;
    return isZero && text.front() == '-' ? text.substr(1) : text;
}

double asShown(float value)
{
    if (!std::isfinite(value)) return value;
    double result = value;
    readNumber(shortText(value), result);
    return result;
}

}  // namespace quillhost
