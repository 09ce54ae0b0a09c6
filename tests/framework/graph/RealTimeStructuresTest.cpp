// The lock-free pieces the render thread relies on, under two threads at once.

#include "rt/VEKAudioRingBuffer.h"
#include "rt/VEKRenderSnapshot.h"
#include "rt/VEKSPSCQueue.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

TEST(SPSCQueue, DeliversEveryItemInOrderAcrossThreads)
{
    VEKSPSCQueue<quint64> queue(64);
    constexpr quint64 count = 200000;
    std::thread producer([&] {
        for (quint64 i = 1; i <= count;)
            if (queue.push(i))
                ++i;
    });
    quint64 expected = 1, value = 0;
    while (expected <= count) {
        if (queue.pop(value)) {
            ASSERT_EQ(value, expected);
            ++expected;
        }
    }
    producer.join();
    EXPECT_TRUE(queue.isEmpty());
}

TEST(SPSCQueue, RefusesWhenFullAndReleasesWhatItHeldOnTheConsumerSide)
{
    VEKSPSCQueue<std::shared_ptr<int>> queue(3);
    auto item = std::make_shared<int>(5);
    size_t pushed = 0;
    while (queue.push(item))
        ++pushed;
    EXPECT_EQ(pushed, queue.capacity());
    EXPECT_GE(pushed, 3u);
    EXPECT_EQ(item.use_count(), long(pushed + 1));
    std::shared_ptr<int> out;
    while (queue.pop(out))
        out.reset();
    EXPECT_EQ(item.use_count(), 1) << "popped slots keep no reference";
}

TEST(AudioRingBuffer, KeepsFramesInOrderAcrossTheWrapWithUnevenChunks)
{
    VEKAudioRingBuffer ring;
    ring.allocate(2, 1000);
    VEKAudioBufferList in(2, 337), out(3, 251);
    quint64 written = 0, read = 0;
    std::thread producer([&] {
        while (written < 100000) {
            const quint32 n = quint32(std::min<quint64>(337, 100000 - written));
            for (quint32 f = 0; f < n; ++f) {
                in.channel(0)[f] = float(written + f);
                in.channel(1)[f] = -float(written + f);
            }
            quint32 done = 0;
            while (done < n)
                done += ring.write(in, done, n - done);
            written += n;
        }
    });
    while (read < 100000) {
        const quint32 got = ring.read(out, 0, 251);
        for (quint32 f = 0; f < got; ++f) {
            ASSERT_EQ(out.channel(0)[f], float(read + f));
            ASSERT_EQ(out.channel(1)[f], -float(read + f));
            ASSERT_EQ(out.channel(2)[f], 0.0f) << "a channel the ring lacks is silence";
        }
        read += got;
    }
    producer.join();
    EXPECT_EQ(ring.availableToRead(), 0u);
}

TEST(AudioRingBuffer, PeekKeepsDiscardAndResetDropFrames)
{
    VEKAudioRingBuffer ring;
    ring.allocate(1, 16);
    VEKAudioBufferList in(1, 20), out(1, 20);
    for (quint32 f = 0; f < 20; ++f)
        in.channel(0)[f] = float(f);
    EXPECT_EQ(ring.write(in, 0, 20), 16u) << "only what fits";
    EXPECT_EQ(ring.discard(5), 5u);
    EXPECT_EQ(ring.peek(out, 0, 1), 1u);
    EXPECT_EQ(out.channel(0)[0], 5.0f);
    EXPECT_EQ(ring.read(out, 2, 3), 3u) << "a peek leaves the frames";
    EXPECT_EQ(out.channel(0)[2], 5.0f);
    ring.resetFromProducer();
    EXPECT_EQ(ring.availableToRead(), 0u);
    EXPECT_EQ(ring.availableToWrite(), 16u);
}

namespace {

struct Counted {
    explicit Counted(int v) : value(v) { ++alive; }
    ~Counted()
    {
        value = -1;
        --alive;
    }
    int value;
    static inline std::atomic<int> alive{0};
};

} // namespace

TEST(RenderSnapshot, TheReaderNeverSeesAFreedObjectAndNothingLeaks)
{
    {
        VEKRenderSnapshot<Counted> snapshot;
        snapshot.publish(std::make_unique<Counted>(0));
        std::atomic<bool> done{false};
        std::atomic<quint64> reads{0};
        std::thread reader([&] {
            while (!done.load()) {
                const Counted *c = snapshot.acquire();
                // A freed object reads -1; a live one never does.
                ASSERT_GE(c->value, 0);
                snapshot.release();
                reads.fetch_add(1);
            }
        });
        while (reads.load() == 0)
            std::this_thread::yield();
        for (int i = 1; i <= 20000; ++i) {
            snapshot.publish(std::make_unique<Counted>(i));
            if (i % 1000 == 0)
                std::this_thread::yield();
        }
        done.store(true);
        reader.join();
        EXPECT_TRUE(snapshot.collect());
        EXPECT_EQ(Counted::alive.load(), 1);
    }
    EXPECT_EQ(Counted::alive.load(), 0);
}
