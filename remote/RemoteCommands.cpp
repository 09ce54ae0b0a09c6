// The command table of the remote service: transport, time stamps, browsing and search.

#include "Remote.h"

#include "net/VEKNetworkAcceptor.h"
#include "settings/UserDefaults.h"
#include "text/VEKText.h"

#include <QSet>
#include <algorithm>
#include <cmath>
#include <vector>

namespace {

const QString kSongID = QStringLiteral("songID");
const QString kName = QStringLiteral("name");
const QString kArtist = QStringLiteral("artist");
const QString kAlbum = QStringLiteral("album");
const QString kValue = QStringLiteral("value");
const QString kPlaylistID = QStringLiteral("playlistID");
const QString kSongs = QStringLiteral("songs");
const QString kLastModification = QStringLiteral("lastModification");

// --- Arguments: whatever the client sent, of whatever type ----------------------------------

bool isNumber(const QVariant &v)
{
    switch (v.typeId()) {
    case QMetaType::Bool:
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Float:
    case QMetaType::Double:
        return true;
    default:
        return false;
    }
}

// An argument as it came: absent, usable, or of a type (or value) the command cannot take.
template <typename T>
struct Argument {
    enum State { Absent, Present, Wrong } state = Absent;
    T value{};
    bool wrong() const { return state == Wrong; }
    T valueOr(T fallback) const { return state == Present ? value : fallback; }
};

// A number as an integer; a real is cut to its whole part if it fits.
Argument<qint64> integerArgument(const QVariantMap &request, const QString &key)
{
    const auto it = request.constFind(key);
    if (it == request.constEnd())
        return {};
    const QVariant &v = *it;
    if (!isNumber(v))
        return {Argument<qint64>::Wrong};
    if (v.typeId() == QMetaType::Float || v.typeId() == QMetaType::Double) {
        const double d = v.toDouble();
        if (!std::isfinite(d) || d >= 9.2e18 || d <= -9.2e18)
            return {Argument<qint64>::Wrong};
        return {Argument<qint64>::Present, qint64(d)};
    }
    if (v.typeId() == QMetaType::ULongLong)
        return {Argument<qint64>::Present, qint64(v.toULongLong())}; // wraps, as integerValue does
    return {Argument<qint64>::Present, v.toLongLong()};
}

Argument<float> floatArgument(const QVariantMap &request, const QString &key)
{
    const auto it = request.constFind(key);
    if (it == request.constEnd())
        return {};
    if (!isNumber(*it) || !std::isfinite(it->toFloat()))
        return {Argument<float>::Wrong};
    return {Argument<float>::Present, it->toFloat()};
}

// A text argument: absent, a string, or of another type (which matches nothing).
struct TextArgument {
    enum State { Absent, Text, Wrong } state = Absent;
    QString text;
};

TextArgument textArgument(const QVariantMap &request, const QString &key)
{
    const auto it = request.constFind(key);
    if (it == request.constEnd())
        return {};
    if (it->typeId() != QMetaType::QString)
        return {TextArgument::Wrong, {}};
    return {TextArgument::Text, it->toString()};
}

// --- Entries -------------------------------------------------------------------------------

// An argument list that ends at its first absent value.
QVariantMap entryUpToFirstAbsent(const Song &song, std::initializer_list<const QString *> keys,
                                 std::initializer_list<const QString *> values)
{
    QVariantMap entry;
    entry.insert(kSongID, song.songID());
    auto value = values.begin();
    for (const QString *key : keys) {
        if ((*value)->isNull())
            break;
        entry.insert(*key, **value);
        ++value;
    }
    return entry;
}

QVariantMap fullSongEntry(const Song &s)
{
    return entryUpToFirstAbsent(s, {&kName, &kArtist, &kAlbum}, {&s.name(), &s.artist(), &s.album()});
}

QVariantMap shortSongEntry(const Song &s)
{
    return entryUpToFirstAbsent(s, {&kName}, {&s.name()});
}

QVariantMap searchSongEntry(const Song &s)
{
    return entryUpToFirstAbsent(s, {&kName, &kArtist}, {&s.name(), &s.artist()});
}

QVariantMap playlistSongEntry(const Song &s)
{
    QVariantMap entry;
    entry.insert(kSongID, s.songID());
    if (!s.name().isNull())
        entry.insert(kName, s.name());
    if (!s.artist().isNull())
        entry.insert(kArtist, s.artist());
    if (!s.album().isNull())
        entry.insert(kAlbum, s.album());
    entry.insert(QStringLiteral("trackNumber"), s.track_sortable());
    entry.insert(QStringLiteral("discNumber"), s.disc_sortable());
    return entry;
}

QVariantMap playlistEntry(const Playlist &p)
{
    if (p.name().isNull())
        return {};
    return {{kName, p.name()}, {kPlaylistID, p.playlistID()}};
}

QVariantList playlistEntries(const QList<PlaylistPtr> &playlists)
{
    QVariantList list;
    list.reserve(playlists.size());
    for (const PlaylistPtr &p : playlists)
        list.append(playlistEntry(*p));
    return list;
}

template <typename Entry>
QVariantList songEntries(const QList<SongPtr> &songs, Entry entry)
{
    QVariantList list;
    list.reserve(songs.size());
    for (const SongPtr &s : songs)
        list.append(entry(*s));
    return list;
}

// --- Selections ----------------------------------------------------------------------------

const QString &fieldOf(const Song &s, const QString &field)
{
    return field == kArtist ? s.artist() : s.album();
}

// The distinct present values of a field, in the order they are met.
template <typename Range>
QStringList distinctValues(const Range &songs, const QString &field)
{
    QSet<QString> seen;
    QStringList values;
    for (const SongPtr &s : songs) {
        const QString &v = fieldOf(*s, field);
        if (v.isNull() || seen.contains(v))
            continue;
        seen.insert(v);
        values.append(v);
    }
    return values;
}

void sortByTrack(QList<SongPtr> &songs)
{
    std::stable_sort(songs.begin(), songs.end(), [](const SongPtr &a, const SongPtr &b) {
        return a->track_sortable() < b->track_sortable();
    });
}

// "contains[cd]" against a needle folded once. Tags are folded character by character through
// a table of what the full folding (decomposition, marks dropped, case folded) makes of each
// character up to the combining marks, into one reused buffer; a text with any other character
// takes the full folding. A search of a large library thus allocates almost nothing.
class FoldedMatcher {
public:
    explicit FoldedMatcher(const QString &needle) : m_needle(VEKText::foldCaseAndDiacritics(needle)) {}

