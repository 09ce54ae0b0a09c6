// The conversion worker on its own: the converter the settings ask for, a result beside the
// source that never replaces it, the new song's row and ID, and the roads that write nothing.

#include "library/ConvertOperation.h"
#include "LibraryFile.h"
#include "db/VEKDatabase.h"
#include "io/VEKAudioFileReader.h"
#include "settings/UserDefaults.h"
#include "support/Processes.h"
#include "support/TestEnvironment.h"

#include <QDir>
#include <QFile>
#include <gtest/gtest.h>
#include <thread>

namespace {

class ConvertOperationTest : public ::testing::Test {
protected:
    void TearDown() override
    {
        UserDefaults &defaults = UserDefaults::standard();
        for (const char *key : {"preferredFormat", "convertorType"})
            defaults.removeValue(QString::fromLatin1(key));
    }

    static void prefer(const QVariantMap &format)
    {
        UserDefaults::standard().setValue("preferredFormat", format);
    }

    // IDs handed out from `ids` in turn (then counting down), whatever `isTaken` says first.
    std::shared_ptr<ConvertOperation> make(const QString &path, QSet<qint64> known = {},
                                           QList<qint64> ids = {})
    {
        SongPtr song = Song::initWithURL(path);
        if (!song) { // a missing file: a song of the library whose file has gone
            song = std::make_shared<Song>();
            song->setURL(path);
        }
        return std::make_shared<ConvertOperation>(
            song, nullptr, library, std::move(known),
            [ids, this](const std::function<bool(qint64)> &isTaken) mutable {
                qint64 id = ids.isEmpty() ? --nextID : ids.takeFirst();
                while (isTaken(id))
                    id = ids.isEmpty() ? --nextID : ids.takeFirst();
                return id;
            });
    }

    qint64 rows(const QString &where = "1") const
    {
        return file.number("SELECT COUNT() FROM t_song WHERE " + where);
    }

    LibraryFile file{"convert"};
    const QString dir = file.dir, library = file.path;
    qint64 nextID = 1000;
};

} // namespace

TEST_F(ConvertOperationTest, TheConverterFollowsConvertorType)
{
    auto converterClass = [] {
        for (const QVariant &p : ConvertOperation::streamDescription().value("processors").toList())
            if (p.toMap().value("identifier") == QLatin1String("converter"))
                return p.toMap().value("class").toString();
        return QString();
    };
    UserDefaults &defaults = UserDefaults::standard();
    for (int type : {0, 2, 3}) {
        defaults.setValue("convertorType", type);
        EXPECT_EQ(converterClass(), "APLConverterAudioProcessor") << type;
    }
    defaults.setValue("convertorType", 1);
    EXPECT_EQ(converterClass(), "IZOConverterAudioProcessor");
}

TEST_F(ConvertOperationTest, WritesANewFileBesideTheSourceAndItsRow)
{
    UserDefaults::standard().setValue("convertorType", 1);
    prefer({{"format", 1}, {"sampleRate", 48000}, {"bitRange", 24}});
    const QString source = TestEnvironment::makeSine(dir + "/song.wav", 0.5);
    const QByteArray before = TestEnvironment::fileDigest(source);
    const auto op = make(source);
    op->start();
    ASSERT_TRUE(op->success()) << op->error().text().toStdString();
    // The same format and name: "rename" keeps the source.
    EXPECT_EQ(op->resultURL(), dir + "/song 1.wav");
    EXPECT_EQ(TestEnvironment::fileDigest(source), before);
    EXPECT_FLOAT_EQ(op->progress(), 1.0f);

    auto result = VEKAudioFileReader::open(op->resultURL());
    ASSERT_TRUE(result);
    EXPECT_EQ(result->sampleRate(), 48000.0);
    EXPECT_NEAR(result->length(), 0.5, 0.001);

    const SongPtr song = op->resultSong();
    ASSERT_TRUE(song);
    EXPECT_EQ(song->URL(), op->resultURL());
    EXPECT_TRUE(song->dateAdded().isValid());
    EXPECT_EQ(rows(QString("songID = %1 AND dateAdded IS NOT NULL AND dateAdded != ''").arg(song->songID())),
              1);
}

