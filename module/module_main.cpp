// SPDX-License-Identifier: ISC
#include "module/module_main.h"

#include <memory>
#include <optional>

#include "framework/resources.h"
#include "module/class_registry.h"
#include "module/initialisers.h"
#include "module/module_info.h"
#include "vnk/module_component.h"

namespace quillworks {
namespace {

std::optional<void*> gModule;  // the handle, which may be null, while the module is loaded
VNK::Ref<VNK::IClassFactory> gFactory;
std::unique_ptr<VNK::ModuleComponent> gComponent;

/// False, and the factory empty or partly filled, without memory.
bool fill(VNK::IClassFactory& factory)
{
    if (factory.countClasses() != 0) return true;
    factory.setModuleInformation(kModuleInformation);
    factory.setModuleId(kModuleId);
    return registerClasses(factory);
}

/// The module insists on its theme: an effect without its views is no use in a workstation.
bool startUp()
{
    // The forms name effects and parameters: they are checked against a factory of their own, since
    // the one the host asks for is only made when it asks.
    const auto classes = VNK::Ref<VNK::IClassFactory>::adopt(VNKCreateClassFactory());
    if (!classes || !fill(*classes)) return false;
    gComponent = std::make_unique<VNK::ModuleComponent>(kModuleId, kModuleInformation);
    return gComponent->loadTheme(resourcesFolder(), *classes);
}

void shutDown() noexcept
{
    moduleInitialisers().tearDown();
    gComponent.reset();
    gFactory = {};
    gModule.reset();
}

bool load(void* module)
{
    if (gModule) return gComponent != nullptr;  // loaded already, or refused and not unloaded since
    gModule = module;
    if (!moduleInitialisers().run()) return false;  // the host unloads now, which undoes the rest
    if (startUp()) return true;
    shutDown();
    return false;
}

}  // namespace
}  // namespace quillworks

bool VNKModuleMain(void* module, std::int32_t reason)
{
    using namespace quillworks;
    try {
        if (reason == VNK::kModuleLoad) return load(module);
        if (reason == VNK::kModuleUnload && gModule) shutDown();
        return true;
    } catch (...) {
        shutDown();
        return false;
    }
}

VNK::IClassFactory* VNKGetClassFactory()
{
    using namespace quillworks;
    if (!gFactory) gFactory = VNK::Ref<VNK::IClassFactory>::adopt(VNKCreateClassFactory());
    if (!gFactory || !fill(*gFactory)) return nullptr;
    return VNK::Ref<VNK::IClassFactory>::share(gFactory.get()).detach();
}
