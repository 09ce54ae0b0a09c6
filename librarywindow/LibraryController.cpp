#include "LibraryController.h"

#include "ArtworkView.h"
#include "ArtworkViewController.h"
#include "LibraryWindow.h"
#include "PlaylistTableController.h"
#include "SongTable.h"
#include "SongTableController.h"
#include "app/ApplicationDelegate.h"
#include "app/SignalFrontEnd.h"
#include "core/VEKLocalizedString.h"
#include "library/ConvertOperation.h"
#include "library/ImportOperation.h"
#include "library/LoadiTunesOperation.h"
#include "player/MainMenu.h"
#include "player/PlayerArt.h"
#include "player/PlayerButton.h"
#include "player/PlayerRepeatButton.h"
#include "settings/UserDefaults.h"

#include <QAction>
#include <QActionGroup>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMenuBar>
#include <QPainter>
#include <QPainterPath>
#include <QProgressBar>
#include <QPropertyAnimation>
#include <QShortcut>
#include <QSplitter>
#include <QToolButton>
#include <QTreeView>

namespace {
const QString kOpenKey = QStringLiteral("libraryOpen");
const QString kSplitKey = QStringLiteral("librarySplitPosition");
const QString kArtworkKey = QStringLiteral("libraryShowArtwork");
constexpr float kMinimumSplit = 150;
constexpr float kMaximumSplit = 320;

// A magnifier with a small caret: the field's scopes open from it.
QIcon searchIcon()
{
    QPixmap pixmap(QSize(22, 16) * 2);
    pixmap.setDevicePixelRatio(2);
    pixmap.fill(Qt::transparent);
    QPainter p(&pixmap);
    p.setRenderHint(QPainter::Antialiasing);
    QColor colour = PlayerArt::accent();
    colour.setAlphaF(0.75f);
    p.setPen(QPen(colour, 1.6, Qt::SolidLine, Qt::RoundCap));
    p.drawEllipse(QRectF(3, 2.5, 8, 8));
    p.drawLine(QPointF(10, 9.5), QPointF(13, 12.5));
    QPainterPath caret;
    caret.moveTo(15.5, 7);
    caret.lineTo(20, 7);
    caret.lineTo(17.75, 9.8);
    caret.closeSubpath();
    p.fillPath(caret, colour);
    return QIcon(pixmap);
}
} // namespace

LibraryController::LibraryController(ApplicationDelegate &delegate, MainMenu *menu, QObject *parent)
    : QObject(parent), m_delegate(delegate), m_menu(menu)
{
    build(menu);
    if (auto *frontEnd = dynamic_cast<SignalFrontEnd *>(m_delegate.frontEnd())) {
        connect(frontEnd, &SignalFrontEnd::refreshSongsRequested, this, &LibraryController::refreshSongs);
        connect(frontEnd, &SignalFrontEnd::refreshPlaylistsRequested, this,
                &LibraryController::refreshPlaylists);
        connect(frontEnd, &SignalFrontEnd::updateControlsRequested, this, &LibraryController::updateControls);
        connect(frontEnd, &SignalFrontEnd::revealCurrentSongRequested, this,
                &LibraryController::revealCurrentSong);
        connect(frontEnd, &SignalFrontEnd::openRequested, this, &LibraryController::open);
    }
    // A playlist chosen elsewhere (the remote, a deletion) drops the search as the sidebar's does.
    connect(&m_delegate, &ApplicationDelegate::selectedPlaylistChanged, this, [this] {
        clearSearchField();
        updateControls();
    });
    connect(&m_delegate, &ApplicationDelegate::playModeChanged, this, &LibraryController::updateControls);
    // The strip follows the queue: up while an operation runs, down when the queue is empty.
    if (OperationQueue *queue = m_delegate.queue()) {
        connect(queue, &OperationQueue::operationStarted, this,
                [this](const std::shared_ptr<Operation> &operation) { setCurrentOperation(operation); });
        connect(queue, &OperationQueue::operationCountChanged, this, [this](int count) {
            if (count == 0)
                setCurrentOperation(nullptr);
        });
    }
    m_progressTimer.setInterval(500);
    connect(&m_progressTimer, &QTimer::timeout, this, &LibraryController::updateProgress);

    UserDefaults &defaults = UserDefaults::standard();
    setSplitPosition(defaults.value(kSplitKey).isValid() ? float(defaults.doubleForKey(kSplitKey)) : 167.0f);
    m_showArtwork = !defaults.boolForKey(kArtworkKey);
    setShowArtwork(defaults.boolForKey(kArtworkKey), false);
    refreshPlaylists();
    refreshSongs();
    updateControls();
    if (!defaults.value(kOpenKey).isValid() || defaults.boolForKey(kOpenKey))
        open();
}

