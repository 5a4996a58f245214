// SPDX-License-Identifier: ISC
// Fast Fourier transform of a real signal of one size, to and from a packed spectrum.
#pragma once
#include "dsp/aligned_buffer.h"
#include "dsp/packed_spectrum.h"

#include <cstddef>
#include <cstdint>
#include <memory>

namespace quillworks {

/// Measured plans are the fastest, but which that is differs from run to run, and with it the
/// rounding. Repeatable ones give the same bits in every process on one kind of processor, and are
/// there at once.
enum class FftPlanning { Measured, Repeatable };

/// Float and double are two classes of one shape. Transforms of different objects may run on
/// different threads at once; one object serves one thread at a time.
///
/// A spectrum of n points is n values: element 0 is bin 0 (DC), element 1 bin n/2 (Nyquist), both
/// real; elements 2k and 2k + 1 are the real and imaginary part of bin k. The forward transform is
/// not scaled, the inverse is divided by n.
template <typename T> class Fft {
public:
    static constexpr int kMaxOrder = 26;

    /// `permitted`: a bit set of the instruction sets to choose from (DSP::VectorLib::Permitted),
    /// one of which the processor has.
    explicit Fft(int permitted = -1) noexcept : kernels_(packed::kernels<T>(permitted)) {}
    Fft(const Fft&) = delete;
    Fft& operator=(const Fft&) = delete;

    /// The number of real samples. Other numbers than powers of two are transformed with the next
    /// power of two, and the callers' buffers hold that many values. Nothing happens if `n` is the
    /// present size. Plans, which measures and may take a second for a large size that is new to
    /// the process; 0 frees all memory. [main thread]
    void setSize(std::uint32_t n, FftPlanning planning = FftPlanning::Measured);

    /// Marks the inverse as divided by n, which it is from the start: callers that ask for it and
    /// callers that do not get the same transform. The argument has no meaning. [main thread]
    void divideInverseByN(bool) noexcept { isDivisionRequested_ = true; }
    bool isDivisionRequested() const noexcept { return isDivisionRequested_; }

    std::uint32_t size() const noexcept { return size_; }
    /// Binary logarithm of the transform's length: ceil(log2(size)).
    int order() const noexcept { return order_; }
    /// Values in a signal and in a spectrum: 2^order, or 0 before a size is set.
    std::size_t length() const noexcept { return size_ ? std::size_t{1} << order_ : 0; }
    /// False if there is no size yet, its order is above `kMaxOrder`, or memory ran out: the
    /// transforms give zeros then.
    bool isReady() const noexcept { return isReady_; }

    /// Both may work in place; buffers that start on a multiple of 16 bytes save a copy.
    /// [audio thread]
    void forward(const T* signal, T* spectrum) noexcept;
    void inverse(const T* spectrum, T* signal) noexcept;

    /// Product of two spectra bin by bin, the spectrum of their signals' circular convolution. The
    /// destination may be one of the sources. [audio thread]
    void multiply(const T* a, const T* b, T* product) const noexcept;

    /// Squared magnitude of bin `k`; from size/2 on that of the Nyquist bin.
    T binPower(const T* spectrum, std::uint32_t k) const noexcept;
    /// Multiplies bin `k` by a linear gain; from size/2 on the Nyquist bin.
    void scaleBin(T* spectrum, std::uint32_t k, T gain) const noexcept;

private:
    struct PlanRelease {
        void operator()(void* plan) const noexcept;
    };
    using Plan = std::unique_ptr<void, PlanRelease>;

    void plan(FftPlanning planning);
    void transform(const T* in, T* out) const noexcept;
    T* scratch() noexcept { return work_.data() + length(); }

    packed::Kernels<T> kernels_;
    bool isDivisionRequested_ = false;
    bool isReady_ = false;
    int order_ = 0;
    std::uint32_t size_ = 0;
    AlignedBuffer<T> work_;      // half-length transform, then room for a caller's unaligned buffer
    AlignedBuffer<T> twiddles_;  // of the split
    Plan plan_;                  // half-length complex transform, out of place
};

extern template class Fft<float>;
extern template class Fft<double>;

}  // namespace quillworks
