#pragma once

#include <QByteArray>
#include <QString>
#include <QtGlobal>

#include <algorithm>

// Cuts a byte stream into frames: a 4-byte big-endian length, then that many bytes. Bytes may
// arrive in pieces of any size; a frame is handed out once it is whole. A length above
// the limit (maxFrameSize unless lowered) breaks the stream as soon as its four bytes are in, before anything of that
// size is allocated; the payload grows only as its bytes arrive.
//
// Not thread-safe: one reader per connection, used on that connection's thread.
class VEKFrameReader {
public:
    static constexpr quint32 maxFrameSize = 16 * 1024 * 1024;

    // A lower limit than maxFrameSize for this stream (a peer whose messages are all small).
    void setLimit(quint32 bytes) { m_limit = std::min(bytes, maxFrameSize); }

    // Takes bytes from `data` up to the end of the current frame at most, so that a caller
    // can hand out each frame before reading on. Returns how many bytes it took: fewer than
    // `size` when a frame became ready (take it before feeding more) or the stream broke.
    qsizetype feed(const char *data, qsizetype size);

    // How many more bytes the current frame wants: a good size for the next read.
    qsizetype wanted() const;

    bool hasFrame() const { return m_ready; }
    // The whole frame's payload, without its length; the reader moves on to the next frame.
    QByteArray takeFrame();

    // The stream announced a frame over the limit; nothing more is taken.
    bool failed() const { return !m_error.isEmpty(); }
    const QString &error() const { return m_error; }

    // True between frames: no part of a frame is waiting.
    bool atBoundary() const { return !m_ready && m_headerFill == 0; }

private:
    uchar m_header[4] = {};
    int m_headerFill = 0;
    quint32 m_length = 0;
    QByteArray m_payload;
    bool m_ready = false;
    QString m_error;
    quint32 m_limit = maxFrameSize;
};
