#include "library/Song.h"
#include "settings/UserDefaults.h"
#include "support/TestEnvironment.h"

#include <QDir>
#include <QFile>
#include <gtest/gtest.h>

TEST(SongNumbers, TrackAndDiscFollowTheTagForms)
{
    const auto compose = [](const char *n, const char *c) {
        return Song::composeNumber(n ? QVariant(QString::fromUtf8(n)) : QVariant(),
                                   c ? QVariant(QString::fromUtf8(c)) : QVariant());
    };
    EXPECT_EQ(compose("7", nullptr), QStringLiteral("7"));
    EXPECT_EQ(compose("07/10", nullptr), QStringLiteral("07 of 10"));
    EXPECT_EQ(compose("03", "12"), QStringLiteral("3 of 12"));
    EXPECT_EQ(compose("7", "0"), QStringLiteral("7 of 0"));
    EXPECT_EQ(compose("7", ""), QStringLiteral("7"));
    EXPECT_EQ(compose("A1", nullptr), QStringLiteral("0"));
    EXPECT_TRUE(compose(nullptr, "12").isNull());

    EXPECT_EQ(Song::leadingInteger(QStringLiteral("07 of 10")), 7u);
    EXPECT_EQ(Song::leadingInteger(QStringLiteral("7")), 7u);
    EXPECT_EQ(Song::leadingInteger(QStringLiteral("0")), 0u);
    EXPECT_EQ(Song::leadingInteger(QString()), 0u);
}

TEST(SongSortable, TrimLowerAndDropLeadingArticlesInOrder)
{
    EXPECT_EQ(Song::sortableForm(QStringLiteral("A The Band")), QStringLiteral("band"));
    EXPECT_EQ(Song::sortableForm(QStringLiteral("The A Team")), QStringLiteral("a team"));
    EXPECT_EQ(Song::sortableForm(QStringLiteral("(The Band)")), QStringLiteral("band"));
    EXPECT_EQ(Song::sortableForm(QStringLiteral("The The")), QStringLiteral("the"));
    EXPECT_EQ(Song::sortableForm(QStringLiteral("A")), QStringLiteral("a"));
    EXPECT_EQ(Song::sortableForm(QStringLiteral("An Album")), QStringLiteral("an album"));
    EXPECT_EQ(Song::sortableForm(QStringLiteral("  ÉLAN Vital! ")), QStringLiteral("élan vital"));
    const QString bangs = Song::sortableForm(QStringLiteral("!!!"));
    EXPECT_FALSE(bangs.isNull());
    EXPECT_TRUE(bangs.isEmpty());
    EXPECT_TRUE(Song::sortableForm(QString()).isNull());

    Song song;
    song.setArtist(QStringLiteral("The Beatles"));
    EXPECT_EQ(song.artist_sortable(), QStringLiteral("beatles"));
    song.setArtist(QString());
    EXPECT_TRUE(song.artist_sortable().isNull());
}

TEST(SongFormat, ShortFormsOfEveryKind)
{
    EXPECT_EQ(Song::shortFormatForKind(QStringLiteral("Monkey's Audio File")), QStringLiteral("MAC"));
    EXPECT_EQ(Song::shortFormatForKind(QStringLiteral("Ogg Vorbis Audio File")), QStringLiteral("Vorbis"));
    EXPECT_TRUE(Song::shortFormatForKind(QStringLiteral("Opus")).isNull());
}

class SongFileTest : public ::testing::Test {
protected:
    QString dir = TestEnvironment::makeTempDir(QStringLiteral("song"));
};

TEST_F(SongFileTest, ReadsFactsAndTagsFromAFile)
{
    const QString wav = TestEnvironment::makeSine(dir + QStringLiteral("/src.wav"), 1.0, 48000, 2, {QStringLiteral("-b"), QStringLiteral("24")});
    const QString flac = TestEnvironment::ffmpeg(
        wav, dir + QStringLiteral("/07 Song.flac"),
        {QStringLiteral("-metadata"), QStringLiteral("artist=The Artist"), QStringLiteral("-metadata"),
         QStringLiteral("album=An Album"), QStringLiteral("-metadata"), QStringLiteral("track=07/10"),
         QStringLiteral("-metadata"), QStringLiteral("disc=2"), QStringLiteral("-sample_fmt"), QStringLiteral("s32")});
    VEKError error;
    SongPtr song = Song::initWithURL(flac, &error);
    ASSERT_TRUE(song) << error.text().toStdString();
    EXPECT_EQ(song->name(), QStringLiteral("07 Song")); // no title tag: the file's name
    EXPECT_EQ(song->artist(), QStringLiteral("The Artist"));
    EXPECT_EQ(song->artist_sortable(), QStringLiteral("artist"));
    EXPECT_EQ(song->album_sortable(), QStringLiteral("an album"));
    EXPECT_EQ(song->track(), QStringLiteral("07 of 10"));
    EXPECT_EQ(song->track_sortable(), 7u);
    EXPECT_EQ(song->disc(), QStringLiteral("2"));
    EXPECT_EQ(song->kind(), QStringLiteral("FLAC Audio File"));
    EXPECT_EQ(song->format(), QStringLiteral("FLAC 24bit"));
    EXPECT_DOUBLE_EQ(song->sampleRate(), 48000.0);
    EXPECT_NEAR(song->length(), 1.0, 1e-6);
    EXPECT_EQ(song->size(), quint64(QFile(flac).size()));
    EXPECT_EQ(song->songID(), 0);
    EXPECT_FALSE(song->dateAdded().isValid());

    const QString mp3 = TestEnvironment::ffmpeg(wav, dir + QStringLiteral("/x.mp3"), {QStringLiteral("-b:a"), QStringLiteral("128k")});
    SongPtr lossy = Song::initWithURL(mp3);
    ASSERT_TRUE(lossy);
    EXPECT_EQ(lossy->format(), QStringLiteral("MP3"));
}

