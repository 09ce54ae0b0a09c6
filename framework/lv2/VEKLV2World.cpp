#include "lv2/VEKLV2World.h"

#include "core/VEKLocalizedString.h"
#include "lv2/VEKLV2WorldImpl.h"

#include <lv2/atom/atom.h>
#include <lv2/buf-size/buf-size.h>
#include <lv2/core/lv2.h>
#include <lv2/log/log.h>
#include <lv2/midi/midi.h>
#include <lv2/options/options.h>
#include <lv2/parameters/parameters.h>
#include <lv2/port-props/port-props.h>
#include <lv2/resize-port/resize-port.h>
#include <lv2/state/state.h>
#include <lv2/units/units.h>
#include <lv2/urid/urid.h>

#include <cstring>

namespace {

// LV2 has no numeric codes; the records want some. FNV-1a keeps them stable between runs.
quint32 hash32(const QString &text)
{
    quint32 h = 2166136261u;
    for (const char c : text.toUtf8()) {
        h ^= quint8(c);
        h *= 16777619u;
    }
    return h;
}

QString takeString(LilvNode *node)
{
    QString s = VEKLV2NodeString(node);
    lilv_node_free(node);
    return s;
}

} // namespace

QString VEKLV2NodeString(const LilvNode *node)
{
    if (!node)
        return {};
    if (lilv_node_is_uri(node))
        return QString::fromUtf8(lilv_node_as_uri(node));
    return QString::fromUtf8(lilv_node_as_string(node));
}

VEKLV2World::Impl::Impl()
{
    world = lilv_world_new();
    // A dynamic manifest would run plugin code just to list plugins.
    LilvNode *no = lilv_new_bool(world, false);
    lilv_world_set_option(world, LILV_OPTION_DYN_MANIFEST, no);
    lilv_node_free(no);
    lilv_world_load_all(world);

    const auto uri = [this](const char *u) { return lilv_new_uri(world, u); };
    audioPort = uri(LV2_CORE__AudioPort);
    controlPort = uri(LV2_CORE__ControlPort);
    cvPort = uri(LV2_CORE__CVPort);
    atomPort = uri(LV2_ATOM__AtomPort);
    eventPort = uri("http://lv2plug.in/ns/ext/event#EventPort");
    inputPort = uri(LV2_CORE__InputPort);
    outputPort = uri(LV2_CORE__OutputPort);
    atomSupports = uri(LV2_ATOM__supports);
    midiEvent = uri(LV2_MIDI__MidiEvent);
    minimumSize = uri(LV2_RESIZE_PORT__minimumSize);
    connectionOptional = uri(LV2_CORE__connectionOptional);
    toggled = uri(LV2_CORE__toggled);
    integer = uri(LV2_CORE__integer);
    enumeration = uri(LV2_CORE__enumeration);
    logarithmic = uri(LV2_PORT_PROPS__logarithmic);
    sampleRate = uri(LV2_CORE__sampleRate);
    requiredOption = uri(LV2_OPTIONS__requiredOption);
    stateInterface = uri(LV2_STATE__interface);
    designation = uri(LV2_CORE__designation);
    left = uri("http://lv2plug.in/ns/ext/port-groups#left");
    right = uri("http://lv2plug.in/ns/ext/port-groups#right");
    unitsUnit = uri(LV2_UNITS__unit);
    unitsSymbol = uri(LV2_UNITS__symbol);
}

VEKLV2World::Impl::~Impl()
{
    for (LilvNode *n : {audioPort, controlPort, cvPort, atomPort, eventPort, inputPort, outputPort,
                        atomSupports, midiEvent, minimumSize, connectionOptional, toggled, integer,
                        enumeration, logarithmic, sampleRate, requiredOption, stateInterface,
                        designation, left, right, unitsUnit, unitsSymbol})
        lilv_node_free(n);
    lilv_world_free(world);
}

bool VEKLV2World::Impl::isSupportedFeature(const char *uri)
{
    // Features we pass (the first five), and properties some plugins list as features that ask
    // nothing of the host beyond what we do anyway: we never run in place (inputs are copied),
    // and we run in real time.
    static const char *const supported[] = {
        LV2_URID__map,           LV2_URID__unmap,        LV2_OPTIONS__options,
        LV2_BUF_SIZE__boundedBlockLength, LV2_LOG__log,  LV2_CORE__hardRTCapable,
        LV2_CORE__isLive,        LV2_CORE__inPlaceBroken,
    };
    for (const char *s : supported)
        if (std::strcmp(s, uri) == 0)
            return true;
    return false;
}

