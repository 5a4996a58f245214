// SPDX-License-Identifier: ISC
// Units of a plug-in: the groups of its parameters, and the list of its factory presets.
#include "adapters/vst3/instance.h"
#include "adapters/vst3/text.h"

namespace quillworks::vst3 {

std::int32_t Instance::getUnitCount() noexcept
{
    return static_cast<std::int32_t>(plugin_.units.size()) + 1;
}

v3_result Instance::getUnitInfo(std::int32_t unit, v3_unit_info* info) noexcept
{
    if (!info || unit < 0 || unit >= getUnitCount()) return V3_INVALID_ARG;
    *info = {};
    info->id = unit;
    info->parent_unit_id = unit == kRootUnit ? kNoParent : kRootUnit;
    info->program_list_id = unit == kRootUnit && hasPrograms() ? kProgramList : kNoPrograms;
    writeText(info->name, unit == kRootUnit ? plugin_.title
                                            : plugin_.units[static_cast<std::size_t>(unit - 1)]);
    return V3_OK;
}

std::int32_t Instance::getProgramListCount() noexcept
{
    return hasPrograms() ? 1 : 0;
}

v3_result Instance::getProgramListInfo(std::int32_t list, v3_program_list_info* info) noexcept
{
    if (!info || list < 0 || list >= getProgramListCount()) return V3_INVALID_ARG;
    *info = {};
    info->id = kProgramList;
    writeText(info->name, "Factory Presets");
    info->programCount = lastProgram() + 1;
    return V3_OK;
}

v3_result Instance::getProgramName(std::int32_t list, std::int32_t program,
                                   std::int16_t* name) noexcept
{
    if (!name || list != kProgramList || program < 0 || program > lastProgram())
        return V3_INVALID_ARG;
    writeText(name, std::size(v3_str_128{}), plugin_.programs[static_cast<std::size_t>(program)]);
    return V3_OK;
}

v3_result Instance::getProgramInfo(std::int32_t, std::int32_t, const char*, std::int16_t*) noexcept
{
    return V3_FALSE;
}

v3_result Instance::hasPitchNames(std::int32_t, std::int32_t) noexcept
{
    return V3_FALSE;
}

v3_result Instance::getPitchName(std::int32_t, std::int32_t, std::int16_t, std::int16_t*) noexcept
{
    return V3_FALSE;
}

std::int32_t Instance::getSelectedUnit() noexcept
{
    return kRootUnit;
}

v3_result Instance::selectUnit(std::int32_t unit) noexcept
{
    return unit >= 0 && unit < getUnitCount() ? V3_OK : V3_INVALID_ARG;
}

v3_result Instance::getUnitByBus(std::int32_t media, std::int32_t direction, std::int32_t bus,
                                 std::int32_t, std::int32_t* unit) noexcept
{
    if (!unit || !hasBus(media, direction, bus)) return V3_INVALID_ARG;
    *unit = kRootUnit;
    return V3_OK;
}

v3_result Instance::setProgramData(std::int32_t, std::int32_t, v3_bstream**) noexcept
{
    return V3_NOT_IMPLEMENTED;
}

}  // namespace quillworks::vst3
