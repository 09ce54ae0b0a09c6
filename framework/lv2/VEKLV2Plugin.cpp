#include "lv2/VEKLV2Plugin.h"

#include "core/VEKLocalizedString.h"
#include "core/VEKLog.h"
#include "core/VEKVariant.h"
#include "lv2/VEKLV2WorldImpl.h"

#include <QHash>

#include <lv2/atom/atom.h>
#include <lv2/buf-size/buf-size.h>
#include <lv2/log/log.h>
#include <lv2/options/options.h>
#include <lv2/parameters/parameters.h>
#include <lv2/state/state.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <limits>

namespace {

// Set while this thread is inside process(), so that a plugin logging from run() is muted
// instead of making the render thread format text and take the log's lock.
thread_local bool t_rendering = false;

struct RenderScope {
    RenderScope() { t_rendering = true; }
    ~RenderScope() { t_rendering = false; }
};

VEKError lv2Error(VEKLV2World::ErrorCode code, const char *textKey, const QString &reason)
{
    return VEKError(QString::fromLatin1(VEKLV2World::ErrorDomain), code, VEKLocalizedString(textKey),
                    reason);
}

float nodeFloat(const LilvNode *node, float fallback)
{
    if (node && (lilv_node_is_float(node) || lilv_node_is_int(node))) {
        const float v = lilv_node_as_float(node);
        if (std::isfinite(v))
            return v;
    }
    return fallback;
}

} // namespace

struct VEKLV2Plugin::Impl {
    VEKLV2World::Impl *world = nullptr;
    const LilvPlugin *plugin = nullptr; // owned by the world, which outlives us
    QString uri;
    QString name;
    double sampleRate = 0;
    quint32 maximumFrames = 0;
    VEKLV2PluginLayout layout;

    std::vector<ControlPort> controls;
    std::vector<int> controlOfPort; // port index -> index in `controls`, or -1
    std::vector<quint32> controlInputs;  // indexes into `controls`
    std::vector<quint32> controlOutputs; // indexes into `controls`
    int latencyControl = -1;

    std::vector<LilvInstance *> instances;
    std::vector<quint32> audioIn, audioOut; // port indexes, in port order

    // Control inputs are only read by the plugin, so the instances share one array (by port
    // index). Outputs, atom and CV buffers are written, so each instance has its own.
    std::vector<float> controlIn;
    std::vector<std::vector<float>> controlOut;
    std::vector<std::vector<std::vector<quint64>>> atoms; // [instance][port], 8-byte aligned
    std::vector<std::vector<std::vector<float>>> cv;      // [instance][port]
    std::array<std::vector<float>, 2> inputCopy;          // this block's input, per channel
    std::array<std::vector<float>, 2> outputScratch;      // where outputs point while idle

    // Features.
    LV2_URID atomSequence = 0, atomChunk = 0;
    qint32 minBlock = 0, maxBlock = 0, nominalBlock = 0, sequenceSize = 0;
    float rateOption = 0;
    std::array<LV2_Options_Option, 6> options{};
    LV2_Log_Log log{};
    LV2_Feature mapFeature{}, unmapFeature{}, optionsFeature{}, boundedFeature{}, logFeature{};
    std::array<const LV2_Feature *, 6> features{};

    void setUpFeatures();
    void setUpControls();
    // The symbol of a port's unit: the unit's own units:symbol when the world knows it, else
    // the name the unit URI ends in, mapped for the common ones.
    QString unitSymbol(const LilvPort *port) const;
    void allocate();
    void connectFixedPorts(quint32 instance);
    void prepareAtoms(quint32 instance);

    static int logPrintf(LV2_Log_Handle handle, LV2_URID type, const char *fmt, ...);
    static int logVPrintf(LV2_Log_Handle handle, LV2_URID type, const char *fmt, va_list ap);
};

int VEKLV2Plugin::Impl::logVPrintf(LV2_Log_Handle handle, LV2_URID, const char *fmt, va_list ap)
{
    if (t_rendering)
        return 0;
    char text[1024];
    const int n = std::vsnprintf(text, sizeof text, fmt, ap);
    const auto *self = static_cast<const Impl *>(handle);
    VEKLog(QStringLiteral("LV2 %1: %2").arg(self->uri, QString::fromUtf8(text).trimmed()));
    return n;
}

