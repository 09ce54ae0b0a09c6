#include "CliCommand.h"
#include "CliPlayback.h"
#include "core/VEKPaths.h"

#include "audio/Stream.h"

#include <cstdio>
#include <unistd.h>

namespace {

int run(CliSession &session, const QStringList &argv, const CliCommand &command)
{
    const QString playlistOption = QStringLiteral("playlist"), songOption = QStringLiteral("song"),
                  deviceOption = QStringLiteral("device");
    const CliArguments args(argv, {playlistOption, songOption, deviceOption}, {});
    if (const int rc = cliCheckArguments(session, args, command); rc >= 0)
        return rc;
    if (!args.positional().isEmpty()) {
        session.fail(QStringLiteral("play takes no file names: import them first"));
        return 2;
    }
    ApplicationDelegate::LaunchOptions options = CliSession::libraryOnly();
    options.stream = true;
    if (args.has(deviceOption) && !(options.outputDevice = CliPlayback::deviceForUID(session, args.value(deviceOption))))
        return 2;
    if (!session.launch(options))
        return 1;
    if (!CliPlayback::cue(session, args.value(playlistOption), args.value(songOption)))
        return 1;
    Stream *stream = session.delegate().stream();
    stream->play();

    // One line, rewritten in place, where someone watches; nothing on a pipe.
    const bool terminal = ::isatty(STDOUT_FILENO);
    int shown = 0;
    auto status = [&] {
        const SongPtr song = stream->currentSong();
        if (!terminal || !song)
            return;
        const double length = stream->lengthOfSongInPlayerAtIndex(stream->indexOfEnabledPlayer());
        QString line =
            CliPlayback::statusLine(song->name().isEmpty() ? VEKPaths::readable(song->URL()) : song->name(),
                                    stream->location(), length, stream->outputFormat());
        const int width = int(line.size());
        if (width < shown)
            line += QString(shown - width, QLatin1Char(' '));
        shown = width;
        session.out() << '\r' << line;
        session.out().flush();
    };
    // A new device format shows at once, not at the next tick.
    if (terminal)
        QObject::connect(stream, &Stream::outputFormatChanged, stream, status);
    const bool ended = CliPlayback::runUntilEnd(session, terminal ? std::function<void()>(status) : nullptr);
    if (terminal)
        session.out() << '\n';
    if (ended)
        CliPlayback::waitForPlayOut(stream, 3000);
    stream->pause();
    if (!ended && terminal)
        session.out() << "stopped\n";
    return session.status();
}

} // namespace

CliCommand playCommand()
{
    CliCommand c;
    c.name = QStringLiteral("play");
    c.summary = QStringLiteral("play a playlist to the output device");
    c.help = QStringLiteral(
        "usage: quivera-cli play [--playlist ID] [--song ID] [--device UID]\n"
        "\n"
        "Plays the playlist (default: the library) from the song (default: its first) to the\n"
        "output device chosen in the settings, or to --device (see quivera-cli devices), until\n"
        "the playlist ends or Ctrl-C. Every playback setting applies: volume, dim, mute,\n"
        "headphones, effects, dither, converter, rate policy. On a terminal, one line shows\n"
        "the song, its position and length, and the format the device plays (rate, bits,\n"
        "and whether the song reaches it bit for bit).\n");
    c.run = [c](CliSession &session, const QStringList &args) { return run(session, args, c); };
    return c;
}
