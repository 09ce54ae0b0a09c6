// The player's whole chain as a user runs it: `quivera-cli render` of one long 44.1 kHz stereo
// FLAC at 96 kHz, with crossfeed on and dither to 24 bits, into a 24-bit WAV. Against
// `sox in.flac -b 24 out.wav rate -v 96000 dither -s` on the same input, the two run one after
// the other, in turns. Prints medians of wall and CPU (user + system) time of both, their ratio
// and how many times real time ours is on CPU time.
// Targets: at least 300 times real time on one core, at most 0.7 of sox's time.
//
//   build/bin/bench_render_chain [--runs N] [--seconds S] [--keep DIR]
//
// The CLI runs with settings and library folders of its own (a temporary XDG_CONFIG_HOME and
// XDG_DATA_HOME), so the user's are never touched. An hour of input makes two outputs of about
// 2 GB each: they are deleted after every run.

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>

#include <sys/resource.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace {

double childrenCpuSeconds()
{
    rusage u;
    getrusage(RUSAGE_CHILDREN, &u);
    return double(u.ru_utime.tv_sec) + double(u.ru_stime.tv_sec)
           + (double(u.ru_utime.tv_usec) + double(u.ru_stime.tv_usec)) / 1e6;
}

struct Timing {
    double wall = 0, cpu = 0;
};

