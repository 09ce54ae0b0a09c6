#pragma once

#include <QImage>
#include <QPointer>
#include <QTimer>
#include <QWidget>

#include <memory>

class OperationQueue;
#include "PlayerSeekGesture.h"
#include "PlayerTransport.h"
class PlayerWaveformOperation;
class VEKWaveformBuffer;

// The wide bar of the player: the whole current song as a waveform, the played part brighter,
// a handle at the current place, and seeking with the mouse.
//
// The waveform is read in the background, one column per device pixel of the picture (so it is
// sharp at any device pixel ratio), on the bar's own queue; the bar draws what has arrived twice
// a second, only the new columns, so the picture grows from left to right. A new song or a new
// size cancels the work after its current column and starts again.
//
// It seeks by PlayerSeekGesture, the handle being its knob.
class PlayerPosition : public QWidget {
    Q_OBJECT
public:
    // The design: a 20-point handle on a bar of 1436 points; the handle scales with the bar.
    static constexpr qreal designWidth = 1436.0;
    static constexpr qreal handleDesignWidth = 20.0;

    explicit PlayerPosition(QWidget *parent = nullptr);
    ~PlayerPosition() override;

    void setTransport(PlayerTransport *transport);
    PlayerTransport *transport() const { return m_transport; }

    // Cancels the work under way and starts reading the current song at the present width.
    void beginUpdatingWaveform();

    // The place shown, 0 to 1 of the song; 0 without one.
    float location() const;
    // Seeks as a gesture does, without pausing (keys and assistive tools).
    void seek(float location);

    // What is drawn (for the window's tests and the benchmark).
    QRectF handleRect() const { return m_handleRect; }
    const QImage &waveformImage() const { return m_image; }
    // The buffer behind the picture, and how many of its columns are in the picture.
    std::shared_ptr<VEKWaveformBuffer> waveform() const;
    quint64 columnsDrawn() const { return m_columnsDrawn; }
    // The last operation started.
    std::shared_ptr<PlayerWaveformOperation> operation() const { return m_latest; }

signals:
    // After the last drawing of an operation's columns.
    void waveformFinished();

protected:
    void resizeEvent(QResizeEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void focusInEvent(QFocusEvent *event) override;
    void focusOutEvent(QFocusEvent *event) override;

private:
    void updateFrame();
    void operationDidStart(const std::shared_ptr<PlayerWaveformOperation> &operation);
    void operationDidEnd(const std::shared_ptr<PlayerWaveformOperation> &operation);
    void updateWaveform();
    void updateWaveformWithOperation(const std::shared_ptr<PlayerWaveformOperation> &operation);
    void playingChanged(bool playing);
    // Repaints what the handle and the played part cover between the last place and now.
    void updateLocation();
    // The handle's and the played part's extent at `location`, in view coordinates.
    QRectF handleRectAt(float location) const;
    qreal playedEdgeAt(float location) const;
    float travel() const { return float(width() - m_handleRect.width()); }
    QPointer<PlayerTransport> m_transport;
    std::unique_ptr<OperationQueue> m_queue;
    std::shared_ptr<PlayerWaveformOperation> m_latest;
    std::shared_ptr<PlayerWaveformOperation> m_pictured;
    quint64 m_columnsDrawn = 0;
    QImage m_image;
    QRectF m_handleRect;
    float m_shownLocation = 0.0f;
    QTimer m_drawingTimer;
    QTimer m_locationTimer;
    PlayerSeekGesture m_gesture;
    bool m_focusVisible = false;
};
