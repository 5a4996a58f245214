// SPDX-License-Identifier: ISC
// The classes of the factory as test parameters, and what the processor tells of denormals.
#pragma once

#include <gtest/gtest.h>

#include <immintrin.h>
#include <string>
#include <vector>

#include "module/module_main.h"
#include "tests/support/sanitised.h"

namespace quillworks::test {

inline std::vector<std::string> registeredClasses()
{
    const auto factory = VNK::Ref<VNK::IClassFactory>::adopt(VNKGetClassFactory());
    std::vector<std::string> names;
    for (int i = 0; i < factory->countClasses(); ++i)
        names.emplace_back(factory->getClass(i)->name->text());
    return names;
}

/// "AnalogDelay" for "Analog Delay".
inline std::string className(const ::testing::TestParamInfo<std::string>& info)
{
    std::string name = info.param;
    std::erase_if(name, [](char c) { return c == ' '; });
    return name;
}

/// Whether a denormal operand has been met since the last call: the flag DE of the control word.
inline unsigned denormalsSeen()
{
    const unsigned seen = _mm_getcsr() & 2u;
    _mm_setcsr(_mm_getcsr() & ~0x3Fu);
    return seen;
}

/// Rounding, masks and denormal modes, without the sticky flags.
inline unsigned floatingPointMode()
{
    return _mm_getcsr() & ~0x3Fu;
}

/// Whether each change of a setting reads and transforms anew, beside the sound: sweeps over many
/// settings would take minutes.
inline bool isSlowToSet(const std::string& name)
{
    return name == "Vaulter";
}

/// How many settings drawn by chance a sweep tries: fewer where each takes long.
inline std::uint32_t countSeeds(const std::string& name)
{
    if (kIsSanitised) return isSlowToSet(name) ? 1 : 2;
    return isSlowToSet(name) ? 3 : 8;
}

/// Whether the gain at a single frequency is chance, as in a room: only many of them tell the
/// level.
inline bool isDiffuse(const std::string& name)
{
    return name == "Room Reverb" || name == "Swellroom" || name == "Vaulter";
}

/// Frames that an effect's phase may look like to a correlation. A crossover's bands add up to
/// all-passes, and one near a quarter of the rate is a delay of two samples but for a few percent;
/// there are up to four. A phaser is nothing else.
inline int phaseLag(const std::string& name)
{
    return name == "Bandpress" || name == "Multiband Dynamics" || name == "Phaser" ? 8 : 0;
}

}  // namespace quillworks::test
