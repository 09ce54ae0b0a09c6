#pragma once

#include "FrontEnd.h"
#include "MenuItem.h"
#include "library/Database.h"
#include "library/Playlist.h"
#include "library/Song.h"
#include "ops/OperationQueue.h"
#include "ops/SerialTaskQueue.h"
#include "outputs/VEKAudioDevice.h"

#include <QHash>
#include <QList>
#include <QObject>
#include <QRectF>
#include <QVariantMap>
#include <functional>
#include <memory>
#include <optional>

class ConvertOperation;
class MprisService;
class Stream;
class ImportOperation;
class LoadiTunesOperation;
class NowPlayingNotifier;
class UserDefaults;

// The central object: owns the library, the playlists, the library file, the background queue
// and (with the playback work) the stream. Every change of the library from the user passes
// through here. One per process; all calls on the main thread unless a comment says otherwise.
//
// Its code is split by concern: launch and shutdown (ApplicationDelegate.cpp), the library
// file (ApplicationDelegateDatabase.cpp), the library operations
// (ApplicationDelegateLibrary.cpp), the background operations and their merge
// (ApplicationDelegateOperations.cpp), and the migration of old property lists
// (ApplicationDelegateMigration.cpp).
class ApplicationDelegate : public QObject {
    Q_OBJECT
public:
    // What a launch brings up beside the library. The player and `quivera-cli play|render|serve`
    // want the stream; the library commands of the CLI want none of it.
    struct LaunchOptions {
        bool stream = true;
        // False leaves the made stream initialised but stopped, for a caller that starts it when
        // it has set up what plays (an offline render wants no silence before its first song).
        bool startStream = true;
        // The network service and MPRIS on the session bus.
        bool remote = true;
        bool mpris = true;
        // Takes the place of the `outputDevice` setting for this run.
        VEKAudioDevicePtr outputDevice;
        // Takes the place of the `sampleRate` setting for this run.
        std::optional<qint64> sampleRatePolicy;
    };

    // Registers the program's default settings. Runs before anything else of the delegate.
    // `mainScreen` is the frame of the main screen in Qt's top-left coordinates; a program
    // without a display passes none. The player's centre defaults to the middle of the screen,
    // two thirds of the way up.
    static void registerDefaults(UserDefaults &defaults, const QRectF &mainScreen = QRectF());
    // The player size that suits a screen: 3 below 1200 points of width (or no screen), else 2.
    static quint64 playerSizeForScreen(const QRectF &screen);

    // Makes the empty library and the two all-songs playlists. `frontEnd` is not owned; null
    // gives a silent front end.
    explicit ApplicationDelegate(FrontEnd *frontEnd = nullptr, QObject *parent = nullptr);
    ~ApplicationDelegate() override;

    static ApplicationDelegate *shared();

    // The launch, in its fixed order; no failure stops it.
    void applicationWillFinishLaunching();
    void applicationWillFinishLaunching(const LaunchOptions &options);
    // The shutdown. Nothing of the library is written here: every change went to the file when
    // it happened.
    void applicationWillTerminate();

    // The actions of the media keys and the menus. Play pauses a playing stream; otherwise it
    // plays, and with nothing current (a fresh start, a playlist played out) it first makes the
    // first playable song of the playlist in view current, rather than spend the press on nothing.
    void play();
    // The stream's playlist, else the selected one, else the library.
    PlaylistPtr playlistInView() const;
    // Makes the first song of the playlist in view whose file is there current; false when there
    // is none (or no stream).
    bool makeFirstSongCurrent();
    void next();
    void previous();

    // The menu commands (ApplicationDelegateCommands.cpp). Each changes the model; the windows
    // follow through the front end.
    //
    // Decides, each time a menu opens (and before a shortcut acts), whether `item` is enabled,
    // and sets its check mark and, for play and the effects item, its title. An action it does
    // not know is enabled and left untouched. Next and previous look only at the stream's
    // playlist, across missing songs and the repeat mode, so they are enabled only when they
    // could do something.
    bool validateMenuItem(MenuItem &item) const;
    void toggleDim();
    void toggleMute();
    void toggleShuffle();
    // Turns every effect slot off when any is on, else all on; empty slots are skipped.
    void toggleEffectsEnabled();
    // Moves the `volume` setting by `step`, kept within 0 to 1.
    void changeVolume(double step);

    enum class MediaKeyAction { PassOn, Swallow, Play, Next, Previous };
    // The media-key filter: a system-defined event (type 14, subtype 8) with a key code of 16 to
    // 20 in bits 16-31 of data1 acts on a press (0x0a in bits 8-15) and is swallowed on release;
    // everything else passes on.
    static MediaKeyAction mediaKeyAction(int eventType, int subtype, qint64 data1);

