#include "VEKConductorAudioProcessor.h"

#include "VEKMainThreadMailbox.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace {

quint64 nextCommand(quint64 current, bool running)
{
    return (((current >> 1) + 1) << 1) | (running ? 1 : 0);
}

} // namespace

VEKConductorAudioProcessor::VEKConductorAudioProcessor(QObject *parent) : VEKAudioProcessor(parent)
{
    m_mailbox = new VEKMainThreadMailbox(this);
    connect(m_mailbox, &VEKMainThreadMailbox::delivered, this, &VEKConductorAudioProcessor::deliverEvents);
    m_landmarks.publish(std::make_unique<LandmarkSet>());
}

VEKConductorAudioProcessor::~VEKConductorAudioProcessor() = default;

void VEKConductorAudioProcessor::start()
{
    quint64 v = m_command.load();
    while (!m_command.compare_exchange_weak(v, nextCommand(v, true))) {
    }
}

void VEKConductorAudioProcessor::stop()
{
    quint64 v = m_command.load();
    while (!m_command.compare_exchange_weak(v, nextCommand(v, false))) {
    }
}

bool VEKConductorAudioProcessor::isRunning() const { return m_command.load() & 1; }

double VEKConductorAudioProcessor::location() const
{
    const quint64 requested = m_locationSequence.load(std::memory_order_acquire);
    if (requested != m_appliedLocationSequence.load(std::memory_order_acquire))
        return m_pendingLocation.load(std::memory_order_relaxed);
    return double(m_publishedFrame.load(std::memory_order_acquire)) / m_rate.load(std::memory_order_relaxed);
}

void VEKConductorAudioProcessor::setLocation(double seconds)
{
    m_pendingLocation.store(std::max(0.0, seconds), std::memory_order_relaxed);
    m_locationSequence.fetch_add(1, std::memory_order_release);
}

void VEKConductorAudioProcessor::insertLandmark(VEKConductorLandmarkPtr landmark, qsizetype index)
{
    if (!landmark)
        return;
    std::vector<VEKConductorLandmarkPtr> items = m_landmarks.current()->items;
    index = std::clamp<qsizetype>(index, 0, qsizetype(items.size()));
    items.insert(items.begin() + index, std::move(landmark));
    publishLandmarks(std::move(items));
}

void VEKConductorAudioProcessor::removeLandmarkAtIndex(qsizetype index)
{
    std::vector<VEKConductorLandmarkPtr> items = m_landmarks.current()->items;
    if (index < 0 || index >= qsizetype(items.size()))
        return;
    items.erase(items.begin() + index);
    publishLandmarks(std::move(items));
}

void VEKConductorAudioProcessor::removeLandmark(const VEKConductorLandmarkPtr &landmark)
{
    std::vector<VEKConductorLandmarkPtr> items = m_landmarks.current()->items;
    items.erase(std::remove(items.begin(), items.end(), landmark), items.end());
    publishLandmarks(std::move(items));
}

QList<VEKConductorLandmarkPtr> VEKConductorAudioProcessor::landmarks() const
{
    const auto &items = m_landmarks.current()->items;
    return QList<VEKConductorLandmarkPtr>(items.begin(), items.end());
}

void VEKConductorAudioProcessor::publishLandmarks(std::vector<VEKConductorLandmarkPtr> items)
{
    auto set = std::make_unique<LandmarkSet>();
    set->items = std::move(items);
    m_landmarks.publish(std::move(set));
}

void VEKConductorAudioProcessor::deliverEvents()
{
    Event e;
    while (m_events.pop(e)) {
        if (e.kind == Event::Kind::LandmarkPassed)
            emit landmarkPassed(e.landmark);
        else if (e.kind == Event::Kind::TransportStopped)
            emit transportStopped();
        e = Event();
    }
    // A set replaced while the render thread held it is freed here at the latest.
    m_landmarks.collect();
}

