#include "VEKALSADevice.h"

#include "VEKALSA.h"
#include "VEKALSAMixer.h"
#include "VEKALSAName.h"
#include "VEKALSAOutput.h"
#include "core/VEKLocalizedString.h"

#include <alsa/asoundlib.h>

#include <cerrno>

namespace {

const QString kDomain = QStringLiteral("VEKAudioDevice");

// Opening without waiting: a device held by someone else answers EBUSY at once.
int openForProbe(const QString &pcm, snd_pcm_t **handle)
{
    VEKALSA::silenceErrors();
    if (pcm.isEmpty())
        return -ENOENT;
    return snd_pcm_open(handle, pcm.toUtf8().constData(), SND_PCM_STREAM_PLAYBACK, SND_PCM_NONBLOCK);
}

} // namespace

QList<VEKALSADevice::Hint> VEKALSADevice::hints(VEKError *error)
{
    VEKALSA::silenceErrors();
    QList<Hint> list;
    void **hints = nullptr;
    const int err = snd_device_name_hint(-1, "pcm", &hints);
    if (err < 0) {
        VEKError::set(error, VEKALSA::error("Error_audioDeviceList", err, QStringLiteral("pcm")));
        return list;
    }
    for (void **h = hints; *h; ++h) {
        char *name = snd_device_name_get_hint(*h, "NAME");
        char *desc = snd_device_name_get_hint(*h, "DESC");
        char *ioid = snd_device_name_get_hint(*h, "IOID");
        if (name) {
            Hint hint;
            hint.name = QString::fromUtf8(name);
            hint.description = QString::fromUtf8(desc ? desc : "").trimmed();
            hint.description.replace(u'\n', QStringLiteral(" — "));
            // No IOID means both directions.
            hint.output = !ioid || qstrcmp(ioid, "Output") == 0;
            list.append(hint);
        }
        free(name);
        free(desc);
        free(ioid);
    }
    snd_device_name_free_hint(hints);
    return list;
}

VEKALSADevice::VEKALSADevice(QString pcmName) : m_name(std::move(pcmName)), m_deviceID(idForUID(m_name)) {}

void VEKALSADevice::setHint(const Hint &hint)
{
    m_hint = hint;
    m_hintLooked = true;
}

const VEKALSADevice::Hint *VEKALSADevice::findHint() const
{
    if (!m_hintLooked) {
        m_hintLooked = true;
        for (const Hint &h : hints()) {
            if (h.name == m_name) {
                m_hint = h;
                break;
            }
        }
    }
    return m_hint.name.isEmpty() ? nullptr : &m_hint;
}

bool VEKALSADevice::isValid() const
{
    snd_pcm_t *pcm = nullptr;
    const int err = openForProbe(m_name, &pcm);
    if (err == 0)
        snd_pcm_close(pcm);
    return err == 0 || err == -EBUSY || err == -EAGAIN;
}

bool VEKALSADevice::hasPhysicalOutputs() const
{
    const Hint *hint = findHint();
    return isValid() && (!hint || hint->output);
}

QString VEKALSADevice::UID(VEKError *) const { return m_name; }

QString VEKALSADevice::title(VEKError *) const
{
    const Hint *hint = findHint();
    return hint && !hint->description.isEmpty() ? hint->description : m_name;
}

VEKALSADevice::Probe VEKALSADevice::probe(const QString &name) const
{
    if (const auto it = m_probes.constFind(name); it != m_probes.cend())
        return *it;
    Probe p;
    snd_pcm_t *pcm = nullptr;
    p.status = openForProbe(name, &pcm);
    if (p.status < 0)
        return p;
    snd_pcm_info_t *info = nullptr;
    snd_pcm_info_alloca(&info);
    if (snd_pcm_info(pcm, info) == 0 && snd_pcm_info_get_card(info) >= 0)
        p.hwDevice = int(snd_pcm_info_get_device(info));
    snd_pcm_hw_params_t *params = nullptr;
    snd_pcm_hw_params_alloca(&params);
    p.status = snd_pcm_hw_params_any(pcm, params);
    if (p.status >= 0) {
        p.status = 0;
        snd_pcm_hw_params_set_rate_resample(pcm, params, 0);
        snd_pcm_hw_params_set_access(pcm, params, SND_PCM_ACCESS_RW_INTERLEAVED);
        for (const double rate : commonSampleRates()) {
            if (snd_pcm_hw_params_test_rate(pcm, params, unsigned(rate), 0) == 0)
                p.rates.append(rate);
        }
    }
    snd_pcm_close(pcm);
    if (p.status == 0)
        m_probes.insert(name, p);
    return p;
}

