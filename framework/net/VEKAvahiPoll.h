#pragma once

#include <memory>

struct AvahiPoll;

// Avahi's main-loop interface on the Qt event loop of the thread that makes this object:
// file-descriptor watches on QSocketNotifier, timeouts on single-shot QTimers. Every callback
// that Avahi registers through it runs on that thread, from its event loop, so an Avahi client
// made with api() needs no locking against the thread's other objects.
//
// Free every Avahi object made with api() before destroying this one.
class VEKAvahiPoll {
public:
    VEKAvahiPoll();
    ~VEKAvahiPoll();
    VEKAvahiPoll(const VEKAvahiPoll &) = delete;
    VEKAvahiPoll &operator=(const VEKAvahiPoll &) = delete;

    const AvahiPoll *api() const;

private:
    std::unique_ptr<AvahiPoll> m_api;
};
