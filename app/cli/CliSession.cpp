#include "CliSession.h"
#include "core/VEKPaths.h"

#include "audio/Stream.h"
#include "core/VEKDate.h"
#include "library/LibraryFile.h"
#include "settings/UserDefaults.h"

#include <QJsonObject>
#include <cstdio>

CliSession::CliSession() : m_out(stdout), m_err(stderr)
{
    VEKAlertPresenter::install(this);
}

CliSession::~CliSession()
{
    m_out.flush();
    m_err.flush();
    VEKAlertPresenter::install(nullptr);
}

void CliSession::present(const VEKError &error)
{
    // A library file moved aside was replaced by a new one: the command can still do its work.
    if (error.domain() == QLatin1String(LibraryFile::errorDomain) && error.code() == LibraryFile::SetAside) {
        m_err << "quivera-cli: warning: " << error.text() << Qt::endl;
        return;
    }
    fail(error.text());
}

void CliSession::fail(const QString &message)
{
    m_failed = true;
    m_err << "quivera-cli: " << message << Qt::endl;
}

ApplicationDelegate::LaunchOptions CliSession::libraryOnly()
{
    ApplicationDelegate::LaunchOptions options;
    options.stream = false;
    options.remote = false;
    options.mpris = false;
    return options;
}

bool CliSession::launch()
{
    return launch(libraryOnly());
}

void CliSession::loadSettings()
{
    ApplicationDelegate::registerDefaults(UserDefaults::standard());
    Stream::registerDefaults(UserDefaults::standard());
    // A damaged settings file has been replaced by the defaults: worth a word, but the command
    // itself can still do its work.
    const VEKError settingsError = UserDefaults::standard().takeLoadError();
    if (!settingsError.isNull())
        m_err << "quivera-cli: warning: " << settingsError.text() << Qt::endl;
}

bool CliSession::launch(const ApplicationDelegate::LaunchOptions &options)
{
    loadSettings();
    m_delegate = std::make_unique<ApplicationDelegate>();
    m_delegate->applicationWillFinishLaunching(options);
    // The launch queued the iTunes read-in, if it is allowed: a command shows the library as
    // the player would once it has arrived.
    if (m_delegate->queue())
        m_delegate->queue()->waitUntilAllOperationsAreFinished();
    m_selectionAtLaunch = m_delegate->selectedPlaylist();
    return m_delegate->database() != nullptr;
}

void CliSession::shutdown()
{
    if (!m_delegate)
        return;
    if (m_delegate->queue())
        m_delegate->queue()->waitUntilAllOperationsAreFinished();
    // A playlist deleted by the command can't be selected again.
    if (m_delegate->selectedPlaylist() != m_selectionAtLaunch) {
        const bool stillThere =
            m_selectionAtLaunch
            && m_delegate->playlistForID(m_selectionAtLaunch->playlistID()) == m_selectionAtLaunch;
        m_delegate->setSelectedPlaylist(stillThere ? m_selectionAtLaunch : nullptr);
    }
    m_delegate->applicationWillTerminate();
    m_delegate.reset();
}

SongPtr CliSession::songForID(const QString &text)
{
    qint64 id = 0;
    QString message;
    if (!CliArguments::toInteger(text, &id, &message, QStringLiteral("a song ID"))) {
        fail(message);
        return nullptr;
    }
    SongPtr song = m_delegate->library().value(id);
    if (!song)
        fail(QStringLiteral("no song has the ID %1").arg(id));
    return song;
}

PlaylistPtr CliSession::playlistForID(const QString &text)
{
    qint64 id = 0;
    QString message;
    if (!CliArguments::toInteger(text, &id, &message, QStringLiteral("a playlist ID"))) {
        fail(message);
        return nullptr;
    }
    PlaylistPtr playlist = m_delegate->playlistForID(id);
    if (!playlist)
        fail(QStringLiteral("no playlist has the ID %1").arg(id));
    return playlist;
}

QJsonObject CliSession::songJson(const Song &song)
{
    QJsonObject o;
    const auto put = [&o](const char *key, const QString &value) {
        if (!value.isNull())
            o.insert(QLatin1String(key), value);
    };
    o.insert(QStringLiteral("songID"), song.songID());
    put("name", song.name());
    put("artist", song.artist());
    put("album", song.album());
    put("albumArtist", song.albumArtist());
    put("composer", song.composer());
    put("genre", song.genre());
    put("track", song.track());
    put("disc", song.disc());
    put("kind", song.kind());
    if (!song.format().isEmpty())
        o.insert(QStringLiteral("format"), song.format());
    o.insert(QStringLiteral("length"), song.length());
    o.insert(QStringLiteral("size"), qint64(song.size()));
    o.insert(QStringLiteral("sampleRate"), song.sampleRate());
    o.insert(QStringLiteral("bitrate"), qint64(song.bitrate()));
    put("dateAdded", VEKDate::iso8601(song.dateAdded()));
    o.insert(QStringLiteral("isMissing"), song.isMissing());
    put("path", VEKPaths::readable(song.URL()));
    return o;
}

QString CliSession::playlistKindName(const Playlist &playlist)
{
    switch (playlist.kind()) {
    case Playlist::Kind::Library: return QStringLiteral("library");
    case Playlist::Kind::ITunesLibrary: return QStringLiteral("iTunesLibrary");
    case Playlist::Kind::ITunes: return QStringLiteral("iTunes");
    case Playlist::Kind::Plain: break;
    }
    return QStringLiteral("playlist");
}

QJsonObject CliSession::playlistJson(const Playlist &p)
{
    QJsonObject o;
    o.insert(QStringLiteral("playlistID"), p.playlistID());
    if (!p.name().isNull())
        o.insert(QStringLiteral("name"), p.name());
    o.insert(QStringLiteral("kind"), playlistKindName(p));
    o.insert(QStringLiteral("locked"), p.locked());
    o.insert(QStringLiteral("shuffle"), p.shuffle());
    o.insert(QStringLiteral("repeatMode"), qint64(p.repeatMode()));
    if (!p.sortKey().isNull())
        o.insert(QStringLiteral("sortKey"), p.sortKey());
    o.insert(QStringLiteral("sortAscending"), p.sortAscending());
    o.insert(QStringLiteral("count"), qint64(p.countOfSongs()));
    o.insert(QStringLiteral("lastModification"), p.lastModification());
    return o;
}
