// MPRIS: the rules behind what it publishes, the cover art it hands out, and the player driven
// over a private session bus by a Qt client and by playerctl, as a desktop drives it.

#include "MprisTestSupport.h"
#include "support/CliHarness.h"

#include "app/ApplicationDelegate.h"
#include "app/MprisArtCache.h"
#include "app/MprisService.h"
#include "audio/Stream.h"
#include "library/ImportOperation.h"
#include "settings/UserDefaults.h"
#include "support/TestEnvironment.h"

#include <QDBusArgument>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusPendingCall>
#include <QDBusVariant>
#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QFileInfo>
#include <QImage>
#include <QUrl>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

const QString kRoot = u"org.mpris.MediaPlayer2"_s;
const QString kPlayer = u"org.mpris.MediaPlayer2.Player"_s;

SongPtr song(qint64 id, bool missing = false)
{
    auto s = std::make_shared<Song>();
    s->setSongID(id);
    s->setName(u"s%1"_s.arg(id));
    s->setIsMissing(missing);
    return s;
}

std::shared_ptr<Playlist> playlistOf(const QList<SongPtr> &songs, quint64 repeatMode = 0)
{
    auto p = std::make_shared<Playlist>();
    p->appendSongs(songs);
    p->setRepeatMode(repeatMode);
    return p;
}

} // namespace

// --- The rules of next and previous, as the menus decide them ----------------------------------

// The menus' cases (the last song, each repeat mode, missing songs on the way) are
// MenuValidation's, on the same rules; here the edges the menus never reach.
TEST(MprisRules, NextAndPreviousAtTheEdgesTheMenusDoNotReach)
{
    const SongPtr a = song(1), b = song(2), gone = song(3, true);
    EXPECT_TRUE(
        MprisService::canGoNext(playlistOf({a, b}).get(), nullptr)); // nothing current: the first song
    EXPECT_FALSE(MprisService::canGoNext(playlistOf({a, b}, 2).get(), nullptr));
    EXPECT_FALSE(MprisService::canGoNext(nullptr, a));
    EXPECT_FALSE(MprisService::canGoNext(playlistOf({}, 1).get(), nullptr));
    // A missing song listed twice must not send the walk round in a circle.
    EXPECT_FALSE(MprisService::canGoNext(playlistOf({gone, gone}, 1).get(), gone));
    EXPECT_TRUE(MprisService::canGoNext(playlistOf({gone, a, gone, b}).get(), a));
    EXPECT_FALSE(MprisService::canGoPrevious(playlistOf({a, b}).get(), nullptr));
    EXPECT_FALSE(MprisService::canGoPrevious(nullptr, a));
}

TEST(MprisRules, MetadataCarriesTheTypesClientsExpect)
{
    Song s;
    s.setSongID(-2); // IDs may be negative; a path element may not
    s.setName(u"Tune"_s);
    s.setArtist(u"Artist"_s);
    s.setAlbum(u"Album"_s);
    s.setTrack(u"3 of 12"_s);
    s.setLength(61.5);
    s.setURL(u"/music/a b#1.flac"_s);
    const QVariantMap m = MprisService::metadataForSong(&s, u"file:///c.png"_s);

    const QString trackID = m.value(u"mpris:trackid"_s).value<QDBusObjectPath>().path();
    EXPECT_EQ(trackID, u"/org/quivera/Quivera/track/18446744073709551614"_s);
    EXPECT_EQ(m.value(u"mpris:length"_s).userType(), QMetaType::LongLong);
    EXPECT_EQ(m.value(u"mpris:length"_s).toLongLong(), 61500000);
    EXPECT_EQ(m.value(u"xesam:artist"_s).toStringList(), QStringList{u"Artist"_s});
    EXPECT_EQ(m.value(u"xesam:trackNumber"_s).userType(), QMetaType::Int);
    EXPECT_EQ(m.value(u"xesam:trackNumber"_s).toInt(), 3);
    EXPECT_EQ(m.value(u"xesam:url"_s).toString(), u"file:///music/a%20b%231.flac"_s);
    EXPECT_EQ(m.value(u"mpris:artUrl"_s).toString(), u"file:///c.png"_s);
    EXPECT_FALSE(m.contains(u"xesam:albumArtist"_s)); // absent, not empty

    const QVariantMap none = MprisService::metadataForSong(nullptr);
    EXPECT_EQ(none.size(), 1);
    EXPECT_EQ(none.value(u"mpris:trackid"_s).value<QDBusObjectPath>().path(), MprisService::noTrackPath);
}

