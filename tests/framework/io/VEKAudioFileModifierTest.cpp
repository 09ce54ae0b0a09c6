#include "io/VEKAudioFileModifier.h"
#include "IOFixtures.h"
#include "io/VEKAudioFileReader.h"
#include "support/Processes.h"
#include "support/TestEnvironment.h"

#include <QDir>
#include <QFile>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <unistd.h>

namespace {

const char *const kWritable[] = {"a16.flac", "a.mp3", "aac.m4a", "alac24.m4a", "a.ogg",
                                 "a16.wav", "a16.aiff", "a.wv", "a.tta"};

QVariantMap metadataOf(const QString &path)
{
    VEKError error;
    auto reader = VEKAudioFileReader::open(path, &error);
    EXPECT_NE(reader, nullptr) << error.text().toStdString();
    return reader ? reader->metadata() : QVariantMap();
}

bool writeTags(const QString &path, const QList<QPair<QString, QVariant>> &values)
{
    VEKError error;
    auto modifier = VEKAudioFileModifier::open(path, &error);
    EXPECT_NE(modifier, nullptr) << error.text().toStdString();
    if (!modifier)
        return false;
    for (const auto &[key, value] : values)
        modifier->setValue(key, value);
    const bool ok = modifier->commit(&error);
    EXPECT_TRUE(ok) << error.text().toStdString();
    return ok;
}

} // namespace

TEST(ModifierRoundTrip, EveryKeyReadsBackInEachFormatAndClearedOnesDisappear)
{
    for (const char *name : kWritable) {
        SCOPED_TRACE(name);
        const QString path = IOFixtures::copy(name);
        const QList<QPair<QString, QVariant>> texts{
            {"title", "Neuer Titel – ß"},        {"artist", "New Artist"},     {"album", "New Album"},
            {"albumArtist", "New Album Artist"}, {"composer", "New Composer"}, {"genre", "Jazz"}};
        ASSERT_TRUE(writeTags(path, texts
                                        + QList<QPair<QString, QVariant>>{{"trackNumber", "3"},
                                                                          {"numberOfTracks", "12"},
                                                                          {"discNumber", "2"},
                                                                          {"numberOfDiscs", "3"}}));
        const QVariantMap md = metadataOf(path);
        for (const auto &[key, value] : texts)
            EXPECT_EQ(md.value(key).toString(), value.toString()) << key.toStdString();
        EXPECT_EQ(IOFixtures::combined(md, "trackNumber", "numberOfTracks"), "3/12");
        EXPECT_EQ(IOFixtures::combined(md, "discNumber", "numberOfDiscs"), "2/3");
        // The picture is not ours to lose.
        if (QString(name).endsWith(".mp3") || QString(name).endsWith(".flac") || QString(name).endsWith(".m4a")) {
            EXPECT_EQ(md.value("imageData").toByteArray(), IOFixtures::coverBytes());
        }

        // A number alone keeps the total; a combined one sets both.
        ASSERT_TRUE(writeTags(path, {{"trackNumber", "5"}, {"discNumber", "4/9"}}));
        const QVariantMap numbers = metadataOf(path);
        EXPECT_EQ(IOFixtures::combined(numbers, "trackNumber", "numberOfTracks"), "5/12");
        EXPECT_EQ(IOFixtures::combined(numbers, "discNumber", "numberOfDiscs"), "4/9");

        // Cleared tags disappear, by a null value or an empty text, and the others stay.
        ASSERT_TRUE(writeTags(path, {{"title", QVariant()},
                                     {"artist", ""},
                                     {"trackNumber", QVariant()},
                                     {"numberOfTracks", QVariant()}}));
        const QVariantMap cleared = metadataOf(path);
        for (const char *key : {"title", "artist", "trackNumber", "numberOfTracks"})
            EXPECT_FALSE(cleared.contains(key)) << key;
        EXPECT_EQ(cleared.value("album").toString(), "New Album");
        EXPECT_EQ(cleared.value("genre").toString(), "Jazz");
        EXPECT_EQ(IOFixtures::combined(cleared, "discNumber", "numberOfDiscs"), "4/9");
    }
}

