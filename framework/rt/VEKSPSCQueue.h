#pragma once

#include <QtGlobal>

#include <atomic>
#include <cstddef>
#include <vector>

// A bounded lock-free queue for one producer thread and one consumer thread. All memory is taken
// by the constructor, so either side may be the render thread. push() and pop() never block: a
// full queue refuses the item, an empty one yields nothing.
//
// Items are copied or moved into pre-made slots; a popped slot is reset to T{} by the consumer, so
// whatever an item owns (a shared_ptr) is released on the consumer's side, never on the producer's.
template <class T>
class VEKSPSCQueue {
public:
    // Holds at least `capacity` items (rounded up to a power of two).
    explicit VEKSPSCQueue(size_t capacity)
    {
        size_t n = 2;
        while (n < capacity + 1)
            n <<= 1;
        m_slots.resize(n);
        m_mask = n - 1;
    }

    VEKSPSCQueue(const VEKSPSCQueue &) = delete;
    VEKSPSCQueue &operator=(const VEKSPSCQueue &) = delete;

    size_t capacity() const { return m_mask; }

    // Producer only. False when full.
    template <class U>
    bool push(U &&item)
    {
        const size_t head = m_head.load(std::memory_order_relaxed);
        const size_t next = (head + 1) & m_mask;
        if (next == m_tail.load(std::memory_order_acquire))
            return false;
        m_slots[head] = std::forward<U>(item);
        m_head.store(next, std::memory_order_release);
        return true;
    }

    // Consumer only. False when empty.
    bool pop(T &out)
    {
        const size_t tail = m_tail.load(std::memory_order_relaxed);
        if (tail == m_head.load(std::memory_order_acquire))
            return false;
        out = std::move(m_slots[tail]);
        m_slots[tail] = T{};
        m_tail.store((tail + 1) & m_mask, std::memory_order_release);
        return true;
    }

    // Either side; exact only when the other side is idle.
    bool isEmpty() const
    {
        return m_tail.load(std::memory_order_acquire) == m_head.load(std::memory_order_acquire);
    }

private:
    std::vector<T> m_slots;
    size_t m_mask = 0;
    // Separate cache lines: the two sides write different ends.
    alignas(64) std::atomic<size_t> m_head{0};
    alignas(64) std::atomic<size_t> m_tail{0};
};
