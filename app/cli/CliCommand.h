#pragma once

#include "CliArguments.h"
#include "CliSession.h"

#include <QList>
#include <QString>
#include <functional>

// One subcommand of quivera-cli. `run` gets a session that has not launched yet: it checks its
// arguments first (status 2 on a usage error, with no launch), then calls session.launch().
struct CliCommand {
    QString name;
    QString summary; // one line for the overview
    QString help;    // the whole --help text
    std::function<int(CliSession &, const QStringList &)> run;
};

// Every subcommand, in the order the overview lists them.
const QList<CliCommand> &cliCommands();

// The whole program: parses, runs, shuts down. Returns the exit status.
int cliMain(const QStringList &arguments);

// Shared by the commands: prints `help` for -h, or the problem and status 2 for bad arguments.
// Returns -1 when the command should go on.
int cliCheckArguments(CliSession &session, const CliArguments &args, const CliCommand &command);

// The subcommands, one file each.
CliCommand songsCommand();
CliCommand playlistsCommand();
CliCommand playlistCommand();
CliCommand removeCommand();
CliCommand tagCommand();
CliCommand rescanCommand();
CliCommand settingsCommand();
CliCommand probeCommand();
CliCommand devicesCommand();
CliCommand importCommand();
CliCommand convertCommand();
CliCommand playCommand();
CliCommand renderCommand();
CliCommand serveCommand();