    bool matches(const QString &text)
    {
        // As on the platform, an empty string is found nowhere.
        if (text.isNull() || m_needle.isEmpty())
            return false;
        const Table &table = foldTable();
        if (size_t(text.size()) > m_buffer.size())
            m_buffer.resize(size_t(text.size()));
        char16_t *out = m_buffer.data();
        for (const QChar c : text) {
            const char16_t u = c.unicode();
            const char16_t folded = u < Table::size ? table.fold[u] : Table::complex;
            if (folded == Table::complex)
                return VEKText::containsPrefolded(text, m_needle);
            if (folded != Table::dropped)
                *out++ = folded;
        }
        return QStringView(m_buffer.data(), out - m_buffer.data()).contains(m_needle);
    }

private:
    struct Table {
        static constexpr char16_t size = 0x370; // through the combining diacritical marks
        static constexpr char16_t dropped = 0;
        static constexpr char16_t complex = 0xFFFF;
        char16_t fold[size];
    };

    // Built from the full folding itself, so the two can never disagree.
    static const Table &foldTable()
    {
        static const Table table = [] {
            Table t{};
            t.fold[0] = Table::complex;
            for (char16_t u = 1; u < Table::size; ++u) {
                const QString folded = VEKText::foldCaseAndDiacritics(QString(QChar(u)));
                if (folded.isEmpty())
                    t.fold[u] = Table::dropped;
                else if (folded.size() == 1 && folded.at(0).unicode() != 0)
                    t.fold[u] = folded.at(0).unicode();
                else
                    t.fold[u] = Table::complex;
            }
            return t;
        }();
        return table;
    }