bool VEKConductorAudioProcessor::initializeForRender(VEKError *)
{
    const VEKAudioConnection *out = outputConnection();
    double rate = out ? out->sampleRate() : 0.0;
    if (rate <= 0.0)
        rate = 44100.0;
    if (rate != m_rate.load())
        m_frame = std::llround(m_heldSeconds * rate);
    m_rate.store(rate);
    m_publishedFrame.store(m_frame);
    m_firedHereCount = 0;
    m_scratch.allocate(out ? out->numberOfChannels() : 2, maximumFramesToRender());
    return true;
}

bool VEKConductorAudioProcessor::uninitialize(VEKError *)
{
    m_heldSeconds = double(m_frame) / m_rate.load();
    m_scratch = VEKAudioBufferList();
    m_landmarks.collect();
    return true;
}

qint64 VEKConductorAudioProcessor::toFrames(double seconds) const
{
    return std::llround(std::max(0.0, seconds) * m_rate.load(std::memory_order_relaxed));
}

void VEKConductorAudioProcessor::applyTransportCommand()
{
    const quint64 command = m_command.load(std::memory_order_acquire);
    if (command == m_seenCommand)
        return;
    m_seenCommand = command;
    const bool wanted = command & 1;
    if (wanted && !m_rtRunning) {
        m_rtRunning = true;
        m_fadingIn = true;
        // Generators pick up the location afresh: it may have been set while stopped.
        ++m_generation;
    } else if (!wanted && m_rtRunning) {
        m_rtRunning = false;
        m_fadingOut = true;
    }
}

void VEKConductorAudioProcessor::applyPendingLocation()
{
    const quint64 sequence = m_locationSequence.load(std::memory_order_acquire);
    if (sequence == m_seenLocationSequence)
        return;
    m_seenLocationSequence = sequence;
    m_frame = toFrames(m_pendingLocation.load(std::memory_order_relaxed));
    ++m_generation;
    m_firedHereCount = 0;
    m_publishedFrame.store(m_frame, std::memory_order_release);
    m_appliedLocationSequence.store(sequence, std::memory_order_release);
}

bool VEKConductorAudioProcessor::firedHere(const VEKConductorLandmark *landmark) const
{
    if (m_firedHereCount >= maxFiredHere)
        return true; // more than we track: treat all as fired rather than risk looping
    return std::find(m_firedHere, m_firedHere + m_firedHereCount, landmark) != m_firedHere + m_firedHereCount;
}

const VEKConductorLandmarkPtr *VEKConductorAudioProcessor::nextLandmark(const LandmarkSet *set, quint32 remaining,
                                                                        qint64 *frame) const
{
    const VEKConductorLandmarkPtr *best = nullptr;
    qint64 bestFrame = 0;
    for (const VEKConductorLandmarkPtr &l : set->items) {
        const qint64 f = toFrames(l->location());
        if (f < m_frame || f >= m_frame + qint64(remaining))
            continue;
        if (f == m_frame && firedHere(l.get()))
            continue;
        if (!best || f < bestFrame) {
            best = &l;
            bestFrame = f;
        }
    }
    *frame = bestFrame;
    return best;
}

void VEKConductorAudioProcessor::post(Event::Kind kind, const VEKConductorLandmarkPtr *landmark)
{
    Event e;
    e.kind = kind;
    if (landmark)
        e.landmark = *landmark; // a reference count, not an allocation
    if (m_events.push(std::move(e)))
        m_mailbox->post();
}

void VEKConductorAudioProcessor::pullSegment(VEKAudioBufferList &list, quint32 offset, quint32 frames,
                                             const VEKAudioRenderInfo &info)
{
    if (frames == 0)
        return;
    VEKAudioRenderInfo segment = info;
    segment.frames = frames;
    segment.sampleTime = info.sampleTime + offset;
    if (offset == 0 && frames == list.frames()) {
        inputBus().render(list, segment);
        return;
    }
    const quint32 total = list.frames();
    inputBus().render(m_scratch, segment);
    const quint32 got = std::min(frames, m_scratch.frames());
    for (quint32 c = 0; c < list.numberOfChannels(); ++c) {
        float *out = list.channel(c) + offset;
        if (c < m_scratch.numberOfChannels()) {
            std::memcpy(out, m_scratch.channel(c), sizeof(float) * got);
            std::memset(out + got, 0, sizeof(float) * (frames - got));
        } else {
            std::memset(out, 0, sizeof(float) * frames);
        }
    }
    list.setFrames(total);
}

