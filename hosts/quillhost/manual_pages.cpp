// SPDX-License-Identifier: ISC
#include "manual_pages.h"

#include <algorithm>
#include <filesystem>
#include <map>

#include "effect_info.h"
#include "error.h"
#include "manual_page.h"
#include "output_file.h"
#include "skin_file.h"
#include "vnk/file.h"

namespace quillhost {
namespace {

constexpr std::size_t kLargestPage = 1 << 20;
constexpr const char* kIndex = "README.md";

struct Page {
    std::string file;     // in the folder
    std::string picture;  // likewise; none of the index
    int width = 0, height = 0;
    std::string text;
};

std::string readNotes(const std::string& folder, const std::string& file)
{
    std::string text, reason;
    const auto path = folder + "/notes/" + file;
    if (!VNK::readFile(path.c_str(), kLargestPage, text, reason))
        throw WorkError(path + ": " + reason);
    return text;
}

/// Pages in the order of the module, the index behind them.
std::vector<Page> pagesOf(const Session& session, const std::string& folder)
{
    const auto skin = skinOf(session.resourcesFolder());
    std::vector<Page> pages;
    std::vector<std::pair<std::string, std::string>> groups;  // by their first effect
    for (const auto* description : session.classes()) {
        const Effect effect = session.create(*description);
        const auto name = pageName(effect.name());
        const auto notes = manualNotes(readNotes(folder, name + ".md"));
        Page page{name + ".md", "pictures/" + name + ".png", 0, 0, {}};
        page.text = manualPage(session, effect, notes);
        const auto views = viewsOf(effect);
        if (const auto* form = views.empty() ? nullptr : skin.findView(views[0])) {
            page.width = form->width * skin.unit;
            page.height = form->height * skin.unit;
        }
        pages.push_back(std::move(page));

        const auto group = effect.subCategory();
        auto at = std::find_if(groups.begin(), groups.end(),
                               [&](const auto& each) { return each.first == group; });
        if (at == groups.end()) at = groups.insert(at, {group, ""});
        at->second += "| [" + effect.name() + "](" + name + ".md) | " + notes.summary + " |\n";
    }
    auto index = readNotes(folder, kIndex);
    for (const auto& [group, rows] : groups)
        index += "\n## " + group + "\n\n| effect | what it is for |\n|---|---|\n" + rows;
    pages.push_back({kIndex, "", 0, 0, index});
    return pages;
}

/// Empty where the picture is as the form; else what is wrong with it.
std::string pictureFault(const std::string& path, const Page& page)
{
    std::string png, reason;
    if (!VNK::readFile(path.c_str(), kLargestPage, png, reason)) return "cannot be read";
    // The first chunk behind the signature is the header: its size in big-endian words.
    constexpr std::string_view kBegin("\x89PNG\r\n\x1A\n\0\0\0\rIHDR", 16);
    if (!png.starts_with(kBegin) || png.size() < kBegin.size() + 8) return "is no picture";
    const auto word = [&](std::size_t at) {
        int value = 0;
        for (std::size_t i = 0; i < 4; ++i)
            value = value * 256 + static_cast<unsigned char>(png[at + i]);
        return value;
    };
    const int width = word(kBegin.size()), height = word(kBegin.size() + 4);
    if (width == page.width && height == page.height) return "";
    return "has " + std::to_string(width) + " x " + std::to_string(height) + " pixels, the form " +
           std::to_string(page.width) + " x " + std::to_string(page.height);
}

}  // namespace

void writeManual(const Session& session, const std::string& folder)
{
    for (const auto& page : pagesOf(session, folder)) {
        OutputFile file(folder + "/" + page.file);
        file.write(page.text);
        file.finish();
    }
}

std::vector<std::string> manualFaults(const Session& session, const std::string& folder)
{
    std::vector<std::string> faults;
    std::map<std::string, bool> known;
    for (const auto& page : pagesOf(session, folder)) {
        known[page.file] = true;
        std::string text, reason;
        if (!VNK::readFile((folder + "/" + page.file).c_str(), kLargestPage, text, reason))
            faults.push_back(page.file + " cannot be read");
        else if (text != page.text)
            faults.push_back(page.file + " is not current");
        if (page.picture.empty()) continue;
        if (const auto fault = pictureFault(folder + "/" + page.picture, page); !fault.empty())
            faults.push_back(page.picture + " " + fault);
    }
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error))
        if (const auto file = entry.path().filename().string();
            file.ends_with(".md") && !known.contains(file))
            faults.push_back(file + " is of no effect");
    std::sort(faults.begin(), faults.end());
    return faults;
}

}  // namespace quillhost
