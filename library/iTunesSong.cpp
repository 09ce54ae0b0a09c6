#include "iTunesSong.h"

#include "core/VEKPaths.h"

#include <QHash>
#include <QStringList>

namespace {
const QString kVolumes = QStringLiteral("/Volumes/");
const QString kITunes = QStringLiteral("iTunes");

int hexValue(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

// Non-empty components before the first one named "iTunes"; all of them where there is none.
qsizetype componentsBeforeITunes(const QStringList &components)
{
    qsizetype count = 0;
    for (const QString &c : components) {
        if (c == kITunes)
            break;
        if (!c.isEmpty())
            ++count;
    }
    return count;
}

QString numberText(quint64 number, quint64 count)
{
    if (number == 0)
        return {};
    // A library holds a few dozen distinct texts ("3 of 12") for tens of thousands of songs:
    // share them. Per thread, as read-ins may run on any.
    thread_local QHash<QPair<quint64, quint64>, QString> made;
    QString &text = made[qMakePair(number, count)];
    if (text.isNull())
        text = count == 0 ? QString::number(number) : QStringLiteral("%1 of %2").arg(number).arg(count);
    return text;
}
} // namespace

QString iTunesSong::kindForITunesKind(const QString &iTunesKind)
{
    static const QString aiff = QStringLiteral("AIFF File");
    static const QString wave = QStringLiteral("WAVE File");
    static const QString mp3 = QStringLiteral("MP3 Audio File");
    static const QString aac = QStringLiteral("AAC Audio File");
    static const QString alac = QStringLiteral("Apple Lossless File");
    if (iTunesKind.contains(QLatin1String("AIFF")))
        return aiff;
    if (iTunesKind.contains(QLatin1String("WAV")))
        return wave;
    if (iTunesKind.contains(QLatin1String("MPEG")))
        return mp3;
    if (iTunesKind.contains(QLatin1String("AAC")))
        return aac;
    if (iTunesKind.contains(QLatin1String("Apple Lossless")))
        return alac;
    return {};
}

QString iTunesSong::pathForLocation(const QString &location)
{
    if (!location.startsWith(QLatin1String("file:"), Qt::CaseInsensitive))
        return {};
    const QByteArray url = location.toUtf8();
    qsizetype i = 5;
    if (url.size() >= i + 2 && url.at(i) == '/' && url.at(i + 1) == '/') {
        // An authority: "localhost", empty, or a server; the path starts after it.
        const qsizetype slash = url.indexOf('/', i + 2);
        if (slash < 0)
            return {};
        i = slash;
    }
    if (i >= url.size() || url.at(i) != '/')
        return {};
    QByteArray path;
    path.reserve(url.size() - i);
    for (; i < url.size(); ++i) {
        const char c = url.at(i);
        if (c == '?' || c == '#')
            break;
        if (c == '%') {
            const int hi = i + 2 < url.size() ? hexValue(url.at(i + 1)) : -1;
            const int lo = hi >= 0 ? hexValue(url.at(i + 2)) : -1;
            if (lo < 0)
                return {};
            path.append(char(hi * 16 + lo));
            i += 2;
        } else {
            path.append(c);
        }
    }
    if (path.contains('\0'))
        return {};
    return VEKPaths::fromNative(path); // an escape that is not UTF-8 stays the byte it names
}

QString iTunesSong::movedPath(const QString &path, const QString &libraryLocation)
{
    const QStringList pathComponents = path.split(u'/');
    const QStringList locationComponents = libraryLocation.split(u'/');
    const qsizetype p = componentsBeforeITunes(pathComponents);
    const qsizetype l = componentsBeforeITunes(locationComponents);
    QString moved;
    for (qsizetype i = 1; i < l && i < locationComponents.size(); ++i)
        moved += u'/' + locationComponents.at(i);
    for (qsizetype i = p; i < pathComponents.size(); ++i)
        moved += u'/' + pathComponents.at(i);
    return moved;
}

SongPtr iTunesSong::initWithLibraryEntry(const iTunesTrackEntry &e, const QString &libraryLocation)
{
    if (!e.hasLocation)
        return nullptr;
    QString path = pathForLocation(e.location);
    if (path.isEmpty() || e.movie || e.hasVideo)
        return nullptr;
    if (!e.hasKind || e.kind.contains(QLatin1String("Protected")))
        return nullptr;
    const QString kind = kindForITunesKind(e.kind);
    if (kind.isNull() || !e.hasTrackID || e.trackID <= 0)
        return nullptr;

    bool missing = !VEKPaths::existsAsFile(path);
    if (missing && libraryLocation.startsWith(kVolumes)) {
        const QString moved = movedPath(path, libraryLocation);
        if (!moved.isEmpty()) {
            path = moved;
            missing = !VEKPaths::existsAsFile(path);
        }
    }

    auto song = std::make_shared<iTunesSong>();
    song->setSongID(e.trackID);
    song->setURL(path);
    song->setIsMissing(missing);
    song->setKind(kind);
    song->setName(e.name);
    song->setArtist(e.artist);
    song->setAlbum(e.album);
    song->setAlbumArtist(e.albumArtist);
    song->setComposer(e.composer);
    song->setGenre(e.genre);
    song->setLength(e.totalTime / 1000.0);
    song->setSize(e.size);
    song->setSampleRate(e.sampleRate);
    song->setBitrate(e.bitRate * 1000);
    song->setDateAdded(e.dateAdded);
    song->setTrack_sortable(e.trackNumber);
    song->setTrack(numberText(e.trackNumber, e.trackCount));
    song->setDisc_sortable(e.discNumber);
    song->setDisc(numberText(e.discNumber, e.discCount));
    return song;
}
