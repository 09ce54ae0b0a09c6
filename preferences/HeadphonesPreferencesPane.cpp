#include "HeadphonesPreferencesPane.h"

#include "PreferencesSection.h"
#include "PreferencesSegments.h"
#include "player/VEKSlider.h"
#include "settings/UserDefaults.h"

#include <QCheckBox>
#include <QComboBox>
#include <QLabel>

#include <cmath>

namespace {
const QString kRecord = QStringLiteral("headphonesProcessorSettings");

double tenths(double value)
{
    return double(std::roundf(float(value) * 10.0f)) / 10.0;
}

QString gainTip(double value)
{
    if (std::fabs(double(float(value))) < 0.1)
        return QStringLiteral("0.0dB");
    return QString::asprintf("%+.1fdB", double(float(value)));
}
} // namespace

HeadphonesPreferencesPane::HeadphonesPreferencesPane(UserDefaults &defaults, QWidget *parent)
    : PreferencesPane(defaults, parent)
{
    PreferencesSection *crossfeed = addSection(QStringLiteral("Crossfeed"));
    m_enabled = new QCheckBox(QStringLiteral("Process the sound for headphones"), this);
    m_enabled->setObjectName(QStringLiteral("enabledButton"));
    crossfeed->addRow(QString(), m_enabled,
                      QStringLiteral("Each ear hears a little of the other channel, late and softened by the "
                                     "head, as from a pair of speakers."));
    m_speakerAngle = makeSlider("speakerAngleSlider", QStringLiteral("Speaker angle"), 0.0, 60.0, 60);
    crossfeed->addRow(QStringLiteral("Speaker angle"),
                      QList<QWidget *>{m_speakerAngle, m_speakerAngle->makeValueLabel(this)});
    m_crossfeedType = makePopup(QStringLiteral("crossfeedTypePopup"), QStringLiteral("Room"));
    addTaggedItem(m_crossfeedType, QStringLiteral("Natural"), 1);
    addTaggedItem(m_crossfeedType, QStringLiteral("Dense"), 2);
    addTaggedItem(m_crossfeedType, QStringLiteral("Light"), 3);
    crossfeed->addRow(QStringLiteral("Type"), m_crossfeedType);
    m_crossfeedAmount =
        makeSlider("crossfeedAmountSlider", QStringLiteral("Crossfeed amount"), 0.0, 1.5, 150);
    crossfeed->addRow(QStringLiteral("Amount"),
                      QList<QWidget *>{m_crossfeedAmount, m_crossfeedAmount->makeValueLabel(this)});
    m_crossfeedClip = new QCheckBox(QStringLiteral("Prevent clipping"), this);
    m_crossfeedClip->setObjectName(QStringLiteral("crossfeedPreventClippingButton"));
    crossfeed->addRow(QString(), m_crossfeedClip);

    PreferencesSection *tone = addSection(QStringLiteral("Tone"));
    m_trebleFrequency = makePopup(QStringLiteral("trebleFrequencyPopup"), QStringLiteral("Treble frequency"));
    for (int hz : {2500, 3500, 5000, 8000, 10000})
        addTaggedItem(m_trebleFrequency, QStringLiteral("%1 Hz").arg(hz), hz);
    m_treble = makeSlider("trebleSlider", QStringLiteral("Treble"), -6.0, 6.0, 1200);
    m_trebleFrequency->setMinimumWidth(110);
    tone->addRow(QStringLiteral("Treble"),
                 QList<QWidget *>{m_treble, m_treble->makeValueLabel(this), m_trebleFrequency});
    m_bassFrequency = makePopup(QStringLiteral("bassFrequencyPopup"), QStringLiteral("Bass frequency"));
    for (int hz : {100, 150, 250, 400, 600})
        addTaggedItem(m_bassFrequency, QStringLiteral("%1 Hz").arg(hz), hz);
    m_bass = makeSlider("bassSlider", QStringLiteral("Bass"), -6.0, 6.0, 1200);
    m_bassFrequency->setMinimumWidth(110);
    tone->addRow(QStringLiteral("Bass"),
                 QList<QWidget *>{m_bass, m_bass->makeValueLabel(this), m_bassFrequency});
    m_eqClip = new QCheckBox(QStringLiteral("Prevent clipping"), this);
    m_eqClip->setObjectName(QStringLiteral("eqPreventClippingButton"));
    tone->addRow(QString(), m_eqClip);

    PreferencesSection *channels = addSection(QStringLiteral("Channels"));
    m_mono = new QCheckBox(QStringLiteral("Mono"), this);
    m_mono->setObjectName(QStringLiteral("monoButton"));
    m_swap = new QCheckBox(QStringLiteral("Swap left and right"), this);
    m_swap->setObjectName(QStringLiteral("swapChannelsButton"));
    channels->addRow(QString(), {m_mono, m_swap});
    m_phase = new PreferencesSegments({QStringLiteral("Normal"), QStringLiteral("Inverted")}, this);
    m_phase->setObjectName(QStringLiteral("phaseControl"));
    channels->addRow(QStringLiteral("Phase"), m_phase);
    m_solo = new PreferencesSegments(
        {QStringLiteral("Both"), QStringLiteral("Left"), QStringLiteral("Right")}, this);
    m_solo->setObjectName(QStringLiteral("soloControl"));
    channels->addRow(QStringLiteral("Listen to"), m_solo);
    finishLayout();

    connect(m_enabled, &QCheckBox::clicked, this,
            [this](bool on) { store(QStringLiteral("enabled"), int(on)); });
    connect(m_speakerAngle, &VEKSlider::edited, this,
            [this](double v) { store(QStringLiteral("speakerAngle"), float(v)); });
    connect(m_crossfeedType, &QComboBox::activated, this,
            [this] { store(QStringLiteral("crossfeedType"), selectedTag(m_crossfeedType)); });
    connect(m_crossfeedAmount, &VEKSlider::edited, this,
            [this](double v) { store(QStringLiteral("crossfeedAmount"), float(v)); });
    connect(m_crossfeedClip, &QCheckBox::clicked, this,
            [this](bool on) { store(QStringLiteral("crossfeedClipProtectionEnabled"), int(on)); });
    connect(m_trebleFrequency, &QComboBox::activated, this,
            [this] { store(QStringLiteral("trebleFrequency"), selectedTag(m_trebleFrequency)); });
    connect(m_treble, &VEKSlider::edited, this,
            [this](double v) { store(QStringLiteral("treble"), tenths(v)); });
    connect(m_bassFrequency, &QComboBox::activated, this,
            [this] { store(QStringLiteral("bassFrequency"), selectedTag(m_bassFrequency)); });
    connect(m_bass, &VEKSlider::edited, this, [this](double v) { store(QStringLiteral("bass"), tenths(v)); });
    connect(m_eqClip, &QCheckBox::clicked, this,
            [this](bool on) { store(QStringLiteral("eqClipProtectionEnabled"), int(on)); });
    connect(m_mono, &QCheckBox::clicked, this, [this](bool on) { store(QStringLiteral("mono"), int(on)); });
    connect(m_swap, &QCheckBox::clicked, this,
            [this](bool on) { store(QStringLiteral("swapped"), int(on)); });
    connect(m_phase, &PreferencesSegments::segmentChosen, this,
            [this](int segment) { store(QStringLiteral("outOfPhase"), segment); });
    connect(m_solo, &PreferencesSegments::segmentChosen, this,
            [this](int segment) { store(QStringLiteral("solo"), segment); });
}

