#include "OutputDeviceProbe.h"

#include "OutputMixerProgram.h"
#include "audio/Stream.h"
#include "outputs/VEKAudioDeviceMonitor.h"
#include "outputs/alsa/VEKALSADevice.h"
#include "outputs/null/VEKNullDevice.h"
#include "settings/UserDefaults.h"

#include <QCoreApplication>
#include <QThread>
#include <utility>

OutputDeviceProbe::OutputDeviceProbe(Stream *stream, bool probing, QObject *parent)
    : QObject(parent), m_stream(stream), m_probing(probing)
{
    if (!m_probing)
        return;
    connect(&VEKAudioDeviceMonitor::shared(), &VEKAudioDeviceMonitor::devicesChanged, this,
            &OutputDeviceProbe::refresh);
    if (m_stream)
        connect(m_stream, &Stream::outputDeviceChanged, this, &OutputDeviceProbe::refresh);
}

OutputDeviceProbe::~OutputDeviceProbe() = default;

void OutputDeviceProbe::setDevices(const OutputDevices &devices)
{
    m_devices = devices;
    emit changed();
}

QString OutputDeviceProbe::currentUID() const
{
    if (m_stream) {
        if (VEKAudioDevicePtr device = m_stream->outputDevice())
            return device->UID();
    }
    return UserDefaults::standard()
        .dictionaryForKey(QStringLiteral("outputDevice"))
        .value(QStringLiteral("UID"))
        .toString();
}

void OutputDeviceProbe::activate()
{
    if (std::exchange(m_active, true))
        return;
    refresh();
}

void OutputDeviceProbe::refresh()
{
    if (!m_probing || !m_active)
        return;
    if (m_running) {
        m_again = true;
        return;
    }
    m_running = true;
    QPointer<OutputDeviceProbe> self(this);
    const QString uid = currentUID();
    QThread *thread = QThread::create([self, uid] {
        OutputDevices devices = probe(uid);
        QMetaObject::invokeMethod(
            qApp,
            [self, devices] {
                if (self)
                    self->finished(devices);
            },
            Qt::QueuedConnection);
    });
    thread->setObjectName(QStringLiteral("Device probe"));
    connect(thread, &QThread::finished, thread, &QObject::deleteLater);
    thread->start(QThread::LowPriority);
}

void OutputDeviceProbe::finished(OutputDevices devices)
{
    m_running = false;
    // What only the stream's own device object knows: whether it is in exclusive use, and, when
    // our output holds the hardware so a second opening fails, the rates it learnt on opening.
    if (m_stream) {
        if (VEKAudioDevicePtr device = m_stream->outputDevice();
            device && device->UID() == devices.currentUID) {
            devices.exclusiveSupported = device->supportsExclusive();
            devices.exclusive = device->isExclusive();
            if (devices.currentRates.isEmpty())
                devices.currentRates = device->availableSampleRates();
        }
    }
    m_devices = devices;
    emit changed();
    if (std::exchange(m_again, false))
        refresh();
}

void OutputDeviceProbe::setExclusive(bool exclusive)
{
    m_devices.exclusive = exclusive && m_devices.exclusiveSupported;
    emit changed();
}

OutputDevices OutputDeviceProbe::probe(const QString &currentUID)
{
    OutputDevices result;
    result.currentUID = currentUID;
    // Objects of our own, not the shared ones of the registry, which belong to the main thread.
    for (const VEKALSADevice::Hint &hint : VEKALSADevice::hints()) {
        if (!hint.output || hint.name == QLatin1String(VEKNullDevice::uid))
            continue;
        VEKALSADevice device(hint.name);
        device.setHint(hint);
        OutputDevices::Device entry{hint.name, device.title(), device.outputSources()};
        if (hint.name == currentUID) {
            result.currentRates = device.availableSampleRates();
            result.exclusiveSupported = device.supportsExclusive();
        }
        result.devices.append(entry);
    }
    VEKNullDevice null;
    result.devices.append({QString::fromLatin1(VEKNullDevice::uid), null.title(), {}});
    if (currentUID == QLatin1String(VEKNullDevice::uid) || currentUID.startsWith(QLatin1String("capture:"))) {
        result.currentRates = VEKAudioDevice::commonSampleRates();
    } else if (!currentUID.isEmpty() && !result.device(currentUID)) {
        // A PCM of the configuration that ALSA does not hint.
        VEKALSADevice device(currentUID);
        result.currentRates = device.availableSampleRates();
        result.exclusiveSupported = device.supportsExclusive();
    }
    result.mixerCommand = OutputMixerProgram::commandFor(currentUID);
    return result;
}
