// SPDX-License-Identifier: ISC
// The loops of Tank, built per instruction set. All run along time over rows of GridLines<T>::kRow
// samples, of which those behind the frames are read and written without effect.
#pragma once

#include "reverb/grid_lines.h"

namespace quillworks {

/// A step of diffusion: the rows' Hadamard transform, each times its own factor.
template <typename T> struct DiffusionRun {
    const T* const* in;
    T* const* out;  // may be `in`
    const T* factor;
    int lines, frames;  // 8 or 16 lines
};

/// Rows of the Hadamard matrix of 16 whose signs an output sums the lines with; of that of 8, their
/// lowest three bits. Left and right, the first two, differ most from one another's echoes.
inline constexpr int kTankOutputs[] = {5, 10, 3, 12, 6, 9, 15, 1, 14, 2, 13, 4, 11, 7, 8, 0};

/// The sums for the first outputs.
template <typename T> struct OutputRun {
    const T* const* in;
    T* const* out;
    T factor;
    int outputs, lines, frames;
};

/// A value per line or pair that moves over a sub-block.
template <typename T> struct Moving {
    T to[16], step[16];  // at its end, and the change per frame
};

/// From the filtered lines to what goes into them: all-passes, rotation of pairs, input times its
/// factors, Hadamard transform (not scaled). Values that move end the sub-block at what is given.
template <typename T> struct FeedbackRun {
    const T* const* in;
    const T* const* entering;
    const T* factor;  // of what enters
    T* const* out;
    const T* const* delayed;  // of the all-passes; null: there are none
    T* const* allPass;        // what goes into them
    T g, gStep;               // their coefficient and its change per frame
    const Moving<T>& kept;    // of what their delays held
    const Moving<T>& cosine;  // by pair of lines
    const Moving<T>& sine;
    int lines, frames, phase;
};

/// A sub-block of the rotations, by half a turn times motion times the sine of a slow phase.
template <typename T> struct RotationRun {
    double *cosine, *sine;                      // of the phases, which advance
    const double *cosineAdvance, *sineAdvance;  // by so much
    double motion;                              // 0 .. 1
    Moving<T>*cosineTurn, *sineTurn;            // cosine and sine of the angles
    int pairs;                                  // 4 or 8
};

template <typename T> struct TankKernels {
    void (*diffuse)(const DiffusionRun<T>&);
    bool (*sumUp)(const OutputRun<T>&);  // whether all sums are finite
    void (*feedBack)(const FeedbackRun<T>&);
    void (*rotate)(const RotationRun<T>&);
};
template <typename T> const TankKernels<T>& tankKernels();
template <> const TankKernels<float>& tankKernels<float>();
template <> const TankKernels<double>& tankKernels<double>();

}  // namespace quillworks
