#include "CliCommand.h"
#include "core/VEKPaths.h"

#include <QRegularExpression>

CliCommand removeCommand()
{
    CliCommand c;
    c.name = QStringLiteral("remove");
    c.summary = QStringLiteral("remove songs from the library (the files stay)");
    c.help = QStringLiteral(
        "quivera-cli remove SONGID...\n\n"
        "Removes the songs from the library and from every playlist. The audio files are not\n"
        "touched.");
    c.run = [c](CliSession &session, const QStringList &argv) {
        const CliArguments args(argv, {}, {});
        if (const int rc = cliCheckArguments(session, args, c); rc >= 0)
            return rc;
        if (args.positional().isEmpty()) {
            session.fail(QStringLiteral("remove needs at least one song ID"));
            return 2;
        }
        if (!session.launch())
            return 1;
        ApplicationDelegate &d = session.delegate();
        QList<SongPtr> songs;
        for (const QString &id : args.positional()) {
            SongPtr song = session.songForID(id);
            if (!song)
                return 1;
            if (song->songID() > 0) {
                session.fail(QStringLiteral("song %1 belongs to the iTunes library, which is read-only").arg(id));
                return 1;
            }
            songs.append(song);
        }
        d.setSelectedPlaylist(d.playlistForID(Playlist::LibraryPlaylistID));
        Playlist::Rows rows;
        for (qsizetype i = 0; i < d.songs().size(); ++i)
            if (songs.contains(d.songs().at(i)))
                rows.append(i);
        d.removeSongsAtIndexes(rows);
        return 0;
    };
    return c;
}

CliCommand tagCommand()
{
    CliCommand c;
    c.name = QStringLiteral("tag");
    c.summary = QStringLiteral("write tags into a song's file");
    c.help = QStringLiteral(
        "quivera-cli tag SONGID KEY=VALUE...\n\n"
        "Writes the tags into the audio file and the library. Keys: title, artist, album,\n"
        "albumArtist, composer, genre, track, disc ('3 of 12' or '3'). An empty value clears\n"
        "the tag.");
    c.run = [c](CliSession &session, const QStringList &argv) {
        const CliArguments args(argv, {}, {});
        if (const int rc = cliCheckArguments(session, args, c); rc >= 0)
            return rc;
        if (args.positional().size() < 2) {
            session.fail(QStringLiteral("tag needs a song ID and at least one KEY=VALUE"));
            return 2;
        }
        static const QStringList keys = {QStringLiteral("title"),    QStringLiteral("artist"),
                                         QStringLiteral("album"),    QStringLiteral("albumArtist"),
                                         QStringLiteral("composer"), QStringLiteral("genre"),
                                         QStringLiteral("track"),    QStringLiteral("disc")};
        QVariantMap metadata;
        for (const QString &pair : args.positional().mid(1)) {
            const qsizetype eq = pair.indexOf(u'=');
            const QString key = pair.left(eq);
            if (eq < 0 || !keys.contains(key)) {
                session.fail(QStringLiteral("\"%1\" is not KEY=VALUE with a key of: %2")
                                 .arg(pair, keys.join(QStringLiteral(", "))));
                return 2;
            }
            const QString value = pair.mid(eq + 1);
            // A track or disc is what the file's number fields can hold.
            static const QRegularExpression number(QStringLiteral("^\\s*[0-9]+(\\s+of\\s+[0-9]+)?\\s*$"));
            if ((key == QLatin1String("track") || key == QLatin1String("disc")) && !value.isEmpty()
                && !number.match(value).hasMatch()) {
                session.fail(QStringLiteral("%1 must be a number or \"N of M\", not \"%2\"").arg(key, value));
                return 2;
            }
            metadata.insert(key, value.isEmpty() ? QVariant() : QVariant(value));
        }
        if (!session.launch())
            return 1;
        SongPtr song = session.songForID(args.positional().first());
        if (!song)
            return 1;
        if (song->isMissing()) {
            session.fail(QStringLiteral("the file of song %1 is missing: %2")
                             .arg(song->songID())
                             .arg(VEKPaths::readable(song->URL())));
            return 1;
        }
        session.delegate().setMetadataForSong(metadata, song);
        return 0;
    };
    return c;
}

CliCommand rescanCommand()
{
    CliCommand c;
    c.name = QStringLiteral("rescan");
    c.summary = QStringLiteral("read the library anew and look for missing files");
    c.help = QStringLiteral(
        "quivera-cli rescan\n\n"
        "Builds the library anew from the library file and checks that every song's file is\n"
        "there; prints how many are missing.");
    c.run = [c](CliSession &session, const QStringList &argv) {
        const CliArguments args(argv, {}, {});
        if (const int rc = cliCheckArguments(session, args, c); rc >= 0)
            return rc;
        if (!session.launch())
            return 1;
        ApplicationDelegate &d = session.delegate();
        d.rescan();
        if (d.queue())
            d.queue()->waitUntilAllOperationsAreFinished(); // the iTunes read-in it queued
        qsizetype missing = 0;
        for (const SongPtr &song : d.library())
            missing += song->isMissing() ? 1 : 0;
        session.out() << d.library().size() << " songs, " << missing << " missing" << Qt::endl;
        return 0;
    };
    return c;
}