int VEKLV2Plugin::Impl::logPrintf(LV2_Log_Handle handle, LV2_URID type, const char *fmt, ...)
{
    va_list ap;
    va_start(ap, fmt);
    const int n = logVPrintf(handle, type, fmt, ap);
    va_end(ap);
    return n;
}

void VEKLV2Plugin::Impl::setUpFeatures()
{
    VEKLV2URIDMap &urids = world->urids;
    atomSequence = urids.map(LV2_ATOM__Sequence);
    atomChunk = urids.map(LV2_ATOM__Chunk);

    minBlock = 1;
    maxBlock = qint32(maximumFrames);
    nominalBlock = qint32(maximumFrames);
    sequenceSize = qint32(VEKLV2World::Impl::MinimumAtomCapacity);
    for (const quint32 capacity : layout.atomCapacity)
        if (capacity)
            sequenceSize = std::min(sequenceSize, qint32(capacity));
    rateOption = float(sampleRate);

    const LV2_URID atomInt = urids.map(LV2_ATOM__Int);
    const LV2_URID atomFloat = urids.map(LV2_ATOM__Float);
    const auto option = [](LV2_URID key, LV2_URID type, const void *value, uint32_t size) {
        return LV2_Options_Option{LV2_OPTIONS_INSTANCE, 0, key, size, type, value};
    };
    options[0] = option(urids.map(LV2_BUF_SIZE__minBlockLength), atomInt, &minBlock, sizeof minBlock);
    options[1] = option(urids.map(LV2_BUF_SIZE__maxBlockLength), atomInt, &maxBlock, sizeof maxBlock);
    options[2] = option(urids.map(LV2_BUF_SIZE__nominalBlockLength), atomInt, &nominalBlock,
                        sizeof nominalBlock);
    options[3] = option(urids.map(LV2_BUF_SIZE__sequenceSize), atomInt, &sequenceSize,
                        sizeof sequenceSize);
    options[4] = option(urids.map(LV2_PARAMETERS__sampleRate), atomFloat, &rateOption,
                        sizeof rateOption);
    options[5] = LV2_Options_Option{LV2_OPTIONS_INSTANCE, 0, 0, 0, 0, nullptr};

    log.handle = this;
    log.printf = logPrintf;
    log.vprintf = logVPrintf;

    mapFeature = {LV2_URID__map, urids.mapFeature()};
    unmapFeature = {LV2_URID__unmap, urids.unmapFeature()};
    optionsFeature = {LV2_OPTIONS__options, options.data()};
    boundedFeature = {LV2_BUF_SIZE__boundedBlockLength, nullptr};
    logFeature = {LV2_LOG__log, &log};
    features = {&mapFeature, &unmapFeature, &optionsFeature, &boundedFeature, &logFeature, nullptr};
}

QString VEKLV2Plugin::Impl::unitSymbol(const LilvPort *port) const
{
    LilvNode *unit = lilv_port_get(plugin, port, world->unitsUnit);
    if (!unit)
        return QString();
    QString symbol;
    if (LilvNode *s = lilv_world_get(world->world, unit, world->unitsSymbol, nullptr)) {
        symbol = VEKLV2NodeString(s);
        lilv_node_free(s);
    }
    if (symbol.isEmpty() && lilv_node_is_uri(unit)) {
        // The units ontology may not be installed: the well-known units by their names.
        static const QHash<QString, QString> known = {
            {QStringLiteral("db"), QStringLiteral("dB")},   {QStringLiteral("hz"), QStringLiteral("Hz")},
            {QStringLiteral("khz"), QStringLiteral("kHz")}, {QStringLiteral("mhz"), QStringLiteral("MHz")},
            {QStringLiteral("ms"), QStringLiteral("ms")},   {QStringLiteral("s"), QStringLiteral("s")},
            {QStringLiteral("pc"), QStringLiteral("%")},    {QStringLiteral("cent"), QStringLiteral("ct")},
            {QStringLiteral("semitone12TET"), QStringLiteral("semi")},
            {QStringLiteral("bpm"), QStringLiteral("BPM")}, {QStringLiteral("degree"), QStringLiteral("°")},
        };
        const QString uri = VEKLV2NodeString(unit);
        const QString name = uri.mid(uri.lastIndexOf(u'#') + 1);
        symbol = known.value(name, name);
    }
    lilv_node_free(unit);
    return symbol;
}

