#include "iTunesLibraryParser.h"

#include "core/VEKLocalizedString.h"
#include "settings/VEKXMLPropertyListScanner.h"

#include <QFile>
#include <QSet>

#include <cerrno>
#include <cstring>
#include <functional>
#include <string_view>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

const QString kDomain = QStringLiteral("iTunesLibrary");

static_assert(iTunesLibraryParser::maxDepth == VEKXMLPropertyListScanner::maxDepth);

enum class TrackKey {
    Other, Location, Kind, Movie, HasVideo, TrackID, Name, Artist, Album, AlbumArtist, Composer,
    Genre, TotalTime, Size, SampleRate, BitRate, DateAdded, TrackNumber, TrackCount, DiscNumber,
    DiscCount
};

TrackKey trackKey(std::string_view k)
{
    switch (k.size()) {
    case 4:
        if (k == "Name") return TrackKey::Name;
        if (k == "Kind") return TrackKey::Kind;
        if (k == "Size") return TrackKey::Size;
        break;
    case 5:
        if (k == "Album") return TrackKey::Album;
        if (k == "Genre") return TrackKey::Genre;
        if (k == "Movie") return TrackKey::Movie;
        break;
    case 6:
        if (k == "Artist") return TrackKey::Artist;
        break;
    case 8:
        if (k == "Location") return TrackKey::Location;
        if (k == "Track ID") return TrackKey::TrackID;
        if (k == "Composer") return TrackKey::Composer;
        if (k == "Bit Rate") return TrackKey::BitRate;
        break;
    case 9:
        if (k == "Has Video") return TrackKey::HasVideo;
        break;
    case 10:
        if (k == "Total Time") return TrackKey::TotalTime;
        if (k == "Date Added") return TrackKey::DateAdded;
        if (k == "Disc Count") return TrackKey::DiscCount;
        break;
    case 11:
        if (k == "Sample Rate") return TrackKey::SampleRate;
        if (k == "Track Count") return TrackKey::TrackCount;
        if (k == "Disc Number") return TrackKey::DiscNumber;
        break;
    case 12:
        if (k == "Album Artist") return TrackKey::AlbumArtist;
        if (k == "Track Number") return TrackKey::TrackNumber;
        break;
    }
    return TrackKey::Other;
}

// The iTunes schema on the property-list scanner: the root's "Tracks" dictionary and
// "Playlists" array, reduced to the entries the read-in uses.
class Scanner : public VEKXMLPropertyListScanner {
public:
    Scanner(const char *begin, const char *end, const iTunesLibraryParser::Handler &handler)
        : VEKXMLPropertyListScanner(begin, end), m_handler(handler)
    {
    }

    // Called now and then with the position reached: what lies before it is not read again.
    std::function<void(const char *)> releaseBehind;

private:
    bool parseRootDictionary() override { return parseRoot(); }
    bool parseRoot();
    bool parseTracks();
    bool parseTrack(iTunesTrackEntry &e);
    bool parsePlaylists();
    bool parsePlaylist(iTunesPlaylistEntry &e);
    bool parsePlaylistItems(QList<qint64> &ids);

    void intern(QString &s)
    {
        const auto it = m_pool.constFind(s);
        if (it != m_pool.cend())
            s = *it;
        else
            m_pool.insert(s);
    }
    void reportProgress()
    {
        if (m_handler.progress)
            m_handler.progress(progress());
        if (releaseBehind)
            releaseBehind(position());
    }

    const iTunesLibraryParser::Handler &m_handler;
    QSet<QString> m_pool; // artists, albums, genres repeat: keep one copy of each
    iTunesTrackEntry m_track;
    int m_count = 0;
};

bool Scanner::parseRoot()
{
    for (;;) {
        if (!skipMisc())
            return false;
        if (atEndTag())
            return readEndTag(Tag::Dict);
        std::string_view key;
        if (!readKey(key))
            return false;
        const bool tracks = key == "Tracks";
        const bool playlists = key == "Playlists";
        StartTag v;
        if (!readValueStart(v))
            return false;
        bool ok;
        if (tracks && v.tag == Tag::Dict)
            ok = v.empty || parseTracks();
        else if (playlists && v.tag == Tag::Array)
            ok = v.empty || parsePlaylists();
        else
            ok = skipValue(v);
        if (!ok)
            return false;
    }
}

