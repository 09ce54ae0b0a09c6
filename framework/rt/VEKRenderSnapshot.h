#pragma once

#include <atomic>
#include <memory>
#include <vector>

// An immutable object that one thread edits by replacement and one reader thread (the render
// thread) uses, with no lock on either side. The writer publishes a new object with one atomic
// exchange; the object it replaces is retired and deleted later by the writer, once the reader is
// no longer inside it. The reader announces what it uses through a hazard pointer, so deletion
// never happens on the reader's thread and never under its feet.
//
// Threads: publish(), collect(), current() and the destructor on the writer's thread (the main
// thread); acquire() and release() on the one reader thread.
template <class T>
class VEKRenderSnapshot {
public:
    VEKRenderSnapshot() = default;
    ~VEKRenderSnapshot()
    {
        delete m_current.load();
        for (T *t : m_retired)
            delete t;
    }
    VEKRenderSnapshot(const VEKRenderSnapshot &) = delete;
    VEKRenderSnapshot &operator=(const VEKRenderSnapshot &) = delete;

    // Reader. The object to use until release(); may be null. Never blocks: it retries only if a
    // publish lands between its two loads, which a writer does rarely.
    const T *acquire()
    {
        T *p = m_current.load();
        for (;;) {
            m_hazard.store(p);
            T *again = m_current.load();
            if (again == p)
                return p;
            p = again;
        }
    }
    void release() { m_hazard.store(nullptr); }

    // Writer. Takes ownership of `next` (may be null) and retires the previous object.
    void publish(std::unique_ptr<T> next)
    {
        T *old = m_current.exchange(next.release());
        if (old)
            m_retired.push_back(old);
        collect();
    }

    // Writer. Deletes the retired objects the reader no longer uses; true when none is left.
    bool collect()
    {
        T *inUse = m_hazard.load();
        for (auto it = m_retired.begin(); it != m_retired.end();) {
            if (*it == inUse) {
                ++it;
            } else {
                delete *it;
                it = m_retired.erase(it);
            }
        }
        return m_retired.empty();
    }

    // Writer. The object last published.
    T *current() const { return m_current.load(); }

private:
    // Sequentially consistent on purpose: the reader's store of the hazard and the writer's
    // exchange must be seen in one order by both, or a retired object could be freed in use.
    std::atomic<T *> m_current{nullptr};
    std::atomic<T *> m_hazard{nullptr};
    std::vector<T *> m_retired;
};
