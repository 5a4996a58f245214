// SPDX-License-Identifier: ISC
#include "dsp/vector_table.h"

#include <string_view>

namespace quillworks {
namespace {

// clang-format off
constexpr VectorTable kUnbound = {
    {
        {"opSet_float_d1_c1_num", {}}, {"opSet_double_d1_c1_num", {}},
        {"opCopy_float_d1_s1_num", {}}, {"opCopy_double_d1_s1_num", {}},
        {"opAddInplace_float_d1_s1_num", {}}, {"opAddInplace_double_d1_s1_num", {}},
        {"opSubInplace_float_d1_s1_num", {}}, {"opSubInplace_double_d1_s1_num", {}},
        {"opMulInplace_float_d1_s1_num", {}}, {"opMulInplace_double_d1_s1_num", {}},
        {"opAddCopy_float_d1_s1_s2_num", {}}, {"opAddCopy_double_d1_s1_s2_num", {}},
        {"opSubCopy_float_d1_s1_s2_num", {}}, {"opSubCopy_double_d1_s1_s2_num", {}},
        {"opMulCopy_float_d1_s1_s2_num", {}}, {"opMulCopy_double_d1_s1_s2_num", {}},
        {"opFloatToDouble_d1_s1_num", {}},
        {"opDoubleToFloat_d1_s1_num", {}},
        {"opFloatToDoubleGain_d1_s1_c1_num", {}},
        {"opDoubleToFloatGain_d1_s1_c1_num", {}},
        {"opMulConstConst_float_d1_s1_c1", {}}, {"opMulConstConst_double_d1_s1_c1", {}},
        {"opMulConst_float_d1_s0_c1", {}}, {"opMulConst_double_d1_s0_c1", {}},
        {"opAddConst_float_d1_s0_c1", {}}, {"opAddConst_double_d1_s0_c1", {}},
        {"opBlend_float_d1_s0_c2", {}}, {"opBlend_double_d1_s0_c2", {}},
        {"opBlendCopy_float_d1_s1_c2", {}}, {"opBlendCopy_double_d1_s1_c2", {}},
        {"opRamp_float_d1_s0_c2", {}}, {"opRamp_double_d1_s0_c2", {}},
        {"opAddBlended_float_d1_s1_c2", {}}, {"opAddBlended_double_d1_s1_c2", {}},
        {"opAddScaled_float_d1_s1_c1", {}}, {"opAddScaled_double_d1_s1_c1", {}},
        {"opAddScaled_float_d1_s2_c1", {}}, {"opAddScaled_double_d1_s2_c1", {}},
        {"opAddScaled_float_d1_s2_c2", {}}, {"opAddScaled_double_d1_s2_c2", {}},
        {"opAddScale_float_d1_s2_c1", {}}, {"opAddScale_double_d1_s2_c1", {}},
        {"opSubScale_float_d1_s2_c1", {}}, {"opSubScale_double_d1_s2_c1", {}},
        {"opComplement_float_d1_s0_c1", {}}, {"opComplement_double_d1_s0_c1", {}},
        {"opOffRanged_float_d1_s0_c3", {}}, {"opOffRanged_double_d1_s0_c3", {}},
        {"opOffRanged_float_d1_s1_c3", {}}, {"opOffRanged_double_d1_s1_c3", {}},
        {"opClampMax_float_d1_s0_c1", {}}, {"opClampMax_double_d1_s0_c1", {}},
        {"opClampMin_float_d1_s0_c1", {}}, {"opClampMin_double_d1_s0_c1", {}},
        {"opMax_float_d1_s1_c0", {}}, {"opMax_double_d1_s1_c0", {}},
        {"opMin_float_d1_s1_c0", {}}, {"opMin_double_d1_s1_c0", {}},
        {"opMaxAbs_float_d1_s2_c0", {}}, {"opMaxAbs_double_d1_s2_c0", {}},
        {"opMaxAbs_float_d1_s1_c0", {}}, {"opMaxAbs_double_d1_s1_c0", {}},
        {"opAbsMax_float_d1_s2_c0", {}}, {"opAbsMax_double_d1_s2_c0", {}},
        {"opAbsMax_float_d1_s1_c0", {}}, {"opAbsMax_double_d1_s1_c0", {}},
        {"opAbsCopy_float_d1_s1_c0", {}}, {"opAbsCopy_double_d1_s1_c0", {}},
        {"opAbsInplace_float_d1_s0_c0", {}}, {"opAbsInplace_double_d1_s0_c0", {}},
        {"opSign_float_d1_s1_c0", {}}, {"opSign_double_d1_s1_c0", {}},
        {"opClear_float_d1_s0_c0", {}}, {"opClear_double_d1_s0_c0", {}},
        {"opAddScaled_df1_sd1_cf1", {}},
        {"opAddScaled_dd1_sf1_cf1", {}},
        {"opVu_float_d1_s0_c0_o1", {}}, {"opVu_double_d1_s0_c0_o1", {}},
        {"opGainVu_float_d1_s0_c2_o1", {}}, {"opGainVu_double_d1_s0_c2_o1", {}},
        {"opGainVu_float_d1_s0_c1_o1", {}}, {"opGainVu_double_d1_s0_c1_o1", {}},
    },
    false,
};
// clang-format on

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
