// Reading a stream's description into its nodes and connections, and checking the shape of the
// graph before anything runs. The format is documented in VEKAudioStream.h.

#include "VEKAudioStreamBuilder.h"

#include "VEKAudioDock.h"
#include "VEKAudioGraphError.h"
#include "VEKAudioSinkProcessor.h"
#include "VEKConductorAudioProcessor.h"

#include <QVariantList>

namespace {

const QString kProcessors = QStringLiteral("processors");
const QString kChains = QStringLiteral("chains");
const QString kConnections = QStringLiteral("connections");
const QString kFormat = QStringLiteral("format");
const QString kIdentifier = QStringLiteral("identifier");
const QString kClass = QStringLiteral("class");
const QString kSettings = QStringLiteral("settings");

bool isMap(const QVariant &v) { return v.metaType().id() == QMetaType::QVariantMap; }
bool isList(const QVariant &v) { return v.metaType().id() == QMetaType::QVariantList; }
bool isString(const QVariant &v) { return v.metaType().id() == QMetaType::QString; }

} // namespace

VEKAudioStreamBuilder::VEKAudioStreamBuilder(VEKAudioStream &stream) : m_stream(stream) {}

bool VEKAudioStreamBuilder::fail(VEKError *error, qint64 code, const char *key, const QString &arg,
                                 const QString &reason)
{
    VEKError::set(error, VEKAudioGraphError::make(VEKAudioGraphError::Code(code), key, arg, reason));
    return false;
}

bool VEKAudioStreamBuilder::malformed(VEKError *error, const QString &reason)
{
    return fail(error, VEKAudioGraphError::MalformedDescription, "Error_graphMalformed", QString(), reason);
}

bool VEKAudioStreamBuilder::build(const QVariantMap &description, VEKError *error)
{
    if (!readFormat(description, error))
        return false;
    const QVariant processors = description.value(kProcessors);
    if (processors.isValid() && !isList(processors))
        return malformed(error, QStringLiteral("“processors” is not an array"));
    const QVariantList entries = processors.toList();
    for (qsizetype i = 0; i < entries.size(); ++i) {
        const QString where = QStringLiteral("processors[%1]").arg(i);
        if (!isMap(entries[i]))
            return malformed(error, QStringLiteral("%1 is not a dictionary").arg(where));
        if (addProcessor(entries[i].toMap(), where, error) < 0)
            return false;
    }
    return readChains(description, error) && readConnections(description, error) && validate(error);
}

bool VEKAudioStreamBuilder::readFormat(const QVariantMap &description, VEKError *error)
{
    const QVariant format = description.value(kFormat);
    if (!format.isValid())
        return true;
    if (!isMap(format))
        return malformed(error, QStringLiteral("“format” is not a dictionary"));
    const QVariantMap f = format.toMap();
    if (f.contains(QStringLiteral("sampleRate"))) {
        const double rate = f.value(QStringLiteral("sampleRate")).toDouble();
        if (!(rate > 0.0))
            return malformed(error, QStringLiteral("“format” has no usable sampleRate"));
        m_stream.m_requestedFormat.sampleRate = rate;
    }
    if (f.contains(QStringLiteral("numberOfChannels"))) {
        const quint32 channels = f.value(QStringLiteral("numberOfChannels")).toUInt();
        if (channels < 1 || channels > 64)
            return malformed(error, QStringLiteral("“format” has no usable numberOfChannels"));
        m_stream.m_requestedFormat.numberOfChannels = channels;
    }
    return true;
}

