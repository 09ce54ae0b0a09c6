// Writes the seed corpora of the fuzzers: archives of the messages the remote connection
// really carries (requests, the status record, song lists, playlists), an archive in the
// platform's own shape (mutable classes, string records, a shared object), and framed
// streams of them for the frame reader, and starts of MP3 files for the MP3 header reader.
//
//   fuzz_make_seeds DIR   ->  DIR/keyed_archive/*, DIR/frame_reader/*, DIR/mp3_header/*

#include "net/VEKFrameReader.h"
#include "net/VEKKeyedArchive.h"
#include "settings/VEKPropertyList.h"

#include <QByteArray>
#include <QDir>
#include <QFile>
#include <QList>
#include <QVariant>

#include <cstdio>

namespace {

QVariant uid(quint64 v) { return QVariant::fromValue(VEKPlistUID{v}); }

QVariantMap song(qlonglong id, const char *name, const char *artist, double length)
{
    return {{"songID", id}, {"name", name}, {"artist", artist}, {"album", "Post"},
            {"length", length}, {"trackNumber", 3}, {"rating", 80}};
}

QList<QVariant> messages()
{
    QList<QVariant> m;
    m.append(QVariantMap{{"command", "getCurrentStatus"}});
    m.append(QVariantMap{{"isPlaying", true}, {"position", 0.25f}, {"name", "Hyperballad"},
                         {"artist", "Bj\xc3\xb6rk"}, {"length", 321.5}, {"dim", false},
                         {"mute", false}, {"hostname", "studio"}});
    m.append(QVariantMap{{"command", "getSongsForArtist"}, {"artist", "Bj\xc3\xb6rk"},
                         {"target", 7}, {"action", "reload:"}});
    m.append(QVariantMap{{"songs", QVariantList{song(1, "Army of Me", "Bj\xc3\xb6rk", 234.0),
                                                song(-2, "Isobel", "", 347.25)}},
                         {"target", qulonglong(0xffffffffffffffffULL)}});
    m.append(QVariantMap{{"playlists", QVariantList{QVariantMap{{"playlistID", 1}, {"name", "Library"},
                                                                {"count", 2}},
                                                    QVariantMap{{"playlistID", 4}, {"name", "Night"},
                                                                {"smart", true}}}}});
    m.append(QVariantMap{{"nested", QVariantMap{{"a", QVariantMap{{"b", QVariantList{1, 2.5, "c",
                                                                  QByteArray("\x00\x01\xff", 3)}}}}}},
                         {"empty", QVariantMap{}}, {"none", QVariantList{}}, {"s", ""}});
    return m;
}

// The platform's shape, which archivedData never writes: a mutable dictionary whose value is
// a mutable string record, and one key object shared by two dictionaries. In XML it must be
// refused, which makes it a start for inputs that are almost right.
QByteArray platformArchive(VEKPropertyList::Format format)
{
    const QVariantMap dictClass{{"$classname", "NSMutableDictionary"},
                                {"$classes", QVariantList{"NSMutableDictionary", "NSDictionary", "NSObject"}}};
    const QVariantMap stringClass{{"$classname", "NSMutableString"},
                                  {"$classes", QVariantList{"NSMutableString", "NSString", "NSObject"}}};
    const QVariantList objects{
        "$null",
        QVariantMap{{"NS.keys", QVariantList{uid(2), uid(3)}},
                    {"NS.objects", QVariantList{uid(4), uid(8)}}, {"$class", uid(5)}},
        "command", "artist",
        QVariantMap{{"NS.string", "getSongsForArtist"}, {"$class", uid(7)}},
        dictClass,
        "Bj\xc3\xb6rk",
        stringClass,
        QVariantMap{{"NS.keys", QVariantList{uid(2)}}, {"NS.objects", QVariantList{uid(6)}},
                    {"$class", uid(5)}},
    };
    return VEKPropertyList::toData(QVariantMap{{"$archiver", "NSKeyedArchiver"}, {"$version", 100000},
                                               {"$top", QVariantMap{{"root", uid(1)}}},
                                               {"$objects", objects}},
                                   format);
}

QByteArray lengthBytes(quint32 n)
{
    const char b[4] = {char(n >> 24), char(n >> 16), char(n >> 8), char(n)};
    return QByteArray(b, 4);
}

QByteArray framed(const QByteArray &payload)
{
    return lengthBytes(quint32(payload.size())) + payload;
}

// The first frame of an MP3 file: a layer III frame header, the side information left zero,
// then `tail` (a Xing, Info or VBRI header or nothing), padded to the frame's 417 bytes.
QByteArray mp3Frame(bool mpeg1, bool mono, const QByteArray &tail)
{
    // 128 kbit/s at 44.1 kHz for MPEG-1, 64 kbit/s at 22.05 kHz for MPEG-2.
    QByteArray frame = mpeg1 ? QByteArray("\xff\xfb\x90", 3) : QByteArray("\xff\xf3\x80", 3);
    frame.append(char(mono ? 0xc0 : 0x00));
    const int sideInfo = mpeg1 ? (mono ? 17 : 32) : (mono ? 9 : 17);
    frame.append(QByteArray(sideInfo, '\0'));
    frame.append(tail);
    frame.append(QByteArray(qMax<qsizetype>(0, 417 - frame.size()), '\0'));
    return frame;
}

// A Xing/Info header with every field (frames, bytes, table of contents, quality) and a LAME
// extension recording 576 frames of delay and 1000 of padding.
QByteArray infoWithLame(const char *marker, const char *encoder)
{
    QByteArray h(marker, 4);
    h.append(lengthBytes(0x0f));
    h.append(lengthBytes(200));
    h.append(lengthBytes(200 * 417));
    h.append(QByteArray(100, '\x10'));
    h.append(lengthBytes(57));
    h.append(QByteArray(encoder).leftJustified(9, ' '));
    h.append(QByteArray(12, '\0'));
    const quint32 delays = 576u << 12 | 1000u;
    h.append(char(delays >> 16)).append(char(delays >> 8)).append(char(delays));
    return h;
}

QByteArray id3(int bodySize)
{
    QByteArray tag("ID3\x03\x00\x00", 6);
    for (int shift = 21; shift >= 0; shift -= 7)
        tag.append(char((bodySize >> shift) & 0x7f));
    return tag + QByteArray("TIT2", 4) + QByteArray(bodySize - 4, 'a');
}

bool write(const QString &path, const QByteArray &bytes)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
}

} // namespace

