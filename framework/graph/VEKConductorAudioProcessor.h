#pragma once

#include "VEKAudioProcessor.h"
#include "VEKConductorLandmark.h"
#include "rt/VEKRenderSnapshot.h"
#include "rt/VEKSPSCQueue.h"

#include <QList>
#include <QMetaType>

#include <atomic>
#include <vector>

class VEKMainThreadMailbox;

// The stretch of a buffer the conductor is pulling now, as the processors it times see it.
struct VEKConductorSegment {
    enum class Ramp { None, In, Out };

    // The transport runs for these frames (also during the fading-out buffer after a stop).
    bool running = false;
    // Conductor location of the first frame, in frames at sampleRate.
    qint64 frame = 0;
    double sampleRate = 44100.0;
    // Changes at every discontinuity of the time line (start, setLocation, jump): a processor that
    // sees a new value takes its position from `frame` instead of running on.
    quint64 generation = 0;
    // Anti-click ramp over this segment, from gainStart at its first frame towards gainEnd after
    // its last (a fade in after start, a fade out after stop, each spanning one buffer).
    Ramp ramp = Ramp::None;
    float gainStart = 1.0f;
    float gainEnd = 1.0f;

    double seconds() const { return double(frame) / sampleRate; }
};

// The transport clock of a stream: a location on the time line of the current file, advanced by
// the frames rendered while the transport runs, and landmarks on that line.
//
// It stands in the chain downstream of the generators it times (after the mixer in the player)
// and passes audio through; the processors upstream of it read currentSegment() while it pulls
// them. When a landmark falls inside a buffer, the conductor pulls the buffer in pieces: the
// frames before the landmark, then action(), then the rest from the jump location (or silence
// after a stop), so a jump is exact to the frame.
//
// Threads: start(), stop(), setLocation(), the landmark list and the signals on the main thread;
// render() and currentSegment() on the render thread. Control reaches the render thread through
// atomics and takes effect at the start of the next buffer. Events leave it through a lock-free
// queue and arrive as the signals below on the main thread.
class VEKConductorAudioProcessor : public VEKAudioProcessor {
    Q_OBJECT
public:
    explicit VEKConductorAudioProcessor(QObject *parent = nullptr);
    ~VEKConductorAudioProcessor() override;

    // Starts the transport; the first buffer after it fades in. The hardware stream keeps running
    // either way: a stopped transport is a stop of the generators only.
    void start();
    // Stops the transport; the next buffer fades out and the location stays where it stood.
    void stop();
    // The transport's state as last commanded, or stopped by a landmark.
    bool isRunning() const;

    // Seconds. A location set is reported at once and reaches the render thread at the next
    // buffer. Negative values count as 0.
    double location() const;
    void setLocation(double seconds);

    // The landmark list. Inserting at an index past the end appends.
    void insertLandmark(VEKConductorLandmarkPtr landmark, qsizetype index);
    void removeLandmarkAtIndex(qsizetype index);
    void removeLandmark(const VEKConductorLandmarkPtr &landmark);
    QList<VEKConductorLandmarkPtr> landmarks() const;

    // Render thread, while the conductor pulls its input.
    const VEKConductorSegment &currentSegment() const { return m_segment; }
    // Render thread, inside a landmark's action(): the stream's sample time of the frame at the
    // landmark (frames rendered before it since the stream started).
    quint64 landmarkSampleTime() const { return m_landmarkSampleTime; }

    bool initializeForRender(VEKError *error) override;
    bool uninitialize(VEKError *error) override;
    void render(VEKAudioBufferList &list, quint32 bus, const VEKAudioRenderInfo &info) override;
    bool rendersWhenDisabled() const override { return true; }

signals:
    // The render cycle reached `landmark` (after its action ran).
    void landmarkPassed(VEKConductorLandmarkPtr landmark);
    // A landmark stopped the transport.
    void transportStopped();

private:
    struct LandmarkSet {
        std::vector<VEKConductorLandmarkPtr> items;
    };
    struct Event {
        enum class Kind { None, LandmarkPassed, TransportStopped } kind = Kind::None;
        VEKConductorLandmarkPtr landmark;
    };

    void publishLandmarks(std::vector<VEKConductorLandmarkPtr> items);
    void deliverEvents();
    // Render thread.
    void applyTransportCommand();
    void applyPendingLocation();
    void pullSegment(VEKAudioBufferList &list, quint32 offset, quint32 frames, const VEKAudioRenderInfo &info);
    const VEKConductorLandmarkPtr *nextLandmark(const LandmarkSet *set, quint32 remaining, qint64 *frame) const;
    bool firedHere(const VEKConductorLandmark *landmark) const;
    void post(Event::Kind kind, const VEKConductorLandmarkPtr *landmark);
    qint64 toFrames(double seconds) const;

    // Transport command: (sequence << 1) | running. Written by start()/stop() and, when a
    // landmark stops the transport, by the render thread with a compare-and-swap, so a start
    // that arrives in the same buffer wins.
    std::atomic<quint64> m_command{0};
    std::atomic<double> m_pendingLocation{0.0};
    std::atomic<quint64> m_locationSequence{0};
    std::atomic<quint64> m_appliedLocationSequence{0};
    std::atomic<qint64> m_publishedFrame{0};
    std::atomic<double> m_rate{44100.0};

    VEKRenderSnapshot<LandmarkSet> m_landmarks;
    VEKSPSCQueue<Event> m_events{64};
    VEKMainThreadMailbox *m_mailbox = nullptr;

    // Render thread state.
    VEKConductorSegment m_segment;
    qint64 m_frame = 0;
    quint64 m_generation = 0;
    quint64 m_seenCommand = 0;
    quint64 m_seenLocationSequence = 0;
    bool m_rtRunning = false;
    bool m_fadingOut = false;
    bool m_fadingIn = false;
    // Landmarks fired since the last frame rendered: each fires once per arrival, even when a
    // jump lands on another landmark or on itself.
    static constexpr int maxFiredHere = 16;
    const VEKConductorLandmark *m_firedHere[maxFiredHere] = {};
    int m_firedHereCount = 0;
    VEKAudioBufferList m_scratch;
    quint64 m_landmarkSampleTime = 0;
    // Seconds kept across uninitialize, so a new rate lands on the same place.
    double m_heldSeconds = 0.0;
};

Q_DECLARE_METATYPE(VEKConductorLandmarkPtr)
