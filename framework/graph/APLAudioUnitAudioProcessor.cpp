#include "APLAudioUnitAudioProcessor.h"

#include "VEKAudioGraphError.h"

APLAudioUnitAudioProcessor::~APLAudioUnitAudioProcessor() = default;

bool APLAudioUnitAudioProcessor::setPluginURI(const QString &uri, VEKError *error)
{
    const double rate = m_plugin ? m_plugin->sampleRate() : DefaultRate;
    const quint32 frames = m_plugin ? m_plugin->maximumFrames() : DefaultFrames;
    auto plugin = VEKLV2Plugin::create(uri, rate, frames, error);
    if (!plugin)
        return false;
    m_plugin = std::move(plugin);
    setName(m_plugin->name());
    return true;
}

bool APLAudioUnitAudioProcessor::initializeForRender(VEKError *error)
{
    if (!m_plugin) {
        VEKError::set(error, VEKAudioGraphError::make(VEKAudioGraphError::ProcessorFailed,
                                                      "Error_graphProcessorFailed", name()));
        return false;
    }
    const VEKAudioConnection *out = outputConnection();
    const double rate = out ? out->sampleRate() : m_plugin->sampleRate();
    const quint32 frames = maximumFramesToRender();
    if (rate != m_plugin->sampleRate() || frames != m_plugin->maximumFrames()) {
        auto plugin = VEKLV2Plugin::fromSettings(m_plugin->settings(), rate, frames, error);
        if (!plugin)
            return false;
        m_plugin = std::move(plugin);
    }
    // The processor's own `enabled` decides whether audio passes untouched.
    m_plugin->setEnabled(true);
    m_plugin->activate();
    return true;
}

bool APLAudioUnitAudioProcessor::reset(VEKError *)
{
    if (m_plugin && m_plugin->isActive())
        m_plugin->reset();
    return true;
}

bool APLAudioUnitAudioProcessor::uninitialize(VEKError *)
{
    if (m_plugin)
        m_plugin->deactivate();
    return true;
}

void APLAudioUnitAudioProcessor::render(VEKAudioBufferList &list, quint32, const VEKAudioRenderInfo &info)
{
    inputBus().render(list, info);
    if (m_plugin)
        m_plugin->process(list);
}

QVariantMap APLAudioUnitAudioProcessor::settings() const
{
    QVariantMap s;
    if (m_plugin) {
        s = m_plugin->settings();
        s.remove(QStringLiteral("enabled"));
    }
    const QVariantMap base = VEKAudioProcessor::settings();
    for (auto it = base.constBegin(); it != base.constEnd(); ++it)
        s.insert(it.key(), it.value());
    return s;
}

bool APLAudioUnitAudioProcessor::setSettings(const QVariantMap &settings, VEKError *error)
{
    if (!VEKAudioProcessor::setSettings(settings, error))
        return false;
    if (!settings.contains(QStringLiteral("uri")))
        return true;
    QVariantMap pluginSettings = settings;
    pluginSettings.remove(QStringLiteral("class"));
    // The plugin always runs; whether the effect is heard is the processor's `enabled`.
    pluginSettings.insert(QStringLiteral("enabled"), true);
    const double rate = m_plugin ? m_plugin->sampleRate() : DefaultRate;
    const quint32 frames = m_plugin ? m_plugin->maximumFrames() : DefaultFrames;
    auto plugin = VEKLV2Plugin::fromSettings(pluginSettings, rate, frames, error);
    if (!plugin)
        return false;
    m_plugin = std::move(plugin);
    if (!settings.contains(QStringLiteral("name")))
        setName(m_plugin->name());
    return true;
}
