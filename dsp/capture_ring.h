// SPDX-License-Identifier: ISC
// A signal handed from the audio thread to whoever displays it.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "dsp/aligned_buffer.h"

namespace quillworks {

/// One writer, any number of readers, nobody waits. Frames are audio or values of the control grid
/// (a gate's level and gain); doubles are rounded to float. The channels 2p and 2p + 1 of a frame
/// share a 64-bit word, so a pair is never seen half written. Frames are counted from the last
/// reset, also while nobody reads and nothing is stored.
///
/// The writer announces what it is about to overwrite, then stores, then says what is there: the
/// reader copies in between and throws away what was overtaken (a sequence lock, Boehm 2012,
/// "Can seqlocks get along with programming language memory models?").
class CaptureRing {
public:
    static constexpr int kMaxRead = 4096;  // frames per call of a reader

    /// Room for 0.75 s at `rate` frames a second and for four calls of `maxFrames`.
    /// [main thread, no reader reads meanwhile] Allocates.
    void prepare(int channels, double rate, int maxFrames);
    /// The count of frames begins anew; what readers have not read is lost to them. [audio thread]
    void reset() noexcept;
    /// Appends n frames, channel by channel. [audio thread]
    template <typename T> void write(const T* const* x, int n) noexcept;

    /// Whether what is written now is stored. [any thread]
    bool isRead() const noexcept { return readers_.load(std::memory_order_relaxed) > 0; }
    int channels() const noexcept { return channels_; }
    int capacity() const noexcept { return static_cast<int>(mask_ + 1); }
    /// Frames since the reset. [any thread]
    std::int64_t written() const noexcept { return written_.load(std::memory_order_acquire); }

    /// One who reads, from what is written after its construction on. Comes often enough if every
    /// half second or, where that is longer, every four calls of the writer. The ring outlives it.
    /// [one thread at a time, not the audio thread]
    class Reader {
    public:
        explicit Reader(CaptureRing& ring) noexcept;
        ~Reader() { ring_.readers_.fetch_sub(1); }
        Reader(const Reader&) = delete;
        Reader& operator=(const Reader&) = delete;

        struct Piece {
            std::int64_t first = 0;  // number of its first frame since the reset
            std::int64_t lost = 0;   // frames left out before it, since the writer was too fast
            int frames = 0;          // 0: there are no more
            bool restarted = false;  // the ring was reset before it
        };
        /// The next frames in order, at most kMaxRead: channel by channel into `out`.
        Piece read(float* const* out) noexcept;

    private:
        void copy(float* const* out, int n) noexcept;

        CaptureRing& ring_;
        std::int64_t next_;
        std::int64_t lost_ = 0;
        std::uint32_t resets_;
        bool restarted_ = false;
    };

private:
    AlignedBuffer<std::uint64_t> words_;  // pair by pair, accessed through std::atomic_ref
    std::size_t mask_ = 0;                // capacity - 1, the capacity a power of two
    int channels_ = 0;
    std::atomic<int> readers_{0};
    std::atomic<std::uint32_t> resets_{0};     // twice the number of resets
    std::atomic<std::int64_t> claimed_{0};     // frames stored or about to be
    std::atomic<std::int64_t> written_{0};     // frames complete
    std::atomic<std::int64_t> storedFrom_{0};  // since when somebody has read, so all is stored
};

}  // namespace quillworks
