// The windowed player. One per user session: a later start hands its files or its transport
// command to the running player and exits.
//
//   quivera [PATH...]      start, or hand the files to the running player (imported)
//   quivera --play-pause   play or pause the running player (--next, --previous likewise)

#include "app/Application.h"
#include "app/SignalQuitter.h"
#include "app/SingleInstance.h"
#include "core/VEKLog.h"
#include "windowed/WindowedApplication.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QIcon>

int main(int argc, char **argv)
{
    QApplication app(argc, argv);
    QApplication::setApplicationName(QStringLiteral("Quivera"));
    QApplication::setApplicationVersion(Application::version());
    // The desktop matches the windows to org.quivera.Quivera.desktop by this name.
    QGuiApplication::setDesktopFileName(Application::identifier());
    QApplication::setWindowIcon(QIcon(QStringLiteral(":/icons/org.quivera.Quivera.svg")));
    // Closing the player keeps the music, MPRIS and the remote going; Quit ends the program,
    // and starting it again (or Raise) brings the player back.
    QApplication::setQuitOnLastWindowClosed(false);

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Quivera, the music player."));
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption playPause(QStringLiteral("play-pause"), QStringLiteral("Play or pause the running player."));
    const QCommandLineOption next(QStringLiteral("next"), QStringLiteral("Go to the next song."));
    const QCommandLineOption previous(QStringLiteral("previous"), QStringLiteral("Go to the previous song."));
    parser.addOptions({playPause, next, previous});
    parser.addPositionalArgument(QStringLiteral("PATH"), QStringLiteral("Audio files or folders to add to the library."),
                                 QStringLiteral("[PATH...]"));
    parser.process(app);
    QString command;
    for (const QCommandLineOption *option : {&playPause, &next, &previous})
        if (parser.isSet(*option))
            command = option->names().constFirst();
    const SingleInstance::Request request =
        SingleInstance::requestForArguments(parser.positionalArguments(), command);

    SingleInstance instance;
    switch (instance.claimOrHandOver(request)) {
    case SingleInstance::Role::HandedOver:
        return 0;
    case SingleInstance::Role::Failed:
        VEKLog(QStringLiteral("Could not tell whether Quivera runs already; starting anyway"));
        break;
    case SingleInstance::Role::Primary:
        break;
    }

    SignalQuitter quitter;
    WindowedApplication windowed;
    QObject::connect(&instance, &SingleInstance::requestReceived, &windowed, &WindowedApplication::handle);
    windowed.launch();
    // This start's own files and command; the player shows anyway.
    if (request.command != QLatin1String("raise"))
        windowed.handle(request);
    const int status = QApplication::exec();
    windowed.terminate();
    return status;
}
