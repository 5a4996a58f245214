// SPDX-License-Identifier: ISC
// What Highway's builds ask of the processor, in place of Highway's own library: that one measures
// the clock for benchmarks when it is loaded, which takes longer than all else in loading us.
#include <cpuid.h>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <hwy/targets.h>

namespace hwy {
namespace {

/// Two features that not every compiler can ask for by name.
bool hasHalfFloatsAndLeadingZeros()
{
    unsigned a = 0, b = 0, c = 0, d = 0;
    const bool hasHalfFloats = __get_cpuid(1, &a, &b, &c, &d) != 0 && (c & bit_F16C) != 0;
    return hasHalfFloats && __get_cpuid(0x80000001, &a, &b, &c, &d) != 0 && (c & bit_LZCNT) != 0;
}

}  // namespace

/// Where Highway's own assertions end, which debug builds have.
void Abort(const char* file, int line, const char* format, ...)
{
    std::fprintf(stderr, "%s:%d: ", file, line);
    va_list arguments;
    va_start(arguments, format);
    std::vfprintf(stderr, format, arguments);
    va_end(arguments);
    std::abort();
}

ChosenTarget& GetChosenTarget()
{
    static ChosenTarget chosen;
    return chosen;
}

/// The compiler's test includes whether the system keeps the registers.
std::int64_t SupportedTargets()
{
    __builtin_cpu_init();  // this may come before the constructors of the compiler's library
    std::int64_t targets = HWY_SCALAR;
    const auto has = [](auto... features) { return (... && (features != 0)); };
    if (!has(__builtin_cpu_supports("sse2"), __builtin_cpu_supports("ssse3"))) return targets;
    targets |= HWY_SSSE3;
    if (!has(__builtin_cpu_supports("avx2"), __builtin_cpu_supports("fma"),
             __builtin_cpu_supports("bmi"), __builtin_cpu_supports("bmi2"),
             hasHalfFloatsAndLeadingZeros()))
        return targets;
    targets |= HWY_AVX2;
    if (has(__builtin_cpu_supports("avx512f"), __builtin_cpu_supports("avx512vl"),
            __builtin_cpu_supports("avx512dq"), __builtin_cpu_supports("avx512bw"),
            __builtin_cpu_supports("avx512cd")))
        targets |= HWY_AVX3;
    return targets;
}

}  // namespace hwy
