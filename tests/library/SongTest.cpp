#include "library/Song.h"
#include "settings/UserDefaults.h"
#include "support/TestEnvironment.h"

#include <QFile>
#include <gtest/gtest.h>

TEST(SongNumbers, TrackAndDiscFollowTheTagForms)
{
    const auto compose = [](const char *n, const char *c) {
        return Song::composeNumber(n ? QVariant(QString::fromUtf8(n)) : QVariant(),
                                   c ? QVariant(QString::fromUtf8(c)) : QVariant());
    };
    EXPECT_EQ(compose("7", nullptr), "7");
    EXPECT_EQ(compose("07/10", nullptr), "07 of 10");
    EXPECT_EQ(compose("03", "12"), "3 of 12");
    EXPECT_EQ(compose("7", "0"), "7 of 0");
    EXPECT_EQ(compose("7", ""), "7");
    EXPECT_EQ(compose("A1", nullptr), "0");
    EXPECT_TRUE(compose(nullptr, "12").isNull());

    EXPECT_EQ(Song::leadingInteger("07 of 10"), 7u);
    EXPECT_EQ(Song::leadingInteger("7"), 7u);
    EXPECT_EQ(Song::leadingInteger("0"), 0u);
    EXPECT_EQ(Song::leadingInteger(QString()), 0u);
}

TEST(SongSortable, TrimLowerAndDropLeadingArticlesInOrder)
{
    EXPECT_EQ(Song::sortableForm("A The Band"), "band");
    EXPECT_EQ(Song::sortableForm("The A Team"), "a team");
    EXPECT_EQ(Song::sortableForm("(The Band)"), "band");
    EXPECT_EQ(Song::sortableForm("The The"), "the");
    EXPECT_EQ(Song::sortableForm("A"), "a");
    EXPECT_EQ(Song::sortableForm("An Album"), "an album");
    EXPECT_EQ(Song::sortableForm("  ÉLAN Vital! "), "élan vital");
    const QString bangs = Song::sortableForm("!!!");
    EXPECT_FALSE(bangs.isNull());
    EXPECT_TRUE(bangs.isEmpty());
    EXPECT_TRUE(Song::sortableForm(QString()).isNull());

    Song song;
    song.setArtist("The Beatles");
    EXPECT_EQ(song.artist_sortable(), "beatles");
    song.setArtist(QString());
    EXPECT_TRUE(song.artist_sortable().isNull());
}

TEST(SongFormat, ShortFormsOfEveryKind)
{
    EXPECT_EQ(Song::shortFormatForKind("Monkey's Audio File"), "MAC");
    EXPECT_EQ(Song::shortFormatForKind("Ogg Vorbis Audio File"), "Vorbis");
    EXPECT_TRUE(Song::shortFormatForKind("Opus").isNull());
}

class SongFileTest : public ::testing::Test {
protected:
    QString dir = TestEnvironment::makeTempDir("song");
};

TEST_F(SongFileTest, ReadsFactsAndTagsFromAFile)
{
    const QString wav = TestEnvironment::makeSine(dir + "/src.wav", 1.0, 48000, 2, {"-b", "24"});
    const QString flac =
        TestEnvironment::ffmpeg(wav, dir + "/07 Song.flac",
                                {"-metadata", "artist=The Artist", "-metadata", "album=An Album", "-metadata",
                                 "track=07/10", "-metadata", "disc=2", "-sample_fmt", "s32"});
    VEKError error;
    SongPtr song = Song::initWithURL(flac, &error);
    ASSERT_TRUE(song) << error.text().toStdString();
    EXPECT_EQ(song->name(), "07 Song"); // no title tag: the file's name
    EXPECT_EQ(song->artist(), "The Artist");
    EXPECT_EQ(song->artist_sortable(), "artist");
    EXPECT_EQ(song->album_sortable(), "an album");
    EXPECT_EQ(song->track(), "07 of 10");
    EXPECT_EQ(song->track_sortable(), 7u);
    EXPECT_EQ(song->disc(), "2");
    EXPECT_EQ(song->kind(), "FLAC Audio File");
    EXPECT_EQ(song->format(), "FLAC 24bit");
    EXPECT_DOUBLE_EQ(song->sampleRate(), 48000.0);
    EXPECT_NEAR(song->length(), 1.0, 1e-6);
    EXPECT_EQ(song->size(), quint64(QFile(flac).size()));
    EXPECT_EQ(song->songID(), 0);
    EXPECT_FALSE(song->dateAdded().isValid());

    const QString mp3 = TestEnvironment::ffmpeg(wav, dir + "/x.mp3", {"-b:a", "128k"});
    SongPtr lossy = Song::initWithURL(mp3);
    ASSERT_TRUE(lossy);
    EXPECT_EQ(lossy->format(), "MP3");
}

