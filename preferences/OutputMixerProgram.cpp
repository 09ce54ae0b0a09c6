#include "OutputMixerProgram.h"

#include "outputs/alsa/VEKALSAName.h"

#include <QProcess>
#include <QStandardPaths>

QStringList OutputMixerProgram::commandFor(const QString &uid, const Finder &findExecutable)
{
    const Finder find = findExecutable ? findExecutable : [](const QString &program) {
        return QStandardPaths::findExecutable(program);
    };
    if (uid.isEmpty() || uid == QLatin1String("null") || uid.startsWith(QLatin1String("capture:")))
        return {};
    const VEKALSAName name = VEKALSAName::parse(uid);
    // A PCM without a card goes through the sound server, whose own control knows its streams
    // and sinks.
    if (!name.hasCard()) {
        for (const char *program : {"pavucontrol", "pwvucontrol", "pavucontrol-qt"}) {
            const QString path = find(QString::fromLatin1(program));
            if (!path.isEmpty())
                return {path};
        }
    }
    const QString alsamixer = find(QStringLiteral("alsamixer"));
    if (alsamixer.isEmpty())
        return {};
    QStringList mixer{alsamixer};
    if (name.hasCard())
        mixer << QStringLiteral("-c") << name.card;
    // The terminal the system chose, else the plain one; both take -e with the command after it.
    for (const char *terminal : {"x-terminal-emulator", "xterm"}) {
        const QString path = find(QString::fromLatin1(terminal));
        if (!path.isEmpty())
            return QStringList{path, QStringLiteral("-e")} + mixer;
    }
    return {};
}

bool OutputMixerProgram::launch(const QStringList &command)
{
    if (command.isEmpty())
        return false;
    return QProcess::startDetached(command.first(), command.mid(1));
}
