#include "VEKDitherAudioProcessor.h"

#include "VEKAudioGraphError.h"

bool VEKDitherAudioProcessor::setDitherProperties(const QVariantMap &properties, VEKError *error)
{
    QString reason;
    if (m_dither.setProperties(properties, &reason))
        return true;
    VEKError::set(error, VEKAudioGraphError::make(VEKAudioGraphError::InvalidArgument,
                                                  "Error_graphDitherSettings", reason, reason));
    return false;
}

bool VEKDitherAudioProcessor::initializeForRender(VEKError *error)
{
    if (const VEKAudioConnection *out = outputConnection())
        m_dither.setSampleRate(out->sampleRate());
    return reset(error);
}

bool VEKDitherAudioProcessor::reset(VEKError *)
{
    m_dither.reset();
    return true;
}

void VEKDitherAudioProcessor::render(VEKAudioBufferList &list, quint32, const VEKAudioRenderInfo &info)
{
    inputBus().render(list, info);
    m_dither.process(list);
}

QVariantMap VEKDitherAudioProcessor::settings() const
{
    QVariantMap s = m_dither.properties();
    const QVariantMap base = VEKAudioProcessor::settings();
    for (auto it = base.constBegin(); it != base.constEnd(); ++it)
        s.insert(it.key(), it.value());
    return s;
}

bool VEKDitherAudioProcessor::setSettings(const QVariantMap &settings, VEKError *error)
{
    if (!VEKAudioProcessor::setSettings(settings, error))
        return false;
    QVariantMap properties = settings;
    properties.remove(QStringLiteral("class"));
    properties.remove(QStringLiteral("enabled"));
    properties.remove(QStringLiteral("name"));
    if (properties.isEmpty())
        return true;
    return setDitherProperties(properties, error);
}
