#include "CliCommand.h"

#include "library/SongPredicate.h"
#include "text/VEKTimeFormatter.h"

#include <QJsonArray>
#include <QJsonDocument>

namespace {

// One song per line: a tag holding a line break or a tab would break the listing, so such
// characters are written as escapes.
QString oneLine(const QString &text)
{
    QString out;
    out.reserve(text.size());
    for (const QChar c : text) {
        if (c == u'\n')
            out += QStringLiteral("\\n");
        else if (c == u'\r')
            out += QStringLiteral("\\r");
        else if (c == u'\t')
            out += QStringLiteral("\\t");
        else if (c.unicode() < 0x20 || c.unicode() == 0x7f || c == QChar(0x2028) || c == QChar(0x2029))
            out += QStringLiteral("\\x%1").arg(c.unicode(), 2, 16, QLatin1Char('0'));
        else
            out += c;
    }
    return out;
}

int run(CliSession &session, const QStringList &argv, const CliCommand &command)
{
    const CliArguments args(argv, {QStringLiteral("playlist"), QStringLiteral("search"), QStringLiteral("scope")},
                            {QStringLiteral("json")});
    if (const int rc = cliCheckArguments(session, args, command); rc >= 0)
        return rc;
    qint64 scope = 0;
    QString message;
    if (args.has(QStringLiteral("scope"))
        && (!CliArguments::toInteger(args.value(QStringLiteral("scope")), &scope, &message, QStringLiteral("--scope"))
            || scope < 0 || scope > 4)) {
        session.fail(message.isEmpty() ? QStringLiteral("--scope must be 0 to 4") : message);
        return 2;
    }
    if (!args.positional().isEmpty()) {
        session.fail(QStringLiteral("songs takes no arguments besides its options"));
        return 2;
    }
    if (!session.launch())
        return 1;
    ApplicationDelegate &d = session.delegate();
    PlaylistPtr playlist = args.has(QStringLiteral("playlist"))
                               ? session.playlistForID(args.value(QStringLiteral("playlist")))
                               : d.playlistForID(Playlist::LibraryPlaylistID);
    if (!playlist)
        return 1;
    if (args.has(QStringLiteral("search")))
        playlist->setPredicate(std::make_shared<SongPredicate>(
            SongPredicate::forSearch(args.value(QStringLiteral("search")), int(scope))));
    const QList<SongPtr> songs = playlist->songs();
    playlist->setPredicate(nullptr);

    if (args.has(QStringLiteral("json"))) {
        QJsonArray array;
        for (const SongPtr &song : songs)
            array.append(CliSession::songJson(*song));
        session.out() << QString::fromUtf8(QJsonDocument(array).toJson(QJsonDocument::Indented));
        return 0;
    }
    for (const SongPtr &s : songs) {
        session.out() << QString::number(s->songID()).rightJustified(11) << "  "
                      << VEKTimeFormatter().stringForSeconds(s->length()).rightJustified(6) << "  "
                      << (s->isMissing() ? QStringLiteral("! ") : QString()) << oneLine(s->name());
        if (!s->artist().isEmpty())
            session.out() << " — " << oneLine(s->artist());
        if (!s->album().isEmpty())
            session.out() << " — " << oneLine(s->album());
        session.out() << '\n';
    }
    session.out().flush();
    return 0;
}
}

CliCommand songsCommand()
{
    CliCommand c;
    c.name = QStringLiteral("songs");
    c.summary = QStringLiteral("list the songs of a playlist in its order");
    c.help = QStringLiteral(
        "quivera-cli songs [--playlist ID] [--search TEXT [--scope 0-4]] [--json]\n\n"
        "Lists the songs of a playlist (default: the library) in the order in force: shuffled,\n"
        "sorted or the playlist's own. A missing file is marked with '!'.\n\n"
        "  --playlist ID   the playlist to list (see 'quivera-cli playlists')\n"
        "  --search TEXT   only songs where every word is found in one field\n"
        "  --scope N       0 all fields, 1 name, 2 artist, 3 album, 4 composer\n"
        "  --json          an array of song objects instead of lines");
    c.run = [c](CliSession &s, const QStringList &a) { return run(s, a, c); };
    return c;
}

CliCommand playlistsCommand()
{
    CliCommand c;
    c.name = QStringLiteral("playlists");
    c.summary = QStringLiteral("list every playlist");
    c.help = QStringLiteral(
        "quivera-cli playlists [--json]\n\n"
        "Lists the playlists: the library and its own playlists, then the iTunes library's.");
    c.run = [c](CliSession &session, const QStringList &argv) {
        const CliArguments args(argv, {}, {QStringLiteral("json")});
        if (const int rc = cliCheckArguments(session, args, c); rc >= 0)
            return rc;
        if (!session.launch())
            return 1;
        ApplicationDelegate &d = session.delegate();
        QList<PlaylistPtr> all = d.localPlaylists();
        all += d.iTunesPlaylists();
        if (args.has(QStringLiteral("json"))) {
            QJsonArray array;
            for (const PlaylistPtr &p : all)
                array.append(CliSession::playlistJson(*p));
            session.out() << QString::fromUtf8(QJsonDocument(array).toJson(QJsonDocument::Indented));
            return 0;
        }
        for (const PlaylistPtr &p : all) {
            session.out() << QString::number(p->playlistID()).rightJustified(11) << "  "
                          << CliSession::playlistKindName(*p).leftJustified(13) << ' '
                          << QString::number(p->countOfSongs()).rightJustified(6) << "  " << p->name();
            QStringList flags;
            // The playlist's own order has no direction.
            if (p->sortKey() == QLatin1String("ordinal"))
                flags << QStringLiteral("own order");
            else if (!p->sortKey().isEmpty())
                flags << QStringLiteral("sort %1 %2").arg(p->sortKey(), p->sortAscending() ? QStringLiteral("up") : QStringLiteral("down"));
            if (p->shuffle())
                flags << QStringLiteral("shuffle");
            if (p->repeatMode() != 0)
                flags << QStringLiteral("repeat %1").arg(p->repeatMode());
            if (!flags.isEmpty())
                session.out() << "  [" << flags.join(QStringLiteral(", ")) << ']';
            session.out() << '\n';
        }
        session.out().flush();
        return 0;
    };
    return c;
}
