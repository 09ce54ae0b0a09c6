#include "rt/VEKAudioBufferList.h"

#include <gtest/gtest.h>

TEST(VEKAudioBufferList, RampsJoinWithoutAStepAcrossBuffers)
{
    VEKAudioBufferList a(1, 4), b(1, 4);
    for (quint32 i = 0; i < 4; ++i)
        a.channel(0)[i] = b.channel(0)[i] = 1.0f;
    a.scaleWithRamp(0.0f, 0.5f);
    b.scaleWithRamp(0.5f, 1.0f);
    const float expected[8] = {0.0f, 0.125f, 0.25f, 0.375f, 0.5f, 0.625f, 0.75f, 0.875f};
    for (int i = 0; i < 4; ++i) {
        EXPECT_FLOAT_EQ(a.channel(0)[i], expected[i]);
        EXPECT_FLOAT_EQ(b.channel(0)[i], expected[i + 4]);
    }
}

TEST(VEKAudioBufferList, UnityGainLeavesTheBitsAlone)
{
    VEKAudioBufferList a(2, 3);
    a.channel(1)[2] = 0.1234567f;
    a.scale(1.0f);
    a.scaleWithRamp(1.0f, 1.0f);
    EXPECT_EQ(a.channel(1)[2], 0.1234567f);
}

TEST(VEKAudioBufferList, FindsTheFirstAndLastLoudFrameOverAllChannels)
{
    VEKAudioBufferList a(2, 10);
    a.channel(0)[3] = -0.5f;
    a.channel(1)[7] = 0.25f;
    EXPECT_EQ(a.frameGreaterThanOrEqualToMagnitude(0.25f, false), 3u);
    EXPECT_EQ(a.frameGreaterThanOrEqualToMagnitude(0.25f, true), 7u);
    EXPECT_EQ(a.frameGreaterThanOrEqualToMagnitude(0.75f, false), VEKAudioBufferList::NotFound);
    EXPECT_FLOAT_EQ(a.maximum(), 0.25f);
    EXPECT_FLOAT_EQ(a.minimum(), -0.5f);
    a.setFrames(3); // only frames 0..2 count now
    EXPECT_EQ(a.frameGreaterThanOrEqualToMagnitude(0.25f, false), VEKAudioBufferList::NotFound);
}
