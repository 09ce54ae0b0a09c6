#include "GeneralPreferencesPane.h"

#include "PreferencesSection.h"
#include "settings/UserDefaults.h"

#include <QCheckBox>
#include <QComboBox>

namespace {
const QString kDither = QStringLiteral("ditherProperties");
}

GeneralPreferencesPane::GeneralPreferencesPane(UserDefaults &defaults, QWidget *parent)
    : PreferencesPane(defaults, parent)
{
    PreferencesSection *player = addSection(QStringLiteral("Player"));
    m_meteringPoint = makePopup(QStringLiteral("meteringPointPopup"), QStringLiteral("Meter"));
    addTaggedItem(m_meteringPoint, QStringLiteral("Before the effects"), 0);
    addTaggedItem(m_meteringPoint, QStringLiteral("After the effects"), 1);
    addTaggedItem(m_meteringPoint, QStringLiteral("After the volume"), 2);
    player->addRow(QStringLiteral("Meter shows the level"), m_meteringPoint);
    m_volumeKnob = makePopup(QStringLiteral("volumeKnobPopup"), QStringLiteral("Volume knob"));
    addTaggedItem(m_volumeKnob, QStringLiteral("Drag sideways"), 0);
    addTaggedItem(m_volumeKnob, QStringLiteral("Drag up and down"), 1);
    player->addRow(QStringLiteral("Volume knob turns by"), m_volumeKnob);

    PreferencesSection *dither = addSection(QStringLiteral("Dither"));
    m_ditherEnabled = new QCheckBox(QStringLiteral("Dither when the word length is reduced"), this);
    m_ditherEnabled->setObjectName(QStringLiteral("ditherEnabledButton"));
    dither->addRow(QString(), m_ditherEnabled,
                   QStringLiteral("Only acts when the samples do not fit the word length: a song that "
                                  "fits reaches the device bit for bit."));
    m_ditherRange = makePopup(QStringLiteral("ditherRangePopup"), QStringLiteral("Word length"));
    for (int bits : {8, 16, 20, 24})
        addTaggedItem(m_ditherRange, QStringLiteral("%1 bits").arg(bits), bits);
    dither->addRow(QStringLiteral("Word length"), m_ditherRange);
    m_ditherType = makePopup(QStringLiteral("ditherTypePopup"), QStringLiteral("Dither type"));
    addTaggedItem(m_ditherType, QStringLiteral("Basic"), 1);
    addTaggedItem(m_ditherType, QStringLiteral("Shaped to the ear"), 2);
    dither->addRow(QStringLiteral("Type"), m_ditherType,
                   QStringLiteral("The shapes and amounts of each type are in Advanced."));
    finishLayout();

    connect(m_meteringPoint, &QComboBox::activated, this, [this] {
        this->defaults().setValue(QStringLiteral("meterPoint"), selectedTag(m_meteringPoint));
    });
    connect(m_volumeKnob, &QComboBox::activated, this,
            [this] { this->defaults().setValue(QStringLiteral("volumeKnob"), selectedTag(m_volumeKnob)); });
    connect(m_ditherEnabled, &QCheckBox::clicked, this,
            [this](bool on) { storeEntry(kDither, QStringLiteral("enabled"), int(on)); });
    connect(m_ditherRange, &QComboBox::activated, this, &GeneralPreferencesPane::ditherChanged);
    connect(m_ditherType, &QComboBox::activated, this, &GeneralPreferencesPane::ditherChanged);
}

QString GeneralPreferencesPane::subtitle() const
{
    return QStringLiteral("The meter, the volume knob, and what happens to the last bits.");
}

void GeneralPreferencesPane::paneWillBecomeFront()
{
    selectTag(m_meteringPoint, defaults().integerForKey(QStringLiteral("meterPoint")));
    selectTag(m_volumeKnob, defaults().integerForKey(QStringLiteral("volumeKnob")));
    const QVariantMap dither = defaults().dictionaryForKey(kDither);
    m_ditherEnabled->setChecked(dither.value(QStringLiteral("enabled")).toBool());
    selectTag(m_ditherRange, dither.value(QStringLiteral("depth")).toLongLong());
    selectTag(m_ditherType, dither.value(QStringLiteral("type")).toLongLong());
}

void GeneralPreferencesPane::ditherChanged()
{
    QVariantMap dither = defaults().dictionaryForKey(kDither);
    dither.insert(QStringLiteral("depth"), selectedTag(m_ditherRange));
    dither.insert(QStringLiteral("type"), selectedTag(m_ditherType));
    defaults().setValue(kDither, dither);
}
