#include "PlayerWindow.h"

#include "PlayerContentView.h"

#include <QMoveEvent>
#include <cmath>

PlayerWindow::PlayerWindow(QWidget *parent)
    : QWidget(parent, Qt::Window | Qt::FramelessWindowHint | Qt::NoDropShadowWindowHint)
    , m_contentView(new PlayerContentView(this))
{
    // The panel has round corners and draws its own soft shadow: what lies outside it shows the
    // desktop through.
    setAttribute(Qt::WA_TranslucentBackground);
    setAttribute(Qt::WA_NoSystemBackground);
    setWindowTitle(QStringLiteral("Quivera"));
    resize(2400, 600);
}

void PlayerWindow::setFrameCenter(QPointF center)
{
    move(int(std::lround(center.x() - width() * 0.5)), int(std::lround(center.y() - height() * 0.5)));
}

QPointF PlayerWindow::frameCenter() const
{
    const QRect g = geometry();
    return QPointF(g.x() + g.width() * 0.5, g.y() + g.height() * 0.5);
}

void PlayerWindow::moveEvent(QMoveEvent *event)
{
    QWidget::moveEvent(event);
    emit moved();
}

void PlayerWindow::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    m_contentView->setGeometry(rect());
}

