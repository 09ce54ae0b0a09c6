#include "AdvancedPreferencesPane.h"

#include "OutputDeviceProbe.h"
#include "PreferencesSection.h"
#include "audio/Stream.h"
#include "player/VEKSlider.h"
#include "settings/UserDefaults.h"
#include "settings/VEKPropertyList.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDir>
#include <QFileInfo>
#include <QLabel>

namespace {
const QString kDither = QStringLiteral("ditherProperties");
const QString kSteepness = QStringLiteral("resamplerFilterSteepness");
const QString kCutoff = QStringLiteral("resamplerCutoffScaling");
const QString kPreringing = QStringLiteral("resamplerPreringing");
const QString kPresets = QStringLiteral(":/Resampler Presets");

QCheckBox *makeCheck(QWidget *parent, const char *name, const QString &text)
{
    auto *box = new QCheckBox(text, parent);
    box->setObjectName(QString::fromLatin1(name));
    return box;
}
} // namespace

AdvancedPreferencesPane::AdvancedPreferencesPane(UserDefaults &defaults, OutputDeviceProbe *probe,
                                                 Stream *stream, QWidget *parent)
    : PreferencesPane(defaults, parent), m_probe(probe), m_stream(stream)
{
    PreferencesSection *device = addSection(QStringLiteral("Device and files"));
    m_exclusive = makeCheck(this, "exclusiveButton", QStringLiteral("Use the device exclusively"));
    device->addRow(QString(), m_exclusive,
                   QStringLiteral("Nothing else can play meanwhile, and nothing between us and the card "
                                  "mixes or converts. Shows what the device in use reports."));
    m_loadIntoMemory = makeCheck(this, "loadIntoMemoryButton", QStringLiteral("Load each song into memory"));
    device->addRow(QString(), m_loadIntoMemory,
                   QStringLiteral("From the next song on, the disk can sleep while it plays."));

    PreferencesSection *dither = addSection(QStringLiteral("Dither"));
    m_shape = makePopup(QStringLiteral("shapePopup"), QStringLiteral("Noise shape"));
    dither->addRow(QStringLiteral("Noise shape"), m_shape);
    m_amount = makePopup(QStringLiteral("amountPopup"), QStringLiteral("Amount"));
    for (const char *amount : {"0.5 LSB", "0.75 LSB", "1 LSB", "1.25 LSB", "1.5 LSB"})
        m_amount->addItem(QString::fromLatin1(amount));
    dither->addRow(QStringLiteral("Amount (shaped)"), m_amount);
    m_numberOfBits = makePopup(QStringLiteral("numberOfBitsPopup"), QStringLiteral("Bits of dither"));
    // The stored 0 of the defaults stands for no choice yet.
    m_numberOfBits->setPlaceholderText(QStringLiteral("Not chosen"));
    for (int bits = 1; bits <= 4; ++bits)
        m_numberOfBits->addItem(bits == 1 ? QStringLiteral("1 bit") : QStringLiteral("%1 bits").arg(bits));
    dither->addRow(QStringLiteral("Bits of dither (basic)"), m_numberOfBits);
    m_autoBlanking = makeCheck(this, "autoBlankingButton", QStringLiteral("Digital silence stays silent"));
    m_minimizePeaks = makeCheck(this, "minimizePeaksButton", QStringLiteral("Keep the peaks low"));
    m_silenceHarmonics = makeCheck(this, "silenceHarmonicsButton", QStringLiteral("Suppress harmonics"));
    dither->addRow(QString(), m_autoBlanking);
    dither->addRow(QString(), m_minimizePeaks);
    dither->addRow(QString(), m_silenceHarmonics);

    PreferencesSection *converter = addSection(QStringLiteral("Tunable converter"));
    m_presets = makePopup(QStringLiteral("presetsPopup"), QStringLiteral("Preset"));
    m_presets->setPlaceholderText(QStringLiteral("Choose a preset"));
    const QFileInfoList files =
        QDir(kPresets).entryInfoList({QStringLiteral("*.plist")}, QDir::Files, QDir::Name);
    for (const QFileInfo &file : files)
        m_presets->addItem(file.completeBaseName(), VEKPropertyList::readFile(file.filePath()));
    m_presets->setCurrentIndex(-1);
    converter->addRow(QStringLiteral("Preset"), m_presets);
    m_steepness = makeSlider("filterSteepnessSlider", QStringLiteral("Filter steepness"), 0.0, 300.0, 300);
    converter->addRow(QStringLiteral("Filter steepness"),
                      QList<QWidget *>{m_steepness, m_steepness->makeValueLabel(this)});
    m_cutoff = makeSlider("cutoffScalingSlider", QStringLiteral("Cutoff scaling"), 0.8, 1.2, 400);
    converter->addRow(QStringLiteral("Cutoff scaling"),
                      QList<QWidget *>{m_cutoff, m_cutoff->makeValueLabel(this)});
    m_preringing = makeSlider("preringingSlider", QStringLiteral("Pre-ringing"), 0.0, 2.0, 200);
    converter->addRow(QStringLiteral("Pre-ringing"),
                      QList<QWidget *>{m_preringing, m_preringing->makeValueLabel(this)},
                      QStringLiteral("0 rings only after a transient (minimum phase), 1 evenly on both sides "
                                     "(linear phase)."));
    finishLayout();

    connect(m_exclusive, &QCheckBox::clicked, this, &AdvancedPreferencesPane::exclusiveChanged);
    connect(m_loadIntoMemory, &QCheckBox::clicked, this, [this](bool on) {
        this->defaults().setValue(QStringLiteral("loadIntoMemory"), on);
        updateControls();
    });
    connect(m_shape, &QComboBox::activated, this, [this](int index) {
        const bool shaped =
            this->defaults().dictionaryForKey(kDither).value(QStringLiteral("type")).toLongLong() == 2;
        storeDither(shaped ? QStringLiteral("mbitShape") : QStringLiteral("basicShape"), index);
    });
    connect(m_amount, &QComboBox::activated, this,
            [this](int index) { storeDither(QStringLiteral("mbitAmount"), index); });
    connect(m_numberOfBits, &QComboBox::activated, this,
            [this](int index) { storeDither(QStringLiteral("basicNumberOfBits"), index + 1); });
    connect(m_autoBlanking, &QCheckBox::clicked, this,
            [this](bool on) { storeDither(QStringLiteral("autoBlanking"), int(on)); });
    connect(m_minimizePeaks, &QCheckBox::clicked, this,
            [this](bool on) { storeDither(QStringLiteral("minimizePeaks"), int(on)); });
    connect(m_silenceHarmonics, &QCheckBox::clicked, this,
            [this](bool on) { storeDither(QStringLiteral("silenceHarmonics"), int(on)); });
    connect(m_presets, &QComboBox::activated, this, &AdvancedPreferencesPane::presetChosen);
    for (auto [slider, key] :
         {std::pair{m_steepness, kSteepness}, {m_cutoff, kCutoff}, {m_preringing, kPreringing}}) {
        connect(slider, &VEKSlider::edited, this, [this, key = key](double value) {
            this->defaults().setValue(key, float(value));
            updateControls();
        });
    }
    connect(m_probe, &OutputDeviceProbe::changed, this, &AdvancedPreferencesPane::updateControls);
}

