#include "OutputPreferencesPane.h"

#include "OutputDeviceProbe.h"
#include "OutputMixerProgram.h"
#include "PreferencesSection.h"
#include "core/VEKLocalizedString.h"
#include "player/VEKSlider.h"
#include "settings/UserDefaults.h"

#include <QComboBox>
#include <QLabel>
#include <QPushButton>

#include <cmath>

namespace {
const QString kOutputDevice = QStringLiteral("outputDevice");
const QString kUID = QStringLiteral("UID");
const QString kSourceID = QStringLiteral("sourceID");

bool sameEntry(const QVariantMap &a, const QVariantMap &b)
{
    return a.value(kUID).toString() == b.value(kUID).toString()
           && a.contains(kSourceID) == b.contains(kSourceID)
           && a.value(kSourceID).toULongLong() == b.value(kSourceID).toULongLong();
}
} // namespace

OutputPreferencesPane::OutputPreferencesPane(UserDefaults &defaults, OutputDeviceProbe *probe,
                                             QWidget *parent)
    : PreferencesPane(defaults, parent), m_probe(probe)
{
    PreferencesSection *device = addSection(QStringLiteral("Device"));
    m_devices = makePopup(QStringLiteral("outputDevicesPopup"), QStringLiteral("Output device"));
    m_devices->setMinimumWidth(300);
    m_configure = new QPushButton(VEKLocalizedString("OutputPreferencesPane_configure"), this);
    m_configure->setObjectName(QStringLiteral("configureButton"));
    device->addRow(QStringLiteral("Play through"), {m_devices, m_configure},
                   QStringLiteral("Devices named after a card can be used exclusively (Advanced). "
                                  "Configure opens the device's mixer."));
    m_rates = makePopup(QStringLiteral("sampleRatesPopup"), QStringLiteral("Device sample rate"));
    device->addRow(
        QStringLiteral("Sample rate"), m_rates,
        QStringLiteral("Match song sets the device to each song's own rate, so nothing is converted."));

    PreferencesSection *converter = addSection(QStringLiteral("Sample-rate converter"));
    m_convertorType = makePopup(QStringLiteral("outputConvertorTypePopup"), QStringLiteral("Converter"));
    addTaggedItem(m_convertorType, QStringLiteral("High quality"), 0);
    addTaggedItem(m_convertorType, QStringLiteral("Tunable (see Advanced)"), 1);
    addTaggedItem(m_convertorType, QStringLiteral("Fast"), 2);
    addTaggedItem(m_convertorType, QStringLiteral("Mastering"), 3);
    converter->addRow(QStringLiteral("Converter"), m_convertorType);
    m_quality = new VEKSlider(Qt::Horizontal, this);
    m_quality->setObjectName(QStringLiteral("outputConvertorQualitySlider"));
    m_quality->setValueRange(0.0, 1.0, 100);
    auto *low = new QLabel(QStringLiteral("Faster"), this);
    auto *high = new QLabel(QStringLiteral("Better"), this);
    low->setObjectName(QStringLiteral("PreferencesNote"));
    high->setObjectName(QStringLiteral("PreferencesNote"));
    m_quality->setAccessibleName(QStringLiteral("Converter quality"));
    converter->addRow(QStringLiteral("Quality"), {low, m_quality, high},
                      QStringLiteral("Also sets the tunable converter's steepness, and its cutoff and "
                                     "pre-ringing back to their defaults."));

    // What the audio goes through now: a view of its own, set from outside.
    m_signalPath = addSection(QStringLiteral("Signal path"));
    m_signalPath->hide();
    finishLayout();

    connect(m_devices, &QComboBox::activated, this, &OutputPreferencesPane::deviceChosen);
    connect(m_rates, &QComboBox::activated, this,
            [this] { this->defaults().setValue(QStringLiteral("sampleRate"), selectedTag(m_rates)); });
    connect(m_convertorType, &QComboBox::activated, this, [this] {
        this->defaults().setValue(QStringLiteral("convertorType"), selectedTag(m_convertorType));
    });
    connect(m_quality, &VEKSlider::edited, this, &OutputPreferencesPane::qualityChanged);
    connect(m_configure, &QPushButton::clicked, this,
            [this] { OutputMixerProgram::launch(m_probe->devices().mixerCommand); });
    connect(m_probe, &OutputDeviceProbe::changed, this, [this] {
        updateDevicesPopup();
        updateSampleRatesPopup();
        updateControls();
    });
    updateDevicesPopup();
    updateSampleRatesPopup();
}

