#include "StatusCellDelegate.h"

#include "SongTableModel.h"
#include "player/PlayerArt.h"

#include <QApplication>
#include <QPainter>
#include <QPainterPath>

void StatusCellDelegate::paint(QPainter *painter, const QStyleOptionViewItem &option,
                               const QModelIndex &index) const
{
    QStyleOptionViewItem opt = option;
    initStyleOption(&opt, index);
    const QString number = opt.text;
    opt.text.clear();
    // The background and selection as every other cell, without the text.
    QStyle *style = opt.widget ? opt.widget->style() : QApplication::style();
    style->drawControl(QStyle::CE_ItemViewItem, &opt, painter, opt.widget);

    painter->save();
    const QRect r = option.rect;
    const QRect textRect = r.adjusted(2, 0, -markWidth, 0);
    if (textRect.width() > 4) {
        QColor faint = option.palette.color(QPalette::Text);
        faint.setAlphaF(0.45f);
        painter->setPen(
            option.state & QStyle::State_Selected ? option.palette.color(QPalette::HighlightedText) : faint);
        painter->setFont(option.font);
        painter->drawText(textRect, Qt::AlignRight | Qt::AlignVCenter, number);
    }
    const auto status = SongTableModel::Status(index.data(SongTableModel::StatusRole).toInt());
    if (status != SongTableModel::Status::None) {
        painter->setRenderHint(QPainter::Antialiasing);
        const QRectF mark(r.right() - 14.5, r.center().y() - 5.0, 10.0, 10.0);
        const QColor colour = PlayerArt::accent();
        if (status == SongTableModel::Status::Playing) {
            QPainterPath triangle;
            triangle.moveTo(mark.left() + 1, mark.top());
            triangle.lineTo(mark.right(), mark.center().y());
            triangle.lineTo(mark.left() + 1, mark.bottom());
            triangle.closeSubpath();
            painter->fillPath(triangle, colour);
        } else {
            painter->setPen(QPen(colour, 1.6));
            painter->setBrush(Qt::NoBrush);
            painter->drawEllipse(mark.adjusted(1, 1, -1, -1));
        }
    }
    painter->restore();
}