TEST(ModifierRoundTrip, KindComesFromContentNotExtensionForWriterAndReader)
{
    // Tagged as MP3, this FLAC file would get an ID3v2 tag in front of its "fLaC" marker.
    const QString dir = TestEnvironment::makeTempDir("renamed");
    ASSERT_TRUE(QFile::copy(IOFixtures::dir() + "/a16.flac", dir + "/flac.mp3"));
    QFile::setPermissions(dir + "/flac.mp3", QFile::ReadOwner | QFile::WriteOwner);
    ASSERT_TRUE(writeTags(dir + "/flac.mp3", {{"title", "Renamed"}}));
    EXPECT_EQ(TestEnvironment::readFile(dir + "/flac.mp3").left(4), QByteArray("fLaC"));
    // And read as what it is.
    auto reader = VEKAudioFileReader::open(dir + "/flac.mp3");
    ASSERT_NE(reader, nullptr);
    EXPECT_EQ(reader->format(), "FLAC Audio File");
    EXPECT_EQ(reader->metadata().value("title").toString(), "Renamed");
    EXPECT_EQ(reader->metadata().value("artist").toString(), "The Artist");
}

TEST(ModifierRoundTrip, TrueAudioKeepsItsAPETagInStep)
{
    // FFmpeg wrote an APE tag at the end; other programs read that one, not our ID3v2 tag.
    const QString path = IOFixtures::copy("a.tta");
    ASSERT_TRUE(writeTags(path, {{"title", QVariant()}, {"artist", "Changed"}}));
    QByteArray tags;
    ASSERT_EQ(TestEnvironment::run("ffprobe", {"-v", "error", "-show_entries", "format_tags", path}, &tags), 0);
    tags = tags.toLower(); // APE keys keep whatever case their writer chose
    EXPECT_FALSE(tags.contains("title=")) << tags.constData();
    EXPECT_TRUE(tags.contains("artist=changed")) << tags.constData();
    EXPECT_TRUE(tags.contains("album=the album")) << tags.constData();
    EXPECT_EQ(metadataOf(path).value("artist").toString(), "Changed");
}

TEST(ModifierRoundTrip, UnknownKeysAreIgnored)
{
    const QString path = IOFixtures::copy("a16.flac");
    auto modifier = VEKAudioFileModifier::open(path);
    ASSERT_NE(modifier, nullptr);
    EXPECT_TRUE(modifier->supportsKey("numberOfDiscs"));
    EXPECT_FALSE(modifier->supportsKey("track"));
    EXPECT_FALSE(modifier->supportsKey("imageData"));
    modifier->setValue("track", "7 of 9");
    modifier->setValue("disc", QVariant());
    const QByteArray before = TestEnvironment::fileDigest(path);
    EXPECT_TRUE(modifier->commit());
    EXPECT_EQ(TestEnvironment::fileDigest(path), before);
}

TEST(ModifierErrors, CafCannotBeWrittenAndStaysUntouched)
{
    const QString path = IOFixtures::copy("a.caf");
    const QByteArray before = TestEnvironment::fileDigest(path);
    VEKError error;
    auto modifier = VEKAudioFileModifier::open(path, &error);
    ASSERT_NE(modifier, nullptr);
    EXPECT_FALSE(modifier->supportsKey("title"));
    modifier->setValue("title", "New");
    EXPECT_FALSE(modifier->commit(&error));
    EXPECT_FALSE(error.isNull());
    EXPECT_FALSE(error.localizedDescription().isEmpty());
    EXPECT_EQ(TestEnvironment::fileDigest(path), before);
    EXPECT_EQ(metadataOf(path).value("title").toString(), "Überschrift – 日本");
}

