#pragma once

#include "PlayerSeekGesture.h"
#include "PlayerTransport.h"

#include <QPointer>
#include <QTimer>
#include <QWidget>

// The mini player's thin position bar: the played part and an 8-pixel knob at the place in the
// song, moved ten times a second while the song plays.
// It seeks by PlayerSeekGesture.
class MiniPlayerPosition : public QWidget {
    Q_OBJECT
public:
    static constexpr int knobWidth = 8;

    explicit MiniPlayerPosition(QWidget *parent = nullptr);

    void setTransport(PlayerTransport *transport);
    // The place shown, 0 to 1 of the song; 0 without one.
    float location() const;
    // Seeks as a gesture does, without pausing (keys and assistive tools).
    void seek(float location);
    // The knob's frame at the place shown.
    QRect knobRect() const;

protected:
    void paintEvent(QPaintEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;

private:
    void playingChanged(bool playing);
    float travel() const { return float(width() - knobWidth); }

    QPointer<PlayerTransport> m_transport;
    QTimer m_timer;
    PlayerSeekGesture m_gesture;
};
