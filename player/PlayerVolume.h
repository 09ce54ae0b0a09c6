#pragma once

#include <QPointer>
#include <QWidget>

class UserDefaults;

// The rotary volume knob. Its state is the setting `volume` (0 to 1, the linear gain); the knob
// turns linearly with it through 270 degrees and follows changes made elsewhere.
//
// A drag is relative to the press: twice the knob's size sweeps the whole range, vertically
// (upward louder) or horizontally as the setting `volumeKnob` says (1 or 0; any other value
// sets 0). Presses in the corners outside the round knob are ignored. One wheel event moves a
// hundredth whatever its size. Arrow keys move a hundredth, Page Up/Down a tenth.
class PlayerVolume : public QWidget {
    Q_OBJECT
public:
    explicit PlayerVolume(QWidget *parent = nullptr);
    // The store it reads and writes: UserDefaults::standard() unless set.
    void setDefaults(UserDefaults *defaults);

    float volume() const;
    // Clamped to 0 through 1 and stored.
    void setVolume(float volume);

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void wheelEvent(QWheelEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    void focusInEvent(QFocusEvent *event) override;
    void focusOutEvent(QFocusEvent *event) override;

private:
    UserDefaults &defaults() const;

    QPointer<UserDefaults> m_defaults;
    QMetaObject::Connection m_watch;
    bool m_tracking = false;
    QPointF m_pressPoint;
    float m_startVolume = 0.0f;
    qint64 m_knobMode = 1;
    bool m_focusVisible = false;
};