QString AdvancedPreferencesPane::subtitle() const
{
    return QStringLiteral("Fine points of the device, the dither and the sample-rate converter.");
}

VEKSlider *AdvancedPreferencesPane::makeSlider(const char *name, const QString &accessibleName,
                                               double minimum, double maximum, int steps)
{
    auto *slider = new VEKSlider(Qt::Horizontal, this);
    slider->setObjectName(QString::fromLatin1(name));
    slider->setAccessibleName(accessibleName);
    slider->setValueRange(minimum, maximum, steps);
    slider->setTipText([this](const VEKSlider &s) { return tipTextForSlider(s); });
    return slider;
}

QString AdvancedPreferencesPane::tipTextForSlider(const VEKSlider &slider) const
{
    if (&slider == m_steepness)
        return QString::asprintf("%d", int(slider.doubleValue()));
    if (&slider == m_cutoff || &slider == m_preringing)
        return QString::asprintf("%.2f", slider.doubleValue());
    return {};
}

void AdvancedPreferencesPane::paneWillBecomeFront()
{
    const qint64 type = defaults().dictionaryForKey(kDither).value(QStringLiteral("type")).toLongLong();
    const bool shaped = type >= 2;
    m_shape->clear();
    const QStringList shapes =
        shaped ? QStringList{QStringLiteral("None"), QStringLiteral("Light"), QStringLiteral("Medium"),
                             QStringLiteral("High"), QStringLiteral("Ultra")}
               : QStringList{QStringLiteral("None"), QStringLiteral("Simple"), QStringLiteral("Clear"),
                             QStringLiteral("Psych5"), QStringLiteral("Psych9")};
    m_shape->addItems(shapes);
    m_numberOfBits->setEnabled(!shaped);
    m_amount->setEnabled(shaped);
    updateControls();
}

