#pragma once

#include "library/Song.h"

#include <QDBusConnection>
#include <QObject>
#include <optional>

// Tells the desktop which song is playing, as a notification through
// org.freedesktop.Notifications on the session bus. Each notice replaces the one before, so
// they do not pile up. Without a session bus or a notification service nothing happens and
// nothing is said: the call is asynchronous, and its failure is dropped.
//
// Main thread only.
class NowPlayingNotifier : public QObject {
    Q_OBJECT
public:
    // On the session bus, connected at the first notice (so a program that never plays never
    // touches the bus).
    explicit NowPlayingNotifier(QObject *parent = nullptr);
    // On a given connection (tests use a private bus).
    explicit NowPlayingNotifier(const QDBusConnection &connection, QObject *parent = nullptr);
    ~NowPlayingNotifier() override;

    // The stream calls this each time its current song changes, also when it becomes none:
    // the notice then has neither title nor text.
    void currentSongChanged(const SongPtr &song);

    // The notice's title: the song's name.
    static QString titleForSong(const Song *song);
    // Its text: artist and album joined by an em dash, the one that is there, or nothing.
    static QString subtitleForSong(const Song *song);

signals:
    // The service accepted a notice and gave it this ID.
    void delivered(quint32 id);

private:
    bool connectIfNeeded();

    std::optional<QDBusConnection> m_connection;
    bool m_triedSessionBus = false;
    quint32 m_lastID = 0;
};
