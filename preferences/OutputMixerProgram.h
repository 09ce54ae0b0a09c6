#pragma once

#include <QString>
#include <QStringList>
#include <functional>

// The program that configures a device's mixer: the sound server's volume control for the
// server's PCMs, else the ALSA mixer of the device's card in a terminal. The first word of the
// command is the program; empty when nothing fitting is installed (the null and capture devices
// have no mixer at all).
class OutputMixerProgram {
public:
    // `findExecutable` answers the full path of a program, or empty (QStandardPaths by default;
    // tests give their own). It looks at the disk: call it off the main thread.
    using Finder = std::function<QString(const QString &program)>;
    static QStringList commandFor(const QString &uid, const Finder &findExecutable = {});
    // Starts the command detached from us; false when it could not start.
    static bool launch(const QStringList &command);
};
