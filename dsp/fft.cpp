// SPDX-License-Identifier: ISC
#include "dsp/fft.h"

#include <algorithm>
#include <bit>
#include <fftw3.h>
#include <mutex>
#include <type_traits>

namespace quillworks {
namespace {

int livePlans = 0;

/// Gives back what the planner has learnt when the module goes; not while static objects still hold
/// plans. A thread that outlives this may be planning.
struct PlannerEnd {
    ~PlannerEnd();
};

/// FFTW's planner shares tables between all plans of a precision; only execution is reentrant.
std::mutex& plannerLock()
{
    static std::mutex lock;  // has nothing to destroy
    static const PlannerEnd end;
    return lock;
}
static_assert(std::is_trivially_destructible_v<std::mutex>);

PlannerEnd::~PlannerEnd()
{
    const std::lock_guard guard(plannerLock());
    if (livePlans > 0) return;
    fftwf_cleanup();
    fftw_cleanup();
}

/// How long the planner searches: beyond 65536 points measuring would take seconds. A more patient
/// search finds plans 5 to 10 % faster at 8192 and 16384 points, but among them some that fetch
/// buffers from the heap in each execution.
unsigned planningEffort(int order, FftPlanning planning)
{
    // What measuring has found elsewhere in the process is taken over by a plan of the same needs;
    // asking for little memory makes them others.
    if (planning == FftPlanning::Repeatable) return FFTW_ESTIMATE | FFTW_CONSERVE_MEMORY;
    return order > 16 ? FFTW_ESTIMATE : FFTW_MEASURE;
}

template <typename T> struct Library;
template <> struct Library<float> {
    using Complex = fftwf_complex;
    static constexpr auto plan = fftwf_plan_dft_1d;
    static void execute(void* p, Complex* in, Complex* out)
    {
        fftwf_execute_dft(static_cast<fftwf_plan>(p), in, out);
    }
    static void destroy(void* p) { fftwf_destroy_plan(static_cast<fftwf_plan>(p)); }
    static bool isAligned(const float* p) { return !fftwf_alignment_of(const_cast<float*>(p)); }
};
template <> struct Library<double> {
    using Complex = fftw_complex;
    static constexpr auto plan = fftw_plan_dft_1d;
    static void execute(void* p, Complex* in, Complex* out)
    {
        fftw_execute_dft(static_cast<fftw_plan>(p), in, out);
    }
    static void destroy(void* p) { fftw_destroy_plan(static_cast<fftw_plan>(p)); }
    static bool isAligned(const double* p) { return !fftw_alignment_of(const_cast<double*>(p)); }
};

}  // namespace

template <typename T> void Fft<T>::PlanRelease::operator()(void* plan) const noexcept
{
    const std::lock_guard guard(plannerLock());
    Library<T>::destroy(plan);
    --livePlans;
}

template <typename T> void Fft<T>::setSize(std::uint32_t n, FftPlanning planning)
{
    if (n == size_) return;
    const auto oldLength = length();
    size_ = n;
    order_ = n ? static_cast<int>(std::bit_width(n - 1)) : 0;
    if (length() == oldLength) return;

    plan_.reset();
    const bool isPlanned = order_ >= 2 && order_ <= kMaxOrder;
    const bool hasMemory = work_.resize(isPlanned ? 2 * length() : 0) &&
                           twiddles_.resize(isPlanned ? packed::twiddleCount(length()) : 0);
    if (isPlanned && hasMemory) plan(planning);
    isReady_ = size_ > 0 && (order_ < 2 || plan_);
}

template <typename T> void Fft<T>::plan(FftPlanning planning)
{
    packed::makeTwiddles(twiddles_.data(), length());
    using Complex = typename Library<T>::Complex;
    auto* const in = reinterpret_cast<Complex*>(scratch());
    auto* const out = reinterpret_cast<Complex*>(work_.data());
    const int points = static_cast<int>(length() / 2);
    // Algorithms with buffers fetch them from the heap in each execution: not on our thread.
    const unsigned flags = planningEffort(order_, planning) | FFTW_NO_BUFFERING;
    const std::lock_guard guard(plannerLock());
    plan_.reset(Library<T>::plan(points, in, out, FFTW_FORWARD, flags));
    if (plan_) ++livePlans;
}

template <typename T> void Fft<T>::transform(const T* in, T* out) const noexcept
{
    // Out of place the library leaves its input alone; its interface just does not say so.
    using Complex = typename Library<T>::Complex;
    Library<T>::execute(plan_.get(), reinterpret_cast<Complex*>(const_cast<T*>(in)),
                        reinterpret_cast<Complex*>(out));
}

template <typename T> void Fft<T>::forward(const T* signal, T* spectrum) noexcept
{
    if (!isReady_) {
        std::fill_n(spectrum, length(), T(0));
    } else if (order_ == 0) {
        spectrum[0] = signal[0];
    } else if (order_ == 1) {
        const T a = signal[0], b = signal[1];
        spectrum[0] = a + b;
        spectrum[1] = a - b;
    } else {
        if (!Library<T>::isAligned(signal)) {
            std::copy_n(signal, length(), scratch());
            signal = scratch();
        }
        const bool isDirect = signal != spectrum && Library<T>::isAligned(spectrum);
        T* const half = isDirect ? spectrum : work_.data();
        transform(signal, half);
        kernels_.split(half, twiddles_.data(), spectrum, length());
    }
}

template <typename T> void Fft<T>::inverse(const T* spectrum, T* signal) noexcept
{
    if (!isReady_) {
        std::fill_n(signal, length(), T(0));
    } else if (order_ == 0) {
        signal[0] = spectrum[0];
    } else if (order_ == 1) {
        const T a = spectrum[0], b = spectrum[1];
        signal[0] = (a + b) / 2;
        signal[1] = (a - b) / 2;
    } else {
        kernels_.merge(spectrum, twiddles_.data(), work_.data(), length());
        const bool isAligned = Library<T>::isAligned(signal);
        transform(work_.data(), isAligned ? signal : scratch());
        if (!isAligned) std::copy_n(scratch(), length(), signal);
    }
}

template <typename T> void Fft<T>::multiply(const T* a, const T* b, T* product) const noexcept
{
    kernels_.multiply(a, b, product, length());
}

template <typename T> T Fft<T>::binPower(const T* s, std::uint32_t k) const noexcept
{
    if (k == 0 || size_ < 2) return s[0] * s[0];
    if (k >= size_ / 2) return s[1] * s[1];
    const std::size_t i = 2 * std::size_t{k};
    return s[i] * s[i] + s[i + 1] * s[i + 1];
}

template <typename T> void Fft<T>::scaleBin(T* s, std::uint32_t k, T gain) const noexcept
{
    if (k == 0 || size_ < 2) {
        s[0] *= gain;
    } else if (k >= size_ / 2) {
        s[1] *= gain;
    } else {
        const std::size_t i = 2 * std::size_t{k};
        s[i] *= gain;
        s[i + 1] *= gain;
    }
}

template class Fft<float>;
template class Fft<double>;

}  // namespace quillworks
