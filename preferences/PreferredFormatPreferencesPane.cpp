#include "PreferredFormatPreferencesPane.h"

#include "PreferencesSection.h"
#include "core/VEKLocalizedString.h"
#include "player/VEKSlider.h"
#include "settings/UserDefaults.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QStandardItemModel>

namespace {
const QString kRecord = QStringLiteral("preferredFormat");
const QString kFormat = QStringLiteral("format");
const QString kSampleRate = QStringLiteral("sampleRate");
const QString kBitRange = QStringLiteral("bitRange");
const QString kBitRate = QStringLiteral("bitRate");
const QString kQuality = QStringLiteral("quality");

constexpr int kAAC = 3;
constexpr int kVorbis = 5;
constexpr int kFLAC = 6;

bool isHighRate(qint64 tag)
{
    return tag == 88200 || tag == 96000 || tag == 176400 || tag == 192000;
}

// The bit popup's depths by format; AAC and Vorbis have their own items.
QList<int> depths(int format)
{
    switch (format) {
    case 4: return {16, 20, 24, 32};
    case kFLAC: return {16, 20, 24};
    default: return {16, 24, 32};
    }
}
} // namespace

PreferredFormatPreferencesPane::PreferredFormatPreferencesPane(UserDefaults &defaults, QWidget *parent)
    : PreferencesPane(defaults, parent)
{
    PreferencesSection *format = addSection(QStringLiteral("Converted songs"));
    m_format = makePopup(QStringLiteral("formatPopup"), QStringLiteral("Format"));
    for (const char *name : {"AIFF", "WAVE", "CAF", "AAC", "Apple Lossless", "Ogg Vorbis", "FLAC"})
        m_format->addItem(QString::fromLatin1(name));
    format->addRow(QStringLiteral("Format"), m_format);
    m_sampleRate = makePopup(QStringLiteral("sampleRatePopup"), QStringLiteral("Sample rate"));
    addTaggedItem(m_sampleRate, QStringLiteral("Same as the song"), 0);
    m_sampleRate->insertSeparator(1);
    for (int rate : {32000, 44100, 48000, 88200, 96000, 176400, 192000})
        addTaggedItem(m_sampleRate, QStringLiteral("%1 Hz").arg(rate), rate);
    format->addRow(QStringLiteral("Sample rate"), m_sampleRate);
    m_bits = makePopup(QStringLiteral("bitPopup"), QStringLiteral("Bits"));
    m_bitLabel = format->addRow(VEKLocalizedString("PreferredFormatPreferencesPane_bitRange"), m_bits);
    m_slider = new VEKSlider(Qt::Horizontal, this);
    m_slider->setObjectName(QStringLiteral("slider"));
    m_slider->setValueRange(0.0, 1.0, 100);
    m_sliderMinimum = new QLabel(VEKLocalizedString("PreferredFormatPreferencesPane_worse"), this);
    m_sliderMaximum = new QLabel(VEKLocalizedString("PreferredFormatPreferencesPane_better"), this);
    m_sliderMinimum->setObjectName(QStringLiteral("PreferencesNote"));
    m_sliderMaximum->setObjectName(QStringLiteral("PreferencesNote"));
    m_slider->setAccessibleName(QStringLiteral("Quality"));
    m_sliderLabel =
        format->addRow(VEKLocalizedString("PreferredFormatPreferencesPane_quality"),
                       {m_sliderMinimum, m_slider, m_sliderMaximum},
                       QStringLiteral("Vorbis's quality and FLAC's compression share this one value."));

    PreferencesSection *adding = addSection(QStringLiteral("Adding songs"));
    m_createPreferred = new QCheckBox(QStringLiteral("Convert songs to this format as they are added"), this);
    m_createPreferred->setObjectName(QStringLiteral("createPreferredButton"));
    adding->addRow(
        QString(), m_createPreferred,
        QStringLiteral("The converted copy is made beside the original, which stays in the library."));
    finishLayout();

    connect(m_format, &QComboBox::activated, this, [this](int index) {
        QVariantMap record = this->defaults().dictionaryForKey(kRecord);
        record.insert(kFormat, index);
        // The rate and bits of one format need not exist in another.
        record.remove(kSampleRate);
        record.remove(kBitRange);
        record.remove(kBitRate);
        storeRecord(record);
        updateControls();
    });
    connect(m_sampleRate, &QComboBox::activated, this, [this] {
        QVariantMap record = this->defaults().dictionaryForKey(kRecord);
        record.insert(kSampleRate, selectedTag(m_sampleRate));
        storeRecord(record);
    });
    connect(m_bits, &QComboBox::activated, this, [this] {
        QVariantMap record = this->defaults().dictionaryForKey(kRecord);
        record.insert(record.value(kFormat).toLongLong() == kAAC ? kBitRate : kBitRange, selectedTag(m_bits));
        storeRecord(record);
    });
    connect(m_slider, &VEKSlider::edited, this, [this](double value) {
        QVariantMap record = this->defaults().dictionaryForKey(kRecord);
        record.insert(kQuality, float(value));
        storeRecord(record);
    });
    connect(m_createPreferred, &QCheckBox::clicked, this,
            [this](bool on) { this->defaults().setValue(QStringLiteral("createPreferredOnAdd"), on); });
}

