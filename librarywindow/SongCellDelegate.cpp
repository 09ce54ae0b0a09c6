#include "SongCellDelegate.h"

#include <QApplication>
#include <QPainter>

namespace {
// Enough for every cell of a tall window many times over; past it the texts are laid out anew.
constexpr qsizetype kMostTexts = 3000;
}

const QStaticText &SongCellDelegate::laidOut(const QString &text, int width,
                                             const QStyleOptionViewItem &option) const
{
    if (option.font != m_font) {
        m_texts.clear();
        m_font = option.font;
    }
    Key key{text, width};
    auto it = m_texts.find(key);
    if (it != m_texts.end())
        return *it;
    if (m_texts.size() >= kMostTexts)
        m_texts.clear();
    QStaticText laid(option.fontMetrics.elidedText(text, option.textElideMode, width));
    laid.setTextFormat(Qt::PlainText);
    laid.prepare(QTransform(), option.font);
    return *m_texts.insert(std::move(key), std::move(laid));
}

QRect SongCellDelegate::textRect(const QStyleOptionViewItem &option, const QStyle *style) const
{
    // The style places a line of text by the cell's size and its rules, not by the text: asked
    // with a stand-in once per size, rather than measuring every cell's text to find out.
    auto it = m_insets.constFind(option.rect.size());
    if (it == m_insets.cend()) {
        QStyleOptionViewItem probe = option;
        probe.text = QStringLiteral("x");
        probe.features |= QStyleOptionViewItem::HasDisplay;
        const QRect r = style->subElementRect(QStyle::SE_ItemViewItemText, &probe, option.widget);
        const int margin = style->pixelMetric(QStyle::PM_FocusFrameHMargin, nullptr, option.widget) + 1;
        const QRect cell = option.rect;
        it = m_insets.insert(cell.size(),
                             QMargins(r.left() - cell.left() + margin, r.top() - cell.top(),
                                      cell.right() - r.right() + margin, cell.bottom() - r.bottom()));
    }
    return option.rect.marginsRemoved(*it);
}

void SongCellDelegate::paint(QPainter *painter, const QStyleOptionViewItem &option,
                             const QModelIndex &index) const
{
    QStyleOptionViewItem opt = option;
    initStyleOption(&opt, index);
    // Texts of more than one line go the style's way.
    if (opt.text.contains(QChar::LineFeed) || opt.text.contains(QChar::LineSeparator)) {
        QStyledItemDelegate::paint(painter, option, index);
        return;
    }
    const QString text = opt.text;
    opt.text.clear();
    opt.features &= ~QStyleOptionViewItem::HasDisplay;
    // The background, the selection and the focus as the style draws them, without the text.
    const QWidget *widget = opt.widget;
    QStyle *style = widget ? widget->style() : QApplication::style();
    style->drawControl(QStyle::CE_ItemViewItem, &opt, painter, widget);
    if (text.isEmpty())
        return;

    // Where and in which colour the style puts the text of a cell.
    const QRect textRect = this->textRect(opt, style);
    if (textRect.width() <= 0)
        return;
    QPalette::ColorGroup group = opt.state & QStyle::State_Enabled ? QPalette::Normal : QPalette::Disabled;
    if (group == QPalette::Normal && !(opt.state & QStyle::State_Active))
        group = QPalette::Inactive;
    const QStaticText &laid = laidOut(text, textRect.width(), opt);
    const QSize size = laid.size().toSize();
    const QRect at = QStyle::alignedRect(opt.direction, opt.displayAlignment, size, textRect);
    painter->save();
    painter->setPen(opt.palette.color(group, opt.state & QStyle::State_Selected ? QPalette::HighlightedText
                                                                                : QPalette::Text));
    painter->setFont(opt.font);
    painter->drawStaticText(at.topLeft(), laid);
    painter->restore();
}
