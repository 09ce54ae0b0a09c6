#include "SongTableController.h"
#include "core/VEKPaths.h"

#include "SongDrag.h"
#include "SongIDsMimeData.h"
#include "SongInfo.h"
#include "SongTable.h"
#include "SongTableModel.h"
#include "app/ApplicationDelegate.h"
#include "audio/Stream.h"
#include "core/VEKLocalizedString.h"
#include "settings/UserDefaults.h"
#include "text/VEKFileSizeFormatter.h"

#include <QCheckBox>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDesktopServices>
#include <QFileInfo>
#include <QFontMetricsF>
#include <QHeaderView>
#include <QItemSelection>
#include <QLabel>
#include <QMenu>
#include <QMessageBox>
#include <QMimeData>
#include <QPushButton>
#include <QUrl>
#include <cmath>

namespace {
const QString kColumnsKey = QStringLiteral("songTableColumns");
const QString kSuppressDeleteKey = QStringLiteral("suppressConfirmDeleteSongAlert");

struct ColumnDefault {
    const char *identifier;
    int width;
    bool hidden;
};
// The first layout; the user's own replaces it once changed.
const ColumnDefault kDefaults[] = {
    {"ordinal", 40, false},   {"name", 260, false},  {"artist", 170, false}, {"album", 190, false},
    {"track", 60, false},     {"length", 60, false}, {"genre", 110, false},  {"albumArtist", 150, true},
    {"composer", 150, true},  {"disc", 50, true},    {"kind", 130, true},    {"format", 80, true},
    {"sampleRate", 90, true}, {"bitrate", 80, true}, {"size", 80, true},     {"dateAdded", 140, true},
};
} // namespace

SongTableController::SongTableController(ApplicationDelegate *delegate, QObject *parent)
    : QObject(parent), m_delegate(delegate)
{
    m_model = new SongTableModel(delegate, this);
    m_view = new SongTable(this);
    m_view->setModel(m_model);
    m_view->setProperty("commandTarget", QVariant::fromValue<QObject *>(this));
    m_footer = new QLabel;
    m_footer->setObjectName(QStringLiteral("songTableFooter"));
    m_footer->setAccessibleName(VEKLocalizedString("SongTable_summary"));
    m_footer->setAlignment(Qt::AlignCenter);

    QHeaderView *header = m_view->horizontalHeader();
    // The header never shows the rows' selection. Given the table's, each paint of it asks for
    // every column whether all rows are selected, walking every selected range.
    header->setSelectionModel(new QItemSelectionModel(m_model, header));
    restoreColumns();
    connect(header, &QHeaderView::sectionClicked, this,
            [this](int logical) { columnClicked(SongTableModel::identifiers().value(logical)); });
    connect(header, &QHeaderView::sectionMoved, this, &SongTableController::sectionMoved);
    connect(m_view, &SongTable::columnsResizedByUser, this, [this] { saveColumns(); });
    header->setContextMenuPolicy(Qt::CustomContextMenu);
    connect(header, &QHeaderView::customContextMenuRequested, this, [this, header](const QPoint &at) {
        // The same choice as the View menu's columns, where the pointer is.
        QMenu menu;
        for (const QString &id : SongTableModel::identifiers()) {
            if (id == QLatin1String("ordinal") || id == QLatin1String("name"))
                continue;
            QAction *a = menu.addAction(VEKLocalizedString(QStringLiteral("SongTable_column_") + id));
            a->setCheckable(true);
            a->setChecked(!isHiddenForColumn(id));
            connect(a, &QAction::toggled, this, [this, id](bool on) { setIsHiddenForColumn(!on, id); });
        }
        menu.exec(header->mapToGlobal(at));
    });
    connect(m_view, &QAbstractItemView::doubleClicked, this,
            [this](const QModelIndex &index) { didDoubleClick(index.row()); });

    if (Stream *stream = m_delegate->stream()) {
        connect(stream, &Stream::currentSongChanged, m_model, &SongTableModel::statusChanged);
        connect(stream, &Stream::playingChanged, m_model, &SongTableModel::statusChanged);
        connect(stream, &Stream::playlistChanged, m_model, &SongTableModel::statusChanged);
    }
    update();
}

SongTableController::~SongTableController()
{
    delete m_view;
    delete m_footer;
}

