// The stream playing on ALSA test cards, driven through the settings the preferences write: what
// reaches each card is read back from the file the card writes, and the signal path must say
// the same thing.

#include "audio/AudioProcessorClasses.h"
#include "audio/Stream.h"
#include "library/Playlist.h"
#include "settings/UserDefaults.h"
#include "support/AlsaWorld.h"
#include "support/Processes.h"
#include "support/TestEnvironment.h"

#include <QtEndian>
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

namespace {

// Samples a card got, as integers, from its raw little-endian words.
std::vector<qint32> samples(const QByteArray &bytes, int width)
{
    std::vector<qint32> out;
    for (qsizetype i = 0; i + width <= bytes.size(); i += width) {
        const auto *b = reinterpret_cast<const uchar *>(bytes.constData() + i);
        out.push_back(width == 2 ? qint32(qFromLittleEndian<qint16>(b))
                                 : qint32(qint32(b[0] << 8 | b[1] << 16 | b[2] << 24) >> 8));
    }
    return out;
}

// The last sound in `all` (interleaved stereo): the samples between the last long silence and
// the silence after it. A paced card keeps writing silence while the stream is paused.
std::vector<qint32> lastBurst(const std::vector<qint32> &all)
{
    qsizetype end = qsizetype(all.size());
    while (end > 0 && all[size_t(end - 1)] == 0)
        --end;
    qsizetype start = end;
    qsizetype zeros = 0;
    while (start > 0 && zeros < 2000) {
        zeros = all[size_t(start - 1)] == 0 ? zeros + 1 : 0;
        --start;
    }
    start += zeros;
    return std::vector<qint32>(all.begin() + start, all.begin() + end);
}

// The samples from the first to the last above a tenth of the loudest: the length of a tone,
// whatever a converter's filter rings before and after it.
qsizetype loudSpan(const std::vector<qint32> &v)
{
    qint32 peak = 0;
    for (qint32 x : v)
        peak = std::max(peak, std::abs(x));
    const auto loud = [peak](qint32 x) { return std::abs(x) > peak / 10; };
    const auto first = std::find_if(v.begin(), v.end(), loud);
    const auto last = std::find_if(v.rbegin(), v.rend(), loud);
    return first == v.end() ? 0 : qsizetype(v.rend() - last) - qsizetype(first - v.begin());
}

class StreamSignalPath : public ::testing::Test {
protected:
    void SetUp() override
    {
        TestEnvironment::resetUserFolders();
        registerAudioProcessorClasses();
        m_dir = TestEnvironment::makeTempDir("signalpath");
        m_oldConfig = qgetenv("ALSA_CONFIG_PATH");
        const QString paced = "  paced true\n  file \"%1/%2.raw\"\n";
        ASSERT_FALSE(
            AlsaWorld::install(
                m_dir, QStringLiteral(QUIVERA_TEST_ALSA_PLUGIN),
                AlsaWorld::card("cardA", "44100 96000", "\"S16_LE\" \"S24_3LE\"", paced.arg(m_dir, "a"))
                    + AlsaWorld::card("cardB", "48000", "\"S16_LE\"", paced.arg(m_dir, "b")))
                .isEmpty());
        // A 16-bit song that starts loud, so none of it counts as leading silence.
        m_file = m_dir + "/song.flac";
        ASSERT_EQ(TestEnvironment::run("sox", {"-n", "-r", "44100", "-c", "2", "-b", "16", m_file, "synth",
                                               "0.4", "sine", "997", "0", "25", "vol", "0.5"}),
                  0);
        const QString raw = m_dir + "/song.raw";
        ASSERT_EQ(TestEnvironment::run("sox", {m_file, "-t", "raw", raw}), 0);
        m_source = samples(TestEnvironment::readFile(raw), 2);
        m_song = Song::initWithURL(m_file);
        ASSERT_TRUE(m_song);
        m_song->setSongID(1);
        m_playlist = std::make_shared<Playlist>();
        m_playlist->appendSongs({m_song});
    }

    void TearDown() override
    {
        for (const char *key : {"outputDevice", "sampleRate", "convertorType", "ditherProperties",
                                "headphonesProcessorSettings"})
            UserDefaults::standard().removeValue(QString::fromLatin1(key));
        qputenv("ALSA_CONFIG_PATH", m_oldConfig);
    }

