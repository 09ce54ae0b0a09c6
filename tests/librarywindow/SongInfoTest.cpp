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

namespace {

class SongInfoTest : public QuietLaunchTest {
protected:
    void SetUp() override
    {
        launch();
        // Long enough to be still playing while a save is written.
        const QString music = TestEnvironment::makeTempDir(QStringLiteral("music"));
        TestEnvironment::ffmpeg(TestEnvironment::makeSine(music + QStringLiteral("/a.wav"), 20.0),
                                music + QStringLiteral("/1.flac"),
                                {QStringLiteral("-metadata"), QStringLiteral("title=First"),
                                 QStringLiteral("-metadata"), QStringLiteral("track=3/12"),
                                 QStringLiteral("-metadata"), QStringLiteral("disc=1")});
        TestEnvironment::ffmpeg(music + QStringLiteral("/1.flac"), music + QStringLiteral("/2.flac"),
                                {QStringLiteral("-metadata"), QStringLiteral("title=Second")});
        QFile::remove(music + QStringLiteral("/a.wav"));
        delegate->addFilesToLibrary({music});
        delegate->queue()->waitUntilAllOperationsAreFinished();
        delegate->setSortKey(QStringLiteral("name"));
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
    EXPECT_EQ(SongInfo::splitNumber(QStringLiteral("3 of 12")),
              std::make_pair(QStringLiteral("3"), QStringLiteral("12")));
    EXPECT_EQ(SongInfo::splitNumber(QStringLiteral("3")), std::make_pair(QStringLiteral("3"), QString()));
    EXPECT_EQ(SongInfo::joinNumber(QStringLiteral("3"), QStringLiteral("12")),
              QVariant(QStringLiteral("3 of 12")));
    EXPECT_EQ(SongInfo::joinNumber(QStringLiteral("3"), QString()), QVariant(QStringLiteral("3")));
    // A total without a number is dropped with it: the tag goes.
    EXPECT_FALSE(SongInfo::joinNumber(QString(), QStringLiteral("12")).isValid());

    EXPECT_EQ(SongInfo::bitRateText(320000), QStringLiteral("320 kbps"));
    EXPECT_EQ(SongInfo::bitRateText(1000), QStringLiteral("1 kbps"));
    EXPECT_EQ(SongInfo::bitRateText(999), QStringLiteral("n/a"));
    EXPECT_EQ(SongInfo::bitRateText(0), QStringLiteral("n/a"));
    EXPECT_EQ(SongInfo::sampleRateText(44100), QStringLiteral("44.100 kHz"));

    // Covers fill the square across their long side, centred and framed on whole pixels.
    const QRectF square(0, 0, 100, 100);
    EXPECT_EQ(SongInfoCover::imageRect(square, QSizeF(500, 500)), QRectF(0.5, 0.5, 99, 99));
    EXPECT_EQ(SongInfoCover::imageRect(square, QSizeF(200, 100)), QRectF(0.5, 25.5, 99, 49));
    EXPECT_EQ(SongInfoCover::imageRect(square, QSizeF(100, 200)), QRectF(25.5, 0.5, 49, 99));
}

TEST_F(SongInfoTest, TheFieldsShowTheSongAndTheFileDecidesWhatCanBeEdited)
{
    open(0);
    EXPECT_EQ(text("title"), QStringLiteral("First"));
    EXPECT_EQ(text("trackNumber"), QStringLiteral("3"));
    EXPECT_EQ(text("trackTotal"), QStringLiteral("12"));
    EXPECT_EQ(text("discNumber"), QStringLiteral("1"));
    EXPECT_EQ(text("discTotal"), QString());
    EXPECT_EQ(sheet->factText(QStringLiteral("sampleRate")), QStringLiteral("44.100 kHz"));
    EXPECT_EQ(sheet->factText(QStringLiteral("kind")), songs.at(0)->kind());
    for (const char *key : {"title", "artist", "albumArtist", "genre", "trackTotal", "discNumber"})
        EXPECT_TRUE(editable(key)) << key;
    EXPECT_FALSE(sheet->findChild<QPushButton *>(QStringLiteral("saveChangesButton"))->isEnabled());

    // The same file as a song of the iTunes library: shown, never written.
    auto iTunes = std::make_shared<Song>(*songs.at(0));
    iTunes->setSongID(101);
    songs = {iTunes};
    open(0);
    EXPECT_EQ(text("title"), QStringLiteral("First"));
    for (const char *key : {"title", "artist", "album", "albumArtist", "composer", "genre", "trackNumber",
                            "trackTotal", "discNumber", "discTotal"})
        EXPECT_FALSE(editable(key)) << key;
}

TEST_F(SongInfoTest, WalkingAwayFromEditsAsksAndCancelKeepsThem)
{
    open(0);
    auto *previous = sheet->findChild<QPushButton *>(QStringLiteral("previousButton"));
    auto *next = sheet->findChild<QPushButton *>(QStringLiteral("nextButton"));
    EXPECT_FALSE(previous->isEnabled());
    EXPECT_TRUE(next->isEnabled());

    type("artist", QStringLiteral("Someone"));
    EXPECT_TRUE(sheet->hasChanges());
    LibraryWindowTest::answerNextBox(QStringLiteral("Cancel"));
    next->click();
    EXPECT_EQ(sheet->index(), 0);
    EXPECT_EQ(text("artist"), QStringLiteral("Someone"));

    LibraryWindowTest::answerNextBox(QStringLiteral("Don\u2019t Save"));
    next->click();
    EXPECT_EQ(sheet->index(), 1);
    EXPECT_EQ(text("title"), QStringLiteral("Second"));
    EXPECT_FALSE(sheet->hasChanges());
    EXPECT_TRUE(previous->isEnabled());
    EXPECT_FALSE(next->isEnabled());
    EXPECT_TRUE(songs.at(0)->artist().isEmpty());
}

TEST_F(SongInfoTest, AnEditSavedJustBeforeTheQuitReachesTheFileAndTheLibraryFile)
{
    open(0);
    const qint64 id = songs.at(0)->songID();
    type("artist", QStringLiteral("Aurelia Strand"));
    type("trackTotal", QStringLiteral("14"));
    type("discNumber", QString()); // emptied: the tag goes
    sheet->saveChanges();
    sheet.reset();

    launch(); // after the shutdown of this one
    const SongPtr stored = delegate->library().value(id);
    ASSERT_TRUE(stored);
    EXPECT_EQ(stored->artist(), QStringLiteral("Aurelia Strand"));
    EXPECT_EQ(stored->track(), QStringLiteral("3 of 14"));
    const SongPtr file = Song::initWithURL(stored->URL());
    ASSERT_TRUE(file);
    EXPECT_EQ(file->artist(), QStringLiteral("Aurelia Strand"));
    EXPECT_EQ(file->track(), QStringLiteral("3 of 14"));
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
    sheet->field(QStringLiteral("album"))->setText(QStringLiteral("Live"));
    sheet->saveChanges();
    ASSERT_TRUE(saved.wait(10000));
    EXPECT_TRUE(saved.at(0).at(0).toBool());
    ASSERT_EQ(playing.size(), 2);
    EXPECT_FALSE(playing.at(0).at(0).toBool());
    EXPECT_TRUE(playing.at(1).at(0).toBool());
    EXPECT_EQ(stream->currentSong(), songs.at(0));
    EXPECT_EQ(songs.at(0)->album(), QStringLiteral("Live"));
}