QString SongTableController::totalTimeText(double seconds)
{
    // Hours and minutes are cut, seconds rounded, each from the total by itself: 119.7 s reads
    // 01:00, never 02:00 or 01:59.
    const float hours = std::trunc(float(seconds / 3600.0));
    const auto minutes = quint16(qint64(std::trunc(std::fabs(seconds) / 60.0)) % 60);
    const auto secs = quint16(qint64(std::trunc(std::round(std::fabs(seconds)))) % 60);
    if (hours != 0)
        return QString::asprintf("%.0f:%.2hu:%.2hu", double(hours), minutes, secs);
    return QString::asprintf("%.2hu:%.2hu", minutes, secs);
}

QString SongTableController::footerText(qsizetype count, double seconds, quint64 bytes)
{
    return QStringLiteral("%1 %2, %3 %4, %5")
        .arg(count)
        .arg(VEKLocalizedString(count == 1 ? "SongTable_footer_song" : "SongTable_footer_songs"),
             totalTimeText(seconds), VEKLocalizedString("SongTable_footer_totalTime"),
             VEKFileSizeFormatter().stringForByteCount(qint64(bytes)));
}

int SongTableController::ordinalColumnWidth(const Playlist *playlist, qsizetype count, const QFont &font)
{
    if (!playlist || playlist->isLibraryPlaylist())
        return 18;
    // Sized for the number below the highest row's: ten songs measure "9".
    const float text = float(QFontMetricsF(font).horizontalAdvance(QString::number(count - 1)));
    return int(std::ceil(text + 4 + 4 + 18));
}

SongTableController::DropKind SongTableController::dropKind(const QMimeData *data, const Playlist *playlist)
{
    if (!data || !playlist)
        return DropKind::Refuse;
    if (!data->hasFormat(SongIDsMimeData::mimeType)) {
        if (data->hasUrls() && !playlist->locked())
            return DropKind::Files;
        return DropKind::Refuse;
    }
    if (playlist->locked() || playlist->isLibraryPlaylist() || playlist->sortKey() != QLatin1String("ordinal")
        || playlist->shuffle())
        return DropKind::Refuse;
    return DropKind::Move;
}

SongTableController::DropKind SongTableController::dropKind(const QMimeData *data) const
{
    return dropKind(data, m_delegate->selectedPlaylist().get());
}

void SongTableController::update()
{
    const PlaylistPtr playlist = m_delegate->selectedPlaylist();
    const PlaylistPtr shown = m_shown.lock();
    const bool samePlaylist = playlist && playlist == shown;
    // The same rows again (a search every song matches, a tag edit): they and their selection
    // stay, and only their texts are read anew.
    const bool sameRows = samePlaylist && m_model->showsDelegatesList();
    QList<SongPtr> keep;
    if (samePlaylist) {
        if (!sameRows)
            keep = selectedSongs();
    } else if (shown) {
        // The rows are kept in the playlist's full list: a search left behind goes with the
        // field that was cleared.
        const QList<SongPtr> selected = selectedSongs();
        if (shown->predicate())
            shown->setPredicate(nullptr);
        shown->setSelectedRows(selected.isEmpty() ? Playlist::Rows() : shown->indexesOfSongs(selected));
    }

    if (sameRows)
        m_model->textsChanged();
    else
        m_model->reload();
    updateSortIndicator();
    // What an empty list says: why it is empty and, where it can take songs, how to add some.
    if (!playlist)
        m_view->setEmptyText({}, {});
    else if (playlist->isFromITunes() && m_delegate->isReadingITunesLibrary())
        m_view->setEmptyText(VEKLocalizedString("SongTable_empty_iTunesReading"),
                             VEKLocalizedString("SongTable_empty_iTunesReadingDetail"));
    else if (playlist->predicate())
        m_view->setEmptyText(VEKLocalizedString("SongTable_empty_search"),
                             VEKLocalizedString("SongTable_empty_searchDetail"));
    else if (playlist->isLibraryPlaylist())
        m_view->setEmptyText(VEKLocalizedString("SongTable_empty_library"),
                             playlist->locked() ? QString()
                                                : VEKLocalizedString("SongTable_empty_libraryDetail"));
    else
        m_view->setEmptyText(VEKLocalizedString("SongTable_empty_playlist"),
                             playlist->locked() ? QString()
                                                : VEKLocalizedString("SongTable_empty_playlistDetail"));
    const QList<SongPtr> &songs = m_model->songs();
    // Measured in the font the numbers are drawn in.
    m_view->setColumnWidth(SongTableModel::columnOf(QStringLiteral("ordinal")),
                           ordinalColumnWidth(playlist.get(), songs.size(), m_view->font()));
    double seconds = 0;
    quint64 bytes = 0;
    for (const SongPtr &song : songs) {
        seconds += song->length();
        bytes += song->size();
    }
    m_footer->setText(footerText(songs.size(), seconds, bytes));

    if (samePlaylist) {
        if (!sameRows)
            selectSongs(keep);
    } else if (playlist)
        setSelectedSongIndexes(playlist->selectedRows());
    m_shown = playlist;
}

