#include "SongTable.h"

#include "SongCellDelegate.h"
#include "SongTableController.h"
#include "SongTableModel.h"
#include "StatusCellDelegate.h"
#include "core/VEKLocalizedString.h"
#include "player/PlayerArt.h"

#include <QDrag>
#include <QDragEnterEvent>
#include <QHeaderView>
#include <QIcon>
#include <QKeyEvent>
#include <QMimeData>
#include <QPainter>
#include <QPainterPath>
#include <QScrollBar>

#include <utility>

namespace {
constexpr int kRowHeight = 22;
// A text column is never narrower than a few words, the name a few more: below that the window
// scrolls sideways rather than cut every text to its first letters.
constexpr int kNarrowestText = 96;
constexpr int kNarrowestName = 150;
} // namespace

SongTable::SongTable(SongTableController *controller, QWidget *parent)
    : QTableView(parent), m_controller(controller)
{
    setObjectName(QStringLiteral("songTable"));
    setAccessibleName(VEKLocalizedString("SongTable_name"));
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setSelectionMode(QAbstractItemView::ExtendedSelection);
    setShowGrid(false);
    setAlternatingRowColors(true);
    setWordWrap(false);
    setTextElideMode(Qt::ElideRight);
    setCornerButtonEnabled(false);
    setEditTriggers(QAbstractItemView::NoEditTriggers);
    setHorizontalScrollMode(QAbstractItemView::ScrollPerPixel);
    setVerticalScrollMode(QAbstractItemView::ScrollPerPixel);
    setDragEnabled(true);
    setAcceptDrops(true);
    setDropIndicatorShown(false);
    setDragDropMode(QAbstractItemView::DragDrop);
    setContextMenuPolicy(Qt::CustomContextMenu);
    setFrameShape(QFrame::NoFrame);
    setItemDelegate(new SongCellDelegate(this));
    setItemDelegateForColumn(0, new StatusCellDelegate(this));

    // Fixed row heights keep 100,000 rows cheap: the header never measures them.
    QHeaderView *rows = verticalHeader();
    rows->hide();
    rows->setSectionResizeMode(QHeaderView::Fixed);
    rows->setDefaultSectionSize(kRowHeight);
    rows->setMinimumSectionSize(kRowHeight);

    QHeaderView *columns = horizontalHeader();
    columns->setSectionsMovable(true);
    columns->setSectionsClickable(true);
    columns->setHighlightSections(false);
    columns->setDefaultAlignment(Qt::AlignLeft | Qt::AlignVCenter);
    columns->setMinimumSectionSize(18);
    columns->setFixedHeight(24);
    connect(columns, &QHeaderView::sectionResized, this, &SongTable::sectionResized);
    columns->viewport()->installEventFilter(this);
}

bool SongTable::isTextColumn(int column) const
{
    static const QStringList texts = {QStringLiteral("name"),        QStringLiteral("artist"),
                                      QStringLiteral("album"),       QStringLiteral("genre"),
                                      QStringLiteral("albumArtist"), QStringLiteral("composer"),
                                      QStringLiteral("kind")};
    return texts.contains(SongTableModel::identifiers().value(column));
}

int SongTable::narrowest(int column) const
{
    return SongTableModel::identifiers().value(column) == QLatin1String("name") ? kNarrowestName
                                                                                : kNarrowestText;
}

int SongTable::preferredColumnWidth(int column) const
{
    return m_preferredWidths.value(column, horizontalHeader()->sectionSize(column));
}

void SongTable::setPreferredColumnWidth(int column, int width)
{
    m_preferredWidths.insert(column, width);
    m_fitting = true;
    horizontalHeader()->resizeSection(column, width);
    m_fitting = false;
    fitColumns();
}

