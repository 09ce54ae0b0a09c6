// The remote service's two heaviest replies on a library of 100,000 songs: getSongs (the whole
// library) and getResultsOfSearch, timed from the request leaving a loopback client to the last
// byte of the reply arriving. Side by side, the sqlite3 command line lists the same rows
// (and runs the same search with LIKE) from the library file into a pipe. Prints medians and
// their ratios.
//
//   build/bin/bench_remote_replies [--songs N] [--runs N]

#include "app/ApplicationDelegate.h"
#include "app/ApplicationRemoteHost.h"
#include "db/VEKDatabaseQuery.h"
#include "net/VEKKeyedArchive.h"
#include "remote/Remote.h"
#include "settings/UserDefaults.h"
#include "support/BenchLibrary.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QProcess>
#include <QTemporaryDir>
#include <QtEndian>
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <functional>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

namespace {

// A blocking client on a thread of its own, so that the service's event loop runs unhindered.
class Client {
public:
    explicit Client(quint16 port)
    {
        m_fd = ::socket(AF_INET, SOCK_STREAM, 0);
        sockaddr_in addr{};
        addr.sin_family = AF_INET;
        addr.sin_port = htons(port);
        addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        if (::connect(m_fd, reinterpret_cast<sockaddr *>(&addr), sizeof addr) != 0) {
            std::perror("connect");
            std::exit(1);
        }
        // The status push; the service sends it from its event loop.
        onThread([this] { readFrame(); });
    }
    ~Client() { ::close(m_fd); }

    // Milliseconds from sending `request` to the last byte of its reply; its size in `bytes`.
    double roundTrip(const QVariantMap &request, qint64 *bytes)
    {
        const QByteArray payload = VEKKeyedArchive::archivedData(request);
        QByteArray frame(4, '\0');
        qToBigEndian<quint32>(quint32(payload.size()), frame.data());
        frame += payload;
        double ms = -1;
        onThread([&] {
            QElapsedTimer timer;
            timer.start();
            if (::send(m_fd, frame.constData(), size_t(frame.size()), 0) != frame.size())
                return;
            const QByteArray reply = readFrame();
            ms = double(timer.nsecsElapsed()) / 1e6;
            *bytes = reply.size() + 4;
            if (!VEKKeyedArchive::unarchive(reply).toMap().contains(QStringLiteral("target")))
                ms = -1; // not the reply: nothing else should come here
        });
        return ms;
    }

private:
    // Runs `work` on a thread while this one keeps serving.
    void onThread(const std::function<void()> &work)
    {
        std::atomic<bool> done{false};
        std::thread t([&] {
            work();
            done = true;
        });
        while (!done)
            QCoreApplication::processEvents(QEventLoop::AllEvents, 1);
        t.join();
    }

    bool readExactly(char *out, size_t n)
    {
        size_t got = 0;
        while (got < n) {
            const ssize_t r = ::recv(m_fd, out + got, n - got, 0);
            if (r <= 0)
                return false;
            got += size_t(r);
        }
        return true;
    }
    QByteArray readFrame()
    {
        char header[4];
        if (!readExactly(header, 4))
            return {};
        QByteArray payload(qFromBigEndian<quint32>(header), Qt::Uninitialized);
        if (!readExactly(payload.data(), size_t(payload.size())))
            return {};
        return payload;
    }

