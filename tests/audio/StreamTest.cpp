// The stream in the program's own process: transport and sequencing on a device that keeps
// real time, the rate policy on a device of chosen rates, and the effect slots across a restart.

#include "audio/Stream.h"
#include "audio/AudioProcessorClasses.h"
#include "core/VEKError.h"
#include "graph/VEKConductorAudioProcessor.h"
#include "library/Playlist.h"
#include "settings/UserDefaults.h"
#include "support/Processes.h"
#include "support/TestEnvironment.h"
#include "support/graph/GraphTestSupport.h"

#include <QFile>
#include <functional>
#include <gtest/gtest.h>
#include <tuple>

using TestEnvironment::waitUntil;

namespace {

// A device offering `rates` and keeping real time; it remembers every rate it was set to.
std::shared_ptr<GraphTest::FakeDevice> fakeDevice(QList<double> rates = {44100}, double rate = 44100)
{
    return std::make_shared<GraphTest::FakeDevice>(rate, 1.0, 0, std::move(rates));
}

// Collects alerts instead of showing them.
class AlertRecorder : public VEKAlertPresenter {
public:
    AlertRecorder() { install(this); }
    ~AlertRecorder() override { install(nullptr); }
    void present(const VEKError &error) override { alerts.append(error); }
    QList<VEKError> alerts;
};

// Torn down at the end of its scope, as the delegate does before quitting.
struct TearDown {
    void operator()(Stream *s) const
    {
        s->teardown();
        delete s;
    }
};
using StreamPtr = std::unique_ptr<Stream, TearDown>;

// The names of the songs `stream` makes current, in order; `ends` adds "-" for no song.
void hear(Stream *stream, QStringList &heard, bool ends = false)
{
    QObject::connect(stream, &Stream::currentSongChanged, stream, [&heard, ends](const SongPtr &s) {
        if (s || ends)
            heard.append(s ? s->name() : "-");
    });
}

class StreamTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        TestEnvironment::resetUserFolders();
        // The store keeps its values in memory past the removal of its file: no test's effect
        // slots reach the next one.
        for (quint64 i = 1; i <= Stream::numberOfEffectSlots; ++i)
            UserDefaults::standard().removeValue(QString("effect%1").arg(i));
        registerAudioProcessorClasses();
        m_dir = TestEnvironment::makeTempDir("stream");
    }

    SongPtr song(const QString &name, double seconds = 0.3, int rate = 44100, int channels = 2)
    {
        const QString path =
            TestEnvironment::makeSine(m_dir + u'/' + name + ".flac", seconds, rate, channels);
        SongPtr s = Song::initWithURL(path);
        EXPECT_TRUE(s) << path.toStdString();
        if (s) {
            s->setSongID(++m_nextID);
            s->setName(name);
        }
        return s;
    }

    StreamPtr makeStream(VEKAudioDevicePtr device)
    {
        StreamPtr stream(new Stream);
        stream->setOutputDeviceOverride(std::move(device));
        VEKError error;
        EXPECT_TRUE(stream->initWithDescription(Stream::defaultDescription(), &error)) << error.text().toStdString();
        EXPECT_TRUE(stream->initialize(&error)) << error.text().toStdString();
        EXPECT_TRUE(stream->start(&error)) << error.text().toStdString();
        return stream;
    }

    static PlaylistPtr playlist(const QList<SongPtr> &songs)
    {
        auto p = std::make_shared<Playlist>();
        p->appendSongs(songs);
        return p;
    }

    QString m_dir;
    qint64 m_nextID = 0;
};

// --- Choosing a rate ---------------------------------------------------------------------------

TEST(StreamRate, PrefersTheRateItselfThenIntegerRatiosThenTheNearest)
{
    EXPECT_EQ(Stream::chooseSampleRate(96000, {44100, 48000, 192000}), 192000);
    EXPECT_EQ(Stream::chooseSampleRate(88200, {44100, 48000}), 44100);
    EXPECT_EQ(Stream::chooseSampleRate(22050, {96000, 48000}), 48000);
    EXPECT_EQ(Stream::chooseSampleRate(48000, {44100, 48000, 96000}), 48000);
    // x2 before /2 at the same step, and x4 before the nearest.
    EXPECT_EQ(Stream::chooseSampleRate(48000, {24000, 96000}), 96000);
    EXPECT_EQ(Stream::chooseSampleRate(11025, {44100, 12000}), 44100);
    // Of two at the same distance the first listed wins; nothing offered gives the largest double.
    EXPECT_EQ(Stream::chooseSampleRate(46050, {44100, 48000}), 44100);
    EXPECT_EQ(Stream::chooseSampleRate(44100, {}), std::numeric_limits<double>::max());
}

