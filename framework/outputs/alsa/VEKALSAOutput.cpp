#include "VEKALSAOutput.h"

#include "VEKALSA.h"
#include "outputs/VEKAudioDevice.h"
#include "core/VEKLocalizedString.h"
#include "core/VEKLog.h"

#include <alsa/asoundlib.h>

#include <algorithm>
#include <cerrno>
#include <cmath>

namespace {

struct Candidate {
    snd_pcm_format_t alsa;
    VEKSampleEncoding encoding;
};

// Widest integer word first: it holds anything narrower unchanged and leaves the dither the
// most room. Float only when the graph asks for it.
constexpr Candidate kIntegerFormats[] = {
    {SND_PCM_FORMAT_S32_LE, VEKSampleEncoding::Int32},
    {SND_PCM_FORMAT_S24_3LE, VEKSampleEncoding::Int24Packed},
    {SND_PCM_FORMAT_S24_LE, VEKSampleEncoding::Int24In32},
    {SND_PCM_FORMAT_S16_LE, VEKSampleEncoding::Int16},
};
constexpr Candidate kFloatFormat = {SND_PCM_FORMAT_FLOAT_LE, VEKSampleEncoding::Float32};

constexpr int kWaitMs = 100;

// The layers of the PCM's dump: a title line ("Plug PCM: ...", "Slave: Hardware PCM card 0 ..."),
// "Its setup is:", then indented "key : value" lines, for each PCM of the chain in turn.
QList<VEKAudioDeviceFormat::Layer> dumpedLayers(snd_pcm_t *pcm)
{
    QList<VEKAudioDeviceFormat::Layer> layers;
    snd_output_t *out = nullptr;
    if (snd_output_buffer_open(&out) < 0)
        return layers;
    char *text = nullptr;
    QString dump;
    if (snd_pcm_dump(pcm, out) == 0) {
        const size_t size = snd_output_buffer_string(out, &text);
        dump = QString::fromUtf8(text, qsizetype(size));
    }
    snd_output_close(out);

    QString title;
    for (const QString &line : dump.split(u'\n')) {
        if (line.isEmpty())
            continue;
        if (!line.front().isSpace()) {
            if (line == QLatin1String("Its setup is:")) {
                VEKAudioDeviceFormat::Layer layer;
                layer.name = title;
                layers.append(layer);
            } else {
                title = line.startsWith(QLatin1String("Slave: ")) ? line.mid(7) : line;
            }
            continue;
        }
        if (layers.isEmpty())
            continue;
        const qsizetype colon = line.indexOf(u':');
        if (colon < 0)
            continue;
        const QString key = line.left(colon).trimmed();
        const QString value = line.mid(colon + 1).trimmed();
        VEKAudioDeviceFormat::Layer &layer = layers.last();
        if (key == QLatin1String("format")) {
            layer.sampleFormat = value;
            layer.isFloat = value.startsWith(QLatin1String("FLOAT"));
        } else if (key == QLatin1String("rate")) {
            layer.sampleRate = value.toDouble();
        } else if (key == QLatin1String("channels")) {
            layer.numberOfChannels = value.toUInt();
        } else if (key == QLatin1String("msbits")) {
            layer.significantBits = value.toUInt();
        }
    }
    return layers;
}

// What the open PCM says it runs at: its current hardware parameters, not what we asked for.
VEKAudioDeviceFormat readBack(snd_pcm_t *pcm)
{
    VEKAudioDeviceFormat d;
    snd_pcm_hw_params_t *hw = nullptr;
    snd_pcm_hw_params_alloca(&hw);
    if (snd_pcm_hw_params_current(pcm, hw) < 0)
        return d;
    snd_pcm_format_t format = SND_PCM_FORMAT_UNKNOWN;
    unsigned rate = 0, channels = 0;
    int dir = 0;
    snd_pcm_hw_params_get_format(hw, &format);
    snd_pcm_hw_params_get_rate(hw, &rate, &dir);
    snd_pcm_hw_params_get_channels(hw, &channels);
    const int sbits = snd_pcm_hw_params_get_sbits(hw);

    d.layers = dumpedLayers(pcm);
    if (d.layers.isEmpty())
        d.layers.append(VEKAudioDeviceFormat::Layer());
    VEKAudioDeviceFormat::Layer &top = d.layers.first();
    if (top.name.isEmpty())
        top.name = QString::fromLatin1(snd_pcm_name(pcm));
    top.sampleFormat = QString::fromLatin1(snd_pcm_format_name(format));
    top.sampleRate = double(rate);
    top.numberOfChannels = channels;
    top.significantBits = sbits > 0 ? unsigned(sbits) : unsigned(std::max(snd_pcm_format_width(format), 0));
    top.isFloat = snd_pcm_format_float(format) == 1;
    for (VEKAudioDeviceFormat::Layer &layer : d.layers)
        if (layer.significantBits == 0 && !layer.sampleFormat.isEmpty())
            layer.significantBits = unsigned(std::max(
                snd_pcm_format_width(snd_pcm_format_value(layer.sampleFormat.toLatin1().constData())), 0));
    return d;
}

} // namespace

