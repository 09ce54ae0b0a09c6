#include "VEKAudioStream.h"

#include "VEKAudioDock.h"
#include "VEKAudioGraphError.h"
#include "VEKAudioRenderPlan.h"

#include <cmath>
#include "VEKAudioSinkProcessor.h"
#include "VEKAudioStreamBuilder.h"
#include "VEKConductorAudioProcessor.h"
#include "VEKHardwareAudioProcessor.h"
#include "core/VEKLog.h"
#include "outputs/VEKAudioDeviceMonitor.h"
#include "settings/VEKPropertyList.h"

#include <algorithm>
#include <cmath>

VEKAudioStream::VEKAudioStream(QObject *parent) : QObject(parent)
{
    VEKAudioProcessor::registerFrameworkClasses();
    m_collectTimer.setSingleShot(true);
    m_collectTimer.setInterval(20);
    connect(&m_collectTimer, &QTimer::timeout, this, &VEKAudioStream::collectPlans);
}

VEKAudioStream::~VEKAudioStream()
{
    uninitialize(nullptr);
    for (Position &p : m_positions)
        if (p.dock)
            QObject::disconnect(p.dock, nullptr, this, nullptr);
}

bool VEKAudioStream::initWithDescription(const QVariantMap &description, VEKError *error)
{
    if (m_built) {
        VEKError::set(error, VEKAudioGraphError::make(VEKAudioGraphError::MalformedDescription, "Error_graphMalformed",
                                                      QString(), QStringLiteral("the stream is built already")));
        return false;
    }
    VEKAudioStreamBuilder builder(*this);
    if (!builder.build(description, error)) {
        m_positions.clear();
        m_connections.clear();
        m_slots.clear();
        m_namedConnections.clear();
        m_sink = nullptr;
        m_conductor = nullptr;
        m_sinkSlot = -1;
        m_requestedFormat = VEKAudioStreamFormat();
        return false;
    }
    placeAll();
    for (size_t slot = 0; slot < m_positions.size(); ++slot) {
        if (VEKAudioDock *dock = m_positions[slot].dock) {
            connect(dock, &VEKAudioDock::processorChanged, this,
                    [this, slot](VEKAudioProcessorPtr processor, VEKAudioProcessorPtr previous) {
                        dockChanged(int(slot), std::move(processor), std::move(previous));
                    });
        }
    }
    // The rate policy sets the device's rate under a running stream; the output only takes it up
    // when opened again. Direct, so the stream runs at the new rate before the caller goes on.
    if (qobject_cast<VEKHardwareAudioProcessor *>(m_sink))
        connect(&VEKAudioDeviceMonitor::shared(), &VEKAudioDeviceMonitor::sampleRateChanged, this,
                [this] { followDeviceRate(nullptr); });
    m_built = true;
    return true;
}

bool VEKAudioStream::initWithDescriptionFile(const QString &path, VEKError *error)
{
    const QVariant description = VEKPropertyList::readFile(path, error);
    if (!description.isValid())
        return false;
    if (description.metaType().id() != QMetaType::QVariantMap) {
        VEKError::set(error, VEKAudioGraphError::make(VEKAudioGraphError::MalformedDescription, "Error_graphMalformed",
                                                      QString(), QStringLiteral("%1 holds no dictionary").arg(path)));
        return false;
    }
    return initWithDescription(description.toMap(), error);
}

VEKAudioProcessor *VEKAudioStream::processorWithIdentifier(const QString &identifier) const
{
    const int slot = m_slots.value(identifier, -1);
    return slot < 0 ? nullptr : m_positions[size_t(slot)].processor.get();
}

VEKAudioConnection *VEKAudioStream::connectionWithIdentifier(const QString &identifier) const
{
    return m_namedConnections.value(identifier, nullptr);
}

QStringList VEKAudioStream::identifiers() const
{
    QStringList ids = m_slots.keys();
    ids.sort();
    return ids;
}