// --- Cover art ---------------------------------------------------------------------------------

namespace {
QString makePng(const QString &path, Qt::GlobalColor color)
{
    QImage image(8, 8, QImage::Format_RGB32);
    image.fill(color);
    EXPECT_TRUE(image.save(path, "PNG"));
    return path;
}

// A FLAC file with the picture embedded.
QString makeFlacWithPicture(const QString &dir, const QString &name, const QString &png)
{
    const QString wav = TestEnvironment::makeSine(dir + u"/"_s + name + u".wav"_s, 0.2);
    const QString flac = dir + u"/"_s + name + u".flac"_s;
    QByteArray out;
    const int status = TestEnvironment::run(
        u"ffmpeg"_s,
        {u"-y"_s, u"-loglevel"_s, u"error"_s, u"-i"_s, wav, u"-i"_s, png, u"-map"_s, u"0:a"_s, u"-map"_s,
         u"1:v"_s, u"-c:a"_s, u"flac"_s, u"-c:v"_s, u"copy"_s, u"-disposition:v"_s, u"attached_pic"_s, flac},
        &out);
    EXPECT_EQ(status, 0) << out.constData();
    QFile::remove(wav);
    return flac;
}
} // namespace

TEST(MprisArt, ACoverFileIsNamedAsItIsAndOfEmbeddedPicturesOnlyTheLastIsKept)
{
    // A cover file beside the song is named, not copied; a song with no picture has none.
    const QString beside = TestEnvironment::makeTempDir(u"cover"_s);
    const QString cover = makePng(beside + u"/cover.png"_s, Qt::red);
    Song withCover, bare;
    withCover.setURL(TestEnvironment::makeSine(beside + u"/a.wav"_s, 0.2));
    bare.setURL(TestEnvironment::makeSine(TestEnvironment::makeTempDir() + u"/b.wav"_s, 0.2));
    const QString artDir = TestEnvironment::makeTempDir(u"art"_s);
    {
        MprisArtCache cache(artDir);
        EXPECT_EQ(cache.artUrlForSong(withCover), QUrl::fromLocalFile(cover).toString());
        EXPECT_TRUE(cache.artUrlForSong(bare).isEmpty());
        EXPECT_TRUE(QDir(artDir).isEmpty());
    }

    const QString dir = TestEnvironment::makeTempDir(u"embedded"_s);
    const QString red = makePng(dir + u"/red.png"_s, Qt::red);
    const QString blue = makePng(dir + u"/blue.png"_s, Qt::blue);
    Song first, second;
    first.setSongID(1);
    first.setURL(makeFlacWithPicture(dir, u"one"_s, red));
    second.setSongID(2);
    second.setURL(makeFlacWithPicture(dir, u"two"_s, blue));
    QFile::remove(red); // no cover file beside the songs: only the embedded pictures remain
    QFile::remove(blue);

    QString firstPath;
    {
        MprisArtCache cache(artDir);
        const QUrl url(cache.artUrlForSong(first));
        ASSERT_TRUE(url.isLocalFile()) << url.toString().toStdString();
        firstPath = url.toLocalFile();
        EXPECT_EQ(QImage(firstPath).pixelColor(0, 0), QColor(Qt::red));
        EXPECT_EQ(cache.artUrlForSong(first), url.toString()); // same song, same URL

        const QString secondPath = QUrl(cache.artUrlForSong(second)).toLocalFile();
        EXPECT_NE(secondPath, firstPath);
        EXPECT_EQ(QImage(secondPath).pixelColor(0, 0), QColor(Qt::blue));
        EXPECT_FALSE(QFile::exists(firstPath));
    }
    EXPECT_TRUE(QDir(artDir).isEmpty()) << "the cache leaves no file behind";
}

// --- On a private session bus ------------------------------------------------------------------