int VEKAudioStreamBuilder::addProcessor(const QVariantMap &entry, const QString &where, VEKError *error)
{
    const QVariant identifier = entry.value(kIdentifier);
    if (identifier.isValid() && (!isString(identifier) || identifier.toString().isEmpty())) {
        malformed(error, QStringLiteral("%1 has an identifier that is not a string").arg(where));
        return -1;
    }
    const QString id = identifier.toString();
    if (!id.isEmpty() && m_stream.m_slots.contains(id)) {
        fail(error, VEKAudioGraphError::DuplicateIdentifier, "Error_graphDuplicateIdentifier", id, where);
        return -1;
    }
    const QVariant cls = entry.value(kClass);
    if (!isString(cls) || cls.toString().isEmpty()) {
        malformed(error, QStringLiteral("%1 names no class").arg(where));
        return -1;
    }
    VEKError made;
    VEKAudioProcessorPtr processor = VEKAudioProcessor::processorWithClass(cls.toString(), &made);
    if (!processor) {
        const QString culprit = id.isEmpty() ? where : QStringLiteral("%1 (%2)").arg(id, where);
        VEKError::set(error, VEKError(made.domain(), made.code(), made.localizedDescription(), culprit));
        return -1;
    }
    const QVariant settings = entry.value(kSettings);
    if (settings.isValid()) {
        if (!isMap(settings)) {
            malformed(error, QStringLiteral("the settings of %1 are not a dictionary").arg(where));
            return -1;
        }
        if (!processor->setSettings(settings.toMap(), error))
            return -1;
    }
    VEKAudioStream::Position position;
    position.identifier = id;
    position.processor = std::move(processor);
    position.dock = qobject_cast<VEKAudioDock *>(position.processor.get());
    const int slot = int(m_stream.m_positions.size());
    m_stream.m_positions.push_back(std::move(position));
    if (!id.isEmpty())
        m_stream.m_slots.insert(id, slot);
    return slot;
}

int VEKAudioStreamBuilder::resolve(const QVariant &item, const QString &where, VEKError *error)
{
    if (isMap(item))
        return addProcessor(item.toMap(), where, error);
    if (!isString(item)) {
        malformed(error, QStringLiteral("%1 is neither an identifier nor a processor").arg(where));
        return -1;
    }
    const int slot = m_stream.m_slots.value(item.toString(), -1);
    if (slot < 0)
        fail(error, VEKAudioGraphError::UnknownIdentifier, "Error_graphUnknownIdentifier", item.toString(), where);
    return slot;
}

bool VEKAudioStreamBuilder::readChains(const QVariantMap &description, VEKError *error)
{
    const QVariant chains = description.value(kChains);
    if (!chains.isValid())
        return true;
    if (!isList(chains))
        return malformed(error, QStringLiteral("“chains” is not an array"));
    const QVariantList list = chains.toList();
    for (qsizetype c = 0; c < list.size(); ++c) {
        if (!isList(list[c]))
            return malformed(error, QStringLiteral("chains[%1] is not an array").arg(c));
        const QVariantList items = list[c].toList();
        int previous = -1;
        for (qsizetype i = 0; i < items.size(); ++i) {
            const QString where = QStringLiteral("chains[%1][%2]").arg(c).arg(i);
            const int slot = resolve(items[i], where, error);
            if (slot < 0)
                return false;
            if (previous >= 0 && !connect(previous, slot, QString(), true, 0, where, error))
                return false;
            previous = slot;
        }
    }
    return true;
}

bool VEKAudioStreamBuilder::readConnections(const QVariantMap &description, VEKError *error)
{
    const QVariant connections = description.value(kConnections);
    if (!connections.isValid())
        return true;
    if (!isList(connections))
        return malformed(error, QStringLiteral("“connections” is not an array"));
    const QVariantList list = connections.toList();
    for (qsizetype i = 0; i < list.size(); ++i) {
        const QString where = QStringLiteral("connections[%1]").arg(i);
        if (!isMap(list[i]))
            return malformed(error, QStringLiteral("%1 is not a dictionary").arg(where));
        const QVariantMap entry = list[i].toMap();
        const QVariant from = entry.value(QStringLiteral("from"));
        const QVariant to = entry.value(QStringLiteral("to"));
        if (!isString(from) || !isString(to))
            return malformed(error, QStringLiteral("%1 lacks “from” or “to”").arg(where));
        const int source = resolve(from, where, error);
        if (source < 0)
            return false;
        const int destination = resolve(to, where, error);
        if (destination < 0)
            return false;
        const QString id = entry.value(kIdentifier).toString();
        if (!id.isEmpty() && m_stream.m_namedConnections.contains(id))
            return fail(error, VEKAudioGraphError::DuplicateIdentifier, "Error_graphDuplicateIdentifier", id, where);
        const bool active = entry.value(QStringLiteral("active"), true).toBool();
        const quint32 channels = entry.value(QStringLiteral("numberOfChannels"), 0).toUInt();
        if (channels > 64)
            return malformed(error, QStringLiteral("%1 has an unusable numberOfChannels").arg(where));
        if (!connect(source, destination, id, active, channels, where, error))
            return false;
    }
    return true;
}