VEKAudioProcessor *VEKAudioStream::processorAt(int slot) const
{
    const Position &p = m_positions[size_t(slot)];
    return p.dock ? p.dock->processor().get() : p.processor.get();
}

std::vector<VEKAudioConnection *> VEKAudioStream::inputsOf(int slot) const
{
    std::vector<VEKAudioConnection *> inputs;
    for (int index : m_positions[size_t(slot)].inputs)
        inputs.push_back(m_connections[size_t(index)].get());
    return inputs;
}

VEKAudioConnection *VEKAudioStream::outputOf(int slot) const
{
    const int index = m_positions[size_t(slot)].output;
    return index < 0 ? nullptr : m_connections[size_t(index)].get();
}

VEKConductorAudioProcessor *VEKAudioStream::conductorDownstreamOf(int slot) const
{
    int at = slot;
    for (size_t steps = 0; steps < m_positions.size(); ++steps) {
        const int out = m_positions[size_t(at)].output;
        if (out < 0)
            return nullptr;
        at = m_connections[size_t(out)]->destinationSlot();
        if (auto *c = qobject_cast<VEKConductorAudioProcessor *>(m_positions[size_t(at)].processor.get()))
            return c;
    }
    return nullptr;
}

void VEKAudioStream::placeAll()
{
    for (size_t i = 0; i < m_positions.size(); ++i) {
        const int slot = int(i);
        VEKConductorAudioProcessor *timing = conductorDownstreamOf(slot);
        m_positions[i].processor->place(slot, inputsOf(slot), outputOf(slot));
        m_positions[i].processor->setConductor(timing);
        if (m_positions[i].dock) {
            if (VEKAudioProcessorPtr held = m_positions[i].dock->processor()) {
                held->place(slot, inputsOf(slot), outputOf(slot));
                held->setConductor(timing);
            }
        }
    }
}

void VEKAudioStream::propagateFormats()
{
    for (auto &c : m_connections) {
        VEKAudioStreamFormat f = m_format;
        if (c->fixedNumberOfChannels())
            f.numberOfChannels = c->fixedNumberOfChannels();
        c->setFormat(f);
    }
    propagateFrom(m_sinkSlot, m_format, 0);
}

void VEKAudioStream::propagateFrom(int slot, const VEKAudioStreamFormat &output, int depth)
{
    if (depth > int(m_positions.size()))
        return;
    const VEKAudioProcessor *p = processorAt(slot);
    const VEKAudioStreamFormat input = p ? p->inputFormatForOutputFormat(output) : output;
    for (int index : m_positions[size_t(slot)].inputs) {
        VEKAudioConnection *c = m_connections[size_t(index)].get();
        VEKAudioStreamFormat f = input;
        if (c->fixedNumberOfChannels())
            f.numberOfChannels = c->fixedNumberOfChannels();
        c->setFormat(f);
        propagateFrom(c->sourceSlot(), f, depth + 1);
    }
}

bool VEKAudioStream::initialize(VEKError *error)
{
    if (m_initialized)
        return true;
    if (!m_sink) {
        VEKError::set(error, VEKAudioGraphError::make(VEKAudioGraphError::NotInitialized, "Error_graphNotInitialized"));
        return false;
    }
    if (!m_sink->openSink(m_requestedFormat, error))
        return false;
    m_format = m_sink->sinkFormat();
    m_maxFrames = std::max<quint32>(1, m_sink->framesPerBuffer());
    propagateFormats();
    for (size_t slot = 0; slot < m_positions.size(); ++slot) {
        const Position &position = m_positions[slot];
        VEKAudioProcessorPtr held = position.dock ? position.dock->processor() : nullptr;
        for (VEKAudioProcessor *p : {held.get(), position.processor.get()}) {
            if (!p)
                continue;
            p->setMaximumFramesToRender(m_maxFrames);
            VEKError failed;
            if (!p->initializeForRender(&failed)) {
                if (failed.isNull())
                    failed = VEKAudioGraphError::make(VEKAudioGraphError::ProcessorFailed, "Error_graphProcessorFailed",
                                                      p->name(), position.identifier);
                VEKError::set(error, failed);
                uninitializeProcessors();
                m_sink->closeSink();
                return false;
            }
            p->setInitialized(true);
        }
    }
    m_initialized = true;
    publishPlan(bakePlan());
    return true;
}