namespace {

// Four 20-second songs with tags and a cover file beside them, made once for the suite.
struct Fixtures {
    QString dir;
    QStringList files;
};

const Fixtures &fixtures()
{
    static Fixtures f = [] {
        Fixtures made;
        made.dir = TestEnvironment::makeTempDir(u"mpris-music"_s);
        makePng(made.dir + u"/cover.png"_s, Qt::green);
        const QStringList titles{u"One"_s, u"Two"_s, u"Three"_s, u"Extra"_s};
        for (int i = 0; i < titles.size(); ++i) {
            const QString wav = TestEnvironment::makeSine(made.dir + u"/%1.wav"_s.arg(i), 20.0, 44100, 2, {},
                                                          330.0 + 110 * i);
            const QString flac = made.dir + u"/0%1 %2.flac"_s.arg(i + 1).arg(titles.at(i));
            TestEnvironment::ffmpeg(wav, flac,
                                    {u"-metadata"_s, u"title="_s + titles.at(i), u"-metadata"_s,
                                     u"artist=The Sines"_s, u"-metadata"_s, u"album=Tones"_s, u"-metadata"_s,
                                     u"track=%1"_s.arg(i + 1)});
            QFile::remove(wav);
            made.files.append(flac);
        }
        return made;
    }();
    return f;
}

class MprisOnTheBus : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_FALSE(bus.address().isEmpty()) << "dbus-daemon did not start";
        const Fixtures &f = fixtures();
        TestEnvironment::resetUserFolders();
        UserDefaults::standard().removeValue(u"selectedPlaylistID"_s);
        UserDefaults::standard().removeValue(u"volume"_s);
        ApplicationDelegate::registerDefaults(UserDefaults::standard());
        delegate = std::make_unique<ApplicationDelegate>();
        ApplicationDelegate::LaunchOptions options;
        options.remote = false;
        options.mpris = false; // made below, on the private bus
        options.outputDevice = VEKAudioDevice::deviceWithUID(u"null"_s);
        delegate->applicationWillFinishLaunching(options);
        ASSERT_TRUE(delegate->stream()) << "no audio engine";

        delegate->addFilesToLibrary(f.files.mid(0, 3));
        ASSERT_TRUE(waitUntil([&] { return delegate->library().size() == 3; }, 60000));
        library = delegate->localPlaylists().value(0);
        ASSERT_EQ(library->countOfSongs(), 3);

        serviceConnection = u"mpris-service-%1"_s.arg(++s_connections);
        service = std::make_unique<MprisService>(
            delegate.get(), QDBusConnection::connectToBus(bus.address(), serviceConnection));
        ASSERT_TRUE(service->isRegistered());
        ASSERT_EQ(service->serviceName(), MprisService::serviceBaseName);

        clientConnection = u"mpris-client-%1"_s.arg(s_connections);
        client =
            std::make_unique<QDBusConnection>(QDBusConnection::connectToBus(bus.address(), clientConnection));
        ASSERT_TRUE(client->isConnected());
        ASSERT_TRUE(recorder.listen(*client, MprisService::serviceBaseName));
        waitUntil([] { return false; }, 100); // the first refresh of the service goes out
        recorder.changes.clear();
        recorder.seeks.clear();
    }

    void TearDown() override
    {
        service.reset();
        if (delegate)
            delegate->applicationWillTerminate();
        delegate.reset();
        client.reset();
        QDBusConnection::disconnectFromBus(clientConnection);
        QDBusConnection::disconnectFromBus(serviceConnection);
    }

    Stream *stream() const { return delegate->stream(); }
    SongPtr row(qsizetype i) const { return library->objectInSongsAtIndex(i); }

    SpinningRun playerctl(const QStringList &args)
    {
        return runSpinning(u"playerctl"_s, QStringList{u"-p"_s, u"quivera"_s} + args, bus.environment());
    }
    // playerctl's answer, trimmed; fails the test on a bad status.
    QString ask(const QStringList &args)
    {
        const SpinningRun r = playerctl(args);
        EXPECT_EQ(r.status, 0) << args.join(u' ').toStdString() << ": " << r.err.constData();
        return QString::fromUtf8(r.out).trimmed();
    }

    QDBusMessage call(const QString &interface, const QString &method, const QVariantList &args = {})
    {
        QDBusMessage m = QDBusMessage::createMethodCall(MprisService::serviceBaseName,
                                                        MprisService::objectPath, interface, method);
        m.setArguments(args);
        // Asynchronous, so this thread goes on serving the call.
        QDBusPendingCall pending = client->asyncCall(m);
        waitUntil([&] { return pending.isFinished(); });
        return pending.reply();
    }
    QVariant property(const QString &interface, const QString &name)
    {
        const QDBusMessage reply = call(u"org.freedesktop.DBus.Properties"_s, u"Get"_s, {interface, name});
        EXPECT_EQ(reply.type(), QDBusMessage::ReplyMessage) << reply.errorMessage().toStdString();
        return reply.arguments().value(0).value<QDBusVariant>().variant();
    }

    PrivateSessionBus bus;
    std::unique_ptr<ApplicationDelegate> delegate;
    PlaylistPtr library;
    std::unique_ptr<MprisService> service;
    std::unique_ptr<QDBusConnection> client;
    QString serviceConnection, clientConnection;
    MprisSignalRecorder recorder;
    static inline int s_connections = 0;
};

} // namespace