    QString m_needle;
    std::vector<char16_t> m_buffer;
};

} // namespace

QList<SongPtr> Remote::songsWhere(const QString &field, const QVariant &value) const
{
    // "field == value", exact; an absent value selects the songs without one, a value of
    // another type than text selects nothing.
    QList<SongPtr> songs;
    if (value.isValid() && value.typeId() != QMetaType::QString)
        return songs;
    const QString wanted = value.toString();
    for (const SongPtr &s : m_host->library()) {
        const QString &v = fieldOf(*s, field);
        if (value.isValid() ? (!v.isNull() && v == wanted) : v.isNull())
            songs.append(s);
    }
    return songs;
}

// --- Transport -------------------------------------------------------------------------------

Remote::Reply Remote::remote_play(const QVariantMap &)
{
    if (m_host->isPlaying())
        m_host->pause();
    else
        m_host->play();
    return std::nullopt;
}

Remote::Reply Remote::remote_next(const QVariantMap &)
{
    m_host->next();
    return std::nullopt;
}

Remote::Reply Remote::remote_previous(const QVariantMap &)
{
    m_host->previous();
    // Going back within the same song changes nothing observed, yet the client wants to know.
    sendStatus();
    return std::nullopt;
}

float Remote::volumeStepUp(float volume)
{
    const float raised = volume == 0.0f ? 0.001f : volume * 1.2589254f;
    return raised >= 1.0f ? 1.0f : raised;
}

float Remote::volumeStepDown(float volume)
{
    if (double(volume) <= 0.001)
        return 0.0f;
    const float lowered = volume * 0.7943282f;
    return lowered > 0.0f ? lowered : 0.0f;
}

Remote::Reply Remote::remote_volumeUp(const QVariantMap &)
{
    const float v = float(defaults().doubleForKey(QStringLiteral("volume")));
    defaults().setValue(QStringLiteral("volume"), volumeStepUp(v));
    return std::nullopt;
}

Remote::Reply Remote::remote_volumeDown(const QVariantMap &)
{
    const float v = float(defaults().doubleForKey(QStringLiteral("volume")));
    defaults().setValue(QStringLiteral("volume"), volumeStepDown(v));
    return std::nullopt;
}

namespace {
// "dim" and "mute" store what came, as long as it is a number; absent brings the default back.
void storeSwitch(UserDefaults &defaults, const QString &key, const QVariantMap &request)
{
    const auto it = request.constFind(kValue);
    if (it == request.constEnd())
        defaults.removeValue(key);
    else if (isNumber(*it))
        defaults.setValue(key, *it);
}
}

Remote::Reply Remote::remote_dim(const QVariantMap &request)
{
    storeSwitch(defaults(), QStringLiteral("dim"), request);
    return std::nullopt;
}

Remote::Reply Remote::remote_mute(const QVariantMap &request)
{
    storeSwitch(defaults(), QStringLiteral("mute"), request);
    return std::nullopt;
}

Remote::Reply Remote::remote_position(const QVariantMap &request)
{
    const Argument<float> fraction = floatArgument(request, kValue);
    if (fraction.wrong())
        return std::nullopt;
    // The engine is given only positions inside the song.
    m_host->setNormalizedLocation(std::clamp(fraction.valueOr(0.0f), 0.0f, 1.0f));
    return remote_getCurrentStatus(request);
}

