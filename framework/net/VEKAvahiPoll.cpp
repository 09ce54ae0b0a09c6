#include "VEKAvahiPoll.h"

#include <QSocketNotifier>
#include <QTimer>

#include <avahi-common/timeval.h>
#include <avahi-common/watch.h>

#include <algorithm>
#include <climits>
#include <sys/time.h>

// Avahi declares these two types and leaves their contents to whoever provides the loop.
//
// A callback may free its own watch or timeout. The object then only goes quiet, and is
// deleted once the callback has returned, so that neither it nor the Qt object that is
// emitting is destroyed under the running emission.

struct AvahiWatch {
    int fd = -1;
    AvahiWatchCallback callback = nullptr;
    void *userdata = nullptr;
    QSocketNotifier *reader = nullptr;
    QSocketNotifier *writer = nullptr;
    AvahiWatchEvent happened = AvahiWatchEvent(0);
    int dispatching = 0;
    bool freed = false;
};

struct AvahiTimeout {
    QTimer *timer = nullptr;
    AvahiTimeoutCallback callback = nullptr;
    void *userdata = nullptr;
    int dispatching = 0;
    bool freed = false;
};

namespace {

void destroyWatch(AvahiWatch *w)
{
    delete w->reader;
    delete w->writer;
    delete w;
}

void dispatchWatch(AvahiWatch *w, AvahiWatchEvent event)
{
    if (w->freed)
        return;
    ++w->dispatching;
    w->happened = event;
    w->callback(w, w->fd, event, w->userdata);
    w->happened = AvahiWatchEvent(0);
    if (--w->dispatching == 0 && w->freed) {
        // The emitting notifier is still on the stack: let the event loop delete it.
        for (QSocketNotifier *n : {w->reader, w->writer}) {
            if (n) {
                n->disconnect();
                n->deleteLater();
            }
        }
        w->reader = w->writer = nullptr;
        delete w;
    }
}

QSocketNotifier *makeNotifier(AvahiWatch *w, QSocketNotifier::Type type, AvahiWatchEvent event)
{
    auto *n = new QSocketNotifier(w->fd, type);
    QObject::connect(n, &QSocketNotifier::activated, n, [w, event] { dispatchWatch(w, event); });
    return n;
}

void watchUpdate(AvahiWatch *w, AvahiWatchEvent events)
{
    if (w->freed)
        return;
    const bool in = events & AVAHI_WATCH_IN;
    const bool out = events & AVAHI_WATCH_OUT;
    if (in && !w->reader)
        w->reader = makeNotifier(w, QSocketNotifier::Read, AVAHI_WATCH_IN);
    if (out && !w->writer)
        w->writer = makeNotifier(w, QSocketNotifier::Write, AVAHI_WATCH_OUT);
    if (w->reader)
        w->reader->setEnabled(in);
    if (w->writer)
        w->writer->setEnabled(out);
}

AvahiWatch *watchNew(const AvahiPoll *, int fd, AvahiWatchEvent events,
                     AvahiWatchCallback callback, void *userdata)
{
    auto *w = new AvahiWatch;
    w->fd = fd;
    w->callback = callback;
    w->userdata = userdata;
    watchUpdate(w, events);
    return w;
}

AvahiWatchEvent watchGetEvents(AvahiWatch *w) { return w->happened; }

void watchFree(AvahiWatch *w)
{
    if (w->dispatching) {
        w->freed = true;
        if (w->reader)
            w->reader->setEnabled(false);
        if (w->writer)
            w->writer->setEnabled(false);
        return;
    }
    destroyWatch(w);
}

void startTimer(AvahiTimeout *t, const struct timeval *tv)
{
    t->timer->stop();
    if (!tv)
        return;
    struct timeval now {};
    gettimeofday(&now, nullptr);
    const AvahiUsec usec = avahi_timeval_diff(tv, &now);
    const qint64 ms = usec <= 0 ? 0 : (usec + 999) / 1000;
    t->timer->start(int(std::min<qint64>(ms, INT_MAX)));
}

void dispatchTimeout(AvahiTimeout *t)
{
    if (t->freed)
        return;
    ++t->dispatching;
    t->callback(t, t->userdata);
    if (--t->dispatching == 0 && t->freed) {
        t->timer->disconnect();
        t->timer->deleteLater();
        delete t;
    }
}

AvahiTimeout *timeoutNew(const AvahiPoll *, const struct timeval *tv,
                         AvahiTimeoutCallback callback, void *userdata)
{
    auto *t = new AvahiTimeout;
    t->callback = callback;
    t->userdata = userdata;
    t->timer = new QTimer;
    t->timer->setSingleShot(true);
    t->timer->setTimerType(Qt::PreciseTimer);
    QObject::connect(t->timer, &QTimer::timeout, t->timer, [t] { dispatchTimeout(t); });
    startTimer(t, tv);
    return t;
}

void timeoutUpdate(AvahiTimeout *t, const struct timeval *tv)
{
    if (!t->freed)
        startTimer(t, tv);
}

void timeoutFree(AvahiTimeout *t)
{
    if (t->dispatching) {
        t->freed = true;
        t->timer->stop();
        return;
    }
    delete t->timer;
    delete t;
}

} // namespace

VEKAvahiPoll::VEKAvahiPoll() : m_api(std::make_unique<AvahiPoll>())
{
    m_api->userdata = this;
    m_api->watch_new = watchNew;
    m_api->watch_update = watchUpdate;
    m_api->watch_get_events = watchGetEvents;
    m_api->watch_free = watchFree;
    m_api->timeout_new = timeoutNew;
    m_api->timeout_update = timeoutUpdate;
    m_api->timeout_free = timeoutFree;
}

VEKAvahiPoll::~VEKAvahiPoll() = default;

const AvahiPoll *VEKAvahiPoll::api() const { return m_api.get(); }
