#include "ChainTestSupport.h"

#include "audio/AudioProcessorClasses.h"

#include <gtest/gtest.h>

#include <mutex>

namespace AudioChain {

void Source::setChannels(std::vector<Channel> channels)
{
    m_channels = std::move(channels);
    m_frame = 0;
}

void Source::render(VEKAudioBufferList &list, quint32, const VEKAudioRenderInfo &info)
{
    list.setFrames(info.frames);
    for (quint32 c = 0; c < list.numberOfChannels(); ++c) {
        const Channel &samples = m_channels[c < m_channels.size() ? c : 0];
        float *out = list.channel(c);
        for (quint32 f = 0; f < list.frames(); ++f)
            out[f] = samples[(m_frame + f) % samples.size()];
    }
    m_frame += list.frames();
}

std::unique_ptr<VEKAudioStream> build(const QStringList &classes, double rate, quint32 channels)
{
    static std::once_flag once;
    std::call_once(once, [] {
        VEKAudioProcessor::registerClass<Source>(QStringLiteral("AudioChainSource"));
        VEKAudioProcessor::registerClass<Sink>(QStringLiteral("AudioChainSink"));
    });
    registerAudioProcessorClasses();

    QVariantList processors{QVariantMap{{"identifier", "source"}, {"class", "AudioChainSource"}}};
    QVariantList chain{QStringLiteral("source")};
    for (int i = 0; i < classes.size(); ++i) {
        const QString id = QStringLiteral("p%1").arg(i);
        processors.append(QVariantMap{{"identifier", id}, {"class", classes[i]}});
        chain.append(id);
    }
    processors.append(QVariantMap{{"identifier", "sink"}, {"class", "AudioChainSink"}});
    chain.append(QStringLiteral("sink"));
    const QVariantMap description{
        {"format", QVariantMap{{"sampleRate", rate}, {"numberOfChannels", channels}}},
        {"processors", processors},
        {"chains", QVariantList{QVariant(chain)}},
    };
    auto stream = std::make_unique<VEKAudioStream>();
    VEKError error;
    if (!stream->initWithDescription(description, &error)) {
        ADD_FAILURE() << "the chain does not build: " << error.text().toStdString();
        return nullptr;
    }
    return stream;
}

std::vector<Channel> renderBuffer(VEKAudioStream &stream, quint32 frames)
{
    return render(stream, frames, frames);
}

std::vector<Channel> render(VEKAudioStream &stream, size_t frames, quint32 bufferFrames)
{
    VEKAudioBufferList buffer(stream.format().numberOfChannels, bufferFrames);
    std::vector<Channel> out(stream.format().numberOfChannels);
    quint64 time = 0;
    size_t done = 0;
    while (done < frames) {
        const quint32 n = quint32(std::min<size_t>(bufferFrames, frames - done));
        buffer.setFrames(n);
        stream.renderCycle(buffer, time, false);
        for (quint32 c = 0; c < buffer.numberOfChannels(); ++c)
            out[c].insert(out[c].end(), buffer.channel(c), buffer.channel(c) + n);
        time += n;
        done += n;
    }
    return out;
}

} // namespace AudioChain