    // Plays the song through and returns what the card `stem` got of it.
    std::vector<qint32> play(Stream &stream, const QString &stem, int width)
    {
        stream.setCurrentSong(m_song);
        stream.play();
        EXPECT_TRUE(TestEnvironment::waitUntil([&] { return !stream.currentSong() && !stream.isPlaying(); }));
        // The card saves what it was given as it consumes; a little silence flushes the end.
        TestEnvironment::waitUntil([] { return false; }, 250);
        return lastBurst(samples(TestEnvironment::readFile(m_dir + u'/' + stem + ".raw"), width));
    }

    // What the card was opened with, as it saw it.
    QString cardParams(const QString &stem) const
    {
        return QString::fromUtf8(TestEnvironment::readFile(m_dir + u'/' + stem + ".raw.params")).trimmed();
    }

    static QList<SignalPath::Kind> kinds(const SignalPath &path)
    {
        QList<SignalPath::Kind> k;
        for (const SignalPath::Stage &s : path.stages())
            k << s.kind;
        return k;
    }

    // The song's samples exactly, shifted to the card's word. Frames below the silence threshold
    // at either end may be left out of the playable range.
    void expectUntouched(const std::vector<qint32> &got, int shift) const
    {
        ASSERT_GE(got.size() + 64, m_source.size()) << "the song did not reach the card whole";
        ASSERT_LE(got.size(), m_source.size());
        size_t skip = 0;
        while (skip + got.size() < m_source.size()
               && !std::equal(got.begin(), got.begin() + 8, m_source.begin() + qsizetype(skip),
                              [shift](qint32 a, qint32 b) { return a == b * (1 << shift); }))
            ++skip;
        for (size_t i = 0; i < got.size(); ++i)
            ASSERT_EQ(got[i], m_source[i + skip] * (1 << shift)) << "sample " << i;
    }

