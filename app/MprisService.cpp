#include "MprisService.h"

#include "ApplicationDelegate.h"
#include "MprisPlayerAdaptor.h"
#include "MprisRootAdaptor.h"
#include "audio/Stream.h"
#include "core/VEKLog.h"
#include "core/VEKPaths.h"
#include "library/ImportOperation.h"
#include "settings/UserDefaults.h"

#include <QCoreApplication>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QFileInfo>
#include <QUrl>
#include <algorithm>
#include <cmath>

namespace {
const QString kPlayerInterface = QStringLiteral("org.mpris.MediaPlayer2.Player");
const QString kVolumeKey = QStringLiteral("volume");

qlonglong microseconds(double seconds) { return qlonglong(std::llround(seconds * 1e6)); }

bool hasSessionBus()
{
    // Without an address libdbus may try to start a bus of its own; with none there is nobody
    // to serve.
    return !qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS")
           || QFileInfo::exists(qEnvironmentVariable("XDG_RUNTIME_DIR") + QStringLiteral("/bus"));
}

void logOnce(const QString &line)
{
    static bool logged = false;
    if (!logged)
        VEKLog(line);
    logged = true;
}
} // namespace

MprisService::MprisService(ApplicationDelegate *delegate, QObject *parent)
    : QObject(parent), m_delegate(delegate)
{
    if (hasSessionBus())
        m_connection = QDBusConnection::sessionBus();
    setUp();
}

MprisService::MprisService(ApplicationDelegate *delegate, const QDBusConnection &connection,
                           QObject *parent)
    : QObject(parent), m_delegate(delegate), m_connection(connection)
{
    setUp();
}

MprisService::~MprisService()
{
    if (isRegistered()) {
        m_connection->unregisterService(m_serviceName);
        m_connection->unregisterObject(objectPath);
    }
}

void MprisService::setUp()
{
    m_root = new MprisRootAdaptor(this);
    m_player = new MprisPlayerAdaptor(this);
    if (!m_connection || !m_connection->isConnected()) {
        logOnce(QStringLiteral("MPRIS: no session bus, media keys and desktop controls are off"));
        return;
    }
    if (!m_connection->registerObject(objectPath, this, QDBusConnection::ExportAdaptors)) {
        VEKLog(QStringLiteral("MPRIS: can't register %1: %2")
                   .arg(objectPath, m_connection->lastError().message()));
        return;
    }
    const QString instanceName =
        serviceBaseName + QStringLiteral(".instance") + QString::number(QCoreApplication::applicationPid());
    for (const QString &name : {serviceBaseName, instanceName}) {
        if (m_connection->registerService(name)) {
            m_serviceName = name;
            break;
        }
    }
    if (m_serviceName.isEmpty()) {
        VEKLog(QStringLiteral("MPRIS: can't own the bus name %1: %2")
                   .arg(serviceBaseName, m_connection->lastError().message()));
        m_connection->unregisterObject(objectPath);
        return;
    }

    m_refreshSoon.setSingleShot(true);
    m_refreshSoon.setInterval(0);
    connect(&m_refreshSoon, &QTimer::timeout, this, &MprisService::refresh);
    // What the stream does not report: the selected playlist (shown while the stream has none)
    // and the play modes of any playlist. The playlist in view reports its own other changes.
    if (m_delegate) {
        connect(m_delegate, &ApplicationDelegate::selectedPlaylistChanged, this, &MprisService::scheduleRefresh);
        connect(m_delegate, &ApplicationDelegate::playModeChanged, this, &MprisService::scheduleRefresh);
    }
    connect(&UserDefaults::standard(), &UserDefaults::valueChanged, this, [this](const QString &key) {
        if (key == kVolumeKey)
            scheduleRefresh();
    });
    m_published = publishedProperties();
    scheduleRefresh();
}

// --- The rules ------------------------------------------------------------------------------

bool MprisService::canGoNext(const Playlist *playlist, const SongPtr &current)
{
    if (!playlist)
        return false;
    if (playlist->repeatMode() == 2)
        return current != nullptr;
    // One look at the view (a search filters it anew on each look), walked by row: a song that
    // stands in the list twice can't send the walk round in a circle.
    const QList<SongPtr> view = playlist->songs();
    const auto playableFrom = [&](qsizetype row) {
        for (; row < view.size(); ++row)
            if (!view.at(row)->isMissing())
                return true;
        return false;
    };
    const qsizetype row = current ? view.indexOf(current) : -1;
    if ((!current || row >= 0) && playableFrom(row + 1))
        return true;
    return playlist->repeatMode() == 1 && playableFrom(0);
}