void VEKLV2Plugin::Impl::setUpControls()
{
    const quint32 count = quint32(layout.roles.size());
    controlOfPort.assign(count, -1);
    for (quint32 i = 0; i < count; ++i) {
        const VEKLV2PortRole role = layout.roles[i];
        if (role != VEKLV2PortRole::ControlIn && role != VEKLV2PortRole::ControlOut)
            continue;
        const LilvPort *port = lilv_plugin_get_port_by_index(plugin, i);
        ControlPort c;
        c.portIndex = i;
        c.output = role == VEKLV2PortRole::ControlOut;
        c.symbol = VEKLV2NodeString(lilv_port_get_symbol(plugin, port));
        LilvNode *nameNode = lilv_port_get_name(plugin, port);
        c.name = VEKLV2NodeString(nameNode);
        lilv_node_free(nameNode);
        if (c.name.isEmpty())
            c.name = c.symbol;
        c.toggled = lilv_port_has_property(plugin, port, world->toggled);
        c.integer = lilv_port_has_property(plugin, port, world->integer);
        c.enumeration = lilv_port_has_property(plugin, port, world->enumeration);
        c.logarithmic = lilv_port_has_property(plugin, port, world->logarithmic);
        c.isLatency = int(i) == layout.latencyPort;
        c.unit = unitSymbol(port);

        LilvNode *def = nullptr, *min = nullptr, *max = nullptr;
        lilv_port_get_range(plugin, port, &def, &min, &max);
        c.minimum = nodeFloat(min, 0.f);
        c.maximum = nodeFloat(max, 1.f);
        c.defaultValue = nodeFloat(def, c.minimum);
        lilv_node_free(def);
        lilv_node_free(min);
        lilv_node_free(max);
        if (lilv_port_has_property(plugin, port, world->sampleRate)) {
            c.minimum *= float(sampleRate);
            c.maximum *= float(sampleRate);
            c.defaultValue *= float(sampleRate);
        }
        if (c.toggled) {
            c.minimum = 0;
            c.maximum = 1;
        }
        if (c.minimum > c.maximum)
            std::swap(c.minimum, c.maximum);
        c.defaultValue = std::clamp(c.defaultValue, c.minimum, c.maximum);

        if (LilvScalePoints *points = lilv_port_get_scale_points(plugin, port)) {
            LILV_FOREACH (scale_points, it, points) {
                const LilvScalePoint *point = lilv_scale_points_get(points, it);
                c.scalePoints.push_back({nodeFloat(lilv_scale_point_get_value(point), 0),
                                         VEKLV2NodeString(lilv_scale_point_get_label(point))});
            }
            lilv_scale_points_free(points);
            std::sort(c.scalePoints.begin(), c.scalePoints.end(),
                      [](const ScalePoint &a, const ScalePoint &b) { return a.value < b.value; });
        }

        const auto index = quint32(controls.size());
        controlOfPort[i] = int(index);
        (c.output ? controlOutputs : controlInputs).push_back(index);
        if (c.isLatency)
            latencyControl = int(index);
        controls.push_back(std::move(c));
    }
}

