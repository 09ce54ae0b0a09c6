#pragma once

#include "MprisArtCache.h"
#include "library/Playlist.h"
#include "library/Song.h"

#include <QDBusConnection>
#include <QDBusContext>
#include <QHash>
#include <QObject>
#include <QPointer>
#include <QTimer>
#include <QVariantMap>
#include <functional>
#include <memory>
#include <optional>

class ApplicationDelegate;
class MprisPlayerAdaptor;
class MprisRootAdaptor;
class Operation;
class Stream;

// The player as the desktop sees it: MPRIS 2 (org.mpris.MediaPlayer2 and
// org.mpris.MediaPlayer2.Player) under the bus name org.mpris.MediaPlayer2.quivera at
// /org/mpris/MediaPlayer2. Media keys, panel widgets and `playerctl -p quivera` drive the
// player through it; play-pause, next and previous are the delegate's own actions, the same as
// the media keys'.
//
// What it shows follows the stream. Loop and shuffle are those of the stream's playlist (the
// selected playlist while the stream has none); whether next and previous can do anything
// follows the menus' rules on the stream's playlist. Every change of a published property goes
// out as org.freedesktop.DBus.Properties.PropertiesChanged (Position excepted, as MPRIS asks),
// and a seek as Seeked, at the next turn of the event loop after the change was reported (by the
// stream, the delegate or the playlist in view); nothing is polled.
//
// A program without a session bus runs without MPRIS: nothing is registered, one log line says
// so. A bus name held by another instance makes this one register
// org.mpris.MediaPlayer2.quivera.instance<pid>, as MPRIS suggests. No failure here stops the
// program.
//
// Main thread only. The delegate must outlive the service; the stream may come and go (it is
// looked up on the delegate each time). The D-Bus context is the adaptors' way to refuse a call.
class MprisService : public QObject, public QDBusContext {
    Q_OBJECT
public:
    static inline const QString serviceBaseName = QStringLiteral("org.mpris.MediaPlayer2.quivera");
    static inline const QString objectPath = QStringLiteral("/org/mpris/MediaPlayer2");
    static inline const QString noTrackPath = QStringLiteral("/org/mpris/MediaPlayer2/TrackList/NoTrack");

    // On the session bus, when there is one.
    explicit MprisService(ApplicationDelegate *delegate, QObject *parent = nullptr);
    // On a given connection (tests use a private bus).
    MprisService(ApplicationDelegate *delegate, const QDBusConnection &connection,
                 QObject *parent = nullptr);
    // Gives up the bus name and the object.
    ~MprisService() override;

    // Whether the object and a bus name are on the bus.
    bool isRegistered() const { return !m_serviceName.isEmpty(); }
    // The bus name held; empty when not registered.
    const QString &serviceName() const { return m_serviceName; }

    // --- The rules (pure) --------------------------------------------------------------------

    // Whether next could do anything on `playlist` with `current` playing, as the menu decides
    // it: with repeat-song any current song; otherwise a playable song after the current one,
    // or with repeat-playlist any playable song at all. Missing songs are skipped; a song listed
    // twice counts from its first row. No playlist: false.
    static bool canGoNext(const Playlist *playlist, const SongPtr &current);
    // Whether previous could do anything: the playable song before the current one differs from
    // it, which holds for any current song (one in the first row goes back to its start). No
    // current song or no playlist: false.
    static bool canGoPrevious(const Playlist *playlist, const SongPtr &current);
    // "None", "Playlist", "Track" for the repeat modes 0, 1, 2 (other modes read as "None").
    static QString loopStatusForRepeatMode(quint64 mode);
    // The inverse; nothing for a text MPRIS does not define.
    static std::optional<quint64> repeatModeForLoopStatus(const QString &status);
    // The track's object path, from the song ID; the no-track path for none.
    static QString trackIDForSong(const Song *song);
    // The MPRIS metadata of a song: track ID, length in microseconds, title, and those of
    // artist, album, album artist, composer, genre, track and disc number, URL and `artUrl` that
    // are not empty. For no song just the no-track ID.
    static QVariantMap metadataForSong(const Song *song, const QString &artUrl = QString());

    // --- What the adaptors publish (read on demand) --------------------------------------------

    QString playbackStatus() const;
    QString loopStatus() const;
    bool shuffle() const;
    QVariantMap metadata();
    double volume() const;
    qlonglong position() const;
    bool canGoNext() const;
    bool canGoPrevious() const;
    bool canPlay() const;
    bool canPause() const;
    bool canSeek() const;
    bool canControl() const;

    // --- What the adaptors ask for -------------------------------------------------------------

    void playPause();
    // With no current song, starts the first playable song of the playlist in view.
    void play();
    void pause();
    // Pauses and lets go of the current song; a later play starts from the top of the list.
    void stop();
    void next();
    void previous();
    // Relative, in microseconds; past the end it acts as next, before the start it goes to 0.
    void seek(qlonglong offset);
    // Absolute, in microseconds; ignored unless `trackID` is the current track and the
    // position lies within it.
    void setPosition(const QString &trackID, qlonglong position);
    // A file:// URI: a song of the library plays at once; another file is imported first and
    // plays when the import has brought it in. False (with `problem`) for another scheme or no
    // such file; an import that finds no audio logs and plays nothing.
    bool openUri(const QString &uri, QString *problem = nullptr);
    // Clamped to 0..1, stored as the `volume` setting.
    void setVolume(double volume);
    void setLoopStatus(const QString &status);
    void setShuffle(bool shuffle);
    // MPRIS asks for quit to be honoured: the event loop is told to end.
    void quit();
    // Brings the player window to the front; only a front end with windows can, and it says
    // how here. Until then CanRaise is false and Raise does nothing.
    void setRaiseHandler(std::function<void()> handler) { m_raise = std::move(handler); }
    bool canRaise() const { return bool(m_raise); }
    void raise();

signals:
    // A seek of the stream, in microseconds (the player adaptor relays it as Seeked); not the
    // start of a new song.
    void seeked(qlonglong position);

private:
    void setUp();
    Stream *stream() const;
    PlaylistPtr playlistInView() const;
    void playSong(const SongPtr &song);
    void importFinished(const std::shared_ptr<Operation> &operation);
    // Follows a new stream or playlist, then publishes what changed since the last time.
    void refresh();
    void scheduleRefresh();
    QVariantMap publishedProperties();
    void emitPropertiesChanged(const QString &interface, const QVariantMap &changed);

    ApplicationDelegate *m_delegate;
    std::optional<QDBusConnection> m_connection;
    QString m_serviceName;
    MprisRootAdaptor *m_root = nullptr;     // child
    MprisPlayerAdaptor *m_player = nullptr; // child
    MprisArtCache m_art;
    std::weak_ptr<Song> m_artSong;
    QString m_artUrl;
    QPointer<Stream> m_followedStream;
    PlaylistPtr m_followedPlaylist;
    QMetaObject::Connection m_playlistConnection;
    // Set by a change of song and cleared at the next refresh, a turn of the event loop later:
    // the rewind that comes with a new song is not announced as a seek.
    bool m_songChanging = false;
    QVariantMap m_published;
    QTimer m_refreshSoon;
    // Files handed to an import by OpenUri, played when it finishes.
    QHash<const Operation *, QString> m_pendingOpens;
    bool m_queueConnected = false;
    std::function<void()> m_raise;
};
