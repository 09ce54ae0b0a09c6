#include "PlaylistTableController.h"

#include "PlaylistTableItemDelegate.h"
#include "PlaylistTableModel.h"
#include "SongIDsMimeData.h"

#include "app/ApplicationDelegate.h"
#include "app/SignalFrontEnd.h"
#include "core/VEKLocalizedString.h"
#include "player/MainMenu.h"
#include "player/PlayerArt.h"
#include "settings/UserDefaults.h"

#include <QAction>
#include <QCheckBox>
#include <QDropEvent>
#include <QKeyEvent>
#include <QMenu>
#include <QMessageBox>
#include <QMimeData>
#include <QPushButton>
#include <QTreeView>

namespace {

const QString kSuppressKey = QStringLiteral("suppressConfirmDeletePlaylistAlert");

// The question before a playlist goes; the box's "don't ask again" is kept whatever the answer.
bool confirmDelete(QWidget *parent)
{
    UserDefaults &defaults = UserDefaults::standard();
    if (defaults.boolForKey(kSuppressKey))
        return true;
    QMessageBox box(parent);
    box.setIcon(QMessageBox::Warning);
    box.setWindowTitle(QStringLiteral("Quivera"));
    box.setText(VEKLocalizedString("PlaylistTable_confirmDelete_title"));
    box.setInformativeText(VEKLocalizedString("PlaylistTable_confirmDelete_message"));
    QPushButton *yes =
        box.addButton(VEKLocalizedString("PlaylistTable_confirmDelete_yes"), QMessageBox::AcceptRole);
    QPushButton *no =
        box.addButton(VEKLocalizedString("PlaylistTable_confirmDelete_no"), QMessageBox::RejectRole);
    box.setDefaultButton(yes);
    box.setEscapeButton(no);
    auto *suppress = new QCheckBox(VEKLocalizedString("PlaylistTable_confirmDelete_suppress"));
    box.setCheckBox(suppress);
    box.exec();
    if (suppress->isChecked())
        defaults.setValue(kSuppressKey, true);
    return box.clickedButton() == yes;
}

bool nameCanChange(const PlaylistPtr &playlist)
{
    return playlist && !playlist->isLibraryPlaylist() && !playlist->locked();
}

} // namespace