void VEKLV2Plugin::Impl::allocate()
{
    const size_t count = layout.roles.size();
    const size_t n = layout.audioInputs == 1 ? 2 : 1;
    controlIn.assign(count, 0.f);
    for (const ControlPort &c : controls)
        if (!c.output)
            controlIn[c.portIndex] = c.defaultValue;
    controlOut.assign(n, std::vector<float>(count, 0.f));
    atoms.assign(n, std::vector<std::vector<quint64>>(count));
    cv.assign(n, std::vector<std::vector<float>>(count));
    for (size_t k = 0; k < n; ++k) {
        for (size_t i = 0; i < count; ++i) {
            if (layout.atomCapacity[i])
                atoms[k][i].assign((layout.atomCapacity[i] + 7) / 8, 0);
            if (layout.roles[i] == VEKLV2PortRole::CVOut)
                cv[k][i].assign(maximumFrames, 0.f);
        }
    }
    for (size_t c = 0; c < 2; ++c) {
        inputCopy[c].assign(maximumFrames, 0.f);
        outputScratch[c].assign(maximumFrames, 0.f);
    }
    for (quint32 i = 0; i < count; ++i) {
        if (layout.roles[i] == VEKLV2PortRole::AudioIn)
            audioIn.push_back(i);
        else if (layout.roles[i] == VEKLV2PortRole::AudioOut)
            audioOut.push_back(i);
    }
    // Channels follow port order unless the plugin names its right port first.
    for (std::vector<quint32> *ports : {&audioIn, &audioOut}) {
        if (ports->size() != 2)
            continue;
        const auto is = [this](quint32 index, const LilvNode *side) {
            LilvNode *value = lilv_port_get(plugin, lilv_plugin_get_port_by_index(plugin, index),
                                            world->designation);
            const bool match = value && lilv_node_equals(value, side);
            lilv_node_free(value);
            return match;
        };
        if (is((*ports)[0], world->right) && is((*ports)[1], world->left))
            std::swap((*ports)[0], (*ports)[1]);
    }
}

// Everything but audio, which process() points at each block's buffers.
void VEKLV2Plugin::Impl::connectFixedPorts(quint32 k)
{
    LilvInstance *instance = instances[k];
    for (quint32 i = 0; i < layout.roles.size(); ++i) {
        void *where = nullptr;
        switch (layout.roles[i]) {
        case VEKLV2PortRole::ControlIn:
            where = &controlIn[i];
            break;
        case VEKLV2PortRole::ControlOut:
            where = &controlOut[k][i];
            break;
        case VEKLV2PortRole::AtomIn:
        case VEKLV2PortRole::AtomOut:
            where = atoms[k][i].data();
            break;
        case VEKLV2PortRole::CVOut:
            where = cv[k][i].data();
            break;
        case VEKLV2PortRole::AudioIn:
        case VEKLV2PortRole::AudioOut:
        case VEKLV2PortRole::Unused:
            break;
        }
        if (layout.roles[i] != VEKLV2PortRole::AudioIn && layout.roles[i] != VEKLV2PortRole::AudioOut)
            lilv_instance_connect_port(instance, i, where);
    }
    // Until the first block, audio points at our own memory, so that a plugin touching its
    // buffers in activate() finds something there.
    const quint32 channelsPerInstance = quint32(audioIn.size());
    for (quint32 c = 0; c < channelsPerInstance; ++c) {
        lilv_instance_connect_port(instance, audioIn[c], inputCopy[c].data());
        lilv_instance_connect_port(instance, audioOut[c], outputScratch[c].data());
    }
    prepareAtoms(k);
}

void VEKLV2Plugin::Impl::prepareAtoms(quint32 k)
{
    for (quint32 i = 0; i < layout.roles.size(); ++i) {
        if (layout.roles[i] == VEKLV2PortRole::AtomIn) {
            auto *seq = reinterpret_cast<LV2_Atom_Sequence *>(atoms[k][i].data());
            seq->atom.size = sizeof(LV2_Atom_Sequence_Body);
            seq->atom.type = atomSequence;
            seq->body.unit = 0;
            seq->body.pad = 0;
        } else if (layout.roles[i] == VEKLV2PortRole::AtomOut) {
            auto *atom = reinterpret_cast<LV2_Atom *>(atoms[k][i].data());
            atom->size = layout.atomCapacity[i] - quint32(sizeof(LV2_Atom));
            atom->type = atomChunk;
        }
    }
}

VEKLV2Plugin::VEKLV2Plugin() : d(std::make_unique<Impl>()) {}

VEKLV2Plugin::~VEKLV2Plugin()
{
    if (!d->world)
        return;
    deactivate();
    // Freeing an instance may close its library, which lilv tracks in the world.
    std::lock_guard lock(d->world->mutex);
    for (LilvInstance *instance : d->instances)
        lilv_instance_free(instance);
}

