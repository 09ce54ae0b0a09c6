// The song info sheet: what it shows of a song, which tags it lets edit, the walk with its
// question about unsaved edits, and a save that reaches the file and the library file.

#include "librarywindow/SongInfo.h"
#include "LibraryWindowTestSupport.h"
#include "audio/Stream.h"
#include "librarywindow/SongInfoCover.h"
#include "support/frontend/QuietLaunch.h"

#include <QLineEdit>
#include <QPushButton>
#include <QSignalSpy>
#include <QTest>
#include <gtest/gtest.h>

using namespace Qt::StringLiterals;

namespace {

class SongInfoTest : public QuietLaunchTest {
protected:
    void SetUp() override
    {
        launch();
        // Long enough to be still playing while a save is written.
        const QString music = TestEnvironment::makeTempDir(u"music"_s);
        TestEnvironment::ffmpeg(
            TestEnvironment::makeSine(music + u"/a.wav"_s, 20.0), music + u"/1.flac"_s,
            {u"-metadata"_s, u"title=First"_s, u"-metadata"_s, u"track=3/12"_s, u"-metadata"_s, u"disc=1"_s});
        TestEnvironment::ffmpeg(music + u"/1.flac"_s, music + u"/2.flac"_s,
                                {u"-metadata"_s, u"title=Second"_s});
        QFile::remove(music + u"/a.wav"_s);
        delegate->addFilesToLibrary({music});
        delegate->queue()->waitUntilAllOperationsAreFinished();
        delegate->setSortKey(u"name"_s);
        songs = delegate->songs();
        ASSERT_EQ(songs.size(), 2);
    }

    void open(qsizetype index)
    {
        sheet = std::make_unique<SongInfo>(delegate.get(), songs, index);
        QSignalSpy loaded(sheet.get(), &SongInfo::fileFactsLoaded);
        sheet->show();
        ASSERT_TRUE(loaded.wait(5000));
    }
    QString text(const char *key) const { return sheet->field(QLatin1String(key))->text(); }
    bool editable(const char *key) const { return !sheet->field(QLatin1String(key))->isReadOnly(); }
    void type(const char *key, const QString &text)
    {
        QLineEdit *edit = sheet->field(QLatin1String(key));
        edit->selectAll();
        QTest::keyClick(edit, Qt::Key_Backspace);
        QTest::keyClicks(edit, text);
    }
    QList<SongPtr> songs;
    std::unique_ptr<SongInfo> sheet;
};

} // namespace

TEST(SongInfoText, NumbersSplitAtOfAndBitRatesBelowAKbpsAreNotAvailable)
{
    EXPECT_EQ(SongInfo::splitNumber(u"3 of 12"_s), std::make_pair(u"3"_s, u"12"_s));
    EXPECT_EQ(SongInfo::splitNumber(u"3"_s), std::make_pair(u"3"_s, QString()));
    EXPECT_EQ(SongInfo::joinNumber(u"3"_s, u"12"_s), QVariant(u"3 of 12"_s));
    EXPECT_EQ(SongInfo::joinNumber(u"3"_s, QString()), QVariant(u"3"_s));
    // A total without a number is dropped with it: the tag goes.
    EXPECT_FALSE(SongInfo::joinNumber(QString(), u"12"_s).isValid());

    EXPECT_EQ(SongInfo::bitRateText(320000), u"320 kbps"_s);
    EXPECT_EQ(SongInfo::bitRateText(1000), u"1 kbps"_s);
    EXPECT_EQ(SongInfo::bitRateText(999), u"n/a"_s);
    EXPECT_EQ(SongInfo::bitRateText(0), u"n/a"_s);
    EXPECT_EQ(SongInfo::sampleRateText(44100), u"44.100 kHz"_s);

    // Covers fill the square across their long side, centred and framed on whole pixels.
    const QRectF square(0, 0, 100, 100);
    EXPECT_EQ(SongInfoCover::imageRect(square, QSizeF(500, 500)), QRectF(0.5, 0.5, 99, 99));
    EXPECT_EQ(SongInfoCover::imageRect(square, QSizeF(200, 100)), QRectF(0.5, 25.5, 99, 49));
    EXPECT_EQ(SongInfoCover::imageRect(square, QSizeF(100, 200)), QRectF(25.5, 0.5, 49, 99));
}