TEST_F(MprisOnTheBus, TheRootInterfaceDescribesThePlayerAndASecondInstanceTakesAnInstanceName)
{
    EXPECT_TRUE(ask({u"-l"_s}).split(u'\n').contains(u"quivera"_s));
    const QDBusMessage all = call(u"org.freedesktop.DBus.Properties"_s, u"GetAll"_s, {kRoot});
    ASSERT_EQ(all.type(), QDBusMessage::ReplyMessage) << all.errorMessage().toStdString();
    const QVariantMap root = qdbus_cast<QVariantMap>(all.arguments().value(0));
    EXPECT_EQ(root.value(u"Identity"_s).toString(), u"Quivera"_s);
    EXPECT_EQ(root.value(u"DesktopEntry"_s).toString(), u"org.quivera.Quivera"_s);
    EXPECT_TRUE(root.value(u"CanQuit"_s).toBool());
    EXPECT_FALSE(root.value(u"CanRaise"_s).toBool()); // no window said how
    EXPECT_FALSE(root.value(u"HasTrackList"_s).toBool());
    EXPECT_EQ(root.value(u"SupportedUriSchemes"_s).toStringList(), QStringList{u"file"_s});
    EXPECT_TRUE(root.value(u"SupportedMimeTypes"_s).toStringList().contains(u"audio/flac"_s));
    EXPECT_EQ(call(kRoot, u"Raise"_s).type(), QDBusMessage::ReplyMessage);

    int raised = 0;
    service->setRaiseHandler([&] { ++raised; });
    EXPECT_TRUE(property(kRoot, u"CanRaise"_s).toBool());
    EXPECT_EQ(call(kRoot, u"Raise"_s).type(), QDBusMessage::ReplyMessage);
    EXPECT_EQ(raised, 1);

    const QString name = u"mpris-second"_s;
    {
        MprisService second(delegate.get(), QDBusConnection::connectToBus(bus.address(), name));
        EXPECT_TRUE(second.isRegistered());
        EXPECT_TRUE(second.serviceName().startsWith(MprisService::serviceBaseName + u".instance"_s));
    }
    QDBusConnection::disconnectFromBus(name);
}

