// The iTunes read-in: the streaming reader of the XML file, the track filter and conversion, the
// moved-volume rule, and the operation with its t_playlist rows.

#include "LibraryFile.h"
#include "iTunesFixture.h"
#include "library/LoadiTunesOperation.h"
#include "library/iTunesLibraryParser.h"
#include "library/iTunesPlaylist.h"
#include "library/iTunesSong.h"
#include "support/TestEnvironment.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <gtest/gtest.h>

namespace {

struct Parsed {
    QList<iTunesTrackEntry> tracks;
    QList<iTunesPlaylistEntry> playlists;
    bool ok = false;
};

Parsed parse(const QByteArray &xml)
{
    Parsed p;
    iTunesLibraryParser::Handler h;
    h.track = [&p](const iTunesTrackEntry &e) { p.tracks.append(e); };
    h.playlist = [&p](iTunesPlaylistEntry &&e) { p.playlists.append(std::move(e)); };
    p.ok = iTunesLibraryParser::parseData(xml.constData(), xml.size(), h);
    return p;
}

QByteArray document(const QByteArray &rootBody)
{
    return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<!DOCTYPE plist PUBLIC \"-//Apple//DTD PLIST "
           "1.0//EN\" \"http://www.apple.com/DTDs/PropertyList-1.0.dtd\">\n<plist version=\"1.0\">\n<dict>"
           + rootBody + "</dict>\n</plist>\n";
}

const QByteArray kTrack = document(
    "<key>Tracks</key><dict><key>7</key><dict>"
    "<key>Track ID</key><integer>7</integer>"
    "<key>Name</key><string>A &amp; B &lt;&#233;&#x1F3B5;&gt;<![CDATA[ <raw> & ]]><!-- note -->\r\nend</string>"
    "<key>Artist</key><string/>"
    "<key>Total Time</key><real>1500.5</real>"
    "<key>Has Video</key><false/>"
    "<key>Date Added</key><date>2012-03-04T05:06:07Z</date>"
    "<key>Unknown</key><array><dict><key>x</key><data>AAEC</data></dict><true/></array>"
    "</dict></dict>"
    "<key>Playlists</key><array><dict><key>Playlist ID</key><integer>9</integer>"
    "<key>Playlist Items</key><array><dict><key>Track ID</key><integer>7</integer></dict></array>"
    "</dict></array>");

} // namespace

TEST(iTunesLibraryParser, ReadsTextAsXmlDefinesIt)
{
    const Parsed p = parse(kTrack);
    ASSERT_TRUE(p.ok);
    ASSERT_EQ(p.tracks.size(), 1);
    const iTunesTrackEntry &t = p.tracks.first();
    EXPECT_EQ(t.trackID, 7);
    EXPECT_EQ(t.name, "A & B <\u00e9\U0001F3B5> <raw> & \nend");
    EXPECT_TRUE(t.artist.isEmpty());
    EXPECT_FALSE(t.artist.isNull()); // an empty string is there, not absent
    EXPECT_DOUBLE_EQ(t.totalTime, 1500.5);
    EXPECT_FALSE(t.hasVideo);
    EXPECT_EQ(t.dateAdded, QDateTime(QDate(2012, 3, 4), QTime(5, 6, 7), Qt::UTC));
    ASSERT_EQ(p.playlists.size(), 1);
    EXPECT_EQ(p.playlists.first().trackIDs, QList<qint64>{7});
}

TEST(iTunesLibraryParser, DamagedInputFailsAndNeverCrashes)
{
    // Every cut of a good file is refused, whatever it cuts through.
    for (qsizetype n = 0; n < kTrack.size() - 1; n += 3)
        EXPECT_FALSE(parse(kTrack.left(n)).ok) << "accepted a file cut at byte " << n;
    const QList<QByteArray> bad = {
        document("<key>Tracks</key><dict><key>1</key><dict></array></dict>"), // mismatched
        document("<key>Name</key><string>&nbsp;</string>"),                 // unknown entity
        document("<key>Date</key><date>yesterday</date>"),
        document("<key>N</key><integer>12abc</integer>"),
        document("<key>N</key><bogus>1</bogus>"),
        document("<string>no key</string>"),
        document("") + "trailing",
        "<plist><array></array></plist>", // the root must be a dictionary
        "",
        document("<key>Deep</key>" + QByteArray(100000, '[').replace('[', "<array>")),
    };
    for (const QByteArray &xml : bad)
        EXPECT_FALSE(parse(xml).ok) << xml.left(120).constData();

    bool missing = false;
    VEKError error;
    EXPECT_FALSE(iTunesLibraryParser::parseFile(TestEnvironment::root() + "/none.xml", {}, &error, &missing));
    EXPECT_TRUE(missing);
    EXPECT_FALSE(error.isNull());
    EXPECT_FALSE(iTunesLibraryParser::parseFile(TestEnvironment::root(), {}, nullptr, &missing));
    EXPECT_FALSE(missing); // a folder is there, just not readable as a list
}

