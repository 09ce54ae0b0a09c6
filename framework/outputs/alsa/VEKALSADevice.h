#pragma once

#include "outputs/VEKAudioDevice.h"

#include <QHash>

// An ALSA PCM as a device; its UID is the PCM name. What the device offers is learnt by opening
// the PCM and testing hardware parameters, with ALSA's resampling off, so the rates listed are
// the ones that reach the hardware (or the sound server) unchanged. Results are kept until a card
// comes or goes, which also lets a device that is busy with our own output still answer.
//
// Exclusive use opens the card's hw device ("hw:CARD=X,DEV=n") instead of the PCM: no dmix, no
// plug conversion. Only PCMs that name a card have it; "default", "pipewire", "pulse" and
// configuration-defined PCMs answer 'who?'.
class VEKALSADevice final : public VEKAudioDevice {
public:
    struct Hint {
        QString name;
        QString description; // lines joined with " — "
        bool output = true;  // not an input-only PCM
    };
    // ALSA's hinted PCMs, of every card and of the configuration, in ALSA's order.
    static QList<Hint> hints(VEKError *error = nullptr);

    explicit VEKALSADevice(QString pcmName);

    // The title from a hint already at hand (spares a second walk over the hints).
    void setHint(const Hint &hint);

    // The PCM opens, or is busy.
    bool isValid() const override;
    bool hasPhysicalOutputs() const override;
    QString UID(VEKError *error = nullptr) const override;
    qint64 deviceID() const override { return m_deviceID; }
    // The hint's description, else the PCM name.
    QString title(VEKError *error = nullptr) const override;
    double sampleRate(VEKError *error = nullptr) const override;
    QList<double> availableSampleRates(VEKError *error = nullptr) const override;
    bool setSampleRate(double rate, VEKError *error = nullptr) override;
    bool setIsExclusive(bool exclusive, VEKError *error = nullptr) override;
    bool isExclusive() const override { return m_exclusive; }
    bool supportsExclusive() const override;
    // The playback switches of the card's mixer; empty for a PCM without a card.
    QList<VEKAudioDeviceSource> outputSources(VEKError *error = nullptr) const override;
    bool setSourceEnabled(quint32 sourceID, bool enabled, VEKError *error = nullptr) override;
    std::unique_ptr<VEKAudioOutput> createOutput() override;

    // The PCM the next output opens: the UID, or with exclusive use the card's hw device.
    QString outputPCMName() const;

protected:
    void forgetProbedFacts() override;

private:
    struct Probe {
        QList<double> rates;
        int status = 0;       // ALSA status of opening
        int hwDevice = -1;    // the hw device underneath, when ALSA tells
    };
    // Successful probes are kept; failures are asked again next time.
    Probe probe(const QString &pcm) const;
    const Hint *findHint() const;

    const QString m_name;
    const qint64 m_deviceID;
    double m_rate = 0.0;
    bool m_exclusive = false;
    mutable QHash<QString, Probe> m_probes;
    mutable bool m_hintLooked = false;
    mutable Hint m_hint;
};
