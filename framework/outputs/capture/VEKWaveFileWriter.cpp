#include "VEKWaveFileWriter.h"
#include "core/VEKPaths.h"

#include "core/VEKLocalizedString.h"

#include <QFile>
#include <QtEndian>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>

namespace {

const QString kDomain = QStringLiteral("VEKAudioDevice");
constexpr size_t kBufferBytes = 256 * 1024;

void put16(QByteArray &b, quint16 v)
{
    char d[2];
    qToLittleEndian(v, d);
    b.append(d, 2);
}

void put32(QByteArray &b, quint32 v)
{
    char d[4];
    qToLittleEndian(v, d);
    b.append(d, 4);
}

quint32 channelMask(quint32 channels)
{
    switch (channels) {
    case 1:
        return 0x4; // front centre
    case 2:
        return 0x3;
    case 4:
        return 0x33;
    case 6:
        return 0x3F;
    case 8:
        return 0x63F;
    default:
        return 0; // no speaker positions claimed
    }
}

// The fact chunk (frames per channel) that readers expect beside the extensible header is at
// `*factOffset`, or 0 when there is none.
QByteArray header(const VEKAudioFormat &format, quint32 *factOffset)
{
    const quint32 bits = format.isFloat ? 32 : format.bitDepth;
    const quint32 container = bits; // 24-bit samples are packed in three bytes
    const quint16 blockAlign = quint16(format.numberOfChannels * container / 8);
    const bool extensible = format.isFloat || bits > 16 || format.numberOfChannels > 2;
    QByteArray b;
    b.append("RIFF", 4);
    put32(b, 0); // sizes come with finish()
    b.append("WAVE", 4);
    b.append("fmt ", 4);
    put32(b, extensible ? 40 : 16);
    put16(b, extensible ? 0xFFFE : 1);
    put16(b, quint16(format.numberOfChannels));
    put32(b, quint32(format.sampleRate));
    put32(b, quint32(format.sampleRate) * blockAlign);
    put16(b, blockAlign);
    put16(b, quint16(container));
    if (extensible) {
        put16(b, 22);
        put16(b, quint16(bits));
        put32(b, channelMask(format.numberOfChannels));
        // KSDATAFORMAT_SUBTYPE_PCM or _IEEE_FLOAT: the format tag, then a fixed tail.
        put32(b, format.isFloat ? 3 : 1);
        static const unsigned char tail[12] = {0x00, 0x00, 0x10, 0x00, 0x80, 0x00,
                                               0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71};
        b.append(reinterpret_cast<const char *>(tail), 12);
        b.append("fact", 4);
        put32(b, 4);
        *factOffset = quint32(b.size());
        put32(b, 0);
    } else {
        *factOffset = 0;
    }
    b.append("data", 4);
    put32(b, 0);
    return b;
}

quint32 clamp32(quint64 v) { return v > 0xFFFFFFFFull ? 0xFFFFFFFFu : quint32(v); }

} // namespace