bool MprisService::canGoPrevious(const Playlist *playlist, const SongPtr &current)
{
    // The walk back from the current song ends at an earlier song or at nothing, and neither
    // is the current song: previous always has at least its start to go back to.
    return playlist && current;
}

QString MprisService::loopStatusForRepeatMode(quint64 mode)
{
    switch (mode) {
    case 1: return QStringLiteral("Playlist");
    case 2: return QStringLiteral("Track");
    default: return QStringLiteral("None");
    }
}

std::optional<quint64> MprisService::repeatModeForLoopStatus(const QString &status)
{
    if (status == QLatin1String("None"))
        return 0;
    if (status == QLatin1String("Playlist"))
        return 1;
    if (status == QLatin1String("Track"))
        return 2;
    return std::nullopt;
}

QString MprisService::trackIDForSong(const Song *song)
{
    if (!song)
        return noTrackPath;
    // Path elements take no minus sign: the ID is written as its unsigned bit pattern.
    return QStringLiteral("/org/quivera/Quivera/track/") + QString::number(quint64(song->songID()));
}

QVariantMap MprisService::metadataForSong(const Song *song, const QString &artUrl)
{
    QVariantMap m;
    m.insert(QStringLiteral("mpris:trackid"), QVariant::fromValue(QDBusObjectPath(trackIDForSong(song))));
    if (!song)
        return m;
    m.insert(QStringLiteral("mpris:length"), microseconds(song->length()));
    m.insert(QStringLiteral("xesam:title"), song->name());
    const auto list = [&](const QString &key, const QString &value) {
        if (!value.isEmpty())
            m.insert(key, QStringList{value});
    };
    list(QStringLiteral("xesam:artist"), song->artist());
    list(QStringLiteral("xesam:albumArtist"), song->albumArtist());
    list(QStringLiteral("xesam:composer"), song->composer());
    list(QStringLiteral("xesam:genre"), song->genre());
    if (!song->album().isEmpty())
        m.insert(QStringLiteral("xesam:album"), song->album());
    if (const quint64 track = Song::leadingInteger(song->track()); track > 0)
        m.insert(QStringLiteral("xesam:trackNumber"), qint32(track));
    if (const quint64 disc = Song::leadingInteger(song->disc()); disc > 0)
        m.insert(QStringLiteral("xesam:discNumber"), qint32(disc));
    if (!song->URL().isEmpty())
        m.insert(QStringLiteral("xesam:url"), VEKPaths::toURL(song->URL()).toString(QUrl::FullyEncoded));
    if (!artUrl.isEmpty())
        m.insert(QStringLiteral("mpris:artUrl"), artUrl);
    return m;
}

// --- Published state ------------------------------------------------------------------------

Stream *MprisService::stream() const { return m_delegate ? m_delegate->stream() : nullptr; }

PlaylistPtr MprisService::playlistInView() const
{
    return m_delegate ? m_delegate->playlistInView() : nullptr;
}

QString MprisService::playbackStatus() const
{
    Stream *s = stream();
    if (!s || !s->currentSong())
        return QStringLiteral("Stopped");
    return s->isPlaying() ? QStringLiteral("Playing") : QStringLiteral("Paused");
}

QString MprisService::loopStatus() const
{
    const PlaylistPtr p = playlistInView();
    return loopStatusForRepeatMode(p ? p->repeatMode() : 0);
}

bool MprisService::shuffle() const
{
    const PlaylistPtr p = playlistInView();
    return p && p->shuffle();
}

QVariantMap MprisService::metadata()
{
    Stream *s = stream();
    const SongPtr song = s ? s->currentSong() : nullptr;
    if (song != m_artSong.lock()) {
        // Looking for a picture opens the file: once per song.
        m_artUrl = song ? m_art.artUrlForSong(*song) : QString();
        m_artSong = song;
    }
    return metadataForSong(song.get(), m_artUrl);
}

double MprisService::volume() const
{
    const QVariant v = UserDefaults::standard().value(kVolumeKey);
    return v.isValid() ? std::clamp(v.toDouble(), 0.0, 1.0) : 1.0;
}

qlonglong MprisService::position() const
{
    Stream *s = stream();
    return s && s->currentSong() ? microseconds(s->location()) : 0;
}

bool MprisService::canGoNext() const
{
    Stream *s = stream();
    return s && canGoNext(s->playlist().get(), s->currentSong());
}

bool MprisService::canGoPrevious() const
{
    Stream *s = stream();
    return s && canGoPrevious(s->playlist().get(), s->currentSong());
}

bool MprisService::canPlay() const
{
    Stream *s = stream();
    if (!s)
        return false;
    if (s->currentSong())
        return true;
    const PlaylistPtr p = playlistInView();
    return p && p->countOfSongs() > 0;
}