PlaylistTableController::PlaylistTableController(ApplicationDelegate *delegate, QWidget *parent)
    : QObject(parent), m_delegate(delegate), m_model(new PlaylistTableModel(delegate, this)),
      m_view(new QTreeView(parent))
{
    m_view->setObjectName(QStringLiteral("Playlists"));
    m_view->setAccessibleName(VEKLocalizedString("PlaylistTable_name"));
    m_view->setProperty("commandTarget", QVariant::fromValue<QObject *>(this));
    m_view->setModel(m_model);
    m_itemDelegate = new PlaylistTableItemDelegate(m_view);
    m_view->setItemDelegate(m_itemDelegate);
    m_view->setHeaderHidden(true);
    m_view->setRootIsDecorated(false);
    m_view->setIndentation(0);
    // Groups can't be folded by the user.
    m_view->setItemsExpandable(false);
    m_view->setExpandsOnDoubleClick(false);
    m_view->setUniformRowHeights(false);
    m_view->setSelectionMode(QAbstractItemView::SingleSelection);
    m_view->setSelectionBehavior(QAbstractItemView::SelectRows);
    m_view->setEditTriggers(QAbstractItemView::EditKeyPressed | QAbstractItemView::DoubleClicked);
    m_view->setFrameShape(QFrame::NoFrame);
    m_view->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_view->setTextElideMode(Qt::ElideRight);
    // Songs arrive by their IDs and land on a row as a whole, never between rows.
    m_view->setAcceptDrops(true);
    m_view->setDragDropMode(QAbstractItemView::DropOnly);
    m_view->setDefaultDropAction(Qt::CopyAction);
    m_view->setDragDropOverwriteMode(true);
    // The indicator decides where a drop lands (on a row as a whole), but the row that would
    // take it draws its own rim (see eventFilter): the style's square frame, drawn in the text
    // colour, is made invisible below.
    m_view->setDropIndicatorShown(true);
    m_view->setMinimumWidth(120);

    QPalette palette = m_view->palette();
    const QColor surface = PlayerArt::panel().lighter(135);
    for (auto role : {QPalette::Base, QPalette::Window, QPalette::AlternateBase})
        palette.setColor(role, surface);
    // The rows draw their text themselves; the text colour serves only the drop indicator.
    palette.setColor(QPalette::Text, Qt::transparent);
    palette.setColor(QPalette::Highlight, PlayerArt::accent().darker(250));
    palette.setColor(QPalette::HighlightedText, Qt::white);
    m_view->setPalette(palette);
    m_view->setAutoFillBackground(true);
    m_view->viewport()->setAutoFillBackground(true);
    m_view->setFont(PlayerArt::font(PlayerArt::Weight::Regular, 14));

    m_view->installEventFilter(this);
    m_view->viewport()->installEventFilter(this);
    m_view->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(m_view, &QWidget::customContextMenuRequested, this, &PlaylistTableController::showContextMenu);
    m_selectionHandler = [this](const PlaylistPtr &playlist) { m_delegate->setSelectedPlaylist(playlist); };
    connect(m_view->selectionModel(), &QItemSelectionModel::selectionChanged, this,
            &PlaylistTableController::selectionDidChange);
    connect(m_model, &QAbstractItemModel::modelReset, this, [this] { m_view->expandAll(); });
    connect(m_delegate, &ApplicationDelegate::selectedPlaylistChanged, this,
            &PlaylistTableController::updateSelectedPlaylist);
    if (auto *frontEnd = dynamic_cast<SignalFrontEnd *>(m_delegate->frontEnd())) {
        connect(frontEnd, &SignalFrontEnd::refreshPlaylistsRequested, this, &PlaylistTableController::update);
        connect(frontEnd, &SignalFrontEnd::beginEditingPlaylistRequested, this,
                &PlaylistTableController::beginEditingPlaylist);
    }
    update();
}

PlaylistTableController::~PlaylistTableController() = default;

void PlaylistTableController::setSelectionHandler(SelectionHandler handler)
{
    m_selectionHandler = std::move(handler);
}

void PlaylistTableController::update()
{
    m_updatingSelection = true;
    m_model->update();
    m_view->expandAll();
    m_updatingSelection = false;
    updateSelectedPlaylist();
}

void PlaylistTableController::updateSelectedPlaylist()
{
    const QModelIndex row = m_model->indexOfPlaylist(m_delegate->selectedPlaylist());
    m_updatingSelection = true;
    if (row.isValid()) {
        m_view->selectionModel()->setCurrentIndex(row, QItemSelectionModel::ClearAndSelect);
        m_view->scrollTo(row);
    } else {
        m_view->selectionModel()->clearSelection();
    }
    m_updatingSelection = false;
}

void PlaylistTableController::selectionDidChange()
{
    if (m_updatingSelection)
        return;
    // A row selected from outside (a screen reader's selection) joins the one already selected:
    // the newcomer wins, and the view is trimmed to it once the selected playlist changes.
    PlaylistPtr playlist;
    for (const QModelIndex &row : m_view->selectionModel()->selectedRows()) {
        if (const PlaylistPtr candidate = m_model->playlistAt(row)) {
            playlist = candidate;
            if (candidate != m_delegate->selectedPlaylist())
                break;
        }
    }
    // A click beside the rows clears the view's selection, but a playlist stays selected.
    if (!playlist) {
        updateSelectedPlaylist();
        return;
    }
    if (playlist != m_delegate->selectedPlaylist())
        m_selectionHandler(playlist);
}