LibraryController::~LibraryController()
{
    setCurrentOperation(nullptr);
    delete m_songTable;
    delete m_window;
    delete m_scopeMenu;
    delete m_tableMenu;
}

void LibraryController::build(MainMenu *menu)
{
    m_window = new LibraryWindow;
    m_songTable = new SongTableController(&m_delegate);
    m_window->setTable(m_songTable->view(), m_songTable->footer());
    m_playlistTable = new PlaylistTableController(&m_delegate, m_window->leftColumn());
    m_window->setSidebar(m_playlistTable->view());
    m_artwork = new ArtworkViewController(&m_delegate, m_window->artworkPanel());
    m_window->setArtwork(m_artwork->view());
    // The sidebar's choice passes here, so each playlist keeps its own song selection.
    m_playlistTable->setSelectionHandler(
        [this](const PlaylistPtr &playlist) { setSelectedPlaylist(playlist); });
    connect(m_window, &LibraryWindow::closing, this,
            [] { UserDefaults::standard().setValue(kOpenKey, false); });

    if (menu) {
        menu->fillMenuBar(m_window->menuBar());
        menu->attachTo(m_window);
        // The table's own menu: the File and Edit commands of the selection.
        m_tableMenu = new QMenu;
        for (const char *slot : {"getInfo", "showInFileManager", "", "newPlaylistFromSelection",
                                 "createPreferredVersion", "", "deleteSelection"}) {
            if (!*slot)
                m_tableMenu->addSeparator();
            else if (QAction *item = menu->commandItem(QString::fromLatin1(slot)))
                m_tableMenu->addAction(item);
        }
        connect(m_songTable->view(), &QWidget::customContextMenuRequested, this, [this](const QPoint &at) {
            if (m_menu)
                m_menu->validate();
            m_tableMenu->popup(m_songTable->view()->viewport()->mapToGlobal(at));
        });
    }

    // The search field, with its scopes on the magnifier.
    QLineEdit *field = m_window->searchField();
    m_scopeMenu = new QMenu;
    auto *scopes = new QActionGroup(m_scopeMenu);
    for (quint64 scope = 0; scope < 5; ++scope) {
        QAction *item =
            m_scopeMenu->addAction(VEKLocalizedString(QStringLiteral("Library_searchScope_%1").arg(scope)));
        item->setCheckable(true);
        item->setChecked(scope == m_searchScope);
        scopes->addAction(item);
        connect(item, &QAction::triggered, this, [this, scope] { setSearchScope(scope); });
    }
    QAction *scopeButton = field->addAction(searchIcon(), QLineEdit::LeadingPosition);
    scopeButton->setToolTip(VEKLocalizedString("Library_search"));
    connect(scopeButton, &QAction::triggered, this,
            [this, field] { m_scopeMenu->popup(field->mapToGlobal(QPoint(0, field->height()))); });
    // The field's icon buttons (the scopes and the clear button) have no text a screen reader
    // could read out.
    for (auto *button : field->findChildren<QToolButton *>())
        button->setAccessibleName(VEKLocalizedString(
            button->defaultAction() == scopeButton ? "Library_searchScopes" : "Library_searchClear"));
    connect(field, &QLineEdit::textChanged, this, &LibraryController::search);
    // Down from the field goes to the table, where Return plays.
    connect(field, &QLineEdit::returnPressed, this, [this] { m_songTable->view()->setFocus(); });
    updateSearchPlaceholder();
    auto *find = new QShortcut(QKeySequence::Find, m_window);
    connect(find, &QShortcut::activated, this, &LibraryController::focusSearch);

    // The buttons.
    connect(m_window->shuffleButton(), &PlayerButton::triggered, this,
            [this] { m_delegate.setShuffle(!m_delegate.shuffle()); });
    connect(m_window->repeatButton(), &PlayerButton::triggered, this,
            [this] { m_delegate.setRepeatMode((m_delegate.repeatMode() + 1) % 3); });
    connect(m_window->artworkButton(), &PlayerButton::triggered, this,
            [this] { setShowArtwork(!m_showArtwork, true); });
    connect(m_window->progressStopButton(), &QToolButton::clicked, this, [this] {
        if (OperationQueue *queue = m_delegate.queue())
            queue->cancelAllOperations();
    });

    connect(m_window->splitter(), &QSplitter::splitterMoved, this,
            [this](int position) { setSplitPosition(float(position)); });
    m_artworkAnimation = new QPropertyAnimation(m_window, "artworkHeight", this);
    m_artworkAnimation->setDuration(250);
    m_artworkAnimation->setEasingCurve(QEasingCurve::InOutQuad);
}

