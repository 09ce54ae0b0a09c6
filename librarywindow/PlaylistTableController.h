#pragma once

#include "library/Playlist.h"

#include <QObject>
#include <functional>

class ApplicationDelegate;
class PlaylistTableItemDelegate;
class PlaylistTableModel;
class QAction;
class QTreeView;
class QWidget;

// The playlist sidebar of the library window: the outline of PlaylistTableModel in a tree view
// named "Playlists", which the controller keeps in step with the delegate.
//
// It follows the front end's requests by itself (a SignalFrontEnd's refreshPlaylists and
// beginEditingPlaylist), so whoever holds it need not forward them.
//
// The row selected is always the delegate's selected playlist, whoever chose it (this view, the
// remote, a deletion, a rescan); a click on a playlist row makes it the selected one, a click on
// a group header selects nothing. Return and F2 rename the selected playlist in place (when it
// is neither a library nor locked), Delete deletes it after a confirmation.
//
// The view names the controller as its "commandTarget", so the menus' commands reach it while
// the sidebar has the focus: rename, deleteSelection, createPreferredVersion (see MainMenu). A
// right click offers them too, with New Playlist.
// Main thread only.
class PlaylistTableController : public QObject {
    Q_OBJECT
public:
    using SelectionHandler = std::function<void(const PlaylistPtr &)>;

    PlaylistTableController(ApplicationDelegate *delegate, QWidget *parent);
    ~PlaylistTableController() override;

    QTreeView *view() const { return m_view; }
    PlaylistTableModel *model() const { return m_model; }

    // Who makes a clicked playlist the selected one; by default the delegate. The library
    // window puts itself in between, to keep each playlist's song selection.
    void setSelectionHandler(SelectionHandler handler);

    // Rebuilds the outline (the delegate's lists changed), expands it and selects the
    // delegate's selected playlist.
    void update();
    // Selects, alone, the row of the delegate's selected playlist (none when it is not shown).
    void updateSelectedPlaylist();
    // Starts editing the name of `playlist` in place, its text selected; nothing for a
    // playlist whose name can't change.
    void beginEditingPlaylist(const PlaylistPtr &playlist);

    // The menus' validation: whether `command` (a slot below) can act now.
    Q_INVOKABLE bool validateCommand(const QString &command, QAction *item) const;

public slots:
    void rename();
    // Deletes the selected playlist, after the confirmation unless the user turned it off. A
    // library or locked playlist stays, without a word.
    void deleteSelection();
    // A version in the preferred format of every song of the selected playlist (its search
    // plays no part) lands in that same playlist.
    void createPreferredVersion();

protected:
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void selectionDidChange();
    // New playlist and the commands above, on a right click.
    void showContextMenu(const QPoint &at);

    ApplicationDelegate *m_delegate;
    PlaylistTableModel *m_model;
    QTreeView *m_view;
    PlaylistTableItemDelegate *m_itemDelegate;
    SelectionHandler m_selectionHandler;
    // Set while the controller itself moves the selection, which must not go back out.
    bool m_updatingSelection = false;
};
