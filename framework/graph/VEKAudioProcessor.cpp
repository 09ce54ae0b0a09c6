#include "VEKAudioProcessor.h"

#include "VEKAudioGraphError.h"
#include "VEKAudioRenderPlan.h"

#include <QHash>
#include <QMutex>
#include <QMutexLocker>

namespace {

struct Registry {
    QMutex mutex;
    QHash<QString, VEKAudioProcessor::Factory> factories;
};

Registry &registry()
{
    static Registry r;
    return r;
}

} // namespace

void VEKAudioInputBus::render(VEKAudioBufferList &list, const VEKAudioRenderInfo &info) const
{
    const int slot = m_owner->m_slot.load(std::memory_order_relaxed);
    if (!info.plan || slot < 0 || size_t(slot) >= info.plan->nodes.size()) {
        list.setFrames(info.frames);
        list.clear();
        return;
    }
    if (slot == info.preparedInputSlot && info.preparedInput) {
        list.setFrames(info.frames);
        const VEKAudioBufferList &in = *info.preparedInput;
        const quint32 frames = std::min(info.frames, in.frames());
        for (quint32 c = 0; c < list.numberOfChannels(); ++c) {
            float *out = list.channel(c);
            const float *from = c < in.numberOfChannels() ? in.channel(c) : nullptr;
            for (quint32 f = 0; f < info.frames; ++f)
                out[f] = from && f < frames ? from[f] : 0.0f;
        }
        return;
    }
    info.plan->renderInputs(slot, list, info);
}

VEKAudioProcessor::VEKAudioProcessor(QObject *parent) : QObject(parent) {}

VEKAudioProcessor::~VEKAudioProcessor() = default;

void VEKAudioProcessor::registerClass(const QString &className, Factory factory)
{
    Registry &r = registry();
    QMutexLocker lock(&r.mutex);
    r.factories.insert(className, std::move(factory));
}

bool VEKAudioProcessor::isClassRegistered(const QString &className)
{
    registerFrameworkClasses();
    Registry &r = registry();
    QMutexLocker lock(&r.mutex);
    return r.factories.contains(className);
}

QStringList VEKAudioProcessor::registeredClasses()
{
    registerFrameworkClasses();
    Registry &r = registry();
    QMutexLocker lock(&r.mutex);
    QStringList names = r.factories.keys();
    names.sort();
    return names;
}

VEKAudioProcessorPtr VEKAudioProcessor::processorWithClass(const QString &className, VEKError *error)
{
    registerFrameworkClasses();
    Factory factory;
    {
        Registry &r = registry();
        QMutexLocker lock(&r.mutex);
        factory = r.factories.value(className);
    }
    if (!factory) {
        VEKError::set(error, VEKAudioGraphError::make(VEKAudioGraphError::UnknownClass,
                                                      "Error_graphUnknownClass", className));
        return nullptr;
    }
    VEKAudioProcessorPtr p = factory();
    if (!p)
        return nullptr;
    p->m_className = className;
    if (!p->init(error))
        return nullptr;
    return p;
}

VEKAudioProcessorPtr VEKAudioProcessor::processorWithSettings(const QVariantMap &settings, VEKError *error)
{
    const QString className = settings.value(QStringLiteral("class")).toString();
    if (className.isEmpty()) {
        VEKError::set(error, VEKAudioGraphError::make(VEKAudioGraphError::MalformedDescription,
                                                      "Error_graphMalformed", QString(),
                                                      QStringLiteral("the settings name no class")));
        return nullptr;
    }
    VEKAudioProcessorPtr p = processorWithClass(className, error);
    if (!p || !p->setSettings(settings, error))
        return nullptr;
    return p;
}

QString VEKAudioProcessor::className() const
{
    return m_className.isEmpty() ? QString::fromLatin1(metaObject()->className()) : m_className;
}

bool VEKAudioProcessor::init(VEKError *) { return true; }

bool VEKAudioProcessor::initializeForRender(VEKError *) { return true; }

bool VEKAudioProcessor::reset(VEKError *) { return true; }

bool VEKAudioProcessor::uninitialize(VEKError *) { return true; }

void VEKAudioProcessor::setInitialized(bool initialized)
{
    m_initialized.store(initialized, std::memory_order_release);
}

void VEKAudioProcessor::render(VEKAudioBufferList &list, quint32, const VEKAudioRenderInfo &info)
{
    inputBus().render(list, info);
}

VEKAudioConnection *VEKAudioProcessor::inputConnection() const
{
    return m_inputs.empty() ? nullptr : m_inputs.front();
}

QList<VEKAudioConnection *> VEKAudioProcessor::inputConnections() const
{
    return QList<VEKAudioConnection *>(m_inputs.begin(), m_inputs.end());
}

VEKAudioStreamFormat VEKAudioProcessor::inputFormatForOutputFormat(const VEKAudioStreamFormat &output) const
{
    return output;
}

QVariantMap VEKAudioProcessor::settings() const
{
    QVariantMap s{{QStringLiteral("class"), className()}, {QStringLiteral("enabled"), isEnabled()}};
    if (!m_name.isEmpty())
        s.insert(QStringLiteral("name"), m_name);
    return s;
}

bool VEKAudioProcessor::setSettings(const QVariantMap &settings, VEKError *error)
{
    const auto cls = settings.constFind(QStringLiteral("class"));
    if (cls != settings.constEnd() && cls->toString() != className()) {
        VEKError::set(error, VEKAudioGraphError::make(
                                 VEKAudioGraphError::InvalidArgument, "Error_graphSettingsClass",
                                 className(), QStringLiteral("the settings are for %1").arg(cls->toString())));
        return false;
    }
    const auto enabled = settings.constFind(QStringLiteral("enabled"));
    if (enabled != settings.constEnd())
        setEnabled(enabled->toBool());
    const auto name = settings.constFind(QStringLiteral("name"));
    if (name != settings.constEnd())
        setName(name->toString());
    return true;
}

void VEKAudioProcessor::setEnabled(bool enabled)
{
    if (m_enabled.exchange(enabled) != enabled)
        emit enabledChanged(enabled);
}

QString VEKAudioProcessor::name() const { return m_name.isEmpty() ? className() : m_name; }

void VEKAudioProcessor::setName(const QString &name)
{
    if (name == m_name)
        return;
    m_name = name;
    emit nameChanged(this->name());
}

void VEKAudioProcessor::place(int slot, std::vector<VEKAudioConnection *> inputs, VEKAudioConnection *output)
{
    m_slot.store(slot, std::memory_order_relaxed);
    m_inputs = std::move(inputs);
    m_output = output;
    m_placed = true;
}