void PlaylistTableController::beginEditingPlaylist(const PlaylistPtr &playlist)
{
    if (!nameCanChange(playlist))
        return;
    const QModelIndex row = m_model->indexOfPlaylist(playlist);
    if (!row.isValid())
        return;
    m_view->scrollTo(row);
    m_view->setCurrentIndex(row);
    m_view->edit(row);
}

bool PlaylistTableController::validateCommand(const QString &command, QAction *) const
{
    const PlaylistPtr &selected = m_delegate->selectedPlaylist();
    if (command == QLatin1String("rename") || command == QLatin1String("deleteSelection"))
        return nameCanChange(selected);
    if (command == QLatin1String("createPreferredVersion"))
        return !m_delegate->songs().isEmpty();
    return false;
}

void PlaylistTableController::rename()
{
    beginEditingPlaylist(m_delegate->selectedPlaylist());
}

void PlaylistTableController::deleteSelection()
{
    if (!nameCanChange(m_delegate->selectedPlaylist()))
        return;
    if (confirmDelete(m_view->window()))
        m_delegate->deleteSelectedPlaylist();
}

void PlaylistTableController::createPreferredVersion()
{
    const PlaylistPtr playlist = m_delegate->selectedPlaylist();
    if (playlist)
        m_delegate->createPreferredVersionOfSongs(playlist->songsInManualOrder(), playlist);
}

void PlaylistTableController::showContextMenu(const QPoint &at)
{
    // A right click on a playlist chooses it first, so the commands act on what was clicked.
    const PlaylistPtr clicked = m_model->playlistAt(m_view->indexAt(at));
    if (clicked && clicked != m_delegate->selectedPlaylist())
        m_selectionHandler(clicked);
    QMenu menu(m_view);
    menu.addAction(VEKLocalizedString("Commands_fileMenu_newPlaylist"), this,
                   [this] { m_delegate->newPlaylistWithSongs({}); });
    menu.addSeparator();
    const std::pair<const char *, QString> commands[] = {
        {"rename", VEKLocalizedString("Commands_editMenu_rename")},
        {"deleteSelection", VEKLocalizedString("Commands_editMenu_delete")},
        {"createPreferredVersion", MainMenu::createVersionTitle()},
    };
    for (const auto &[slot, title] : commands) {
        QAction *item = menu.addAction(title, this, [this, name = QByteArray(slot)] {
            QMetaObject::invokeMethod(this, name.constData());
        });
        item->setEnabled(validateCommand(QString::fromLatin1(slot), item));
    }
    menu.exec(m_view->viewport()->mapToGlobal(at));
}

bool PlaylistTableController::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_view->viewport()) {
        QModelIndex target;
        switch (event->type()) {
        case QEvent::DragEnter:
        case QEvent::DragMove: {
            const auto *drag = static_cast<QDropEvent *>(event);
            const QModelIndex at = m_view->indexAt(drag->position().toPoint());
            if (drag->mimeData()->hasFormat(SongIDsMimeData::mimeType)
                && m_model->acceptsDropOn(m_model->playlistAt(at)))
                target = at;
            [[fallthrough]];
        }
        case QEvent::DragLeave:
        case QEvent::Drop:
            if (target != m_itemDelegate->dropTarget()) {
                m_itemDelegate->setDropTarget(target);
                m_view->viewport()->update();
            }
            break;
        default: break;
        }
        return false;
    }
    // Keys that an open name editor let pass come here too: they belong to the editor.
    if (watched == m_view && event->type() == QEvent::KeyPress
        && !m_view->indexWidget(m_view->currentIndex())) {
        const auto *key = static_cast<QKeyEvent *>(event);
        if (key->modifiers() & ~Qt::KeypadModifier)
            return false;
        switch (key->key()) {
        case Qt::Key_Delete:
        case Qt::Key_Backspace: deleteSelection(); return true;
        case Qt::Key_Return:
        case Qt::Key_Enter:
        case Qt::Key_F2: rename(); return true;
        default: break;
        }
    }
    return QObject::eventFilter(watched, event);
}
