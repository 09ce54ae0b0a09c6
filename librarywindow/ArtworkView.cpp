#include "ArtworkView.h"

#include "player/PlayerArt.h"

#include <QLinearGradient>
#include <QPainter>

ArtworkView::ArtworkView(QWidget *parent) : QWidget(parent)
{
    QSizePolicy policy(QSizePolicy::Preferred, QSizePolicy::Fixed);
    policy.setHeightForWidth(true);
    setSizePolicy(policy);
    setAttribute(Qt::WA_OpaquePaintEvent);
}

void ArtworkView::setTitle(const QString &title)
{
    m_title = title;
    setAccessibleName(title);
    update();
}

void ArtworkView::setImage(const QImage &image)
{
    if (image.cacheKey() == m_image.cacheKey())
        return;
    m_image = image;
    setAccessibleDescription(m_image.isNull() ? m_placeholder : QString());
    update();
}

void ArtworkView::setPlaceholder(const QString &text)
{
    m_placeholder = text;
    if (m_image.isNull())
        setAccessibleDescription(text);
    update();
}

void ArtworkView::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    if (height() != heightForWidth(width()))
        setFixedHeight(heightForWidth(width()));
}

void ArtworkView::paintEvent(QPaintEvent *)
{
    QPainter painter(this);
    const QColor accent = PlayerArt::accent();
    const QRect header(0, 0, width(), headerHeight);
    const QRect square(0, headerHeight, width(), height() - headerHeight);

    // The header: a slight fall of light over the panel, with a hairline at its foot.
    QLinearGradient fall(header.topLeft(), header.bottomLeft());
    fall.setColorAt(0, PlayerArt::panel().lighter(190));
    fall.setColorAt(1, PlayerArt::panel().lighter(150));
    painter.fillRect(header, fall);
    painter.setPen(QColor(0, 0, 0, 160));
    painter.drawLine(0, header.bottom(), width(), header.bottom());
    QColor hairline = accent;
    hairline.setAlphaF(0.08f);
    painter.setPen(hairline);
    painter.drawLine(0, 0, width(), 0);
    QFont font = PlayerArt::font(PlayerArt::Weight::Bold, 11);
    font.setLetterSpacing(QFont::AbsoluteSpacing, 1.6);
    painter.setFont(font);
    QColor text = accent;
    text.setAlphaF(0.55f);
    painter.setPen(text);
    painter.drawText(header.adjusted(14, 0, -14, 0), Qt::AlignLeft | Qt::AlignVCenter, m_title.toUpper());

    painter.fillRect(square, PlayerArt::panel());
    if (m_image.isNull()) {
        painter.setFont(PlayerArt::font(PlayerArt::Weight::Regular, 15));
        text.setAlphaF(0.4f);
        painter.setPen(text);
        painter.drawText(square, Qt::AlignCenter | Qt::TextWordWrap, m_placeholder);
        return;
    }
    // The whole cover, as large as the square allows.
    QSizeF size = QSizeF(m_image.size()).scaled(QSizeF(square.size()), Qt::KeepAspectRatio);
    const QRectF at(square.left() + (square.width() - size.width()) / 2,
                    square.top() + (square.height() - size.height()) / 2, size.width(), size.height());
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.drawImage(at, m_image);
}
