// SPDX-License-Identifier: ISC
// Part of the build: holds the theme against the module's classes once, so that loading need not.
#include <cstdio>
#include <string>

#include "vnk/module_component.h"
#include "vnk/plugin_manager.h"

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s MODULE RESOURCES\n", argv[0]);
        return 2;
    }
    std::string reason;
    const auto module = VNK::LoadedModule::load(argv[1], reason);
    if (module) {
        auto& factory = module->factory();
        VNK::ModuleComponent component(factory.moduleId(), factory.moduleInformation());
        if (component.stampTheme(argv[2], factory, reason)) return 0;
    }
    std::fprintf(stderr, "%s: %s\n", argv[0], reason.c_str());
    return 1;
}
