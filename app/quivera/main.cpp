// The windowed player. Until its windows arrive it runs the whole launch without them and keeps
// running until it is told to quit (SIGINT, SIGTERM), then shuts down in order. Paths given on
// the command line are imported.

#include "app/ApplicationDelegate.h"
#include "app/SignalQuitter.h"
#include "settings/UserDefaults.h"

#include <QCoreApplication>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Quivera"));

    SignalQuitter quitter;

    ApplicationDelegate::registerDefaults(UserDefaults::standard());
    ApplicationDelegate delegate;
    delegate.applicationWillFinishLaunching();
    // Files named on the command line (a file manager's "open with" passes them so) join the
    // library.
    QStringList files = QCoreApplication::arguments().mid(1);
    files.removeIf([](const QString &a) { return a.startsWith(u'-'); });
    if (!files.isEmpty())
        delegate.applicationOpenFiles(files);
    const int status = QCoreApplication::exec();
    delegate.applicationWillTerminate();
    return status;
}