// Following the song's rate, a playlist plays through with the rate changed only where it
// changes, and its end stops the transport.
TEST_F(StreamTest, APlaylistPlaysThroughFollowingTheSongRateOnlyWhereItChanges)
{
    auto device = fakeDevice({44100, 48000, 96000}, 96000);
    UserDefaults::standard().setValue("sampleRate", -1);
    auto stream = makeStream(device);
    const PlaylistPtr list = playlist(
        {song("a", 0.3, 44100), song("b", 0.3, 44100), song("c", 0.3, 48000), song("d", 0.3, 48000)});
    QStringList heard;
    hear(stream.get(), heard, true);
    stream->setPlaylist(list);
    stream->setCurrentSong(list->objectInSongsAtIndex(0));
    EXPECT_FALSE(stream->isPlaying());
    EXPECT_EQ(stream->location(), 0.0);
    stream->play();
    EXPECT_TRUE(stream->isPlaying());
    ASSERT_TRUE(waitUntil([&] { return !stream->currentSong() && !stream->isPlaying(); }, 10000));
    EXPECT_EQ(heard, (QStringList{"a", "b", "c", "d", "-"}));
    EXPECT_EQ(device->changes, (QList<double>{44100, 48000}));
    EXPECT_EQ(stream->indexOfEnabledPlayer(), Stream::notFound);
    EXPECT_EQ(stream->normalizedLocation(), 0.0f);
}

TEST_F(StreamTest, ExclusiveUseSwitchedWhilePlayingOpensTheOutputAgainAndGoesOn)
{
    auto device = fakeDevice();
    device->exclusiveSupported = true;
    auto stream = makeStream(device);
    const PlaylistPtr list = playlist({song("a", 2.0, 44100)});
    stream->setPlaylist(list);
    stream->setCurrentSong(list->objectInSongsAtIndex(0));
    stream->play();
    const int opened = device->outputsMade;
    UserDefaults::standard().setValue("isExclusive", true);
    EXPECT_TRUE(device->isExclusive());
    EXPECT_EQ(device->outputsMade, opened + 1);
    EXPECT_TRUE(stream->isRunning());
    EXPECT_TRUE(stream->isPlaying());
}

// --- What reaches the device ---------------------------------------------------------------------

