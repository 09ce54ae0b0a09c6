// The iTunes read-in of a generated library of 50,000 tracks (about 70 MB of XML, laid out as
// iTunes writes it), against Python's plistlib.load of the same file, run side by side. Prints
// both medians, their ratio, and the peak memory of each (a child process each, measured by
// the kernel).
//
//   build/bin/bench_itunes_load [--tracks N] [--runs N] [--keep FILE]
//   build/bin/bench_itunes_load --read FILE     one read-in, for /usr/bin/time -v

#include "library/LoadiTunesOperation.h"
#include "library/Database.h"

#include <QCoreApplication>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTemporaryDir>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <vector>

extern char **environ;

namespace {

double median(std::vector<double> v)
{
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

void writeLibrary(const QString &path, int tracks)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly)) {
        std::fprintf(stderr, "cannot write %s\n", qPrintable(path));
        std::exit(1);
    }
    std::srand(7);
    QByteArray out;
    out.reserve(4 << 20);
    const auto flush = [&] {
        file.write(out);
        out.clear();
    };
    out += "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
           "<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST 1.0//EN\" "
           "\"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n"
           "<plist version=\"1.0\">\n<dict>\n"
           "\t<key>Major Version</key><integer>1</integer>\n"
           "\t<key>Minor Version</key><integer>1</integer>\n"
           "\t<key>Date</key><date>2020-01-01T10:00:00Z</date>\n"
           "\t<key>Application Version</key><string>12.9.5.5</string>\n"
           "\t<key>Features</key><integer>5</integer>\n"
           "\t<key>Show Content Ratings</key><true/>\n"
           "\t<key>Music Folder</key><string>file:///Users/someone/Music/iTunes/iTunes%20Media/</string>\n"
           "\t<key>Library Persistent ID</key><string>5A1B2C3D4E5F6071</string>\n"
           "\t<key>Tracks</key>\n\t<dict>\n";
    static const char *const kinds[] = {"AAC audio file", "MPEG audio file", "Purchased AAC audio file",
                                        "Apple Lossless audio file", "AIFF audio file", "WAV audio file",
                                        "Protected AAC audio file", "MPEG-4 video file"};
    for (int i = 0; i < tracks; ++i) {
        const int id = 1000 + 2 * i;
        const int artist = i % 5000, album = i % 4000;
        const char *kind = kinds[i % 50 == 0 ? 6 : (i % 97 == 0 ? 7 : i % 6)];
        const QByteArray name = QStringLiteral("Song number %1 &amp; friends").arg(i).toUtf8();
        out += "\t\t<key>" + QByteArray::number(id) + "</key>\n\t\t<dict>\n";
        out += "\t\t\t<key>Track ID</key><integer>" + QByteArray::number(id) + "</integer>\n";
        out += "\t\t\t<key>Size</key><integer>" + QByteArray::number(3000000 + std::rand() % 9000000) + "</integer>\n";
        out += "\t\t\t<key>Total Time</key><integer>" + QByteArray::number(120000 + std::rand() % 300000) + "</integer>\n";
        out += "\t\t\t<key>Disc Number</key><integer>1</integer>\n\t\t\t<key>Disc Count</key><integer>1</integer>\n";
        out += "\t\t\t<key>Track Number</key><integer>" + QByteArray::number(i % 12 + 1) + "</integer>\n";
        out += "\t\t\t<key>Track Count</key><integer>12</integer>\n";
        out += "\t\t\t<key>Year</key><integer>" + QByteArray::number(1970 + i % 50) + "</integer>\n";
        out += "\t\t\t<key>Date Modified</key><date>2014-05-06T07:08:09Z</date>\n";
        out += "\t\t\t<key>Date Added</key><date>2013-02-03T04:05:06Z</date>\n";
        out += "\t\t\t<key>Bit Rate</key><integer>256</integer>\n";
        out += "\t\t\t<key>Sample Rate</key><integer>44100</integer>\n";
        out += "\t\t\t<key>Play Count</key><integer>" + QByteArray::number(i % 40) + "</integer>\n";
        out += "\t\t\t<key>Play Date</key><integer>" + QByteArray::number(3500000000LL + i) + "</integer>\n";
        out += "\t\t\t<key>Persistent ID</key><string>" + QByteArray::number(0x1000000000000000LL + i * 7919LL, 16).toUpper() + "</string>\n";
        out += "\t\t\t<key>Track Type</key><string>File</string>\n";
        if (i % 97 == 0)
            out += "\t\t\t<key>Has Video</key><true/>\n";
        out += "\t\t\t<key>Name</key><string>" + name + "</string>\n";
        out += "\t\t\t<key>Artist</key><string>Artist " + QByteArray::number(artist) + "</string>\n";
        out += "\t\t\t<key>Album Artist</key><string>Artist " + QByteArray::number(artist) + "</string>\n";
        out += "\t\t\t<key>Composer</key><string>Composer " + QByteArray::number(i % 700) + "</string>\n";
        out += "\t\t\t<key>Album</key><string>Album " + QByteArray::number(album) + "</string>\n";
        out += "\t\t\t<key>Genre</key><string>Genre " + QByteArray::number(i % 40) + "</string>\n";
        out += QByteArray("\t\t\t<key>Kind</key><string>") + kind + "</string>\n";
        out += "\t\t\t<key>Sort Name</key><string>song number " + QByteArray::number(i) + "</string>\n";
        out += "\t\t\t<key>Location</key><string>file:///Users/someone/Music/iTunes/iTunes%20Media/Music/Artist%20"
               + QByteArray::number(artist) + "/Album%20" + QByteArray::number(album) + "/"
               + QByteArray::number(i % 12 + 1) + "%20Song%20number%20" + QByteArray::number(i) + ".m4a</string>\n";
        out += "\t\t</dict>\n";
        if (out.size() > (3 << 20))
            flush();
    }
    out += "\t</dict>\n\t<key>Playlists</key>\n\t<array>\n";
    const auto playlist = [&](const QByteArray &head, int first, int count, int stride) {
        out += "\t\t<dict>\n" + head + "\t\t\t<key>Playlist Items</key>\n\t\t\t<array>\n";
        for (int k = 0; k < count; ++k) {
            out += "\t\t\t\t<dict>\n\t\t\t\t\t<key>Track ID</key><integer>"
                   + QByteArray::number(1000 + 2 * ((first + k * stride) % tracks)) + "</integer>\n\t\t\t\t</dict>\n";
            if (out.size() > (3 << 20))
                flush();
        }
        out += "\t\t\t</array>\n\t\t</dict>\n";
    };
    playlist("\t\t\t<key>Master</key><true/>\n\t\t\t<key>Playlist ID</key><integer>1</integer>\n"
             "\t\t\t<key>Name</key><string>Library</string>\n\t\t\t<key>Visible</key><false/>\n",
             0, tracks, 1);
    playlist("\t\t\t<key>Playlist ID</key><integer>2</integer>\n\t\t\t<key>Distinguished Kind</key><integer>4</integer>\n"
             "\t\t\t<key>Name</key><string>Music</string>\n",
             0, tracks, 1);
    for (int p = 0; p < 200; ++p)
        playlist("\t\t\t<key>Playlist ID</key><integer>" + QByteArray::number(5000 + p)
                     + "</integer>\n\t\t\t<key>Name</key><string>Playlist " + QByteArray::number(p)
                     + "</string>\n\t\t\t<key>All Items</key><true/>\n",
                 p * 37, 50 + (p * 131) % 400, 3);
    out += "\t</array>\n</dict>\n</plist>\n";
    flush();
}