bool VEKWaveFileWriter::open(const QString &path, const VEKAudioFormat &format, VEKError *error)
{
    close();
    quint32 factOffset = 0;
    const QByteArray h = header(format, &factOffset);
    const int fd = ::open(VEKPaths::native(path).constData(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0 || ::pwrite(fd, h.constData(), size_t(h.size()), 0) != h.size()) {
        const int e = errno;
        if (fd >= 0)
            ::close(fd);
        VEKError::set(error, VEKError(kDomain, -e, VEKLocalizedString("Error_captureFile"),
                                      QStringLiteral("%1: %2").arg(path, QString::fromLocal8Bit(std::strerror(e)))));
        return false;
    }
    m_path = path;
    m_fd = fd;
    m_headerBytes = quint32(h.size());
    m_factOffset = factOffset;
    m_blockAlign = format.numberOfChannels * (format.isFloat ? 32 : format.bitDepth) / 8;
    m_dataBytes = 0;
    m_buffer.assign(kBufferBytes, 0);
    m_buffered = 0;
    m_errno.store(0);
    return true;
}

void VEKWaveFileWriter::writeAt(quint64 offset, const void *bytes, size_t size)
{
    // After a failure nothing more is written: later writes could leave holes of zeros in the
    // middle of the audio once some space comes free.
    if (m_errno.load() != 0)
        return;
    const char *p = static_cast<const char *>(bytes);
    while (size > 0) {
        const ssize_t n = ::pwrite(m_fd, p, size, off_t(offset));
        if (n <= 0) {
            if (n < 0 && errno == EINTR)
                continue;
            int expected = 0;
            m_errno.compare_exchange_strong(expected, n < 0 ? errno : ENOSPC);
            return;
        }
        p += n;
        size -= size_t(n);
        offset += quint64(n);
    }
}

void VEKWaveFileWriter::flush()
{
    if (m_buffered == 0)
        return;
    writeAt(m_headerBytes + m_dataBytes, m_buffer.data(), m_buffered);
    m_dataBytes += m_buffered;
    m_buffered = 0;
}

void VEKWaveFileWriter::append(const void *bytes, size_t size)
{
    if (m_fd < 0)
        return;
    if (m_buffered + size > m_buffer.size()) {
        flush();
        if (size > m_buffer.size()) {
            writeAt(m_headerBytes + m_dataBytes, bytes, size);
            m_dataBytes += size;
            return;
        }
    }
    std::memcpy(m_buffer.data() + m_buffered, bytes, size);
    m_buffered += size;
}

bool VEKWaveFileWriter::finish(VEKError *error)
{
    if (m_fd < 0)
        return true;
    flush();
    // A chunk of odd length is followed by a pad byte; appends overwrite it.
    const bool odd = m_dataBytes % 2 != 0;
    if (odd) {
        const char pad = 0;
        writeAt(m_headerBytes + m_dataBytes, &pad, 1);
    }
    char size[4];
    qToLittleEndian(clamp32(m_headerBytes - 8 + m_dataBytes + (odd ? 1 : 0)), size);
    writeAt(4, size, 4);
    qToLittleEndian(clamp32(m_dataBytes), size);
    writeAt(m_headerBytes - 4, size, 4);
    if (m_factOffset != 0) {
        qToLittleEndian(clamp32(m_dataBytes / m_blockAlign), size);
        writeAt(m_factOffset, size, 4);
    }
    if (m_errno.load() == 0 && ::fsync(m_fd) != 0)
        m_errno.store(errno);
    const int e = m_errno.load();
    if (e != 0) {
        VEKError::set(error, VEKError(kDomain, -e, VEKLocalizedString("Error_captureFile"),
                                      QStringLiteral("%1: %2").arg(m_path, QString::fromLocal8Bit(std::strerror(e)))));
        return false;
    }
    return true;
}

void VEKWaveFileWriter::close()
{
    if (m_fd < 0)
        return;
    finish(nullptr);
    ::close(m_fd);
    m_fd = -1;
    m_buffer.clear();
    m_buffer.shrink_to_fit();
}

namespace {

// Where the chunks of a WAV file lie that holdsFrames() and truncateFile() need.
struct WaveChunks {
    quint32 blockAlign = 0;
    qint64 factBody = -1; // the frame count of a "fact" chunk
    qint64 dataHeader = 0;
    quint32 dataSize = 0;
};

// Walks the chunks of the file's first 4 KiB, which hold all that comes before our samples, up
// to the data chunk. An empty string on success, else why not.
QString findChunks(QFile &file, WaveChunks &chunks)
{
    const QByteArray head = file.read(4096);
    if (head.size() < 12 || !head.startsWith("RIFF") || head.mid(8, 4) != "WAVE")
        return QStringLiteral("not a WAV file");
    qint64 at = 12;
    while (at + 8 <= head.size()) {
        const QByteArray id = head.mid(at, 4);
        const quint32 size = qFromLittleEndian<quint32>(head.constData() + at + 4);
        if (id == "fmt " && at + 8 + 14 <= head.size()) {
            chunks.blockAlign = qFromLittleEndian<quint16>(head.constData() + at + 8 + 12);
        } else if (id == "fact") {
            chunks.factBody = at + 8;
        } else if (id == "data") {
            if (chunks.blockAlign == 0)
                return QStringLiteral("no format chunk");
            chunks.dataHeader = at;
            chunks.dataSize = size;
            return {};
        }
        at += 8 + size + (size % 2);
    }
    return QStringLiteral("no data chunk");
}

} // namespace

bool VEKWaveFileWriter::holdsFrames(const QString &path, quint64 frames, VEKError *error)
{
    QFile file(path);
    const auto fail = [&](const QString &reason) {
        VEKError::set(error, VEKError(kDomain, -EIO, VEKLocalizedString("Error_captureFile"),
                                      QStringLiteral("%1: %2").arg(path, reason)));
        return false;
    };
    if (!file.open(QIODevice::ReadOnly))
        return fail(file.errorString());
    WaveChunks chunks;
    const QString problem = findChunks(file, chunks);
    if (!problem.isEmpty())
        return fail(problem);
    const quint64 blockAlign = chunks.blockAlign;
    const quint64 size = chunks.dataSize;
    const quint64 stored = quint64(file.size()) - quint64(chunks.dataHeader + 8);
    const quint64 wanted = std::min<quint64>(frames * blockAlign, size);
    if (stored < wanted || size < frames * blockAlign)
        return fail(QStringLiteral("only %1 of %2 frames reached the disk")
                        .arg(std::min(stored, size) / blockAlign)
                        .arg(frames));
    return true;
}

bool VEKWaveFileWriter::truncateFile(const QString &path, quint64 frames, VEKError *error)
{
    QFile file(path);
    const auto fail = [&](const QString &reason) {
        VEKError::set(error, VEKError(kDomain, -EINVAL, VEKLocalizedString("Error_captureFile"),
                                      QStringLiteral("%1: %2").arg(path, reason)));
        return false;
    };
    if (!file.open(QIODevice::ReadWrite))
        return fail(file.errorString());
    WaveChunks chunks;
    const QString problem = findChunks(file, chunks);
    if (!problem.isEmpty())
        return fail(problem);
    const qint64 at = chunks.dataHeader;
    const quint64 have = (quint64(file.size()) - quint64(at + 8)) / chunks.blockAlign;
    if (frames >= have)
        return true;
    const quint64 bytes = frames * chunks.blockAlign;
    const bool odd = bytes % 2 != 0;
    char buffer[4];
    bool ok = file.resize(qint64(at + 8 + bytes + (odd ? 1 : 0)));
    if (odd) {
        ok = ok && file.seek(qint64(at + 8 + bytes)) && file.write("\0", 1) == 1;
    }
    qToLittleEndian(clamp32(quint64(at) + bytes + (odd ? 1 : 0)), buffer);
    ok = ok && file.seek(4) && file.write(buffer, 4) == 4;
    qToLittleEndian(clamp32(bytes), buffer);
    ok = ok && file.seek(at + 4) && file.write(buffer, 4) == 4;
    if (chunks.factBody >= 0) {
        qToLittleEndian(clamp32(frames), buffer);
        ok = ok && file.seek(chunks.factBody) && file.write(buffer, 4) == 4;
    }
    return ok ? true : fail(file.errorString());
}
