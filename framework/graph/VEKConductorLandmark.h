#pragma once

#include <QtGlobal>

#include <atomic>
#include <memory>

// A point on the conductor's time line. When the conductor's location reaches it, the conductor
// calls action() and then reads jump, jumpLocation and stop, so action() may decide them:
// - stop: the transport stops exactly at the landmark; the rest of that buffer is silence.
// - jump: the next frame rendered is the one at jumpLocation, in the same buffer: no frame is
//   lost or repeated, wherever the landmark falls in the buffer.
// - neither: the conductor runs on past it.
//
// Every field may be read and written from any thread at any time (atomics), also while the
// transport runs. Landmarks are shared: the conductor keeps its own reference.
class VEKConductorLandmark {
public:
    VEKConductorLandmark() = default;
    virtual ~VEKConductorLandmark() = default;
    VEKConductorLandmark(const VEKConductorLandmark &) = delete;
    VEKConductorLandmark &operator=(const VEKConductorLandmark &) = delete;

    // A new landmark of class T (a subclass overriding action()).
    template <class T = VEKConductorLandmark>
    static std::shared_ptr<T> landmark()
    {
        return std::make_shared<T>();
    }

    // Seconds on the conductor's time line.
    double location() const { return m_location.load(std::memory_order_relaxed); }
    void setLocation(double seconds) { m_location.store(seconds, std::memory_order_relaxed); }
    bool jump() const { return m_jump.load(std::memory_order_relaxed); }
    void setJump(bool jump) { m_jump.store(jump, std::memory_order_relaxed); }
    double jumpLocation() const { return m_jumpLocation.load(std::memory_order_relaxed); }
    void setJumpLocation(double seconds) { m_jumpLocation.store(seconds, std::memory_order_relaxed); }
    // With jump: the time line after the jump runs at this rate (0 keeps the present one). The
    // conductor then ends the buffer it is rendering at the landmark, short, so that what it
    // feeds (the converter to the device's rate) takes the new rate from the next frame on.
    double jumpSampleRate() const { return m_jumpSampleRate.load(std::memory_order_relaxed); }
    void setJumpSampleRate(double rate) { m_jumpSampleRate.store(rate, std::memory_order_relaxed); }
    bool stop() const { return m_stop.load(std::memory_order_relaxed); }
    void setStop(bool stop) { m_stop.store(stop, std::memory_order_relaxed); }

    // Called on the render thread, inside the render cycle that reaches the landmark, before the
    // frame at the landmark is rendered. It must not allocate, lock, log or wait: it may set this
    // landmark's fields and connections' `active`, and hand everything else to the main thread
    // (the conductor's landmarkPassed signal follows there). The base does nothing.
    virtual void action() {}

private:
    std::atomic<double> m_location{0.0};
    std::atomic<double> m_jumpLocation{0.0};
    std::atomic<double> m_jumpSampleRate{0.0};
    std::atomic<bool> m_jump{false};
    std::atomic<bool> m_stop{false};
};

using VEKConductorLandmarkPtr = std::shared_ptr<VEKConductorLandmark>;
