// `quivera-cli convert` end to end: the tags and cover carried over, the result beside the source
// under a new name, the source untouched, the new song in the library, skips, and failures. Each
// format's mapping to the writer is checked on the conversion worker itself.

#include "support/CliHarness.h"
#include "support/Processes.h"
#include "support/TestEnvironment.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <gtest/gtest.h>

namespace {

// What ffprobe reads of a file: its audio stream, and the tags of container and stream with
// lower-case keys.
struct Probe {
    QJsonObject audio;
    QVariantMap tags;
    bool hasPicture = false;
};

Probe probe(const QString &path)
{
    QByteArray output;
    TestEnvironment::run("ffprobe", {"-v", "error", "-show_streams", "-show_format", "-of", "json", path},
                         &output);
    const QJsonObject root = QJsonDocument::fromJson(output).object();
    Probe p;
    auto addTags = [&p](const QJsonObject &tags) {
        for (auto it = tags.begin(); it != tags.end(); ++it)
            p.tags.insert(it.key().toLower(), it.value().toString());
    };
    addTags(root.value("format").toObject().value("tags").toObject());
    for (const QJsonValue &s : root.value("streams").toArray()) {
        const QJsonObject stream = s.toObject();
        if (stream.value("codec_type") == "audio") {
            p.audio = stream;
            addTags(stream.value("tags").toObject());
        } else if (stream.value("codec_type") == "video") {
            p.hasPicture = true;
        }
    }
    return p;
}

class CliConvertTest : public ::testing::Test {
protected:
    // A tagged 44.1 kHz 16-bit FLAC with a cover, imported into a new library.
    void SetUp() override
    {
        const QString m = cli.musicDir();
        const QString sine = TestEnvironment::makeSine(m + "/../src.wav", 0.5);
        const QString cover = m + "/../cover.png";
        TestEnvironment::run("ffmpeg", {"-v", "error", "-y", "-f", "lavfi", "-i", "color=red:s=16x16",
                                        "-frames:v", "1", cover});
        source = m + "/song.flac";
        TestEnvironment::ffmpeg(
            sine, source,
            QStringList{"-i", cover}
                + QString("-map 0:a -map 1:v -c:a flac -sample_fmt s16 -c:v png -disposition:v "
                          "attached_pic -metadata title=Morning -metadata artist=Someone "
                          "-metadata album=Records")
                      .split(u' '));
        ASSERT_TRUE(QFile::exists(source));
        ASSERT_EQ(cli.run({"import", source}).status, 0);
        const QJsonArray songs = cli.songs();
        ASSERT_EQ(songs.size(), 1);
        songID = QString::number(songs.first().toObject().value("songID").toInteger());
        sourceHash = TestEnvironment::fileDigest(source);
    }

    // Converts the song with `preferred` (JSON) as the preferred format; the result's path.
    QString convert(const QString &preferred, const QStringList &options = {})
    {
        cli.set("preferredFormat", preferred);
        const CliHarness::Result r = cli.run(QStringList{"convert"} + options + QStringList{songID});
        EXPECT_EQ(r.status, 0) << r.out.constData() << r.err.constData();
        const auto match = QRegularExpression("converted: song -?\\d+ -> song (-?\\d+): (.*)\n")
                               .match(QString::fromUtf8(r.out));
        EXPECT_TRUE(match.hasMatch()) << r.out.constData();
        return match.captured(2);
    }

    CliHarness cli;
    QString source;
    QString songID;
    QByteArray sourceHash;
};

} // namespace

// The name beside the source: the writer's naming tests; the row: ConvertOperationTest.
TEST_F(CliConvertTest, TheResultIsANewSongBesideTheSourceAndJoinsTheChosenPlaylist)
{
    cli.sql("INSERT INTO t_playlist VALUES (100, 0, 'Mix', 0, 0, 'ordinal', 0);");
    // FLAC to FLAC at another rate: the source's name is taken.
    const QString first = convert("{\"format\": 6, \"sampleRate\": 48000}");
    EXPECT_EQ(first, cli.musicDir() + "/song 1.flac");
    EXPECT_EQ(TestEnvironment::fileDigest(source), sourceHash);
    const Probe p = probe(first);
    EXPECT_EQ(p.tags.value("artist").toString(), "Someone");
    EXPECT_EQ(p.tags.value("album").toString(), "Records");
    EXPECT_TRUE(p.hasPicture) << "the cover is carried over";

    const QString second = convert("{\"format\": 1}", {"--playlist", "100"});
    const QJsonArray mix = cli.songs({"--playlist", "100"});
    ASSERT_EQ(mix.size(), 1);
    EXPECT_EQ(mix.at(0).toObject().value("path").toString(), second);
    // The library lists every result, under the source's name.
    QStringList names;
    for (const QJsonValue &v : cli.songs())
        names << v.toObject().value("name").toString();
    EXPECT_EQ(names, QStringList({"Morning", "Morning", "Morning"}));
}

