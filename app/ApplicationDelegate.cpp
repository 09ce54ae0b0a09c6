#include "ApplicationDelegate.h"

#include "ApplicationRemoteHost.h"
#include "MprisService.h"
#include "NowPlayingNotifier.h"
#include "core/VEKDate.h"
#include "core/VEKLocalizedString.h"
#include "library/LibraryPlaylist.h"
#include "library/iTunesLibraryPlaylist.h"
#include "remote/Remote.h"
#include "audio/Stream.h"
#include "settings/UserDefaults.h"

#include <QCoreApplication>
#include <QDateTime>
#include <cstdlib>
#include <sys/random.h>
#include <unistd.h>

namespace {
ApplicationDelegate *g_delegate = nullptr;
}

quint64 ApplicationDelegate::playerSizeForScreen(const QRectF &screen)
{
    return 1200.0 > screen.width() ? 3 : 2;
}

void ApplicationDelegate::registerDefaults(UserDefaults &defaults, const QRectF &mainScreen)
{
    // Two thirds of the way up the screen, in Qt's coordinates whose y grows downwards: a third
    // of the height below the screen's top edge.
    const double x = mainScreen.x() + 0.5 * mainScreen.width();
    const double y = mainScreen.y() + mainScreen.height() / 3.0;
    defaults.registerDefaults({
        {QStringLiteral("repeat"), 0},
        {QStringLiteral("shuffle"), false},
        {QStringLiteral("volumeKnob"), 1},
        {QStringLiteral("converterClass"), QStringLiteral("IZOConverterAudioProcessor")},
        {QStringLiteral("preferredFormat"), QVariantMap{{QStringLiteral("quality"), 1}}},
        {QStringLiteral("playerSize"), playerSizeForScreen(mainScreen)},
        {QStringLiteral("playerCenter"), QStringLiteral("{%1, %2}").arg(x).arg(y)},
        {QStringLiteral("libraryOpen"), true},
        {QStringLiteral("librarySplitPosition"), 167},
        {QStringLiteral("iTunesLibraryLocation"),
         QStringLiteral("~/Music/iTunes/iTunes Music Library.xml")},
        {QStringLiteral("selectedPlaylistID"), -1},
    });
}

ApplicationDelegate::ApplicationDelegate(FrontEnd *frontEnd, QObject *parent)
    : QObject(parent), m_frontEnd(frontEnd)
{
    if (!m_frontEnd) {
        m_silentFrontEnd = std::make_unique<FrontEnd>();
        m_frontEnd = m_silentFrontEnd.get();
    }
    g_delegate = this;
    m_nowPlaying = new NowPlayingNotifier(this);
    // Steps 1 and 2: the empty library and the two all-songs playlists.
    buildLibraries();
}

ApplicationDelegate::~ApplicationDelegate()
{
    if (g_delegate == this)
        g_delegate = nullptr;
    if (Database::shared() == m_database.get())
        Database::setShared(nullptr);
}

ApplicationDelegate *ApplicationDelegate::shared() { return g_delegate; }

void ApplicationDelegate::applicationWillFinishLaunching()
{
    applicationWillFinishLaunching(LaunchOptions());
}

void ApplicationDelegate::applicationWillFinishLaunching(const LaunchOptions &options)
{
    // Every run shuffles differently, and two processes (the CLI beside the player) draw
    // different IDs.
    unsigned seed = 0;
    if (::getrandom(&seed, sizeof seed, 0) != sizeof seed)
        seed = unsigned(QDateTime::currentMSecsSinceEpoch()) ^ unsigned(::getpid());
    ::srandom(seed);

    UserDefaults &defaults = UserDefaults::standard();
    // A damaged settings file was replaced by the defaults; say so once.
    defaults.takeLoadError().alert();

    // MPRIS
    if (options.mpris)
        m_mpris = new MprisService(this, this);

    launchStream(options);

    // Remote service
    if (options.remote) Remote::start(new ApplicationRemoteHost(*this, this));

    m_queue = std::make_unique<OperationQueue>();
    connect(m_queue.get(), &OperationQueue::operationStarted, this,
            [this](std::shared_ptr<Operation> operation) { emit operationStarted(operation); });
    connect(m_queue.get(), &OperationQueue::operationFinished, this,
            [this](std::shared_ptr<Operation> operation) { operationDidFinish(operation); });

    constructDatabase();

    // The iTunes question, once per user, before the first read-in.
    if (!defaults.boolForKey(QStringLiteral("seenAccessiTunesLibraryQuery"))) {
        const std::optional<bool> answer = m_frontEnd->askAccessITunesLibrary();
        if (answer) {
            if (*answer)
                defaults.setValue(QStringLiteral("accessiTunesLibrary"), true);
            defaults.setValue(QStringLiteral("seenAccessiTunesLibraryQuery"), true);
        }
    }

    // Only queued: its result arrives through the main thread after the launch has ended.
    loadiTunesLibrary();

    loadDatabase();

    m_lastLibraryModification = VEKDate::now();
    m_lastPlaylistModification = VEKDate::now();

    selectPlaylistWithID(defaults.integerForKey(QStringLiteral("selectedPlaylistID")));
    refreshCurrentSongs();
}