bool MprisService::canPause() const
{
    Stream *s = stream();
    return s && s->currentSong();
}

bool MprisService::canSeek() const
{
    Stream *s = stream();
    return s && s->currentSong() && s->currentSong()->length() > 0;
}

bool MprisService::canControl() const { return stream() != nullptr; }

// --- Actions --------------------------------------------------------------------------------

void MprisService::playPause()
{
    Stream *s = stream();
    if (!s)
        return;
    // Stopped (nothing current, or a playlist that played out), the delegate starts from the top.
    m_delegate->play();
    scheduleRefresh();
}

void MprisService::play()
{
    Stream *s = stream();
    if (!s)
        return;
    if (!s->isPlaying())
        m_delegate->play();
    scheduleRefresh();
}

void MprisService::pause()
{
    if (Stream *s = stream(); s && s->isPlaying())
        s->pause();
    scheduleRefresh();
}

void MprisService::stop()
{
    Stream *s = stream();
    if (!s)
        return;
    s->pause();
    s->setCurrentSong(nullptr); // nothing current: MPRIS's "Stopped"
    scheduleRefresh();
}

void MprisService::next()
{
    if (canGoNext())
        m_delegate->next();
    scheduleRefresh();
}

void MprisService::previous()
{
    if (canGoPrevious())
        m_delegate->previous();
    scheduleRefresh();
}

void MprisService::seek(qlonglong offset)
{
    if (!canSeek())
        return;
    Stream *s = stream();
    const qlonglong length = microseconds(s->currentSong()->length());
    const qlonglong target = std::max<qlonglong>(0, position() + offset);
    if (target >= length) {
        next();
        return;
    }
    s->setLocation(double(target) / 1e6);
}

void MprisService::setPosition(const QString &trackID, qlonglong position)
{
    if (!canSeek())
        return;
    Stream *s = stream();
    if (trackID != trackIDForSong(s->currentSong().get()))
        return; // a request about a track that has gone meanwhile
    if (position < 0 || position > microseconds(s->currentSong()->length()))
        return;
    s->setLocation(double(position) / 1e6);
}

void MprisService::playSong(const SongPtr &song)
{
    Stream *s = stream();
    if (!s || !song)
        return;
    PlaylistPtr p = s->playlist();
    const auto holds = [&](const PlaylistPtr &candidate) {
        return candidate && candidate->indexOfObjectInSongs(song) != Playlist::NotFound;
    };
    if (!holds(p)) {
        p = m_delegate->selectedPlaylist();
        if (!holds(p))
            p = m_delegate->localPlaylists().value(0); // the library holds every song...
        if (!holds(p))
            p = nullptr; // ...unless a search hides it: then it plays by itself
    }
    if (p != s->playlist())
        s->setPlaylist(p);
    s->setCurrentSong(song);
    if (s->currentSong() == song && !s->isPlaying())
        m_delegate->play();
    scheduleRefresh();
}

bool MprisService::openUri(const QString &uri, QString *problem)
{
    const auto refuse = [&](const QString &why) {
        if (problem)
            *problem = why;
        return false;
    };
    const QUrl url(uri);
    if (!url.isLocalFile())
        return refuse(QStringLiteral("Only file:// URIs can be opened"));
    const QString path = VEKPaths::fromURL(url);
    if (!VEKPaths::existsAsFile(path))
        return refuse(QStringLiteral("No such file: %1").arg(VEKPaths::readable(path)));
    if (!stream())
        return refuse(QStringLiteral("Nothing can play without the audio engine"));

    const QFileInfo wanted(path);
    const QString canonical = wanted.canonicalFilePath();
    for (const SongPtr &song : m_delegate->library()) {
        if (song->URL() == path
            || (QFileInfo(song->URL()).fileName() == wanted.fileName()
                && QFileInfo(song->URL()).canonicalFilePath() == canonical)) {
            playSong(song);
            return true;
        }
    }

    const std::shared_ptr<ImportOperation> import = m_delegate->addFilesToLibrary({path});
    if (!import)
        return refuse(QStringLiteral("The library can't take files yet"));
    if (!m_queueConnected) {
        // Connected after the delegate's own merge, so the song is in the library when we look.
        connect(m_delegate->queue(), &OperationQueue::operationFinished, this,
                [this](std::shared_ptr<Operation> operation) { importFinished(operation); });
        m_queueConnected = true;
    }
    m_pendingOpens.insert(import.get(), path);
    return true;
}

