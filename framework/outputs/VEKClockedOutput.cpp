#include "VEKClockedOutput.h"

#include "core/VEKLocalizedString.h"

#include <cerrno>
#include <ctime>

namespace {
void addNanoseconds(timespec &t, qint64 ns)
{
    t.tv_sec += ns / 1000000000;
    t.tv_nsec += ns % 1000000000;
    if (t.tv_nsec >= 1000000000) {
        t.tv_nsec -= 1000000000;
        ++t.tv_sec;
    }
}
}

VEKClockedOutput::VEKClockedOutput(bool paced, const char *threadName, double deviceRate)
    : m_paced(paced), m_threadName(threadName), m_deviceRate(deviceRate)
{
}

VEKClockedOutput::~VEKClockedOutput()
{
    // Subclasses close themselves: their didStop()/didClose() can't run from here.
    m_thread.join();
}

bool VEKClockedOutput::open(const VEKAudioFormat &requested, quint32 framesPerBuffer, VEKError *error)
{
    close();
    if (framesPerBuffer == 0 || requested.numberOfChannels == 0) {
        VEKError::set(error, VEKError(QStringLiteral("VEKAudioDevice"), -EINVAL,
                                      VEKLocalizedString("Error_audioDeviceOpen"),
                                      QStringLiteral("no frames or no channels asked for")));
        return false;
    }
    VEKAudioFormat wanted = requested;
    if (wanted.sampleRate <= 0)
        wanted.sampleRate = m_deviceRate > 0 ? m_deviceRate : 44100.0;
    if (!prepare(wanted, framesPerBuffer, error))
        return false;
    m_framesPerBuffer = framesPerBuffer;
    m_buffer.allocate(m_format.numberOfChannels, framesPerBuffer);
    m_open = true;
    return true;
}

bool VEKClockedOutput::start(RenderCallback callback, VEKError *error)
{
    if (!m_open) {
        VEKError::set(error, VEKError(QStringLiteral("VEKAudioDevice"), -EBADF,
                                      VEKLocalizedString("Error_audioDeviceOpen"),
                                      QStringLiteral("the output is not open")));
        return false;
    }
    stop();
    m_callback = std::move(callback);
    m_played.store(0, std::memory_order_relaxed);
    m_thread.start(m_threadName, [this] { run(); });
    return true;
}

void VEKClockedOutput::run()
{
    const quint32 frames = m_framesPerBuffer;
    const double rate = m_format.sampleRate;
    timespec begin{};
    clock_gettime(CLOCK_MONOTONIC, &begin);
    quint64 sampleTime = 0;
    while (!m_thread.stopRequested()) {
        m_buffer.setFrames(frames);
        m_callback(m_buffer, sampleTime);
        m_buffer.setFrames(frames);
        consume(m_buffer);
        sampleTime += frames;
        if (m_paced) {
            // Deadlines from the start, not from the last wake-up, so lateness does not add up.
            timespec deadline = begin;
            addNanoseconds(deadline, qint64(double(sampleTime) * 1e9 / rate));
            while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &deadline, nullptr) == EINTR) {
            }
        }
        m_played.store(sampleTime, std::memory_order_relaxed);
    }
}

void VEKClockedOutput::stop()
{
    if (!m_callback)
        return;
    m_thread.join();
    m_callback = nullptr;
    didStop();
}

void VEKClockedOutput::close()
{
    stop();
    if (!m_open)
        return;
    m_open = false;
    didClose();
}
