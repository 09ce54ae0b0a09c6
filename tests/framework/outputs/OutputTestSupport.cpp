#include "OutputTestSupport.h"

#include "support/AlsaWorld.h"
#include "support/TestEnvironment.h"

#include <QElapsedTimer>
#include <QThread>
#include <gtest/gtest.h>

#include <atomic>

namespace OutputTestSupport {

namespace {
QString g_dir;
}

void installALSAConfiguration()
{
    if (!g_dir.isEmpty())
        return;
    g_dir = TestEnvironment::makeTempDir("alsa");
    using AlsaWorld::card;
    const auto filePCM = [](const QString &name, const QString &slave, const QString &stem, const QString &hint = {}) {
        return AlsaWorld::filePCM(name, slave, g_dir, stem, hint);
    };
    QString c = "pcm.null { type null }\n";
    c += filePCM("default", "null", "default", "The test default");
    c += filePCM("anyformat", "null", "any", "Any format");
    c += filePCM("file16", "only16", "file16", "Sixteen bits");
    c += card("only16", "44100 48000", "\"S16_LE\"", {});
    c += filePCM("file24", "only24", "file24");
    c += card("only24", "44100 48000", "\"S24_3LE\" \"S16_LE\"", {});
    c += filePCM("file24in32", "only24in32", "file24in32");
    c += card("only24in32", "44100 48000", "\"S24_LE\" \"S16_LE\"", {});
    c += card("card44", "44100 96000", "\"S16_LE\" \"S24_3LE\"",
              QStringLiteral("  file \"%1/card44.raw\"\n").arg(g_dir), "Rates 44100 and 96000\nTest card");
    c += card("paced", "48000", "\"S16_LE\"",
              QStringLiteral("  paced true\n  file \"%1/paced.raw\"\n").arg(g_dir));
    c += card("floatcard", "48000", "\"FLOAT_LE\" \"S16_LE\"",
              QStringLiteral("  file \"%1/float.raw\"\n").arg(g_dir));
    const QString args = QStringLiteral(
        "  @args [ CARD DEV SUBDEV ]\n  @args.CARD { type string default \"Fake\" }\n"
        "  @args.DEV { type integer default 0 }\n  @args.SUBDEV { type integer default -1 }\n");
    c += QStringLiteral("pcm.hw {\n%1  type quivera_test\n  rates [ 44100 88200 ]\n"
                        "  formats [ \"S16_LE\" \"S24_3LE\" ]\n"
                        "  file { @func concat strings [ \"%2/hw-\" $CARD \"-\" $DEV \".raw\" ] }\n}\n")
             .arg(args, g_dir);
    c += QStringLiteral("pcm.plughw {\n%1  type plug\n"
                        "  slave.pcm { @func concat strings [ \"hw:CARD=\" $CARD \",DEV=\" $DEV ] }\n}\n")
             .arg(args);
    c += QStringLiteral("ctl.hw {\n  @args [ CARD ]\n  @args.CARD { type string default \"Fake\" }\n"
                        "  type quivera_test\n  switches [ \"Headphone\" \"Speaker\" ]\n"
                        "  state { @func concat strings [ \"%1/mixer-\" $CARD ] }\n}\n")
             .arg(g_dir);

    ASSERT_FALSE(AlsaWorld::install(g_dir, QStringLiteral(QUIVERA_TEST_ALSA_PLUGIN), c).isEmpty());
}

QString alsaDir() { return g_dir; }

QString cardParams(const QString &rawPath)
{
    return QString::fromUtf8(readFile(rawPath + QStringLiteral(".params"))).trimmed();
}

GridSignal gridSignal(quint32 bits, quint32 channels, quint32 frames, quint32 seed)
{
    GridSignal s;
    s.channels = channels;
    s.frames = frames;
    s.values.resize(size_t(channels) * frames);
    s.planes.assign(channels, std::vector<float>(frames));
    const qint64 full = qint64(1) << (bits - 1);
    quint32 x = seed * 2654435761u + 12345u;
    for (quint32 f = 0; f < frames; ++f) {
        for (quint32 c = 0; c < channels; ++c) {
            x = x * 1664525u + 1013904223u;
            qint64 v = qint64(x >> (32 - bits)) - full; // uniform over the whole word
            if (f == 0)
                v = c % 2 ? full - 1 : -full; // both extremes appear
            s.values[size_t(f) * channels + c] = qint32(v);
            s.planes[c][f] = float(double(v) / double(full));
        }
    }
    return s;
}

QByteArray packInts(const std::vector<qint32> &values, int shift, int bytes)
{
    QByteArray out;
    out.reserve(qsizetype(values.size()) * bytes);
    for (const qint32 v : values) {
        const quint32 w = quint32(v) << shift;
        for (int b = 0; b < bytes; ++b)
            out.append(char((w >> (8 * b)) & 0xFF));
    }
    return out;
}

double play(VEKAudioOutput &output, const std::vector<std::vector<float>> &planes, int timeoutMs)
{
    const quint64 total = planes.empty() ? 0 : planes.front().size();
    std::atomic<qint64> doneAt{-1};
    QElapsedTimer timer;
    auto callback = [&](VEKAudioBufferList &buffer, quint64 sampleTime) {
        for (quint32 c = 0; c < buffer.numberOfChannels(); ++c) {
            float *d = buffer.channel(c);
            for (quint32 f = 0; f < buffer.frames(); ++f) {
                const quint64 i = sampleTime + f;
                d[f] = c < planes.size() && i < total ? planes[c][i] : 0.0f;
            }
        }
        if (sampleTime >= total) {
            if (doneAt.load() < 0)
                doneAt.store(timer.nsecsElapsed());
            QThread::msleep(1); // a fast output would fill the disk until stop() comes
        }
    };
    timer.start();
    VEKError error;
    EXPECT_TRUE(output.start(callback, &error)) << error.text().toStdString();
    while (doneAt.load() < 0 && timer.elapsed() < timeoutMs)
        QThread::msleep(2);
    output.stop();
    EXPECT_GE(doneAt.load(), 0) << "the output did not ask for the whole signal in time";
    return double(doneAt.load()) / 1e9;
}

} // namespace OutputTestSupport
