#include "SignalQuitter.h"

#include <QCoreApplication>
#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

namespace {
int g_pipe[2] = {-1, -1};

void onSignal(int number)
{
    const char c = char(number);
    [[maybe_unused]] const ssize_t n = ::write(g_pipe[1], &c, 1);
}
}

SignalQuitter::SignalQuitter(QObject *parent) : QObject(parent)
{
    // Only async-signal-safe work in the handler: a byte down a socket, read on the main loop.
    if (g_pipe[0] < 0 && ::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, g_pipe) != 0)
        return;
    m_notifier = std::make_unique<QSocketNotifier>(g_pipe[0], QSocketNotifier::Read);
    connect(m_notifier.get(), &QSocketNotifier::activated, this, [this] {
        char c = 0;
        if (::read(g_pipe[0], &c, 1) != 1)
            return;
        emit quitRequested(int(c));
        QCoreApplication::quit();
    });
    std::signal(SIGINT, onSignal);
    std::signal(SIGTERM, onSignal);
}

SignalQuitter::~SignalQuitter()
{
    std::signal(SIGINT, SIG_DFL);
    std::signal(SIGTERM, SIG_DFL);
}
