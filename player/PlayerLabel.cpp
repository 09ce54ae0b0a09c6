#include "PlayerLabel.h"

#include "PlayerAccessibility.h"
#include "PlayerArt.h"

#include <QMouseEvent>
#include <QPainter>

PlayerLabel::PlayerLabel(QWidget *parent) : QWidget(parent)
{
    PlayerAccessibility::install();
}

void PlayerLabel::setText(const QString &text)
{
    if (m_text == text)
        return;
    m_text = text;
    update();
}

void PlayerLabel::setAlign(Align align)
{
    m_align = align;
    update();
}

void PlayerLabel::setBold(bool bold)
{
    m_bold = bold;
    update();
}

void PlayerLabel::mousePressEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton)
        emit pressed(this);
}

void PlayerLabel::paintEvent(QPaintEvent *)
{
    if (m_text.isEmpty())
        return;
    QPainter p(this);
    p.setRenderHint(QPainter::TextAntialiasing);
    // The text fills the height less a margin of a tenth above and below, so the line keeps
    // its proportion to the label at every player size.
    const QFont font = PlayerArt::font(m_bold ? PlayerArt::Weight::Bold : PlayerArt::Weight::Regular,
                                       height() * 0.8);
    p.setFont(font);
    p.setPen(PlayerArt::accent());
    const int flags = Qt::AlignVCenter
        | (m_align == Right ? Qt::AlignRight : m_align == Centre ? Qt::AlignHCenter : Qt::AlignLeft);
    p.drawText(rect(), flags, m_text);
}