// A song already in the preferred format is skipped; values out of range are said and the
// defaults used.
TEST_F(CliConvertTest, ASongInThePreferredFormatIsSkippedAndValuesOutOfRangeAreDefaulted)
{
    cli.set("preferredFormat", "{\"format\": 6, \"sampleRate\": 44100}");
    const CliHarness::Result r = cli.run({"convert", songID});
    EXPECT_EQ(r.status, 0);
    EXPECT_TRUE(r.out.contains("0 converted, 1 skipped, 0 failed")) << r.out.constData();
    EXPECT_EQ(cli.songs().size(), 1);

    // With no preferred rate, a copy at the song's own rate and depth would be the same again.
    cli.set("preferredFormat", "{\"format\": 6, \"bitRange\": 16}");
    const CliHarness::Result same = cli.run({"convert", songID});
    EXPECT_TRUE(same.out.contains("0 converted, 1 skipped, 0 failed")) << same.out.constData();
    // Another word length is a real change.
    EXPECT_FALSE(convert("{\"format\": 6, \"bitRange\": 24}").isEmpty());

    cli.set("preferredFormat", "{\"format\": 1, \"sampleRate\": 1, \"bitRange\": 7}");
    const CliHarness::Result defaulted = cli.run({"convert", songID}); // to WAVE
    EXPECT_EQ(defaulted.status, 0) << defaulted.err.constData();
    EXPECT_TRUE(defaulted.err.contains("preferredFormat.sampleRate = 1 is out of range"))
        << defaulted.err.constData();
    EXPECT_TRUE(defaulted.err.contains("preferredFormat.bitRange = 7 is out of range"))
        << defaulted.err.constData();
    const Probe p = probe(cli.musicDir() + "/song.wav");
    EXPECT_EQ(p.audio.value("sample_rate").toString().toInt(), 44100) << "the song's own rate";
    EXPECT_EQ(p.audio.value("bits_per_sample").toInt(), 16);
}

// What the target format cannot hold, and a source that is unreadable, missing or unknown: each
// said once and the command fails.
TEST_F(CliConvertTest, WhatCannotBeConvertedIsSaidWithItsReason)
{
    const QString fast = TestEnvironment::makeSine(cli.musicDir() + "/fast.wav", 0.1, 768000);
    const QString wide = TestEnvironment::makeSine(cli.musicDir() + "/wide.wav", 0.1, 44100, 16);
    ASSERT_EQ(cli.run({"import", fast, wide}).status, 0);
    QStringList ids;
    for (const QJsonValue &v : cli.songs())
        if (v.toObject().value("path").toString() != source)
            ids << QString::number(v.toObject().value("songID").toInteger());
    ASSERT_EQ(ids.size(), 2);
    cli.set("preferredFormat", "{\"format\": 6}");
    CliHarness::Result r = cli.run(QStringList{"convert", "--"} + ids);
    EXPECT_NE(r.status, 0);
    EXPECT_TRUE(r.out.contains("cannot hold a sample rate of 768000 Hz")) << r.out.constData();
    EXPECT_TRUE(r.out.contains("holds at most 8 channels, and the source has 16")) << r.out.constData();
    EXPECT_FALSE(r.out.contains("Invalid argument")) << r.out.constData();

    cli.set("preferredFormat", "{\"format\": 1}");
    // Unreadable: still there, but no longer audio.
    ASSERT_TRUE(TestEnvironment::writeFile(source, "not audio at all\n"));
    r = cli.run({"convert", songID});
    EXPECT_NE(r.status, 0);
    EXPECT_TRUE(r.out.contains("failed: song " + songID.toUtf8())) << r.out.constData();
    EXPECT_TRUE(r.out.contains("0 converted, 0 skipped, 1 failed")) << r.out.constData();
    EXPECT_TRUE(r.err.isEmpty()) << r.err.constData(); // said once, in the summary

    ASSERT_TRUE(QFile::remove(source));
    r = cli.run({"convert", songID});
    EXPECT_NE(r.status, 0);
    EXPECT_TRUE(r.err.contains("its file is missing")) << r.err.constData();
    EXPECT_FALSE(QFile::exists(cli.musicDir() + "/song.wav"));
    EXPECT_EQ(cli.songs().size(), 3);

    r = cli.run({"convert", "12345"});
    EXPECT_NE(r.status, 0);
    EXPECT_TRUE(r.err.contains("no song has the ID 12345")) << r.err.constData();
}

// Which songs the import sets aside: ImportTest; here the command converts them.
TEST_F(CliConvertTest, CreatePreferredOnAddConvertsWhatTheImportSetAside)
{
    cli.set("createPreferredOnAdd", "true");
    cli.set("preferredFormat", "{\"format\": 1, \"sampleRate\": 44100}");
    const QString other = TestEnvironment::makeSine(cli.musicDir() + "/other.flac", 0.3);
    EXPECT_EQ(cli.run({"import", other}).status, 0);
    QStringList paths;
    for (const QJsonValue &v : cli.songs())
        paths.append(v.toObject().value("path").toString());
    EXPECT_TRUE(paths.contains(cli.musicDir() + "/other.wav")) << paths.join(u' ').toStdString();
    EXPECT_FALSE(paths.contains(other));
}

TEST_F(CliConvertTest, ShowsABarOnATerminal)
{
    cli.set("preferredFormat", "{\"format\": 1}");
    const QByteArray out = cli.runOnTerminal("convert " + songID);
    EXPECT_TRUE(out.contains("Converting 1 of 1 [")) << out.constData();
    EXPECT_TRUE(out.contains("1 converted, 0 skipped, 0 failed")) << out.constData();
    // Piped, the summary comes alone.
    const CliHarness::Result piped = cli.run({"convert", songID});
    EXPECT_FALSE(piped.err.contains("Converting")) << piped.err.constData();
}
