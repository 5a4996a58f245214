// SPDX-License-Identifier: ISC
// Loads a module file and unloads it again.
#pragma once

#include <memory>
#include <string>

#include "vnk/class_factory.h"

namespace VNK {

/// A loaded module: load and unload are called in pairs. Whatever its factory has created must be
/// released before. [main thread]
class VNK_API LoadedModule {
public:
    /// Null with one line of reason when there is no path, the file is no library, lacks one of the
    /// two exports, or says no to being loaded (it has told why by a debug message then).
    static std::unique_ptr<LoadedModule> load(const char* path, std::string& reason);
    ~LoadedModule();
    LoadedModule(const LoadedModule&) = delete;
    LoadedModule& operator=(const LoadedModule&) = delete;

    IClassFactory& factory() const noexcept { return *factory_; }

private:
    LoadedModule() = default;

    void* library_ = nullptr;
    VNKModuleMainFunction main_ = nullptr;
    Ref<IClassFactory> factory_;
};

}  // namespace VNK