TEST_F(MprisOnTheBus, StatusAndMetadataFollowTheCurrentSongAndTheMediaKeysAct)
{
    EXPECT_EQ(ask({u"status"_s}), u"Stopped"_s);
    ASSERT_EQ(playerctl({u"play-pause"_s}).status, 0);
    ASSERT_TRUE(waitUntil([&] { return stream()->isPlaying(); }));
    const SongPtr first = row(0);
    EXPECT_EQ(stream()->currentSong(), first); // play from stopped starts at the top
    EXPECT_EQ(ask({u"status"_s}), u"Playing"_s);
    EXPECT_EQ(ask({u"metadata"_s, u"xesam:title"_s}), first->name());
    EXPECT_EQ(ask({u"metadata"_s, u"mpris:artUrl"_s}),
              QUrl::fromLocalFile(QFileInfo(first->URL()).dir().filePath(u"cover.png"_s)).toString());

    // Typed as MPRIS says, on the wire (the values themselves, the length in microseconds among
    // them: MprisRules.MetadataCarriesTheTypesClientsExpect).
    const QVariantMap metadata = qdbus_cast<QVariantMap>(property(kPlayer, u"Metadata"_s));
    EXPECT_EQ(metadata.value(u"mpris:length"_s).userType(), QMetaType::LongLong);
    EXPECT_EQ(metadata.value(u"xesam:artist"_s).toStringList(), QStringList{u"The Sines"_s});

    // Announced without being asked.
    ASSERT_TRUE(waitUntil([&] { return recorder.latest().value(u"PlaybackStatus"_s) == u"Playing"_s; }));
    const QVariantMap announced = qdbus_cast<QVariantMap>(recorder.latest().value(u"Metadata"_s));
    EXPECT_EQ(announced.value(u"xesam:title"_s).toString(), first->name());
    EXPECT_TRUE(recorder.latest().value(u"CanSeek"_s).toBool());

    ASSERT_EQ(playerctl({u"next"_s}).status, 0);
    ASSERT_TRUE(waitUntil([&] { return stream()->currentSong() == row(1); }));
    EXPECT_TRUE(stream()->isPlaying());
    EXPECT_EQ(ask({u"metadata"_s, u"xesam:title"_s}), row(1)->name());

    // Within three seconds of its start, previous goes to the song before.
    ASSERT_EQ(playerctl({u"previous"_s}).status, 0);
    ASSERT_TRUE(waitUntil([&] { return stream()->currentSong() == row(0); }));

    ASSERT_EQ(playerctl({u"play-pause"_s}).status, 0);
    ASSERT_TRUE(waitUntil([&] { return !stream()->isPlaying(); }));
    EXPECT_EQ(ask({u"status"_s}), u"Paused"_s);
    EXPECT_EQ(stream()->currentSong(), row(0));

    // A rate of 0 pauses, as MPRIS asks.
    ASSERT_EQ(playerctl({u"play"_s}).status, 0);
    ASSERT_TRUE(waitUntil([&] { return stream()->isPlaying(); }));
    call(u"org.freedesktop.DBus.Properties"_s, u"Set"_s,
         {kPlayer, u"Rate"_s, QVariant::fromValue(QDBusVariant(0.0))});
    EXPECT_FALSE(stream()->isPlaying());

    ASSERT_EQ(playerctl({u"stop"_s}).status, 0);
    ASSERT_TRUE(waitUntil([&] { return !stream()->currentSong(); }));
    EXPECT_EQ(ask({u"status"_s}), u"Stopped"_s);
}

TEST_F(MprisOnTheBus, NextAndLoopFollowTheRepeatModeOfThePlayingList)
{
    stream()->setPlaylist(library);
    stream()->setCurrentSong(row(1));
    ASSERT_TRUE(waitUntil([&] { return recorder.latest().value(u"CanGoNext"_s).toBool(); }));
    stream()->setCurrentSong(row(2)); // last song, repeat off
    ASSERT_TRUE(waitUntil([&] { return !recorder.latest().value(u"CanGoNext"_s).toBool(); }));
    EXPECT_FALSE(property(kPlayer, u"CanGoNext"_s).toBool());
    EXPECT_EQ(ask({u"loop"_s}), u"None"_s);

    ASSERT_EQ(playerctl({u"loop"_s, u"Playlist"_s}).status, 0);
    EXPECT_EQ(library->repeatMode(), 1u);
    ASSERT_TRUE(waitUntil([&] { return recorder.latest().value(u"CanGoNext"_s).toBool(); }));
    EXPECT_EQ(recorder.latest().value(u"LoopStatus"_s).toString(), u"Playlist"_s);
    ASSERT_EQ(playerctl({u"next"_s}).status, 0);
    ASSERT_TRUE(waitUntil([&] { return stream()->currentSong() == row(0); })); // around to the top

    ASSERT_EQ(playerctl({u"loop"_s, u"Track"_s}).status, 0);
    EXPECT_EQ(library->repeatMode(), 2u);
    ASSERT_EQ(playerctl({u"shuffle"_s, u"On"_s}).status, 0);
    EXPECT_TRUE(library->shuffle());
    EXPECT_EQ(ask({u"shuffle"_s}), u"On"_s);
}

