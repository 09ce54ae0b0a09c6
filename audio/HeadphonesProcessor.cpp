#include "HeadphonesProcessor.h"

#include "core/VEKVariant.h"

#include "graph/VEKAudioGraphError.h"

#include <QDebug>

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

const QString EnabledKey = QStringLiteral("enabled");
const QString SpeakerAngleKey = QStringLiteral("speakerAngle");
const QString CrossfeedAmountKey = QStringLiteral("crossfeedAmount");
const QString CrossfeedTypeKey = QStringLiteral("crossfeedType");
const QString CrossfeedClipKey = QStringLiteral("crossfeedClipProtectionEnabled");
const QString TrebleFrequencyKey = QStringLiteral("trebleFrequency");
const QString TrebleKey = QStringLiteral("treble");
const QString BassFrequencyKey = QStringLiteral("bassFrequency");
const QString BassKey = QStringLiteral("bass");
const QString EqClipKey = QStringLiteral("eqClipProtectionEnabled");
const QString MonoKey = QStringLiteral("mono");
const QString SwappedKey = QStringLiteral("swapped");
const QString OutOfPhaseKey = QStringLiteral("outOfPhase");
const QString SoloKey = QStringLiteral("solo");

// A number as an unsigned word: negatives and NaN count as 0, the too large as the largest.
quint32 toWord(const QVariant &v)
{
    const double d = v.toDouble();
    if (!(d > 0.0))
        return 0;
    if (d >= double(std::numeric_limits<quint32>::max()))
        return std::numeric_limits<quint32>::max();
    return quint32(d);
}

} // namespace

HeadphonesProcessor::HeadphonesProcessor(QObject *parent) : VEKAudioProcessor(parent)
{
    // "enabled" of the record is the processor's own flag; whoever changes it, the engine follows.
    connect(this, &VEKAudioProcessor::enabledChanged, this, [this] { updateParameters(); });
}

HeadphonesProcessor::~HeadphonesProcessor() = default;

bool HeadphonesProcessor::init(VEKError *error)
{
    if (!VEKAudioProcessor::init(error))
        return false;
    m_parameters = CrossfeedEngine::Parameters{};
    // Off until the record says otherwise.
    setEnabled(false);
    return true;
}

bool HeadphonesProcessor::initializeForRender(VEKError *error)
{
    VEKAudioConnection *output = outputConnection();
    if (!output || output->numberOfChannels() != 2) {
        qWarning("HeadphonesProcessor only supports 2 channels");
        return false;
    }
    if (inputConnection())
        inputConnection()->conformToConnection(*output);
    auto engine = std::make_unique<CrossfeedEngine>();
    engine->setParameters(parameters());
    const double rate = double(float(output->sampleRate()));
    if (!engine->initialize(rate)) {
        VEKError::set(error, VEKAudioGraphError::make(VEKAudioGraphError::InvalidArgument,
                                                      "Error_graphHeadphonesSettings",
                                                      QStringLiteral("a rate of %1 Hz").arg(rate)));
        return false;
    }
    m_engine = std::move(engine);
    return true;
}

bool HeadphonesProcessor::reset(VEKError *)
{
    if (m_engine)
        m_engine->reset();
    return true;
}

bool HeadphonesProcessor::uninitialize(VEKError *)
{
    m_engine.reset();
    return true;
}

void HeadphonesProcessor::render(VEKAudioBufferList &list, quint32, const VEKAudioRenderInfo &info)
{
    inputBus().render(list, info);
    if (!isEnabled() || !m_engine || list.numberOfChannels() < 2)
        return;
    m_engine->processStereo(list.channel(0), list.channel(1), list.frames());
}

CrossfeedEngine::Parameters HeadphonesProcessor::parameters() const
{
    CrossfeedEngine::Parameters p = m_parameters;
    p.enabled = isEnabled();
    return p;
}

void HeadphonesProcessor::updateParameters()
{
    if (m_engine)
        m_engine->setParameters(parameters());
}