void LibraryController::open()
{
    UserDefaults::standard().setValue(kOpenKey, true);
    // A window that opens starts in its songs, where arrows and Return act, not in the search.
    if (!m_window->isVisible())
        m_songTable->view()->setFocus(Qt::OtherFocusReason);
    m_window->show();
    m_window->raise();
    m_window->activateWindow();
}

void LibraryController::focusSearch()
{
    QLineEdit *field = m_window->searchField();
    field->setFocus(Qt::ShortcutFocusReason);
    field->selectAll();
}

void LibraryController::setSplitPosition(float position)
{
    const float p = std::clamp(position, kMinimumSplit, kMaximumSplit);
    if (p == m_splitPosition)
        return;
    m_splitPosition = p;
    QSplitter *splitter = m_window->splitter();
    const QList<int> sizes = splitter->sizes();
    const int total = sizes.value(0) + sizes.value(1);
    if (sizes.value(0) != int(p)) {
        const QSignalBlocker block(splitter);
        splitter->setSizes({int(p), std::max(total - int(p), int(p))});
    }
    // The artwork stays square with the column.
    if (m_showArtwork && m_artworkAnimation->state() != QAbstractAnimation::Running)
        m_window->setArtworkHeight(ArtworkViewController::heightForWidth(int(p)));
    UserDefaults::standard().setValue(kSplitKey, double(p));
}

void LibraryController::setShowArtwork(bool show, bool animated)
{
    if (show != m_showArtwork) {
        const int target = show ? ArtworkViewController::heightForWidth(int(m_splitPosition)) : 0;
        m_artworkAnimation->stop();
        if (animated) {
            m_artworkAnimation->setStartValue(m_window->artworkHeight());
            m_artworkAnimation->setEndValue(target);
            m_artworkAnimation->start();
        } else {
            m_window->setArtworkHeight(target);
        }
    }
    m_showArtwork = show;
    UserDefaults::standard().setValue(kArtworkKey, show);
    m_window->artworkButton()->setState(show);
}

void LibraryController::setSearchScope(quint64 scope)
{
    m_searchScope = scope;
    m_lastSearch.clear();
    m_searches.clear();
    const QList<QAction *> items = m_scopeMenu->actions();
    if (scope < quint64(items.size()))
        items.at(qsizetype(scope))->setChecked(true);
    updateSearchPlaceholder();
    search();
}

void LibraryController::updateSearchPlaceholder()
{
    const QString scope = VEKLocalizedString(QStringLiteral("Library_searchScope_%1").arg(m_searchScope));
    m_window->searchField()->setPlaceholderText(
        m_searchScope == 0 ? VEKLocalizedString("Library_search")
                           : QStringLiteral("%1 \u2013 %2").arg(VEKLocalizedString("Library_search"), scope));
}