std::unique_ptr<VEKLV2Plugin> VEKLV2Plugin::create(const QString &uri, double sampleRate,
                                                   quint32 maximumFrames, VEKError *error)
{
    if (!(sampleRate > 0 && std::isfinite(sampleRate)) || maximumFrames == 0 ||
        maximumFrames > (1u << 24)) {
        VEKError::set(error, lv2Error(VEKLV2World::InstantiationFailed, "Error_effectStart",
                                      QStringLiteral("%1: no sample rate %2 or block size %3")
                                          .arg(uri)
                                          .arg(sampleRate)
                                          .arg(maximumFrames)));
        return nullptr;
    }
    VEKLV2World::Impl &world = VEKLV2World::shared().impl();
    std::lock_guard lock(world.mutex);
    const LilvPlugin *plugin = world.plugin(uri);
    if (!plugin) {
        VEKError::set(error, lv2Error(VEKLV2World::UnknownPlugin, "Error_effectMissing", uri));
        return nullptr;
    }
    VEKLV2PluginLayout layout = world.analyse(plugin);
    if (!layout.refusal.isEmpty()) {
        VEKError::set(error, lv2Error(VEKLV2World::UnsupportedPlugin, "Error_effectUnsupported",
                                      uri + QStringLiteral(": ") + layout.refusal));
        return nullptr;
    }

    std::unique_ptr<VEKLV2Plugin> self(new VEKLV2Plugin);
    Impl &d = *self->d;
    d.plugin = plugin;
    d.uri = uri;
    LilvNode *name = lilv_plugin_get_name(plugin);
    d.name = VEKLV2NodeString(name);
    lilv_node_free(name);
    d.sampleRate = sampleRate;
    d.maximumFrames = maximumFrames;
    d.layout = std::move(layout);
    // From here the destructor frees what has been made.
    d.world = &world;
    d.setUpFeatures();
    d.setUpControls();
    d.allocate();

    self->m_values = std::make_unique<std::atomic<float>[]>(d.controls.size());
    for (size_t i = 0; i < d.controls.size(); ++i)
        self->m_values[i].store(d.controls[i].defaultValue, std::memory_order_relaxed);

    const quint32 count = d.layout.audioInputs == 1 ? 2 : 1;
    for (quint32 k = 0; k < count; ++k) {
        LilvInstance *instance = lilv_plugin_instantiate(plugin, sampleRate, d.features.data());
        if (!instance) {
            VEKError::set(error, lv2Error(VEKLV2World::InstantiationFailed, "Error_effectStart",
                                          QStringLiteral("%1: the plugin did not start at %2 Hz")
                                              .arg(uri)
                                              .arg(sampleRate)));
            return nullptr;
        }
        d.instances.push_back(instance);
        d.connectFixedPorts(k);
    }
    return self;
}

std::unique_ptr<VEKLV2Plugin> VEKLV2Plugin::fromSettings(const QVariantMap &settings, double sampleRate,
                                                         quint32 maximumFrames, VEKError *error)
{
    const auto corrupt = [error](const QString &reason) {
        VEKError::set(error, lv2Error(VEKLV2World::CorruptSettings, "Error_effectSettings", reason));
        return nullptr;
    };
    const QVariant uriValue = settings.value(QStringLiteral("uri"));
    if (uriValue.typeId() != QMetaType::QString || uriValue.toString().isEmpty())
        return corrupt(QStringLiteral("the settings name no plugin URI"));
    const QString uri = uriValue.toString();

    // Check everything before instantiating, so a damaged map never half-makes a plugin.
    const QVariant enabled = settings.value(QStringLiteral("enabled"), true);
    if (!VEKVariant::isNumberOrBool(enabled))
        return corrupt(uri + QStringLiteral(": \"enabled\" is not a boolean"));
    QVariantMap controls;
    if (settings.contains(QStringLiteral("controls"))) {
        const QVariant v = settings.value(QStringLiteral("controls"));
        if (v.typeId() != QMetaType::QVariantMap)
            return corrupt(uri + QStringLiteral(": \"controls\" is not a dictionary"));
        controls = v.toMap();
        for (auto it = controls.cbegin(); it != controls.cend(); ++it)
            if (!VEKVariant::isNumberOrBool(it.value()) || !std::isfinite(it.value().toDouble()))
                return corrupt(uri + QStringLiteral(": the value of \"%1\" is not a number").arg(it.key()));
    }
    const QVariant state = settings.value(QStringLiteral("state"));
    if (state.isValid() && state.typeId() != QMetaType::QString)
        return corrupt(uri + QStringLiteral(": \"state\" is not text"));

    std::unique_ptr<VEKLV2Plugin> self = create(uri, sampleRate, maximumFrames, error);
    if (!self)
        return nullptr;
    for (auto it = controls.cbegin(); it != controls.cend(); ++it) {
        const int index = self->controlIndex(it.key());
        if (index >= 0 && !self->d->controls[size_t(index)].output)
            self->setValue(index, float(it.value().toDouble()));
    }
    self->setEnabled(enabled.toBool());

    if (state.isValid() && self->hasState()) {
        Impl &d = *self->d;
        std::lock_guard lock(d.world->mutex);
        const QByteArray text = state.toString().toUtf8();
        LilvState *restored =
            lilv_state_new_from_string(d.world->world, d.world->urids.mapFeature(), text.constData());
        const LilvNode *owner = restored ? lilv_state_get_plugin_uri(restored) : nullptr;
        if (!owner || VEKLV2NodeString(owner) != uri) {
            if (restored)
                lilv_state_free(restored);
            VEKError::set(error, lv2Error(VEKLV2World::StateFailed, "Error_effectState",
                                          uri + QStringLiteral(": the stored state is not readable "
                                                               "or belongs to another plugin")));
            return nullptr;
        }
        // Port values travel in "controls"; the state brings only the plugin's own data.
        for (LilvInstance *instance : d.instances)
            lilv_state_restore(restored, instance, nullptr, nullptr, 0, d.features.data());
        lilv_state_free(restored);
    }
    return self;
}

