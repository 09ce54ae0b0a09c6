#include "CliCommand.h"
#include "CliProgressBar.h"
#include "core/VEKPaths.h"

#include "library/ImportOperation.h"

#include <QEventLoop>
#include <QFile>
#include <QTimer>
#include <QUrl>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <sys/stat.h>

namespace {

std::atomic<bool> g_interrupted{false};

void onInterrupt(int) { g_interrupted.store(true); }

// The failure's own words, without the path the line already names.
QString reasonFor(const ImportOperation::Failure &failure)
{
    QString reason = failure.error.failureReason();
    const QString prefix = VEKPaths::readable(failure.path) + QStringLiteral(": ");
    if (reason.startsWith(prefix))
        reason = reason.mid(prefix.size());
    else if (reason == VEKPaths::readable(failure.path))
        reason.clear();
    QString text = failure.error.localizedDescription();
    if (!reason.isEmpty())
        text += QStringLiteral(" (") + reason + QLatin1Char(')');
    return text;
}

// Nothing at all is there; other reasons not to read a path (a name too long, a folder that may
// not be entered) the import names itself.
bool argumentIsMissing(const QString &argument)
{
    QString path = argument;
    if (argument.startsWith(QLatin1String("file:"), Qt::CaseInsensitive)) {
        const QUrl url(argument);
        if (!url.isLocalFile())
            return true;
        path = VEKPaths::fromURL(url);
    }
    struct stat st;
    return !VEKPaths::stat(path, &st) && (errno == ENOENT || errno == ENOTDIR);
}

int run(CliSession &session, const QStringList &argv, const CliCommand &command)
{
    const CliArguments args(argv, {QStringLiteral("playlist")}, {});
    if (const int rc = cliCheckArguments(session, args, command); rc >= 0)
        return rc;
    if (args.positional().isEmpty()) {
        session.fail(QStringLiteral("import needs at least one file or folder"));
        return 2;
    }
    if (!session.launch())
        return 1;
    ApplicationDelegate &d = session.delegate();
    if (args.has(QStringLiteral("playlist"))) {
        const PlaylistPtr target = session.playlistForID(args.value(QStringLiteral("playlist")));
        if (!target)
            return 1;
        if (target->isFromITunes()) {
            session.fail(QStringLiteral("playlist %1 belongs to the iTunes library, which is read-only")
                             .arg(target->playlistID()));
            return 1;
        }
        // The selection decides where the songs go; the session puts it back afterwards.
        d.setSelectedPlaylist(target);
    } else {
        d.setSelectedPlaylist(d.playlistForID(Playlist::LibraryPlaylistID));
    }

    QStringList missing;
    for (const QString &argument : args.positional())
        if (argumentIsMissing(argument))
            missing.append(argument);

    const std::shared_ptr<ImportOperation> operation = d.addFilesToLibrary(args.positional());
    if (!operation)
        return 1;
    // The summary below names every failure: the log need not say them again.
    operation->setFailuresShownByCaller(true);

    g_interrupted.store(false);
    const auto previousHandler = std::signal(SIGINT, onInterrupt);
    {
        CliProgressBar bar;
        QEventLoop loop;
        QTimer poll;
        poll.setInterval(100);
        QObject::connect(&poll, &QTimer::timeout, &loop, [&] {
            bar.show(QStringLiteral("Importing"), operation->progress());
            if (g_interrupted.load())
                operation->cancel();
        });
        // The delegate merges on this same signal, before this handler runs.
        QObject::connect(d.queue(), &OperationQueue::operationFinished, &loop,
                         [&](std::shared_ptr<Operation> finished) {
                             if (finished == operation)
                                 loop.quit();
                         });
        bar.show(QStringLiteral("Importing"), 0.0f);
        poll.start();
        loop.exec();
        bar.show(QStringLiteral("Importing"), operation->progress());
    }
    std::signal(SIGINT, previousHandler);
    d.queue()->waitUntilAllOperationsAreFinished();

    QTextStream &out = session.out();
    const qsizetype failed = operation->failures().size() + missing.size();
    out << operation->songs().size() << " added, " << operation->duplicates().size()
        << " skipped as duplicates, " << operation->notAudio().size() << " not audio, " << failed
        << " failed";
    if (!operation->passedOver().isEmpty())
        out << ", " << operation->passedOver().size() << " passed over";
    if (!operation->songsToConvert().isEmpty())
        out << ", " << operation->songsToConvert().size()
            << " converted to the preferred format instead of added as they are";
    out << '\n';
    bool namedFailed = !missing.isEmpty();
    for (const QString &argument : std::as_const(missing))
        out << "failed: " << VEKPaths::readable(argument) << ": no such file or folder\n";
    for (const ImportOperation::Failure &failure : operation->failures()) {
        out << "failed: " << VEKPaths::readable(failure.path) << ": " << reasonFor(failure) << '\n';
        namedFailed = namedFailed || failure.named;
    }
    for (const ImportOperation::Failure &item : operation->passedOver()) {
        out << "passed over: " << VEKPaths::readable(item.path) << ": "
            << item.error.failureReason().mid(item.path.size() + 2) << '\n';
        namedFailed = namedFailed || item.named;
    }
    if (g_interrupted.load())
        out << "interrupted: the songs added so far stay in the library\n";
    out.flush();
    if (g_interrupted.load())
        return 130;
    // A file found in a folder that is not a song does not make the run fail; the library not
    // being written, or a file the user named failing, does.
    if (operation->libraryWriteFailed())
        session.fail(QStringLiteral("the library file could not be written"));
    return operation->libraryWriteFailed() || namedFailed ? 1 : 0;
}

} // namespace

CliCommand importCommand()
{
    CliCommand c;
    c.name = QStringLiteral("import");
    c.summary = QStringLiteral("add audio files and folders to the library");
    c.help = QStringLiteral(
        "quivera-cli import PATH... [--playlist ID]\n\n"
        "Adds audio files to the library. A folder is searched with all its sub-folders;\n"
        "names that start with a dot are left out. A file the library already has is skipped,\n"
        "and so is a file met twice (by a link, or named twice), and a file that holds no audio\n"
        "(a cover, a cue sheet, a log). A bar shows the progress on a terminal. At the end one\n"
        "line counts what was added, skipped and what failed, and each failed file and each\n"
        "path passed over (a folder that may not be read, a pipe) follows with its reason. The\n"
        "status is 1 when the library could not be written or a path named here failed.\n"
        "Ctrl-C stops the import; the songs added so far stay.\n\n"
        "  --playlist ID   add the new songs to this playlist too (see 'quivera-cli playlists')");
    c.run = [c](CliSession &s, const QStringList &a) { return run(s, a, c); };
    return c;
}
