// A dragged volume control: 100 changes of one setting on the main thread, as the knob sends
// them, and then a normal quit. Prints the time the changes took on the caller's thread and
// what reached the file; run under `strace -f -c -e trace=fsync,fdatasync` for the syncs.
//
//   build/bin/bench_settings_changes [--changes N] [--interval-ms N]

#include "settings/UserDefaults.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QTemporaryDir>
#include <QThread>
#include <cstdio>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    int changes = 100;
    int intervalMs = 0;
    const QStringList args = app.arguments();
    for (qsizetype i = 1; i + 1 < args.size(); ++i) {
        if (args.at(i) == QLatin1String("--changes"))
            changes = args.at(i + 1).toInt();
        else if (args.at(i) == QLatin1String("--interval-ms"))
            intervalMs = args.at(i + 1).toInt();
    }
    QTemporaryDir dir;
    const QString path = dir.path() + QStringLiteral("/Preferences.plist");
    double total = 0;
    {
        UserDefaults defaults(path);
        defaults.setValue(QStringLiteral("outputDevice"), QVariantMap{{QStringLiteral("uid"), QStringLiteral("hw:0")}});
        QElapsedTimer timer;
        for (int i = 0; i < changes; ++i) {
            timer.start();
            defaults.setValue(QStringLiteral("volume"), double(i) / changes);
            total += double(timer.nsecsElapsed()) / 1e6;
            // The knob's pace: the event loop runs between changes, as it would in the player.
            QElapsedTimer pause;
            pause.start();
            do
                QCoreApplication::processEvents(QEventLoop::AllEvents, intervalMs);
            while (pause.elapsed() < intervalMs);
        }
    } // the store ends with the program: what it holds must be on disk
    const double last = UserDefaults(path).doubleForKey(QStringLiteral("volume"));
    std::printf("%d changes: %.2f ms on the caller's thread (%.3f ms each); volume on disk %.2f (expected %.2f)\n",
                changes, total, total / changes, last, double(changes - 1) / changes);
    return last == double(changes - 1) / changes ? 0 : 1;
}
