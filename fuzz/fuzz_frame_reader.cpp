// The frame reader on an arbitrary stream cut into arbitrary pieces. The input's first byte
// says how many of the following bytes are piece sizes; the rest is the stream. Every result
// is checked against a plain reading of the whole stream at once: the same frames in the same
// order, the stream broken exactly where a length over the limit is announced, and never an
// allocation larger than the bytes fed so far allow.

#include "FuzzSupport.h"
#include "net/VEKFrameReader.h"

#include <QList>

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace {

struct Expected {
    QList<QByteArray> frames;
    bool broken = false;
    qsizetype pendingWanted = 0; // what the reader should still want at the end
    bool atBoundary = true;
};

Expected readWhole(const char *p, qsizetype size)
{
    Expected e;
    qsizetype at = 0;
    while (at < size) {
        if (size - at < 4) {
            e.pendingWanted = 4 - (size - at);
            e.atBoundary = false;
            return e;
        }
        const auto *h = reinterpret_cast<const uchar *>(p + at);
        const quint32 length = (quint32(h[0]) << 24) | (quint32(h[1]) << 16) | (quint32(h[2]) << 8) | h[3];
        at += 4;
        if (length > VEKFrameReader::maxFrameSize) {
            e.broken = true;
            e.atBoundary = false;
            return e;
        }
        if (size - at < qsizetype(length)) {
            e.pendingWanted = qsizetype(length) - (size - at);
            e.atBoundary = false;
            return e;
        }
        e.frames.append(QByteArray(p + at, qsizetype(length)));
        at += length;
    }
    return e;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    using namespace FuzzSupport;
    LargestAllocation::install();
    if (size == 0)
        return 0;

    const qsizetype sizeCount = std::min<qsizetype>(data[0] % 32, qsizetype(size) - 1);
    const uint8_t *sizes = data + 1;
    const char *stream = reinterpret_cast<const char *>(data + 1 + sizeCount);
    const qsizetype streamSize = qsizetype(size) - 1 - sizeCount;

    VEKFrameReader reader;
    QList<QByteArray> frames;
    qsizetype fed = 0;
    qsizetype piece = 0;
    while (fed < streamSize && !reader.failed()) {
        // Piece sizes 1..256 in the order given, over and over; no sizes means one big piece.
        const qsizetype want = sizeCount > 0 ? qsizetype(sizes[piece++ % sizeCount]) + 1 : streamSize;
        const qsizetype n = std::min(want, streamSize - fed);
        qsizetype offered = 0;
        while (offered < n && !reader.failed()) {
            const qsizetype offer = n - offered;
            LargestAllocation::reset();
            const qsizetype took = reader.feed(stream + fed + offered, offer);
            // The payload grows with the bytes that arrived (doubling at most), never with
            // the announced length.
            if (LargestAllocation::largest() > size_t(2 * (fed + offered + took)) + 4096)
                fail("feed allocated more than the bytes fed so far");
            if (took < 0 || took > offer)
                fail("feed took more than it was given");
            // Even an empty frame takes its four length bytes, so no call may take nothing.
            if (took == 0)
                fail("feed took nothing of what it was offered");
            offered += took;
            if (reader.hasFrame()) {
                const QByteArray frame = reader.takeFrame();
                if (quint32(frame.size()) > VEKFrameReader::maxFrameSize)
                    fail("a frame over the limit was handed out");
                frames.append(frame);
            } else if (took < offer && !reader.failed()) {
                fail("feed stopped early with no frame ready and no error");
            }
        }
        fed += offered;
    }

    const Expected expected = readWhole(stream, streamSize);
    if (frames != expected.frames)
        fail("the frames differ from a reading of the whole stream");
    if (reader.failed() != expected.broken)
        fail(expected.broken ? "a length over the limit was not reported" : "the reader failed on a valid stream");
    if (reader.failed()) {
        if (reader.error().isEmpty())
            fail("a broken stream without an error message");
        char more = 0;
        if (reader.feed(&more, 1) != 0 || reader.hasFrame() || reader.wanted() != 0)
            fail("a broken stream still took bytes");
        return 0;
    }
    if (reader.atBoundary() != expected.atBoundary)
        fail("atBoundary disagrees with the stream");
    if (reader.wanted() != (expected.atBoundary ? 4 : expected.pendingWanted))
        fail("wanted() disagrees with the stream");
    return 0;
}