bool VEKAudioStreamBuilder::connect(int from, int to, const QString &identifier, bool active, quint32 channels,
                                    const QString &where, VEKError *error)
{
    auto &positions = m_stream.m_positions;
    const auto name = [&](int slot) {
        return positions[size_t(slot)].identifier.isEmpty() ? positions[size_t(slot)].processor->className()
                                                            : positions[size_t(slot)].identifier;
    };
    if (positions[size_t(from)].output >= 0)
        return fail(error, VEKAudioGraphError::BadTopology, "Error_graphTopology", name(from),
                    QStringLiteral("%1: “%2” already feeds another processor").arg(where, name(from)));
    if (!positions[size_t(to)].inputs.empty() && !positions[size_t(to)].processor->acceptsMultipleInputs())
        return fail(error, VEKAudioGraphError::BadTopology, "Error_graphTopology", name(to),
                    QStringLiteral("%1: “%2” takes one input and is not a mixer").arg(where, name(to)));
    auto connection = std::make_unique<VEKAudioConnection>(identifier, from, to);
    connection->setActive(active);
    connection->setFixedNumberOfChannels(channels);
    const int index = int(m_stream.m_connections.size());
    positions[size_t(from)].output = index;
    positions[size_t(to)].inputs.push_back(index);
    if (!identifier.isEmpty())
        m_stream.m_namedConnections.insert(identifier, connection.get());
    m_stream.m_connections.push_back(std::move(connection));
    return true;
}

bool VEKAudioStreamBuilder::validate(VEKError *error)
{
    auto &positions = m_stream.m_positions;
    const auto name = [&](size_t slot) {
        return positions[slot].identifier.isEmpty() ? positions[slot].processor->className() : positions[slot].identifier;
    };
    int sink = -1;
    for (size_t slot = 0; slot < positions.size(); ++slot) {
        VEKAudioProcessor *p = positions[slot].processor.get();
        if (auto *s = qobject_cast<VEKAudioSinkProcessor *>(p)) {
            if (sink >= 0)
                return fail(error, VEKAudioGraphError::BadTopology, "Error_graphTopology", name(slot),
                            QStringLiteral("a graph has one sink, and “%1” is a second one").arg(name(slot)));
            if (positions[slot].output >= 0)
                return fail(error, VEKAudioGraphError::BadTopology, "Error_graphTopology", name(slot),
                            QStringLiteral("the sink “%1” feeds another processor").arg(name(slot)));
            sink = int(slot);
            m_stream.m_sink = s;
        }
        if (!m_stream.m_conductor)
            m_stream.m_conductor = qobject_cast<VEKConductorAudioProcessor *>(p);
        // Each node has one output at most, so following outputs from a node either ends or
        // comes back: a cycle.
        size_t at = slot;
        for (size_t steps = 0; steps <= positions.size(); ++steps) {
            const int out = positions[at].output;
            if (out < 0)
                break;
            at = size_t(m_stream.m_connections[size_t(out)]->destinationSlot());
            if (at == slot)
                return fail(error, VEKAudioGraphError::BadTopology, "Error_graphTopology", name(slot),
                            QStringLiteral("“%1” feeds itself through a cycle").arg(name(slot)));
        }
    }
    if (sink < 0)
        return fail(error, VEKAudioGraphError::BadTopology, "Error_graphTopology", QStringLiteral("—"),
                    QStringLiteral("the graph has no sink (hardware or file writer)"));
    m_stream.m_sinkSlot = sink;
    return true;
}
