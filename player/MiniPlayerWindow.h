#pragma once

#include <QPoint>
#include <QPointF>
#include <QRect>
#include <QWidget>

// The mini player's window: borderless and translucent, drawing its own small panel with a soft
// shadow, of one size only. A press on the bare panel moves the window with the mouse, but never
// higher than leaving 91 percent of its height below the top of the screen's free area, so its
// controls can't be lost under a top panel; sideways and downwards nothing bounds it.
// Main thread only.
class MiniPlayerWindow : public QWidget {
    Q_OBJECT
public:
    // The whole window, and the panel inside its shadow margin.
    static constexpr int windowWidth = 372;
    static constexpr int windowHeight = 124;
    static constexpr int shadowMargin = 12;
    static QRect panelRect() { return QRect(0, 0, windowWidth, windowHeight).adjusted(shadowMargin, shadowMargin, -shadowMargin, -shadowMargin); }

    explicit MiniPlayerWindow(QWidget *parent = nullptr);

    void setFrameCenter(QPointF center);
    QPointF frameCenter() const;

    // Where a drag puts the window's top left: the mouse less the grab, its top held at the
    // limit under `available`'s top.
    static QPoint dragOrigin(QPoint mouse, QPoint grab, const QRect &available, int height);

signals:
    // The window's position changed (by the user, the window manager or setFrameCenter).
    void moved();

protected:
    void paintEvent(QPaintEvent *event) override;
    void moveEvent(QMoveEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;

private:
    bool m_dragging = false;
    QPoint m_grab;
    QRect m_available;
};
