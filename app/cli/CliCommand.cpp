#include "CliCommand.h"

const QList<CliCommand> &cliCommands()
{
    static const QList<CliCommand> commands = {
        importCommand(),
        convertCommand(),
        songsCommand(),  playlistsCommand(), playlistCommand(), removeCommand(),
        tagCommand(),    rescanCommand(),    settingsCommand(),
        probeCommand(),
        devicesCommand(),
        playCommand(), renderCommand(), serveCommand(),
    };
    return commands;
}

int cliCheckArguments(CliSession &session, const CliArguments &args, const CliCommand &command)
{
    if (args.helpRequested()) {
        session.out() << command.help << Qt::endl;
        return 0;
    }
    if (!args.ok()) {
        session.fail(args.error());
        session.err() << "usage: " << command.help.section(u'\n', 0, 0) << Qt::endl;
        return 2;
    }
    return -1;
}

namespace {
void printOverview(QTextStream &s)
{
    s << "usage: quivera-cli COMMAND [ARGUMENTS]\n\n"
         "Quivera without windows: keep the library from the command line.\n\n"
         "Commands:\n";
    for (const CliCommand &c : cliCommands())
        s << "  " << c.name.leftJustified(11) << c.summary << '\n';
    s << "\n'quivera-cli COMMAND --help' tells more of each." << Qt::endl;
}
}

int cliMain(const QStringList &arguments)
{
    CliSession session;
    if (arguments.isEmpty() || arguments.first() == QLatin1String("--help")
        || arguments.first() == QLatin1String("-h") || arguments.first() == QLatin1String("help")) {
        printOverview(arguments.isEmpty() ? session.err() : session.out());
        return arguments.isEmpty() ? 2 : 0;
    }
    if (arguments.first() == QLatin1String("--version")) {
        session.out() << "quivera-cli 1.5.2" << Qt::endl;
        return 0;
    }
    for (const CliCommand &command : cliCommands()) {
        if (command.name != arguments.first())
            continue;
        const int status = command.run(session, arguments.mid(1));
        session.shutdown();
        return status != 0 ? status : session.status();
    }
    session.fail(QStringLiteral("unknown command \"%1\"").arg(arguments.first()));
    printOverview(session.err());
    return 2;
}