// The notices the front ends show: the negotiated format, whether the song reaches the device
// unchanged, and each thing that decides it, told once per change; a new device told as such.
TEST_F(StreamTest, TheOutputFormatAndBitPerfectnessAreToldWhenTheyChange)
{
    auto stream = makeStream(fakeDevice({44100, 48000}, 44100));
    int formats = 0, devices = 0;
    QObject::connect(stream.get(), &Stream::outputFormatChanged, stream.get(), [&formats] { ++formats; });
    QObject::connect(stream.get(), &Stream::outputDeviceChanged, stream.get(), [&devices] { ++devices; });
    Stream::OutputFormat f = stream->outputFormat();
    EXPECT_EQ(f.sampleRate, 44100);
    EXPECT_GE(f.bitsPerSample, 16);
    EXPECT_EQ(f.channels, 2);
    EXPECT_FALSE(f.bitPerfect) << "no song";

    const PlaylistPtr list = playlist({song("a", 0.3, 44100), song("b", 0.3, 48000)});
    stream->setPlaylist(list);
    stream->setCurrentSong(list->objectInSongsAtIndex(0));
    EXPECT_TRUE(stream->outputFormat().bitPerfect);
    EXPECT_EQ(formats, 1);

    UserDefaults &defaults = UserDefaults::standard();
    const auto expectToggles = [&](const std::function<void()> &on, const std::function<void()> &off, const char *what) {
        SCOPED_TRACE(what);
        const int before = formats;
        on();
        EXPECT_FALSE(stream->outputFormat().bitPerfect);
        off();
        EXPECT_TRUE(stream->outputFormat().bitPerfect);
        EXPECT_EQ(formats, before + 2);
    };
    const struct {
        const char *key;
        QVariant on, off;
    } settings[] = {
        {"volume", 0.5, 1.0},
        {"dim", true, false},
        {"mute", true, false},
        {"ditherProperties", QVariantMap{{"enabled", true}, {"depth", 8}},
         QVariantMap{{"enabled", false}, {"depth", 8}}},
        {"headphonesProcessorSettings", QVariantMap{{"enabled", true}}, QVariantMap{{"enabled", false}}},
    };
    for (const auto &t : settings)
        expectToggles([&] { defaults.setValue(QString::fromLatin1(t.key), t.on); },
                      [&] { defaults.setValue(QString::fromLatin1(t.key), t.off); }, t.key);
    VEKAudioProcessorPtr effect = VEKAudioProcessor::processorWithClass("VEKVolumeAudioProcessor");
    ASSERT_TRUE(effect);
    expectToggles([&] { stream->setProcessor(effect, 0); }, [&] { effect->setEnabled(false); }, "effect");
    defaults.setValue("librarySplitPosition", 3);
    EXPECT_EQ(formats, 13) << "a setting that decides nothing tells nothing";

    stream->next();
    EXPECT_FALSE(stream->outputFormat().bitPerfect) << "a 48 kHz song on a 44.1 kHz device";
    EXPECT_EQ(formats, 14);

    stream->setOutputDeviceOverride(fakeDevice({48000}, 48000));
    stream->updateOutputDevice();
    EXPECT_EQ(devices, 1);
    EXPECT_EQ(stream->outputFormat().sampleRate, 48000);
    EXPECT_TRUE(stream->outputFormat().bitPerfect);
    EXPECT_EQ(formats, 15);
    // The settings live in memory for the whole test program: leave none behind.
    stream->setProcessor(nullptr, 0);
    for (const auto &t : settings)
        defaults.removeValue(QString::fromLatin1(t.key));
    defaults.removeValue("librarySplitPosition");
    stream->stop();
}

// --- Transport and sequencing ------------------------------------------------------------------

TEST_F(StreamTest, SongsOfAFrameOrTwoPlayOnceEachAndThePlaylistEnds)
{
    // Shorter than any render cycle and than the main thread's answer to a transition.
    const auto tiny = [&](const QString &name, int frames) {
        const QString path = m_dir + u'/' + name + ".wav";
        EXPECT_EQ(TestEnvironment::run(
                      "sox", QStringList{"-n", "-r", "44100", "-c", "2", "-b", "16", path}
                                 + QString("synth %1s square 100 vol 0.25").arg(frames).split(u' ')),
                  0);
        SongPtr s = Song::initWithURL(path);
        EXPECT_TRUE(s);
        if (s)
            s->setSongID(++m_nextID);
        return s;
    };
    auto stream = makeStream(fakeDevice());
    int passes = 0;
    QObject::connect(stream->processorWithIdentifier<VEKConductorAudioProcessor>("conductor"),
                     &VEKConductorAudioProcessor::landmarkPassed, stream.get(), [&passes] { ++passes; });
    const PlaylistPtr list = playlist({tiny("one", 1), tiny("two", 2)});
    stream->setPlaylist(list);
    stream->setCurrentSong(list->objectInSongsAtIndex(0));
    // The following song is loaded by then, so the first transition takes the gapless road.
    waitUntil([] { return false; }, 300);
    stream->play();
    ASSERT_TRUE(waitUntil([&] { return !stream->isPlaying() && !stream->currentSong(); }));
    // The end of each song once: the transport never went back to the song it had just left.
    EXPECT_LE(passes, 2);
}

