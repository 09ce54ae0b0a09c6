#pragma once

#include "PreferencesPane.h"

#include <QPointer>

class OutputDeviceProbe;
class QCheckBox;
class Stream;
class VEKSlider;

// Exclusive use of the device, loading songs into memory, the dither's details and the tunable
// converter's three values.
//
// The exclusive-use button shows what the device reports (disabled where the device has no such
// thing), not the setting `isExclusive`, which it also writes and applies to the device at once.
// In `ditherProperties`: the shape (`mbitShape` for the shaped type 2, else `basicShape`), the
// shaped type's `mbitAmount`, the basic type's `basicNumberOfBits` (from 1), and the switches
// `autoBlanking`, `minimizePeaks`, `silenceHarmonics`. The converter's `resamplerFilterSteepness`,
// `resamplerCutoffScaling` and `resamplerPreringing` come from the sliders or from a preset, a
// property list among the program's resources.
class AdvancedPreferencesPane : public PreferencesPane {
    Q_OBJECT
public:
    AdvancedPreferencesPane(UserDefaults &defaults, OutputDeviceProbe *probe, Stream *stream,
                            QWidget *parent = nullptr);

    QString name() const override { return QStringLiteral("AdvancedPreferencesPane"); }
    QString title() const override { return QStringLiteral("Advanced"); }
    QString subtitle() const override;
    QString iconName() const override { return QStringLiteral("advanced"); }
    void paneWillBecomeFront() override;

    // "150" for the steepness, "1.00" for the other two.
    QString tipTextForSlider(const VEKSlider &slider) const;

private:
    void updateControls();
    void storeDither(const QString &key, const QVariant &value);
    void exclusiveChanged(bool on);
    void presetChosen(int index);
    VEKSlider *makeSlider(const char *name, const QString &accessibleName, double minimum, double maximum,
                          int steps);

    OutputDeviceProbe *m_probe;
    QPointer<Stream> m_stream;
    QCheckBox *m_exclusive = nullptr;
    QCheckBox *m_loadIntoMemory = nullptr;
    QComboBox *m_shape = nullptr;
    QComboBox *m_amount = nullptr;
    QComboBox *m_numberOfBits = nullptr;
    QCheckBox *m_autoBlanking = nullptr;
    QCheckBox *m_minimizePeaks = nullptr;
    QCheckBox *m_silenceHarmonics = nullptr;
    QComboBox *m_presets = nullptr;
    VEKSlider *m_steepness = nullptr;
    VEKSlider *m_cutoff = nullptr;
    VEKSlider *m_preringing = nullptr;
};