    // Fields, read-only to others.
    Database *database() const { return m_database.get(); }
    const QHash<qint64, SongPtr> &library() const { return m_library; }
    const QList<PlaylistPtr> &localPlaylists() const { return m_localPlaylists; }
    const QList<PlaylistPtr> &iTunesPlaylists() const { return m_iTunesPlaylists; }
    const PlaylistPtr &selectedPlaylist() const { return m_selectedPlaylist; }
    const QList<SongPtr> &songs() const { return m_songs; }
    double lastLibraryModification() const { return m_lastLibraryModification; }
    double lastPlaylistModification() const { return m_lastPlaylistModification; }
    OperationQueue *queue() const { return m_queue.get(); }
    // The effects on offer, found once per run, at the first question: a plug-in installed
    // later shows at the next start. Looking through the plug-ins costs a launch that shows no
    // menu (the command line) nothing.
    const QList<QVariantMap> &effectDescriptions() const;
    FrontEnd *frontEnd() const { return m_frontEnd; }
    // The audio engine; null when the launch did not make one or it could not be made.
    Stream *stream() const { return m_stream.get(); }
    MprisService *mpris() const { return m_mpris; }

    // Playlists.
    void buildLibraries();
    PlaylistPtr playlistForID(qint64 playlistID) const;
    PlaylistPtr playlistAtIndex(quint64 index) const;

    // The library file.
    static QString libraryFilePath();
    // Opens the library file, building it when there is none; a file that is not a library is
    // moved aside and replaced, a damaged one is reported and left alone (no connection).
    void constructDatabase();
    // The schema, in one transaction, on the connection being built. False after an alert.
    bool buildDatabase();
    void loadDatabase();

    // Library operations.
    void refreshCurrentSongs();
    void rescan();
    void setMetadataForSong(const QVariantMap &metadata, const SongPtr &song);
    // The same change with the file's part off the main thread, for the windows: the playing
    // song pauses, the tags are written and read back on the tag writer's thread (one edit
    // after another, in order), then on the main thread the song takes the facts read back, the
    // library file stores them and the song plays on. `done` runs there with the outcome, after
    // an error was shown. Nothing arrives after the delegate is gone.
    void setMetadataForSongInBackground(const QVariantMap &metadata, const SongPtr &song,
                                        std::function<void(bool)> done = {});
    void deleteSelectedPlaylist();
    void newPlaylistWithSongs(const QList<SongPtr> &songs);
    void setNameOfPlaylist(const QString &name, const PlaylistPtr &playlist);
    void removeSongsAtIndexes(const Playlist::Rows &rows);
    void moveSongsToIndex(const QList<SongPtr> &songs, qsizetype index);
    void setSelectedPlaylist(const PlaylistPtr &playlist);
    bool shuffle() const;
    void setShuffle(bool shuffle);
    quint64 repeatMode() const;
    void setRepeatMode(quint64 mode);
    QString sortKey() const;
    void setSortKey(const QString &key);
    bool sortAscending() const;
    void setSortAscending(bool ascending);
    qint64 uniqueSongID() const;
    qint64 uniquePlaylistID() const;
    // The same draw against any set of taken IDs; the import calls it on its worker with a
    // snapshot of the library's IDs.
    static qint64 uniqueSongID(const std::function<bool(qint64)> &isTaken);

    // Background operations. They run one at a time on `queue`; each one's results enter the
    // library here, on the main thread, when it has finished (operationDidFinish).
    //
    // Queues an import of files and folders (paths or file URLs) into the library and into the
    // playlist selected now (the library alone when that is a library or iTunes playlist).
    // Returns the operation, for its progress and results; null before the launch made the
    // queue.
    std::shared_ptr<ImportOperation> addFilesToLibrary(const QStringList &files);
    // Files the system asks the program to open (the command line of `quivera`): imported.
    // Answers at once with success, whatever comes of the import.
    bool applicationOpenFiles(const QStringList &paths);
    // Queues the read-in of the iTunes library when accessiTunesLibrary is true; otherwise
    // does nothing and returns null.
    std::shared_ptr<LoadiTunesOperation> loadiTunesLibrary();
    // True from the queueing of the iTunes read-in until its songs are merged or it ends
    // otherwise: an iTunes playlist without songs is then still on its way, not empty.
    bool isReadingITunesLibrary() const { return !m_iTunesRead.expired(); }
    // Merges what a finished operation brought: an import's songs into the library, its
    // all-songs playlist and the target playlist (one insert each); the iTunes read-in's songs
    // into the iTunes library playlist and its playlists behind it; a conversion's new song into
    // the library and its destination (a failure goes to an alert); then the redraws. An
    // operation queued before a rescan merges nothing: the rescan has read the file anew.
    void operationDidFinish(const std::shared_ptr<Operation> &operation);
    // Queues one conversion to the preferred format for each song that is neither missing nor
    // in the preferred format already, in the order given; its result becomes a new song of the
    // library and, unless it is locked, of `playlist` (may be null). The import calls it for
    // the songs it set aside under createPreferredOnAdd. Returns the queued operations, for
    // their progress and results; empty before the launch made the queue.
    QList<std::shared_ptr<ConvertOperation>> createPreferredVersionOfSongs(const QList<SongPtr> &songs,
                                                                           const PlaylistPtr &playlist);

