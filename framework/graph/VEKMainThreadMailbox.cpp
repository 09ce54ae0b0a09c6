#include "VEKMainThreadMailbox.h"

#include "core/VEKLog.h"

#include <QSocketNotifier>
#include <QThread>

#include <cerrno>
#include <cstring>
#include <sys/eventfd.h>
#include <unistd.h>

VEKMainThreadMailbox::VEKMainThreadMailbox(QObject *parent) : QObject(parent)
{
    // A thread without an event loop (an operation's worker running a private stream) has
    // nobody to deliver to; posts are then dropped.
    if (!thread()->eventDispatcher())
        return;
    m_fd = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
    if (m_fd < 0) {
        VEKLog(QStringLiteral("Audio events cannot reach the main thread: eventfd: %1")
                   .arg(QString::fromLocal8Bit(std::strerror(errno))));
        return;
    }
    m_notifier = new QSocketNotifier(m_fd, QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, &VEKMainThreadMailbox::onActivated);
}

VEKMainThreadMailbox::~VEKMainThreadMailbox()
{
    delete m_notifier;
    if (m_fd >= 0)
        ::close(m_fd);
}

void VEKMainThreadMailbox::post()
{
    if (m_fd < 0 || m_pending.exchange(true))
        return;
    const quint64 one = 1;
    // A full counter (never in practice) only means a wake-up is already there.
    [[maybe_unused]] const ssize_t n = ::write(m_fd, &one, sizeof one);
}

void VEKMainThreadMailbox::onActivated()
{
    // Cleared before draining, so a post that races with the drain wakes us again.
    m_pending.store(false);
    quint64 count = 0;
    [[maybe_unused]] const ssize_t n = ::read(m_fd, &count, sizeof count);
    emit delivered();
}