    QString m_dir;
    QString m_file;
    QByteArray m_oldConfig;
    std::vector<qint32> m_source;
    SongPtr m_song;
    PlaylistPtr m_playlist;
};

TEST_F(StreamSignalPath, EachSettingChangesWhatReachesTheCardAndThePathSaysSo)
{
    using Kind = SignalPath::Kind;
    UserDefaults &defaults = UserDefaults::standard();
    defaults.setValue("outputDevice", QVariantMap{{"UID", "cardA"}});
    auto stream = std::make_unique<Stream>();
    VEKError error;
    ASSERT_TRUE(stream->initWithDescription(Stream::defaultDescription(), &error))
        << error.text().toStdString();
    ASSERT_TRUE(stream->initialize(&error)) << error.text().toStdString();
    ASSERT_TRUE(stream->start(&error)) << error.text().toStdString();
    int told = 0;
    QObject::connect(stream.get(), &Stream::signalPathChanged, stream.get(), [&told] { ++told; });
    stream->setPlaylist(m_playlist);
    const auto changed = [&](const char *key, const QVariant &value) {
        const int before = told;
        defaults.setValue(QString::fromLatin1(key), value);
        TestEnvironment::waitUntil([] { return false; }, 50);
        return told > before;
    };

    {
        SCOPED_TRACE("the card's widest word, the song's rate");
        const std::vector<qint32> got = play(*stream, "a", 3);
        EXPECT_EQ(cardParams("a"), "44100 S24_3LE 2");
        expectUntouched(got, 8);
        stream->setCurrentSong(m_song);
        const SignalPath path = stream->signalPath();
        EXPECT_TRUE(path.isBitPerfect()) << path.verdictText().toStdString();
        EXPECT_EQ(kinds(path), QList<Kind>{});
        EXPECT_EQ(path.device().hardware().sampleFormat, "S24_3LE");
        EXPECT_EQ(path.device().hardware().sampleRate, 44100.0);
        EXPECT_EQ(path.source().bitsPerSample, 16);
    }
    {
        SCOPED_TRACE("a dither to 16 bits finds nothing to cut in a 16-bit song");
        defaults.setValue("ditherProperties", QVariantMap{{"enabled", true}, {"depth", 16}});
        expectUntouched(play(*stream, "a", 3), 8);
        stream->setCurrentSong(m_song);
        EXPECT_TRUE(stream->signalPath().isBitPerfect());
    }
    {
        SCOPED_TRACE("a dither to 8 bits");
        stream->setCurrentSong(m_song);
        EXPECT_TRUE(changed("ditherProperties", QVariantMap{{"enabled", true}, {"depth", 8}}));
        EXPECT_EQ(kinds(stream->signalPath()), QList<Kind>{Kind::Dither});
        EXPECT_EQ(stream->signalPath().stages()[0].bits, 8);
        const std::vector<qint32> got = play(*stream, "a", 3);
        ASSERT_GT(got.size(), m_source.size() / 2);
        for (size_t i = 0; i < got.size(); ++i)
            ASSERT_EQ(got[i] % (1 << 16), 0) << "sample " << i << " is not on the 8-bit grid";
        defaults.removeValue("ditherProperties");
    }
    {
        SCOPED_TRACE("headphones");
        stream->setCurrentSong(m_song);
        EXPECT_TRUE(
            changed("headphonesProcessorSettings",
                    QVariantMap{{"enabled", true}, {"crossfeedAmount", 1.0}, {"speakerAngle", 30.0}}));
        EXPECT_EQ(kinds(stream->signalPath()), QList<Kind>{Kind::Headphones});
        const std::vector<qint32> got = play(*stream, "a", 3);
        ASSERT_GT(got.size(), m_source.size() / 2);
        size_t differing = 0;
        for (size_t i = 0; i < got.size() && i < m_source.size(); ++i)
            differing += got[i] != m_source[i] * 256;
        EXPECT_GT(differing, got.size() / 2);
        defaults.removeValue("headphonesProcessorSettings");
    }
    std::vector<qint32> converted[2];
    for (int type : {0, 2}) {
        SCOPED_TRACE(type == 0 ? "a rate of 96 kHz, soxr high quality" : "soxr quick");
        stream->setCurrentSong(m_song);
        if (type == 0)
            EXPECT_TRUE(changed("sampleRate", 96000));
        else
            EXPECT_TRUE(changed("convertorType", 2));
        const SignalPath path = stream->signalPath();
        ASSERT_EQ(kinds(path), QList<Kind>{Kind::RateConversion});
        EXPECT_EQ(path.stages()[0].toRate, 96000.0);
        EXPECT_EQ(path.stages()[0].name, type == 0 ? "soxr high quality" : "soxr quick");
        EXPECT_EQ(path.device().hardware().sampleRate, 96000.0);
        converted[type / 2] = play(*stream, "a", 3);
        EXPECT_EQ(cardParams("a"), "96000 S24_3LE 2");
        EXPECT_NEAR(double(loudSpan(converted[type / 2])), loudSpan(m_source) * 96000.0 / 44100.0, 100.0);
    }
    EXPECT_NE(converted[0], converted[1]) << "another converter, the same output";
    {
        SCOPED_TRACE("the rate follows the song");
        stream->setCurrentSong(m_song);
        EXPECT_TRUE(changed("sampleRate", -1));
        EXPECT_TRUE(stream->signalPath().isBitPerfect()) << stream->signalPath().verdictText().toStdString();
        expectUntouched(play(*stream, "a", 3), 8);
    }
    {
        SCOPED_TRACE("another device: 48 kHz, 16 bits only");
        stream->setCurrentSong(m_song);
        EXPECT_TRUE(changed("outputDevice", QVariantMap{{"UID", "cardB"}}));
        const SignalPath path = stream->signalPath();
        // Converted, the song is a float signal: the 16-bit card takes it rounded, as no dither is on.
        EXPECT_EQ(kinds(path), (QList<Kind>{Kind::RateConversion, Kind::Rounding}));
        EXPECT_EQ(path.device().hardware().sampleFormat, "S16_LE");
        EXPECT_EQ(path.device().hardware().sampleRate, 48000.0);
        const std::vector<qint32> got = play(*stream, "b", 2);
        EXPECT_EQ(cardParams("b"), "48000 S16_LE 2");
        EXPECT_NEAR(double(loudSpan(got)), loudSpan(m_source) * 48000.0 / 44100.0, 100.0);
    }
    stream->stop();
    stream->teardown();
}

} // namespace
