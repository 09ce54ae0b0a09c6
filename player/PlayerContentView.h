#pragma once

#include "PlayerLayout.h"

#include <QList>
#include <QPixmap>
#include <QPoint>
#include <QPointer>
#include <QWidget>

// The content of the player window: the panel with its shadow, drawn from the image
// "Player_background" scaled into the panel, and the controls laid out by PlayerLayout at every
// size. A press on the bare background (where no control takes the click) moves the window:
// through the window system's own move where it offers one, so compositors can snap it, else by
// following the mouse. Main thread only.
class PlayerContentView : public QWidget {
    Q_OBJECT
public:
    explicit PlayerContentView(QWidget *parent = nullptr);

    // Places `control` (a child of this view) at `item` of the layout, now and at every resize.
    void place(QWidget *control, PlayerLayout::Item item);

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;
    void mouseMoveEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;

private:
    void layOut();
    // The panel and its shadow at the present size and device pixel ratio, drawn once per size.
    const QPixmap &background();

    QList<std::pair<QPointer<QWidget>, PlayerLayout::Item>> m_items;
    QPixmap m_background;
    // While the window follows the mouse: the press point's offset from the window's origin.
    bool m_dragging = false;
    QPoint m_grabOffset;
};
