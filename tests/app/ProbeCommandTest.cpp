// quivera-cli probe, run as a user would: what it reports of real files, and that it leaves the
// library alone.

#include "support/CliHarness.h"
#include "support/Processes.h"
#include "support/TestEnvironment.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <gtest/gtest.h>

namespace {

class ProbeCommandTest : public ::testing::Test {
protected:
    CliHarness cli;
    QString dir = TestEnvironment::makeTempDir("probe");

    // 24-bit mono FLAC at 48 kHz, tagged, with a picture.
    QString flac()
    {
        const QString src = TestEnvironment::makeSine(dir + "/src24.wav", 0.5, 48000, 1, {"-b", "24"});
        const QString cover = dir + "/cover.png";
        QByteArray out;
        EXPECT_EQ(TestEnvironment::run("ffmpeg", {"-y", "-v", "error", "-f", "lavfi", "-i", "color=blue:s=8x8",
                                                  "-frames:v", "1", cover}, &out), 0) << out.constData();
        return TestEnvironment::ffmpeg(src, dir + "/tagged.flac",
                                       {"-i", cover, "-map", "0", "-map", "1", "-c:v", "copy", "-disposition:v",
                                        "attached_pic", "-metadata", "title=Probe Me", "-metadata", "artist=Someone",
                                        "-metadata", "track=4/9"});
    }
    // Untagged 16-bit stereo WAVE.
    QString source() { return TestEnvironment::makeSine(dir + "/src16.wav", 0.2, 44100, 2, {"-b", "16"}); }
};

QJsonObject byName(const QJsonArray &array, const QString &name)
{
    for (const auto &v : array)
        if (v.toObject().value("path").toString().endsWith("/" + name))
            return v.toObject();
    return {};
}

} // namespace

// A file it cannot read is named, fails the run, and leaves the others printed.
TEST_F(ProbeCommandTest, JsonAndTextGiveTheReadersFactsAndNameWhatCannotBeRead)
{
    const QString tagged = flac();
    const QString wave = source();
    const QString notes = dir + "/notes.mp3";
    ASSERT_TRUE(TestEnvironment::writeFile(notes, QByteArray("not audio at all\n").repeated(100)));
    const CliHarness::Result r = cli.run({"probe", tagged, dir + "/missing.flac", wave, notes, "--json"});
    EXPECT_EQ(r.status, 1);
    EXPECT_TRUE(r.err.contains("missing.flac")) << r.err.constData();
    EXPECT_TRUE(r.err.contains("notes.mp3")) << r.err.constData();
    const QJsonArray array = QJsonDocument::fromJson(r.out).array();
    ASSERT_EQ(array.size(), 2);

    // Each fact under its key; the facts of each format are the reader's (ReaderFormats).
    const QJsonObject f = byName(array, "tagged.flac");
    EXPECT_EQ(f.value("path").toString(), tagged);
    EXPECT_EQ(f.value("format").toString(), "FLAC Audio File");
    EXPECT_EQ(f.value("sampleRate").toDouble(), 48000.0);
    EXPECT_EQ(f.value("numberOfChannels").toInteger(), 1);
    EXPECT_EQ(f.value("frames").toInteger(), 24000);
    EXPECT_DOUBLE_EQ(f.value("length").toDouble(), 0.5);
    EXPECT_EQ(f.value("fileSize").toInteger(), QFileInfo(tagged).size());
    EXPECT_GT(f.value("bitrate").toInteger(), 0);
    EXPECT_EQ(f.value("bitDepth").toInteger(), 24);
    const QJsonObject md = f.value("metadata").toObject();
    EXPECT_EQ(md.value("title").toString(), "Probe Me");
    EXPECT_EQ(md.value("artist").toString(), "Someone");
    EXPECT_FALSE(md.contains("imageData")); // the picture stays out of the JSON
    EXPECT_EQ(byName(array, "src16.wav").value("path").toString(), wave);
    EXPECT_TRUE(byName(array, "src16.wav").value("metadata").toObject().isEmpty());

    // As text, one fact a line, the picture by its size.
    const CliHarness::Result text = cli.run({"probe", tagged});
    ASSERT_EQ(text.status, 0) << text.err.constData();
    const QString shown = QString::fromUtf8(text.out);
    EXPECT_TRUE(shown.startsWith(tagged + "\n")) << text.out.constData();
    EXPECT_TRUE(shown.contains(QRegularExpression("format +FLAC Audio File\n"))) << text.out.constData();
    EXPECT_TRUE(shown.contains(QRegularExpression("frames +24000\n"))) << text.out.constData();
    EXPECT_TRUE(shown.contains(QRegularExpression("title +Probe Me\n"))) << text.out.constData();
    EXPECT_TRUE(shown.contains(QRegularExpression("picture +\\d+ bytes\n"))) << text.out.constData();

    const CliHarness::Result usage = cli.run({"probe"});
    EXPECT_EQ(usage.status, 2);
    EXPECT_TRUE(usage.err.contains("probe needs at least one file")) << usage.err.constData();
    EXPECT_TRUE(usage.out.isEmpty());

    // Probing needs no library and makes none.
    EXPECT_FALSE(QFile::exists(cli.libraryFile()));
}