void SongTableController::updateSortIndicator()
{
    QString key = m_delegate->sortKey();
    if (key.isEmpty())
        key = QStringLiteral("ordinal");
    QHeaderView *header = m_view->horizontalHeader();
    header->setSortIndicatorShown(true);
    header->setSortIndicator(SongTableModel::columnOf(key),
                             m_delegate->sortAscending() ? Qt::AscendingOrder : Qt::DescendingOrder);
}

void SongTableController::revealCurrentSong()
{
    const Stream *stream = m_delegate->stream();
    if (!stream || !stream->currentSong() || stream->playlist() != m_delegate->selectedPlaylist())
        return;
    const qsizetype row = m_model->songs().indexOf(stream->currentSong());
    if (row >= 0)
        m_view->scrollTo(m_model->index(int(row), 0));
}

void SongTableController::deselectAll()
{
    m_view->clearSelection();
}

Playlist::Rows SongTableController::selectedSongIndexes() const
{
    // From the selection's ranges, never its cells: select-all of 100,000 rows is one range.
    QList<std::pair<int, int>> spans;
    for (const QItemSelectionRange &range : m_view->selectionModel()->selection())
        spans.append({range.top(), range.bottom()});
    std::sort(spans.begin(), spans.end());
    Playlist::Rows rows;
    int next = 0;
    for (const auto &[top, bottom] : spans) {
        for (int row = std::max(top, next); row <= bottom; ++row)
            rows.append(row);
        next = std::max(next, bottom + 1);
    }
    return rows;
}

qsizetype SongTableController::selectedRowCount() const
{
    QList<std::pair<int, int>> spans;
    for (const QItemSelectionRange &range : m_view->selectionModel()->selection())
        spans.append({range.top(), range.bottom()});
    std::sort(spans.begin(), spans.end());
    qsizetype count = 0;
    int next = 0;
    for (const auto &[top, bottom] : spans) {
        if (bottom >= std::max(top, next))
            count += bottom - std::max(top, next) + 1;
        next = std::max(next, bottom + 1);
    }
    return count;
}

qsizetype SongTableController::firstSelectedSongIndex() const
{
    int first = -1;
    for (const QItemSelectionRange &range : m_view->selectionModel()->selection())
        if (first < 0 || range.top() < first)
            first = range.top();
    return first;
}

void SongTableController::setSelectedSongIndexes(const Playlist::Rows &rows)
{
    // Runs of rows become one range each.
    QItemSelection selection;
    const int count = m_model->rowCount();
    const int last = m_model->columnCount() - 1;
    qsizetype i = 0;
    while (i < rows.size()) {
        const qsizetype start = rows.at(i);
        qsizetype end = start;
        while (i + 1 < rows.size() && rows.at(i + 1) == end + 1)
            end = rows.at(++i);
        ++i;
        if (start >= count)
            continue;
        selection.append(QItemSelectionRange(m_model->index(int(start), 0),
                                             m_model->index(int(std::min<qsizetype>(end, count - 1)), last)));
    }
    m_view->selectionModel()->select(selection, QItemSelectionModel::ClearAndSelect);
}

QList<SongPtr> SongTableController::selectedSongs() const
{
    QList<SongPtr> songs;
    const QList<SongPtr> &all = m_model->songs();
    for (qsizetype row : selectedSongIndexes())
        if (row < all.size())
            songs.append(all.at(row));
    return songs;
}

void SongTableController::selectSongs(const QList<SongPtr> &songs)
{
    if (songs.isEmpty()) {
        deselectAll();
        return;
    }
    QSet<const Song *> wanted;
    wanted.reserve(songs.size());
    for (const SongPtr &s : songs)
        wanted.insert(s.get());
    Playlist::Rows rows;
    const QList<SongPtr> &all = m_model->songs();
    for (qsizetype row = 0; row < all.size(); ++row)
        if (wanted.contains(all.at(row).get()))
            rows.append(row);
    setSelectedSongIndexes(rows);
}

bool SongTableController::isHiddenForColumn(const QString &identifier) const
{
    const int column = SongTableModel::columnOf(identifier);
    return column < 0 || m_view->horizontalHeader()->isSectionHidden(column);
}