    int m_fd = -1;
};

double runSqlite(const QString &file, const QString &sql)
{
    QElapsedTimer t;
    t.start();
    QProcess sqlite;
    sqlite.setStandardOutputFile(QProcess::nullDevice());
    sqlite.start(QStringLiteral("sqlite3"), {file, sql});
    sqlite.waitForFinished(-1);
    return double(t.nsecsElapsed()) / 1e6;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    int songs = 100000, runs = 9;
    const QStringList args = QCoreApplication::arguments();
    for (int i = 1; i + 1 < args.size(); i += 2) {
        if (args[i] == QLatin1String("--songs")) songs = args[i + 1].toInt();
        else if (args[i] == QLatin1String("--runs")) runs = args[i + 1].toInt();
    }

    QTemporaryDir root;
    qputenv("XDG_DATA_HOME", QFile::encodeName(root.path() + QStringLiteral("/data")));
    qputenv("XDG_CONFIG_HOME", QFile::encodeName(root.path() + QStringLiteral("/config")));
    // No bus: the service serves without announcing itself, as it does without a daemon.
    qputenv("DBUS_SYSTEM_BUS_ADDRESS", "unix:path=" + QFile::encodeName(root.path() + "/no_bus"));
    const QString file = ApplicationDelegate::libraryFilePath();
    std::printf("making a library of %d songs...\n", songs);
    BenchLibrary::make(file, songs);
    ApplicationDelegate::registerDefaults(UserDefaults::standard());

    ApplicationDelegate delegate;
    ApplicationDelegate::LaunchOptions options;
    options.stream = false;
    options.remote = false;
    options.mpris = false;
    delegate.applicationWillFinishLaunching(options);
    ApplicationRemoteHost host(delegate);
    Remote remote({.host = &host, .port = 0, .name = QStringLiteral("bench")});
    if (!remote.startNetworkService()) {
        std::fprintf(stderr, "the service does not start\n");
        return 1;
    }
    Client client(remote.port());

    // A broad search (a word in one name of six) and a narrow one (a few artists).
    const QString search = QStringLiteral("cafe");
    const QString narrow = QStringLiteral("artist 421");
    std::vector<double> all, found, few, peerAll, peerFound;
    qint64 allBytes = 0, foundBytes = 0, fewBytes = 0;
    for (int r = 0; r < runs; ++r) {
        all.push_back(client.roundTrip({{"command", "getSongs"}, {"target", r}}, &allBytes));
        found.push_back(client.roundTrip(
            {{"command", "getResultsOfSearch"}, {"searchString", search}, {"target", r}}, &foundBytes));
        few.push_back(client.roundTrip(
            {{"command", "getResultsOfSearch"}, {"searchString", narrow}, {"target", r}}, &fewBytes));
        peerAll.push_back(runSqlite(file, QStringLiteral("SELECT songID, name, artist, album FROM t_song;")));
        peerFound.push_back(runSqlite(
            file, QStringLiteral("SELECT DISTINCT artist FROM t_song WHERE artist LIKE '%cafe%' ORDER BY artist;"
                                 "SELECT DISTINCT album FROM t_song WHERE album LIKE '%cafe%' ORDER BY album;"
                                 "SELECT songID, name, artist FROM t_song WHERE name LIKE '%cafe%' ORDER BY name;")));
    }
    if (std::any_of(all.begin(), all.end(), [](double v) { return v < 0; })
        || std::any_of(found.begin(), found.end(), [](double v) { return v < 0; })) {
        std::fprintf(stderr, "a request got no reply\n");
        return 1;
    }
    // Where the time goes, on the main thread alone: building the reply and archiving it. In
    // processor time of this thread, so that other work on the machine does not count.
    const auto cpuMs = [] {
        timespec ts{};
        clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
        return double(ts.tv_sec) * 1e3 + double(ts.tv_nsec) / 1e6;
    };
    const QList<QVariantMap> requests = {
        {{"command", "getSongs"}},
        {{"command", "getResultsOfSearch"}, {"searchString", search}},
        {{"command", "getResultsOfSearch"}, {"searchString", narrow}},
    };
    for (const QVariantMap &request : requests) {
        std::vector<double> build, archive;
        for (int r = 0; r < runs; ++r) {
            double t = cpuMs();
            const std::optional<QVariantMap> reply = remote.handleRequest(request);
            build.push_back(cpuMs() - t);
            t = cpuMs();
            const QByteArray bytes = VEKKeyedArchive::archivedData(reply.value_or(QVariantMap()));
            archive.push_back(cpuMs() - t);
        }
        std::printf("  %s %s: built in %.1f ms, archived in %.1f ms of processor time\n",
                    qPrintable(request.value("command").toString()),
                    qPrintable(request.value("searchString").toString()), BenchLibrary::median(build),
                    BenchLibrary::median(archive));
    }

    const double a = BenchLibrary::median(all), b = BenchLibrary::median(peerAll),
                 c = BenchLibrary::median(found), d = BenchLibrary::median(peerFound);
    std::printf("library: %lld songs\n", qlonglong(delegate.library().size()));
    std::printf("getSongs: %.1f ms request to last byte (median of %d), reply %lld bytes\n", a, runs,
                qlonglong(allBytes));
    std::printf("sqlite3 listing the same rows: %.1f ms; ratio %.2f (target: under 300 ms)\n", b, a / b);
    std::printf("getResultsOfSearch \"%s\": %.1f ms (median of %d), reply %lld bytes\n",
                qPrintable(search), c, runs, qlonglong(foundBytes));
    std::printf("sqlite3 LIKE search: %.1f ms; ratio %.2f (target: under 50 ms)\n", d, c / d);
    std::printf("getResultsOfSearch \"%s\": %.1f ms (median of %d), reply %lld bytes (target: under 50 ms)\n",
                qPrintable(narrow), BenchLibrary::median(few), runs, qlonglong(fewBytes));
    delegate.applicationWillTerminate();
    return 0;
}