QString OutputPreferencesPane::title() const
{
    return QStringLiteral("Output");
}

QString OutputPreferencesPane::subtitle() const
{
    return QStringLiteral("Where the sound goes, and at what rate it gets there.");
}

float OutputPreferencesPane::qualitySteepness(float quality)
{
    return float(std::lround(double(std::pow(quality, 1.5f)) * 150.0));
}

void OutputPreferencesPane::paneWillBecomeFront()
{
    m_probe->refresh();
    updateControls();
}

void OutputPreferencesPane::updateDevicesPopup()
{
    m_devices->clear();
    for (const OutputDevices::Device &device : m_probe->devices().devices) {
        // A device with several outputs is chosen by output.
        if (device.sources.size() >= 2) {
            for (const VEKAudioDeviceSource &source : device.sources)
                m_devices->addItem(source.title,
                                   QVariantMap{{kUID, device.uid}, {kSourceID, qulonglong(source.sourceID)}});
        } else {
            m_devices->addItem(device.title, QVariantMap{{kUID, device.uid}});
        }
    }
}

void OutputPreferencesPane::updateSampleRatesPopup()
{
    m_rates->clear();
    addTaggedItem(m_rates, VEKLocalizedString("OutputPreferencesPane_dontChange"), 0);
    m_rates->insertSeparator(m_rates->count());
    for (double rate : m_probe->devices().currentRates)
        addTaggedItem(m_rates, QString::asprintf("%.0f Hz", rate), qint64(rate));
    m_rates->insertSeparator(m_rates->count());
    addTaggedItem(m_rates, VEKLocalizedString("OutputPreferencesPane_matchSong"), -1);
}

void OutputPreferencesPane::updateControls()
{
    const OutputDevices &devices = m_probe->devices();
    QVariantMap wanted{{kUID, devices.currentUID}};
    if (const OutputDevices::Device *device = devices.device(devices.currentUID);
        device && device->sources.size() >= 2) {
        for (const VEKAudioDeviceSource &source : device->sources)
            if (source.enabled)
                wanted.insert(kSourceID, qulonglong(source.sourceID));
    }
    int index = -1;
    for (int i = 0; i < m_devices->count(); ++i)
        if (sameEntry(m_devices->itemData(i).toMap(), wanted))
            index = i;
    m_devices->setCurrentIndex(index);
    m_configure->setEnabled(!devices.mixerCommand.isEmpty());
    selectTag(m_rates, defaults().integerForKey(QStringLiteral("sampleRate")));
    selectTag(m_convertorType, defaults().integerForKey(QStringLiteral("convertorType")));
    m_quality->setDoubleValue(defaults().doubleForKey(QStringLiteral("convertorQuality")));
}

void OutputPreferencesPane::deviceChosen()
{
    const QVariantMap entry = m_devices->currentData().toMap();
    if (entry.isEmpty())
        return;
    QVariantMap record{{kUID, entry.value(kUID)}};
    if (entry.contains(kSourceID))
        record.insert(kSourceID, entry.value(kSourceID));
    defaults().setValue(kOutputDevice, record);
    // The stream moves to the device as it sees the setting; the probe then brings its rates.
    m_probe->refresh();
}

void OutputPreferencesPane::qualityChanged(double value)
{
    const float q = float(value);
    defaults().setValue(QStringLiteral("convertorQuality"), q);
    defaults().setValue(QStringLiteral("resamplerFilterSteepness"), qualitySteepness(q));
    defaults().setValue(QStringLiteral("resamplerCutoffScaling"), 1.0f);
    defaults().setValue(QStringLiteral("resamplerPreringing"), 1.0f);
}

void OutputPreferencesPane::setSignalPathView(QWidget *view)
{
    m_signalPath->addWide(view);
    m_signalPath->show();
}