void VEKConductorAudioProcessor::render(VEKAudioBufferList &list, quint32, const VEKAudioRenderInfo &info)
{
    list.setFrames(info.frames);
    const quint32 n = std::min(list.frames(), m_scratch.capacity());
    list.setFrames(n);
    const double rate = m_rate.load(std::memory_order_relaxed);
    applyTransportCommand();

    if (m_fadingOut) {
        // The buffer after a stop plays on from where the transport stood, fading out; the
        // location stays at the stop, so a later start resumes there.
        m_fadingOut = false;
        m_segment = {true, m_frame, rate, m_generation, VEKConductorSegment::Ramp::Out, 1.0f, 0.0f};
        pullSegment(list, 0, n, info);
        applyPendingLocation();
        m_publishedFrame.store(m_frame, std::memory_order_release);
        return;
    }

    applyPendingLocation();
    const bool fadeIn = std::exchange(m_fadingIn, false);
    const LandmarkSet *set = m_landmarks.acquire();
    quint32 offset = 0;
    while (offset < n) {
        const quint32 remaining = n - offset;
        if (!m_rtRunning) {
            m_segment = {false, m_frame, rate, m_generation, VEKConductorSegment::Ramp::None, 1.0f, 1.0f};
            pullSegment(list, offset, remaining, info);
            break;
        }
        qint64 landmarkFrame = 0;
        const VEKConductorLandmarkPtr *hit = set ? nextLandmark(set, remaining, &landmarkFrame) : nullptr;
        const quint32 len = hit ? quint32(landmarkFrame - m_frame) : remaining;
        if (len > 0) {
            m_segment = {true, m_frame, rate, m_generation, VEKConductorSegment::Ramp::None, 1.0f, 1.0f};
            if (fadeIn) {
                m_segment.ramp = VEKConductorSegment::Ramp::In;
                m_segment.gainStart = float(offset) / float(n);
                m_segment.gainEnd = float(offset + len) / float(n);
            }
            pullSegment(list, offset, len, info);
            offset += len;
            m_frame += len;
            m_firedHereCount = 0;
        }
        if (!hit)
            continue;

        VEKConductorLandmark *landmark = hit->get();
        m_landmarkSampleTime = info.sampleTime + offset;
        landmark->action();
        if (m_firedHereCount < maxFiredHere)
            m_firedHere[m_firedHereCount] = landmark;
        ++m_firedHereCount;
        post(Event::Kind::LandmarkPassed, hit);
        if (landmark->stop()) {
            m_rtRunning = false;
            // Only if no command came meanwhile: a start sent during this buffer must win.
            quint64 expected = m_seenCommand;
            const quint64 stopped = nextCommand(expected, false);
            if (m_command.compare_exchange_strong(expected, stopped))
                m_seenCommand = stopped;
            post(Event::Kind::TransportStopped, nullptr);
        } else if (landmark->jump()) {
            const double newRate = landmark->jumpSampleRate();
            const bool rateChanges = newRate > 0.0 && newRate != m_rate.load(std::memory_order_relaxed);
            if (rateChanges)
                m_rate.store(newRate, std::memory_order_relaxed);
            m_frame = toFrames(landmark->jumpLocation());
            ++m_generation;
            if (rateChanges) {
                // The rest of this buffer would be counted at the old rate downstream: end it
                // here; the next pull runs at the new rate.
                list.setFrames(offset);
                break;
            }
        }
    }
    m_landmarks.release();
    m_publishedFrame.store(m_frame, std::memory_order_release);
}