Remote::Reply Remote::remote_playSong(const QVariantMap &request)
{
    const Argument<qint64> playlistArgument = integerArgument(request, kPlaylistID);
    const Argument<qint64> songArgument = integerArgument(request, kSongID);
    if (playlistArgument.wrong() || songArgument.wrong())
        return std::nullopt;
    qint64 playlistID = playlistArgument.valueOr(0);
    const SongPtr song = songArgument.state == Argument<qint64>::Present
                             ? m_host->library().value(songArgument.value)
                             : SongPtr();

    if (playlistID == 0) {
        const auto holds = [&song](const QList<PlaylistPtr> &list) {
            return song && !list.isEmpty()
                   && list.first()->songsInManualOrder().contains(song);
        };
        if (holds(m_host->localPlaylists()))
            playlistID = m_host->localPlaylists().first()->playlistID();
        else if (holds(m_host->iTunesPlaylists()))
            playlistID = m_host->iTunesPlaylists().first()->playlistID();
    }
    const PlaylistPtr playlist = m_host->playlistForID(playlistID);
    const PlaylistPtr current = m_host->playlist();
    // Staying in the same playlist keeps its sequencing state.
    const bool samePlaylist = current && playlist ? current->playlistID() == playlist->playlistID()
                                                  : !current && !playlist;
    if (!samePlaylist)
        m_host->setPlaylist(playlist);
    m_host->setSelectedPlaylist(playlist);
    m_host->setCurrentSong(song);
    m_host->play();
    return std::nullopt;
}

Remote::Reply Remote::remote_getCurrentStatus(const QVariantMap &)
{
    QVariantMap status;
    const SongPtr song = m_host ? m_host->currentSong() : SongPtr();
    status.insert(QStringLiteral("isPlaying"), m_host && m_host->isPlaying());
    status.insert(QStringLiteral("position"), song ? m_host->normalizedLocation() : 0.0f);
    if (song) {
        if (!song->name().isNull())
            status.insert(kName, song->name());
        if (!song->artist().isNull())
            status.insert(kArtist, song->artist());
        status.insert(QStringLiteral("length"), song->length());
    }
    status.insert(QStringLiteral("dim"), defaults().boolForKey(QStringLiteral("dim")));
    status.insert(QStringLiteral("mute"), defaults().boolForKey(QStringLiteral("mute")));
    status.insert(QStringLiteral("hostname"), m_name);
    return status;
}

// --- Time stamps -----------------------------------------------------------------------------

Remote::Reply Remote::remote_getPlaylistsLastModification(const QVariantMap &)
{
    return QVariantMap{{kLastModification, m_host->lastPlaylistModification()}};
}

Remote::Reply Remote::remote_getPlaylistLastModification(const QVariantMap &request)
{
    const PlaylistPtr playlist = m_host->playlistForID(integerArgument(request, kPlaylistID).valueOr(0));
    return QVariantMap{{kLastModification, playlist ? playlist->lastModification() : 0.0}};
}

Remote::Reply Remote::remote_getSongsLastModification(const QVariantMap &)
{
    return QVariantMap{{kLastModification, m_host->lastLibraryModification()}};
}

// --- Browsing --------------------------------------------------------------------------------

Remote::Reply Remote::remote_getPlaylists(const QVariantMap &)
{
    QVariantMap playlists;
    playlists.insert(QStringLiteral("Quivera"), playlistEntries(m_host->localPlaylists()));
    if (!m_host->iTunesPlaylists().isEmpty())
        playlists.insert(QStringLiteral("iTunes"), playlistEntries(m_host->iTunesPlaylists()));
    return QVariantMap{{QStringLiteral("playlists"), playlists}};
}

Remote::Reply Remote::remote_getSongsForPlaylist(const QVariantMap &request)
{
    // Read as a 32-bit integer, as the protocol always has.
    const qint64 id = qint32(integerArgument(request, kPlaylistID).valueOr(0));
    const PlaylistPtr playlist = m_host->playlistForID(id);
    QVariantList songs;
    if (playlist)
        songs = songEntries(playlist->songsInManualOrder(), playlistSongEntry);
    return QVariantMap{{kSongs, songs}};
}

Remote::Reply Remote::remote_getSongs(const QVariantMap &)
{
    const QHash<qint64, SongPtr> &library = m_host->library();
    QVariantList songs;
    songs.reserve(library.size());
    for (const SongPtr &s : library)
        songs.append(fullSongEntry(*s));
    return QVariantMap{{kSongs, songs}};
}

