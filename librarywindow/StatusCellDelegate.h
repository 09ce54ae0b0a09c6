#pragma once

#include <QStyledItemDelegate>

// The first column of the song table: the row number right-aligned, with the playing (a
// triangle) or current (a ring) mark in the 18 pixels at its right edge. Only the mark fits in
// a column 18 wide: the library's rows have no order of their own to number.
class StatusCellDelegate : public QStyledItemDelegate {
    Q_OBJECT
public:
    static constexpr int markWidth = 18;

    using QStyledItemDelegate::QStyledItemDelegate;
    void paint(QPainter *painter, const QStyleOptionViewItem &option,
               const QModelIndex &index) const override;
};
