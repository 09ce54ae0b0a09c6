// The import worker on its own: the walk, the duplicate rule, failures, batches of rows,
// cancellation, the preferred-format hook and audio CD mounts.

#include "library/ImportOperation.h"
#include "LibraryFile.h"
#include "core/VEKLog.h"
#include "library/Database.h"
#include "settings/UserDefaults.h"
#include "support/TestEnvironment.h"

#include <QDir>
#include <QFile>
#include <atomic>
#include <gtest/gtest.h>

namespace {

// Every format ffmpeg writes here: the file's name, then the encoder it needs; tagged alike.
const char *kFormats[] = {
    "a.wav",          "b.aiff -write_id3v2 1", "c.caf",  "d.mp3 -c:a libmp3lame", "e.m4a -c:a alac",
    "f.m4a -c:a aac", "g.ogg -c:a libvorbis",  "h.flac", "i.oga -c:a flac",       "j.wv",
    "k.tta",          "l.opus -c:a libopus"};
const char *kTags =
    "-metadata title=Song -metadata artist=Artist -metadata album=Album -metadata album_artist=Band "
    "-metadata composer=Writer -metadata genre=Jazz -metadata track=3/12 -metadata disc=1/2";

class ImportTest : public ::testing::Test {
protected:
    std::shared_ptr<ImportOperation> import(const QStringList &files, ImportOperation::Snapshot known = {})
    {
        auto op = make(files, std::move(known));
        op->start();
        return op;
    }
    // `onEachSong` runs on the worker as each new song is given its ID.
    std::shared_ptr<ImportOperation> make(const QStringList &files, ImportOperation::Snapshot known = {},
                                          std::function<void()> onEachSong = {})
    {
        return std::make_shared<ImportOperation>(
            files, nullptr, library, std::move(known),
            [this, onEachSong](const std::function<bool(qint64)> &isTaken) {
                if (onEachSong)
                    onEachSong();
                qint64 id = --nextID;
                while (isTaken(id))
                    id = --nextID;
                return id;
            });
    }

    qint64 rows() const { return file.number("SELECT COUNT() FROM t_song"); }

    LibraryFile file{"import"};
    const QString dir = file.dir, library = file.path;
    qint64 nextID = 0;
};

} // namespace

TEST_F(ImportTest, ATreeOfEveryFormatBecomesSongsWithTheirTags)
{
    const QString music = dir + "/music";
    const QString sine = TestEnvironment::makeSine(dir + "/src.wav", 0.3);
    QDir().mkpath(music + "/sub/.hidden");
    for (const char *format : kFormats) {
        const QStringList args = (QString(format) + ' ' + kTags).split(u' ');
        TestEnvironment::ffmpeg(sine, music + "/sub/" + args.first(), args.mid(1));
    }
    QFile::copy(music + "/sub/h.flac", music + "/.hidden.flac");
    QFile::copy(music + "/sub/h.flac", music + "/sub/.hidden/x.flac");
    QFile notes(music + "/notes.txt");
    ASSERT_TRUE(notes.open(QIODevice::WriteOnly));
    notes.write("not audio\n");
    notes.close();
    QFile flac(music + "/sub/h.flac");
    ASSERT_TRUE(flac.open(QIODevice::ReadOnly));
    QFile cut(music + "/cut.flac");
    ASSERT_TRUE(cut.open(QIODevice::WriteOnly));
    cut.write(flac.readAll().left(int(flac.size() / 2)));
    cut.close();
    ASSERT_TRUE(QFile::link(music + "/sub/d.mp3", music + "/z-link.mp3"));
    ASSERT_TRUE(QFile::link(music, music + "/sub/loop")); // back up the tree

    const auto op = import({music, music + "/sub/a.wav", music + "/.hidden.flac"});
    // Twelve files, plus the hidden one named directly; the link and the repeat are the same files.
    EXPECT_EQ(op->songs().size(), 13);
    EXPECT_EQ(op->duplicates().size(), 2);
    ASSERT_EQ(op->failures().size(), 1);
    EXPECT_TRUE(op->failures().at(0).path.endsWith(QLatin1String("cut.flac")));
    EXPECT_FALSE(op->failures().at(0).error.isNull());
    // A text beside the songs is no failure, only not audio.
    ASSERT_EQ(op->notAudio().size(), 1);
    EXPECT_TRUE(op->notAudio().at(0).endsWith(QLatin1String("notes.txt")));
    EXPECT_EQ(op->errors().size(), 1);
    EXPECT_EQ(rows(), 13);
    EXPECT_NEAR(op->progress(), 1.0, 1e-5);
    for (const QString &url : op->URLs())
        EXPECT_FALSE(url.contains(QLatin1String("/sub/.hidden/"))) << url.toStdString();

    for (const SongPtr &s : op->songsInImportOrder()) {
        SCOPED_TRACE(s->URL().toStdString());
        EXPECT_LT(s->songID(), 0);
        EXPECT_TRUE(s->dateAdded().isValid());
        EXPECT_EQ(s->name(), "Song");
        EXPECT_EQ(s->artist(), "Artist");
        EXPECT_EQ(s->album(), "Album");
        EXPECT_EQ(s->genre(), "Jazz");
        EXPECT_EQ(s->track(), "3 of 12");
        EXPECT_EQ(s->track_sortable(), 3u);
        if (s->kind() != QLatin1String("WAVE File")) { // RIFF INFO has no such fields
            EXPECT_EQ(s->albumArtist(), "Band");
            EXPECT_EQ(s->composer(), "Writer");
            EXPECT_EQ(s->disc(), "1 of 2");
        }
    }

    // The rows read back as the songs in memory.
    Database db;
    ASSERT_TRUE(db.initWithURL(library));
    auto select = db.queryWithStatement(Database::selectSongsStatement);
    while (select->evaluateNextRow()) {
        const SongPtr row = Database::songFromRow(*select);
        const SongPtr mine = op->songs().value(row->songID());
        ASSERT_TRUE(mine);
        EXPECT_EQ(row->URL(), mine->URL());
        EXPECT_EQ(row->kind(), mine->kind());
        EXPECT_EQ(row->dateAdded(), mine->dateAdded());
        EXPECT_EQ(row->disc_sortable(), mine->disc_sortable());
    }

    // A second import adds nothing, even with a snapshot from before the first merge: the file holds
    // them (with the library's snapshot: CliImportTest's second import).
    const auto queuedBehind = import({music});
    EXPECT_TRUE(queuedBehind->songs().isEmpty());
    EXPECT_EQ(queuedBehind->duplicates().size(), 13); // the link, too: it is a known file
    EXPECT_EQ(rows(), 13);
}

