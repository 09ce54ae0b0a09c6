#include "OutputTestSupport.h"
#include "outputs/VEKSamplePacker.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace OutputTestSupport;

namespace {
QByteArray packed(VEKSampleEncoding encoding, const VEKAudioBufferList &list)
{
    const VEKSamplePacker packer(encoding);
    QByteArray out(qsizetype(list.frames()) * list.numberOfChannels() * packer.bytesPerSample(), '\x5A');
    packer.pack(list, out.data());
    return out;
}

VEKAudioBufferList listOf(const std::vector<std::vector<float>> &planes)
{
    VEKAudioBufferList list(quint32(planes.size()), quint32(planes.front().size()));
    for (quint32 c = 0; c < planes.size(); ++c)
        std::copy(planes[c].begin(), planes[c].end(), list.channel(c));
    return list;
}
}

// Every 16-bit value, as the float a decoder makes of it, must come back as itself: in a 16-bit
// word, and shifted into 24- and 32-bit words with nothing else changed.
TEST(SamplePackerGrid, EverySixteenBitValueSurvivesEveryIntegerWord)
{
    std::vector<qint32> values;
    std::vector<float> plane;
    for (qint32 v = -32768; v <= 32767; ++v) {
        values.push_back(v);
        plane.push_back(float(v) / 32768.0f);
    }
    const VEKAudioBufferList list = listOf({plane});
    EXPECT_EQ(packed(VEKSampleEncoding::Int16, list), packInts(values, 0, 2));
    EXPECT_EQ(packed(VEKSampleEncoding::Int24Packed, list), packInts(values, 8, 3));
    EXPECT_EQ(packed(VEKSampleEncoding::Int32, list), packInts(values, 16, 4));
}

// Interleaving: frame by frame, channel by channel, and only the list's valid frames.
TEST(SamplePackerLayout, InterleavesFramesInChannelOrderAndStopsAtTheValidFrames)
{
    VEKAudioBufferList list = listOf({{1 / 32768.f, 2 / 32768.f, 9 / 32768.f},
                                      {-1 / 32768.f, -2 / 32768.f, 9 / 32768.f},
                                      {100 / 32768.f, 200 / 32768.f, 9 / 32768.f}});
    list.setFrames(2);
    QByteArray out(3 * 3 * 2 + 4, '\x5A');
    VEKSamplePacker(VEKSampleEncoding::Int16).pack(list, out.data());
    EXPECT_EQ(out.left(12), packInts({1, -1, 100, 2, -2, 200}, 0, 2));
    EXPECT_EQ(out.mid(12), QByteArray(10, '\x5A')) << "wrote past the valid frames";
}

// Full scale and beyond clip to the largest word instead of wrapping to the other sign; NaN
// (a broken effect) must not become a full-scale click.
TEST(SamplePackerLimits, ClipsAtFullScaleSilencesNaNAndRoundsToTheNearestWord)
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    for (const float x : {1.0f, 1.0001f, 7.0f, std::numeric_limits<float>::infinity()}) {
        EXPECT_EQ(VEKSamplePacker::toInt16(x), 32767) << x;
        EXPECT_EQ(VEKSamplePacker::toInt24(x), 8388607) << x;
        EXPECT_EQ(VEKSamplePacker::toInt32(x), 2147483647) << x;
        EXPECT_EQ(VEKSamplePacker::toInt16(-x), -32768) << x;
        EXPECT_EQ(VEKSamplePacker::toInt24(-x), -8388608) << x;
        EXPECT_EQ(VEKSamplePacker::toInt32(-x), std::numeric_limits<qint32>::min()) << x;
    }
    EXPECT_EQ(VEKSamplePacker::toInt16(nan), 0);
    EXPECT_EQ(VEKSamplePacker::toInt32(nan), 0);
    // Just under full scale in a 32-bit word: the largest float below 1 is not clipped.
    EXPECT_EQ(VEKSamplePacker::toInt32(std::nextafter(1.0f, 0.0f)), 2147483520);
    // Off-grid values round to the nearest word.
    EXPECT_EQ(VEKSamplePacker::toInt16(100.4f / 32768.0f), 100);
    EXPECT_EQ(VEKSamplePacker::toInt16(100.6f / 32768.0f), 101);
    EXPECT_EQ(VEKSamplePacker::toInt16(-100.6f / 32768.0f), -101);
    EXPECT_EQ(VEKSamplePacker::toInt24(0.5f / 8388608.0f), 0); // a tie goes to even
}
