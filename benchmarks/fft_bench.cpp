// SPDX-License-Identifier: ISC
// Speed of our real transforms against FFTW's own real plans, and of the spectrum product against
// the bare traffic it causes. Prints tables of ratios; exits with 1 if a transform misses its bar.
#include "dsp/fft.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <fftw3.h>
#include <limits>
#include <random>

namespace quillworks {
namespace {

/// FFTW's measured real plans of one size on aligned buffers of its own.
template <typename T> struct Peer;
template <> struct Peer<float> {
    explicit Peer(int n)
        : x(fftwf_alloc_real(static_cast<std::size_t>(n))),
          y(fftwf_alloc_complex(static_cast<std::size_t>(n / 2 + 1))),
          there(fftwf_plan_dft_r2c_1d(n, x, y, FFTW_MEASURE)),
          back(fftwf_plan_dft_c2r_1d(n, y, x, FFTW_MEASURE))
    {}
    void run()
    {
        fftwf_execute(there);
        fftwf_execute(back);
    }
    float* x;
    fftwf_complex* y;
    fftwf_plan there, back;
};
template <> struct Peer<double> {
    explicit Peer(int n)
        : x(fftw_alloc_real(static_cast<std::size_t>(n))),
          y(fftw_alloc_complex(static_cast<std::size_t>(n / 2 + 1))),
          there(fftw_plan_dft_r2c_1d(n, x, y, FFTW_MEASURE)),
          back(fftw_plan_dft_c2r_1d(n, y, x, FFTW_MEASURE))
    {}
    void run()
    {
        fftw_execute(there);
        fftw_execute(back);
    }
    double* x;
    fftw_complex* y;
    fftw_plan there, back;
};

/// The shortest time of one call in a run of `calls`, in nanoseconds.
template <typename F> void keepShortest(double& best, int calls, F&& f)
{
    using Clock = std::chrono::steady_clock;
    const auto start = Clock::now();
    for (int i = 0; i < calls; ++i) f();
    const std::chrono::duration<double, std::nano> time = Clock::now() - start;
    best = std::min(best, time.count() / calls);
}

constexpr int kRepeats = 300;

template <typename T> bool compareTransforms(const char* name, double bar)
{
    bool isMet = true;
    std::printf("forward + inverse, %-6s   ours ns   FFTW ns   ratio (bar %.1f)\n", name, bar);
    for (int n = 256; n <= 16384; n *= 2) {
        const auto count = static_cast<std::size_t>(n);
        Fft<T> fft;
        fft.setSize(static_cast<std::uint32_t>(n));
        AlignedBuffer<T> x(count), spectrum(count);
        Peer<T> peer(n);
        std::minstd_rand random(1);
        for (std::size_t i = 0; i < count; ++i)
            x[i] = static_cast<T>(random()) / static_cast<T>(random.max()) - T(0.5);
        std::fill_n(peer.x, count, T(0));  // its inverse is not scaled: noise would overflow

        double ours = std::numeric_limits<double>::infinity(), theirs = ours;
        const int calls = std::max(4, 65536 / n);
        for (int r = 0; r < kRepeats; ++r) {
            keepShortest(ours, calls, [&] {
                fft.forward(x.data(), spectrum.data());
                fft.inverse(spectrum.data(), x.data());
            });
            keepShortest(theirs, calls, [&] { peer.run(); });
        }
        const double ratio = ours / theirs;
        std::printf("%24d %9.0f %9.0f %7.2f%s\n", n, ours, theirs, ratio,
                    ratio > bar ? "  missed" : "");
        isMet = isMet && ratio <= bar;
    }
    return isMet;
}

/// Against a plain sum of the same three arrays: as fast as that is as fast as memory.
template <typename T> void compareProduct(const char* name)
{
    std::printf("spectrum product, %-6s    ours ns    sum ns   ratio\n", name);
    for (const std::size_t n : {std::size_t{1024}, std::size_t{16384}, std::size_t{1} << 20}) {
        Fft<T> fft;
        fft.setSize(static_cast<std::uint32_t>(n));
        AlignedBuffer<T> a(n), b(n), c(n);
        a.fill(T(0.5));
        b.fill(T(0.25));
        double ours = std::numeric_limits<double>::infinity(), sum = ours;
        const int calls = std::max(1, static_cast<int>((std::size_t{1} << 18) / n));
        for (int r = 0; r < kRepeats; ++r) {
            keepShortest(ours, calls, [&] { fft.multiply(a.data(), b.data(), c.data()); });
            keepShortest(sum, calls, [&] {
                const T *const x = a.data(), *const y = b.data();
                T* const z = c.data();
                for (std::size_t i = 0; i < n; ++i) z[i] = x[i] + y[i];
            });
        }
        std::printf("%24zu %10.0f %9.0f %7.2f\n", n, ours, sum, ours / sum);
    }
}

}  // namespace
}  // namespace quillworks

int main()
{
    using namespace quillworks;
    const bool single = compareTransforms<float>("float", 0.8);
    const bool twice = compareTransforms<double>("double", 1.0);
    compareProduct<float>("float");
    compareProduct<double>("double");
    return single && twice ? 0 : 1;
}
