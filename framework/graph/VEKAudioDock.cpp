#include "VEKAudioDock.h"

void VEKAudioDock::setProcessor(VEKAudioProcessorPtr processor)
{
    if (processor == m_processor)
        return;
    emit processorWillChange(m_processor);
    VEKAudioProcessorPtr previous = std::exchange(m_processor, std::move(processor));
    emit processorChanged(m_processor, previous);
}

QVariantMap VEKAudioDock::settings() const
{
    QVariantMap s = VEKAudioProcessor::settings();
    if (m_processor)
        s.insert(QStringLiteral("processor"), m_processor->settings());
    return s;
}

bool VEKAudioDock::setSettings(const QVariantMap &settings, VEKError *error)
{
    if (!VEKAudioProcessor::setSettings(settings, error))
        return false;
    const auto it = settings.constFind(QStringLiteral("processor"));
    if (it == settings.constEnd())
        return true;
    const QVariantMap held = it->toMap();
    if (held.isEmpty()) {
        setProcessor(nullptr);
        return true;
    }
    VEKAudioProcessorPtr p = VEKAudioProcessor::processorWithSettings(held, error);
    if (!p)
        return false;
    setProcessor(std::move(p));
    return true;
}

void VEKAudioDock::render(VEKAudioBufferList &list, quint32 bus, const VEKAudioRenderInfo &info)
{
    if (m_processor && m_processor->isInitialized())
        m_processor->render(list, bus, info);
    else
        VEKAudioProcessor::render(list, bus, info);
}
