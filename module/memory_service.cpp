// SPDX-License-Identifier: ISC
// The buffers of the effects take their memory from the host's service while the module is loaded.
#include "dsp/aligned_buffer.h"
#include "module/initialisers.h"
#include "vnk/memory.h"

namespace quillworks {
namespace {

BufferMemory gOwn;

const bool kIsRegistered = [] {
    moduleInitialisers().add({[](void*) {
                                  gOwn = BufferMemory::service();
                                  BufferMemory::service() = {core_malloc, core_free};
                                  return true;
                              },
                              [](void*) { BufferMemory::service() = gOwn; }, nullptr});
    return true;
}();

}  // namespace
}  // namespace quillworks