void SongTableController::setIsHiddenForColumn(bool hidden, const QString &identifier)
{
    const int column = SongTableModel::columnOf(identifier);
    // The status and name columns always show.
    if (column < 0 || identifier == QLatin1String("ordinal") || identifier == QLatin1String("name"))
        return;
    m_view->horizontalHeader()->setSectionHidden(column, hidden);
    saveColumns();
}

void SongTableController::restoreColumns()
{
    QHeaderView *header = m_view->horizontalHeader();
    m_restoringColumns = true;
    QVariantList stored = UserDefaults::standard().arrayForKey(kColumnsKey);
    QStringList order;
    for (const ColumnDefault &d : kDefaults) {
        const int column = SongTableModel::columnOf(QLatin1String(d.identifier));
        m_view->setPreferredColumnWidth(column, d.width);
        header->setSectionHidden(column, d.hidden);
    }
    for (const QVariant &entry : stored) {
        const QVariantMap map = entry.toMap();
        const QString id = map.value(QStringLiteral("identifier")).toString();
        const int column = SongTableModel::columnOf(id);
        if (column < 0 || order.contains(id))
            continue;
        order.append(id);
        const int width = map.value(QStringLiteral("width")).toInt();
        if (width > 0 && id != QLatin1String("ordinal"))
            m_view->setPreferredColumnWidth(column, width);
        header->setSectionHidden(column, id != QLatin1String("ordinal") && id != QLatin1String("name")
                                             && map.value(QStringLiteral("hidden")).toBool());
    }
    // The stored order, with the two fixed columns in front whatever the file says.
    order.removeAll(QStringLiteral("ordinal"));
    order.removeAll(QStringLiteral("name"));
    order.prepend(QStringLiteral("name"));
    order.prepend(QStringLiteral("ordinal"));
    for (int visual = 0; visual < order.size(); ++visual)
        header->moveSection(header->visualIndex(SongTableModel::columnOf(order.at(visual))), visual);
    m_restoringColumns = false;
}

void SongTableController::saveColumns()
{
    if (m_restoringColumns)
        return;
    QHeaderView *header = m_view->horizontalHeader();
    QVariantList columns;
    for (int visual = 0; visual < header->count(); ++visual) {
        const int column = header->logicalIndex(visual);
        columns.append(
            QVariantMap{{QStringLiteral("identifier"), SongTableModel::identifiers().value(column)},
                        {QStringLiteral("width"), m_view->preferredColumnWidth(column)},
                        {QStringLiteral("hidden"), header->isSectionHidden(column)}});
    }
    if (UserDefaults::standard().arrayForKey(kColumnsKey) != columns)
        UserDefaults::standard().setValue(kColumnsKey, columns);
}

void SongTableController::sectionMoved(int logical, int oldVisual, int newVisual)
{
    if (m_restoringColumns)
        return;
    const QString &id = SongTableModel::identifiers().value(logical);
    // The status and name columns keep the first two places, and nothing moves before them.
    if (newVisual < 2 || id == QLatin1String("ordinal") || id == QLatin1String("name")) {
        m_restoringColumns = true;
        m_view->horizontalHeader()->moveSection(newVisual, oldVisual);
        m_restoringColumns = false;
        return;
    }
    saveColumns();
}

void SongTableController::columnClicked(const QString &identifier)
{
    const PlaylistPtr playlist = m_delegate->selectedPlaylist();
    if (!playlist || identifier.isEmpty())
        return;
    // The library has no order of its own to go back to.
    if (identifier == QLatin1String("ordinal") && playlist->isLibraryPlaylist()) {
        updateSortIndicator();
        return;
    }
    // Both calls bring a new list (and update()), which keeps the selected songs selected.
    if (identifier == m_delegate->sortKey())
        m_delegate->setSortAscending(!m_delegate->sortAscending());
    else
        m_delegate->setSortKey(identifier);
    updateSortIndicator();
}

void SongTableController::didDoubleClick(int row)
{
    const SongPtr song = m_model->songAt(row);
    Stream *stream = m_delegate->stream();
    if (!song || song->isMissing() || !stream)
        return;
    const PlaylistPtr playlist = m_delegate->selectedPlaylist();
    if (stream->isPlaying() && stream->playlist() == playlist && stream->currentSong() == song) {
        stream->setLocation(0.0);
        return;
    }
    stream->setPlaylist(playlist);
    stream->setCurrentSong(song);
    stream->play();
}

void SongTableController::playSelection()
{
    const qsizetype row = firstSelectedSongIndex();
    if (row >= 0)
        didDoubleClick(int(row));
}