TEST_F(SongFileTest, MissingAndUnreadableFiles)
{
    VEKError error;
    EXPECT_FALSE(Song::initWithURL(dir + "/nope.flac", &error));
    EXPECT_TRUE(error.isNull()); // a missing file is no error

    QFile text(dir + "/notes.mp3");
    ASSERT_TRUE(text.open(QIODevice::WriteOnly));
    text.write("these are not the droids you are looking for\n");
    text.close();
    EXPECT_FALSE(Song::initWithURL(text.fileName(), &error));
    EXPECT_FALSE(error.isNull());
}

TEST_F(SongFileTest, SetMetadataWritesTheFileAndKeepsRemovedTagsInTheSong)
{
    const QString flac = TestEnvironment::makeSine(dir + "/t.flac");
    SongPtr song = Song::initWithURL(flac);
    ASSERT_TRUE(song);
    VEKError error;
    ASSERT_TRUE(song->setMetadata({{"title", "Night"}, {"artist", "A Band"}, {"track", "3 of 12"}}, &error))
        << error.text().toStdString();
    EXPECT_EQ(song->name(), "Night");
    EXPECT_EQ(song->track(), "3 of 12");
    EXPECT_EQ(Song::initWithURL(flac)->artist(), "A Band");

    // Clearing a tag empties the file's tag, but a refresh never removes a field.
    ASSERT_TRUE(song->setMetadata({{"artist", QVariant()}}, &error));
    EXPECT_TRUE(Song::initWithURL(flac)->artist().isNull());
    EXPECT_EQ(song->artist(), "A Band");
}

TEST_F(SongFileTest, PreferredFormatComparesKindAndRate)
{
    const QString flac = TestEnvironment::makeSine(dir + "/p.flac", 0.2, 44100);
    SongPtr song = Song::initWithURL(flac);
    ASSERT_TRUE(song);
    UserDefaults &defaults = UserDefaults::standard();
    defaults.setValue("preferredFormat", QVariantMap{{"format", 6}, {"sampleRate", 44100}});
    EXPECT_TRUE(song->isInPreferredFormat());
    defaults.setValue("preferredFormat", QVariantMap{{"format", 6}, {"sampleRate", 48000}});
    EXPECT_FALSE(song->isInPreferredFormat());
    // No format entry counts as 0, AIFF.
    defaults.setValue("preferredFormat", QVariantMap{{"sampleRate", 44100}});
    EXPECT_FALSE(song->isInPreferredFormat());
    defaults.removeValue("preferredFormat");
}

TEST_F(SongFileTest, ImageFallsBackToACoverFileBesideTheSong)
{
    const QString flac = TestEnvironment::makeSine(dir + "/c.flac", 0.2);
    SongPtr song = Song::initWithURL(flac);
    ASSERT_TRUE(song);
    EXPECT_TRUE(song->image().isNull());
    TestEnvironment::run("ffmpeg", {"-y", "-v", "error", "-f", "lavfi", "-i", "color=red:s=8x6", "-frames:v",
                                    "1", dir + "/cover.png"});
    const QImage image = song->image();
    ASSERT_FALSE(image.isNull());
    EXPECT_EQ(image.size(), QSize(8, 6));
}
