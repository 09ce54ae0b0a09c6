#include "VEKConverterAudioProcessor.h"

#include "VEKAudioGraphError.h"

#include <algorithm>
#include <cstring>

bool VEKConverterAudioProcessor::fail(VEKError *error, const QString &reason)
{
    VEKError::set(error, VEKAudioGraphError::make(VEKAudioGraphError::InvalidArgument,
                                                  "Error_graphConverterSettings", reason, reason));
    return false;
}

bool VEKConverterAudioProcessor::setInSampleRate(double rate, VEKError *error)
{
    if (!(rate > 0.0))
        return fail(error, QStringLiteral("input rate %1").arg(rate));
    QString reason;
    if (!converter().setInSampleRate(rate, &reason))
        return fail(error, reason);
    m_inRate = rate;
    // A new rate starts a new time line on the input side.
    m_timeReset.store(true, std::memory_order_release);
    return true;
}

bool VEKConverterAudioProcessor::prepareInSampleRate(double rate, VEKError *error)
{
    QString reason;
    if (!converter().prepareNextInSampleRate(rate, &reason))
        return fail(error, reason);
    return true;
}

void VEKConverterAudioProcessor::adoptInSampleRate(double rate)
{
    m_inRate = rate;
    converter().adoptInSampleRate(rate);
}

VEKAudioStreamFormat VEKConverterAudioProcessor::inputFormatForOutputFormat(const VEKAudioStreamFormat &output) const
{
    return {m_inRate, output.numberOfChannels};
}

bool VEKConverterAudioProcessor::initializeForRender(VEKError *error)
{
    const VEKAudioConnection *out = outputConnection();
    const VEKAudioStreamFormat format = out ? out->format() : VEKAudioStreamFormat{m_inRate, 2};
    QString reason;
    if (!converter().setInSampleRate(m_inRate, &reason)
        || !converter().configure(format.sampleRate, format.numberOfChannels, maximumFramesToRender(), &reason))
        return fail(error, reason);
    const VEKAudioConnection *in = inputConnection();
    m_piece.allocate(in ? in->numberOfChannels() : format.numberOfChannels, maximumFramesToRender());
    m_inputTime = 0;
    m_timeReset.store(false);
    converter().reset();
    return true;
}

bool VEKConverterAudioProcessor::reset(VEKError *)
{
    converter().reset();
    m_timeReset.store(true, std::memory_order_release);
    return true;
}

bool VEKConverterAudioProcessor::uninitialize(VEKError *)
{
    converter().release();
    m_piece = VEKAudioBufferList();
    return true;
}

void VEKConverterAudioProcessor::render(VEKAudioBufferList &list, quint32, const VEKAudioRenderInfo &info)
{
    if (m_timeReset.exchange(false, std::memory_order_acq_rel)) {
        m_inputTime = 0;
        m_inputOrigin.store(info.sampleTime, std::memory_order_release);
    }
    list.setFrames(info.frames);
    m_info = &info;
    converter().render(list, &VEKConverterAudioProcessor::pull, this);
    m_info = nullptr;
    if (converter().lastSwitchOffset() >= 0)
        m_inputOrigin.store(info.sampleTime + quint64(converter().lastSwitchOffset()), std::memory_order_release);
}

void VEKConverterAudioProcessor::pull(void *context, VEKAudioBufferList &input)
{
    auto *self = static_cast<VEKConverterAudioProcessor *>(context);
    const quint32 wanted = input.frames();
    const quint32 maxPiece = std::max<quint32>(1, self->m_piece.capacity());
    VEKAudioRenderInfo info = *self->m_info;
    info.sampleRate = self->m_inRate;
    const quint32 channels = input.numberOfChannels();
    quint32 done = 0;
    while (done < wanted) {
        const quint32 n = std::min(maxPiece, wanted - done);
        info.frames = n;
        info.sampleTime = self->m_inputTime;
        self->m_piece.setFrames(n);
        self->inputBus().render(self->m_piece, info);
        // Fewer frames than asked: the input's rate changes after them.
        const quint32 got = std::min(n, self->m_piece.frames());
        const bool ends = got < n && self->converter().endInput();
        const quint32 kept = ends ? got : n;
        for (quint32 c = 0; c < channels; ++c) {
            float *to = input.channel(c) + done;
            if (c < self->m_piece.numberOfChannels()) {
                std::memcpy(to, self->m_piece.channel(c), sizeof(float) * got);
                std::memset(to + got, 0, sizeof(float) * (kept - got));
            } else {
                std::memset(to, 0, sizeof(float) * kept);
            }
        }
        if (ends) {
            // The next rate's time line starts at its own frame 0.
            self->m_inputTime = 0;
            input.setFrames(done + got);
            return;
        }
        self->m_inputTime += n;
        done += n;
    }
    input.setFrames(wanted);
}

QVariantMap VEKConverterAudioProcessor::settings() const
{
    QVariantMap s = VEKAudioProcessor::settings();
    s.insert(QStringLiteral("inSampleRate"), m_inRate);
    return s;
}

bool VEKConverterAudioProcessor::setSettings(const QVariantMap &settings, VEKError *error)
{
    if (!VEKAudioProcessor::setSettings(settings, error))
        return false;
    const auto it = settings.constFind(QStringLiteral("inSampleRate"));
    if (it != settings.constEnd() && !setInSampleRate(it->toDouble(), error))
        return false;
    return true;
}