// A tag write that was killed leaves its hidden copy beside the song; the next write in the
// folder removes it, but never one that a live writer holds, nor a file that is not ours.
TEST(ModifierErrors, HiddenCopiesOfKilledWritesGoAtTheNextWrite)
{
    const QString dir = TestEnvironment::makeTempDir("stale");
    const QString path = dir + "/a16.flac";
    ASSERT_TRUE(QFile::copy(QDir(IOFixtures::dir()).filePath("a16.flac"), path));
    for (const char *name : {".a16.flac.0123abcd.tmp", ".a16.flac.89abcdef.tmp", ".notes.tmp"})
        ASSERT_TRUE(TestEnvironment::writeFile(dir + "/" + name, QByteArray(5000, 'x')));
    const int held =
        ::open(QFile::encodeName(dir + "/.a16.flac.89abcdef.tmp").constData(), O_RDONLY | O_CLOEXEC);
    ASSERT_EQ(::flock(held, LOCK_EX), 0);

    ASSERT_TRUE(writeTags(path, {{"album", "X"}}));
    EXPECT_EQ(QDir(dir).entryList(QDir::Files | QDir::Hidden, QDir::Name),
              QStringList({".a16.flac.89abcdef.tmp", ".notes.tmp", "a16.flac"}));
    ::close(held);
}

TEST(ModifierErrors, MissingOrBrokenFileDoesNotOpen)
{
    VEKError error;
    EXPECT_EQ(VEKAudioFileModifier::open(TestEnvironment::makeTempDir("gone") + "/x.flac", &error), nullptr);
    EXPECT_FALSE(error.isNull());

    // FLAC's magic followed by rubbish: TagLib knows the kind but cannot parse it.
    const QString broken = TestEnvironment::makeTempDir("broken") + "/b.flac";
    ASSERT_TRUE(TestEnvironment::writeFile(broken, QByteArray("fLaC") + QByteArray(64, '\x7f')));
    error = VEKError();
    VEKAudioFileModifier modifier;
    EXPECT_FALSE(modifier.initWithURL(broken, &error));
    EXPECT_FALSE(error.isNull());
}

TEST(ModifierPicture, ReplacedAndRemovedInEachFormatAndTheSamplesStay)
{
    const QString jpeg = TestEnvironment::makeTempDir("jpeg") + "/front.jpg";
    QByteArray out;
    ASSERT_EQ(TestEnvironment::run("ffmpeg", {"-y", "-v", "error", "-f", "lavfi", "-i", "color=green:s=24x24",
                                              "-frames:v", "1", jpeg}, &out), 0) << out.constData();
    const QByteArray picture = TestEnvironment::readFile(jpeg);
    ASSERT_TRUE(picture.startsWith("\xff\xd8"));

    for (const char *name : kWritable) {
        SCOPED_TRACE(name);
        const QString path = IOFixtures::copy(name);
        const QByteArray audio = IOFixtures::decodedAudio(path);
        ASSERT_FALSE(audio.isEmpty());
        auto modifier = VEKAudioFileModifier::open(path);
        ASSERT_NE(modifier, nullptr);
        modifier->setImageData(picture);
        // With a long title as well the tag grows past any padding the file had: the samples stay.
        modifier->setValue("title", QString(3000, 'x'));
        ASSERT_TRUE(modifier->commit());
        EXPECT_EQ(IOFixtures::decodedAudio(path), audio);
        QVariantMap md = metadataOf(path);
        EXPECT_EQ(md.value("imageData").toByteArray(), picture);
        EXPECT_EQ(md.value("artist").toString(), "The Artist");
        // Other programs find it as the file's picture.
        QByteArray probe;
        ASSERT_EQ(TestEnvironment::run("ffprobe", {"-v", "error", "-show_entries", "stream=codec_name:stream_disposition=attached_pic",
                                                   "-of", "csv=p=0", path}, &probe), 0);
        EXPECT_TRUE(probe.contains("mjpeg,1")) << probe.constData();

        auto again = VEKAudioFileModifier::open(path);
        ASSERT_NE(again, nullptr);
        again->setImageData({});
        ASSERT_TRUE(again->commit());
        md = metadataOf(path);
        EXPECT_FALSE(md.contains("imageData"));
        EXPECT_EQ(md.value("album").toString(), "The Album");
    }
}