VEKALSAOutput::VEKALSAOutput(QString pcmName, double deviceRate)
    : m_name(std::move(pcmName)), m_deviceRate(deviceRate)
{
}

VEKALSAOutput::~VEKALSAOutput() { close(); }

QString VEKALSAOutput::sampleFormatName() const
{
    return m_pcm ? QString::fromLatin1(snd_pcm_format_name(snd_pcm_format_t(m_alsaFormat))) : QString();
}

bool VEKALSAOutput::open(const VEKAudioFormat &requested, quint32 framesPerBuffer, VEKError *error)
{
    close();
    VEKALSA::silenceErrors();
    if (framesPerBuffer == 0 || requested.numberOfChannels == 0) {
        VEKError::set(error, VEKALSA::error("Error_audioDeviceOpen", -EINVAL, m_name));
        return false;
    }
    snd_pcm_t *pcm = nullptr;
    int err = snd_pcm_open(&pcm, m_name.toUtf8().constData(), SND_PCM_STREAM_PLAYBACK, SND_PCM_NONBLOCK);
    if (err < 0) {
        VEKError::set(error, VEKALSA::error(err == -ENOENT ? "Error_audioDeviceMissing" : "Error_audioDeviceOpen",
                                            err, m_name));
        return false;
    }
    auto fail = [&](const char *key, int status) {
        snd_pcm_close(pcm);
        VEKError::set(error, VEKALSA::error(key, status, m_name));
        return false;
    };

    snd_pcm_hw_params_t *hw = nullptr;
    snd_pcm_hw_params_alloca(&hw);
    if ((err = snd_pcm_hw_params_any(pcm, hw)) < 0
        || (err = snd_pcm_hw_params_set_rate_resample(pcm, hw, 0)) < 0
        || (err = snd_pcm_hw_params_set_access(pcm, hw, SND_PCM_ACCESS_RW_INTERLEAVED)) < 0)
        return fail("Error_audioDeviceOpen", err);

    const Candidate *chosen = nullptr;
    if (requested.isFloat && snd_pcm_hw_params_test_format(pcm, hw, kFloatFormat.alsa) == 0)
        chosen = &kFloatFormat;
    for (const Candidate &c : kIntegerFormats) {
        if (!chosen && snd_pcm_hw_params_test_format(pcm, hw, c.alsa) == 0)
            chosen = &c;
    }
    if (!chosen)
        return fail("Error_audioDeviceFormat", -EINVAL);
    if ((err = snd_pcm_hw_params_set_format(pcm, hw, chosen->alsa)) < 0)
        return fail("Error_audioDeviceFormat", err);

    unsigned channels = requested.numberOfChannels;
    if ((err = snd_pcm_hw_params_set_channels_near(pcm, hw, &channels)) < 0)
        return fail("Error_audioDeviceOpen", err);

    const double wanted = requested.sampleRate > 0 ? requested.sampleRate
                          : m_deviceRate > 0       ? m_deviceRate
                                                   : 44100.0;
    unsigned rate = unsigned(std::lround(wanted));
    if (snd_pcm_hw_params_test_rate(pcm, hw, rate, 0) != 0) {
        // ALSA's own "nearest" sees a range where plug layers offer a few rates, and may land
        // far off: choose among the rates that really open.
        unsigned best = 0;
        for (const double common : VEKAudioDevice::commonSampleRates()) {
            const unsigned r = unsigned(common);
            if (snd_pcm_hw_params_test_rate(pcm, hw, r, 0) == 0
                && (best == 0 || std::abs(double(r) - wanted) < std::abs(double(best) - wanted)))
                best = r;
        }
        if (best != 0)
            rate = best;
    }
    if ((err = snd_pcm_hw_params_set_rate_near(pcm, hw, &rate, nullptr)) < 0)
        return fail("Error_audioDeviceOpen", err);

    snd_pcm_uframes_t period = framesPerBuffer;
    snd_pcm_hw_params_set_period_size_near(pcm, hw, &period, nullptr);
    snd_pcm_uframes_t buffer = period * 4;
    snd_pcm_hw_params_set_buffer_size_near(pcm, hw, &buffer);
    if ((err = snd_pcm_hw_params(pcm, hw)) < 0)
        return fail("Error_audioDeviceOpen", err);
    snd_pcm_hw_params_get_period_size(hw, &period, nullptr);
    snd_pcm_hw_params_get_buffer_size(hw, &buffer);

    // Start once the buffer is full, so the first blocks are not played before the next exist.
    snd_pcm_sw_params_t *sw = nullptr;
    snd_pcm_sw_params_alloca(&sw);
    if ((err = snd_pcm_sw_params_current(pcm, sw)) < 0
        || (err = snd_pcm_sw_params_set_start_threshold(pcm, sw, buffer)) < 0
        || (err = snd_pcm_sw_params_set_avail_min(pcm, sw, period)) < 0
        || (err = snd_pcm_sw_params(pcm, sw)) < 0)
        return fail("Error_audioDeviceOpen", err);

    m_pcm = pcm;
    m_alsaFormat = int(chosen->alsa);
    m_packer = VEKSamplePacker(chosen->encoding);
    m_format.sampleRate = double(rate);
    m_format.numberOfChannels = channels;
    m_format.bitDepth = m_packer.bitDepth();
    m_format.isFloat = m_packer.isFloat();
    m_framesPerBuffer = framesPerBuffer;
    m_deviceFormat = readBack(pcm);
    m_buffer.allocate(channels, framesPerBuffer);
    m_bytes.assign(size_t(framesPerBuffer) * channels * m_packer.bytesPerSample(), 0);
    return true;
}

