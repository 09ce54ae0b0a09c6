#pragma once

#include "RemoteHost.h"

#include <QHash>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QVariantMap>
#include <optional>

class UserDefaults;
class VEKNetworkAcceptor;
class VEKNetworkPipe;

// The remote control service: one client on the local network drives the player and browses
// the library. The service is announced as "_quivera1._tcp." in "local." under the computer's
// name and accepts one connection at a time: while a client is connected the announcement is
// withdrawn and the port closed, and both come back when it leaves. Every message, both ways,
// is a dictionary in a keyed archive (VEKNetworkPipe).
//
// The first message on a connection is a status push; further pushes follow every change of
// the stream's current song or playing state and of the settings "dim" and "mute". A request
// names its command under "command"; only the operations of the command table can be reached,
// by the name "remote_" + command. A reply carries the command's keys plus "target" and
// "action" copied from the request when they were there; a command that returns nothing sends
// nothing.
//
// Nothing that arrives is trusted. The pipe drops a client whose frames are over 16 MiB or are
// no archive of a dictionary; an unknown command is logged and answered with nothing. A command
// that acts (playSong, position, dim, mute) with an argument of the wrong type is ignored: no
// effect and no reply. A command that only reads takes such an argument as absent (an ID) or as
// matching nothing (a name, a search string). An absent argument behaves as the protocol says.
//
// Replies are built and archived whole on the main thread, as the protocol wants them in one
// message: getSongs on 100,000 songs holds the main thread for about a second, mostly in the
// archiving. A reply whose archive would pass 16 MiB (getSongs beyond about 120,000 songs) is
// not sent at all; the pipe logs it.
//
// Threads: main thread for everything. Setting changes made on other threads reach the service
// through queued signals.
class Remote : public QObject {
    Q_OBJECT
    Q_PROPERTY(bool connected READ connected WRITE setConnected NOTIFY connectedChanged)
public:
    static constexpr quint16 defaultPort = 8383;
    static constexpr double acceptorTimeout = 10.0;
    // Every request of the command table is a few hundred bytes; one far larger is an attack,
    // refused before its bytes are read rather than decoded into memory.
    static constexpr qint64 maxRequestSize = 1024 * 1024;
    // "target" and "action" are echoed only when each holds at most this many values: a
    // client's tokens are small, and a large one would only amplify what it sent.
    static constexpr qsizetype maxEchoedValues = 1024;
    static constexpr char serviceDomain[] = "local.";
    static constexpr char serviceType[] = "_quivera1._tcp.";

    struct Configuration {
        RemoteHost *host = nullptr;       // not owned; the service lets go of it if it dies
        UserDefaults *defaults = nullptr; // null: UserDefaults::standard()
        // None: the environment's QUIVERA_REMOTE_PORT if it holds a port (0 too), else 8383.
        // 0: any free port, kept for the republications that follow.
        std::optional<quint16> port = std::nullopt;
        QString name = QString(); // empty: the computer's name
    };

    // The process's service. Creates it if needed, attaches it to `configuration` and publishes
    // it. A failure to bind the port is alerted; the program goes on without the service.
    static Remote *start(const Configuration &configuration);
    // The same on `host` with the standard settings, the port and the computer's name.
    static Remote *start(RemoteHost *host) { return start(Configuration{.host = host}); }
    // Drops the connected client (without a word to it) and withdraws the service, then lets go
    // of the host. Nothing happens before start().
    static void stop();
    // The one instance, made on first use (idle and attached to nothing until start()).
    static Remote *sharedInstance();

    // A service of its own, attached but not published (tests; the program uses start()).
    explicit Remote(const Configuration &configuration, QObject *parent = nullptr);
    ~Remote() override;

    // Listens and announces. False, with the error alerted, when the port cannot be bound; the
    // acceptor is kept then and nothing retries.
    bool startNetworkService();
    // Withdraws the announcement and closes the port; a connected client stays.
    void shutdownNetworkService();
    // Drops the connected client.
    void shutdownPipe();
    // Pushes the status record to the connected client, if any.
    void sendStatus();

    bool connected() const { return m_connected; }
    void setConnected(bool connected);

    // The port being listened on, or 0.
    quint16 port() const;
    bool isPublishing() const { return m_acceptor != nullptr; }

    // One request through the dispatch: the reply to send (echo included), or nothing. Logs
    // "received illegal command: ..." for a command the table does not have.
    std::optional<QVariantMap> handleRequest(const QVariantMap &request);

    // --- The commands. Each takes the request and returns its reply or nothing. ---------------
    using Reply = std::optional<QVariantMap>;
    using Command = Reply (Remote::*)(const QVariantMap &request);
    // Command name (without the prefix) to operation.
    static const QHash<QString, Command> &commandTable();

    Reply remote_play(const QVariantMap &request);
    Reply remote_next(const QVariantMap &request);
    Reply remote_previous(const QVariantMap &request);
    Reply remote_volumeUp(const QVariantMap &request);
    Reply remote_volumeDown(const QVariantMap &request);
    Reply remote_dim(const QVariantMap &request);
    Reply remote_mute(const QVariantMap &request);
    Reply remote_position(const QVariantMap &request);
    Reply remote_playSong(const QVariantMap &request);
    Reply remote_getCurrentStatus(const QVariantMap &request);
    Reply remote_getPlaylistsLastModification(const QVariantMap &request);
    Reply remote_getPlaylistLastModification(const QVariantMap &request);
    Reply remote_getSongsLastModification(const QVariantMap &request);
    Reply remote_getPlaylists(const QVariantMap &request);
    Reply remote_getSongsForPlaylist(const QVariantMap &request);
    Reply remote_getSongs(const QVariantMap &request);
    Reply remote_getArtists(const QVariantMap &request);
    Reply remote_getArtistHasMultipleAlbums(const QVariantMap &request);
    Reply remote_getAlbumsForArtist(const QVariantMap &request);
    Reply remote_getSongsForArtist(const QVariantMap &request);
    Reply remote_getAlbums(const QVariantMap &request);
    Reply remote_getSongsForAlbum(const QVariantMap &request);
    Reply remote_getResultsOfSearch(const QVariantMap &request);

    // The volume steps of about 2 dB, in single precision as the setting has always been kept.
    static float volumeStepUp(float volume);
    static float volumeStepDown(float volume);

signals:
    void connectedChanged(bool connected);

private:
    void attach(const Configuration &configuration);
    void detach();
    UserDefaults &defaults() const;
    void acceptConnection(VEKNetworkPipe *pipe);
    void pipeDisconnected();
    void pipeReceived(const QVariant &message);
    QList<SongPtr> songsWhere(const QString &field, const QVariant &value) const;

    QPointer<RemoteHost> m_host;
    UserDefaults *m_defaults = nullptr;
    quint16 m_port = defaultPort;
    QString m_name;
    VEKNetworkAcceptor *m_acceptor = nullptr;
    VEKNetworkPipe *m_pipe = nullptr;
    bool m_connected = false;
    QList<QMetaObject::Connection> m_observers;
};