void AdvancedPreferencesPane::updateControls()
{
    const int exclusivity = m_probe->devices().exclusivity();
    m_exclusive->setEnabled(exclusivity != 3);
    m_exclusive->setChecked(exclusivity == 2);
    m_loadIntoMemory->setChecked(defaults().boolForKey(QStringLiteral("loadIntoMemory")));
    const QVariantMap dither = defaults().dictionaryForKey(kDither);
    const auto index = [&dither](const char *key) {
        return int(dither.value(QString::fromLatin1(key)).toLongLong());
    };
    const bool shaped = index("type") > 1;
    m_shape->setCurrentIndex(
        std::clamp(index(shaped ? "mbitShape" : "basicShape"), -1, int(m_shape->count()) - 1));
    m_amount->setCurrentIndex(std::clamp(index("mbitAmount"), -1, int(m_amount->count()) - 1));
    m_numberOfBits->setCurrentIndex(
        std::clamp(index("basicNumberOfBits") - 1, -1, int(m_numberOfBits->count()) - 1));
    m_autoBlanking->setChecked(index("autoBlanking"));
    m_minimizePeaks->setChecked(index("minimizePeaks"));
    m_silenceHarmonics->setChecked(index("silenceHarmonics"));
    m_steepness->setDoubleValue(defaults().doubleForKey(kSteepness));
    m_cutoff->setDoubleValue(defaults().doubleForKey(kCutoff));
    m_preringing->setDoubleValue(defaults().doubleForKey(kPreringing));
}

void AdvancedPreferencesPane::storeDither(const QString &key, const QVariant &value)
{
    storeEntry(kDither, key, value);
    updateControls();
}

void AdvancedPreferencesPane::exclusiveChanged(bool on)
{
    defaults().setValue(QStringLiteral("isExclusive"), on);
    if (m_stream) {
        if (VEKAudioDevicePtr device = m_stream->outputDevice()) {
            VEKError error;
            if (!device->setIsExclusive(on, &error))
                error.alert();
            m_probe->setExclusive(device->isExclusive());
        }
    }
    updateControls();
}

void AdvancedPreferencesPane::presetChosen(int index)
{
    // An unreadable preset is an empty record, whose values read as 0.
    const QVariantMap preset = m_presets->itemData(index).toMap();
    defaults().setValue(kSteepness, preset.value(QStringLiteral("filterSteepness")).toFloat());
    defaults().setValue(kCutoff, preset.value(QStringLiteral("cutoffScaling")).toFloat());
    defaults().setValue(kPreringing, preset.value(QStringLiteral("preringing")).toFloat());
    updateControls();
}
