#include "support/graph/GraphTestSupport.h"

#include "outputs/VEKAudioDeviceMonitor.h"
#include "support/TestEnvironment.h"

#include <QFile>
#include <QJsonDocument>

#include <gtest/gtest.h>

#include <chrono>

namespace GraphTest {

void registerTestClasses()
{
    static std::once_flag once;
    std::call_once(once, [] {
        VEKAudioProcessor::registerClass<CaptureSink>(QStringLiteral("TestCaptureSink"));
        VEKAudioProcessor::registerClass<ManualSink>(QStringLiteral("TestManualSink"));
        VEKAudioProcessor::registerClass<RampSource>(QStringLiteral("TestRampSource"));
        VEKAudioProcessor::registerClass<CountingSource>(QStringLiteral("TestCountingSource"));
        VEKAudioProcessor::registerClass<SequenceSource>(QStringLiteral("TestSequenceSource"));
    });
}

QVariantMap description(const char *json)
{
    QJsonParseError parseError;
    const QJsonDocument doc = QJsonDocument::fromJson(QByteArray(json), &parseError);
    EXPECT_EQ(parseError.error, QJsonParseError::NoError) << parseError.errorString().toStdString();
    return doc.toVariant().toMap();
}

std::unique_ptr<VEKAudioStream> build(const char *json)
{
    registerTestClasses();
    auto stream = std::make_unique<VEKAudioStream>();
    VEKError error;
    if (!stream->initWithDescription(description(json), &error)) {
        ADD_FAILURE() << "the description does not build: " << error.text().toStdString();
        return nullptr;
    }
    return stream;
}

std::unique_ptr<VEKAudioStream> buildChain(std::initializer_list<const char *> processors)
{
    QByteArray json = "{\"processors\": [", chain;
    for (const char *p : processors) {
        json += p + QByteArray(",");
        chain += '"' + description(p).value(QStringLiteral("identifier")).toString().toUtf8() + "\",";
    }
    json.chop(1);
    chain.chop(1);
    return build((json + "], \"chains\": [[" + chain + "]]}").constData());
}

bool FakeOutput::open(const VEKAudioFormat &requested, quint32 framesPerBuffer, VEKError *)
{
    m_format = requested;
    m_format.bitDepth = 24;
    m_frames = framesPerBuffer;
    m_capture.assign(requested.numberOfChannels, {});
    for (auto &c : m_capture)
        c.reserve(m_captureFrames);
    return true;
}

bool FakeOutput::start(RenderCallback callback, VEKError *)
{
    if (m_running.exchange(true))
        return true;
    m_quit.store(false);
    m_thread = std::thread([this, callback = std::move(callback)] {
        VEKAudioBufferList buffer(m_format.numberOfChannels, m_frames);
        const auto begin = std::chrono::steady_clock::now();
        quint64 time = 0;
        while (!m_quit.load()) {
            buffer.setFrames(m_frames);
            callback(buffer, time);
            {
                std::lock_guard lock(m_captureLock);
                for (quint32 c = 0; c < buffer.numberOfChannels(); ++c) {
                    auto &dest = m_capture[c];
                    const size_t room = m_captureFrames > dest.size() ? m_captureFrames - dest.size() : 0;
                    const size_t n = std::min<size_t>(room, buffer.frames());
                    dest.insert(dest.end(), buffer.channel(c), buffer.channel(c) + n);
                }
            }
            time += m_frames;
            m_played.store(time);
            m_cycles.fetch_add(1);
            if (m_speed > 0.0) {
                const auto due = begin + std::chrono::duration<double>(double(time) / m_format.sampleRate / m_speed);
                std::this_thread::sleep_until(due);
            }
        }
    });
    return true;
}

void FakeOutput::stop()
{
    if (!m_running.exchange(false))
        return;
    m_quit.store(true);
    m_thread.join();
}

bool FakeOutput::waitForCycles(quint64 n, int timeoutMs) const
{
    const quint64 target = cycles() + n;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (cycles() < target) {
        if (std::chrono::steady_clock::now() > deadline)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

std::vector<float> FakeOutput::captured(quint32 c) const
{
    std::lock_guard lock(m_captureLock);
    return c < m_capture.size() ? m_capture[c] : std::vector<float>();
}

bool FakeDevice::setSampleRate(double rate, VEKError *)
{
    if (!m_rates.contains(rate))
        return false;
    m_rate = rate;
    changes.append(rate);
    emit VEKAudioDeviceMonitor::shared().sampleRateChanged(UID(), rate);
    return true;
}

bool FakeDevice::setIsExclusive(bool exclusive, VEKError *error)
{
    if (exclusiveSupported) {
        m_exclusive = exclusive;
        return true;
    }
    VEKError::set(error,
                  VEKError(QStringLiteral("VEKAudioDevice"), unknownPropertyCode, QStringLiteral("who?")));
    return false;
}

std::unique_ptr<VEKAudioOutput> FakeDevice::createOutput()
{
    ++outputsMade;
    auto output = std::make_unique<FakeOutput>(m_speed, m_captureFrames);
    m_last = output.get();
    return output;
}

quint32 CaptureSink::framesToRenderNext() const
{
    const quint64 have = m_data.empty() ? 0 : m_data[0].size();
    return quint32(std::min<quint64>(framesPerBuffer(), m_wanted - std::min(m_wanted, have)));
}

bool CaptureSink::consumeRenderedAudio(const VEKAudioBufferList &audio, VEKError *)
{
    m_data.resize(std::max<size_t>(m_data.size(), audio.numberOfChannels()));
    for (quint32 c = 0; c < audio.numberOfChannels(); ++c)
        m_data[c].insert(m_data[c].end(), audio.channel(c), audio.channel(c) + audio.frames());
    return true;
}

void RampSource::render(VEKAudioBufferList &list, quint32, const VEKAudioRenderInfo &info)
{
    list.setFrames(info.frames);
    const VEKConductorAudioProcessor *timing = conductor();
    const bool running = !timing || timing->currentSegment().running;
    const qint64 first = timing ? timing->currentSegment().frame : m_free;
    for (quint32 c = 0; c < list.numberOfChannels(); ++c) {
        float *p = list.channel(c);
        for (quint32 f = 0; f < list.frames(); ++f)
            p[f] = running ? float(first + f + 1) : 0.0f;
    }
    if (!timing)
        m_free += list.frames();
}

void CountingSource::render(VEKAudioBufferList &list, quint32, const VEKAudioRenderInfo &info)
{
    m_pulls.fetch_add(1);
    list.setFrames(info.frames);
    for (quint32 c = 0; c < list.numberOfChannels(); ++c)
        std::fill(list.channel(c), list.channel(c) + list.frames(), m_value);
}

bool CountingSource::setSettings(const QVariantMap &settings, VEKError *error)
{
    if (!VEKAudioProcessor::setSettings(settings, error))
        return false;
    if (settings.contains(QStringLiteral("value")))
        m_value = settings.value(QStringLiteral("value")).toFloat();
    return true;
}

void SequenceSource::render(VEKAudioBufferList &list, quint32, const VEKAudioRenderInfo &info)
{
    list.setFrames(info.frames);
    for (quint32 c = 0; c < list.numberOfChannels(); ++c) {
        const Channel &samples = m_channels[c < m_channels.size() ? c : 0];
        for (quint32 f = 0; f < list.frames(); ++f)
            list.channel(c)[f] = samples[(m_frame + f) % samples.size()];
    }
    m_frame += list.frames();
}

std::unique_ptr<VEKAudioStream> chainOf(const QStringList &classes, double rate, quint32 channels)
{
    registerTestClasses();
    QVariantList processors{QVariantMap{{"identifier", "source"}, {"class", "TestSequenceSource"}}};
    QVariantList chain{QStringLiteral("source")};
    for (int i = 0; i < classes.size(); ++i) {
        const QString id = QStringLiteral("p%1").arg(i);
        processors.append(QVariantMap{{"identifier", id}, {"class", classes[i]}});
        chain.append(id);
    }
    processors.append(QVariantMap{{"identifier", "sink"}, {"class", "TestManualSink"}});
    chain.append(QStringLiteral("sink"));
    auto stream = std::make_unique<VEKAudioStream>();
    VEKError error;
    if (!stream->initWithDescription(
            {{"format", QVariantMap{{"sampleRate", rate}, {"numberOfChannels", channels}}},
             {"processors", processors},
             {"chains", QVariantList{QVariant(chain)}}},
            &error)) {
        ADD_FAILURE() << "the chain does not build: " << error.text().toStdString();
        return nullptr;
    }
    return stream;
}

std::vector<Channel> render(VEKAudioStream &stream, quint64 frames, quint32 bufferFrames, bool offline)
{
    VEKAudioBufferList buffer(stream.format().numberOfChannels, bufferFrames);
    std::vector<Channel> out(buffer.numberOfChannels());
    for (quint64 time = 0; time < frames;) {
        const quint32 n = quint32(std::min<quint64>(bufferFrames, frames - time));
        buffer.setFrames(n);
        stream.renderCycle(buffer, time, offline);
        for (quint32 c = 0; c < buffer.numberOfChannels(); ++c)
            out[c].insert(out[c].end(), buffer.channel(c), buffer.channel(c) + n);
        time += n;
    }
    return out;
}

QString makeRampWave(const QString &path, quint64 frames, int rate, int channels, quint64 offset)
{
    const QString raw = path + QStringLiteral(".raw");
    {
        QFile f(raw);
        EXPECT_TRUE(f.open(QIODevice::WriteOnly));
        std::vector<float> samples(frames * quint64(channels));
        for (quint64 i = 0; i < frames; ++i)
            for (int c = 0; c < channels; ++c)
                samples[i * quint64(channels) + quint64(c)] = float(double(i + offset + 1) / 16777216.0);
        f.write(reinterpret_cast<const char *>(samples.data()), qint64(samples.size() * sizeof(float)));
    }
    QByteArray out;
    const int rc = TestEnvironment::run(
        QStringLiteral("sox"),
        {QStringLiteral("-t"), QStringLiteral("raw"), QStringLiteral("-e"), QStringLiteral("floating-point"),
         QStringLiteral("-b"), QStringLiteral("32"), QStringLiteral("-r"), QString::number(rate), QStringLiteral("-c"),
         QString::number(channels), raw, QStringLiteral("-e"), QStringLiteral("floating-point"), QStringLiteral("-b"),
         QStringLiteral("32"), path},
        &out);
    EXPECT_EQ(rc, 0) << out.constData();
    QFile::remove(raw);
    return path;
}

} // namespace GraphTest
