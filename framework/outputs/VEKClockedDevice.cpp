#include "VEKClockedDevice.h"

#include "core/VEKLocalizedString.h"

#include <cerrno>

namespace {
const QString kDomain = QStringLiteral("VEKAudioDevice");
}

VEKClockedDevice::VEKClockedDevice(QString uid) : m_uid(std::move(uid)), m_deviceID(idForUID(m_uid)) {}

QString VEKClockedDevice::UID(VEKError *) const { return m_uid; }

double VEKClockedDevice::sampleRate(VEKError *) const { return m_rate; }

QList<double> VEKClockedDevice::availableSampleRates(VEKError *) const { return commonSampleRates(); }

bool VEKClockedDevice::setSampleRate(double rate, VEKError *error)
{
    if (!commonSampleRates().contains(rate)) {
        VEKError::set(error, VEKError(kDomain, -EINVAL, VEKLocalizedString("Error_audioDeviceRate"),
                                      QStringLiteral("%1 Hz").arg(rate)));
        return false;
    }
    if (rate != m_rate) {
        m_rate = rate;
        emit VEKAudioDeviceMonitor::shared().sampleRateChanged(m_uid, rate);
    }
    return true;
}

bool VEKClockedDevice::setIsExclusive(bool, VEKError *error)
{
    VEKError::set(error, VEKError(kDomain, unknownPropertyCode, VEKLocalizedString("Error_audioDeviceExclusive"), m_uid));
    return false;
}

QList<VEKAudioDeviceSource> VEKClockedDevice::outputSources(VEKError *) const { return {}; }

bool VEKClockedDevice::setSourceEnabled(quint32 sourceID, bool, VEKError *error)
{
    VEKError::set(error, VEKError(kDomain, -ENOENT, VEKLocalizedString("Error_audioDeviceSource"),
                                  QStringLiteral("%1 has no source %2").arg(m_uid).arg(sourceID)));
    return false;
}