// Each format of the preferred-format record reaches the writer with its rate, word length or bit rate.
TEST_F(ConvertOperationTest, EachPreferredFormatReachesTheWriter)
{
    struct Case {
        int format;
        const char *suffix;
        QVariantMap extra;
        double rate;
        quint32 bits;    // 0: lossy
        quint64 bitRate; // 0: not checked
    };
    const Case cases[] = {
        {0, "aif", {{"bitRange", 24}}, 44100, 24, 0},
        {1, "wav", {{"sampleRate", 48000}, {"bitRange", 16}}, 48000, 16, 0},
        {2, "caf", {{"bitRange", 24}}, 44100, 24, 0},
        {3, "m4a", {{"sampleRate", 48000}, {"bitRate", 256000}}, 48000, 0, 256000},
        {4, "m4a", {{"bitRange", 24}}, 44100, 24, 0},
        {5, "ogg", {{"quality", 0.5}}, 44100, 0, 0},
        {6, "flac", {{"sampleRate", 96000}, {"bitRange", 24}}, 96000, 24, 0},
    };
    for (const Case &c : cases) {
        SCOPED_TRACE(c.format);
        QVariantMap format = c.extra;
        format.insert("format", c.format);
        prefer(format);
        const QString source = TestEnvironment::makeSine(dir + QString("/f%1.wav").arg(c.format), 0.3);
        const auto op = make(source);
        op->start();
        ASSERT_TRUE(op->success()) << op->error().text().toStdString();
        EXPECT_TRUE(op->resultURL().endsWith(QLatin1Char('.') + QLatin1String(c.suffix))) << op->resultURL().toStdString();
        auto result = VEKAudioFileReader::open(op->resultURL());
        ASSERT_TRUE(result);
        EXPECT_EQ(result->format(), ConvertOperation::writerFormatForIndex(quint64(c.format)));
        EXPECT_EQ(result->sampleRate(), c.rate);
        EXPECT_EQ(result->numberOfChannels(), 2u);
        if (c.bits) {
            EXPECT_EQ(result->bitDepth(), c.bits);
        }
        if (c.bitRate) {
            EXPECT_NEAR(double(result->bitrate()), double(c.bitRate), 0.2 * double(c.bitRate));
        }
    }
}

TEST_F(ConvertOperationTest, TheNewIDAvoidsRowsWrittenSinceTheSnapshot)
{
    prefer({{"format", 6}});
    const QString source = TestEnvironment::makeSine(dir + "/a.wav", 0.2);
    {
        VEKDatabase db;
        ASSERT_TRUE(db.initWithURL(library));
        ASSERT_TRUE(db.executeStatement("INSERT INTO t_song (songID, path) VALUES (7, '/elsewhere.flac')"));
    }
    // 5 is in the snapshot, 7 only in the file: both are taken.
    const auto op = make(source, {5}, {5, 7, 9});
    op->start();
    ASSERT_TRUE(op->success()) << op->error().text().toStdString();
    EXPECT_EQ(op->resultSong()->songID(), 9);
    EXPECT_EQ(rows(), 2);
}

// A missing source, or a format out of range: a failure with a reason, no row and no file.
TEST_F(ConvertOperationTest, AMissingSourceOrAFormatOutOfRangeFailsWithAReasonAndWritesNothing)
{
    const QString source = TestEnvironment::makeSine(dir + "/a.wav", 0.2);
    for (const auto &[format, path] : {std::pair{6, dir + "/gone.flac"}, {7, source}}) {
        SCOPED_TRACE(format);
        prefer({{"format", format}});
        const auto op = make(path);
        op->start();
        EXPECT_FALSE(op->success());
        EXPECT_FALSE(op->error().isNull());
        EXPECT_FALSE(op->resultSong());
        EXPECT_EQ(rows(), 0);
        EXPECT_EQ(QDir(dir).entryList(QDir::Files), (QStringList{"a.wav", "library"}));
    }
}

TEST_F(ConvertOperationTest, CancelledBeforeItRanDoesNothingAndReportsNothing)
{
    prefer({{"format", 6}});
    const QString source = TestEnvironment::makeSine(dir + "/a.wav", 0.2);
    const auto op = make(source);
    op->cancel();
    op->start();
    EXPECT_TRUE(op->isFinished());
    EXPECT_FALSE(op->success());
    EXPECT_TRUE(op->error().isNull());
    EXPECT_EQ(rows(), 0);
    EXPECT_FALSE(QFile::exists(dir + "/a.flac"));
}

TEST_F(ConvertOperationTest, ProgressMovesAndACancelMidwayLeavesNothing)
{
    prefer({{"format", 6}, {"sampleRate", 96000}});
    const QString source = TestEnvironment::makeSine(dir + "/long.wav", 20.0);
    const QByteArray before = TestEnvironment::fileDigest(source);
    const auto op = make(source);
    std::thread worker([&] { op->start(); });
    // The writer's progress shows through while the file is written.
    float seen = 0.0f;
    while (!op->isFinished() && seen <= 0.0f)
        seen = op->progress();
    op->cancel();
    worker.join();
    EXPECT_GT(seen, 0.0f) << "no progress seen before the end";
    EXPECT_LT(seen, 1.0f);
    EXPECT_FALSE(op->success());
    EXPECT_TRUE(op->error().isNull());
    EXPECT_FALSE(op->resultSong());
    EXPECT_EQ(rows(), 0);
    EXPECT_EQ(QDir(dir).entryList(QDir::Files), (QStringList{"library", "long.wav"}));
    EXPECT_EQ(TestEnvironment::fileDigest(source), before);
}