void SongTable::fitColumns()
{
    QHeaderView *header = horizontalHeader();
    if (m_fitting || m_userResizing)
        return;
    int fixed = 0;
    double preferred = 0;
    QList<int> texts;
    for (int visual = 0; visual < header->count(); ++visual) {
        const int column = header->logicalIndex(visual);
        if (header->isSectionHidden(column))
            continue;
        if (isTextColumn(column)) {
            texts.append(column);
            preferred += std::max(1, preferredColumnWidth(column));
        } else {
            fixed += header->sectionSize(column);
        }
    }
    if (texts.isEmpty())
        return;
    const int space = viewport()->width() - fixed;
    m_fitting = true;
    int used = 0;
    for (qsizetype i = 0; i < texts.size(); ++i) {
        const int column = texts.at(i);
        // The last takes what rounding left, so the columns end at the view's edge.
        const int share = i + 1 < texts.size()
                              ? int(space * std::max(1, preferredColumnWidth(column)) / preferred)
                              : space - used;
        const int width = std::max(share, narrowest(column));
        header->resizeSection(column, width);
        used += width;
    }
    m_fitting = false;
}

void SongTable::sectionResized(int column, int oldSize, int newSize)
{
    if (m_fitting)
        return;
    if (!m_userResizing) {
        // Shown, hidden, or sized by the program (the status column follows the row count). Once
        // the header is done: a column being hidden is sized to nothing before it counts as hidden.
        if (!std::exchange(m_fitPending, true))
            QMetaObject::invokeMethod(
                this,
                [this] {
                    m_fitPending = false;
                    fitColumns();
                },
                Qt::QueuedConnection);
        return;
    }
    m_resizedByUser = true;
    // The text columns after the dragged edge give or take what it moved, so the rest stays put.
    QHeaderView *header = horizontalHeader();
    int change = newSize - oldSize;
    m_fitting = true;
    for (int visual = header->visualIndex(column) + 1; visual < header->count() && change != 0; ++visual) {
        const int next = header->logicalIndex(visual);
        if (header->isSectionHidden(next) || !isTextColumn(next))
            continue;
        const int size = header->sectionSize(next);
        const int to = std::max(narrowest(next), size - change);
        header->resizeSection(next, to);
        change -= size - to;
    }
    m_fitting = false;
}

bool SongTable::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == horizontalHeader()->viewport()) {
        if (event->type() == QEvent::MouseButtonPress || event->type() == QEvent::MouseButtonDblClick) {
            m_userResizing = true;
        } else if (event->type() == QEvent::MouseButtonRelease && m_userResizing) {
            // The widths the user left are the ones asked for from now on.
            m_userResizing = false;
            if (std::exchange(m_resizedByUser, false)) {
                QHeaderView *header = horizontalHeader();
                for (int column = 0; column < header->count(); ++column)
                    if (!header->isSectionHidden(column))
                        m_preferredWidths.insert(column, header->sectionSize(column));
                fitColumns();
                emit columnsResizedByUser();
            }
        }
    }
    return QTableView::eventFilter(watched, event);
}

bool SongTable::viewportEvent(QEvent *event)
{
    const bool done = QTableView::viewportEvent(event);
    if (event->type() == QEvent::Resize)
        fitColumns();
    return done;
}

void SongTable::setEmptyText(const QString &title, const QString &detail)
{
    if (title == m_emptyTitle && detail == m_emptyDetail)
        return;
    m_emptyTitle = title;
    m_emptyDetail = detail;
    viewport()->update();
}

void SongTable::paintEmptyText()
{
    QPainter p(viewport());
    p.setRenderHint(QPainter::TextAntialiasing);
    const QRect area = viewport()->rect().adjusted(24, 0, -24, 0);
    const QFont titleFont = PlayerArt::font(PlayerArt::Weight::Medium, 19);
    const QFont detailFont = PlayerArt::font(PlayerArt::Weight::Regular, 14);
    const int titleHeight = QFontMetrics(titleFont).height();
    // A little above the middle, where the eye rests in an empty view.
    const int top = area.top() + area.height() * 2 / 5 - titleHeight;
    QColor colour = PlayerArt::accent();
    colour.setAlphaF(0.62f);
    p.setFont(titleFont);
    p.setPen(colour);
    p.drawText(QRect(area.left(), top, area.width(), titleHeight), Qt::AlignCenter,
               QFontMetrics(titleFont).elidedText(m_emptyTitle, Qt::ElideRight, area.width()));
    if (m_emptyDetail.isEmpty())
        return;
    colour.setAlphaF(0.42f);
    p.setFont(detailFont);
    p.setPen(colour);
    const QRect detail(area.left() + area.width() / 2 - std::min(area.width(), 420) / 2,
                       top + titleHeight + 8, std::min(area.width(), 420), area.height());
    p.drawText(detail, Qt::AlignHCenter | Qt::AlignTop | Qt::TextWordWrap, m_emptyDetail);
}

