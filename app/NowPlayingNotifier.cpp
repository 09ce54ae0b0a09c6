#include "NowPlayingNotifier.h"

#include "Application.h"

#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QFileInfo>
#include <QVariantMap>

namespace {
const QString kService = QStringLiteral("org.freedesktop.Notifications");
const QString kPath = QStringLiteral("/org/freedesktop/Notifications");
const QString kInterface = QStringLiteral("org.freedesktop.Notifications");
}

NowPlayingNotifier::NowPlayingNotifier(QObject *parent) : QObject(parent) {}

NowPlayingNotifier::NowPlayingNotifier(const QDBusConnection &connection, QObject *parent)
    : QObject(parent), m_connection(connection), m_triedSessionBus(true)
{
}

NowPlayingNotifier::~NowPlayingNotifier() = default;

QString NowPlayingNotifier::titleForSong(const Song *song)
{
    return song ? song->name() : QString();
}

QString NowPlayingNotifier::subtitleForSong(const Song *song)
{
    if (!song)
        return {};
    const QString &artist = song->artist();
    const QString &album = song->album();
    if (artist.isEmpty())
        return album;
    if (album.isEmpty())
        return artist;
    return artist + QStringLiteral(" \u2014 ") + album;
}

bool NowPlayingNotifier::connectIfNeeded()
{
    if (!m_triedSessionBus) {
        m_triedSessionBus = true;
        // Without an address libdbus may try to start a bus of its own: with none there is
        // nobody to tell.
        if (!qEnvironmentVariableIsEmpty("DBUS_SESSION_BUS_ADDRESS")
            || QFileInfo::exists(qEnvironmentVariable("XDG_RUNTIME_DIR") + QStringLiteral("/bus")))
            m_connection = QDBusConnection::sessionBus();
    }
    return m_connection && m_connection->isConnected();
}

void NowPlayingNotifier::currentSongChanged(const SongPtr &song)
{
    if (!connectIfNeeded())
        return;
    QDBusMessage call = QDBusMessage::createMethodCall(kService, kPath, kInterface,
                                                       QStringLiteral("Notify"));
    const QVariantMap hints{
        {QStringLiteral("desktop-entry"), Application::identifier()},
        {QStringLiteral("category"), QStringLiteral("x-quivera.nowplaying")},
        {QStringLiteral("transient"), true},
    };
    // Servers may read the body as markup: the song's texts are not.
    call << QStringLiteral("Quivera") << m_lastID << Application::identifier()
         << titleForSong(song.get()) << subtitleForSong(song.get()).toHtmlEscaped()
         << QStringList() << hints << qint32(-1);
    auto *watcher = new QDBusPendingCallWatcher(m_connection->asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher *w) {
        const QDBusPendingReply<quint32> reply = *w;
        if (reply.isValid()) {
            m_lastID = reply.value();
            emit delivered(m_lastID);
        }
        w->deleteLater();
    });
}