void VEKAudioStream::uninitializeProcessors()
{
    for (size_t slot = m_positions.size(); slot-- > 0;) {
        const Position &position = m_positions[slot];
        VEKAudioProcessorPtr held = position.dock ? position.dock->processor() : nullptr;
        for (VEKAudioProcessor *p : {position.processor.get(), held.get()}) {
            if (p && p->isInitialized()) {
                p->uninitialize(nullptr);
                p->setInitialized(false);
            }
        }
    }
}

bool VEKAudioStream::uninitialize(VEKError *)
{
    if (!m_initialized)
        return true;
    stop(nullptr);
    publishPlan(nullptr);
    uninitializeProcessors();
    m_sink->closeSink();
    m_initialized = false;
    return true;
}

bool VEKAudioStream::start(VEKError *error)
{
    if (!m_initialized) {
        VEKError::set(error, VEKAudioGraphError::make(VEKAudioGraphError::NotInitialized, "Error_graphNotInitialized"));
        return false;
    }
    if (m_running.exchange(true))
        return true;
    if (m_sink->pullsOnCallingThread()) {
        const bool ok = m_sink->startSink(this, error);
        m_running.store(false);
        collectPlans();
        return ok;
    }
    if (!m_sink->startSink(this, error)) {
        m_running.store(false);
        return false;
    }
    return true;
}

bool VEKAudioStream::stop(VEKError *)
{
    if (!m_running.load())
        return true;
    m_sink->stopSink();
    if (!m_sink->pullsOnCallingThread()) {
        m_running.store(false);
        collectPlans();
    }
    return true;
}

bool VEKAudioStream::followDeviceRate(VEKError *error)
{
    auto *hardware = qobject_cast<VEKHardwareAudioProcessor *>(m_sink);
    if (!hardware || !m_initialized || !hardware->deviceRateChanged())
        return true;
    const bool wasRunning = isRunning();
    stop(nullptr);
    uninitialize(nullptr);
    if (!initialize(error))
        return false;
    return !wasRunning || start(error);
}

void VEKAudioStream::renderCycle(VEKAudioBufferList &list, quint64 sampleTime, bool offline)
{
    const VEKAudioRenderPlan *plan = m_plan.acquire();
    if (!plan || plan->sinkSlot < 0) {
        list.clear();
        m_plan.release();
        return;
    }
    VEKAudioRenderInfo info;
    info.sampleTime = sampleTime;
    info.frames = std::min(list.frames(), m_maxFrames);
    info.sampleRate = m_format.sampleRate;
    info.offline = offline;
    info.plan = plan;
    plan->renderNode(plan->sinkSlot, list, info);
    m_plan.release();
}