// Runs a program to its end; its CPU time is what the children's account grew by meanwhile.
bool timed(const QString &program, const QStringList &args, const QProcessEnvironment &env, Timing *t,
           QByteArray *out = nullptr)
{
    QProcess p;
    p.setProcessEnvironment(env);
    const double c0 = childrenCpuSeconds();
    QElapsedTimer clock;
    clock.start();
    p.start(program, args);
    if (!p.waitForFinished(-1) || p.exitStatus() != QProcess::NormalExit || p.exitCode() != 0) {
        std::fprintf(stderr, "%s %s failed:\n%s%s\n", qPrintable(program), qPrintable(args.join(QLatin1Char(' '))),
                     p.readAllStandardOutput().constData(), p.readAllStandardError().constData());
        return false;
    }
    if (t) {
        t->wall = double(clock.nsecsElapsed()) / 1e9;
        t->cpu = childrenCpuSeconds() - c0;
    }
    if (out)
        *out = p.readAllStandardOutput();
    return true;
}

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    const size_t n = v.size();
    return n % 2 ? v[n / 2] : (v[n / 2 - 1] + v[n / 2]) / 2;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    int runs = 3;
    int seconds = 3600;
    QString keep;
    for (int i = 1; i + 1 < argc; ++i) {
        if (!std::strcmp(argv[i], "--runs"))
            runs = std::max(1, std::atoi(argv[++i]));
        else if (!std::strcmp(argv[i], "--seconds"))
            seconds = std::max(1, std::atoi(argv[++i]));
        else if (!std::strcmp(argv[i], "--keep"))
            keep = QString::fromLocal8Bit(argv[++i]);
    }
    const QString cli = QCoreApplication::applicationDirPath() + QStringLiteral("/quivera-cli");
    if (!QFileInfo(cli).isExecutable()) {
        std::fprintf(stderr, "%s is missing: build the quivera-cli target\n", qPrintable(cli));
        return 1;
    }
    QTemporaryDir dir;
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert(QStringLiteral("XDG_CONFIG_HOME"), dir.filePath(QStringLiteral("config")));
    env.insert(QStringLiteral("XDG_DATA_HOME"), dir.filePath(QStringLiteral("data")));
    QDir().mkpath(dir.filePath(QStringLiteral("config")));
    QDir().mkpath(dir.filePath(QStringLiteral("data")));

    // A sweep over the audible band with noise on it: nothing the converter or the crossfeed
    // could pass through cheaply, and nothing FLAC packs to almost nothing.
    const QString in = dir.filePath(QStringLiteral("in.flac"));
    std::printf("making %d s of 44.1 kHz stereo 16-bit FLAC with sox...\n", seconds);
    std::fflush(stdout);
    if (!timed(QStringLiteral("sox"),
               {QStringLiteral("-n"), QStringLiteral("-r"), QStringLiteral("44100"), QStringLiteral("-c"),
                QStringLiteral("2"), QStringLiteral("-b"), QStringLiteral("16"), in, QStringLiteral("synth"),
                QString::number(seconds), QStringLiteral("sine"), QStringLiteral("20-20000"),
                QStringLiteral("whitenoise"), QStringLiteral("vol"), QStringLiteral("0.4")},
               env, nullptr))
        return 1;
    const QStringList settings[] = {
        {QStringLiteral("sampleRate"), QStringLiteral("96000")},
        {QStringLiteral("headphonesProcessorSettings"),
         QStringLiteral("{\"enabled\":true,\"crossfeedType\":1,\"crossfeedAmount\":0.7}")},
        {QStringLiteral("ditherProperties"), QStringLiteral("{\"depth\":24}")},
    };
    for (const QStringList &s : settings)
        if (!timed(cli, QStringList{QStringLiteral("settings"), QStringLiteral("set")} + s, env, nullptr))
            return 1;
    if (!timed(cli, {QStringLiteral("import"), in}, env, nullptr))
        return 1;

    const QString ours = dir.filePath(QStringLiteral("ours.wav")), sox = dir.filePath(QStringLiteral("sox.wav"));
    std::vector<double> oursWall, oursCpu, soxWall, soxCpu;
    QByteArray said;
    for (int r = 0; r < runs; ++r) {
        Timing t;
        if (!timed(QStringLiteral("sox"),
                   {in, QStringLiteral("-b"), QStringLiteral("24"), sox, QStringLiteral("rate"), QStringLiteral("-v"),
                    QStringLiteral("96000"), QStringLiteral("dither"), QStringLiteral("-s")},
                   env, &t))
            return 1;
        soxWall.push_back(t.wall);
        soxCpu.push_back(t.cpu);
        if (!timed(cli, {QStringLiteral("render"), QStringLiteral("--out"), ours, QStringLiteral("--bits"), QStringLiteral("24")},
                   env, &t, &said))
            return 1;
        oursWall.push_back(t.wall);
        oursCpu.push_back(t.cpu);
        std::printf("run %d: sox %.2f s wall %.2f s cpu; quivera %.2f s wall %.2f s cpu\n", r + 1, soxWall.back(),
                    soxCpu.back(), oursWall.back(), oursCpu.back());
        std::fflush(stdout);
        const qint64 oursSize = QFileInfo(ours).size(), soxSize = QFileInfo(sox).size();
        if (r == runs - 1) {
            std::printf("outputs: quivera %lld bytes, sox %lld bytes; quivera-cli said: %s", (long long)oursSize,
                        (long long)soxSize, said.constData());
            if (!keep.isEmpty()) {
                QDir().mkpath(keep);
                QFile::remove(keep + QStringLiteral("/ours.wav"));
                QFile::remove(keep + QStringLiteral("/sox.wav"));
                QFile::rename(ours, keep + QStringLiteral("/ours.wav"));
                QFile::rename(sox, keep + QStringLiteral("/sox.wav"));
            }
        }
        QFile::remove(ours);
        QFile::remove(sox);
    }
    const double ow = median(oursWall), oc = median(oursCpu), sw = median(soxWall), sc = median(soxCpu);
    std::printf("input: %d s of 44.1 kHz stereo FLAC -> 96 kHz 24-bit WAV; %d runs each, medians\n", seconds, runs);
    std::printf("                                     wall s     cpu s\n");
    std::printf("sox rate -v 96000 dither -s      : %8.2f  %8.2f\n", sw, sc);
    std::printf("quivera-cli render (whole chain) : %8.2f  %8.2f\n", ow, oc);
    std::printf("ratio quivera/sox                : %8.3f  %8.3f   (target <= 0.7)\n", ow / sw, oc / sc);
    std::printf("quivera times real time          : %8.1f  %8.1f   (target >= 300 on cpu time)\n",
                double(seconds) / ow, double(seconds) / oc);
    return 0;
}
