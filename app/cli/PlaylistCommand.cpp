#include "CliCommand.h"

namespace {

// The songs named by IDs, or empty after a message if one is unknown.
bool songsForIDs(CliSession &session, const QStringList &ids, QList<SongPtr> *songs)
{
    for (const QString &id : ids) {
        SongPtr song = session.songForID(id);
        if (!song)
            return false;
        songs->append(song);
    }
    return true;
}

// Rows of the playlist's view, checked against its length.
bool rowsFor(CliSession &session, const QStringList &texts, qsizetype count, Playlist::Rows *rows)
{
    for (const QString &t : texts) {
        qint64 row = 0;
        QString message;
        if (!CliArguments::toInteger(t, &row, &message, QStringLiteral("a row"))) {
            session.fail(message);
            return false;
        }
        if (row < 0 || row >= count) {
            session.fail(QStringLiteral("row %1 is outside the playlist (0 to %2)").arg(row).arg(count - 1));
            return false;
        }
        if (!rows->contains(row))
            rows->append(row);
    }
    std::sort(rows->begin(), rows->end());
    return true;
}

// An own playlist whose songs may change, or a message why not.
PlaylistPtr editablePlaylist(CliSession &session, const QString &id)
{
    PlaylistPtr p = session.playlistForID(id);
    if (p && (p->locked() || p->isLibraryPlaylist())) {
        session.fail(QStringLiteral("the playlist \"%1\" can't be changed").arg(p->name()));
        return nullptr;
    }
    return p;
}

int usage(CliSession &session, const QString &message, const QString &help)
{
    session.fail(message);
    session.err() << "usage: " << help.section(u'\n', 0, 0) << Qt::endl;
    return 2;
}

int run(CliSession &session, const QStringList &argv, const CliCommand &command)
{
    const CliArguments args(argv, {QStringLiteral("to"), QStringLiteral("sort"), QStringLiteral("shuffle"),
                                   QStringLiteral("repeat")},
                            {QStringLiteral("ascending"), QStringLiteral("descending")});
    if (const int rc = cliCheckArguments(session, args, command); rc >= 0)
        return rc;
    const QStringList pos = args.positional();
    const QString verb = pos.value(0);
    const QStringList rest = pos.mid(1);
    static const QHash<QString, int> minimum = {
        {QStringLiteral("new"), 0}, {QStringLiteral("rename"), 2}, {QStringLiteral("delete"), 1},
        {QStringLiteral("add"), 2}, {QStringLiteral("remove"), 2}, {QStringLiteral("move"), 2},
        {QStringLiteral("set"), 1}};
    if (!minimum.contains(verb))
        return usage(session, verb.isEmpty() ? QStringLiteral("playlist needs an action")
                                             : QStringLiteral("unknown action \"%1\"").arg(verb),
                     command.help);
    if (rest.size() < minimum.value(verb))
        return usage(session, QStringLiteral("playlist %1 needs more arguments").arg(verb), command.help);
    if ((verb == QLatin1String("rename") || verb == QLatin1String("delete")) && rest.size() != minimum.value(verb))
        return usage(session, QStringLiteral("playlist %1 takes %2 argument(s)").arg(verb).arg(minimum.value(verb)),
                     command.help);
    if (verb == QLatin1String("move") && !args.has(QStringLiteral("to")))
        return usage(session, QStringLiteral("playlist move needs --to ROW"), command.help);
    if (args.has(QStringLiteral("ascending")) && args.has(QStringLiteral("descending")))
        return usage(session, QStringLiteral("--ascending and --descending exclude each other"), command.help);
    const QString shuffle = args.value(QStringLiteral("shuffle"));
    if (args.has(QStringLiteral("shuffle")) && shuffle != QLatin1String("on") && shuffle != QLatin1String("off"))
        return usage(session, QStringLiteral("--shuffle takes on or off"), command.help);
    const QString repeat = args.value(QStringLiteral("repeat"));
    if (args.has(QStringLiteral("repeat")) && repeat != QLatin1String("0") && repeat != QLatin1String("1")
        && repeat != QLatin1String("2"))
        return usage(session, QStringLiteral("--repeat takes 0 (off), 1 (playlist) or 2 (song)"), command.help);

    if (!session.launch())
        return 1;
    ApplicationDelegate &d = session.delegate();

    if (verb == QLatin1String("new")) {
        QList<SongPtr> songs;
        if (!songsForIDs(session, rest, &songs))
            return 1;
        const qsizetype before = d.localPlaylists().size();
        d.newPlaylistWithSongs(songs);
        if (d.localPlaylists().size() == before)
            return 1;
        session.out() << d.localPlaylists().last()->playlistID() << Qt::endl;
        return 0;
    }
    if (verb == QLatin1String("rename")) {
        PlaylistPtr p = editablePlaylist(session, rest.at(0));
        if (!p)
            return 1;
        d.setNameOfPlaylist(rest.at(1), p);
        return 0;
    }
    if (verb == QLatin1String("delete")) {
        PlaylistPtr p = editablePlaylist(session, rest.at(0));
        if (!p)
            return 1;
        d.setSelectedPlaylist(p);
        d.deleteSelectedPlaylist();
        return d.playlistForID(p->playlistID()) ? 1 : 0;
    }
    if (verb == QLatin1String("add")) {
        PlaylistPtr p = editablePlaylist(session, rest.at(0));
        QList<SongPtr> songs;
        if (!p || !songsForIDs(session, rest.mid(1), &songs))
            return 1;
        p->appendSongs(songs);
        return 0;
    }
    if (verb == QLatin1String("remove") || verb == QLatin1String("move")) {
        PlaylistPtr p = editablePlaylist(session, rest.at(0));
        if (!p)
            return 1;
        d.setSelectedPlaylist(p);
        Playlist::Rows rows;
        if (!rowsFor(session, rest.mid(1), d.songs().size(), &rows))
            return 1;
        if (verb == QLatin1String("remove")) {
            d.removeSongsAtIndexes(rows);
            return 0;
        }
        // Rows of the view only match the playlist's own order when it is neither sorted nor
        // shuffled.
        if (p->shuffle() || p->sortKey() != QLatin1String("ordinal")) {
            session.fail(QStringLiteral("playlist %1 is sorted or shuffled; set '--sort ordinal --shuffle off' to move songs")
                             .arg(p->playlistID()));
            return 1;
        }
        qint64 to = 0;
        QString message;
        if (!CliArguments::toInteger(args.value(QStringLiteral("to")), &to, &message, QStringLiteral("--to"))) {
            session.fail(message);
            return 2;
        }
        if (to < 0 || to > d.songs().size()) {
            session.fail(QStringLiteral("--to %1 is outside the playlist (0 to %2)").arg(to).arg(d.songs().size()));
            return 1;
        }
        QList<SongPtr> songs;
        for (qsizetype row : rows)
            songs.append(d.songs().at(row));
        d.moveSongsToIndex(songs, to);
        return 0;
    }
    // set
    PlaylistPtr p = session.playlistForID(rest.at(0));
    if (!p)
        return 1;
    d.setSelectedPlaylist(p);
    if (args.has(QStringLiteral("sort")))
        d.setSortKey(args.value(QStringLiteral("sort")));
    if (args.has(QStringLiteral("ascending")))
        d.setSortAscending(true);
    if (args.has(QStringLiteral("descending")))
        d.setSortAscending(false);
    if (args.has(QStringLiteral("shuffle")))
        d.setShuffle(shuffle == QLatin1String("on"));
    if (args.has(QStringLiteral("repeat")))
        d.setRepeatMode(repeat.toULongLong());
    return 0;
}
}

CliCommand playlistCommand()
{
    CliCommand c;
    c.name = QStringLiteral("playlist");
    c.summary = QStringLiteral("make, rename, delete, fill, reorder and sort playlists");
    c.help = QStringLiteral(
        "quivera-cli playlist ACTION ...\n\n"
        "  new [SONGID...]              a new playlist, with these songs; prints its ID\n"
        "  rename ID NAME               rename a playlist\n"
        "  delete ID                    delete a playlist (its songs stay in the library)\n"
        "  add ID SONGID...             append songs\n"
        "  remove ID ROW...             remove the songs at these rows (from 0, as 'songs' lists them)\n"
        "  move ID ROW... --to ROW      move songs within a playlist in its own order\n"
        "  set ID [--sort KEY] [--ascending|--descending] [--shuffle on|off] [--repeat 0|1|2]\n"
        "                               sort keys: ordinal (the playlist's own order), artist, album,\n"
        "                               name, kind, track, or any song field (length, dateAdded, ...);\n"
        "                               repeat: 0 off, 1 the playlist, 2 the song");
    c.run = [c](CliSession &s, const QStringList &a) { return run(s, a, c); };
    return c;
}