QString HeadphonesPreferencesPane::subtitle() const
{
    return QStringLiteral("Make headphones sound more like a pair of speakers in a room.");
}

VEKSlider *HeadphonesPreferencesPane::makeSlider(const char *name, const QString &accessibleName,
                                                 double minimum, double maximum, int steps)
{
    auto *slider = new VEKSlider(Qt::Horizontal, this);
    slider->setObjectName(QString::fromLatin1(name));
    slider->setAccessibleName(accessibleName);
    slider->setValueRange(minimum, maximum, steps);
    slider->setTipText([this](const VEKSlider &s) { return tipTextForSlider(s); });
    return slider;
}

QString HeadphonesPreferencesPane::tipTextForSlider(const VEKSlider &slider) const
{
    const float value = float(slider.doubleValue());
    if (&slider == m_speakerAngle)
        return QString::asprintf("%.0f°", double(value));
    if (&slider == m_crossfeedAmount)
        return QString::asprintf("%.0f%%", double(value * 100.0f));
    if (&slider == m_treble || &slider == m_bass)
        return gainTip(value);
    return {};
}

void HeadphonesPreferencesPane::paneWillBecomeFront()
{
    updateControls();
}

void HeadphonesPreferencesPane::updateControls()
{
    const QVariantMap r = defaults().dictionaryForKey(kRecord);
    m_enabled->setChecked(r.value(QStringLiteral("enabled")).toBool());
    m_speakerAngle->setDoubleValue(r.value(QStringLiteral("speakerAngle")).toFloat());
    selectTag(m_crossfeedType, r.value(QStringLiteral("crossfeedType")).toLongLong());
    m_crossfeedAmount->setDoubleValue(r.value(QStringLiteral("crossfeedAmount")).toFloat());
    m_crossfeedClip->setChecked(r.value(QStringLiteral("crossfeedClipProtectionEnabled")).toBool());
    // Read under the older spelling; see the class comment.
    const QVariant treble = r.value(QStringLiteral("trebleFreqency"));
    const QVariant bass = r.value(QStringLiteral("bassFreqency"));
    selectTag(m_trebleFrequency, treble.isValid() ? treble.toLongLong() : 5000);
    selectTag(m_bassFrequency, bass.isValid() ? bass.toLongLong() : 250);
    m_treble->setDoubleValue(r.value(QStringLiteral("treble")).toFloat());
    m_bass->setDoubleValue(r.value(QStringLiteral("bass")).toFloat());
    m_eqClip->setChecked(r.value(QStringLiteral("eqClipProtectionEnabled")).toBool());
    m_mono->setChecked(r.value(QStringLiteral("mono")).toBool());
    m_swap->setChecked(r.value(QStringLiteral("swapped")).toBool());
    m_phase->setSelectedSegment(r.value(QStringLiteral("outOfPhase")).toBool() ? 1 : 0);
    m_solo->setSelectedSegment(int(r.value(QStringLiteral("solo")).toLongLong()));
}

void HeadphonesPreferencesPane::store(const QString &key, const QVariant &value)
{
    storeEntry(kRecord, key, value);
}
