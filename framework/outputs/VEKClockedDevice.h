#pragma once

#include "VEKAudioDevice.h"

// What the software devices (null, capture) share: any of the common rates, 44100 until told
// otherwise, no exclusive use ('who?'), no sources.
class VEKClockedDevice : public VEKAudioDevice {
public:
    bool hasPhysicalOutputs() const override { return isValid(); }
    QString UID(VEKError *error = nullptr) const override;
    qint64 deviceID() const override { return m_deviceID; }
    double sampleRate(VEKError *error = nullptr) const override;
    QList<double> availableSampleRates(VEKError *error = nullptr) const override;
    bool setSampleRate(double rate, VEKError *error = nullptr) override;
    bool setIsExclusive(bool exclusive, VEKError *error = nullptr) override;
    bool isExclusive() const override { return false; }
    bool supportsExclusive() const override { return false; }
    QList<VEKAudioDeviceSource> outputSources(VEKError *error = nullptr) const override;
    bool setSourceEnabled(quint32 sourceID, bool enabled, VEKError *error = nullptr) override;

protected:
    explicit VEKClockedDevice(QString uid);

    const QString m_uid;

private:
    const qint64 m_deviceID;
    double m_rate = 44100.0;
};
