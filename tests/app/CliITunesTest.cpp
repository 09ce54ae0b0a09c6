// The iTunes library beside the own one, through the command line: what shows, what the file
// keeps of it, and a damaged iTunes file.

#include "library/iTunesFixture.h"
#include "support/CliHarness.h"

#include <QFile>
#include <algorithm>
#include <QJsonObject>
#include <gtest/gtest.h>

namespace {

QList<qint64> idsOf(const QJsonArray &array, const char *key)
{
    QList<qint64> ids;
    for (const auto &v : array)
        ids.append(v.toObject().value(QLatin1String(key)).toInteger());
    return ids;
}

class CliITunesTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        // The default location, "~/Music/iTunes/iTunes Music Library.xml", below the harness's home.
        xml = QFileInfo(cli.musicDir()).path() + "/Music/iTunes/iTunes Music Library.xml";
        iTunesFixture::write(xml, cli.musicDir());
    }
    QJsonArray iTunesPlaylists() const
    {
        QJsonArray out;
        for (const auto &v : cli.json({"playlists", "--json"}))
            if (v.toObject().value("kind").toString().startsWith(QLatin1String("iTunes")))
                out.append(v);
        return out;
    }
    QJsonArray songsOf(const char *playlistID) const
    {
        return cli.songs({"--playlist", QLatin1String(playlistID)});
    }
    void allowAccess(bool allow) const { cli.set("accessiTunesLibrary", allow ? "true" : "false"); }
    CliHarness cli;
    QString xml;
};

} // namespace

TEST_F(CliITunesTest, ShowsExactlyWhatTheFiltersAllowAndStoresOneRowPerPlaylist)
{
    // Not asked for: nothing is read.
    EXPECT_TRUE(songsOf("1").isEmpty());
    EXPECT_EQ(cli.sql("SELECT COUNT(*) FROM t_playlist WHERE iTunes = 1;"), "1");

    // A damaged file: an empty section and no alert, at most a log line (the read-in's rules:
    // LoadiTunesTest).
    allowAccess(true);
    QFile::resize(xml, QFileInfo(xml).size() / 2);
    const CliHarness::Result damaged = cli.run({"playlists", "--json"});
    EXPECT_EQ(damaged.status, 0) << damaged.err.constData();
    EXPECT_FALSE(damaged.err.contains("quivera-cli:")) << damaged.err.constData();
    EXPECT_EQ(iTunesPlaylists().size(), 1);
    EXPECT_TRUE(songsOf("1").isEmpty());

    iTunesFixture::write(xml, cli.musicDir());
    QList<qint64> shown = idsOf(songsOf("1"), "songID");
    std::sort(shown.begin(), shown.end());
    EXPECT_EQ(shown, iTunesFixture::keptTrackIDs);

    const QJsonArray playlists = iTunesPlaylists();
    EXPECT_EQ(idsOf(playlists, "playlistID"), (QList<qint64>{1, 2000, 2001, 2002, 2003}));
    EXPECT_EQ(idsOf(playlists, "count"), (QList<qint64>{8, 2, 3, 1, 0}));
    // Each song's facts and each playlist's order are the read-in's (LoadiTunesTest); here what
    // reaches the listing.
    for (const auto &v : songsOf("1")) {
        const QJsonObject s = v.toObject();
        const qint64 id = s.value("songID").toInteger();
        if (id == 101) {
            EXPECT_EQ(s.value("dateAdded").toString(), "2012-03-04T05:06:07Z");
        }
        if (id == 101 || id == 102) {
            EXPECT_EQ(s.value("isMissing").toBool(), id == 102);
        }
    }

    // The rows of the lists, once each whatever the launches (LoadiTunesTest); no song is copied.
    EXPECT_EQ(
        cli.sql("SELECT playlistID, sortAscending FROM t_playlist WHERE iTunes = 1 ORDER BY playlistID;"),
        "1|1\n2000|1\n2001|1\n2002|1\n2003|1");
    EXPECT_EQ(cli.sql("SELECT COUNT(*) FROM t_song;"), "0");
    EXPECT_TRUE(cli.songs().isEmpty()) << "the own library lists none of them";

    allowAccess(false);
    EXPECT_EQ(iTunesPlaylists().size(), 1);
    EXPECT_TRUE(songsOf("1").isEmpty());
}
