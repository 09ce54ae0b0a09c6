// Import throughput: 2,000 short FLAC files in 40 folders brought into an empty library (walk,
// tags and facts of every file, rows, merge), against ffprobe reading the tags of the same
// files, one process per file, two at a time (xargs -P2: this machine has two cores), run side
// by side. Prints files per second for both and their ratio.
//
//   build/bin/bench_import_throughput [--files N] [--seconds S] [--runs N]

#include "app/ApplicationDelegate.h"
#include "io/VEKAudioFileModifier.h"
#include "library/ImportOperation.h"
#include "settings/UserDefaults.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QProcess>
#include <QTemporaryDir>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

// One file made by sox, copied and tagged: making each with sox would take minutes.
void makeFiles(const QString &root, int count, double seconds)
{
    const QString base = root + QStringLiteral("/base.flac");
    if (QProcess::execute(QStringLiteral("sox"),
                          {QStringLiteral("-n"), QStringLiteral("-r"), QStringLiteral("44100"),
                           QStringLiteral("-c"), QStringLiteral("2"), QStringLiteral("-b"),
                           QStringLiteral("16"), base, QStringLiteral("synth"),
                           QString::number(seconds), QStringLiteral("sine"),
                           QStringLiteral("440"), QStringLiteral("vol"), QStringLiteral("0.5")})
        != 0) {
        std::fprintf(stderr, "sox failed\n");
        std::exit(1);
    }
    for (int i = 0; i < count; ++i) {
        const QString folder = QStringLiteral("%1/music/Artist %2/Album %3").arg(root).arg(i % 8).arg(i % 40);
        QDir().mkpath(folder);
        const QString path = QStringLiteral("%1/%2 Song %3.flac").arg(folder).arg(i % 12 + 1, 2, 10, QLatin1Char('0')).arg(i);
        QFile::copy(base, path);
        VEKAudioFileModifier tags;
        if (tags.initWithURL(path)) {
            tags.setValue(QStringLiteral("title"), QStringLiteral("Song %1").arg(i));
            tags.setValue(QStringLiteral("artist"), QStringLiteral("Artist %1").arg(i % 8));
            tags.setValue(QStringLiteral("album"), QStringLiteral("Album %1").arg(i % 40));
            tags.setValue(QStringLiteral("trackNumber"), QStringLiteral("%1/12").arg(i % 12 + 1));
            tags.commit();
        }
    }
    QFile::remove(base);
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    int files = 2000, runs = 3;
    double seconds = 1.0;
    const QStringList args = QCoreApplication::arguments();
    for (int i = 1; i + 1 < args.size(); i += 2) {
        if (args[i] == QLatin1String("--files")) files = args[i + 1].toInt();
        else if (args[i] == QLatin1String("--seconds")) seconds = args[i + 1].toDouble();
        else if (args[i] == QLatin1String("--runs")) runs = args[i + 1].toInt();
    }

    QTemporaryDir root;
    qputenv("XDG_DATA_HOME", QFile::encodeName(root.path() + QStringLiteral("/data")));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(root.path() + QStringLiteral("/config")));
    std::printf("making %d FLAC files of %.1f s...\n", files, seconds);
    makeFiles(root.path(), files, seconds);
    const QString music = root.path() + QStringLiteral("/music");
    ApplicationDelegate::registerDefaults(UserDefaults::standard());

    std::vector<double> ours, peer;
    qsizetype imported = 0;
    for (int r = 0; r < runs; ++r) {
        QFile::remove(ApplicationDelegate::libraryFilePath());
        QFile::remove(ApplicationDelegate::libraryFilePath() + QStringLiteral("-wal"));
        QFile::remove(ApplicationDelegate::libraryFilePath() + QStringLiteral("-shm"));
        {
            ApplicationDelegate delegate;
            delegate.applicationWillFinishLaunching();
            QElapsedTimer t;
            t.start();
            const auto operation = delegate.addFilesToLibrary({music});
            delegate.queue()->waitUntilAllOperationsAreFinished();
            const double s = double(t.nsecsElapsed()) / 1e9;
            imported = delegate.library().size();
            ours.push_back(double(imported) / s);
            delegate.applicationWillTerminate();
        }

        // The peer: ffprobe reading each file's tags, two processes at a time.
        QElapsedTimer t;
        t.start();
        QProcess probe;
        probe.setStandardOutputFile(QProcess::nullDevice());
        probe.start(QStringLiteral("sh"),
                    {QStringLiteral("-c"),
                     QStringLiteral("find \"$1\" -name '*.flac' -print0 | xargs -0 -n1 -P2 "
                                    "ffprobe -v error -show_entries format_tags -of json"),
                     QStringLiteral("sh"), music});
        probe.waitForFinished(-1);
        peer.push_back(double(files) / (double(t.nsecsElapsed()) / 1e9));
    }
    const double a = median(ours), b = median(peer);
    std::printf("songs imported: %lld of %d files\n", qlonglong(imported), files);
    std::printf("import: %.0f files/s (median of %d)\n", a, runs);
    std::printf("ffprobe, one per file, two at a time: %.0f files/s (median of %d)\n", b, runs);
    std::printf("ratio: %.1f times the peer's rate (target: at least 300 files/s)\n", a / b);
    return imported == files ? 0 : 1;
}