QMimeData *SongTableController::dragData() const
{
    return new SongDrag(selectedSongs());
}

bool SongTableController::acceptDrop(const QMimeData *data, int row)
{
    const DropKind kind = dropKind(data);
    if (kind == DropKind::Files) {
        QStringList paths;
        for (const QUrl &url : data->urls())
            if (url.isLocalFile())
                paths.append(VEKPaths::fromURL(url));
        m_delegate->addFilesToLibrary(paths);
        return true;
    }
    if (kind != DropKind::Move)
        return false;
    const QList<SongPtr> selected = selectedSongs();
    QList<SongPtr> moved;
    for (qint64 id : SongIDsMimeData::songIDs(data))
        if (const SongPtr song = m_delegate->library().value(id))
            moved.append(song);
    m_delegate->moveSongsToIndex(moved, row < 0 ? m_model->rowCount() : row);
    selectSongs(selected);
    return true;
}

void SongTableController::newPlaylistFromSelection()
{
    m_delegate->newPlaylistWithSongs(selectedSongs());
}

void SongTableController::getInfo()
{
    // The sheet walks the table's list from the first selected song; a missing file opens none.
    const qsizetype row = firstSelectedSongIndex();
    const SongPtr song = m_model->songAt(int(row));
    if (song && !song->isMissing())
        SongInfo::open(m_delegate, m_model->songs(), row, m_view);
}

void SongTableController::showInFileManager()
{
    const SongPtr song = m_model->songAt(int(firstSelectedSongIndex()));
    if (!song)
        return;
    const QUrl file = VEKPaths::toURL(song->URL());
    // The desktop's file manager shows the file selected; without one the folder opens.
    QDBusMessage call = QDBusMessage::createMethodCall(
        QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("/org/freedesktop/FileManager1"),
        QStringLiteral("org.freedesktop.FileManager1"), QStringLiteral("ShowItems"));
    call << QStringList{file.toString()} << QString();
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || !bus.send(call))
        QDesktopServices::openUrl(VEKPaths::toURL(QFileInfo(song->URL()).absolutePath()));
}

void SongTableController::createPreferredVersion()
{
    m_delegate->createPreferredVersionOfSongs(selectedSongs(), nullptr);
}

void SongTableController::deleteSelection()
{
    const PlaylistPtr playlist = m_delegate->selectedPlaylist();
    if (!playlist || playlist->locked() || selectedRowCount() == 0)
        return;
    UserDefaults &defaults = UserDefaults::standard();
    if (!defaults.boolForKey(kSuppressDeleteKey)) {
        QMessageBox box(m_view->window());
        box.setIcon(QMessageBox::Warning);
        box.setWindowTitle(VEKLocalizedString("Library_windowTitle"));
        box.setText(VEKLocalizedString("SongTable_confirmDelete_title"));
        box.setInformativeText(VEKLocalizedString("SongTable_confirmDelete_message"));
        QPushButton *yes =
            box.addButton(VEKLocalizedString("SongTable_confirmDelete_yes"), QMessageBox::AcceptRole);
        box.addButton(VEKLocalizedString("SongTable_confirmDelete_no"), QMessageBox::RejectRole);
        box.setDefaultButton(yes);
        auto *suppress = new QCheckBox(VEKLocalizedString("SongTable_confirmDelete_suppress"));
        box.setCheckBox(suppress);
        box.exec();
        // The box counts even when the answer is no.
        if (suppress->isChecked())
            defaults.setValue(kSuppressDeleteKey, true);
        if (box.clickedButton() != yes)
            return;
    }
    m_delegate->removeSongsAtIndexes(selectedSongIndexes());
    deselectAll();
}

void SongTableController::selectAll()
{
    m_view->selectAll();
}

void SongTableController::selectNone()
{
    deselectAll();
}

bool SongTableController::validateCommand(const QString &command, QAction *)
{
    const qsizetype selected = selectedRowCount();
    if (command == QLatin1String("selectAll"))
        return m_model->rowCount() > 0;
    if (command == QLatin1String("getInfo") || command == QLatin1String("showInFileManager"))
        return selected == 1;
    if (command == QLatin1String("createPreferredVersion")
        || command == QLatin1String("newPlaylistFromSelection") || command == QLatin1String("selectNone"))
        return selected > 0;
    if (command == QLatin1String("deleteSelection")) {
        const PlaylistPtr playlist = m_delegate->selectedPlaylist();
        return selected > 0 && playlist && !playlist->locked();
    }
    return false;
}