TEST_F(StreamTest, ReorderingThePlaylistWhileItPlaysNeverUpsetsATransition)
{
    // Every reorder reloads the silent branch; some of them land in the very buffer in which the
    // landmark wants that branch. The two orders differ after every song but the last, so each
    // transition shows which order it followed. Early in the third song or later (no order
    // reaches the last song sooner), the order flips once more and stays: from there on only that
    // order may be heard, never the song prepared before the flip.
    auto stream = makeStream(fakeDevice());
    QList<SongPtr> songs;
    for (const char *name : {"a", "c", "b", "e", "d", "g", "f", "h"})
        songs.append(song(QString::fromLatin1(name), 0.25));
    const QStringList byName{"a", "b", "c", "d", "e", "f", "g", "h"},
        asAdded{"a", "c", "b", "e", "d", "g", "f", "h"};
    const PlaylistPtr list = playlist(songs);
    QStringList heard;
    hear(stream.get(), heard);
    stream->setPlaylist(list);
    stream->setCurrentSong(songs.first());
    stream->play();
    int reorders = 0;
    qsizetype settled = 0;
    bool sorted = false;
    ASSERT_TRUE(waitUntil(
        [&] {
            if (!settled) {
                sorted = !sorted;
                list->setSortKey(sorted ? "name" : QString());
                ++reorders;
                // Only while the song just announced plays, well before its end.
                if (heard.size() >= 3 && stream->location() < 0.1
                    && stream->songInPlayerAtIndex(stream->indexOfEnabledPlayer()) == stream->currentSong())
                    settled = heard.size();
            }
            return !stream->isPlaying();
        },
        15000))
        << heard.join(u' ').toStdString();
    EXPECT_GT(reorders, 20);
    ASSERT_GT(settled, 0) << heard.join(u' ').toStdString();
    ASSERT_EQ(heard.value(0), "a");
    const auto follows = [](const QStringList &order, const QString &from, const QString &to) {
        return order.value(order.indexOf(from) + 1) == to;
    };
    for (qsizetype i = 1; i < settled; ++i)
        EXPECT_TRUE(follows(byName, heard[i - 1], heard[i]) || follows(asAdded, heard[i - 1], heard[i])) << i;
    const QStringList &order = sorted ? byName : asAdded;
    EXPECT_EQ(heard.mid(settled - 1), order.mid(order.indexOf(heard.value(settled - 1))))
        << "after the last reorder, only its order: " << heard.join(u' ').toStdString();
    EXPECT_FALSE(stream->currentSong());
}

TEST_F(StreamTest, AChangeOfOrderWhileASongPlaysPlaysTheNewOrderOnce)
{
    // The song prepared from the old order must not be heard: the new order counts at once.
    auto stream = makeStream(fakeDevice());
    const auto names = [](const QList<SongPtr> &songs) {
        QStringList out;
        for (const SongPtr &s : songs)
            out << s->name();
        return out;
    };
    QList<SongPtr> songs;
    for (const char *name : {"a", "b", "c", "d", "e", "f", "g", "h"})
        songs.append(song(QString::fromLatin1(name), 0.15));

    // The direction flips while b plays: a comes next, then the list ends.
    const PlaylistPtr sorted = playlist(songs.mid(0, 4));
    sorted->setSortKey("name");
    sorted->setSortAscending(true);
    QStringList heard;
    hear(stream.get(), heard);
    stream->setPlaylist(sorted);
    stream->setCurrentSong(songs.at(1));
    stream->play();
    sorted->setSortAscending(false);
    ASSERT_TRUE(waitUntil([&] { return !stream->isPlaying(); }));
    EXPECT_EQ(heard, (QStringList{"b", "a"}));

    // Shuffle on during the first song: the shuffled order, every song once.
    const PlaylistPtr list = playlist(songs);
    stream->setPlaylist(list);
    heard.clear();
    stream->setCurrentSong(songs.first());
    stream->play();
    list->setShuffle(true, songs.first());
    while (list->objectInSongsAtIndex(1) == songs.at(1)) { // an order that really differs
        list->setShuffle(false, nullptr);
        list->setShuffle(true, songs.first());
    }
    const QStringList order = names(list->songs());
    ASSERT_TRUE(waitUntil([&] { return !stream->isPlaying(); }, 10000));
    EXPECT_EQ(heard, order);
}

