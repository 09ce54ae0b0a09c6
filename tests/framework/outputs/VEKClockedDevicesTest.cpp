#include "OutputTestSupport.h"
#include "outputs/VEKAudioDevice.h"
#include "outputs/capture/VEKCaptureDevice.h"
#include "support/TestEnvironment.h"
#include "support/WaveFile.h"

#include <QProcess>
#include <gtest/gtest.h>

using namespace OutputTestSupport;

namespace {

// sox's reading of a file we wrote. Its warnings (it warns about every extensible float WAV,
// ffmpeg's included) stay on standard error, apart from the answer.
QString soxi(const QString &option, const QString &path)
{
    QProcess p;
    p.start("soxi", {option, path});
    EXPECT_TRUE(p.waitForFinished(30000));
    EXPECT_EQ(p.exitCode(), 0) << p.readAllStandardError().constData();
    return QString::fromUtf8(p.readAllStandardOutput()).trimmed();
}

class ClockedDevices : public ::testing::Test {
protected:
    void SetUp() override
    {
        installALSAConfiguration();
        m_dir = TestEnvironment::makeTempDir("capture");
    }
    QString m_dir;
};

// The capture device is how tests and offline renders see what the graph played: every depth
// must hold the rendered samples exactly, in a WAV that other programs read as such.
TEST_F(ClockedDevices, CaptureWritesEveryDepthSampleForSample)
{
    struct Case {
        quint32 bits;
        bool isFloat;
        quint16 tag;
    };
    for (const Case c : {Case{16, false, 1}, Case{24, false, 1}, Case{32, false, 1}, Case{32, true, 3}}) {
        SCOPED_TRACE(testing::Message() << c.bits << (c.isFloat ? " float" : ""));
        const QString path = m_dir + QStringLiteral("/d%1%2.wav").arg(c.bits).arg(c.isFloat ? "f" : "");
        const VEKAudioDevicePtr device = VEKAudioDevice::deviceWithUID(QStringLiteral("capture:%1?fast").arg(path));
        ASSERT_TRUE(device->isValid());
        const GridSignal s = gridSignal(c.bits == 16 ? 16 : 24, 3, 4100, c.bits);
        std::unique_ptr<VEKAudioOutput> output = device->createOutput();
        VEKError error;
        ASSERT_TRUE(output->open({96000, 3, c.bits, c.isFloat}, 1024, &error)) << error.text().toStdString();
        EXPECT_EQ(output->format(), (VEKAudioFormat{96000, 3, c.bits, c.isFloat}));
        play(*output, s.planes);
        output->close();

        QByteArray expected;
        if (c.isFloat) {
            for (quint32 f = 0; f < s.frames; ++f)
                for (quint32 ch = 0; ch < 3; ++ch)
                    expected.append(reinterpret_cast<const char *>(&s.planes[ch][f]), 4);
        } else {
            expected = packInts(s.values, c.bits == 32 ? 8 : 0, int(c.bits / 8));
        }
        const WaveFile w = WaveFile::read(path);
        EXPECT_EQ(w.tag, c.tag);
        EXPECT_EQ(w.channels, 3);
        EXPECT_EQ(w.rate, 96000u);
        EXPECT_EQ(w.bits, c.bits);
        EXPECT_EQ(w.riffSize, quint32(w.fileSize - 8)) << "header not finished";
        ASSERT_GE(w.data.size(), expected.size());
        EXPECT_TRUE(w.data.left(expected.size()) == expected);
        EXPECT_EQ(w.data.mid(expected.size()).count('\0'), w.data.size() - expected.size());
        EXPECT_EQ(w.data.size() % (3 * c.bits / 8), 0);
        EXPECT_EQ(soxi("-s", path).toLongLong(), w.data.size() / (3 * c.bits / 8));
    }
}

TEST_F(ClockedDevices, CaptureOptionsFixTheFilesFormat)
{
    const QString path = m_dir + QStringLiteral("/fixed.wav");
    const VEKAudioDevicePtr device = VEKAudioDevice::deviceWithUID(QStringLiteral("capture:%1?fast&bits=16").arg(path));
    std::unique_ptr<VEKAudioOutput> output = device->createOutput();
    ASSERT_TRUE(output->open({44100, 2, 32, true}, 512, nullptr));
    EXPECT_EQ(output->format(), (VEKAudioFormat{44100, 2, 16, false}));
    output->close();
    EXPECT_EQ(WaveFile::read(path).bits, 16);

    for (const char *bad : {"capture:", "capture:relative.wav", "capture:/no/such/folder/x.wav",
                            "capture:/tmp/x.wav?bits=20", "capture:/tmp/x.wav?loud"})
        EXPECT_FALSE(VEKAudioDevice::deviceWithUID(QString::fromLatin1(bad))->isValid()) << bad;
    VEKError error;
    EXPECT_FALSE(VEKAudioDevice::deviceWithUID("capture:/no/such/folder/x.wav")
                     ->createOutput()
                     ->open({44100, 2, 16, false}, 512, &error));
    EXPECT_FALSE(error.isNull());
}

// A stopped capture is a finished file; starting again adds to it, opening again starts anew.
TEST_F(ClockedDevices, CaptureHeaderIsFinishedAtEveryStop)
{
    const QString path = m_dir + QStringLiteral("/twice.wav");
    std::unique_ptr<VEKAudioOutput> output =
        VEKAudioDevice::deviceWithUID(QStringLiteral("capture:%1?fast").arg(path))->createOutput();
    ASSERT_TRUE(output->open({44100, 1, 24, false}, 333, nullptr));
    const GridSignal a = gridSignal(24, 1, 1000, 1);
    play(*output, a.planes);
    WaveFile w = WaveFile::read(path);
    EXPECT_EQ(w.riffSize, quint32(w.fileSize - 8));
    const qsizetype first = w.data.size();
    EXPECT_EQ(w.data.left(3000), packInts(a.values, 0, 3));
    // Blocks of 333 three-byte frames: the data chunk is often odd and then needs a pad byte.
    EXPECT_EQ(w.fileSize % 2, 0) << "data of " << first << " bytes without its pad byte";

    play(*output, a.planes);
    w = WaveFile::read(path);
    EXPECT_GT(w.data.size(), first);
    EXPECT_EQ(w.data.mid(first, 3000), packInts(a.values, 0, 3));

    ASSERT_TRUE(output->open({44100, 1, 24, false}, 333, nullptr));
    output->close();
    EXPECT_EQ(WaveFile::read(path).data.size(), 0);
}

// The null device stands in for a card, and a capture plays at a card's pace unless told to be
// fast: half a second takes half a second, so the transport and its landmarks run in real time
// with nothing attached.
TEST_F(ClockedDevices, NullAndCaptureKeepRealTimeUnlessFast)
{
    const QString path = m_dir + "/paced.wav";
    for (const QString &uid : {QStringLiteral("null"), "capture:" + path}) {
        SCOPED_TRACE(uid.toStdString());
        const VEKAudioDevicePtr device = VEKAudioDevice::deviceWithUID(uid);
        std::unique_ptr<VEKAudioOutput> output = device->createOutput();
        ASSERT_TRUE(output->open({0, 2, 16, false}, 480, nullptr));
        EXPECT_EQ(output->format().sampleRate, device->sampleRate());
        const double seconds = play(*output, std::vector<std::vector<float>>(2, std::vector<float>(22050)));
        EXPECT_GT(seconds, 0.45);
        EXPECT_LT(seconds, 1.5);
        EXPECT_GE(output->framesPlayed(), 22050u);
    }

    std::unique_ptr<VEKAudioOutput> fast =
        VEKAudioDevice::deviceWithUID("capture:" + path + "?fast")->createOutput();
    ASSERT_TRUE(fast->open({48000, 2, 16, false}, 4800, nullptr));
    // A minute of audio, far quicker than played.
    EXPECT_LT(play(*fast, std::vector<std::vector<float>>(2, std::vector<float>(48000 * 60))), 10.0);
    fast->close();
}

TEST_F(ClockedDevices, RatesAreTheCommonOnesAndExclusiveIsWho)
{
    for (const QString &uid : {QStringLiteral("null"), QStringLiteral("capture:%1/r.wav").arg(m_dir)}) {
        const VEKAudioDevicePtr d = VEKAudioDevice::deviceWithUID(uid);
        EXPECT_EQ(d->availableSampleRates(), VEKAudioDevice::commonSampleRates());
        VEKError error;
        EXPECT_FALSE(d->setSampleRate(44101, &error));
        EXPECT_EQ(d->sampleRate(), 44100.0);
        EXPECT_TRUE(d->setSampleRate(192000, nullptr));
        EXPECT_EQ(d->createOutput()->open({0, 2, 16, false}, 64, nullptr), true);
        EXPECT_EQ(d->sampleRate(), 192000.0);
        EXPECT_TRUE(d->setSampleRate(44100, nullptr));
        EXPECT_FALSE(d->setIsExclusive(true, &error));
        EXPECT_EQ(error.code(), VEKAudioDevice::unknownPropertyCode);
        EXPECT_TRUE(d->outputSources().isEmpty());
    }
}

} // namespace