bool VEKALSAOutput::start(RenderCallback callback, VEKError *error)
{
    if (!m_pcm) {
        VEKError::set(error, VEKALSA::error("Error_audioDeviceOpen", -EBADF, m_name));
        return false;
    }
    stop();
    const snd_pcm_state_t state = snd_pcm_state(m_pcm);
    if (state != SND_PCM_STATE_PREPARED) {
        const int err = snd_pcm_prepare(m_pcm);
        if (err < 0) {
            VEKError::set(error, VEKALSA::error("Error_audioDeviceOpen", err, m_name));
            return false;
        }
    }
    m_callback = std::move(callback);
    m_played.store(0, std::memory_order_relaxed);
    m_underruns.store(0, std::memory_order_relaxed);
    m_failure.store(0, std::memory_order_relaxed);
    m_thread.start("quivera-alsa", [this] { run(); });
    return true;
}

bool VEKALSAOutput::write(const char *bytes, quint32 frames)
{
    const size_t frameBytes = size_t(m_format.numberOfChannels) * m_packer.bytesPerSample();
    while (frames > 0 && !m_thread.stopRequested()) {
        snd_pcm_sframes_t n = snd_pcm_writei(m_pcm, bytes, frames);
        if (n == -EAGAIN) {
            const int w = snd_pcm_wait(m_pcm, kWaitMs);
            if (w >= 0)
                continue;
            n = w;
        }
        if (n < 0) {
            if (n == -EPIPE)
                m_underruns.fetch_add(1, std::memory_order_relaxed);
            if (snd_pcm_recover(m_pcm, int(n), 1) < 0) {
                m_failure.store(int(n), std::memory_order_relaxed);
                return false;
            }
            continue;
        }
        bytes += size_t(n) * frameBytes;
        frames -= quint32(n);
    }
    return true;
}

void VEKALSAOutput::run()
{
    const quint32 frames = m_framesPerBuffer;
    quint64 sampleTime = 0;
    while (!m_thread.stopRequested()) {
        m_buffer.setFrames(frames);
        m_callback(m_buffer, sampleTime);
        m_buffer.setFrames(frames);
        m_packer.pack(m_buffer, m_bytes.data());
        if (!write(m_bytes.data(), frames))
            return;
        sampleTime += frames;
        snd_pcm_sframes_t delay = 0;
        if (snd_pcm_delay(m_pcm, &delay) < 0 || delay < 0)
            delay = 0;
        m_played.store(sampleTime > quint64(delay) ? sampleTime - quint64(delay) : 0, std::memory_order_relaxed);
    }
}

void VEKALSAOutput::stop()
{
    if (!m_callback)
        return;
    m_thread.join();
    m_callback = nullptr;
    snd_pcm_drop(m_pcm);
    snd_pcm_prepare(m_pcm);
    if (const int failure = m_failure.load(); failure < 0)
        VEKLog(VEKALSA::error("Error_audioDeviceFailed", failure, m_name).text());
    if (const quint64 n = underruns(); n > 0)
        VEKLog(QStringLiteral("%1: %2 underruns").arg(m_name).arg(n));
}

void VEKALSAOutput::close()
{
    stop();
    if (!m_pcm)
        return;
    snd_pcm_close(m_pcm);
    m_pcm = nullptr;
    m_alsaFormat = -1;
    m_deviceFormat = {};
}
