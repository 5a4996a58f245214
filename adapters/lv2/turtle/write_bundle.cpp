// SPDX-License-Identifier: ISC
// Writes the Turtle files of the bundle from what the module says of itself. Run by the build.
#include <cstdio>
#include <exception>
#include <filesystem>
#include <set>
#include <stdexcept>
#include <string>

#include "adapters/lv2/turtle/plugin_turtle.h"
#include "vnk/file.h"
#include "vnk/module_component.h"

namespace quillworks::lv2 {
namespace {

void write(const std::string& file, const std::string& text)
{
    std::string reason;
    if (!VNK::writeFile(file.c_str(), text.data(), text.size(), reason))
        throw std::runtime_error(file + ": " + reason);
}

/// Songs and generated files hold on to symbols: none may be there twice.
void check(const Plugin& plugin)
{
    std::set<std::string> symbols;
    for (const auto& port : plugin.ports)
        if (!symbols.insert(port.symbol).second)
            throw std::runtime_error(plugin.uri + " has two ports " + port.symbol);
}

void writeBundle(const std::string& folder, const std::string& binary, const std::string& ui)
{
    const Catalogue catalogue;
    if (catalogue.plugins().empty()) throw std::runtime_error("the module does not load");
    for (const auto& old : VNK::listFiles(folder.c_str(), ".ttl")) std::filesystem::remove(old);
    std::string manifest = turtleHeader() + ownProperties() + announceEditor(ui);
    for (const auto& plugin : catalogue.plugins()) {
        check(plugin);
        manifest += announce(catalogue, plugin, binary);
        write(folder + "/" + plugin.fileName + ".ttl", describe(catalogue, plugin));
        if (const auto presets = describePresets(catalogue, plugin); !presets.empty())
            write(folder + "/" + plugin.fileName + "-presets.ttl", presets);
    }
    write(folder + "/manifest.ttl", manifest);

    std::string reason;
    auto& factory = catalogue.factory();
    VNK::ModuleComponent module(factory.moduleId(), factory.moduleInformation());
    if (!module.stampTheme(folder + "/resources", factory, reason))
        throw std::runtime_error(reason);
}

}  // namespace
}  // namespace quillworks::lv2

int main(int argc, char** argv)
{
    if (argc != 4) {
        std::fprintf(stderr, "usage: %s FOLDER BINARY BINARY_WITH_EDITORS\n", argv[0]);
        return 2;
    }
    try {
        quillworks::lv2::writeBundle(argv[1], argv[2], argv[3]);
        return 0;
    } catch (const std::exception& e) {
        std::fprintf(stderr, "%s: %s\n", argv[0], e.what());
        return 1;
    }
}