bool Scanner::parseTracks()
{
    for (;;) {
        if (!skipMisc())
            return false;
        if (atEndTag())
            return readEndTag(Tag::Dict);
        std::string_view key;
        StartTag v;
        if (!readKey(key) || !readValueStart(v))
            return false;
        if (v.tag != Tag::Dict) {
            if (!skipValue(v))
                return false;
            continue;
        }
        m_track = iTunesTrackEntry();
        if (!v.empty && !parseTrack(m_track))
            return false;
        if (m_handler.track)
            m_handler.track(m_track);
        if (++m_count % 512 == 0)
            reportProgress();
    }
}

bool Scanner::parseTrack(iTunesTrackEntry &e)
{
    for (;;) {
        if (!skipMisc())
            return false;
        if (atEndTag())
            return readEndTag(Tag::Dict);
        std::string_view keyText;
        if (!readKey(keyText))
            return false;
        const TrackKey key = trackKey(keyText);
        StartTag v;
        if (!readValueStart(v))
            return false;
        bool ok = true;
        qint64 n = 0;
        switch (key) {
        case TrackKey::Location: ok = readString(v, e.location, &e.hasLocation); break;
        case TrackKey::Kind:
            ok = readString(v, e.kind, &e.hasKind);
            intern(e.kind);
            break;
        case TrackKey::Movie: ok = readBool(v, e.movie); break;
        case TrackKey::HasVideo: ok = readBool(v, e.hasVideo); break;
        case TrackKey::TrackID:
            e.hasTrackID = v.tag == Tag::Integer || v.tag == Tag::Real;
            ok = readInteger(v, e.trackID);
            break;
        case TrackKey::Name: ok = readString(v, e.name); break;
        case TrackKey::Artist:
            ok = readString(v, e.artist);
            intern(e.artist);
            break;
        case TrackKey::Album:
            ok = readString(v, e.album);
            intern(e.album);
            break;
        case TrackKey::AlbumArtist:
            ok = readString(v, e.albumArtist);
            intern(e.albumArtist);
            break;
        case TrackKey::Composer:
            ok = readString(v, e.composer);
            intern(e.composer);
            break;
        case TrackKey::Genre:
            ok = readString(v, e.genre);
            intern(e.genre);
            break;
        case TrackKey::TotalTime: ok = readNumber(v, e.totalTime); break;
        case TrackKey::SampleRate: ok = readNumber(v, e.sampleRate); break;
        case TrackKey::DateAdded: ok = readDate(v, e.dateAdded); break;
        case TrackKey::Size:
        case TrackKey::BitRate:
        case TrackKey::TrackNumber:
        case TrackKey::TrackCount:
        case TrackKey::DiscNumber:
        case TrackKey::DiscCount: {
            ok = readInteger(v, n);
            const quint64 u = n > 0 ? quint64(n) : 0;
            switch (key) {
            case TrackKey::Size: e.size = u; break;
            case TrackKey::BitRate: e.bitRate = u; break;
            case TrackKey::TrackNumber: e.trackNumber = u; break;
            case TrackKey::TrackCount: e.trackCount = u; break;
            case TrackKey::DiscNumber: e.discNumber = u; break;
            default: e.discCount = u; break;
            }
            break;
        }
        case TrackKey::Other: ok = skipValue(v); break;
        }
        if (!ok)
            return false;
    }
}

bool Scanner::parsePlaylists()
{
    for (;;) {
        if (!skipMisc())
            return false;
        if (atEndTag())
            return readEndTag(Tag::Array);
        StartTag v;
        if (!readValueStart(v))
            return false;
        if (v.tag != Tag::Dict) {
            if (!skipValue(v))
                return false;
            continue;
        }
        iTunesPlaylistEntry entry;
        if (!v.empty && !parsePlaylist(entry))
            return false;
        if (m_handler.playlist)
            m_handler.playlist(std::move(entry));
        reportProgress();
    }
}

bool Scanner::parsePlaylist(iTunesPlaylistEntry &e)
{
    for (;;) {
        if (!skipMisc())
            return false;
        if (atEndTag())
            return readEndTag(Tag::Dict);
        std::string_view key;
        if (!readKey(key))
            return false;
        const bool master = key == "Master";
        const bool distinguished = key == "Distinguished Kind";
        const bool id = key == "Playlist ID";
        const bool name = key == "Name";
        const bool items = key == "Playlist Items";
        StartTag v;
        if (!readValueStart(v))
            return false;
        bool ok;
        e.isMaster = e.isMaster || master;
        e.isDistinguished = e.isDistinguished || distinguished;
        if (id)
            ok = readInteger(v, e.playlistID);
        else if (name)
            ok = readString(v, e.name);
        else if (items && v.tag == Tag::Array && !v.empty && !e.isMaster && !e.isDistinguished)
            ok = parsePlaylistItems(e.trackIDs);
        else
            ok = skipValue(v);
        if (!ok)
            return false;
    }
}