std::unique_ptr<VEKAudioRenderPlan> VEKAudioStream::bakePlan(int fadingSlot, VEKAudioProcessorPtr fadingOut) const
{
    auto plan = std::make_unique<VEKAudioRenderPlan>();
    plan->sinkSlot = m_sinkSlot;
    plan->nodes.resize(m_positions.size());
    for (size_t slot = 0; slot < m_positions.size(); ++slot) {
        const Position &position = m_positions[slot];
        VEKAudioRenderPlan::Node &node = plan->nodes[slot];
        if (position.dock) {
            VEKAudioProcessorPtr held = position.dock->processor();
            node.processor = held.get();
            if (held)
                plan->keepAlive.push_back(std::move(held));
        } else {
            node.processor = position.processor.get();
        }
        node.firstInput = quint32(plan->inputs.size());
        quint32 channels = m_format.numberOfChannels;
        if (const VEKAudioConnection *out = outputOf(int(slot)))
            channels = std::max(channels, out->numberOfChannels());
        for (int index : position.inputs) {
            VEKAudioConnection *c = m_connections[size_t(index)].get();
            plan->inputs.push_back({c, c->sourceSlot()});
            channels = std::max(channels, c->numberOfChannels());
        }
        node.inputCount = quint32(position.inputs.size());
        if (node.inputCount > 1) {
            plan->scratch.push_back(std::make_unique<VEKAudioBufferList>(channels, m_maxFrames));
            node.mixScratch = plan->scratch.back().get();
        }
        if (position.dock && position.dock->crossfadeDuration() > 0.0 && m_format.sampleRate > 0.0) {
            node.fadeFrames =
                std::max<quint32>(1, quint32(std::lround(position.dock->crossfadeDuration() * m_format.sampleRate)));
            plan->scratch.push_back(std::make_unique<VEKAudioBufferList>(channels, m_maxFrames));
            node.fadeInput = plan->scratch.back().get();
            plan->scratch.push_back(std::make_unique<VEKAudioBufferList>(channels, m_maxFrames));
            node.fadeOther = plan->scratch.back().get();
            node.heard = VEKAudioRenderPlan::audible(node.processor);
            node.fadePosition = node.fadeFrames;
            if (int(slot) == fadingSlot) {
                // The first cycle of this plan sees a change from what the old processor made
                // heard, and fades from it.
                node.fadingOut = VEKAudioRenderPlan::audible(fadingOut.get());
                node.heard = node.fadingOut;
                if (fadingOut)
                    plan->keepAlive.push_back(fadingOut);
            }
        }
    }
    return plan;
}

void VEKAudioStream::publishPlan(std::unique_ptr<VEKAudioRenderPlan> plan)
{
    m_plan.publish(std::move(plan));
    collectPlans();
}

void VEKAudioStream::collectPlans()
{
    if (!m_plan.collect())
        m_collectTimer.start();
}

void VEKAudioStream::dockChanged(int slot, VEKAudioProcessorPtr processor, VEKAudioProcessorPtr previous)
{
    if (previous)
        previous->unplace();
    if (processor) {
        processor->place(slot, inputsOf(slot), outputOf(slot));
        processor->setConductor(conductorDownstreamOf(slot));
    }
    if (!m_initialized)
        return;
    if (processor && !processor->isInitialized()) {
        processor->setMaximumFramesToRender(m_maxFrames);
        VEKError error;
        if (processor->initializeForRender(&error))
            processor->setInitialized(true);
        else // not initialised, it passes audio through
            VEKLog(QStringLiteral("The processor %1 could not be prepared: %2").arg(processor->name(), error.text()));
    }
    // Only a running stream is heard changing; a stopped one starts with the new processor.
    const bool fades = isRunning() && m_positions[size_t(slot)].dock->crossfadeDuration() > 0.0;
    std::unique_ptr<VEKAudioRenderPlan> plan = fades ? bakePlan(slot, previous) : bakePlan();
    // The processor taken out is uninitialised once no plan renders it any more: that is the
    // plan being replaced, or with a crossfade the new one, which fades it out.
    if (previous) {
        if (fades)
            plan->releasedProcessors.push_back(previous);
        else if (VEKAudioRenderPlan *current = m_plan.current())
            current->releasedProcessors.push_back(previous);
    }
    publishPlan(std::move(plan));
    if (fades && previous) {
        // Once the fade is over, a plan without the old processor lets it go.
        const int ms = int(std::ceil(m_positions[size_t(slot)].dock->crossfadeDuration() * 1000.0)) + 100;
        QTimer::singleShot(ms, this, [this, weak = std::weak_ptr<VEKAudioProcessor>(previous)] {
            if (m_initialized && !weak.expired())
                publishPlan(bakePlan());
        });
    }
}
