#pragma once

#include "PreferencesPane.h"

class QCheckBox;

// Where the meter listens, how the volume knob is dragged, and the dither at the output.
//
// Settings: `meterPoint` (0 before the effects, 1 after them, 2 after the volume), `volumeKnob`
// (0 horizontal, 1 vertical drag), and in the record `ditherProperties`: `enabled`, `depth`
// (the word length in bits) and `type` (1 basic, 2 shaped). The word length and the type are
// written together, whichever of the two changed.
class GeneralPreferencesPane : public PreferencesPane {
    Q_OBJECT
public:
    explicit GeneralPreferencesPane(UserDefaults &defaults, QWidget *parent = nullptr);

    QString name() const override { return QStringLiteral("GeneralPreferencesPane"); }
    QString title() const override { return QStringLiteral("General"); }
    QString subtitle() const override;
    QString iconName() const override { return QStringLiteral("general"); }
    void paneWillBecomeFront() override;

private:
    void ditherChanged();

    QComboBox *m_meteringPoint;
    QComboBox *m_volumeKnob;
    QCheckBox *m_ditherEnabled;
    QComboBox *m_ditherRange;
    QComboBox *m_ditherType;
};
