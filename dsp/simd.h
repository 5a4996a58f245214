// SPDX-License-Identifier: ISC
// Builds a source file for SSE2, AVX2 and AVX-512 and chooses the build at run time.
//
// For loops that the operations of dsp/vec.h cannot express: filters over several channels,
// polynomials, transforms. The arithmetic is Highway's (namespace hn below), written once. MulAdd
// fuses where the processor can, so builds may differ by rounding. In file dsp/halve.cpp:
//
//     #undef HWY_TARGET_INCLUDE
//     #define HWY_TARGET_INCLUDE "dsp/halve.cpp"  // this file, once more per instruction set
//     #include "dsp/simd.h"
//     //                                          // below: compiled for each instruction set
//     #include "dsp/halve.h"                      // extern void (*const halve)(float*, int);
//
//     HWY_BEFORE_NAMESPACE();
//     namespace quillworks::HWY_NAMESPACE {
//     namespace {                                 // nothing in here may be seen from outside
//     namespace hn = hwy::HWY_NAMESPACE;
//
//     void halve(float* x, int n)  // n a multiple of 16
//     {
//         const hn::ScalableTag<float> d;
//         for (int i = 0; i < n; i += int(hn::Lanes(d)))
//             hn::StoreU(hn::Mul(hn::LoadU(d, x + i), hn::Set(d, 0.5f)), d, x + i);
//     }
//
//     } // namespace
//     } // namespace quillworks::HWY_NAMESPACE
//     HWY_AFTER_NAMESPACE();
//
//     #if HWY_ONCE                                // below: compiled once
//     namespace quillworks {
//     HWY_EXPORT(halve);
//     // Chosen when the binary is loaded; calling through the pointer costs no look-up.
//     void (*const halve)(float*, int) = SIMD_CHOOSE(halve);
//     } // namespace quillworks
//     #endif
//
// Give everything between the two namespace macros to templates and plain functions: a lambda there
// needs HWY_ATTR after its parameters. A class hands its state to the chosen function by pointer.
// With several functions, export one that returns a table of pointers, as dsp/vector_math.cpp does.
//
// The namespace of an instruction set has the same name in every file, so a function or template of
// external linkage in it, be it of an -inl.h, would be merged silently with a namesake in another
// file: all of it lies in the unnamed namespace, and the test "linkage" looks into the objects.
//
// Tests of such a file belong to the test program of its folder, which ctest runs once plainly, on
// the best instruction set of the machine, and once for each poorer one, by QUILLWORKS_SIMD=scalar,
// sse2 or avx2 in the environment. So they must hold on every set: give tolerances where MulAdd may
// fuse, and say nothing of which set is in use. A new file in dsp/ or in the folder of a family is
// found by itself.

// No include guard around this line: it acts anew for every instruction set.
#include "vectorlib/instruction_sets.h"

#ifndef QUILLWORKS_DSP_SIMD_H
#define QUILLWORKS_DSP_SIMD_H

/// The best build on this processor of a function given to HWY_EXPORT in the same namespace; with a
/// bit set of DSP::VectorLib::Permitted as second argument, the best of those, or null.
#define SIMD_CHOOSE(function, ...)                                                                 \
    DSP::VectorLib::chooseBuild(HWY_DISPATCH_TABLE(function) __VA_OPT__(, ) __VA_ARGS__)

#endif