void SongTable::keyPressEvent(QKeyEvent *event)
{
    // Return plays; Backspace removes as Delete does (the menu's shortcut takes Delete).
    switch (event->key()) {
    case Qt::Key_Return:
    case Qt::Key_Enter:
        if (event->modifiers() == Qt::NoModifier || event->modifiers() == Qt::KeypadModifier) {
            m_controller->playSelection();
            return;
        }
        break;
    case Qt::Key_Backspace:
        if (event->modifiers() == Qt::NoModifier) {
            m_controller->deleteSelection();
            return;
        }
        break;
    default: break;
    }
    QTableView::keyPressEvent(event);
}

QPixmap SongTable::dragPixmap(int rows) const
{
    const qreal dpr = devicePixelRatioF();
    if (rows == 1) {
        const QModelIndexList current = selectionModel()->selectedRows();
        if (!current.isEmpty()) {
            const int row = current.first().row();
            QRect band(0, rowViewportPosition(row), viewport()->width(), rowHeight(row));
            if (band.intersects(viewport()->rect()))
                return viewport()->grab(band);
        }
    }
    // A music file with a badge counting the songs; the badge widens with the digits.
    const int icon = 48;
    const QString count = QString::number(rows);
    QFont bold = PlayerArt::font(PlayerArt::Weight::Bold, 12);
    const int textWidth = QFontMetrics(bold).horizontalAdvance(count);
    const int badgeH = 20;
    const int badgeW = std::max(badgeH, textWidth + (count.size() <= 2 ? 10 : count.size() == 3 ? 12 : 14));
    QPixmap picture(QSize(icon + badgeW - 8, icon + 8) * dpr);
    picture.setDevicePixelRatio(dpr);
    picture.fill(Qt::transparent);
    QPainter p(&picture);
    p.setRenderHint(QPainter::Antialiasing);
    p.setOpacity(0.9);
    const QIcon file = QIcon::fromTheme(QStringLiteral("audio-x-generic"));
    if (!file.isNull()) {
        file.paint(&p, QRect(0, 4, icon, icon));
    } else {
        // A sheet with a folded corner and a note: the look of a sound file.
        QPainterPath sheet;
        sheet.moveTo(8, 4);
        sheet.lineTo(30, 4);
        sheet.lineTo(40, 14);
        sheet.lineTo(40, 52);
        sheet.lineTo(8, 52);
        sheet.closeSubpath();
        p.fillPath(sheet, QColor(236, 240, 246));
        p.setPen(QPen(QColor(120, 130, 145), 1));
        p.drawPath(sheet);
        p.setBrush(PlayerArt::panel());
        p.setPen(Qt::NoPen);
        p.drawEllipse(QRectF(15, 36, 8, 6));
        p.fillRect(QRectF(21, 22, 2, 17), PlayerArt::panel());
        p.fillRect(QRectF(21, 22, 8, 3), PlayerArt::panel());
    }
    p.setOpacity(1.0);
    const qreal badgeY = icon * 0.5 - badgeH * 0.5 + 8;
    const QRectF badge(icon - 8, badgeY, badgeW, badgeH);
    p.setBrush(QColor(215, 60, 50));
    p.setPen(QPen(Qt::white, 1.5));
    p.drawRoundedRect(badge.adjusted(0.75, 0.75, -0.75, -0.75), badgeH / 2.0, badgeH / 2.0);
    p.setFont(bold);
    p.setPen(Qt::white);
    p.drawText(badge, Qt::AlignCenter, count);
    return picture;
}