void ApplicationDelegate::applicationWillTerminate()
{
    if (m_queue)
        m_queue->cancelAllOperations();
    // A tag edit saved just before the quit reaches the library file too (its file is written
    // on the tag writer, its row here), before the stream stops.
    if (m_tagWriter) {
        m_tagWriter->flush();
        QCoreApplication::sendPostedEvents(this, QEvent::MetaCall);
    }
    // Remote service
    Remote::stop();
    if (m_stream)
        m_stream->stop();
    UserDefaults::standard().setValue(QStringLiteral("selectedPlaylistID"),
                                      m_selectedPlaylist ? m_selectedPlaylist->playlistID() : 0);
    // Settings wait in memory for a moment before they are written; none may be lost at quit.
    UserDefaults::standard().synchronize();
    // The queue's worker is joined before the library file closes: an operation that is still
    // running holds a connection of its own and must not outlive the program's.
    m_queue.reset();
    if (Database::shared() == m_database.get())
        Database::setShared(nullptr);
    m_database.reset(); // finishes the queued playlist writes first
    // The windows go after the library file and before the stream they observe.
    m_frontEnd->releaseWindows();
    // MPRIS
    delete m_mpris;
    m_mpris = nullptr;
    if (m_stream) {
        disconnect(m_stream.get(), nullptr, this, nullptr);
        m_stream->teardown();
        m_stream.reset();
    }
}


ApplicationDelegate::MediaKeyAction ApplicationDelegate::mediaKeyAction(int eventType,
                                                                        int subtype, qint64 data1)
{
    if (eventType != 14 || quint16(subtype) != 8)
        return MediaKeyAction::PassOn;
    const int keyCode = int((data1 >> 16) & 0xffff);
    if (keyCode < 16 || keyCode > 20)
        return MediaKeyAction::PassOn;
    // A release must neither reach another program nor act.
    if ((data1 & 0xff00) != 0xa00)
        return MediaKeyAction::Swallow;
    switch (keyCode) {
    case 16: return MediaKeyAction::Play;
    case 17:
    case 19: return MediaKeyAction::Next;
    default: return MediaKeyAction::Previous;
    }
}

void ApplicationDelegate::buildLibraries()
{
    auto library = std::make_shared<LibraryPlaylist>();
    library->setPlaylistID(Playlist::LibraryPlaylistID);
    m_localPlaylists.append(library);
    watchPlaylist(library);
    m_selectedPlaylist = library;
    auto iTunes = std::make_shared<iTunesLibraryPlaylist>();
    iTunes->setPlaylistID(Playlist::ITunesLibraryPlaylistID);
    m_iTunesPlaylists.append(iTunes);
    watchPlaylist(iTunes);
}

void ApplicationDelegate::watchPlaylist(const PlaylistPtr &playlist)
{
    // The connection ends with the playlist; the weak reference keeps this from holding it.
    connect(playlist.get(), &Playlist::valueChanged, this,
            [this, weak = std::weak_ptr<Playlist>(playlist)](const QString &key) {
                if (key != QLatin1String("shuffle") && key != QLatin1String("repeatMode"))
                    return;
                if (const PlaylistPtr p = weak.lock())
                    emit playModeChanged(p);
            });
}

PlaylistPtr ApplicationDelegate::playlistForID(qint64 playlistID) const
{
    for (const auto &p : m_localPlaylists)
        if (p->playlistID() == playlistID)
            return p;
    for (const auto &p : m_iTunesPlaylists)
        if (p->playlistID() == playlistID)
            return p;
    return nullptr;
}

PlaylistPtr ApplicationDelegate::playlistAtIndex(quint64 index) const
{
    return index < quint64(m_localPlaylists.size()) ? m_localPlaylists.at(qsizetype(index))
                                                    : nullptr;
}

void ApplicationDelegate::updateAllControls()
{
    // The library, player and mini player windows share one front-end object.
    m_frontEnd->updateControls();
}
