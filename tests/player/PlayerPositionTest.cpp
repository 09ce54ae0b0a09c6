#include "player/FakePlayerTransport.h"
#include "support/TestEnvironment.h"
#include "io/VEKAudioFileReader.h"
#include "player/PlayerPosition.h"
#include "player/PlayerWaveformOperation.h"
#include "rt/VEKWaveformBuffer.h"

#include <QSignalSpy>
#include <QTest>
#include <gtest/gtest.h>

namespace {

QString noise(const QString &name, double seconds)
{
    const QString path = TestEnvironment::makeTempDir() + "/" + name + ".flac";
    EXPECT_EQ(TestEnvironment::run("sox", {"-n", "-r", "44100", "-c", "2", path, "synth",
                                           QString::number(seconds), "pinknoise", "vol", "0.6"}), 0);
    return path;
}

bool waitForPicture(PlayerPosition &bar, const QString &path)
{
    return QTest::qWaitFor([&] {
        auto op = bar.operation();
        return op && op->path() == path && op->isFinished() && bar.waveform() == op->waveform()
            && bar.columnsDrawn() == bar.waveform()->frames();
    }, 20000);
}

// A bar on screen that follows a transport driven by hand.
struct ShownBar {
    explicit ShownBar(int width)
    {
        bar.resize(width, 100);
        bar.show();
        bar.setTransport(&transport);
    }
    FakePlayerTransport transport;
    PlayerPosition bar;
};

} // namespace

TEST(PlayerPosition, TheWaveformHoldsTheTrueExtremeOfEveryColumn)
{
    const QString path = noise("a", 2.3);
    auto [transport, bar] = ShownBar(718); // a 10-pixel handle, 708 columns
    transport.setSong(path);
    ASSERT_TRUE(waitForPicture(bar, path));
    const VEKWaveformBuffer &waveform = *bar.waveform();
    ASSERT_EQ(quint64(bar.waveformImage().width()), 708u);
    ASSERT_EQ(waveform.frames(), 708u);

    VEKAudioFileReader reader;
    ASSERT_TRUE(reader.initWithURL(path));
    VEKAudioBufferList all(2, quint32(reader.frames()));
    ASSERT_TRUE(reader.getAudio(all, 0));
    const quint64 perColumn = reader.frames() / 708;
    for (quint64 c = 0; c < 708; ++c) {
        float most = -2.0f, least = 2.0f;
        for (quint64 f = c * perColumn; f < (c + 1) * perColumn; ++f)
            for (quint32 ch = 0; ch < 2; ++ch) {
                most = qMax(most, all.channel(ch)[f]);
                least = qMin(least, all.channel(ch)[f]);
            }
        ASSERT_EQ(waveform.positiveValueAtFrame(c), most) << "column " << c;
        ASSERT_EQ(waveform.negativeValueAtFrame(c), least) << "column " << c;
    }

    transport.song.reset();
    emit transport.currentSongChanged();
    EXPECT_EQ(bar.waveformImage().pixel(100, 50), 0u) << "no song clears the picture";
}

TEST(PlayerPosition, ANewSongStopsTheOldReadingAfterItsCurrentColumn)
{
    const QString first = noise("first", 20.0), second = noise("second", 1.0);
    PlayerWaveformOperation op(first, 1000);
    op.setColumnObserver([&](quint64 column) {
        if (column == 10)
            op.cancel();
    });
    op.start();
    EXPECT_EQ(op.waveform()->frames(), 11u);

    auto [transport, bar] = ShownBar(1000);
    transport.setSong(first);
    const auto old = bar.operation();
    transport.setSong(second);
    EXPECT_TRUE(old->isCancelled());
    ASSERT_TRUE(waitForPicture(bar, second));
    EXPECT_EQ(bar.waveform()->frames(), quint64(bar.waveformImage().width()));
}

TEST(PlayerPosition, SeeksByClickAndDragWithPlaybackPausedForTheGesture)
{
    auto [transport, bar] = ShownBar(1436); // the design: a 20-point handle, 1416 of travel
    transport.song = std::make_shared<Song>();
    transport.playing = true;
    ASSERT_EQ(bar.handleRect().width(), 20.0);

    sendMouse(&bar, QEvent::MouseButtonPress, {708, 50});
    EXPECT_FLOAT_EQ(transport.location, 0.5f) << "a click on the bar jumps there";
    EXPECT_FALSE(transport.playingWhenLastSeeked);
    sendMouse(&bar, QEvent::MouseMove, {708 + 141.6, 50});
    EXPECT_FLOAT_EQ(transport.location, 0.6f);
    sendMouse(&bar, QEvent::MouseMove, {-300, 50});
    EXPECT_FLOAT_EQ(transport.location, 0.0f);
    sendMouse(&bar, QEvent::MouseMove, {3000, 50});
    EXPECT_FLOAT_EQ(transport.location, 1.0f);
    EXPECT_FALSE(transport.playing) << "paused for the whole gesture";
    sendMouse(&bar, QEvent::MouseButtonRelease, {3000, 50}, Qt::NoButton);
    EXPECT_TRUE(transport.playing);
    EXPECT_EQ(transport.pauses, 1);

    // Taken by the handle (at 0.5 it spans 708 to 728), nothing moves until the mouse does, and
    // then the handle keeps its offset under the mouse. Paused before, paused after.
    transport.playing = false;
    transport.location = 0.5f;
    sendMouse(&bar, QEvent::MouseButtonPress, {718, 50});
    EXPECT_FLOAT_EQ(transport.location, 0.5f);
    sendMouse(&bar, QEvent::MouseMove, {718 + 14.16, 50});
    EXPECT_FLOAT_EQ(transport.location, 0.51f);
    sendMouse(&bar, QEvent::MouseButtonRelease, {718, 50}, Qt::NoButton);
    EXPECT_FALSE(transport.playing);

    transport.song->setLength(100.0);
    QTest::keyClick(&bar, Qt::Key_Right);
    EXPECT_FLOAT_EQ(transport.location, 0.56f);
}

TEST(PlayerPosition, ReadsOneColumnPerDevicePixelAtRatioTwo)
{
    // The ratio is the screen's, fixed when the application starts: check in a child run.
    if (qEnvironmentVariable("QT_SCALE_FACTOR") != QLatin1String("2")) {
        qputenv("QT_SCALE_FACTOR", "2");
        QByteArray out;
        const int rc = TestEnvironment::run(QCoreApplication::applicationFilePath(),
                                            {"--gtest_filter=PlayerPosition.ReadsOneColumnPerDevicePixelAtRatioTwo"}, &out);
        qunsetenv("QT_SCALE_FACTOR");
        EXPECT_EQ(rc, 0) << out.constData();
        return;
    }
    const QString path = noise("sharp", 1.0);
    auto [transport, bar] = ShownBar(718);
    ASSERT_EQ(bar.devicePixelRatioF(), 2.0);
    transport.setSong(path);
    ASSERT_TRUE(waitForPicture(bar, path));
    EXPECT_EQ(bar.waveformImage().width(), 1416);
    EXPECT_EQ(bar.waveform()->frames(), 1416u);
}