TEST_F(StreamTest, AChangeOfSongIsAnnouncedOnceWithEverythingInPlace)
{
    auto stream = makeStream(fakeDevice());
    const SongPtr a = song("a", 2), b = song("b", 2), c = song("c", 2);
    const PlaylistPtr list = playlist({a, b, c});
    stream->setPlaylist(list);
    stream->setCurrentSong(a);
    stream->play();
    waitUntil([] { return false; }, 100);
    QStringList notices;
    QObject::connect(stream.get(), &Stream::currentSongChanged, stream.get(), [&](const SongPtr &s) {
        // Observers see the new song playing from the start of its file, its branch heard.
        notices << QString("%1 at %2 %3")
                       .arg(s ? s->name() : "-")
                       .arg(stream->location())
                       .arg(stream->songInPlayerAtIndex(stream->indexOfEnabledPlayer()) == s);
    });
    QObject::connect(stream.get(), &Stream::locationChanged, stream.get(),
                     [&](double at) { notices << QString("seek %1").arg(at); });
    stream->next();
    stream->setCurrentSong(a);
    QFile::resize(c->URL(), 10); // damaged after import: nothing becomes current, the alert names it
    AlertRecorder recorder;
    stream->setCurrentSong(c);
    EXPECT_EQ(notices, (QStringList{"b at 0 1", "a at 0 1", "- at 0 0"}));
    ASSERT_EQ(recorder.alerts.size(), 1);
    EXPECT_TRUE(recorder.alerts.first().localizedDescription().contains("c"));

    QList<PlaylistPtr> playlists;
    QObject::connect(stream.get(), &Stream::playlistChanged, stream.get(),
                     [&playlists](const PlaylistPtr &p) { playlists << p; });
    stream->setPlaylist(nullptr);
    stream->setPlaylist(nullptr);
    stream->setPlaylist(list);
    EXPECT_EQ(playlists, (QList<PlaylistPtr>{nullptr, list}));
}

// Repeating one song, at either rate policy, and a one-song playlist repeated whole: three times
// round, the position falls back to the start each time, never past the end, and the transport
// never stops.
TEST_F(StreamTest, RepeatingGoesRoundWithoutStoppingAlsoWhenFollowingTheSongRate)
{
    for (const auto &[policy, repeat, count] : {std::tuple{0, 2, 2}, {-1, 2, 2}, {0, 1, 1}}) {
        SCOPED_TRACE(QString("rate policy %1, repeat mode %2").arg(policy).arg(repeat).toStdString());
        UserDefaults::standard().setValue("sampleRate", policy);
        auto device = fakeDevice({44100, 48000}, 48000);
        auto stream = makeStream(device);
        const PlaylistPtr list =
            playlist(QList<SongPtr>{song("a", 0.25), song("b", 0.25, 48000)}.mid(0, count));
        list->setRepeatMode(quint64(repeat));
        stream->setPlaylist(list);
        stream->setCurrentSong(list->objectInSongsAtIndex(0));
        stream->play();
        int rounds = 0;
        double last = 0.0, highest = 0.0;
        ASSERT_TRUE(waitUntil([&] {
            const double now = stream->location();
            if (now + 0.1 < last)
                ++rounds;
            last = now;
            highest = std::max(highest, now);
            return rounds >= 3;
        }));
        EXPECT_TRUE(stream->isPlaying());
        EXPECT_EQ(stream->currentSong(), list->objectInSongsAtIndex(0));
        EXPECT_LT(highest, 0.3) << "the position never ran past the song's end";
        EXPECT_TRUE(policy != 0 || device->changes.isEmpty()) << "leaving the device alone changes no rate";
    }
}

TEST_F(StreamTest, NextPreviousAndChoosingTheCurrentSong)
{
    auto stream = makeStream(fakeDevice());
    const PlaylistPtr list = playlist({song("a", 5), song("b", 5), song("c", 5)});
    stream->setPlaylist(list);
    const SongPtr a = list->objectInSongsAtIndex(0), b = list->objectInSongsAtIndex(1), c = list->objectInSongsAtIndex(2);

    // Paused: previous at 0 on the first song does nothing; next moves on and stays paused.
    stream->setCurrentSong(a);
    stream->previous();
    EXPECT_EQ(stream->currentSong(), a);
    stream->next();
    EXPECT_EQ(stream->currentSong(), b);
    EXPECT_FALSE(stream->isPlaying());
    // Paused away from 0, previous returns to the start first, then to the song before.
    stream->setLocation(1.5);
    stream->previous();
    EXPECT_EQ(stream->currentSong(), b);
    EXPECT_EQ(stream->location(), 0.0);
    stream->previous();
    EXPECT_EQ(stream->currentSong(), a);

    // Playing: choosing the current song again changes neither position nor transport.
    stream->next();
    stream->play();
    stream->setLocation(3.01);
    stream->setCurrentSong(b);
    EXPECT_TRUE(stream->isPlaying());
    EXPECT_GE(stream->location(), 3.0);
    // Beyond 3 s previous restarts the song; within the first 3 s it goes to the song before
    // (2.5 s: the song plays on between the two calls).
    stream->previous();
    EXPECT_EQ(stream->currentSong(), b);
    EXPECT_LT(stream->location(), 1.0);
    stream->setLocation(2.5);
    stream->previous();
    EXPECT_EQ(stream->currentSong(), a);

    // No wrap-around without repeat: next on the last song does nothing.
    stream->setCurrentSong(c);
    stream->next();
    EXPECT_EQ(stream->currentSong(), c);
}