struct ReadResult {
    qsizetype songs = 0;
    qsizetype playlists = 0;
    double ms = 0;
};

ReadResult readOnce(const QString &xml, const QString &libraryFile)
{
    QFile::remove(libraryFile);
    {
        Database db;
        db.initWithURL(libraryFile);
        for (const QString &s : Database::buildStatements())
            db.executeStatement(s);
    }
    LoadiTunesOperation operation(xml, libraryFile);
    QElapsedTimer t;
    t.start();
    operation.start();
    ReadResult r;
    r.ms = double(t.nsecsElapsed()) / 1e6;
    r.songs = operation.songs().size();
    r.playlists = operation.playlists().size();
    return r;
}

// Runs a program to its end; returns the peak resident memory in kilobytes and the wall time.
long peakOf(const std::vector<std::string> &command, double *ms)
{
    std::vector<char *> argv;
    for (const std::string &s : command)
        argv.push_back(const_cast<char *>(s.c_str()));
    argv.push_back(nullptr);
    QElapsedTimer t;
    t.start();
    pid_t pid = 0;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
    if (posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ) != 0)
        return -1;
    posix_spawn_file_actions_destroy(&actions);
    int status = 0;
    struct rusage usage {};
    wait4(pid, &status, 0, &usage);
    *ms = double(t.nsecsElapsed()) / 1e6;
    return usage.ru_maxrss;
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QStringList args = QCoreApplication::arguments();
    QTemporaryDir root;

    if (args.size() == 3 && args[1] == QLatin1String("--read")) {
        const ReadResult r = readOnce(args[2], root.path() + QStringLiteral("/library"));
        std::printf("%lld songs, %lld playlists, %.1f ms\n", qlonglong(r.songs), qlonglong(r.playlists), r.ms);
        return 0;
    }

    int tracks = 50000, runs = 5;
    QString keep;
    for (int i = 1; i + 1 < args.size(); i += 2) {
        if (args[i] == QLatin1String("--tracks")) tracks = args[i + 1].toInt();
        else if (args[i] == QLatin1String("--runs")) runs = args[i + 1].toInt();
        else if (args[i] == QLatin1String("--keep")) keep = args[i + 1];
    }
    const QString xml = keep.isEmpty() ? root.path() + QStringLiteral("/iTunes Music Library.xml") : keep;
    if (keep.isEmpty() || !QFile::exists(keep)) {
        std::printf("writing a library of %d tracks...\n", tracks);
        writeLibrary(xml, tracks);
    }
    std::printf("file: %.1f MB\n", double(QFileInfo(xml).size()) / 1e6);

    const QString library = root.path() + QStringLiteral("/library");
    std::vector<double> ours, peer;
    ReadResult last;
    for (int r = 0; r < runs; ++r) {
        last = readOnce(xml, library);
        ours.push_back(last.ms);
        double ms = 0;
        peakOf({"python3", "-c", "import plistlib, sys; plistlib.load(open(sys.argv[1], 'rb'))",
                xml.toStdString()},
               &ms);
        peer.push_back(ms);
    }
    double unused = 0;
    const long ourPeak = peakOf({QCoreApplication::applicationFilePath().toStdString(), "--read", xml.toStdString()}, &unused);
    const long peerPeak = peakOf({"python3", "-c", "import plistlib, sys; plistlib.load(open(sys.argv[1], 'rb'))",
                                  xml.toStdString()},
                                 &unused);

    const double a = median(ours), b = median(peer);
    std::printf("songs: %lld, playlists: %lld\n", qlonglong(last.songs), qlonglong(last.playlists));
    std::printf("read-in: %.0f ms (median of %d), peak %ld MB\n", a, runs, ourPeak / 1024);
    std::printf("plistlib.load: %.0f ms (median of %d), peak %ld MB\n", b, runs, peerPeak / 1024);
    std::printf("ratio: %.3f of plistlib's time (target: at most 0.25)\n", a / b);
    return 0;
}
