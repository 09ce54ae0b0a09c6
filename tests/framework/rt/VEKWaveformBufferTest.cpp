#include "rt/VEKWaveformBuffer.h"

#include <gtest/gtest.h>

#include <thread>

TEST(VEKWaveformBuffer, ColumnsPastTheWidthAreDroppedAndTheCountStaysAtTheWidth)
{
    VEKWaveformBuffer buffer(1, 3);
    for (quint64 column = 0; column < 6; ++column) {
        buffer.setPositiveValue(0.5f, column);
        buffer.setNegativeValue(-0.25f, column);
    }
    EXPECT_EQ(buffer.frames(), 3u);
    EXPECT_EQ(buffer.negativeValueAtFrame(2), -0.25f);
    EXPECT_EQ(buffer.positiveValueAtFrame(3), 0.0f);
}

TEST(VEKWaveformBuffer, AReaderSeesEveryPublishedColumnComplete)
{
    // Each column holds +c and -c; a column seen as published with other values was torn.
    constexpr quint64 width = 200000;
    VEKWaveformBuffer buffer(2, width);
    std::thread writer([&] {
        for (quint64 c = 0; c < width; ++c)
            for (quint32 ch = 0; ch < 2; ++ch) {
                buffer.setPositiveValue(float(c), c, ch);
                buffer.setNegativeValue(-float(c), c, ch);
            }
    });
    quint64 torn = 0, seen = 0;
    while (seen < width) {
        const quint64 frames = buffer.frames();
        for (quint64 c = seen; c < frames; ++c)
            for (quint32 ch = 0; ch < 2; ++ch)
                torn += buffer.positiveValueAtFrame(c, ch) != float(c)
                    || buffer.negativeValueAtFrame(c, ch) != -float(c);
        seen = frames;
    }
    writer.join();
    EXPECT_EQ(torn, 0u);
}