Remote::Reply Remote::remote_getArtists(const QVariantMap &)
{
    return QVariantMap{{QStringLiteral("artists"), distinctValues(m_host->library(), kArtist)}};
}

Remote::Reply Remote::remote_getArtistHasMultipleAlbums(const QVariantMap &request)
{
    const auto it = request.constFind(kArtist);
    if (it == request.constEnd())
        return QVariantMap();
    const QStringList albums = distinctValues(songsWhere(kArtist, *it), kAlbum);
    return QVariantMap{{kArtist, *it}, {QStringLiteral("hasMultipleAlbums"), albums.size() >= 2}};
}

Remote::Reply Remote::remote_getAlbumsForArtist(const QVariantMap &request)
{
    const QStringList albums = distinctValues(songsWhere(kArtist, request.value(kArtist)), kAlbum);
    return QVariantMap{{QStringLiteral("albums"), albums}};
}

Remote::Reply Remote::remote_getSongsForArtist(const QVariantMap &request)
{
    QList<SongPtr> songs = songsWhere(kArtist, request.value(kArtist));
    sortByTrack(songs);
    return QVariantMap{{kSongs, songEntries(songs, shortSongEntry)}};
}

Remote::Reply Remote::remote_getAlbums(const QVariantMap &)
{
    return QVariantMap{{QStringLiteral("albums"), distinctValues(m_host->library(), kAlbum)}};
}

Remote::Reply Remote::remote_getSongsForAlbum(const QVariantMap &request)
{
    QList<SongPtr> songs = songsWhere(kAlbum, request.value(kAlbum));
    sortByTrack(songs);
    return QVariantMap{{kSongs, songEntries(songs, shortSongEntry)}};
}

Remote::Reply Remote::remote_getResultsOfSearch(const QVariantMap &request)
{
    QVariantMap result;
    const TextArgument search = textArgument(request, QStringLiteral("searchString"));
    if (search.state != TextArgument::Text)
        return result;

    FoldedMatcher matcher(search.text);
    // Matching a tag costs less than looking it up, so repeated artists and albums are simply
    // matched again; only the hits are gathered.
    QSet<QString> artistHits, albumHits;
    QList<SongPtr> named;
    const QHash<qint64, SongPtr> &library = m_host->library();
    // The scan waits on memory, not on matching: songs lie all over the heap. So each song is
    // fetched well ahead of its turn, and its texts a little later, once the song is at hand.
    auto songAhead = library.cbegin(), textAhead = library.cbegin();
    for (int i = 0; i < 16 && songAhead != library.cend(); ++i)
        __builtin_prefetch((songAhead++)->get());
    for (int i = 0; i < 8 && textAhead != library.cend(); ++i)
        ++textAhead;
    for (const SongPtr &s : library) {
        if (songAhead != library.cend())
            __builtin_prefetch((songAhead++)->get());
        if (textAhead != library.cend()) {
            const Song &t = **textAhead++;
            __builtin_prefetch(t.name().constData());
            __builtin_prefetch(t.artist().constData());
            __builtin_prefetch(t.album().constData());
        }
        if (matcher.matches(s->artist()))
            artistHits.insert(s->artist());
        if (matcher.matches(s->album()))
            albumHits.insert(s->album());
        if (matcher.matches(s->name()))
            named.append(s);
    }
    const auto sortedList = [](const QSet<QString> &hits) {
        QStringList list(hits.cbegin(), hits.cend());
        std::sort(list.begin(), list.end(),
                  [](const QString &a, const QString &b) { return a.compare(b) < 0; });
        return list;
    };
    if (const QStringList artists = sortedList(artistHits); !artists.isEmpty())
        result.insert(QStringLiteral("artists"), artists);
    if (const QStringList albums = sortedList(albumHits); !albums.isEmpty())
        result.insert(QStringLiteral("albums"), albums);
    if (named.isEmpty())
        return result;
    std::stable_sort(named.begin(), named.end(), [](const SongPtr &a, const SongPtr &b) {
        return a->name().compare(b->name()) < 0;
    });
    result.insert(kSongs, songEntries(named, searchSongEntry));
    return result;
}
