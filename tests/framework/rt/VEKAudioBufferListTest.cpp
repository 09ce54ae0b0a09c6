#include "rt/VEKAudioBufferList.h"

#include <gtest/gtest.h>

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
