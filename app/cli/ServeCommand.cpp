#include "CliCommand.h"
#include "CliPlayback.h"

namespace {

int run(CliSession &session, const QStringList &argv, const CliCommand &command)
{
    const QString deviceOption = QStringLiteral("device");
    const CliArguments args(argv, {deviceOption}, {});
    if (const int rc = cliCheckArguments(session, args, command); rc >= 0)
        return rc;
    ApplicationDelegate::LaunchOptions options; // everything: stream, remote service, MPRIS
    if (args.has(deviceOption) && !(options.outputDevice = CliPlayback::deviceForUID(session, args.value(deviceOption))))
        return 2;
    if (!session.launch(options))
        return 1;
    session.err() << "quivera-cli: serving; stop with Ctrl-C or SIGTERM" << Qt::endl;
    // Runs until a signal: the end of a playlist is no reason to stop serving.
    for (;;) {
        if (!CliPlayback::runUntilEnd(session))
            break;
    }
    return session.status();
}

} // namespace

CliCommand serveCommand()
{
    CliCommand c;
    c.name = QStringLiteral("serve");
    c.summary = QStringLiteral("keep the player running with the remote service and MPRIS");
    c.help = QStringLiteral(
        "usage: quivera-cli serve [--device UID]\n"
        "\n"
        "Runs the player without windows: the audio engine on the output device (or --device),\n"
        "the remote service on TCP port 8383, published on the local network, and the MPRIS\n"
        "player org.mpris.MediaPlayer2.quivera on the session bus. Runs until SIGINT or\n"
        "SIGTERM, then shuts down in order.\n");
    c.run = [c](CliSession &session, const QStringList &args) { return run(session, args, c); };
    return c;
}
