// SPDX-License-Identifier: ISC
// Takes a display's picture without keeping it.
#pragma once

#include "framework/spectrum_ground.h"
#include "framework/stereo_field.h"
#include "vnk/effect_displays.h"

namespace quillworks::test {

/// Counts what a display gives.
class CountingSink final : public VNK::IDisplaySink {
public:
    std::int64_t values = 0;
    void beginObject(const char*) override {}
    void beginList(const char*) override {}
    void end() override {}
    void number(const char*, double) override { ++values; }
    void numbers(const char*, const float*, std::int64_t n) override { values += n; }
    void numbers(const char*, const double*, std::int64_t n) override { values += n; }
    void text(const char*, const char*) override {}
    void flag(const char*, bool) override { ++values; }
};

/// Whatever an effect has to show, with what editors alone ask for; how many values that is.
inline std::int64_t valuesOf(VNK::IEffectDisplays& displays)
{
    CountingSink shown;
    for (int i = 0; displays.displayName(i); ++i)
        displays.snapshot(displays.displayName(i), &shown);
    for (const char* name : {kSpectrumGround, kRecentField}) displays.snapshot(name, &shown);
    return shown.values;
}

}  // namespace quillworks::test
