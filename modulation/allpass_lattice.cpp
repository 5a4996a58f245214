// SPDX-License-Identifier: ISC
#include "modulation/allpass_lattice.h"

#include <cassert>
#include <cmath>
#include <numbers>

namespace quillworks {

template <typename T> void AllPassLattice<T>::prepare(double sampleRate, int slots)
{
    assert(slots % 4 == 0);
    latticeKernels<T>();  // chosen here, not on the audio thread
    slots_ = slots;
    highPass_ = static_cast<T>(1 / (1 + std::tan(std::numbers::pi / sampleRate)));
    states_.require(static_cast<std::size_t>((kMostStages + 1) * slots));
    reset();
}

template <typename T> void AllPassLattice<T>::reset() noexcept
{
    states_.fill(0);
}

template <typename T>
void AllPassLattice<T>::lay(int first, int count, const double (*g)[kSides],
                            const Course<T>& feedback) noexcept
{
    T ends[(kGroups + 1) * kSides];
    for (int i = 0; i <= count; ++i)
        for (int s = 0; s < kSides; ++s) ends[i * kSides + s] = T(g[i][s]);
    latticeKernels<T>().lay(rows_, {.g = ends,
                                    .feedback = feedback.at,
                                    .isFeedbackConstant = feedback.isConstant(),
                                    .highPass = highPass_,
                                    .stages = stages_,
                                    .first = first,
                                    .count = count});
}

template <typename T> void AllPassLattice<T>::process(T* const* x, GridSlice slice) noexcept
{
    latticeKernels<T>().run({.rows = &rows_,
                             .state = states_.data(),
                             .offset = states_.data() + kMostStages * slots_,
                             .x = x,
                             .slots = slots_,
                             .stages = stages_,
                             .keep = 2 * (1 - highPass_),
                             .frames = slice.frames,
                             .phase = slice.phase});
}

template class AllPassLattice<float>;
template class AllPassLattice<double>;

}  // namespace quillworks