TEST(iTunesLibraryParser, AgreesWithPlistlibOnAwkwardText)
{
    // Python writes names with every character XML must escape, non-ASCII text and big numbers;
    // ours must read back exactly what it wrote.
    const QString dir = TestEnvironment::makeTempDir();
    const QString xml = dir + "/lib.xml";
    const QString script = QStringLiteral(R"(
import plistlib, sys, json, random
random.seed(3)
alphabet = 'aZ09 &<>"\'\u00e9\u00df\u4e2d\U0001F600\t'
tracks = {}
for i in range(1, 300):
    name = ''.join(random.choice(alphabet) for _ in range(random.randint(0, 24)))
    tracks[str(i)] = {'Track ID': i, 'Name': name, 'Size': random.randint(0, 2**40), 'Total Time': random.random() * 1e6}
with open(sys.argv[1], 'wb') as f: plistlib.dump({'Tracks': tracks}, f)
json.dump({k: [v['Name'], v['Size'], v['Total Time']] for k, v in tracks.items()}, sys.stdout)
)");
    QByteArray expected;
    ASSERT_EQ(TestEnvironment::run("python3", {"-c", script, xml}, &expected), 0) << expected.constData();
    const QJsonObject want = QJsonDocument::fromJson(expected).object();
    QList<iTunesTrackEntry> got;
    iTunesLibraryParser::Handler h;
    h.track = [&got](const iTunesTrackEntry &e) { got.append(e); };
    ASSERT_TRUE(iTunesLibraryParser::parseFile(xml, h));
    ASSERT_EQ(got.size(), want.size());
    for (const iTunesTrackEntry &e : got) {
        const QJsonArray w = want.value(QString::number(e.trackID)).toArray();
        EXPECT_EQ(e.name, w.at(0).toString());
        EXPECT_EQ(e.size, quint64(w.at(1).toInteger()));
        EXPECT_DOUBLE_EQ(e.totalTime, w.at(2).toDouble());
    }
}

TEST(iTunesSong, FilterAndKindsFollowTheTable)
{
    iTunesTrackEntry e;
    e.hasLocation = true;
    e.location = "file://localhost/Users/a/Music/iTunes/x%20y.mp3";
    e.hasTrackID = true;
    e.trackID = 5;
    const auto kindOf = [&e](const char *kind) {
        iTunesTrackEntry copy = e;
        copy.hasKind = kind != nullptr;
        copy.kind = QString::fromUtf8(kind);
        const SongPtr s = iTunesSong::initWithLibraryEntry(copy, "~/x.xml");
        return s ? s->kind() : "refused";
    };
    EXPECT_EQ(kindOf("AIFF audio file"), "AIFF File");
    EXPECT_EQ(kindOf("WAV audio file"), "WAVE File");
    EXPECT_EQ(kindOf("MPEG audio file"), "MP3 Audio File");
    EXPECT_EQ(kindOf("MPEG-4 AAC audio file"), "MP3 Audio File"); // MPEG first
    EXPECT_EQ(kindOf("Purchased AAC audio file"), "AAC Audio File");
    EXPECT_EQ(kindOf("Apple Lossless audio file"), "Apple Lossless File");
    EXPECT_EQ(kindOf("Protected AAC audio file"), "refused");
    EXPECT_EQ(kindOf("Fichier audio AAC protégé"), "AAC Audio File"); // only the English word counts
    EXPECT_EQ(kindOf("FLAC audio file"), "refused");
    EXPECT_EQ(kindOf(nullptr), "refused");

    e.hasKind = true;
    e.kind = "AAC audio file";
    const SongPtr song = iTunesSong::initWithLibraryEntry(e, QString());
    ASSERT_TRUE(song);
    EXPECT_EQ(song->URL(), "/Users/a/Music/iTunes/x y.mp3");
    EXPECT_TRUE(song->isMissing());
    e.movie = true;
    EXPECT_FALSE(iTunesSong::initWithLibraryEntry(e, QString()));
    e.movie = false;
    e.location = "http://example.com/x.mp3";
    EXPECT_FALSE(iTunesSong::initWithLibraryEntry(e, QString()));
    e.location = "file:///broken%zzescape.mp3";
    EXPECT_FALSE(iTunesSong::initWithLibraryEntry(e, QString()));
}

