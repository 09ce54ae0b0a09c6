#include "VEKRouterAudioProcessor.h"

#include "VEKAudioGraphError.h"

#include <QVariantList>

#include <algorithm>
#include <bit>
#include <cstring>

void VEKAudioRoutingMatrix::clearTies()
{
    for (auto &mask : m_outputs)
        mask.store(0, std::memory_order_relaxed);
}

void VEKAudioRoutingMatrix::tie(quint32 input, quint32 output)
{
    if (input < maxChannels && output < maxChannels)
        m_outputs[output].fetch_or(quint64(1) << input, std::memory_order_relaxed);
}

bool VEKAudioRoutingMatrix::isTied(quint32 input, quint32 output) const
{
    return input < maxChannels && (inputsOfOutput(output) >> input) & 1;
}

quint64 VEKAudioRoutingMatrix::inputsOfOutput(quint32 output) const
{
    return output < maxChannels ? m_outputs[output].load(std::memory_order_relaxed) : 0;
}

VEKRouterAudioProcessor::VEKRouterAudioProcessor(QObject *parent) : VEKAudioProcessor(parent)
{
    for (quint32 c = 0; c < VEKAudioRoutingMatrix::maxChannels; ++c)
        m_matrix.tie(c, c);
}

bool VEKRouterAudioProcessor::setNumberOfInputChannels(quint32 channels, VEKError *error)
{
    if (channels < 1 || channels > VEKAudioRoutingMatrix::maxChannels) {
        VEKError::set(error, VEKAudioGraphError::make(VEKAudioGraphError::InvalidArgument,
                                                      "Error_graphRouterChannels", QString::number(channels)));
        return false;
    }
    m_inputChannels = channels;
    return true;
}

VEKAudioStreamFormat VEKRouterAudioProcessor::inputFormatForOutputFormat(const VEKAudioStreamFormat &output) const
{
    return {output.sampleRate, m_inputChannels};
}

bool VEKRouterAudioProcessor::initializeForRender(VEKError *)
{
    m_input.allocate(m_inputChannels, maximumFramesToRender());
    if (VEKAudioConnection *in = inputConnection())
        in->setNumberOfChannels(m_inputChannels);
    return true;
}

bool VEKRouterAudioProcessor::uninitialize(VEKError *)
{
    m_input = VEKAudioBufferList();
    return true;
}

void VEKRouterAudioProcessor::render(VEKAudioBufferList &list, quint32, const VEKAudioRenderInfo &info)
{
    VEKAudioRenderInfo in = info;
    in.frames = std::min(info.frames, m_input.capacity());
    inputBus().render(m_input, in);
    const quint32 frames = list.frames();
    const quint32 have = std::min(frames, m_input.frames());
    for (quint32 o = 0; o < list.numberOfChannels(); ++o) {
        float *out = list.channel(o);
        quint64 mask = m_matrix.inputsOfOutput(o);
        // Inputs past the width this router was initialised for do not exist.
        if (m_input.numberOfChannels() < 64)
            mask &= (quint64(1) << m_input.numberOfChannels()) - 1;
        if (mask == 0) {
            std::memset(out, 0, sizeof(float) * frames);
            continue;
        }
        // The first tie is a copy, so a plain route stays bit-exact; further ties add.
        const int first = std::countr_zero(mask);
        std::memcpy(out, m_input.channel(quint32(first)), sizeof(float) * have);
        mask &= mask - 1;
        while (mask) {
            const float *add = m_input.channel(quint32(std::countr_zero(mask)));
            for (quint32 f = 0; f < have; ++f)
                out[f] += add[f];
            mask &= mask - 1;
        }
        if (have < frames)
            std::memset(out + have, 0, sizeof(float) * (frames - have));
    }
}

QVariantMap VEKRouterAudioProcessor::settings() const
{
    QVariantMap s = VEKAudioProcessor::settings();
    s.insert(QStringLiteral("numberOfInputChannels"), m_inputChannels);
    QVariantList ties;
    for (quint32 o = 0; o < VEKAudioRoutingMatrix::maxChannels; ++o) {
        for (quint64 mask = m_matrix.inputsOfOutput(o); mask; mask &= mask - 1)
            ties.append(QVariant(QVariantList{std::countr_zero(mask), o}));
    }
    s.insert(QStringLiteral("ties"), ties);
    return s;
}

bool VEKRouterAudioProcessor::setSettings(const QVariantMap &settings, VEKError *error)
{
    if (!VEKAudioProcessor::setSettings(settings, error))
        return false;
    const auto width = settings.constFind(QStringLiteral("numberOfInputChannels"));
    if (width != settings.constEnd() && !setNumberOfInputChannels(width->toUInt(), error))
        return false;
    const auto ties = settings.constFind(QStringLiteral("ties"));
    if (ties == settings.constEnd())
        return true;
    const QVariantList list = ties->toList();
    for (const QVariant &t : list) {
        const QVariantList pair = t.toList();
        if (pair.size() != 2) {
            VEKError::set(error, VEKAudioGraphError::make(VEKAudioGraphError::InvalidArgument,
                                                          "Error_graphMalformed", QString(),
                                                          QStringLiteral("a tie is not an [input, output] pair")));
            return false;
        }
    }
    m_matrix.clearTies();
    for (const QVariant &t : list) {
        const QVariantList pair = t.toList();
        m_matrix.tie(pair[0].toUInt(), pair[1].toUInt());
    }
    return true;
}