TEST_F(MprisOnTheBus, PlayModesTheVolumeAndTheSelectedPlaylistAreAnnouncedAtOnce)
{
    // Nothing polls: each change is out as soon as it is reported, from wherever it came (a
    // poll once a second would be late more often than not).
    const auto announced = [&](const QString &key, const QVariant &value) {
        QElapsedTimer since;
        since.start();
        return waitUntil([&] { return recorder.latest().value(key) == value; }, 2000) && since.elapsed() < 400;
    };
    delegate->newPlaylistWithSongs({row(0), row(1)}); // selected, and so in view
    const PlaylistPtr made = delegate->selectedPlaylist();
    made->setRepeatMode(2);
    EXPECT_TRUE(announced(u"LoopStatus"_s, u"Track"_s));
    delegate->setSelectedPlaylist(library);
    EXPECT_TRUE(announced(u"LoopStatus"_s, u"None"_s));
    library->setShuffle(true, nullptr);
    EXPECT_TRUE(announced(u"Shuffle"_s, true));

    // The volume is the volume setting: a change made elsewhere (the knob) is announced, and
    // playerctl's is clamped to 1 (its wiring: MprisServe).
    UserDefaults::standard().setValue(u"volume"_s, 0.25);
    EXPECT_TRUE(announced(u"Volume"_s, 0.25));
    EXPECT_NEAR(ask({u"volume"_s}).toDouble(), 0.25, 1e-6);
    ASSERT_EQ(playerctl({u"volume"_s, u"3"_s}).status, 0);
    EXPECT_DOUBLE_EQ(UserDefaults::standard().doubleForKey(u"volume"_s), 1.0);
}

TEST_F(MprisOnTheBus, PositionSeeksTheStreamAndSeeksAreSignalled)
{
    call(kPlayer, u"Play"_s);
    ASSERT_TRUE(waitUntil([&] { return stream()->isPlaying(); }));
    const SongPtr first = stream()->currentSong();

    ASSERT_EQ(playerctl({u"position"_s, u"10"_s}).status, 0);
    ASSERT_TRUE(waitUntil([&] { return !recorder.seeks.isEmpty(); }));
    EXPECT_NEAR(double(recorder.seeks.last()), 10e6, 1e3);
    EXPECT_NEAR(stream()->location(), 10.0, 0.5);
    EXPECT_NEAR(ask({u"position"_s}).toDouble(), 10.0, 0.5);

    // Relative, and clamped at the start.
    call(kPlayer, u"Seek"_s, {qlonglong(-4000000)});
    EXPECT_NEAR(stream()->location(), 6.0, 0.5);
    call(kPlayer, u"Seek"_s, {qlonglong(-60000000)});
    EXPECT_NEAR(stream()->location(), 0.0, 0.5);

    // A position for another track is ignored.
    call(kPlayer, u"SetPosition"_s,
         {QVariant::fromValue(QDBusObjectPath(u"/org/quivera/Quivera/track/1"_s)), qlonglong(15000000)});
    EXPECT_LT(stream()->location(), 2.0);

    // Past the end acts as next; the new song's start is not announced as a seek.
    waitUntil([] { return false; }, 100);
    const qsizetype seeks = recorder.seeks.size();
    call(kPlayer, u"Seek"_s, {qlonglong(60000000)});
    ASSERT_TRUE(waitUntil([&] { return stream()->currentSong() == row(1); }));
    EXPECT_NE(stream()->currentSong(), first);
    waitUntil([] { return false; }, 200);
    EXPECT_EQ(recorder.seeks.size(), seeks);
}

TEST_F(MprisOnTheBus, OpenUriImportsAFileAndPlaysIt)
{
    const QString extra = fixtures().files.at(3);
    ASSERT_EQ(playerctl({u"open"_s, QUrl::fromLocalFile(extra).toString()}).status, 0);
    const auto playingExtra = [&] {
        return stream()->currentSong() && stream()->currentSong()->URL() == extra && stream()->isPlaying();
    };
    ASSERT_TRUE(waitUntil(playingExtra, 60000));
    EXPECT_EQ(delegate->library().size(), 4);

    // A song of the library plays without a second import.
    ASSERT_EQ(playerctl({u"open"_s, QUrl::fromLocalFile(row(0)->URL()).toString()}).status, 0);
    ASSERT_TRUE(waitUntil([&] { return stream()->currentSong() == row(0); }));
    EXPECT_EQ(delegate->library().size(), 4);

    const QDBusMessage web = call(kPlayer, u"OpenUri"_s, {u"http://example.org/a.flac"_s});
    EXPECT_EQ(web.type(), QDBusMessage::ErrorMessage);
    const QDBusMessage gone = call(kPlayer, u"OpenUri"_s, {u"file:///nowhere/a.flac"_s});
    EXPECT_EQ(gone.type(), QDBusMessage::ErrorMessage);
}

