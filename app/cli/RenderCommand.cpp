#include "CliCommand.h"
#include "CliPlayback.h"
#include "CliProgressBar.h"
#include "core/VEKPaths.h"

#include "audio/Stream.h"
#include "core/VEKAtomicFile.h"
#include "graph/VEKHardwareAudioProcessor.h"
#include "outputs/capture/VEKWaveFileWriter.h"
#include "settings/UserDefaults.h"
#include "text/VEKTimeFormatter.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <cerrno>
#include <cstdio>
#include <cstring>

namespace {

int run(CliSession &session, const QStringList &argv, const CliCommand &command)
{
    const QString outOption = QStringLiteral("out"), playlistOption = QStringLiteral("playlist"),
                  songOption = QStringLiteral("song"), rateOption = QStringLiteral("rate"),
                  bitsOption = QStringLiteral("bits");
    const CliArguments args(argv, {outOption, playlistOption, songOption, rateOption, bitsOption}, {});
    if (const int rc = cliCheckArguments(session, args, command); rc >= 0)
        return rc;
    if (!args.has(outOption) || args.value(outOption).isEmpty()) {
        session.fail(QStringLiteral("render needs --out FILE.wav"));
        return 2;
    }
    // Only WAV is written: any other name would promise a format the file does not have.
    if (!args.value(outOption).endsWith(QLatin1String(".wav"), Qt::CaseInsensitive)) {
        session.fail(QStringLiteral("render writes WAV files only: give --out a name ending in .wav"));
        return 2;
    }
    qint64 rate = 0;
    QString message;
    if (args.has(rateOption)
        && (!CliArguments::toInteger(args.value(rateOption), &rate, &message, QStringLiteral("a rate in hertz"))
            || rate < 8000 || rate > 768000)) {
        session.fail(message.isEmpty() ? QStringLiteral("--rate must lie between 8000 and 768000") : message);
        return 2;
    }
    qint64 bits = 0;
    if (args.has(bitsOption)) {
        if (!CliArguments::toInteger(args.value(bitsOption), &bits, &message, QStringLiteral("a bit depth"))
            || (bits != 16 && bits != 24 && bits != 32)) {
            session.fail(message.isEmpty() ? QStringLiteral("--bits must be 16, 24 or 32") : message);
            return 2;
        }
    } else {
        // The word length the dither cuts to is the file's, unless asked otherwise; with the
        // dither off, 24 bits, which every 16- and 24-bit song reaches bit for bit.
        Stream::registerDefaults(UserDefaults::standard());
        const QVariantMap dither = UserDefaults::standard().dictionaryForKey(QStringLiteral("ditherProperties"));
        const qint64 depth = dither.value(QStringLiteral("enabled")).toBool()
                                 ? dither.value(QStringLiteral("depth"), 16).toLongLong()
                                 : 24;
        bits = depth <= 16 ? 16 : depth <= 24 ? 24 : 32;
    }

    const QString path = VEKPaths::absolute(args.value(outOption));
    // The audio goes to a hidden file beside the result, which takes the result's name only
    // when every frame is on disk: a full disk never leaves a file that looks complete.
    const QFileInfo target(path);
    const QString partPath = target.dir().filePath(
        QStringLiteral(".%1.%2.part").arg(target.fileName().left(200)).arg(QCoreApplication::applicationPid()));
    struct PartFile {
        QString path;
        ~PartFile() { ::unlink(VEKPaths::native(path).constData()); }
    } part{partPath};
    ApplicationDelegate::LaunchOptions options = CliSession::libraryOnly();
    options.stream = true;
    options.startStream = false;
    options.outputDevice = VEKAudioDevice::deviceWithUID(QStringLiteral("capture:%1?fast&bits=%2").arg(partPath).arg(bits));
    if (rate != 0) {
        options.outputDevice->setSampleRate(double(rate), nullptr);
        options.sampleRatePolicy = rate;
    }
    if (!session.launch(options))
        return 1;
    if (!CliPlayback::cue(session, args.value(playlistOption), args.value(songOption)))
        return 1;
    Stream *stream = session.delegate().stream();
    if (stream->playlist()->repeatMode() != 0) {
        session.fail(QStringLiteral("the playlist \"%1\" repeats, so it would never end: turn repeat off to render it")
                         .arg(stream->playlist()->name()));
        return 1;
    }
    // One file has one rate: following each song's rate would start the file anew at a change,
    // so the first song's rate holds for the whole render, the others converted to it.
    if (stream->sampleRatePolicy() == -1 && stream->currentSong())
        stream->setSampleRatePolicyOverride(qint64(stream->currentSong()->sampleRate()));
    stream->play();
    VEKError error;
    if (!stream->isInitialized() || !stream->start(&error)) {
        session.fail(error.isNull() ? QStringLiteral("the output file could not be opened") : error.text());
        return 1;
    }

    const PlaylistPtr playlist = stream->playlist();
    const qsizetype count = std::max<qsizetype>(1, playlist->songs().size());
    CliProgressBar bar;
    const bool ended = CliPlayback::runUntilEnd(session, [&] {
        const SongPtr song = stream->currentSong();
        if (!song)
            return;
        const qsizetype index = playlist->indexOfObjectInSongs(song);
        const double done = double(index == Playlist::NotFound ? 0 : index) + double(stream->normalizedLocation());
        bar.show(QStringLiteral("Rendering"), float(done / double(count)));
    });
    bar.clear();
    // Unpaced, the output is usually far past the end by now, but not on a busy machine.
    if (ended)
        CliPlayback::waitForPlayOut(stream, 60000);
    const double outputRate = stream->format().sampleRate;
    stream->stop();
    const std::optional<quint64> end = stream->endSampleTime();
    // Closing the output finishes the file.
    stream->uninitialize();
    const quint64 frames = end ? *end : 0;
    if (!VEKWaveFileWriter::holdsFrames(partPath, ended ? frames : 0, &error)
        || (end && !VEKWaveFileWriter::truncateFile(partPath, frames, &error))) {
        session.fail(QStringLiteral("render failed, nothing was written to %1: %2")
                         .arg(VEKPaths::readable(path), error.text()));
        return 1;
    }
    if (std::rename(VEKPaths::native(partPath).constData(), VEKPaths::native(path).constData()) != 0) {
        session.fail(QStringLiteral("%1: %2").arg(VEKPaths::readable(path),
                                                  QString::fromLocal8Bit(std::strerror(errno))));
        return 1;
    }
    VEKAtomicFile::syncFolderOf(path);
    if (!ended) {
        session.err() << "quivera-cli: render interrupted; " << VEKPaths::readable(path)
                      << " holds what was rendered\n";
        return 1;
    }
    session.out() << "rendered " << (end ? *end : 0) << " frames ("
                  << VEKTimeFormatter().stringForSeconds(end ? double(*end) / outputRate : 0) << ") at "
                  << outputRate << " Hz, " << bits << " bits to " << VEKPaths::readable(path) << '\n';
    return session.status();
}

} // namespace

CliCommand renderCommand()
{
    CliCommand c;
    c.name = QStringLiteral("render");
    c.summary = QStringLiteral("play a playlist into a WAV file, as fast as the machine allows");
    c.help = QStringLiteral(
        "usage: quivera-cli render --out FILE.wav [--playlist ID] [--song ID] [--rate HZ]\n"
        "                          [--bits 16|24|32]\n"
        "\n"
        "Plays the playlist (default: the library) from the song (default: its first) through\n"
        "the player's whole graph into FILE.wav and ends where the playlist ends. Every playback\n"
        "setting applies (volume, dim, mute, headphones, effects, dither, converter, rate\n"
        "policy; following the song's rate keeps the first song's rate for the whole file).\n"
        "--rate fixes the file's rate for this run in place of the rate policy; --bits\n"
        "its sample format (default: the dither's word length, 24 bits with the dither off).\n");
    c.run = [c](CliSession &session, const QStringList &args) { return run(session, args, c); };
    return c;
}
