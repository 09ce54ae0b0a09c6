#include "OutputTestSupport.h"
#include "outputs/VEKAudioDevice.h"
#include "outputs/alsa/VEKALSAOutput.h"

#include <QElapsedTimer>
#include <QFile>
#include <QThread>
#include <QtEndian>
#include <gtest/gtest.h>

#include <atomic>

using namespace OutputTestSupport;

namespace {

class ALSAOutput : public ::testing::Test {
protected:
    void SetUp() override { installALSAConfiguration(); }

    // Opens `pcm` for `requested`, plays `signal` and closes; returns the settled format.
    VEKAudioFormat playThrough(const QString &pcm, const VEKAudioFormat &requested,
                               const std::vector<std::vector<float>> &planes, quint32 framesPerBuffer = 512)
    {
        VEKALSAOutput output(pcm, 0);
        VEKError error;
        EXPECT_TRUE(output.open(requested, framesPerBuffer, &error)) << error.text().toStdString();
        play(output, planes);
        const VEKAudioFormat settled = output.format();
        output.close();
        return settled;
    }

    // The first `expected.size()` bytes of `file` are `expected`, and all after them silence.
    static void expectSignalThenSilence(const QString &file, const QByteArray &expected)
    {
        ASSERT_TRUE(QFile::exists(file)) << file.toStdString();
        const QByteArray got = readFile(file);
        ASSERT_GE(got.size(), expected.size()) << file.toStdString();
        EXPECT_TRUE(got.left(expected.size()) == expected) << "first differing byte at "
            << std::mismatch(expected.begin(), expected.end(), got.begin()).first - expected.begin();
        EXPECT_EQ(got.mid(expected.size()).count('\0'), got.size() - expected.size());
    }
};

// With no conversion anywhere, what the graph renders is what the device gets, bit for bit: the
// `file` PCM writes exactly the words our output handed to ALSA, and its name tells the format.
// A device that takes everything is opened at 32 bits, however narrow the material: 16- and
// 24-bit values arrive shifted, unchanged.
struct WordCase {
    const char *pcm;
    VEKAudioFormat requested;
    quint32 frames, seed;
    VEKAudioFormat settled; // only its depth is checked where the rate is the card's business
    bool wholeFormat;
    const char *file;
    int shift, bytes;
};

TEST_F(ALSAOutput, EachIntegerDeviceGetsItsWords)
{
    const WordCase cases[] = {
        {"file16", {44100, 2, 16, false}, 5000, 1, {44100, 2, 16, false}, true, "file16-44100-2-16.raw", 0, 2},
        {"file24", {48000, 2, 24, false}, 5000, 2, {48000, 2, 24, false}, true, "file24-48000-2-24.raw", 0, 3},
        // Sign-extended into 32-bit words.
        {"file24in32", {44100, 2, 24, false}, 5000, 3, {44100, 2, 24, false}, false, "file24in32-44100-2-32.raw", 0, 4},
        {"anyformat", {44100, 2, 16, false}, 3000, 4, {44100, 2, 32, false}, true, "any-44100-2-32.raw", 16, 4},
        {"anyformat", {88200, 2, 24, false}, 3000, 5, {88200, 2, 32, false}, true, "any-88200-2-32.raw", 8, 4},
    };
    for (const WordCase &c : cases) {
        SCOPED_TRACE(c.file);
        const GridSignal s = gridSignal(c.requested.bitDepth, 2, c.frames, c.seed);
        const VEKAudioFormat f = playThrough(QLatin1String(c.pcm), c.requested, s.planes);
        if (c.wholeFormat)
            EXPECT_EQ(f, c.settled);
        else
            EXPECT_EQ(f.bitDepth, c.settled.bitDepth);
        expectSignalThenSilence(alsaDir() + "/" + QLatin1String(c.file), packInts(s.values, c.shift, c.bytes));
    }
}

TEST_F(ALSAOutput, FloatIsTakenOnlyWhenAskedForAndThenPassedOnUntouched)
{
    std::vector<std::vector<float>> planes(2, std::vector<float>(3000));
    for (size_t i = 0; i < 3000; ++i) {
        planes[0][i] = float(std::sin(double(i) * 0.01)) * 0.7f + 1e-7f;
        planes[1][i] = -planes[0][i] / 3.0f;
    }
    const VEKAudioFormat f = playThrough("anyformat", {48000, 2, 32, true}, planes);
    EXPECT_EQ(f, (VEKAudioFormat{48000, 2, 32, true}));
    QByteArray expected;
    for (size_t i = 0; i < 3000; ++i)
        for (int c = 0; c < 2; ++c)
            expected.append(reinterpret_cast<const char *>(&planes[c][i]), 4);
    expectSignalThenSilence(alsaDir() + QStringLiteral("/any-48000-2-32.raw"), expected);

    // Integer material stays integer on a card that offers float too.
    VEKALSAOutput output("floatcard", 0);
    ASSERT_TRUE(output.open({48000, 2, 24, false}, 256, nullptr));
    EXPECT_EQ(output.format(), (VEKAudioFormat{48000, 2, 16, false}));
    ASSERT_TRUE(output.open({48000, 2, 32, true}, 256, nullptr));
    EXPECT_EQ(output.format(), (VEKAudioFormat{48000, 2, 32, true}));
    EXPECT_EQ(cardParams(alsaDir() + QStringLiteral("/float.raw")), "48000 FLOAT_LE 2");
}

// The device's own record of its hardware parameters, not just our word for it. The format read
// back from the open PCM, layer by layer, agrees with what the card itself was given: through
// ALSA's plug we write 32-bit words that the plug repacks for the card.
TEST_F(ALSAOutput, OpensAtTheHighestDepthAndReadsBackTheFormatOfEachLayer)
{
    VEKALSAOutput card("card44", 0);
    EXPECT_FALSE(card.deviceFormat().isValid()) << "closed";
    // Opened at the highest integer depth the card offers, whatever the material's, and at the
    // nearest rate it offers to one it lacks.
    ASSERT_TRUE(card.open({88200, 2, 16, false}, 256, nullptr));
    EXPECT_EQ(card.format().bitDepth, 24u);
    EXPECT_EQ(card.format().sampleRate, 96000.0);
    EXPECT_EQ(card.sampleFormatName(), "S24_3LE");
    EXPECT_EQ(cardParams(alsaDir() + QStringLiteral("/card44.raw")), "96000 S24_3LE 2");
    VEKAudioDeviceFormat f = card.deviceFormat();
    ASSERT_EQ(f.layers.size(), 1);
    EXPECT_EQ(f.hardware(), (VEKAudioDeviceFormat::Layer{f.hardware().name, "S24_3LE", 96000, 2, 24, false}));
    card.close();
    EXPECT_FALSE(card.deviceFormat().isValid());

    VEKALSAOutput plug("plughw:CARD=Layers,DEV=0", 0);
    ASSERT_TRUE(plug.open({88200, 2, 24, false}, 256, nullptr));
    f = plug.deviceFormat();
    ASSERT_GE(f.layers.size(), 2);
    EXPECT_EQ(f.layers.first().sampleFormat, "S32_LE");
    EXPECT_EQ(f.layers.first().sampleRate, 88200.0);
    const VEKAudioDeviceFormat::Layer &hw = f.hardware();
    EXPECT_EQ(QStringLiteral("%1 %2 %3").arg(hw.sampleRate).arg(hw.sampleFormat).arg(hw.numberOfChannels),
              cardParams(alsaDir() + QStringLiteral("/hw-Layers-0.raw")));
    EXPECT_EQ(hw.significantBits, hw.sampleFormat == QStringLiteral("S16_LE") ? 16u : 24u);
}

// ALSA must not resample behind our back: through ALSA's plug (which could convert any rate) a
// rate the card lacks settles on the nearest it has, and format() says so.
TEST_F(ALSAOutput, SettlesOnTheNearestOfferedRateWithoutResampling)
{
    VEKALSAOutput plug("plughw:CARD=Rates,DEV=0", 0);
    ASSERT_TRUE(plug.open({48000, 2, 24, false}, 256, nullptr));
    EXPECT_EQ(plug.format().sampleRate, 44100.0);
    EXPECT_EQ(cardParams(alsaDir() + QStringLiteral("/hw-Rates-0.raw")).section(u' ', 0, 0), "44100");
}

// A render thread that falls behind a real-time device gets an underrun; the output recovers and
// goes on, and every block rendered reaches the device in order.
TEST_F(ALSAOutput, RecoversFromAnUnderrunAndLosesNoRenderedBlock)
{
    VEKALSAOutput output("paced", 0);
    ASSERT_TRUE(output.open({48000, 2, 16, false}, 256, nullptr));
    std::atomic<quint64> blocks{0};
    output.start([&](VEKAudioBufferList &buffer, quint64 sampleTime) {
        const quint64 block = sampleTime / 256;
        for (quint32 c = 0; c < buffer.numberOfChannels(); ++c)
            for (quint32 f = 0; f < buffer.frames(); ++f)
                buffer.channel(c)[f] = float(qint16(block)) / 32768.0f;
        if (block == 12)
            QThread::msleep(150); // far longer than the device's buffer
        blocks.store(block + 1);
    }, nullptr);
    QElapsedTimer waited;
    waited.start();
    while (blocks.load() < 40 && waited.elapsed() < 5000)
        QThread::msleep(5);
    EXPECT_TRUE(output.isRunning()) << "the render thread gave up";
    EXPECT_GE(blocks.load(), 40u);
    output.stop();
    EXPECT_GE(output.underruns(), 1u);
    const QByteArray got = readFile(alsaDir() + QStringLiteral("/paced.raw"));
    const quint64 whole = quint64(got.size()) / (256 * 4);
    ASSERT_GE(whole, 39u);
    for (quint64 b = 0; b < whole; ++b) {
        const qint16 v = qFromLittleEndian<qint16>(got.constData() + b * 256 * 4);
        ASSERT_EQ(quint64(v), b) << "block " << b << " missing or out of order";
    }
}

// framesPlayed follows the device, not the render: on a real-time device it lags the frames
// written by what waits in the buffer, and never runs ahead of the clock. Stop waits for the
// render thread, and a new start begins at sample time 0.
TEST_F(ALSAOutput, FramesPlayedFollowsTheDevicesClockAndStopWaitsForTheRenderThread)
{
    VEKALSAOutput output("paced", 0);
    ASSERT_TRUE(output.open({48000, 2, 16, false}, 256, nullptr));
    std::atomic<int> calls{0};
    std::atomic<quint64> firstTime{~0ull};
    std::atomic<quint64> asked{0};
    auto callback = [&](VEKAudioBufferList &buffer, quint64 sampleTime) {
        buffer.clear();
        if (calls.fetch_add(1) == 0)
            firstTime.store(sampleTime);
        asked.store(sampleTime + buffer.frames());
    };
    QElapsedTimer clock;
    clock.start();
    ASSERT_TRUE(output.start(callback, nullptr));
    QThread::msleep(300);
    const quint64 played = output.framesPlayed();
    const double seconds = double(clock.nsecsElapsed()) / 1e9;
    EXPECT_LE(played, quint64(seconds * 48000));
    EXPECT_GT(played, quint64(seconds * 48000 / 4));
    EXPECT_LT(played, asked.load());

    output.stop();
    EXPECT_FALSE(output.isRunning());
    const int afterStop = calls.load();
    QThread::msleep(50);
    EXPECT_EQ(calls.load(), afterStop) << "the callback ran after stop() returned";
    calls.store(0);
    firstTime.store(~0ull);
    ASSERT_TRUE(output.start(callback, nullptr));
    while (calls.load() < 3)
        QThread::msleep(2);
    output.stop();
    EXPECT_EQ(firstTime.load(), 0u) << "sample time starts again at 0";
}

} // namespace