QVariantMap VEKLV2Plugin::settings() const
{
    QVariantMap result;
    result.insert(QStringLiteral("uri"), d->uri);
    result.insert(QStringLiteral("name"), d->name);
    result.insert(QStringLiteral("enabled"), isEnabled());
    QVariantMap controls;
    for (const quint32 index : d->controlInputs)
        controls.insert(d->controls[index].symbol, double(m_values[index].load(std::memory_order_relaxed)));
    result.insert(QStringLiteral("controls"), controls);

    if (hasState()) {
        std::lock_guard lock(d->world->mutex);
        // Saving may run beside run() (the state extension allows it); it reads the plugin's
        // data only. No directories: plugins that keep files get no place for them.
        LilvState *state = lilv_state_new_from_instance(
            d->plugin, d->instances.front(), d->world->urids.mapFeature(), nullptr, nullptr, nullptr,
            nullptr, nullptr, nullptr, LV2_STATE_IS_POD | LV2_STATE_IS_PORTABLE, d->features.data());
        if (state) {
            char *text = lilv_state_to_string(d->world->world, d->world->urids.mapFeature(),
                                              d->world->urids.unmapFeature(), state,
                                              "urn:quivera:effect-state", nullptr);
            if (text)
                result.insert(QStringLiteral("state"), QString::fromUtf8(text));
            lilv_free(text);
            lilv_state_free(state);
        }
    }
    return result;
}

QString VEKLV2Plugin::uri() const { return d->uri; }
QString VEKLV2Plugin::name() const { return d->name; }
double VEKLV2Plugin::sampleRate() const { return d->sampleRate; }
quint32 VEKLV2Plugin::maximumFrames() const { return d->maximumFrames; }
quint32 VEKLV2Plugin::pluginChannels() const { return d->layout.audioInputs; }
quint32 VEKLV2Plugin::numberOfInstances() const { return quint32(d->instances.size()); }
bool VEKLV2Plugin::hasState() const { return d->layout.hasState; }
const std::vector<VEKLV2Plugin::ControlPort> &VEKLV2Plugin::controlPorts() const { return d->controls; }

int VEKLV2Plugin::controlIndex(const QString &symbol) const
{
    for (size_t i = 0; i < d->controls.size(); ++i)
        if (d->controls[i].symbol == symbol)
            return int(i);
    return -1;
}

bool VEKLV2Plugin::setValue(int index, float value)
{
    if (index < 0 || size_t(index) >= d->controls.size() || std::isnan(value))
        return false;
    const ControlPort &c = d->controls[size_t(index)];
    if (c.output)
        return false;
    if (c.toggled)
        value = value > 0.f ? 1.f : 0.f;
    else if (c.integer)
        value = std::round(value);
    m_values[size_t(index)].store(std::clamp(value, c.minimum, c.maximum), std::memory_order_relaxed);
    return true;
}

