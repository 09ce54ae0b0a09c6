#include "CliCommand.h"
#include "CliProgressBar.h"
#include "core/VEKPaths.h"

#include "io/VEKAudioFileReader.h"
#include "io/VEKAudioFileWriter.h"
#include "library/ConvertOperation.h"
#include "settings/UserDefaults.h"

#include <QEventLoop>
#include <QFileInfo>
#include <QSet>
#include <QTimer>

#include <atomic>
#include <csignal>

namespace {

std::atomic<bool> g_interrupted{false};

// Whether converting `song` would write the same thing again: its kind is the preferred format,
// at its own rate (or the preferred rate is the song's) and, for formats with a word length, at
// the depth the writer would use. The player queues such a song anyway when no preferred rate
// is set; the command line, asked for "copies in the preferred format", does not make a copy of
// a file that is one already.
bool alreadyPreferred(const Song &song)
{
    if (song.isInPreferredFormat())
        return true;
    const QVariantMap preferred = UserDefaults::standard().dictionaryForKey(QStringLiteral("preferredFormat"));
    const QStringList &formats = VEKAudioFileWriter::formats();
    const qulonglong index = preferred.value(QStringLiteral("format")).toULongLong();
    if (index >= qulonglong(formats.size()) || song.kind() != formats.at(qsizetype(index)))
        return false;
    const qulonglong rate = preferred.value(QStringLiteral("sampleRate")).toULongLong();
    if (rate != 0 && rate != qulonglong(song.sampleRate()))
        return false;
    const quint32 depth = VEKAudioFileWriter::bitDepthWritten(
        formats.at(qsizetype(index)), preferred.value(QStringLiteral("bitRange")).toUInt());
    if (depth == 0)
        return true; // a lossy format: a copy would only lose more
    const auto reader = VEKAudioFileReader::open(song.URL());
    return reader && reader->bitDepth() == depth;
}

void onInterrupt(int) { g_interrupted.store(true); }

int run(CliSession &session, const QStringList &argv, const CliCommand &command)
{
    const CliArguments args(argv, {QStringLiteral("playlist")}, {});
    if (const int rc = cliCheckArguments(session, args, command); rc >= 0)
        return rc;
    if (args.positional().isEmpty()) {
        session.fail(QStringLiteral("convert needs at least one song ID"));
        return 2;
    }
    if (!session.launch())
        return 1;
    ApplicationDelegate &d = session.delegate();

    PlaylistPtr target;
    if (args.has(QStringLiteral("playlist"))) {
        target = session.playlistForID(args.value(QStringLiteral("playlist")));
        if (!target)
            return 1;
        if (target->kind() != Playlist::Kind::Plain) {
            session.fail(QStringLiteral("playlist %1 is not one of your own playlists")
                             .arg(target->playlistID()));
            return 1;
        }
    }

    // Every ID is checked before anything is converted: a typo converts nothing.
    QList<SongPtr> songs;
    QSet<qint64> seen;
    for (const QString &argument : args.positional()) {
        const SongPtr song = session.songForID(argument);
        if (!song)
            return 1;
        if (!seen.contains(song->songID()))
            songs.append(song);
        seen.insert(song->songID());
    }

    QTextStream &out = session.out();
    int failed = 0;
    int skipped = 0;
    QList<SongPtr> toConvert;
    for (const SongPtr &song : std::as_const(songs)) {
        if (!VEKPaths::existsAsFile(song->URL())) {
            session.fail(QStringLiteral("song %1: its file is missing: %2")
                             .arg(song->songID())
                             .arg(VEKPaths::readable(song->URL())));
            ++failed;
        } else if (alreadyPreferred(*song)) {
            out << "skipped: song " << song->songID() << " is in the preferred format already\n";
            ++skipped;
        } else {
            toConvert.append(song);
        }
    }

    const QList<std::shared_ptr<ConvertOperation>> operations =
        d.createPreferredVersionOfSongs(toConvert, target);
    QSet<const Song *> queued;
    for (const auto &operation : operations)
        operation->setFailureShownByCaller(true); // the summary below names each failure
    for (const auto &operation : operations)
        queued.insert(operation->song().get());
    for (const SongPtr &song : std::as_const(toConvert))
        if (!queued.contains(song.get())) {
            out << "skipped: song " << song->songID() << " is in the preferred format already\n";
            ++skipped;
        }

    int converted = 0;
    g_interrupted.store(false);
    const auto previousHandler = std::signal(SIGINT, onInterrupt);
    if (!operations.isEmpty()) {
        CliProgressBar bar;
        QEventLoop loop;
        QTimer poll;
        poll.setInterval(100);
        int merged = 0;
        auto current = [&]() -> int {
            for (int i = 0; i < operations.size(); ++i)
                if (!operations[i]->isFinished())
                    return i;
            return int(operations.size()) - 1;
        };
        QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
            const int i = current();
            bar.show(QStringLiteral("Converting %1 of %2").arg(i + 1).arg(operations.size()), operations[i]->progress());
            if (g_interrupted.load())
                for (const auto &operation : operations)
                    operation->cancel();
        });
        // The delegate merges on this same signal, before this handler runs.
        QObject::connect(d.queue(), &OperationQueue::operationFinished, &loop,
                         [&](std::shared_ptr<Operation> finished) {
                             for (const auto &operation : operations)
                                 if (operation == finished && ++merged == operations.size())
                                     loop.quit();
                         });
        bar.show(QStringLiteral("Converting 1 of %1").arg(operations.size()), 0.0f);
        poll.start();
        loop.exec();
    }
    std::signal(SIGINT, previousHandler);

    for (const auto &operation : operations) {
        if (operation->success()) {
            ++converted;
            out << "converted: song " << operation->song()->songID() << " -> song "
                << operation->resultSong()->songID() << ": " << VEKPaths::readable(operation->resultURL())
                << '\n';
        } else if (!operation->error().isNull()) {
            ++failed;
            out << "failed: song " << operation->song()->songID() << ": "
                << operation->error().text() << '\n';
        }
    }
    out << converted << " converted, " << skipped << " skipped, " << failed << " failed\n";
    if (g_interrupted.load())
        out << "interrupted: the songs converted so far stay in the library\n";
    out.flush();
    if (g_interrupted.load())
        return 130;
    return failed > 0 ? 1 : 0;
}

} // namespace

CliCommand convertCommand()
{
    CliCommand c;
    c.name = QStringLiteral("convert");
    c.summary = QStringLiteral("make copies of songs in the preferred format");
    c.help = QStringLiteral(
        "quivera-cli convert SONGID... [--playlist ID]\n\n"
        "Converts each song into the preferred format (see 'quivera-cli settings get\n"
        "preferredFormat') and adds the result to the library as a new song. The new file\n"
        "lies beside the source and takes its name; when that name is taken it gets a number\n"
        "(\"name 1.flac\"). The source file is never changed. A song in the preferred format\n"
        "already (its format, at the preferred rate or its own when none is set, and at the\n"
        "preferred word length) is skipped. A bar shows the progress on a terminal. One line\n"
        "per song tells the new song's ID and file, or why it failed; the status is 1 when\n"
        "any song failed.\n"
        "Ctrl-C stops the conversion; the songs converted so far stay.\n\n"
        "  --playlist ID   add the new songs to this playlist too (see 'quivera-cli playlists')");
    c.run = [c](CliSession &s, const QStringList &a) { return run(s, a, c); };
    return c;
}
