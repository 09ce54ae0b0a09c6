// The position bar's waveform of a 5-minute 44.1 kHz stereo FLAC: the reading alone, at the
// bar's width in device pixels at ratios 1 and 2 (targets: under 0.5 s), and the longest stall
// of the main thread while the picture grows in a shown bar (target: under 8 ms), measured as
// the longest gap between the ticks of a 1 ms timer less its millisecond.
//
//   build/bin/bench_player_waveform [--runs N]

#include "player/PlayerPosition.h"
#include "player/PlayerTransport.h"
#include "player/PlayerWaveformOperation.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QProcess>
#include <QTemporaryDir>
#include <QTimer>
#include <algorithm>
#include <ctime>
#include <cstdio>
#include <vector>

namespace {

class Transport : public PlayerTransport {
public:
    SongPtr song;
    SongPtr currentSong() const override { return song; }
    bool isPlaying() const override { return false; }
    void play() override {}
    void pause() override {}
    float normalizedLocation() const override { return 0.4f; }
    void setNormalizedLocation(float) override {}
    float levelOfChannel(quint32) const override { return 0.0f; }
};

double threadSeconds()
{
    timespec t{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
    return t.tv_sec + t.tv_nsec / 1e9;
}

// Times every event the main thread handles: the work that keeps it from the next one.
class TimedApplication : public QApplication {
public:
    using QApplication::QApplication;
    double longest = 0.0;    // wall clock, preemption included
    double longestCpu = 0.0; // the main thread's own work
    int longestType = 0;
    bool notify(QObject *receiver, QEvent *event) override
    {
        QElapsedTimer t;
        t.start();
        const double c0 = threadSeconds();
        const bool done = QApplication::notify(receiver, event);
        const double ms = t.nsecsElapsed() / 1e6;
        longestCpu = std::max(longestCpu, (threadSeconds() - c0) * 1e3);
        if (ms > longest) {
            longest = ms;
            longestType = event->type();
        }
        return done;
    }
};

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

} // namespace

int main(int argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    TimedApplication app(argc, argv);
    int runs = 5;
    const QStringList args = app.arguments();
    if (const int i = args.indexOf("--runs"); i > 0 && i + 1 < args.size())
        runs = qMax(1, args[i + 1].toInt());

    QTemporaryDir dir;
    const QString path = dir.filePath("five.flac");
    // Music-like: pink noise with a slow swell, so columns differ.
    if (QProcess::execute("sox", {"-n", "-r", "44100", "-c", "2", "-b", "16", path, "synth", "300",
                                  "pinknoise", "tremolo", "0.2", "60", "vol", "0.7"}) != 0) {
        std::fprintf(stderr, "sox failed\n");
        return 1;
    }

    for (const quint64 width : {quint64(1416), quint64(2832)}) {
        std::vector<double> times, cpu;
        for (int r = 0; r < runs; ++r) {
            PlayerWaveformOperation op(path, width);
            QElapsedTimer t;
            t.start();
            const double c0 = threadSeconds();
            op.start();
            cpu.push_back(threadSeconds() - c0);
            times.push_back(t.nsecsElapsed() / 1e9);
            if (op.waveform()->frames() != width)
                std::fprintf(stderr, "only %llu columns\n", (unsigned long long)op.waveform()->frames());
        }
        std::printf("waveform of 5 min 44.1 kHz FLAC, %llu columns: median %.3f s wall, %.3f s CPU over %d runs (target < 0.5 s)\n",
                    (unsigned long long)width, median(times), median(cpu), runs);
    }

    Transport transport;
    PlayerPosition bar;
    bar.resize(1436, 208);
    bar.show();
    bar.setTransport(&transport);
    // The window's first showing is not the waveform's work.
    QElapsedTimer settle;
    settle.start();
    while (settle.elapsed() < 300)
        app.processEvents(QEventLoop::AllEvents, 50);
    double longest = 0.0;
    QElapsedTimer clock;
    qint64 last = 0;
    QTimer tick;
    tick.setTimerType(Qt::PreciseTimer);
    tick.setInterval(1);
    QObject::connect(&tick, &QTimer::timeout, [&] {
        const qint64 now = clock.nsecsElapsed();
        longest = std::max(longest, (now - last) / 1e6 - 1.0);
        last = now;
    });
    QObject::connect(&bar, &PlayerPosition::waveformFinished, &app, [&] {
        if (bar.operation() && bar.operation()->isFinished())
            app.quit();
    });
    transport.song = std::make_shared<Song>();
    transport.song->setURL(path);
    app.longest = app.longestCpu = 0.0;
    clock.start();
    tick.start();
    emit transport.currentSongChanged();
    app.exec();
    std::printf("while the picture grew (%llu columns, shown at 1436 x 208, %.3f s to the full picture):\n"
                "  longest event handled on the main thread %.2f ms wall (event type %d), %.2f ms CPU (target < 8 ms)\n"
                "  longest late tick of a 1 ms timer %.2f ms (includes the scheduler on a loaded machine)\n",
                (unsigned long long)bar.columnsDrawn(), clock.nsecsElapsed() / 1e9, app.longest, app.longestType, app.longestCpu, longest);
    return 0;
}
