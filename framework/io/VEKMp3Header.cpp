#include "VEKMp3Header.h"

#include "core/VEKPaths.h"

#include <QByteArray>
#include <QFile>

VEKMp3Header VEKMp3Header::read(const QString &path)
{
    QFile file;
    if (!VEKPaths::open(file, path, QIODevice::ReadOnly))
        return {};
    return read(file);
}

VEKMp3Header VEKMp3Header::read(QIODevice &file)
{
    VEKMp3Header info;
    qint64 offset = 0;
    for (;;) {
        // Beyond the end nothing more can be read; a buffer would refuse the seek.
        if (offset >= file.size() || !file.seek(offset))
            break;
        const QByteArray id3 = file.read(10);
        if (id3.size() < 10 || !id3.startsWith("ID3"))
            break;
        const auto b = [&](int i) { return static_cast<quint32>(static_cast<quint8>(id3[i])); };
        offset += 10 + ((b(6) & 0x7f) << 21 | (b(7) & 0x7f) << 14 | (b(8) & 0x7f) << 7 | (b(9) & 0x7f))
                  + ((b(5) & 0x10) ? 10 : 0);
    }

    if (offset >= file.size() || !file.seek(offset))
        return info;
    const QByteArray data = file.read(64 * 1024);
    const auto byte = [&](qsizetype i) { return static_cast<quint32>(static_cast<quint8>(data[i])); };
    const auto be32 = [&](qsizetype i) {
        return byte(i) << 24 | byte(i + 1) << 16 | byte(i + 2) << 8 | byte(i + 3);
    };

    for (qsizetype i = 0; i + 4 <= data.size(); ++i) {
        if (byte(i) != 0xff || (byte(i + 1) & 0xe0) != 0xe0)
            continue;
        const quint32 version = (byte(i + 1) >> 3) & 3; // 3: MPEG-1, 2: MPEG-2, 0: MPEG-2.5
        const quint32 layer = (byte(i + 1) >> 1) & 3;   // 1: layer III
        const quint32 bitrateIndex = byte(i + 2) >> 4;
        const quint32 rateIndex = (byte(i + 2) >> 2) & 3;
        if (version == 1 || layer != 1 || bitrateIndex == 0 || bitrateIndex == 15 || rateIndex == 3)
            continue;
        const bool mpeg1 = version == 3;
        const bool mono = (byte(i + 3) >> 6) == 3;
        info.samplesPerFrame = mpeg1 ? 1152 : 576;

        const qsizetype sideInfo = mpeg1 ? (mono ? 17 : 32) : (mono ? 9 : 17);
        qsizetype p = i + 4 + sideInfo;
        if (p + 8 <= data.size() && (data.mid(p, 4) == "Xing" || data.mid(p, 4) == "Info")) {
            const quint32 flags = be32(p + 4);
            p += 8;
            if (flags & 1) {
                if (p + 4 > data.size())
                    return info;
                info.frameCount = be32(p);
                p += 4;
            }
            if (flags & 2)
                p += 4;
            if (flags & 4)
                p += 100;
            if (flags & 8)
                p += 4;
            // LAME extension: encoder name (9), revision, lowpass, replay gain (8), flags,
            // bitrate, then 12 bits of delay and 12 of padding.
            if (p + 24 <= data.size()) {
                const QByteArray encoder = data.mid(p, 4);
                if (encoder == "LAME" || encoder == "Lavf" || encoder == "Lavc") {
                    const quint32 v = byte(p + 21) << 16 | byte(p + 22) << 8 | byte(p + 23);
                    info.hasLameTag = true;
                    info.startPadding = v >> 12;
                    info.endPadding = v & 0xfff;
                }
            }
        } else {
            const qsizetype v = i + 4 + 32;
            if (v + 18 <= data.size() && data.mid(v, 4) == "VBRI")
                info.frameCount = be32(v + 14);
        }
        return info;
    }
    return info;
}