bool Scanner::parsePlaylistItems(QList<qint64> &ids)
{
    for (;;) {
        if (!skipMisc())
            return false;
        if (atEndTag())
            return readEndTag(Tag::Array);
        StartTag item;
        if (!readValueStart(item))
            return false;
        if (item.tag != Tag::Dict || item.empty) {
            if (!skipValue(item))
                return false;
            continue;
        }
        for (;;) {
            if (!skipMisc())
                return false;
            if (atEndTag()) {
                if (!readEndTag(Tag::Dict))
                    return false;
                break;
            }
            std::string_view key;
            if (!readKey(key))
                return false;
            const bool trackID = key == "Track ID";
            StartTag v;
            if (!readValueStart(v))
                return false;
            if (trackID && (v.tag == Tag::Integer || v.tag == Tag::Real)) {
                qint64 n = 0;
                if (!readInteger(v, n))
                    return false;
                ids.append(n);
            } else if (!skipValue(v)) {
                return false;
            }
        }
    }
}

QString describe(const QString &path, const QString &detail)
{
    return path.isEmpty() ? detail : path + QStringLiteral(": ") + detail;
}

} // namespace

bool iTunesLibraryParser::parseData(const char *data, qsizetype size, const Handler &handler,
                                    VEKError *error)
{
    Scanner scanner(data, data + qMax<qsizetype>(0, size), handler);
    if (scanner.parseDocument())
        return true;
    VEKError::set(error, VEKError(kDomain, 2, VEKLocalizedString("Error_propertyListMalformed"),
                                  scanner.error()));
    return false;
}

bool iTunesLibraryParser::parseFile(const QString &path, const Handler &handler, VEKError *error,
                                    bool *missing)
{
    if (missing)
        *missing = false;
    const auto readError = [&](const QString &detail) {
        VEKError::set(error, VEKError(kDomain, 1, VEKLocalizedString("Error_propertyListRead"),
                                      describe(path, detail)));
        return false;
    };
    const QByteArray local = QFile::encodeName(path);
    // Only regular files: a device or FIFO is never opened at all (opening some has effects)...
    struct stat named;
    if (!local.isEmpty() && ::stat(local.constData(), &named) == 0 && !S_ISREG(named.st_mode))
        return readError(QStringLiteral("not a regular file"));
    // ...and without blocking, should one take the file's place meanwhile: opening a FIFO for
    // reading waits for a writer.
    const int fd = local.isEmpty() ? -1
                                   : ::open(local.constData(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY);
    if (fd < 0) {
        if (missing)
            *missing = errno == ENOENT || errno == ENOTDIR || local.isEmpty();
        return readError(QString::fromLocal8Bit(std::strerror(errno)));
    }
    struct stat st;
    if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
        ::close(fd);
        return readError(QStringLiteral("not a regular file"));
    }
    if (st.st_size == 0) {
        ::close(fd);
        VEKError::set(error, VEKError(kDomain, 2, VEKLocalizedString("Error_propertyListMalformed"),
                                      describe(path, QStringLiteral("the file is empty"))));
        return false;
    }
    const size_t size = size_t(st.st_size);
    void *map = ::mmap(nullptr, size, PROT_READ, MAP_PRIVATE, fd, 0);
    ::close(fd);
    if (map == MAP_FAILED)
        return readError(QString::fromLocal8Bit(std::strerror(errno)));
    ::madvise(map, size, MADV_SEQUENTIAL);

    const char *begin = static_cast<const char *>(map);
    Scanner scanner(begin, begin + size, handler);
    // Pages behind the reader are dropped as it goes, so a large file never sits whole in
    // memory; the page cache still holds them should the kernel want to.
    const long page = ::sysconf(_SC_PAGESIZE);
    const char *released = begin;
    scanner.releaseBehind = [&released, begin, page](const char *at) {
        constexpr qsizetype kChunk = 8 * 1024 * 1024;
        if (at - released < kChunk)
            return;
        const char *to = begin + ((at - begin) / page - 1) * page;
        ::madvise(const_cast<char *>(released), size_t(to - released), MADV_DONTNEED);
        released = to;
    };
    const bool ok = scanner.parseDocument();
    ::munmap(map, size);
    if (!ok)
        VEKError::set(error, VEKError(kDomain, 2, VEKLocalizedString("Error_propertyListMalformed"),
                                      describe(path, scanner.error())));
    return ok;
}
