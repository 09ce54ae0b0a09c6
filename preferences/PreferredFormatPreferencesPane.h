#pragma once

#include "PreferencesPane.h"

class QCheckBox;
class QLabel;
class VEKSlider;

// The format that songs are converted to (the `preferredFormat` record): its format index (0
// AIFF, 1 WAVE, 2 CAF, 3 AAC, 4 Apple Lossless, 5 Ogg Vorbis, 6 FLAC), `sampleRate` (0 keeps the
// song's), `bitRange` (bits, 0 no preference) or for AAC `bitRate` (bits per second), and
// `quality` (0 to 1: Vorbis quality, FLAC compression). A new format drops the rate and the bits,
// which need not fit it, and keeps the quality. `createPreferredOnAdd` converts songs as they
// are added.
class PreferredFormatPreferencesPane : public PreferencesPane {
    Q_OBJECT
public:
    explicit PreferredFormatPreferencesPane(UserDefaults &defaults, QWidget *parent = nullptr);

    QString name() const override { return QStringLiteral("PreferredFormatPreferencesPane"); }
    QString title() const override { return QStringLiteral("Preferred Format"); }
    QString subtitle() const override;
    QString iconName() const override { return QStringLiteral("format"); }
    void paneWillBecomeFront() override { updateControls(); }

private:
    void updateControls();
    void storeRecord(const QVariantMap &record);

    QComboBox *m_format;
    QComboBox *m_sampleRate;
    QLabel *m_bitLabel;
    QComboBox *m_bits;
    QLabel *m_sliderLabel;
    QLabel *m_sliderMinimum;
    QLabel *m_sliderMaximum;
    VEKSlider *m_slider;
    QCheckBox *m_createPreferred;
};
