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

// What channel c holds in frame i of the count that began with reset number `count`: exact in
// float, and another for every channel, and for every frame and count that can be in the ring
// together.
float valueOf(int c, std::int64_t i, int count)
{
    return float((i * 4 + c) % (1 << 20) + count % 16 * (1 << 20));
}

struct Writer {
    explicit Writer(CaptureRing& ring) : ring(ring) {}
    template <typename T> void write(int n)
    {
        std::vector<T> x[kChannels];
        const T* pointers[kChannels];
        for (int c = 0; c < kChannels; ++c) {
            x[c].resize(std::size_t(n));
            for (int i = 0; i < n; ++i) x[c][std::size_t(i)] = T(valueOf(c, frame + i, count));
            pointers[c] = x[c].data();
        }
        ring.write(pointers, n);
        frame += n;
    }
    void reset()
    {
        ring.reset();
        frame = 0;
        ++count;
    }
    CaptureRing& ring;
    std::int64_t frame = 0;
    int count = 0;
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
        const int count = int(x[0][0]) >> 20;  // all of a piece is of one
        for (int c = 0; c < kChannels; ++c)
            for (int i = 0; i < piece.frames; ++i)
                wrong += x[std::size_t(c)][std::size_t(i)] != valueOf(c, piece.first + i, count);
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

    writer.reset();
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
    std::atomic<std::int64_t> wrong{0}, lost{0};
    std::atomic<int> calls[2]{};
    const auto listen = [&](int k) {
        std::optional<Listener> listener(std::in_place, ring);
        for (int i = 1; !ends; ++i) {
            listener->read();
            ++calls[k];
            wrong += std::exchange(listener->wrong, 0);
            lost += std::exchange(listener->lost, 0);
            if (i % 8 == 0) std::this_thread::yield();  // and falls behind
            if (i % (k == 0 ? 9 : 256) != 0) continue;
            listener.reset();  // goes, and comes back in the middle of a call
            std::this_thread::yield();
            listener.emplace(ring);
        }
    };
    std::thread readers[2];
    for (int k = 0; k < 2; ++k) readers[k] = std::thread(listen, k);
    Writer writer(ring);
    // So that they read on a busy machine too: one whole call from here on for each.
    const auto letRead = [&] {
        for (auto& made : calls)
            for (const int before = made; made - before < 2;) std::this_thread::yield();
    };
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    constexpr int kCalls = 300;
#else
    constexpr int kCalls = 3000;
#endif
    for (int i = 0; i < 100; ++i) {
        letRead();
        const int before = i % 4 * kCalls / 8;  // the reset comes at any time
        for (int k = 0; k < kCalls; ++k) {
            if (i % 2 == 0 && k % (kCalls / 3) == before % (kCalls / 3)) writer.reset();
            writer.write<float>(1 + (i + k) % 199);
        }
    }
    ends = true;
    for (auto& r : readers) r.join();
    EXPECT_EQ(wrong, 0);
    EXPECT_GT(lost, 0) << "nobody has been overtaken";
}

/// What was written just before it came is seen late by its processor, as is that nobody read then.
TEST(CaptureRing, AReaderThatComesWhileItIsWrittenMissesNothingUnreported)
{
    CaptureRing ring;
    ring.prepare(1, 8000, 64);
    std::atomic<bool> ends{false};
    int wrong = 0;
    std::thread reader([&] {
        std::array<float, CaptureRing::kMaxRead> x;
        float* const out[] = {x.data()};
        while (!ends) {
            CaptureRing::Reader coming(ring);
            std::int64_t next = -1;
            for (int i = 0; i < 8; ++i) {
                const auto piece = coming.read(out);
                if (piece.frames == 0) continue;
                wrong += next >= 0 && piece.first != next + piece.lost;
                next = piece.first + piece.frames;
            }
        }
    });
    const float zeros[8] = {};
    const float* const pointers[] = {zeros};
    for (int i = 0; i < 1000000; ++i) ring.write(pointers, 8);
    ends = true;
    reader.join();
    EXPECT_EQ(wrong, 0);
}

}  // namespace
}  // namespace quillworks