bool VEKLV2World::Impl::isSupportedOption(const char *uri)
{
    static const char *const supported[] = {
        LV2_BUF_SIZE__minBlockLength, LV2_BUF_SIZE__maxBlockLength, LV2_BUF_SIZE__nominalBlockLength,
        LV2_BUF_SIZE__sequenceSize,   LV2_PARAMETERS__sampleRate,
    };
    for (const char *s : supported)
        if (std::strcmp(s, uri) == 0)
            return true;
    return false;
}

const LilvPlugin *VEKLV2World::Impl::plugin(const QString &uriText) const
{
    if (uriText.isEmpty())
        return nullptr;
    LilvNode *node = lilv_new_uri(world, uriText.toUtf8().constData());
    const LilvPlugin *p = lilv_plugins_get_by_uri(lilv_world_get_all_plugins(world), node);
    lilv_node_free(node);
    return p;
}

VEKLV2PluginLayout VEKLV2World::Impl::analyse(const LilvPlugin *p) const
{
    VEKLV2PluginLayout layout;
    const auto refuse = [&layout](const QString &reason) {
        if (layout.refusal.isEmpty())
            layout.refusal = reason;
    };
    if (!lilv_plugin_verify(p))
        refuse(QStringLiteral("its description is incomplete"));

    const quint32 count = lilv_plugin_get_num_ports(p);
    layout.roles.assign(count, VEKLV2PortRole::Unused);
    layout.atomCapacity.assign(count, 0);
    for (quint32 i = 0; i < count; ++i) {
        const LilvPort *port = lilv_plugin_get_port_by_index(p, i);
        const bool in = lilv_port_is_a(p, port, inputPort);
        const bool out = lilv_port_is_a(p, port, outputPort);
        const QString symbol = VEKLV2NodeString(lilv_port_get_symbol(p, port));
        if (in == out) {
            refuse(QStringLiteral("port \"%1\" is neither an input nor an output").arg(symbol));
            continue;
        }
        if (lilv_port_is_a(p, port, audioPort)) {
            layout.roles[i] = in ? VEKLV2PortRole::AudioIn : VEKLV2PortRole::AudioOut;
            (in ? layout.audioInputs : layout.audioOutputs)++;
        } else if (lilv_port_is_a(p, port, controlPort)) {
            layout.roles[i] = in ? VEKLV2PortRole::ControlIn : VEKLV2PortRole::ControlOut;
        } else if (lilv_port_is_a(p, port, atomPort)) {
            layout.roles[i] = in ? VEKLV2PortRole::AtomIn : VEKLV2PortRole::AtomOut;
            quint32 capacity = MinimumAtomCapacity;
            if (LilvNode *min = lilv_port_get(p, port, minimumSize)) {
                if (lilv_node_is_int(min) && lilv_node_as_int(min) > int(capacity))
                    capacity = quint32(lilv_node_as_int(min));
                lilv_node_free(min);
            }
            layout.atomCapacity[i] = capacity;
            if (in && lilv_port_supports_event(p, port, midiEvent))
                layout.takesMIDI = true;
        } else if (out && lilv_port_is_a(p, port, cvPort)) {
            layout.roles[i] = VEKLV2PortRole::CVOut;
        } else if (lilv_port_has_property(p, port, connectionOptional)) {
            layout.roles[i] = VEKLV2PortRole::Unused;
        } else {
            refuse(QStringLiteral("port \"%1\" is of a kind this player cannot feed").arg(symbol));
        }
    }
    if (!((layout.audioInputs == 1 && layout.audioOutputs == 1) ||
          (layout.audioInputs == 2 && layout.audioOutputs == 2)))
        refuse(QStringLiteral("it has %1 audio inputs and %2 audio outputs; only mono (1 in, 1 out) "
                              "and stereo (2 in, 2 out) effects can run")
                   .arg(layout.audioInputs)
                   .arg(layout.audioOutputs));

    LilvNodes *required = lilv_plugin_get_required_features(p);
    LILV_FOREACH (nodes, it, required) {
        const LilvNode *feature = lilv_nodes_get(required, it);
        if (!isSupportedFeature(lilv_node_as_uri(feature)))
            refuse(QStringLiteral("it needs the feature %1").arg(VEKLV2NodeString(feature)));
    }
    lilv_nodes_free(required);

    LilvNodes *options = lilv_plugin_get_value(p, requiredOption);
    LILV_FOREACH (nodes, it, options) {
        const LilvNode *option = lilv_nodes_get(options, it);
        if (!lilv_node_is_uri(option) || !isSupportedOption(lilv_node_as_uri(option)))
            refuse(QStringLiteral("it needs the option %1").arg(VEKLV2NodeString(option)));
    }
    lilv_nodes_free(options);

    if (lilv_plugin_has_latency(p))
        layout.latencyPort = int(lilv_plugin_get_latency_port_index(p));
    layout.hasState = lilv_plugin_has_extension_data(p, stateInterface);
    return layout;
}