TEST_F(ImportTest, CancellingKeepsWhatWasWrittenAndStopsThere)
{
    const QString music = dir + "/music";
    QDir().mkpath(music);
    const QString one = TestEnvironment::makeSine(music + "/00.flac", 0.1);
    for (int i = 1; i < 10; ++i)
        QFile::copy(one, music + QString("/%1.flac").arg(i, 2, 10, QLatin1Char('0')));
    std::shared_ptr<ImportOperation> op;
    int drawn = 0;
    op = make({music}, {}, [&] {
        if (++drawn == 3)
            op->cancel();
    });
    op->start();
    // The hook runs while the third song is made: it is still imported, nothing after it.
    EXPECT_EQ(op->songs().size(), 3);
    EXPECT_EQ(rows(), 3);
    EXPECT_NEAR(op->progress(), 0.3, 1e-6);

    // Cancelled before it ran: not even the library file is opened.
    auto never = std::make_shared<ImportOperation>(QStringList{music}, nullptr, dir + "/untouched",
                                                   ImportOperation::Snapshot{}, nullptr);
    never->cancel();
    never->start();
    EXPECT_TRUE(never->isFinished());
    EXPECT_FALSE(QFile::exists(dir + "/untouched"));
}

TEST_F(ImportTest, FilesNotInThePreferredFormatWaitForConversion)
{
    UserDefaults &defaults = UserDefaults::standard();
    defaults.setValue("createPreferredOnAdd", true);
    defaults.setValue("preferredFormat", QVariantMap{{"format", 6}, {"sampleRate", 44100}});
    const QString flac = TestEnvironment::makeSine(dir + "/keep.flac", 0.1);
    const QString wav = TestEnvironment::makeSine(dir + "/convert.wav", 0.1);
    const auto op = import({flac, wav});
    defaults.removeValue("createPreferredOnAdd");
    defaults.removeValue("preferredFormat");
    ASSERT_EQ(op->songs().size(), 1);
    EXPECT_EQ(op->songsInImportOrder().first()->URL(), flac);
    ASSERT_EQ(op->songsToConvert().size(), 1);
    EXPECT_EQ(op->songsToConvert().first()->URL(), wav);
    EXPECT_EQ(op->songsToConvert().first()->songID(), 0);
    EXPECT_EQ(rows(), 1);
}

TEST(AudioCDMounts, RecognisesAudioCDsFromTheMountTable)
{
    const QByteArray table =
        "/dev/vda / ext4 rw 0 0\n"
        "cddafs /media/Audio\\040CD cddafs ro 0 0\n"
        "gvfsd-fuse /run/user/1000/gvfs fuse.gvfsd-fuse rw 0 0\n"
        "/dev/sr0 /media/mixed iso9660 ro 0 0\n"
        "/dev/sr1 /media/data iso9660 ro 0 0\n"
        "/dev/loop0 /mnt/image iso9660 ro 0 0\n";
    QStringList asked;
    const AudioCDMounts mounts = AudioCDMounts::fromMountTable(table, [&asked](const QString &device) {
        asked.append(device);
        return device == QLatin1String("/dev/sr0");
    });
    EXPECT_TRUE(mounts.contains("/media/Audio CD/Track 1.aiff"));
    EXPECT_TRUE(mounts.contains("/run/user/1000/gvfs/cdda:host=sr0/Track 1.wav"));
    EXPECT_FALSE(mounts.contains("/run/user/1000/gvfs/sftp:host=x/a.flac"));
    EXPECT_TRUE(mounts.contains("/media/mixed/a.mp3"));
    EXPECT_FALSE(mounts.contains("/media/data/a.mp3"));
    EXPECT_FALSE(mounts.contains("/media/Audio CDs/a.mp3"));
    EXPECT_EQ(asked, (QStringList{"/dev/sr0", "/dev/sr1"})); // never the loop image
}

TEST_F(ImportTest, FilesOnAnAudioCDAreSkippedWithoutAWord)
{
    const QString cd = dir + "/cd";
    QDir().mkpath(cd);
    TestEnvironment::makeSine(cd + "/Track 1.wav", 0.1);
    std::atomic<int> logged{0};
    VEKSetLogSink([&logged](const QString &) { ++logged; });
    auto op = std::make_shared<ImportOperation>(
        QStringList{cd}, nullptr, library, ImportOperation::Snapshot{},
        [](const std::function<bool(qint64)> &) { return qint64(-1); });
    op->setAudioCDMounts(AudioCDMounts::fromMountTable(
        "cdda " + QFile::encodeName(cd) + " cddafs ro 0 0\n", {}));
    op->start();
    VEKSetLogSink({});
    EXPECT_TRUE(op->songs().isEmpty());
    EXPECT_TRUE(op->failures().isEmpty());
    EXPECT_TRUE(op->duplicates().isEmpty());
    EXPECT_EQ(logged.load(), 0);
}
