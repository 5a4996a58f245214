// SPDX-License-Identifier: ISC
// What a host asks of the file: which classes there are, and objects of them.
#pragma once

#include <atomic>
#include <memory>

#include "adapters/vst3/plugins.h"

namespace quillworks::vst3 {

/// The functions have the format's names. [main thread]
class Factory {
public:
    /// The process's factory with one more reference, null where the module does not load.
    static void* get() noexcept;

    v3_result queryInterface(const std::uint8_t* iid, void** object) noexcept;
    std::uint32_t ref() noexcept;
    std::uint32_t unref() noexcept;
    v3_result getFactoryInfo(v3_factory_info* info) noexcept;
    std::int32_t countClasses() noexcept;
    v3_result getClassInfo(std::int32_t index, v3_class_info* info) noexcept;
    v3_result createInstance(const std::uint8_t* id, const std::uint8_t* iid,
                             void** object) noexcept;
    v3_result getClassInfo2(std::int32_t index, v3_class_info_2* info) noexcept;
    v3_result getClassInfo3(std::int32_t index, v3_class_info_3* info) noexcept;
    v3_result setHostContext(v3_funknown** host) noexcept;

private:
    Factory();
    template <class Info> void describe(const Plugin& plugin, Info& info) const noexcept;
    const Plugin* at(std::int32_t index) const noexcept;

    std::shared_ptr<const Plugins> plugins_;
    std::atomic<std::uint32_t> references_{0};
    Face<Factory> face_;
};

}  // namespace quillworks::vst3
