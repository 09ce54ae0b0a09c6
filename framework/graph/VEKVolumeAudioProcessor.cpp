#include "VEKVolumeAudioProcessor.h"

bool VEKVolumeAudioProcessor::initializeForRender(VEKError *error) { return reset(error); }

bool VEKVolumeAudioProcessor::reset(VEKError *)
{
    // Starting at the target: a fresh stream has no earlier gain to ramp from.
    m_current = scalar();
    return true;
}

void VEKVolumeAudioProcessor::render(VEKAudioBufferList &list, quint32, const VEKAudioRenderInfo &info)
{
    inputBus().render(list, info);
    const float target = scalar();
    if (target == m_current) {
        list.scale(target);
        return;
    }
    list.scaleWithRamp(m_current, target);
    m_current = target;
}

QVariantMap VEKVolumeAudioProcessor::settings() const
{
    QVariantMap s = VEKAudioProcessor::settings();
    s.insert(QStringLiteral("scalar"), double(scalar()));
    return s;
}

bool VEKVolumeAudioProcessor::setSettings(const QVariantMap &settings, VEKError *error)
{
    if (!VEKAudioProcessor::setSettings(settings, error))
        return false;
    const auto it = settings.constFind(QStringLiteral("scalar"));
    if (it != settings.constEnd())
        setScalar(it->toFloat());
    return true;
}