TEST_F(StreamTest, AMissingSongIsSkipped)
{
    auto stream = makeStream(fakeDevice());
    const SongPtr a = song("a"), gone = song("gone"), c = song("c");
    gone->setIsMissing(true);
    const PlaylistPtr list = playlist({a, gone, c});
    stream->setPlaylist(list);
    stream->setCurrentSong(a);
    EXPECT_EQ(stream->songInPlayerAtIndex(stream->indexOfDisabledPlayer()), c)
        << "the missing song was skipped";
}

TEST_F(StreamTest, PositionWithoutASongAndASeekToTheEnd)
{
    auto stream = makeStream(fakeDevice());
    EXPECT_EQ(stream->normalizedLocation(), 0.0f);
    stream->setNormalizedLocation(0.5f);
    EXPECT_EQ(stream->location(), 0.0);

    // 0.25 s of silence, then a tone: the playable range starts at the tone.
    const QString path = m_dir + "/quiet.flac";
    ASSERT_EQ(TestEnvironment::run("sox", QStringList{"-n", "-r44100", "-c2", path}
                                              + QString("synth 1 sine 440 pad 0.25 0").split(u' ')),
              0);
    SongPtr s = Song::initWithURL(path);
    ASSERT_TRUE(s);
    const PlaylistPtr list = playlist({s});
    stream->setPlaylist(list);
    stream->setCurrentSong(s);
    const AudioFileRange range = stream->playableRangeOfSongInPlayerAtIndex(stream->indexOfEnabledPlayer());
    EXPECT_NEAR(range.location, 0.25, 1.0 / 44100);
    stream->setNormalizedLocation(2.0f);
    EXPECT_NEAR(stream->location(), range.location + range.length - 1.0 / 44100, 1e-9);
}

// --- Effect slots ------------------------------------------------------------------------------

TEST_F(StreamTest, AnEffectSurvivesARestartAndAVanishedOneLeavesItsSlotEmpty)
{
    const QVariantMap amp{{"class", "APLAudioUnitAudioProcessor"},
                          {"uri", "http://plugin.org.uk/swh-plugins/amp"}};
    VEKError error;
    VEKAudioProcessorPtr effect = VEKAudioProcessor::processorWithSettings(amp, &error);
    if (!effect)
        GTEST_SKIP() << "swh-lv2 amp not installed: " << error.text().toStdString();
    ASSERT_TRUE(effect->setSettings({{"gain", -6.0}}, &error)) << error.text().toStdString();
    QVariantMap stored;
    {
        auto device = fakeDevice();
        auto stream = makeStream(device);
        const int opened = device->outputsMade;
        EXPECT_FALSE(stream->setProcessor(effect, 3));
        ASSERT_TRUE(stream->setProcessor(effect, 1));
        EXPECT_TRUE(stream->isRunning());
        EXPECT_TRUE(effect->isInitialized()) << "prepared at the stream's format";
        ASSERT_TRUE(stream->setProcessor(nullptr, 1));
        ASSERT_TRUE(stream->setProcessor(effect, 1));
        EXPECT_EQ(device->outputsMade, opened) << "the device ran on through every change";
        // Stored at once, not only at quit: a crash keeps it.
        stored = UserDefaults::standard().dictionaryForKey("effect2");
        EXPECT_EQ(stored, effect->settings());
        stream->stop();
    }
    {
        auto stream = makeStream(fakeDevice());
        ASSERT_TRUE(stream->processorAtIndex(1));
        EXPECT_EQ(stream->processorAtIndex(1)->settings(), stored);
        EXPECT_FALSE(stream->processorAtIndex(0));
        stream->stop();
    }
    QVariantMap vanished = amp;
    vanished.insert("uri", "urn:quivera:test:no-such-plugin");
    UserDefaults::standard().setValue("effect2", vanished);
    AlertRecorder recorder;
    auto stream = makeStream(fakeDevice());
    EXPECT_FALSE(stream->processorAtIndex(1));
    EXPECT_TRUE(recorder.alerts.isEmpty());
    stream.reset();
    EXPECT_FALSE(UserDefaults::standard().value("effect2").isValid()) << "removed at quit";
}

} // namespace