QVariantMap VEKLV2World::Impl::describe(const LilvPlugin *p, const VEKLV2PluginLayout &layout) const
{
    const QString uri = VEKLV2NodeString(lilv_plugin_get_uri(p));
    QString name = takeString(lilv_plugin_get_name(p));
    if (name.isEmpty())
        name = uri;
    QString maker = takeString(lilv_plugin_get_author_name(p));
    if (maker.isEmpty()) {
        if (LilvNode *project = lilv_plugin_get_project(p)) {
            LilvNode *doapName = lilv_new_uri(world, "http://usefulinc.com/ns/doap#name");
            maker = takeString(lilv_world_get(world, project, doapName, nullptr));
            lilv_node_free(doapName);
            lilv_node_free(project);
        }
    }
    if (maker.isEmpty())
        maker = VEKLocalizedString("APLAudioUnitAudioProcessor_unknownManufacturer");

    const quint32 type = layout.takesMIDI ? VEKLV2World::MusicEffectType : VEKLV2World::EffectType;
    QVariantMap d;
    d.insert(QStringLiteral("class"), QString::fromLatin1(VEKLV2World::ProcessorClass));
    d.insert(QStringLiteral("uri"), uri);
    d.insert(QStringLiteral("name"), name);
    d.insert(QStringLiteral("effectName"), name);
    d.insert(QStringLiteral("manufacturer"), maker);
    d.insert(QStringLiteral("componentType"), type);
    d.insert(QStringLiteral("componentSubType"), hash32(uri));
    d.insert(QStringLiteral("componentManufacturer"), hash32(maker));
    d.insert(QStringLiteral("channelConfigurations"),
             QVariantList{QVariant(QVariantList{int(layout.audioInputs), int(layout.audioOutputs)})});
    d.insert(QStringLiteral("numberOfInputs"), layout.audioInputs);
    d.insert(QStringLiteral("numberOfOutputs"), layout.audioOutputs);
    d.insert(QStringLiteral("category"),
             VEKLV2NodeString(lilv_plugin_class_get_label(lilv_plugin_get_class(p))));
    return d;
}

VEKLV2World::VEKLV2World() : d(std::make_unique<Impl>()) {}

VEKLV2World::~VEKLV2World() = default;

VEKLV2World &VEKLV2World::shared()
{
    // Never destroyed: instances may outlive any static that would tear it down at exit, and
    // their plugin libraries belong to it.
    static VEKLV2World *world = new VEKLV2World;
    return *world;
}

QVariantList VEKLV2World::effectDescriptions(quint32 type)
{
    QVariantList result;
    if (type != EffectType && type != MusicEffectType)
        return result;
    std::lock_guard lock(d->mutex);
    const LilvPlugins *plugins = lilv_world_get_all_plugins(d->world);
    LILV_FOREACH (plugins, it, plugins) {
        const LilvPlugin *p = lilv_plugins_get(plugins, it);
        if (lilv_plugin_is_replaced(p))
            continue;
        const VEKLV2PluginLayout layout = d->analyse(p);
        if (!layout.refusal.isEmpty())
            continue;
        if ((type == MusicEffectType) != layout.takesMIDI)
            continue;
        result.append(d->describe(p, layout));
    }
    return result;
}

QVariantMap VEKLV2World::effectDescription(const QString &uri, VEKError *error)
{
    std::lock_guard lock(d->mutex);
    const LilvPlugin *p = d->plugin(uri);
    if (!p) {
        VEKError::set(error, VEKError(QString::fromLatin1(ErrorDomain), UnknownPlugin,
                                      VEKLocalizedString("Error_effectMissing"), uri));
        return {};
    }
    const VEKLV2PluginLayout layout = d->analyse(p);
    if (!layout.refusal.isEmpty()) {
        VEKError::set(error, VEKError(QString::fromLatin1(ErrorDomain), UnsupportedPlugin,
                                      VEKLocalizedString("Error_effectUnsupported"),
                                      uri + QStringLiteral(": ") + layout.refusal));
        return {};
    }
    return d->describe(p, layout);
}
