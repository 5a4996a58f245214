// SPDX-License-Identifier: ISC
// The buffers of the effects take their memory from the host's service while the module is loaded.
#include "dsp/aligned_buffer.h"
#include "module/initialisers.h"
#include "vnk/memory.h"

namespace quillworks {
namespace {

constexpr BufferMemory kOfTheHost{core_malloc, core_free,
                                  [](std::size_t bytes) noexcept { return core_calloc(1, bytes); }};
const BufferMemory* gOwn = nullptr;

const bool kIsRegistered = [] {
    moduleInitialisers().add({[](void*) {
                                  gOwn = &BufferMemory::exchangeService(kOfTheHost);
                                  return true;
                              },
                              [](void*) { BufferMemory::exchangeService(*gOwn); }, nullptr});
    return true;
}();

}  // namespace
}  // namespace quillworks
