#pragma once

#include <QFont>
#include <QHash>
#include <QMargins>
#include <QSize>
#include <QStaticText>
#include <QStyledItemDelegate>

// The text cells of the song table, drawn as the style draws them but with each text's glyphs
// laid out once and kept: a paint of the table shapes some three hundred cells, twice each (to
// measure and to draw), and the texts repeat from row to row and from paint to paint.
class SongCellDelegate : public QStyledItemDelegate {
    Q_OBJECT
public:
    using QStyledItemDelegate::QStyledItemDelegate;
    void paint(QPainter *painter, const QStyleOptionViewItem &option,
               const QModelIndex &index) const override;

private:
    struct Key {
        QString text;
        int width;
        bool operator==(const Key &other) const { return width == other.width && text == other.text; }
    };
    friend size_t qHash(const Key &key, size_t seed) { return qHashMulti(seed, key.text, key.width); }

    QRect textRect(const QStyleOptionViewItem &option, const QStyle *style) const;
    const QStaticText &laidOut(const QString &text, int width, const QStyleOptionViewItem &option) const;

    mutable QHash<Key, QStaticText> m_texts;
    mutable QFont m_font;
    // The style's insets of the text in a cell of each size.
    mutable QHash<QSize, QMargins> m_insets;
};