TEST(MprisWithoutABus, NothingIsRegisteredAndNothingFails)
{
    const QString name = u"mpris-no-bus"_s;
    {
        MprisService service(nullptr, QDBusConnection::connectToBus(u"unix:path=/nonexistent/bus"_s, name));
        EXPECT_FALSE(service.isRegistered());
        service.playPause();
        service.next();
        EXPECT_EQ(service.playbackStatus(), u"Stopped"_s);
    }
    QDBusConnection::disconnectFromBus(name);
}

// --- The real program --------------------------------------------------------------------------

TEST(MprisServe, PlayerctlDrivesQuiveraCliServeUntilQuit)
{
    PrivateSessionBus bus;
    ASSERT_FALSE(bus.address().isEmpty());
    CliHarness cli;
    const QStringList files = fixtures().files.mid(0, 3);
    ASSERT_EQ(cli.run(QStringList{u"import"_s} + files).status, 0);

    QProcessEnvironment env = cli.environment();
    env.insert(u"DBUS_SESSION_BUS_ADDRESS"_s, bus.address());
    env.insert(u"QUIVERA_REMOTE_PORT"_s, u"0"_s); // never the shared 8383
    QProcess serve;
    serve.setProcessEnvironment(env);
    serve.start(QStringLiteral(QUIVERA_BIN_DIR "/quivera-cli"), {u"serve"_s, u"--device"_s, u"null"_s});
    ASSERT_TRUE(serve.waitForStarted());

    const auto playerctl = [&](const QStringList &args) {
        return runSpinning(u"playerctl"_s, QStringList{u"-p"_s, u"quivera"_s} + args, env);
    };
    const auto answer = [&](const QStringList &args) {
        return QString::fromUtf8(playerctl(args).out).trimmed();
    };
    ASSERT_TRUE(waitUntil([&] { return answer({u"status"_s}) == u"Stopped"_s; }, 30000))
        << serve.readAllStandardError().constData();

    // The wiring only: what each action does is checked against the service in-process above.
    ASSERT_EQ(playerctl({u"play"_s}).status, 0);
    ASSERT_TRUE(waitUntil([&] { return answer({u"status"_s}) == u"Playing"_s; }));
    EXPECT_TRUE(QStringList({u"One"_s, u"Two"_s, u"Three"_s}).contains(answer({u"metadata"_s, u"xesam:title"_s})));
    ASSERT_EQ(playerctl({u"volume"_s, u"0.5"_s}).status, 0);

    // Quit over the root interface ends the program the orderly way, and the name goes.
    {
        QDBusConnection client = QDBusConnection::connectToBus(bus.address(), u"mpris-serve-client"_s);
        const QDBusMessage quit = client.call(QDBusMessage::createMethodCall(
            MprisService::serviceBaseName, MprisService::objectPath, u"org.mpris.MediaPlayer2"_s, u"Quit"_s));
        EXPECT_EQ(quit.type(), QDBusMessage::ReplyMessage) << quit.errorMessage().toStdString();
    }
    QDBusConnection::disconnectFromBus(u"mpris-serve-client"_s);
    ASSERT_TRUE(serve.waitForFinished(30000));
    EXPECT_EQ(serve.exitStatus(), QProcess::NormalExit);
    EXPECT_EQ(serve.exitCode(), 0) << serve.readAllStandardError().constData();
    EXPECT_NE(playerctl({u"status"_s}).status, 0); // no player any more

    const CliHarness::Result volume = cli.run({u"settings"_s, u"get"_s, u"volume"_s});
    EXPECT_EQ(volume.out.trimmed(), QByteArray("0.5"));
}
