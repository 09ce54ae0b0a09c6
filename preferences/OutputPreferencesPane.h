#pragma once

#include "PreferencesPane.h"

class OutputDeviceProbe;
class PreferencesSection;
class QPushButton;
class VEKSlider;

// The output: the device (or one of its outputs, when it has several), the rate the device runs
// at, and the sample-rate converter with its quality.
//
// Settings: `outputDevice` ({"UID"} or {"UID", "sourceID"}), `sampleRate` (0 leaves the device's
// rate alone, -1 follows the song, else hertz), `convertorType` (0 to 3), `convertorQuality`
// (0 to 1), which also sets the tunable converter's three values: steepness from the quality
// (qualitySteepness()), cutoff scaling and pre-ringing back to 1.
//
// The devices come from the probe, which asks ALSA off the main thread; the popups are rebuilt
// when its picture changes.
class OutputPreferencesPane : public PreferencesPane {
    Q_OBJECT
public:
    OutputPreferencesPane(UserDefaults &defaults, OutputDeviceProbe *probe, QWidget *parent = nullptr);

    QString name() const override { return QStringLiteral("OutputPreferencesPane"); }
    QString title() const override;
    QString subtitle() const override;
    QString iconName() const override { return QStringLiteral("output"); }
    void paneWillBecomeFront() override;

    // q^1.5 x 150, rounded: 1 gives 150 (the tunable converter's default), 0.5 gives 53.
    static float qualitySteepness(float quality);

    // The place for a view of what the audio goes through now, under the converter; the pane
    // shows the section once a view is set, and owns the view.
    void setSignalPathView(QWidget *view);

private:
    void updateDevicesPopup();
    void updateSampleRatesPopup();
    void updateControls();
    void deviceChosen();
    void qualityChanged(double value);

    OutputDeviceProbe *m_probe;
    QComboBox *m_devices;
    QPushButton *m_configure;
    QComboBox *m_rates;
    QComboBox *m_convertorType;
    VEKSlider *m_quality;
    // The signal path's section: hidden until its view comes.
    PreferencesSection *m_signalPath;
};