void LibraryController::search()
{
    const PlaylistPtr playlist = m_delegate.selectedPlaylist();
    if (!playlist)
        return;
    const QString text = m_window->searchField()->text().trimmed();
    const SongPredicate predicate = SongPredicate::forSearch(text, int(m_searchScope));
    auto made = predicate.isEmpty() ? nullptr : std::make_shared<const SongPredicate>(predicate);
    const bool current = playlist->predicate() && playlist->predicate() == m_lastPredicate;
    if (!current)
        m_searches.clear();
    // Backspace: a text searched on the way here has its hits still.
    while (!m_searches.isEmpty() && (text.isEmpty() || !text.startsWith(m_searches.last().text)))
        m_searches.removeLast();
    if (made && current && !m_searches.isEmpty() && m_searches.last().text == text && m_lastSearch != text) {
        made = m_searches.last().predicate;
        playlist->restorePredicate(made, m_searches.last().hits);
    } else if (made && current && !m_lastSearch.isEmpty() && text.startsWith(m_lastSearch)) {
        // A letter typed at the end can only narrow the hits: every word of the shorter text
        // lies within a word of the longer one. Those songs are searched again, not all.
        playlist->narrowPredicate(made);
    } else {
        playlist->setPredicate(made);
    }
    m_lastSearch = made ? text : QString();
    m_lastPredicate = made;
    m_searching = true;
    m_delegate.refreshCurrentSongs();
    m_searching = false;
    if (made && (m_searches.isEmpty() || m_searches.last().text != text))
        m_searches.append({text, made, m_delegate.songs()});
}

void LibraryController::clearSearchField()
{
    // The field is emptied without a search: the new list comes without a predicate.
    const QSignalBlocker block(m_window->searchField());
    m_window->searchField()->clear();
}

void LibraryController::refreshSongs()
{
    // Hits kept from earlier searches hold only while nothing but the search changed the list.
    if (!m_searching) {
        m_searches.clear();
        m_lastSearch.clear();
    }
    m_songTable->update();
    updateControls();
    if (const PlaylistPtr playlist = m_delegate.selectedPlaylist())
        playlist->prepareSearch();
}

void LibraryController::refreshPlaylists()
{
    // The sidebar redraws itself on the same notice.
    clearSearchField();
    m_songTable->deselectAll();
}

void LibraryController::updateControls()
{
    m_window->shuffleButton()->setState(m_delegate.shuffle());
    m_window->repeatButton()->setMode(m_delegate.repeatMode());
}

void LibraryController::revealCurrentSong()
{
    m_songTable->revealCurrentSong();
}

void LibraryController::setSelectedPlaylist(const PlaylistPtr &playlist)
{
    clearSearchField();
    // The table stores the old playlist's selection and restores the new one's in its update.
    m_delegate.setSelectedPlaylist(playlist);
}

bool LibraryController::isHiddenForColumn(const QString &identifier) const
{
    return m_songTable->isHiddenForColumn(identifier);
}

void LibraryController::setIsHiddenForColumn(bool hidden, const QString &identifier)
{
    m_songTable->setIsHiddenForColumn(hidden, identifier);
}

QString LibraryController::progressTextFor(const Operation *operation)
{
    if (const auto *convert = qobject_cast<const ConvertOperation *>(operation))
        return VEKLocalizedString("Library_converting")
            .arg(convert->song() ? convert->song()->name() : QString());
    if (qobject_cast<const ImportOperation *>(operation))
        return VEKLocalizedString("Library_importing");
    if (qobject_cast<const LoadiTunesOperation *>(operation))
        return VEKLocalizedString("Library_loadingITunes");
    return {};
}

void LibraryController::setCurrentOperation(const std::shared_ptr<Operation> &operation)
{
    m_currentOperation = operation;
    if (!m_window)
        return;
    if (operation) {
        if (!m_progressTimer.isActive())
            m_progressTimer.start();
        m_window->progressText()->setText(progressTextFor(operation.get()));
        m_window->progressIndicator()->setValue(0);
        m_window->progressView()->show();
    } else {
        m_progressTimer.stop();
        m_window->progressView()->hide();
    }
}

void LibraryController::updateProgress()
{
    if (m_currentOperation)
        m_window->progressIndicator()->setValue(
            int(std::clamp(m_currentOperation->progress(), 0.0f, 1.0f) * 1000));
}