bool VEKLV2Plugin::setValue(const QString &symbol, float value)
{
    return setValue(controlIndex(symbol), value);
}

float VEKLV2Plugin::value(int index) const
{
    if (index < 0 || size_t(index) >= d->controls.size())
        return std::numeric_limits<float>::quiet_NaN();
    return m_values[size_t(index)].load(std::memory_order_relaxed);
}

float VEKLV2Plugin::value(const QString &symbol) const { return value(controlIndex(symbol)); }

void VEKLV2Plugin::setEnabled(bool enabled) { m_enabled.store(enabled, std::memory_order_relaxed); }
bool VEKLV2Plugin::isEnabled() const { return m_enabled.load(std::memory_order_relaxed); }

void VEKLV2Plugin::activate()
{
    if (m_active.load())
        return;
    for (LilvInstance *instance : d->instances)
        lilv_instance_activate(instance);
    m_active.store(true);
}

void VEKLV2Plugin::deactivate()
{
    if (!m_active.load())
        return;
    m_active.store(false);
    for (LilvInstance *instance : d->instances)
        lilv_instance_deactivate(instance);
}

void VEKLV2Plugin::reset()
{
    if (!m_active.load())
        return;
    deactivate();
    activate();
}

bool VEKLV2Plugin::isActive() const { return m_active.load(); }

quint32 VEKLV2Plugin::latency() const
{
    if (d->latencyControl < 0)
        return 0;
    const float frames = m_values[size_t(d->latencyControl)].load(std::memory_order_relaxed);
    return frames > 0.f && std::isfinite(frames) ? quint32(std::lround(frames)) : 0;
}

bool VEKLV2Plugin::process(const float *const input[2], float *const output[2], quint32 frames)
{
    if (!input || !output || !input[0] || !input[1] || !output[0] || !output[1])
        return false;
    if (!m_enabled.load(std::memory_order_relaxed) || !m_active.load(std::memory_order_acquire)) {
        for (int c = 0; c < 2; ++c)
            if (input[c] != output[c])
                std::memmove(output[c], input[c], size_t(frames) * sizeof(float));
        return true;
    }

    RenderScope scope;
    Impl &p = *d;
    const bool stereo = p.layout.audioInputs == 2;
    for (quint32 offset = 0; offset < frames;) {
        const quint32 n = std::min(p.maximumFrames, frames - offset);
        for (const quint32 index : p.controlInputs)
            p.controlIn[p.controls[index].portIndex] = m_values[index].load(std::memory_order_relaxed);
        // The plugin may write its outputs before it has read all of its inputs, and the caller
        // may hand us the same buffers for both.
        for (int c = 0; c < 2; ++c)
            std::memcpy(p.inputCopy[c].data(), input[c] + offset, size_t(n) * sizeof(float));

        for (quint32 k = 0; k < p.instances.size(); ++k) {
            LilvInstance *instance = p.instances[k];
            if (stereo) {
                for (int c = 0; c < 2; ++c) {
                    lilv_instance_connect_port(instance, p.audioIn[c], p.inputCopy[c].data());
                    lilv_instance_connect_port(instance, p.audioOut[c], output[c] + offset);
                }
            } else {
                lilv_instance_connect_port(instance, p.audioIn[0], p.inputCopy[k].data());
                lilv_instance_connect_port(instance, p.audioOut[0], output[k] + offset);
            }
            p.prepareAtoms(k);
            lilv_instance_run(instance, n);
        }

        for (const quint32 index : p.controlOutputs)
            m_values[index].store(p.controlOut[0][p.controls[index].portIndex], std::memory_order_relaxed);
        offset += n;
    }
    return true;
}

bool VEKLV2Plugin::process(VEKAudioBufferList &list)
{
    if (list.numberOfChannels() != 2)
        return false;
    float *const channels[2] = {list.channel(0), list.channel(1)};
    const float *const inputs[2] = {channels[0], channels[1]};
    return process(inputs, channels, list.frames());
}
