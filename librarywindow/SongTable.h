#pragma once

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

protected:
    void keyPressEvent(QKeyEvent *event) override;
    void startDrag(Qt::DropActions supportedActions) override;
    void dragEnterEvent(QDragEnterEvent *event) override;
    void dragMoveEvent(QDragMoveEvent *event) override;
    void dragLeaveEvent(QDragLeaveEvent *event) override;
    void dropEvent(QDropEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    // The row boundary nearest the pointer: a drop lands above this row.
    int dropRowAt(const QPoint &viewportPoint) const;
    void setDropMark(int row, bool wholeTable);

    SongTableController *m_controller;
    // -1 with no drop on the way; the row above which the songs land; the whole table takes files.
    int m_dropRow = -1;
    bool m_dropOnTable = false;
};
