#pragma once

#include "PreferencesPane.h"

class PreferencesSegments;
class QCheckBox;
class VEKSlider;

// The headphone processor's record `headphonesProcessorSettings`: crossfeed (speaker angle, type,
// amount as a fraction where 1 is the type's own level), treble and bass shelves (gains rounded
// to tenths of a dB, their corner frequencies) with their clipping guards, and mono, channel swap,
// phase and solo. Each change replaces the whole record.
//
// The frequency popups read `trebleFreqency` and `bassFreqency` but write `trebleFrequency` and
// `bassFrequency`, the keys the processor uses: nothing writes the first pair, so the popups come
// up at 5000 and 250 while the choice made stays in force. Kept so, as the settings of earlier
// versions were written.
class HeadphonesPreferencesPane : public PreferencesPane {
    Q_OBJECT
public:
    explicit HeadphonesPreferencesPane(UserDefaults &defaults, QWidget *parent = nullptr);

    QString name() const override { return QStringLiteral("HeadphonesPreferencesPane"); }
    QString title() const override { return QStringLiteral("Headphones"); }
    QString subtitle() const override;
    QString iconName() const override { return QStringLiteral("headphones"); }
    void paneWillBecomeFront() override;

    // The text beside a slider's knob: "30°", "50%", "+1.5dB", and "0.0dB" within a tenth of 0.
    QString tipTextForSlider(const VEKSlider &slider) const;

private:
    void updateControls();
    void store(const QString &key, const QVariant &value);
    VEKSlider *makeSlider(const char *name, const QString &accessibleName, double minimum, double maximum,
                          int steps);

    QCheckBox *m_enabled = nullptr;
    VEKSlider *m_speakerAngle = nullptr;
    QComboBox *m_crossfeedType = nullptr;
    VEKSlider *m_crossfeedAmount = nullptr;
    QCheckBox *m_crossfeedClip = nullptr;
    QComboBox *m_trebleFrequency = nullptr;
    VEKSlider *m_treble = nullptr;
    QComboBox *m_bassFrequency = nullptr;
    VEKSlider *m_bass = nullptr;
    QCheckBox *m_eqClip = nullptr;
    QCheckBox *m_mono = nullptr;
    QCheckBox *m_swap = nullptr;
    PreferencesSegments *m_phase = nullptr;
    PreferencesSegments *m_solo = nullptr;
};
