// SPDX-License-Identifier: ISC
#include "dsp/vector_table.h"

#include <string_view>

namespace quillworks {
namespace {

constexpr VectorTable kUnbound = {
    {
#define TYPED(front, operation, operands, sources, constants, result, law)                         \
    {operation "_float" operands, {}}, {operation "_double" operands, {}},
#define MIXED(id, front, name, D, S, C, constants, law) {name, {}},
        VECTORLIB_OPERATIONS(TYPED, MIXED)
#undef TYPED
#undef MIXED
    },
    false,
};

/// Binds the process's table when this binary is loaded.
struct BindAtLoad {
    BindAtLoad()
    {
        bindVectorTable(vectorTable, DSP::VectorLib::vectorLibraryInfo,
                        DSP::VectorLib::vectorLibraryBindFunction);
    }
};

}  // namespace

constinit VectorTable vectorTable = kUnbound;

namespace {
// Ahead of every static object of default priority, which may then use the kernels already.
[[gnu::init_priority(101), maybe_unused]] const BindAtLoad bindAtLoad;
}  // namespace

VectorTable makeVectorTable()
{
    return kUnbound;
}

void bindVectorTable(VectorTable& table, LibraryInfoFunction info, LibraryBindFunction bind)
{
    if (table.bound) return;
    DSP::VectorLib::LibraryInfo library{};
    info(&library, DSP::VectorLib::kPermitAll);
    if (library.version != 1 || library.callingConvention == nullptr ||
        std::string_view(library.callingConvention) != "vectorcall")
        return;
    for (auto& entry : table.entries)
        if (!bind(&entry, DSP::VectorLib::kPermitAll)) return;
    table.bound = true;
}

}  // namespace quillworks
