// The MP3 header reader on arbitrary file bytes. Besides running clean under the sanitizers,
// what it reads must make sense (a frame size MP3 has, paddings that fit their 12 bits and come
// only with a LAME tag) and must not change when the same bytes are put behind an ID3v2 tag,
// with or without a footer, whose body is full of frame syncs to tempt a wrong skip.

#include "FuzzSupport.h"
#include "io/VEKMp3Header.h"

#include <QBuffer>
#include <QByteArray>

#include <cstddef>
#include <cstdint>

namespace {

VEKMp3Header readBytes(const QByteArray &bytes)
{
    QBuffer buffer;
    buffer.setData(bytes);
    if (!buffer.open(QIODevice::ReadOnly))
        FuzzSupport::fail("a buffer would not open");
    return VEKMp3Header::read(buffer);
}

bool same(const VEKMp3Header &a, const VEKMp3Header &b)
{
    return a.frameCount == b.frameCount && a.samplesPerFrame == b.samplesPerFrame
           && a.hasLameTag == b.hasLameTag && a.startPadding == b.startPadding
           && a.endPadding == b.endPadding;
}

// An ID3v2.4 tag of `bodySize` bytes (a syncsafe size), with a footer when asked.
QByteArray id3Tag(quint32 bodySize, bool footer)
{
    QByteArray tag("ID3\x04\x00", 5);
    tag.append(char(footer ? 0x10 : 0x00));
    for (int shift = 21; shift >= 0; shift -= 7)
        tag.append(char((bodySize >> shift) & 0x7f));
    tag.append(QByteArray(qsizetype(bodySize), '\xff'));
    if (footer)
        tag.append(QByteArray("3DI\x04\x00\x10", 6) + tag.mid(6, 4));
    return tag;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    using FuzzSupport::fail;
    const QByteArray bytes(reinterpret_cast<const char *>(data), qsizetype(size));
    const VEKMp3Header h = readBytes(bytes);

    if (h.samplesPerFrame != 1152 && h.samplesPerFrame != 576)
        fail("a frame size MP3 does not have");
    if (h.startPadding > 0xfff || h.endPadding > 0xfff)
        fail("a padding wider than its 12 bits");
    if (!h.hasLameTag && (h.startPadding != 0 || h.endPadding != 0))
        fail("paddings without a LAME tag");
    if (h.frameCount > 0xffffffffULL)
        fail("a frame count wider than its 32 bits");

    const quint32 bodySize = size > 0 ? data[0] : 0;
    if (!same(h, readBytes(id3Tag(bodySize, false) + bytes)))
        fail("an ID3 tag in front changed the header");
    if (!same(h, readBytes(id3Tag(bodySize, true) + bytes)))
        fail("an ID3 tag with a footer in front changed the header");
    return 0;
}