TEST_F(SongInfoTest, TheFieldsShowTheSongAndTheFileDecidesWhatCanBeEdited)
{
    open(0);
    EXPECT_EQ(text("title"), u"First"_s);
    EXPECT_EQ(text("trackNumber"), u"3"_s);
    EXPECT_EQ(text("trackTotal"), u"12"_s);
    EXPECT_EQ(text("discNumber"), u"1"_s);
    EXPECT_EQ(text("discTotal"), QString());
    EXPECT_EQ(sheet->factText(u"sampleRate"_s), u"44.100 kHz"_s);
    EXPECT_EQ(sheet->factText(u"kind"_s), songs.at(0)->kind());
    for (const char *key : {"title", "artist", "albumArtist", "genre", "trackTotal", "discNumber"})
        EXPECT_TRUE(editable(key)) << key;
    EXPECT_FALSE(sheet->findChild<QPushButton *>(u"saveChangesButton"_s)->isEnabled());

    // The same file as a song of the iTunes library: shown, never written.
    auto iTunes = std::make_shared<Song>(*songs.at(0));
    iTunes->setSongID(101);
    songs = {iTunes};
    open(0);
    EXPECT_EQ(text("title"), u"First"_s);
    for (const char *key : {"title", "artist", "album", "albumArtist", "composer", "genre", "trackNumber",
                            "trackTotal", "discNumber", "discTotal"})
        EXPECT_FALSE(editable(key)) << key;
    EXPECT_EQ(sheet->field(u"composer"_s)->placeholderText(), u"\u2014"_s) << "a tag the file cannot hold";
}

TEST_F(SongInfoTest, WalkingAwayFromEditsAsksAndCancelKeepsThem)
{
    open(0);
    auto *previous = sheet->findChild<QPushButton *>(u"previousButton"_s);
    auto *next = sheet->findChild<QPushButton *>(u"nextButton"_s);
    EXPECT_FALSE(previous->isEnabled());
    EXPECT_TRUE(next->isEnabled());

    type("artist", u"Someone"_s);
    EXPECT_TRUE(sheet->hasChanges());
    LibraryWindowTest::answerNextBox(u"Cancel"_s);
    next->click();
    EXPECT_EQ(sheet->index(), 0);
    EXPECT_EQ(text("artist"), u"Someone"_s);

    LibraryWindowTest::answerNextBox(u"Don\u2019t Save"_s);
    next->click();
    EXPECT_EQ(sheet->index(), 1);
    EXPECT_EQ(text("title"), u"Second"_s);
    EXPECT_FALSE(sheet->hasChanges());
    EXPECT_TRUE(previous->isEnabled());
    EXPECT_FALSE(next->isEnabled());
    EXPECT_TRUE(songs.at(0)->artist().isEmpty());
}

TEST_F(SongInfoTest, AnEditSavedJustBeforeTheQuitReachesTheFileAndTheLibraryFile)
{
    open(0);
    const qint64 id = songs.at(0)->songID();
    type("artist", u"Aurelia Strand"_s);
    type("trackTotal", u"14"_s);
    type("discNumber", QString()); // emptied: the tag goes
    sheet->saveChanges();
    sheet.reset();

    launch(); // after the shutdown of this one
    const SongPtr stored = delegate->library().value(id);
    ASSERT_TRUE(stored);
    EXPECT_EQ(stored->artist(), u"Aurelia Strand"_s);
    EXPECT_EQ(stored->track(), u"3 of 14"_s);
    const SongPtr file = Song::initWithURL(stored->URL());
    ASSERT_TRUE(file);
    EXPECT_EQ(file->track(), u"3 of 14"_s);
    EXPECT_TRUE(file->disc().isEmpty()) << file->disc().toStdString();
}

TEST_F(SongInfoTest, SavingThePlayingSongPausesItWhileTheFileIsWrittenAndPlaysOn)
{
    Stream *stream = delegate->stream();
    stream->setPlaylist(delegate->selectedPlaylist());
    stream->setCurrentSong(songs.at(0));
    stream->play();
    ASSERT_TRUE(stream->isPlaying());
    open(0);

    QSignalSpy playing(stream, &Stream::playingChanged);
    QSignalSpy saved(sheet.get(), &SongInfo::saved);
    sheet->field(u"album"_s)->setText(u"Live"_s);
    sheet->saveChanges();
    ASSERT_TRUE(saved.wait(10000));
    EXPECT_TRUE(saved.at(0).at(0).toBool());
    ASSERT_EQ(playing.size(), 2);
    EXPECT_FALSE(playing.at(0).at(0).toBool());
    EXPECT_TRUE(playing.at(1).at(0).toBool());
    EXPECT_EQ(stream->currentSong(), songs.at(0));
    EXPECT_EQ(songs.at(0)->album(), u"Live"_s);
}
