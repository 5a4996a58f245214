// SPDX-License-Identifier: ISC
#include "vnk/plugin_manager.h"

#include <cstring>
#include <dlfcn.h>

#include "vnk/debug.h"

namespace VNK {

std::unique_ptr<LoadedModule> LoadedModule::load(const char* path, std::string& reason)
{
    if (!path || !*path) {  // the system would take the program itself
        reason = "a module needs a path";
        return nullptr;
    }
    std::unique_ptr<LoadedModule> module(new LoadedModule);
    module->library_ = dlopen(path, RTLD_NOW | RTLD_LOCAL);
    if (!module->library_) {
        const char* error = dlerror();
        reason = error ? error : "the library cannot be opened";
        return nullptr;
    }
    const auto symbol = [&](const char* name) {
        void* found = dlsym(module->library_, name);
        if (!found) reason = std::string("it is not a module: it does not export ") + name;
        return found;
    };
    const auto main = reinterpret_cast<VNKModuleMainFunction>(symbol("VNKModuleMain"));
    if (!main) return nullptr;
    const auto getFactory =
        reinterpret_cast<VNKGetClassFactoryFunction>(symbol("VNKGetClassFactory"));
    if (!getFactory) return nullptr;

    module->main_ = main;  // unloaded in any case: what a refusal left half done is undone then
    if (!main(module->library_, kModuleLoad)) {
        reason = "the module refuses to load";
        return nullptr;
    }
    module->factory_ = Ref<IClassFactory>::adopt(getFactory());
    if (!module->factory_) {
        reason = "the module has no class factory";
        return nullptr;
    }
    return module;
}

LoadedModule::~LoadedModule()
{
    factory_ = {};
    if (main_) main_(library_, kModuleUnload);
    if (library_) dlclose(library_);
}

}  // namespace VNK
