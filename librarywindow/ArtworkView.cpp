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
        // A faint note over the words, so the empty square reads as a cover's place.
        const qreal note = std::min(44.0, square.height() * 0.3);
        const QFont words = PlayerArt::font(PlayerArt::Weight::Regular, 15);
        const int wordsHeight = QFontMetrics(words).height();
        const qreal top = square.center().y() - (note + 8 + wordsHeight) / 2.0;
        if (note >= 16) {
            painter.setOpacity(0.22);
            painter.drawPixmap(QPointF(square.center().x() - note / 2.0, top),
                               PlayerArt::pixmap(QStringLiteral("SongInfo_noCover"), QSizeF(note, note),
                                                 devicePixelRatioF()));
            painter.setOpacity(1.0);
        }
        painter.setFont(words);
        text.setAlphaF(0.4f);
        painter.setPen(text);
        const QRect below(square.left(), int(note >= 16 ? top + note + 8 : square.top()), square.width(),
                          note >= 16 ? wordsHeight * 2 : square.height());
        painter.drawText(below,
                         (note >= 16 ? Qt::AlignTop : Qt::AlignVCenter) | Qt::AlignHCenter | Qt::TextWordWrap,
                         m_placeholder);
        return;
    }
    // The whole cover, as large as the square allows.
    QSizeF size = QSizeF(m_image.size()).scaled(QSizeF(square.size()), Qt::KeepAspectRatio);
    const QRectF at(square.left() + (square.width() - size.width()) / 2,
                    square.top() + (square.height() - size.height()) / 2, size.width(), size.height());
    painter.setRenderHint(QPainter::SmoothPixmapTransform);
    painter.drawImage(at, m_image);
}