QString PreferredFormatPreferencesPane::subtitle() const
{
    return QStringLiteral("What songs are converted to, when you convert them or as they are added.");
}

void PreferredFormatPreferencesPane::storeRecord(const QVariantMap &record)
{
    defaults().setValue(kRecord, record);
}

void PreferredFormatPreferencesPane::updateControls()
{
    const QVariantMap record = defaults().dictionaryForKey(kRecord);
    const qint64 format = record.value(kFormat).toLongLong();
    m_format->setCurrentIndex(format >= 0 && format < m_format->count() ? int(format) : -1);
    selectTag(m_sampleRate, record.value(kSampleRate).toLongLong());
    m_createPreferred->setChecked(defaults().boolForKey(QStringLiteral("createPreferredOnAdd")));
    // A format this version does not know leaves the rest as it stood.
    if (format < 0 || format > kFLAC)
        return;

    auto *rates = qobject_cast<QStandardItemModel *>(m_sampleRate->model());
    for (int i = 0; rates && i < m_sampleRate->count(); ++i)
        if (isHighRate(m_sampleRate->itemData(i).toLongLong()))
            rates->item(i)->setEnabled(format != kAAC);

    m_bits->clear();
    if (format == kVorbis) {
        m_bits->addItem(VEKLocalizedString("PreferredFormatPreferencesPane_notApplicable"));
        m_bits->setEnabled(false);
    } else if (format == kAAC) {
        m_bitLabel->setText(VEKLocalizedString("PreferredFormatPreferencesPane_bitRate"));
        for (int kbps : {128, 160, 192, 224, 256, 320})
            addTaggedItem(m_bits, QStringLiteral("%1 kbps").arg(kbps), kbps * 1000);
        m_bits->setEnabled(true);
        selectTag(m_bits, record.value(kBitRate).toLongLong());
    } else {
        m_bitLabel->setText(VEKLocalizedString("PreferredFormatPreferencesPane_bitRange"));
        addTaggedItem(m_bits, VEKLocalizedString("PreferredFormatPreferencesPane_noPreference"), 0);
        m_bits->insertSeparator(1);
        for (int bits : depths(int(format)))
            addTaggedItem(m_bits, QStringLiteral("%1-bit").arg(bits), bits);
        m_bits->setEnabled(true);
        selectTag(m_bits, record.value(kBitRange).toLongLong());
    }

    const bool slider = format == kVorbis || format == kFLAC;
    m_slider->setEnabled(slider);
    if (slider) {
        const bool vorbis = format == kVorbis;
        m_sliderLabel->setText(VEKLocalizedString(vorbis ? "PreferredFormatPreferencesPane_quality"
                                                         : "PreferredFormatPreferencesPane_compression"));
        m_sliderMinimum->setText(VEKLocalizedString(vorbis ? "PreferredFormatPreferencesPane_worse"
                                                           : "PreferredFormatPreferencesPane_less"));
        m_sliderMaximum->setText(VEKLocalizedString(vorbis ? "PreferredFormatPreferencesPane_better"
                                                           : "PreferredFormatPreferencesPane_more"));
        m_slider->setDoubleValue(record.value(kQuality).toDouble());
    }
    for (QLabel *label : {m_sliderLabel, m_sliderMinimum, m_sliderMaximum})
        label->setEnabled(slider);
}
