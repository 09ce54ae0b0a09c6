#include "VEKAudioDevice.h"

#include "alsa/VEKALSADevice.h"
#include "capture/VEKCaptureDevice.h"
#include "null/VEKNullDevice.h"

#include <QHash>
#include <QMutex>

namespace {

// Live devices by UID, so every holder of a UID shares one object and its rate and exclusivity.
// Numbers by UID for the whole run, so a device that is dropped and made again keeps its number.
struct Registry {
    QMutex mutex;
    QHash<QString, std::weak_ptr<VEKAudioDevice>> devices;
    QHash<QString, qint64> ids;
    QHash<qint64, QString> uids;
};

Registry &registry()
{
    static Registry r;
    return r;
}

VEKAudioDevicePtr makeDevice(const QString &uid)
{
    if (uid == QLatin1String(VEKNullDevice::uid))
        return std::make_shared<VEKNullDevice>();
    if (uid.startsWith(QLatin1String(VEKCaptureDevice::prefix)))
        return std::make_shared<VEKCaptureDevice>(uid);
    return std::make_shared<VEKALSADevice>(uid);
}

} // namespace

VEKAudioDevicePtr VEKAudioDevice::deviceWithUID(const QString &uid)
{
    Registry &r = registry();
    {
        QMutexLocker lock(&r.mutex);
        if (VEKAudioDevicePtr device = r.devices.value(uid).lock())
            return device;
    }
    // Made outside the lock: a device asks for its number while it is made.
    VEKAudioDevicePtr device = makeDevice(uid);
    QMutexLocker lock(&r.mutex);
    if (VEKAudioDevicePtr other = r.devices.value(uid).lock())
        return other; // another thread was quicker
    r.devices.insert(uid, device);
    return device;
}

VEKAudioDevicePtr VEKAudioDevice::deviceWithID(qint64 deviceID)
{
    QString uid;
    {
        QMutexLocker lock(&registry().mutex);
        uid = registry().uids.value(deviceID);
    }
    // An empty UID names no PCM: an invalid device.
    return deviceWithUID(uid);
}

qint64 VEKAudioDevice::idForUID(const QString &uid)
{
    Registry &r = registry();
    QMutexLocker lock(&r.mutex);
    if (const auto it = r.ids.constFind(uid); it != r.ids.cend())
        return *it;
    const qint64 id = r.ids.size() + 1;
    r.ids.insert(uid, id);
    r.uids.insert(id, uid);
    return id;
}

VEKAudioDevicePtr VEKAudioDevice::defaultOutputDevice(VEKError *)
{
    VEKAudioDevicePtr device = deviceWithUID(QStringLiteral("default"));
    if (device->isValid())
        return device;
    return deviceWithUID(QString::fromLatin1(VEKNullDevice::uid));
}

QList<VEKAudioDevicePtr> VEKAudioDevice::outputDevices(VEKError *error)
{
    QList<VEKAudioDevicePtr> list;
    for (const VEKALSADevice::Hint &hint : VEKALSADevice::hints(error)) {
        // ALSA's own "null" consumes instantly; ours keeps time and stands in its place.
        if (!hint.output || hint.name == QLatin1String(VEKNullDevice::uid))
            continue;
        VEKAudioDevicePtr device = deviceWithUID(hint.name);
        if (auto *alsa = dynamic_cast<VEKALSADevice *>(device.get()))
            alsa->setHint(hint);
        list.append(device);
    }
    list.append(deviceWithUID(QString::fromLatin1(VEKNullDevice::uid)));
    return list;
}

const QList<double> &VEKAudioDevice::commonSampleRates()
{
    static const QList<double> rates = {8000,   11025,  12000,  16000,  22050,  24000,  32000,
                                        44100,  48000,  64000,  88200,  96000,  128000, 176400,
                                        192000, 352800, 384000, 705600, 768000};
    return rates;
}

void VEKAudioDevice::forgetProbedFactsOfAllDevices()
{
    QList<VEKAudioDevicePtr> live;
    {
        QMutexLocker lock(&registry().mutex);
        for (const auto &weak : std::as_const(registry().devices)) {
            if (VEKAudioDevicePtr d = weak.lock())
                live.append(d);
        }
    }
    for (const VEKAudioDevicePtr &d : live)
        d->forgetProbedFacts();
}