TEST(iTunesSong, AMovedLibraryCarriesItsPathsOver)
{
    const QString location = "/Volumes/Disk/Music/iTunes/iTunes Music Library.xml";
    EXPECT_EQ(iTunesSong::movedPath("/Users/a/Music/iTunes/Media/x.mp3", location),
              "/Volumes/Disk/Music/iTunes/Media/x.mp3");
    // No "iTunes" in the path: only the location's prefix and the file's name are left.
    EXPECT_EQ(iTunesSong::movedPath("/a/b/x.mp3", location), "/Volumes/Disk/x.mp3");

    iTunesTrackEntry e;
    e.hasLocation = e.hasKind = e.hasTrackID = true;
    e.trackID = 1;
    e.kind = "MPEG audio file";
    e.location = "file://localhost/Users/a/Music/iTunes/Media/x.mp3";
    SongPtr song = iTunesSong::initWithLibraryEntry(e, location);
    ASSERT_TRUE(song);
    EXPECT_EQ(song->URL(), "/Volumes/Disk/Music/iTunes/Media/x.mp3");
    EXPECT_TRUE(song->isMissing());
    // A library that is not on a volume keeps the path as written.
    song = iTunesSong::initWithLibraryEntry(e, "/home/a/Music/iTunes/iTunes Music Library.xml");
    EXPECT_EQ(song->URL(), "/Users/a/Music/iTunes/Media/x.mp3");
    // A file that is where the entry says is not moved.
    const QString here = TestEnvironment::makeTempDir() + "/here.mp3";
    QFile(here).open(QIODevice::WriteOnly);
    e.location = QString("file://") + here;
    song = iTunesSong::initWithLibraryEntry(e, location);
    EXPECT_EQ(song->URL(), here);
    EXPECT_FALSE(song->isMissing());
}

namespace {
class LoadiTunesTest : public ::testing::Test {
protected:
    qint64 iTunesRows() const { return file.number("SELECT COUNT() FROM t_playlist WHERE iTunes = 1"); }
    LibraryFile file{"itunes"};
    const QString dir = file.dir, library = file.path;
};
} // namespace

TEST_F(LoadiTunesTest, KeepsWhatTheFiltersAllowAndAddsEachPlaylistRowOnce)
{
    const QString xml = dir + "/iTunes Music Library.xml";
    iTunesFixture::write(xml, dir + "/music");
    std::unique_ptr<LoadiTunesOperation> op;
    for (int launch = 0; launch < 2; ++launch) {
        op = std::make_unique<LoadiTunesOperation>(xml, library);
        op->start();
        EXPECT_EQ(iTunesRows(), 1 + iTunesFixture::playlistIDs.size()); // the library's row and one each
    }
    QList<qint64> ids;
    for (const SongPtr &s : op->songsInFileOrder())
        ids.append(s->songID());
    EXPECT_EQ(ids, iTunesFixture::keptTrackIDs);
    QList<qint64> playlists;
    for (const auto &p : op->playlists())
        playlists.append(p.playlistID);
    EXPECT_EQ(playlists, iTunesFixture::playlistIDs);

    const SongPtr first = op->songs().value(101);
    ASSERT_TRUE(first);
    EXPECT_EQ(first->name(), "Caf\u00e9 & <Friends>");
    EXPECT_EQ(first->track(), "3 of 12");
    EXPECT_EQ(first->disc(), "1 of 2");
    EXPECT_EQ(first->track_sortable(), 3u);
    EXPECT_DOUBLE_EQ(first->length(), 215.0);
    EXPECT_EQ(first->bitrate(), 320000u);
    EXPECT_EQ(first->size(), 1234567u);
    EXPECT_FALSE(first->isMissing());
    EXPECT_EQ(op->songs().value(102)->track(), "3");
    EXPECT_TRUE(op->songs().value(102)->isMissing());
    EXPECT_TRUE(op->songs().value(103)->track().isNull()); // a count without a number
    EXPECT_EQ(op->songs().value(103)->track_sortable(), 0u);

    // The playlists take the songs the filter kept, in the file's order.
    const auto mix = iTunesPlaylist::initWithITunesLibraryEntry(op->playlists().at(1), op->songs());
    QList<qint64> order;
    for (const SongPtr &s : mix->songs())
        order.append(s->songID());
    EXPECT_EQ(order, (QList<qint64>{104, 101, 103}));
    EXPECT_TRUE(mix->locked());
    EXPECT_EQ(mix->name(), "Mix");
}

TEST_F(LoadiTunesTest, DamagedOrMissingFilesGiveNothing)
{
    const QString xml = dir + "/lib.xml";
    iTunesFixture::write(xml, dir + "/music");
    QFile file(xml);
    ASSERT_TRUE(file.open(QIODevice::ReadWrite));
    file.resize(file.size() * 2 / 3);
    file.close();
    for (const QString &path : {xml, dir + "/none.xml"}) {
        LoadiTunesOperation op(path, library);
        op.start();
        EXPECT_TRUE(op.songs().isEmpty());
        EXPECT_TRUE(op.playlists().isEmpty());
        EXPECT_EQ(op.error().isNull(), path != xml); // a missing file is no error
    }
    EXPECT_EQ(iTunesRows(), 1);
}
