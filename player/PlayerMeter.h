#pragma once

#include <QPointer>
#include <QTimer>
#include <QWidget>

#include "PlayerTransport.h"

// The stereo level bars: channel 0 above, channel 1 below, redrawn 30 times a second from the
// transport's meter, playing or not. A bar lights n steps of a third of a decibel from -40 dB
// (0 dB is 120 steps), with no smoothing of its own.
class PlayerMeter : public QWidget {
    Q_OBJECT
public:
    // The design width the bar's steps are measured against, and the steps of 0 dB.
    static constexpr qreal designWidth = 1436.0;
    static constexpr int fullScaleSteps = 120;

    explicit PlayerMeter(QWidget *parent = nullptr);

    void setTransport(PlayerTransport *transport);

    // The steps lit for a linear level: trunc(roundf((20 log10 L + 40) x 3)); 0 or below
    // lights nothing.
    static int steps(float level);
    // The width in the view of n steps, for a view `width` wide.
    static qreal widthOfSteps(int n, qreal width) { return width / designWidth * 12.0 * n; }

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    // Reads the levels and repaints what changed.
    void tick();

    QPointer<PlayerTransport> m_transport;
    // The steps lit in the picture, per channel, as the last reading set them.
    int m_shown[2] = {0, 0};
    QTimer m_timer;
};
