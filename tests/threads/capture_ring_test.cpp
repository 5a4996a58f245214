// SPDX-License-Identifier: ISC
#include "dsp/capture_ring.h"

#include <array>
#include <atomic>
#include <gtest/gtest.h>
#include <optional>
#include <thread>
#include <utility>
#include <vector>

namespace quillworks {
namespace {

constexpr int kChannels = 3;

// What channel c holds in frame i: exact in float, and another for every frame and channel.
double valueOf(int c, std::int64_t i)
{
    return double((i * 4 + c) % (1 << 24));
}

struct Writer {
    explicit Writer(CaptureRing& ring) : ring(ring) {}
    template <typename T> void write(int n)
    {
        std::vector<T> x[kChannels];
        const T* pointers[kChannels];
        for (int c = 0; c < kChannels; ++c) {
            for (int i = 0; i < n; ++i) x[c].push_back(T(valueOf(c, frame + i)));
            pointers[c] = x[c].data();
        }
        ring.write(pointers, n);
        frame += n;
    }
    CaptureRing& ring;
    std::int64_t frame = 0;
};

struct Listener {
    explicit Listener(CaptureRing& ring) : reader(ring) {}
    /// Frames of one piece, 0 at the end; counts what is wrong in it.
    int read()
    {
        float* const out[kChannels] = {x[0].data(), x[1].data(), x[2].data()};
        const auto piece = reader.read(out);
        if (piece.frames == 0) return 0;
        if (piece.restarted) next = 0;
        wrong += next >= 0 && piece.first != next + piece.lost;
        lost += piece.lost;
        next = piece.first + piece.frames;
        for (int c = 0; c < kChannels; ++c)
            for (int i = 0; i < piece.frames; ++i)
                wrong += double(x[std::size_t(c)][std::size_t(i)]) != valueOf(c, piece.first + i);
        return piece.frames;
    }
    int readAll()
    {
        int all = 0;
        while (const int n = read()) all += n;
        return all;
    }
    CaptureRing::Reader reader;
    std::int64_t next = -1;  // unknown before the first piece
    std::int64_t lost = 0, wrong = 0;
    std::array<std::array<float, CaptureRing::kMaxRead>, kChannels> x;
};

TEST(CaptureRing, GivesEachReaderAllFramesFromItsConstructionOn)
{
    CaptureRing ring;
    ring.prepare(kChannels, 48000, 512);
    Writer writer(ring);
    writer.write<float>(100);  // nobody reads: counted, not stored
    Listener first(ring);
    EXPECT_EQ(first.readAll(), 0);
    writer.write<double>(5000);
    EXPECT_EQ(first.read(), CaptureRing::kMaxRead);
    std::optional<Listener> second(ring);
    for (int i = 0; i < 1000; ++i) {  // round the ring
        writer.write<float>(1 + i % 300);
        if (i % 50 == 0) first.readAll();
        if (i % 90 == 0) second->readAll();
    }
    const std::int64_t missed = writer.frame - second->next;
    EXPECT_EQ(second->readAll(), missed);
    first.readAll();
    EXPECT_EQ(first.next, ring.written());
    EXPECT_EQ(first.lost + first.wrong + second->lost + second->wrong, 0);

    writer.write<float>(ring.capacity() + 5);  // too late: the newest, and the rest reported
    EXPECT_EQ(first.readAll(), CaptureRing::kMaxRead);
    EXPECT_EQ(first.lost, ring.capacity() + 5 - CaptureRing::kMaxRead);
    EXPECT_EQ(first.wrong, 0);

    ring.reset();
    writer.frame = 0;
    writer.write<float>(77);
    EXPECT_EQ(first.readAll(), 77);
    EXPECT_EQ(first.next, 77);
    EXPECT_EQ(first.wrong, 0);
}

TEST(CaptureRing, ReadersThatTheWriterOvertakesGetWholeFramesOrAGap)
{
    CaptureRing ring;
    ring.prepare(kChannels, 8000, 64);
    std::atomic<bool> ends{false};
    std::atomic<std::int64_t> wrong{0}, read[2]{};
    const auto listen = [&](std::atomic<std::int64_t>& frames) {
        std::optional<Listener> listener(std::in_place, ring);
        for (int i = 1; !ends; ++i) {
            frames += listener->read();
            wrong += std::exchange(listener->wrong, 0);
            if (i % 8 != 0) continue;
            listener.reset();  // goes, and comes back in the middle of a call
            std::this_thread::yield();
            listener.emplace(ring);
        }
    };
    std::thread readers[2];
    for (int k = 0; k < 2; ++k) readers[k] = std::thread(listen, std::ref(read[k]));
    Writer writer(ring);
#ifdef __SANITIZE_ADDRESS__
    constexpr int kFrames = 10000;  // faults of memory are found early, those of order elsewhere
#else
    constexpr int kFrames = 50000;
#endif
    for (int i = 0; read[0] < kFrames || read[1] < kFrames; ++i) {
        if (i % 50 == 49 && i % 1000 >= 500) {  // between them long enough to be overtaken
            ring.reset();
            writer.frame = 0;
        }
        writer.write<float>(1 + i % 199);
        if (i % 100 == 0) std::this_thread::yield();  // else nobody reads anything
    }
    ends = true;
    for (auto& r : readers) r.join();
    EXPECT_EQ(wrong, 0);
}

}  // namespace
}  // namespace quillworks
