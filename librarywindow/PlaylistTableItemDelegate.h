#pragma once

#include <QPersistentModelIndex>
#include <QStyledItemDelegate>

// How the sidebar draws its rows on the dark panel: group headers as small spaced capitals in a
// faint accent, playlist rows with the icon of their kind (library or playlist, locked or not)
// and the name, the selected row on an accent-tinted bar, a row taking a drop with an accent rim. The
// in-place editor is a dark field with an accent rim.
class PlaylistTableItemDelegate : public QStyledItemDelegate {
    Q_OBJECT
public:
    using QStyledItemDelegate::QStyledItemDelegate;

    // The image name of a playlist row's icon: "Library_library", "Library_playlist", with
    // "_locked" after it for a locked playlist.
    static QString iconName(bool isLibrary, bool locked);

    // The row that takes the songs being dragged, drawn with an accent rim; none for an invalid
    // index.
    void setDropTarget(const QModelIndex &index) { m_dropTarget = index; }
    QModelIndex dropTarget() const { return m_dropTarget; }

    void paint(QPainter *painter, const QStyleOptionViewItem &option,
               const QModelIndex &index) const override;
    QSize sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const override;
    QWidget *createEditor(QWidget *parent, const QStyleOptionViewItem &option,
                          const QModelIndex &index) const override;
    void updateEditorGeometry(QWidget *editor, const QStyleOptionViewItem &option,
                              const QModelIndex &index) const override;

private:
    QPersistentModelIndex m_dropTarget;
};