void SongTable::startDrag(Qt::DropActions)
{
    // The base class would list every selected cell (a million for 100,000 rows); the
    // controller hands over the songs at once.
    QMimeData *data = m_controller->dragData();
    auto *drag = new QDrag(this);
    drag->setMimeData(data);
    const QList<qint64> rows = m_controller->selectedSongIndexes();
    const QPixmap picture = dragPixmap(int(rows.size()));
    drag->setPixmap(picture);
    drag->setHotSpot(rows.size() == 1 ? QPoint(8, picture.height() / picture.devicePixelRatio() / 2)
                                      : QPoint(8, 8));
    drag->exec(Qt::CopyAction | Qt::MoveAction, Qt::MoveAction);
}

int SongTable::dropRowAt(const QPoint &viewportPoint) const
{
    const int row = rowAt(viewportPoint.y());
    if (row < 0)
        return model() ? model()->rowCount() : 0;
    const int top = rowViewportPosition(row);
    return viewportPoint.y() - top > rowHeight(row) / 2 ? row + 1 : row;
}

void SongTable::setDropMark(int row, bool wholeTable)
{
    if (row == m_dropRow && wholeTable == m_dropOnTable)
        return;
    m_dropRow = row;
    m_dropOnTable = wholeTable;
    viewport()->update();
}

void SongTable::dragEnterEvent(QDragEnterEvent *event)
{
    if (m_controller->dropKind(event->mimeData()) == SongTableController::DropKind::Refuse) {
        event->ignore();
        return;
    }
    event->acceptProposedAction();
}

void SongTable::dragMoveEvent(QDragMoveEvent *event)
{
    const auto kind = m_controller->dropKind(event->mimeData());
    if (kind == SongTableController::DropKind::Refuse) {
        setDropMark(-1, false);
        event->ignore();
        return;
    }
    // Files go to the list as a whole; songs land between two rows.
    if (kind == SongTableController::DropKind::Files)
        setDropMark(-1, true);
    else
        setDropMark(dropRowAt(event->position().toPoint()), false);
    event->acceptProposedAction();
    // The table scrolls when the pointer nears its edges.
    const int y = int(event->position().y());
    if (y < 24)
        verticalScrollBar()->setValue(verticalScrollBar()->value() - rowHeight(0));
    else if (y > viewport()->height() - 24)
        verticalScrollBar()->setValue(verticalScrollBar()->value() + rowHeight(0));
}

void SongTable::dragLeaveEvent(QDragLeaveEvent *event)
{
    setDropMark(-1, false);
    event->accept();
}

void SongTable::dropEvent(QDropEvent *event)
{
    const int row = m_dropOnTable ? -1 : dropRowAt(event->position().toPoint());
    setDropMark(-1, false);
    if (m_controller->acceptDrop(event->mimeData(), row)) {
        // Our own rows are moved, not taken away: the source must not remove anything.
        event->setDropAction(Qt::CopyAction);
        event->accept();
    } else {
        event->ignore();
    }
}

void SongTable::paintEvent(QPaintEvent *event)
{
    QTableView::paintEvent(event);
    if (model() && model()->rowCount() == 0 && !m_emptyTitle.isEmpty())
        paintEmptyText();
    if (m_dropRow < 0 && !m_dropOnTable)
        return;
    QPainter p(viewport());
    p.setRenderHint(QPainter::Antialiasing);
    const QColor accent = PlayerArt::accent();
    if (m_dropOnTable) {
        p.setPen(QPen(accent, 2));
        p.drawRect(QRectF(viewport()->rect()).adjusted(1, 1, -1, -1));
        return;
    }
    const int rows = model() ? model()->rowCount() : 0;
    const int y = m_dropRow < rows ? rowViewportPosition(m_dropRow)
                                   : (rows > 0 ? rowViewportPosition(rows - 1) + rowHeight(rows - 1) : 0);
    p.setPen(QPen(accent, 2));
    p.drawLine(QPointF(6, y), QPointF(viewport()->width() - 2, y));
    p.setBrush(PlayerArt::panel());
    p.drawEllipse(QPointF(4, y), 3, 3);
}
