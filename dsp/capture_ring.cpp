// SPDX-License-Identifier: ISC
#include "dsp/capture_ring.h"

#include <algorithm>
#include <bit>
#include <cstddef>
#include <cstring>

namespace quillworks {
namespace {

// A reader that has fallen behind so far that the writer's next calls might overtake it jumps
// ahead.
constexpr std::int64_t kMargin = 8192;

#if defined(__SANITIZE_THREAD__)
#define QUILLWORKS_NO_FENCES 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define QUILLWORKS_NO_FENCES 1
#endif
#endif

#ifdef QUILLWORKS_NO_FENCES
// The thread sanitizer knows no fences: the words themselves keep the order there.
constexpr auto kWordOrder = std::memory_order_seq_cst;
void fence(std::memory_order) {}
#else
constexpr auto kWordOrder = std::memory_order_relaxed;
void fence(std::memory_order order)
{
    std::atomic_thread_fence(order);
}
#endif

template <typename T> std::uint64_t half(T x)
{
    return std::bit_cast<std::uint32_t>(static_cast<float>(x));
}

template <typename T> void store(std::uint64_t* words, int n, const T* low, const T* high)
{
    for (int i = 0; i < n; ++i)
        std::atomic_ref(words[i]).store(half(low[i]) | half(high[i]) << 32, kWordOrder);
}

#if defined(__has_builtin)
#if __has_builtin(__builtin_shufflevector) && __BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__
/// The compiler does not put atomic stores together: interleaved by vectors, a word costs two
/// thirds.
void store(std::uint64_t* words, int n, const float* low, const float* high)
{
    using Floats = float __attribute__((vector_size(16)));
    using Words = std::uint64_t __attribute__((vector_size(16)));
    int i = 0;
    for (; i + 4 <= n; i += 4) {
        Floats l, h;
        std::memcpy(&l, low + i, sizeof l);
        std::memcpy(&h, high + i, sizeof h);
        const auto first = std::bit_cast<Words>(__builtin_shufflevector(l, h, 0, 4, 1, 5));
        const auto second = std::bit_cast<Words>(__builtin_shufflevector(l, h, 2, 6, 3, 7));
        std::atomic_ref(words[i]).store(first[0], kWordOrder);
        std::atomic_ref(words[i + 1]).store(first[1], kWordOrder);
        std::atomic_ref(words[i + 2]).store(second[0], kWordOrder);
        std::atomic_ref(words[i + 3]).store(second[1], kWordOrder);
    }
    store<float>(words + i, n - i, low + i, high + i);
}
#endif
#endif

template <typename T> void store(std::uint64_t* words, int n, const T* low)
{
    for (int i = 0; i < n; ++i) std::atomic_ref(words[i]).store(half(low[i]), kWordOrder);
}

float unpacked(std::uint64_t half)
{
    return std::bit_cast<float>(static_cast<std::uint32_t>(half));
}

}  // namespace

void CaptureRing::prepare(int channels, double rate, int maxFrames)
{
    const auto held =
        std::max(static_cast<std::size_t>(0.75 * rate), 4 * static_cast<std::size_t>(maxFrames));
    const std::size_t size = std::bit_ceil(static_cast<std::size_t>(kMargin) + held);
    if (size != mask_ + 1 || channels != channels_) {
        const auto pairs = static_cast<std::size_t>(channels + 1) / 2;
        words_.requireUncleared(pairs * size);
        mask_ = size - 1;
        channels_ = channels;
    }
    reset();
}

void CaptureRing::reset() noexcept
{
    resets_.fetch_add(1);  // odd: it is under way
    claimed_.store(0, std::memory_order_relaxed);
    storedFrom_.store(0, std::memory_order_relaxed);
    written_.store(0, std::memory_order_release);
    resets_.fetch_add(1, std::memory_order_release);
}

template <typename T> void CaptureRing::write(const T* const* x, int n) noexcept
{
    const std::int64_t first = written_.load(std::memory_order_relaxed), end = first + n;
    if (readers_.load() == 0) {
        claimed_.store(end, std::memory_order_relaxed);
        storedFrom_.store(end, std::memory_order_relaxed);
        written_.store(end, std::memory_order_release);
        return;
    }
    claimed_.store(end, std::memory_order_relaxed);
    fence(std::memory_order_release);
    const std::size_t size = mask_ + 1;
    std::uint64_t* ring = words_.data();
    for (int c = 0; c < channels_; c += 2, ring += size)
        for (int i = 0, run = 0; i < n; i += run) {
            const std::size_t at = static_cast<std::size_t>(first + i) & mask_;
            run = static_cast<int>(std::min(size - at, static_cast<std::size_t>(n - i)));
            if (c + 1 < channels_)
                store(ring + at, run, x[c] + i, x[c + 1] + i);
            else
                store(ring + at, run, x[c] + i);
        }
    written_.store(end, std::memory_order_release);
}
template void CaptureRing::write(const float* const*, int) noexcept;
template void CaptureRing::write(const double* const*, int) noexcept;

CaptureRing::Reader::Reader(CaptureRing& ring) noexcept : ring_(ring)
{
    // Counted first: a reset that this reader will notice is followed by stored frames alone, so it
    // gets them from 0 on. Both in the one order of all threads, as the reset and the writer's look
    // at the readers are.
    ring.readers_.fetch_add(1);
    resets_ = ring.resets_.load() & ~1u;
    next_ = ring.written();
}

CaptureRing::Reader::Piece CaptureRing::Reader::read(float* const* out) noexcept
{
    const auto capacity = static_cast<std::int64_t>(ring_.mask_ + 1);
    for (;;) {
        const std::uint32_t resets = ring_.resets_.load(std::memory_order_acquire);
        if (resets & 1) return {};
        const std::int64_t end = ring_.written();
        if (resets != resets_) {
            resets_ = resets;
            next_ = lost_ = 0;
            restarted_ = true;
        }
        // Calls that began before this reader was there have stored nothing. They may follow stored
        // ones: a reader sees those written, and comes, before it sees that nobody read in between.
        const std::int64_t from = ring_.storedFrom_.load(std::memory_order_relaxed);
        lost_ += std::max<std::int64_t>(from - next_, 0);
        next_ = std::max(next_, from);
        if (end - next_ > capacity - kMargin) {
            lost_ += end - kMaxRead - next_;
            next_ = end - kMaxRead;
        }
        const auto frames = std::clamp<std::int64_t>(end - next_, 0, kMaxRead);
        if (frames == 0) return {};
        copy(out, static_cast<int>(frames));
        fence(std::memory_order_acquire);
        const bool isOvertaken = ring_.claimed_.load(std::memory_order_relaxed) - next_ > capacity;
        const bool isReset = ring_.resets_.load(std::memory_order_relaxed) != resets;
        const Piece piece{next_, lost_, static_cast<int>(frames), restarted_};
        next_ += frames;
        if (isOvertaken) lost_ += frames;
        if (isOvertaken || isReset) continue;
        lost_ = 0;
        restarted_ = false;
        return piece;
    }
}

void CaptureRing::Reader::copy(float* const* out, int n) noexcept
{
    const std::size_t size = ring_.mask_ + 1;
    std::uint64_t* ring = ring_.words_.data();
    for (int c = 0; c < ring_.channels_; c += 2, ring += size)
        for (int i = 0; i < n; ++i) {
            const std::size_t at = static_cast<std::size_t>(next_ + i) & ring_.mask_;
            const std::uint64_t word = std::atomic_ref(ring[at]).load(kWordOrder);
            out[c][i] = unpacked(word);
            if (c + 1 < ring_.channels_) out[c + 1][i] = unpacked(word >> 32);
        }
}

}  // namespace quillworks
