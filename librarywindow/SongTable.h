#pragma once

#include <QHash>
#include <QPixmap>
#include <QTableView>

class SongTableController;

// The song table's view: rows of songs, a header the user sorts by (a click), reorders and
// hides columns of (a drag, the header's menu), with its own drag picture and drop marks.
// What a key, a click or a drop means is the controller's: the view only reports them. Main
// thread only.
class SongTable : public QTableView {
    Q_OBJECT
public:
    explicit SongTable(SongTableController *controller, QWidget *parent = nullptr);

    // The picture under the pointer while `rows` songs are dragged: the first row's picture for
    // one; for more, a music file icon with a badge counting them (the badge grows with the
    // digits: up to 2, 3, or 4 and more).
    QPixmap dragPixmap(int rows) const;

    // The columns fill the view's width: the text columns (name, artist, album...) share what the
    // others leave in proportion to their preferred widths, never narrower than a few letters
    // (a narrow window scrolls sideways instead); numbers and the status keep their own width.
    // A drag of a column's edge takes from the text columns after it, and the widths the user
    // leaves become the preferred ones.
    int preferredColumnWidth(int column) const;
    void setPreferredColumnWidth(int column, int width);

    // What an empty table says in its middle: a title and a line under it (empty for none).
    void setEmptyText(const QString &title, const QString &detail);
    QString emptyTitle() const { return m_emptyTitle; }

signals:
    // The user let go of a column's edge, or double-clicked it.
    void columnsResizedByUser();

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void startDrag(Qt::DropActions supportedActions) override;
    void dragEnterEvent(QDragEnterEvent *event) override;
    void dragMoveEvent(QDragMoveEvent *event) override;
    void dragLeaveEvent(QDragLeaveEvent *event) override;
    void dropEvent(QDropEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    bool viewportEvent(QEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    bool isTextColumn(int column) const;
    int narrowest(int column) const;
    void fitColumns();
    void sectionResized(int column, int oldSize, int newSize);
    void paintEmptyText();

    // The row boundary nearest the pointer: a drop lands above this row.
    int dropRowAt(const QPoint &viewportPoint) const;
    void setDropMark(int row, bool wholeTable);

    SongTableController *m_controller;
    // -1 with no drop on the way; the row above which the songs land; the whole table takes files.
    int m_dropRow = -1;
    bool m_dropOnTable = false;
    QHash<int, int> m_preferredWidths;
    bool m_fitting = false;
    bool m_userResizing = false;
    bool m_resizedByUser = false;
    bool m_fitPending = false;
    QString m_emptyTitle;
    QString m_emptyDetail;
};
