#pragma once

#include "outputs/VEKAudioOutput.h"
#include "outputs/VEKRenderThread.h"
#include "outputs/VEKSamplePacker.h"

#include <QString>
#include <atomic>
#include <vector>

struct _snd_pcm;

// Plays through one ALSA PCM. The render thread asks the callback for a block, converts it to
// the device's words and writes it, waiting on the device (never longer than a tenth of a second
// at a time, so stop() is prompt). An underrun is recovered in place and counted, silently; an
// error the PCM can't recover from (the card is gone) ends the thread and isRunning() turns
// false.
//
// The format: the requested rate if offered, else the nearest (ALSA's resampler stays off); the
// highest integer word the device takes, S32 > S24_3LE > S24 > S16, so 24-bit material reaches a
// 24- or 32-bit device unchanged; FLOAT when float is asked for and offered.
class VEKALSAOutput final : public VEKAudioOutput {
public:
    // `deviceRate` is used when open() asks for rate 0.
    VEKALSAOutput(QString pcmName, double deviceRate);
    ~VEKALSAOutput() override;

    bool open(const VEKAudioFormat &requested, quint32 framesPerBuffer, VEKError *error) override;
    VEKAudioFormat format() const override { return m_format; }
    // Read back from the open PCM once its hardware parameters are set: the layer we write to
    // from snd_pcm_hw_params_current, those beneath it (ALSA's plug, a file tee's slave) from
    // the PCM's own dump of its chain, since ALSA offers no call that reaches a slave.
    VEKAudioDeviceFormat deviceFormat() const override { return m_deviceFormat; }
    quint32 framesPerBuffer() const override { return m_framesPerBuffer; }
    bool start(RenderCallback callback, VEKError *error) override;
    void stop() override;
    bool isRunning() const override { return m_thread.isRunning(); }
    void close() override;
    quint64 framesPlayed() const override { return m_played.load(std::memory_order_relaxed); }

    const QString &pcmName() const { return m_name; }
    // The ALSA sample format opened ("S24_3LE"); empty when closed.
    QString sampleFormatName() const;
    // Underruns recovered since start(). Any thread.
    quint64 underruns() const { return m_underruns.load(std::memory_order_relaxed); }

private:
    void run();
    // Writes `frames` frames from `bytes`; false when the device failed for good.
    bool write(const char *bytes, quint32 frames);

    const QString m_name;
    const double m_deviceRate;
    _snd_pcm *m_pcm = nullptr;
    int m_alsaFormat = -1;
    VEKAudioFormat m_format;
    VEKAudioDeviceFormat m_deviceFormat;
    quint32 m_framesPerBuffer = 0;
    VEKSamplePacker m_packer;
    VEKAudioBufferList m_buffer;
    std::vector<char> m_bytes;
    RenderCallback m_callback;
    VEKRenderThread m_thread;
    std::atomic<quint64> m_played{0};
    std::atomic<quint64> m_underruns{0};
    std::atomic<int> m_failure{0};
};