TEST_F(SongFileTest, MissingAndUnreadableFiles)
{
    VEKError error;
    EXPECT_FALSE(Song::initWithURL(dir + QStringLiteral("/nope.flac"), &error));
    EXPECT_TRUE(error.isNull()); // a missing file is no error

    QFile text(dir + QStringLiteral("/notes.mp3"));
    ASSERT_TRUE(text.open(QIODevice::WriteOnly));
    text.write("these are not the droids you are looking for\n");
    text.close();
    EXPECT_FALSE(Song::initWithURL(text.fileName(), &error));
    EXPECT_FALSE(error.isNull());
}

TEST_F(SongFileTest, SetMetadataWritesTheFileAndKeepsRemovedTagsInTheSong)
{
    const QString flac = TestEnvironment::makeSine(dir + QStringLiteral("/t.flac"));
    SongPtr song = Song::initWithURL(flac);
    ASSERT_TRUE(song);
    VEKError error;
    ASSERT_TRUE(song->setMetadata({{QStringLiteral("title"), QStringLiteral("Night")},
                                   {QStringLiteral("artist"), QStringLiteral("A Band")},
                                   {QStringLiteral("track"), QStringLiteral("3 of 12")}},
                                  &error))
        << error.text().toStdString();
    EXPECT_EQ(song->name(), QStringLiteral("Night"));
    EXPECT_EQ(song->track(), QStringLiteral("3 of 12"));
    EXPECT_EQ(Song::initWithURL(flac)->artist(), QStringLiteral("A Band"));

    // Clearing a tag empties the file's tag, but a refresh never removes a field.
    ASSERT_TRUE(song->setMetadata({{QStringLiteral("artist"), QVariant()}}, &error));
    EXPECT_TRUE(Song::initWithURL(flac)->artist().isNull());
    EXPECT_EQ(song->artist(), QStringLiteral("A Band"));
}

TEST_F(SongFileTest, PreferredFormatComparesKindAndRate)
{
    const QString flac = TestEnvironment::makeSine(dir + QStringLiteral("/p.flac"), 0.2, 44100);
    SongPtr song = Song::initWithURL(flac);
    ASSERT_TRUE(song);
    UserDefaults &defaults = UserDefaults::standard();
    defaults.setValue(QStringLiteral("preferredFormat"),
                      QVariantMap{{QStringLiteral("format"), 6}, {QStringLiteral("sampleRate"), 44100}});
    EXPECT_TRUE(song->isInPreferredFormat());
    defaults.setValue(QStringLiteral("preferredFormat"),
                      QVariantMap{{QStringLiteral("format"), 6}, {QStringLiteral("sampleRate"), 48000}});
    EXPECT_FALSE(song->isInPreferredFormat());
    // No format entry counts as 0, AIFF.
    defaults.setValue(QStringLiteral("preferredFormat"), QVariantMap{{QStringLiteral("sampleRate"), 44100}});
    EXPECT_FALSE(song->isInPreferredFormat());
    defaults.removeValue(QStringLiteral("preferredFormat"));
}

TEST_F(SongFileTest, ImageFallsBackToACoverFileBesideTheSong)
{
    const QString flac = TestEnvironment::makeSine(dir + QStringLiteral("/c.flac"), 0.2);
    SongPtr song = Song::initWithURL(flac);
    ASSERT_TRUE(song);
    EXPECT_TRUE(song->image().isNull());
    TestEnvironment::run(QStringLiteral("ffmpeg"),
                         {QStringLiteral("-y"), QStringLiteral("-v"), QStringLiteral("error"), QStringLiteral("-f"),
                          QStringLiteral("lavfi"), QStringLiteral("-i"), QStringLiteral("color=red:s=8x6"),
                          QStringLiteral("-frames:v"), QStringLiteral("1"), dir + QStringLiteral("/cover.png")});
    const QImage image = song->image();
    ASSERT_FALSE(image.isNull());
    EXPECT_EQ(image.size(), QSize(8, 6));
}