void MprisService::importFinished(const std::shared_ptr<Operation> &operation)
{
    const auto it = m_pendingOpens.find(operation.get());
    if (it == m_pendingOpens.end())
        return;
    const QString path = it.value();
    m_pendingOpens.erase(it);
    SongPtr song;
    if (const auto import = std::dynamic_pointer_cast<ImportOperation>(operation)) {
        for (const SongPtr &imported : import->songsInImportOrder()) {
            song = m_delegate->library().value(imported->songID());
            if (song)
                break;
        }
    }
    if (!song) {
        VEKLog(QStringLiteral("MPRIS: %1 could not be opened as a song").arg(path));
        return;
    }
    playSong(song);
}

void MprisService::setVolume(double volume)
{
    if (std::isnan(volume))
        return;
    // The setting is single precision, as the knob stores it.
    UserDefaults::standard().setValue(kVolumeKey, double(float(std::clamp(volume, 0.0, 1.0))));
    scheduleRefresh();
}

void MprisService::setLoopStatus(const QString &status)
{
    const std::optional<quint64> mode = repeatModeForLoopStatus(status);
    const PlaylistPtr p = playlistInView();
    if (!mode || !p)
        return;
    if (p == m_delegate->selectedPlaylist())
        m_delegate->setRepeatMode(*mode); // redraws the controls too
    else
        p->setRepeatMode(*mode);
    scheduleRefresh();
}

void MprisService::setShuffle(bool shuffle)
{
    const PlaylistPtr p = playlistInView();
    if (!p || p->shuffle() == shuffle)
        return;
    if (p == m_delegate->selectedPlaylist()) {
        m_delegate->setShuffle(shuffle);
    } else {
        Stream *s = stream();
        p->setShuffle(shuffle, s ? s->currentSong() : nullptr);
    }
    scheduleRefresh();
}

void MprisService::quit()
{
    // After the reply has gone out.
    QTimer::singleShot(0, QCoreApplication::instance(), [] { QCoreApplication::quit(); });
}

void MprisService::raise()
{
    if (m_raise)
        m_raise();
}

// --- Change notices -------------------------------------------------------------------------

void MprisService::scheduleRefresh()
{
    if (isRegistered())
        m_refreshSoon.start();
}

QVariantMap MprisService::publishedProperties()
{
    return {
        {QStringLiteral("PlaybackStatus"), playbackStatus()},
        {QStringLiteral("LoopStatus"), loopStatus()},
        {QStringLiteral("Shuffle"), shuffle()},
        {QStringLiteral("Metadata"), metadata()},
        {QStringLiteral("Volume"), volume()},
        {QStringLiteral("CanGoNext"), canGoNext()},
        {QStringLiteral("CanGoPrevious"), canGoPrevious()},
        {QStringLiteral("CanPlay"), canPlay()},
        {QStringLiteral("CanPause"), canPause()},
        {QStringLiteral("CanSeek"), canSeek()},
    };
}

void MprisService::refresh()
{
    m_songChanging = false;
    Stream *s = stream();
    if (s != m_followedStream) {
        if (m_followedStream)
            disconnect(m_followedStream, nullptr, this, nullptr);
        m_followedStream = s;
        if (s) {
            connect(s, &Stream::currentSongChanged, this, [this] {
                m_songChanging = true;
                scheduleRefresh();
            });
            connect(s, &Stream::playingChanged, this, &MprisService::scheduleRefresh);
            connect(s, &Stream::playlistChanged, this, &MprisService::scheduleRefresh);
            connect(s, &Stream::playlistEnded, this, &MprisService::scheduleRefresh);
            connect(s, &Stream::locationChanged, this,
                    [this](double seconds) {
                        // A new song starts at 0 by itself: that is no seek.
                        if (!m_songChanging)
                            emit seeked(microseconds(seconds));
                    });
        }
    }
    const PlaylistPtr p = playlistInView();
    if (p != m_followedPlaylist) {
        disconnect(m_playlistConnection);
        m_followedPlaylist = p;
        if (p)
            m_playlistConnection =
                connect(p.get(), &Playlist::valueChanged, this, &MprisService::scheduleRefresh);
    }

    const QVariantMap now = publishedProperties();
    QVariantMap changed;
    for (auto it = now.begin(); it != now.end(); ++it)
        if (m_published.value(it.key()) != it.value())
            changed.insert(it.key(), it.value());
    m_published = now;
    if (!changed.isEmpty())
        emitPropertiesChanged(kPlayerInterface, changed);
}

void MprisService::emitPropertiesChanged(const QString &interface, const QVariantMap &changed)
{
    QDBusMessage signal = QDBusMessage::createSignal(
        objectPath, QStringLiteral("org.freedesktop.DBus.Properties"), QStringLiteral("PropertiesChanged"));
    signal << interface << changed << QStringList();
    m_connection->send(signal);
}