void VEKALSADevice::forgetProbedFacts()
{
    m_probes.clear();
    m_hintLooked = false;
    m_hint = {};
}

QString VEKALSADevice::outputPCMName() const
{
    if (!m_exclusive)
        return m_name;
    const VEKALSAName parsed = VEKALSAName::parse(m_name);
    if (parsed.prefix == QLatin1String("hw"))
        return m_name;
    // Where ALSA can say which hw device the PCM ends in (hdmi:CARD=x,DEV=0 may be hw device 3),
    // that one; else the device the name gives.
    return parsed.hardwareName(probe(m_name).hwDevice);
}

QList<double> VEKALSADevice::availableSampleRates(VEKError *error) const
{
    const QString name = outputPCMName();
    const Probe p = probe(name);
    if (p.status < 0) {
        VEKError::set(error, VEKALSA::error(p.status == -ENOENT ? "Error_audioDeviceMissing" : "Error_audioDeviceOpen",
                                            p.status, name));
        return {};
    }
    return p.rates;
}

double VEKALSADevice::sampleRate(VEKError *error) const
{
    if (m_rate > 0)
        return m_rate;
    const QList<double> rates = availableSampleRates(error);
    for (const double preferred : {44100.0, 48000.0}) {
        if (rates.contains(preferred))
            return preferred;
    }
    return rates.isEmpty() ? 0.0 : rates.first();
}

bool VEKALSADevice::setSampleRate(double rate, VEKError *error)
{
    VEKError probeError;
    const QList<double> rates = availableSampleRates(&probeError);
    if (!probeError.isNull()) {
        VEKError::set(error, probeError);
        return false;
    }
    if (!rates.contains(rate)) {
        VEKError::set(error, VEKError(kDomain, -EINVAL, VEKLocalizedString("Error_audioDeviceRate"),
                                      QStringLiteral("%1: %2 Hz").arg(m_name).arg(rate)));
        return false;
    }
    if (rate != m_rate) {
        m_rate = rate;
        emit VEKAudioDeviceMonitor::shared().sampleRateChanged(m_name, rate);
    }
    return true;
}

bool VEKALSADevice::supportsExclusive() const { return VEKALSAName::parse(m_name).hasCard(); }

bool VEKALSADevice::setIsExclusive(bool exclusive, VEKError *error)
{
    if (!supportsExclusive()) {
        VEKError::set(error, VEKError(kDomain, unknownPropertyCode,
                                      VEKLocalizedString("Error_audioDeviceExclusive"), m_name));
        return false;
    }
    m_exclusive = exclusive;
    return true;
}

QList<VEKAudioDeviceSource> VEKALSADevice::outputSources(VEKError *error) const
{
    const QString ctl = VEKALSAName::parse(m_name).controlName();
    if (ctl.isEmpty())
        return {};
    return VEKALSAMixer::playbackSwitches(ctl, error);
}

bool VEKALSADevice::setSourceEnabled(quint32 sourceID, bool enabled, VEKError *error)
{
    const QString ctl = VEKALSAName::parse(m_name).controlName();
    if (ctl.isEmpty()) {
        VEKError::set(error, VEKError(kDomain, -ENOENT, VEKLocalizedString("Error_audioDeviceSource"),
                                      QStringLiteral("%1 has no source %2").arg(m_name).arg(sourceID)));
        return false;
    }
    return VEKALSAMixer::setPlaybackSwitch(ctl, sourceID, enabled, error);
}

std::unique_ptr<VEKAudioOutput> VEKALSADevice::createOutput()
{
    return std::make_unique<VEKALSAOutput>(outputPCMName(), sampleRate());
}
