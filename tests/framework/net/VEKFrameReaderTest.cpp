#include "net/VEKFrameReader.h"
#include "NetTestSupport.h"

#include <QList>
#include <gtest/gtest.h>

using NetTestSupport::frame;

namespace {

// Feeds `stream` in pieces of `piece` bytes, taking frames as they become ready.
QList<QByteArray> cut(VEKFrameReader &reader, const QByteArray &stream, qsizetype piece)
{
    QList<QByteArray> frames;
    for (qsizetype at = 0; at < stream.size() && !reader.failed();) {
        const qsizetype n = std::min(piece, stream.size() - at);
        qsizetype used = 0;
        while (used < n && !reader.failed()) {
            used += reader.feed(stream.constData() + at + used, n - used);
            if (reader.hasFrame())
                frames.append(reader.takeFrame());
        }
        at += n;
    }
    return frames;
}

} // namespace

TEST(FrameReader, CutsAStreamTheSameWayWhateverThePieces)
{
    const QList<QByteArray> payloads{"first", "", QByteArray(70000, 'x'), "last one"};
    QByteArray stream;
    for (const QByteArray &p : payloads)
        stream += frame(p);
    for (qsizetype piece : {qsizetype(1), qsizetype(2), qsizetype(3), qsizetype(5),
                            qsizetype(4096), stream.size()}) {
        VEKFrameReader reader;
        EXPECT_EQ(cut(reader, stream, piece), payloads) << "pieces of " << piece;
        EXPECT_FALSE(reader.failed());
        EXPECT_TRUE(reader.atBoundary());
    }
}

TEST(FrameReader, TakesNoMoreThanTheCurrentFrame)
{
    const QByteArray stream = frame("ab") + frame("cde");
    VEKFrameReader reader;
    EXPECT_EQ(reader.wanted(), 4);
    EXPECT_EQ(reader.feed(stream.constData(), stream.size()), 6);
    ASSERT_TRUE(reader.hasFrame());
    EXPECT_EQ(reader.feed(stream.constData() + 6, 1), 0) << "a ready frame must be taken first";
    EXPECT_EQ(reader.takeFrame(), QByteArray("ab"));
    EXPECT_EQ(reader.feed(stream.constData() + 6, 5), 5);
    EXPECT_FALSE(reader.atBoundary());
    EXPECT_EQ(reader.wanted(), 2);
}

TEST(FrameReader, TheLimitIsSixteenMebibytes)
{
    {
        VEKFrameReader reader;
        const QByteArray h = frame({}, VEKFrameReader::maxFrameSize);
        EXPECT_EQ(reader.feed(h.constData(), 4), 4);
        EXPECT_FALSE(reader.failed());
        EXPECT_EQ(reader.wanted(), qsizetype(VEKFrameReader::maxFrameSize));
        const QByteArray body(VEKFrameReader::maxFrameSize, 'z');
        EXPECT_EQ(reader.feed(body.constData(), body.size()), body.size());
        ASSERT_TRUE(reader.hasFrame());
        EXPECT_EQ(reader.takeFrame().size(), body.size());
    }
    for (quint32 giant : {VEKFrameReader::maxFrameSize + 1, 0x7fffffffu, 0xffffffffu}) {
        VEKFrameReader reader;
        const QByteArray stream = frame("more bytes that must not be taken", giant);
        // Cut inside the length as well: the limit applies once the fourth byte is in.
        EXPECT_EQ(reader.feed(stream.constData(), 3), 3);
        EXPECT_FALSE(reader.failed());
        EXPECT_EQ(reader.feed(stream.constData() + 3, stream.size() - 3), 1);
        EXPECT_TRUE(reader.failed()) << giant;
        EXPECT_TRUE(reader.error().contains(QString::number(giant)));
        EXPECT_EQ(reader.wanted(), 0);
        EXPECT_EQ(reader.feed(stream.constData() + 4, 4), 0) << "a broken stream takes nothing";
        EXPECT_FALSE(reader.hasFrame());
    }
}