QVariantMap HeadphonesProcessor::settings() const
{
    QVariantMap s = VEKAudioProcessor::settings();
    const CrossfeedEngine::Parameters &p = m_parameters;
    s.insert(EnabledKey, isEnabled());
    s.insert(SpeakerAngleKey, double(p.speakerAngle));
    s.insert(CrossfeedAmountKey, double(p.crossfeedAmount));
    s.insert(CrossfeedTypeKey, qulonglong(p.crossfeedType));
    s.insert(CrossfeedClipKey, p.crossfeedClipProtectionEnabled);
    s.insert(TrebleFrequencyKey, double(p.trebleFrequency));
    s.insert(TrebleKey, double(p.trebleGain));
    s.insert(BassFrequencyKey, double(p.bassFrequency));
    s.insert(BassKey, double(p.bassGain));
    s.insert(EqClipKey, p.eqClipProtectionEnabled);
    s.insert(MonoKey, p.mono);
    s.insert(SwappedKey, p.swapped);
    s.insert(OutOfPhaseKey, p.outOfPhase);
    s.insert(SoloKey, qulonglong(p.solo));
    return s;
}

bool HeadphonesProcessor::setSettings(const QVariantMap &settings, VEKError *error)
{
    static const QStringList BoolKeys{EnabledKey, CrossfeedClipKey, EqClipKey, MonoKey, SwappedKey, OutOfPhaseKey};
    static const QStringList NumberKeys{SpeakerAngleKey, CrossfeedAmountKey, CrossfeedTypeKey, TrebleFrequencyKey,
                                        TrebleKey,       BassFrequencyKey,   BassKey,          SoloKey};
    // Checked whole before anything is taken, so a refused record leaves every value as it was.
    auto refuse = [error](const QString &key, const char *wanted) {
        VEKError::set(error, VEKAudioGraphError::make(VEKAudioGraphError::InvalidArgument,
                                                      "Error_graphHeadphonesSettings", key,
                                                      QStringLiteral("“%1” is not a %2").arg(key, QLatin1String(wanted))));
        return false;
    };
    for (const QString &key : BoolKeys) {
        const auto it = settings.constFind(key);
        if (it != settings.constEnd() && it->typeId() != QMetaType::Bool)
            return refuse(key, "boolean");
    }
    for (const QString &key : NumberKeys) {
        const auto it = settings.constFind(key);
        // The settings' own default stores "solo" as false: a boolean counts as 0 or 1.
        if (it != settings.constEnd() && !VEKVariant::isNumberOrBool(*it))
            return refuse(key, "number");
    }
    if (!VEKAudioProcessor::setSettings(settings, error))
        return false;

    CrossfeedEngine::Parameters p = m_parameters;
    auto take = [&settings](const QString &key, auto &&apply) {
        const auto it = settings.constFind(key);
        if (it != settings.constEnd())
            apply(*it);
    };
    // "enabled" went to the base's flag above.
    take(SpeakerAngleKey, [&](const QVariant &v) { p.speakerAngle = float(v.toDouble()); });
    take(CrossfeedAmountKey, [&](const QVariant &v) { p.crossfeedAmount = float(v.toDouble()); });
    take(CrossfeedTypeKey, [&](const QVariant &v) { p.crossfeedType = toWord(v); });
    take(CrossfeedClipKey, [&](const QVariant &v) { p.crossfeedClipProtectionEnabled = v.toBool(); });
    take(TrebleFrequencyKey, [&](const QVariant &v) { p.trebleFrequency = float(v.toDouble()); });
    take(TrebleKey, [&](const QVariant &v) { p.trebleGain = float(v.toDouble()); });
    take(BassFrequencyKey, [&](const QVariant &v) { p.bassFrequency = float(v.toDouble()); });
    take(BassKey, [&](const QVariant &v) { p.bassGain = float(v.toDouble()); });
    take(EqClipKey, [&](const QVariant &v) { p.eqClipProtectionEnabled = v.toBool(); });
    take(MonoKey, [&](const QVariant &v) { p.mono = v.toBool(); });
    take(SwappedKey, [&](const QVariant &v) { p.swapped = v.toBool(); });
    take(OutOfPhaseKey, [&](const QVariant &v) { p.outOfPhase = v.toBool(); });
    take(SoloKey, [&](const QVariant &v) { p.solo = toWord(v); });
    // The engine's limits are this record's: angle 0..60, amount 0..1.5, type 1..3, gains
    // -6..6, solo 0..2, the frequencies as they are.
    m_parameters = p.limited();
    updateParameters();
    return true;
}