int main(int argc, char **argv)
{
    if (argc != 2) {
        std::fprintf(stderr, "usage: fuzz_make_seeds DIR\n");
        return 2;
    }
    const QString root = QString::fromLocal8Bit(argv[1]);
    const QString archives = root + QStringLiteral("/keyed_archive");
    const QString frames = root + QStringLiteral("/frame_reader");
    const QString mp3 = root + QStringLiteral("/mp3_header");
    if (!QDir().mkpath(archives) || !QDir().mkpath(frames) || !QDir().mkpath(mp3)) {
        std::fprintf(stderr, "fuzz_make_seeds: cannot create folders in %s\n", argv[1]);
        return 1;
    }

    QList<QByteArray> payloads;
    for (const QVariant &m : messages()) {
        VEKError error;
        const QByteArray a = VEKKeyedArchive::archivedData(m, &error);
        if (a.isEmpty()) {
            std::fprintf(stderr, "fuzz_make_seeds: a seed message has no archive: %s\n",
                         qPrintable(error.text()));
            return 1;
        }
        payloads.append(a);
    }
    payloads.append(platformArchive(VEKPropertyList::Format::Binary));

    bool ok = true;
    for (qsizetype i = 0; i < payloads.size(); ++i)
        ok &= write(archives + QStringLiteral("/seed-%1").arg(i), payloads.at(i));
    ok &= write(archives + QStringLiteral("/xml"), platformArchive(VEKPropertyList::Format::XML));

    // Frame reader inputs: one byte counting the piece sizes, the sizes, then the stream.
    const QByteArray stream = framed(payloads.at(0)) + framed(payloads.at(1)) + framed({}) + framed(payloads.at(3));
    ok &= write(frames + QStringLiteral("/whole"), QByteArray(1, '\0') + stream);
    ok &= write(frames + QStringLiteral("/pieces"), QByteArray("\x03\x00\x06\xff", 4) + stream);
    ok &= write(frames + QStringLiteral("/bytewise"), QByteArray("\x01\x00", 2) + stream);
    const QByteArray giant = lengthBytes(VEKFrameReader::maxFrameSize + 1);
    ok &= write(frames + QStringLiteral("/over-limit"), QByteArray("\x02\x01\x02", 3) + framed(payloads.at(2)) + giant);
    ok &= write(frames + QStringLiteral("/truncated"), QByteArray(1, '\0') + stream.left(stream.size() - 5));

    // MP3 file starts: each kind of length header, behind an ID3 tag, and none at all.
    const QByteArray plain = mp3Frame(true, false, {});
    ok &= write(mp3 + QStringLiteral("/lame"),
                mp3Frame(true, false, infoWithLame("Info", "LAME3.100")) + plain);
    ok &= write(mp3 + QStringLiteral("/id3-lavc"),
                id3(64) + mp3Frame(true, true, infoWithLame("Xing", "Lavc60.3")) + plain);
    QByteArray xingFramesOnly("Xing", 4);
    xingFramesOnly.append(lengthBytes(1)).append(lengthBytes(99));
    ok &= write(mp3 + QStringLiteral("/mpeg2-xing"), mp3Frame(false, true, xingFramesOnly));
    QByteArray vbri("VBRI\x00\x01\x04\x00\x00\x32", 10);
    vbri.append(lengthBytes(200 * 417)).append(lengthBytes(200));
    ok &= write(mp3 + QStringLiteral("/vbri"), mp3Frame(true, false, vbri));
    ok &= write(mp3 + QStringLiteral("/no-header"), QByteArray(7, '\0') + plain + plain);
    if (!ok) {
        std::fprintf(stderr, "fuzz_make_seeds: could not write the seeds\n");
        return 1;
    }
    return 0;
}
