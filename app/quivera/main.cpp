// The windowed player. Until its windows arrive it runs the whole launch without them and keeps
// running until it is told to quit (SIGINT, SIGTERM), then shuts down in order. Paths given on
// the command line are imported.

#include "app/ApplicationDelegate.h"
#include "settings/UserDefaults.h"

#include <QCoreApplication>
#include <QSocketNotifier>
#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

namespace {
int g_signalPipe[2] = {-1, -1};

void onSignal(int)
{
    const char c = 1;
    [[maybe_unused]] const ssize_t n = ::write(g_signalPipe[1], &c, 1);
}
}

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Quivera"));

    // Signals arrive through a pipe so that the quit runs on the main thread's loop.
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, g_signalPipe) == 0) {
        std::signal(SIGINT, onSignal);
        std::signal(SIGTERM, onSignal);
    }
    QSocketNotifier notifier(g_signalPipe[0], QSocketNotifier::Read);
    QObject::connect(&notifier, &QSocketNotifier::activated, &app, [] { QCoreApplication::quit(); });

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