    // The stream's current song has changed (also to none): the stream calls this on the main
    // thread. Tells the desktop through a notification.
    void currentSongDidChange(const SongPtr &song);
    NowPlayingNotifier *nowPlayingNotifier() const { return m_nowPlaying; }

    // The migration of a library kept in the old property lists.
    void migrate(const std::function<void()> &operation);
    void migrateFromPropertyListsToVersion1();

    // Effect descriptions of the plug-ins of one type: 0x61756678 ('aufx') for effects,
    // 0x61756d66 ('aumf') for those that also take MIDI.
    static QList<QVariantMap> processorDescriptionsForType(quint32 type);

signals:
    // Notices for the front ends and MPRIS, all on the main thread. The redraw requests of the
    // library operations go through the FrontEnd instead; the stream has notices of its own.
    //
    // `selectedPlaylist` became another playlist (or none), whoever chose it: a window, the
    // remote client, a deleted playlist, a rescan. Sent after `songs` was rebuilt for it.
    void selectedPlaylistChanged(const PlaylistPtr &playlist);
    // The background queue took up `operation` (an import, a conversion, the iTunes read-in);
    // its end comes through operationDidFinish. Cancelled before it ran, it sends no start.
    void operationStarted(const std::shared_ptr<Operation> &operation);
    // Shuffle or repeat of one of the library's playlists changed, by whatever means (the
    // delegate's setters, the remote, MPRIS, a call on the playlist itself).
    void playModeChanged(const PlaylistPtr &playlist);

private:
    // Relays the play-mode changes of a playlist that joins the library.
    void watchPlaylist(const PlaylistPtr &playlist);
    // What the library operations ask of playback; an absent stream answers as a stopped one.
    SongPtr streamCurrentSong() const;
    bool streamIsPlaying() const;
    void streamPause();
    void streamPlay();
    void streamStopIfPlaying(const PlaylistPtr &playlist);
    void launchStream(const LaunchOptions &options);
    bool buildLibraryFile(const QString &path);

    void updateAllControls();
    // A song's own fields (its tags) changed: searched views are filtered anew.
    void songFieldsDidChange();
    // Writes the song's tags, size and sort numbers to its row of the library file.
    bool storeSongFacts(const Song &song, VEKError *error);
    void queueOperation(const std::shared_ptr<Operation> &operation);
    void mergeImport(const ImportOperation &import);
    void mergeITunesLibrary(const LoadiTunesOperation &load);
    // Selects the playlist a launch or a rescan had selected, or nothing if it is gone. The
    // iTunes playlists only come with the iTunes read-in, after them: while it runs, the iTunes
    // library stands in for a playlist not found, which the merge then selects (or nothing).
    void selectPlaylistWithID(qint64 playlistID);
    void mergeConversion(const ConvertOperation &conversion);

    FrontEnd *m_frontEnd;
    std::unique_ptr<FrontEnd> m_silentFrontEnd;
    std::unique_ptr<Database> m_database;
    QHash<qint64, SongPtr> m_library;
    QList<PlaylistPtr> m_localPlaylists;
    QList<PlaylistPtr> m_iTunesPlaylists;
    PlaylistPtr m_selectedPlaylist;
    QList<SongPtr> m_songs;
    double m_lastLibraryModification = 0;
    double m_lastPlaylistModification = 0;
    std::unique_ptr<OperationQueue> m_queue;
    // A rescan reads the library anew: what operations queued before it bring is stale.
    quint64 m_libraryGeneration = 0;
    QHash<const Operation *, quint64> m_operationGenerations;
    std::weak_ptr<LoadiTunesOperation> m_iTunesRead;
    std::optional<qint64> m_selectionAfterITunesRead;
    NowPlayingNotifier *m_nowPlaying = nullptr; // child
    mutable std::optional<QList<QVariantMap>> m_effectDescriptions;
    std::unique_ptr<Stream> m_stream;
    MprisService *m_mpris = nullptr; // child
    // Made at the first edit in the background; declared last, so it is joined first.
    std::unique_ptr<SerialTaskQueue> m_tagWriter;
};
