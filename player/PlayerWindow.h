#pragma once

#include <QWidget>

class PlayerContentView;

// The player window: a borderless, translucent top-level window that draws its own panel and
// shadow (PlayerContentView) and can become the active window. Its frame is its geometry: there
// is no title bar or border around it. Main thread only.
class PlayerWindow : public QWidget {
    Q_OBJECT
public:
    explicit PlayerWindow(QWidget *parent = nullptr);

    PlayerContentView *contentView() const { return m_contentView; }

    // Moves the window so that the centre of its frame stands at `center`, keeping its size.
    void setFrameCenter(QPointF center);
    QPointF frameCenter() const;

signals:
    // The window's position changed (by the user, the window manager or setFrameCenter).
    void moved();

protected:
    void moveEvent(QMoveEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    PlayerContentView *m_contentView;
};
