// The stream's output side: the device and its rate, the converters to it.
#include "Stream.h"

#include "Player.h"
#include "dsp/VEKPlatformConverter.h"
#include "graph/APLConverterAudioProcessor.h"
#include "graph/IZOConverterAudioProcessor.h"
#include "graph/VEKAudioDock.h"
#include "graph/VEKHardwareAudioProcessor.h"
#include "settings/UserDefaults.h"
#include "settings/VEKSettingRange.h"

#include <cmath>
#include <limits>

namespace {

// The platform converter's complexity for a convertorType; 0 for the tunable converter.
quint32 complexityForType(qint64 type)
{
    switch (type) {
    case 2:
        return VEKPlatformConverter::Linear;
    case 3:
        return VEKPlatformConverter::Mastering;
    case 1:
        return 0;
    default:
        return VEKPlatformConverter::Normal;
    }
}

} // namespace

void Stream::setSampleRatePolicyOverride(std::optional<qint64> policy)
{
    m_ratePolicyOverride = policy;
    m_ratePolicy.store(policy ? *policy : VEKSettingRange::checkedRatePolicy(UserDefaults::standard().integerForKey(kSampleRate)));
}

VEKAudioDevicePtr Stream::outputDevice() const
{
    return m_hardware ? m_hardware->device() : nullptr;
}

bool Stream::initialize(VEKError *error)
{
    const VEKAudioDevicePtr device = outputDevice();
    m_offline.store(device && !device->rendersInRealTime());
    if (!VEKAudioStream::initialize(error)) {
        m_deviceFormat = {};
        noteOutputFormat();
        return false;
    }
    if (m_hardware) {
        m_negotiated = m_hardware->outputFormat();
        m_deviceFormat = m_hardware->deviceFormat();
    }
    // Opening the converter forgot any rate it had ready for the following song.
    prepareMixSampleRateFor(indexOfDisabledPlayer());
    noteOutputFormat();
    return true;
}

// --- Output device and rate --------------------------------------------------------------------

void Stream::updateOutputDevice()
{
    if (!m_hardware)
        return;
    UserDefaults &defaults = UserDefaults::standard();
    VEKAudioDevicePtr device = m_deviceOverride;
    std::optional<quint32> sourceID;
    if (!device) {
        const QVariant chosen = defaults.value(kOutputDevice);
        if (chosen.isValid()) {
            const QVariantMap map = chosen.toMap();
            device = VEKAudioDevice::deviceWithUID(map.value(QStringLiteral("UID")).toString());
            if (map.contains(QStringLiteral("sourceID"))) {
                const quint32 wanted = map.value(QStringLiteral("sourceID")).toUInt();
                for (const VEKAudioDeviceSource &source : device->outputSources(nullptr))
                    if (source.sourceID == wanted)
                        sourceID = source.sourceID;
            }
        } else if (const QVariant uid = defaults.value(QStringLiteral("outputDeviceUID")); uid.isValid()) {
            device = VEKAudioDevice::deviceWithUID(uid.toString());
        } else if (const QVariant number = defaults.value(QStringLiteral("outputDeviceID")); number.isValid()) {
            device = VEKAudioDevice::deviceWithID(number.toLongLong());
        } else if (const QVariant old = defaults.value(QStringLiteral("Output Device")); old.isValid()) {
            device = old.typeId() == QMetaType::QString ? VEKAudioDevice::deviceWithUID(old.toString())
                                                         : VEKAudioDevice::deviceWithID(old.toLongLong());
            defaults.removeValue(QStringLiteral("Output Device"));
        }
    }
    // Unplugged, or without outputs: the system's default, in silence.
    if (!device || !device->isValid() || !device->hasPhysicalOutputs())
        device = VEKAudioDevice::defaultOutputDevice(nullptr);

    if (m_hardware->device())
        m_hardware->device()->setIsExclusive(false, nullptr);
    const bool wasRunning = isRunning();
    stop();
    uninitialize();
    if (sourceID)
        for (const VEKAudioDeviceSource &source : device->outputSources(nullptr))
            device->setSourceEnabled(source.sourceID, source.sourceID == *sourceID, nullptr);
    const VEKAudioDevicePtr previous = m_hardware->device();
    VEKError error;
    if (!m_hardware->setDevice(device, &error))
        error.alert();
    const bool changed = m_hardware->device() != previous;
    if (changed) {
        m_negotiated.reset();
        m_deviceFormat = {};
    }
    if (wasRunning) {
        initialize();
        start();
    }
    if (changed)
        emit outputDeviceChanged();
    noteOutputFormat();
}

double Stream::chooseSampleRate(double rate, const QList<double> &available)
{
    if (available.contains(rate))
        return rate;
    for (int n = 1; n <= 4; ++n) {
        const double f = double(1 << n);
        if (available.contains(rate * f))
            return rate * f;
        if (available.contains(rate / f))
            return rate / f;
    }
    double chosen = std::numeric_limits<double>::max();
    for (double candidate : available)
        if (std::fabs(candidate - rate) < std::fabs(chosen - rate))
            chosen = candidate;
    return chosen;
}

void Stream::updateOutputDeviceSampleRate()
{
    VEKAudioDevicePtr device = outputDevice();
    if (!device)
        return;
    double rate = double(sampleRatePolicy());
    if (rate == -1.0) {
        const SongPtr song = songInPlayerAtIndex(indexOfEnabledPlayer());
        rate = song ? song->sampleRate() : 0.0;
    }
    if (rate <= 0.0)
        return;
    const double current = device->sampleRate(nullptr);
    if (rate == current)
        return;
    const double chosen = chooseSampleRate(rate, device->availableSampleRates(nullptr));
    if (chosen != current)
        device->setSampleRate(chosen, nullptr);
}

QList<VEKAudioDock *> Stream::converterDocks() const
{
    return {processorWithIdentifier<VEKAudioDock>(QStringLiteral("player1ConverterDock")),
            processorWithIdentifier<VEKAudioDock>(QStringLiteral("player2ConverterDock")),
            processorWithIdentifier<VEKAudioDock>(QStringLiteral("mixConverterDock"))};
}

VEKConverterAudioProcessor *Stream::mixConverter() const
{
    auto *dock = processorWithIdentifier<VEKAudioDock>(QStringLiteral("mixConverterDock"));
    return dock ? qobject_cast<VEKConverterAudioProcessor *>(dock->processor().get()) : nullptr;
}

double Stream::mixSampleRate() const
{
    VEKConverterAudioProcessor *converter = mixConverter();
    return converter ? converter->inSampleRate() : 0.0;
}

quint64 Stream::mixInputOrigin() const
{
    VEKConverterAudioProcessor *converter = mixConverter();
    return converter ? converter->inputOrigin() : 0;
}

void Stream::prepareMixSampleRateFor(quint64 index)
{
    VEKConverterAudioProcessor *converter = mixConverter();
    const double rate = index < 2 ? m_facts[index].fileRate.load() : 0.0;
    if (!converter || !isInitialized() || rate <= 0.0 || m_facts[index].length.load() <= 0.0
        || rate == converter->inSampleRate() || rate == converter->preparedInSampleRate())
        return;
    // Without it the transition takes the long way, with a stop.
    converter->prepareInSampleRate(rate, nullptr);
}

bool Stream::mixConverterReadyFor(double rate) const
{
    const VEKConverterAudioProcessor *converter = m_mixConverter.load(std::memory_order_acquire);
    return converter && converter->preparedInSampleRate() == rate;
}

void Stream::adoptMixSampleRate()
{
    VEKConverterAudioProcessor *converter = mixConverter();
    Player *player = playerAtIndex(indexOfEnabledPlayer());
    const auto file = player ? player->audioFile() : nullptr;
    if (converter && file && file->sampleRate() != converter->inSampleRate())
        converter->adoptInSampleRate(file->sampleRate());
}

void Stream::setMixSampleRate(double rate)
{
    VEKConverterAudioProcessor *converter = mixConverter();
    if (!converter || rate <= 0.0 || converter->inSampleRate() == rate)
        return;
    // The formats of the whole chain before the device change: a restart, like any change of
    // structure. The conductor keeps its place.
    const bool wasRunning = isRunning();
    const bool wasInitialized = isInitialized();
    stop();
    uninitialize();
    converter->setInSampleRate(rate, nullptr);
    restart(wasInitialized, wasRunning);
}

bool Stream::updatePlayerConverters(VEKError *error)
{
    const qint64 type = UserDefaults::standard().integerForKey(kConvertorType);
    const QList<VEKAudioDock *> docks = converterDocks();
    const VEKAudioProcessorPtr current = docks[0]->processor();
    auto *platform = qobject_cast<APLConverterAudioProcessor *>(current.get());
    if (type == 1 && qobject_cast<IZOConverterAudioProcessor *>(current.get()))
        return true;
    if (type != 1 && platform && platform->complexity() == complexityForType(type))
        return true;

    const bool wasRunning = isRunning();
    const bool wasInitialized = isInitialized();
    const double mixRate = mixSampleRate();
    stop();
    uninitialize();

    VEKAudioProcessorPtr converters[3];
    if (type != 1 && platform) {
        for (int i = 0; i < 3; ++i)
            converters[i] = docks[i]->processor();
    } else {
        const QString className = type == 1 ? QStringLiteral("IZOConverterAudioProcessor")
                                            : QStringLiteral("APLConverterAudioProcessor");
        for (auto &converter : converters)
            if (!(converter = VEKAudioProcessor::processorWithClass(className, error)))
                return false;
    }
    for (int i = 0; i < 3; ++i) {
        if (auto *apl = qobject_cast<APLConverterAudioProcessor *>(converters[i].get()))
            if (!apl->setComplexity(complexityForType(type), error))
                return false;
        updatePlayerConverterQuality(converters[i].get());
        auto *converter = static_cast<VEKConverterAudioProcessor *>(converters[i].get());
        if (i < 2) {
            // Every song is converted once, after the conductor, which runs at the rate of the
            // song heard: a branch's converter only passes its song through.
            converter->setEnabled(false);
            if (auto file = m_players[i]->audioFile())
                converter->setInSampleRate(file->sampleRate(), nullptr);
        } else if (mixRate > 0.0) {
            converter->setInSampleRate(mixRate, nullptr);
        }
    }
    for (int i = 0; i < 3; ++i)
        docks[i]->setProcessor(converters[i]);
    m_mixConverter.store(static_cast<VEKConverterAudioProcessor *>(converters[2].get()), std::memory_order_release);
    if (wasInitialized && !initialize(error))
        return false;
    if (wasRunning && !start(error))
        return false;
    return true;
}

void Stream::updatePlayerConverterQuality(VEKAudioProcessor *converter)
{
    UserDefaults &defaults = UserDefaults::standard();
    if (auto *izo = qobject_cast<IZOConverterAudioProcessor *>(converter)) {
        izo->setFilterSteepness(quint32(float(defaults.doubleForKey(kSteepness))), nullptr);
        izo->setFilterCutoffScaling(float(defaults.doubleForKey(kCutoff)), nullptr);
        izo->setFilterPreRinging(float(defaults.doubleForKey(kPreringing)), nullptr);
    } else if (auto *apl = qobject_cast<APLConverterAudioProcessor *>(converter)) {
        const QVariant quality = defaults.value(kConvertorQuality);
        apl->setQuality(quality.isValid() ? quality.toFloat() : 1.0f, nullptr);
    }
}

// --- What reaches the device ----------------------------------------------------------------------

Stream::OutputFormat Stream::outputFormat() const
{
    OutputFormat f;
    const VEKAudioDevicePtr device = outputDevice();
    if (!device)
        return f;
    if (m_negotiated) {
        f.sampleRate = m_negotiated->sampleRate;
        f.bitsPerSample = int(m_negotiated->bitDepth);
        f.channels = int(m_negotiated->numberOfChannels);
    } else {
        f.sampleRate = device->sampleRate(nullptr);
    }

    Player *player = playerAtIndex(indexOfEnabledPlayer());
    const auto file = player ? player->audioFile() : nullptr;
    if (!m_currentSong || !file || f.bitsPerSample <= 0)
        return f;
    const int bits = int(file->bitDepth());
    if (bits <= 0 || bits > f.bitsPerSample || file->sampleRate() != f.sampleRate)
        return f;
    UserDefaults &defaults = UserDefaults::standard();
    if (float(defaults.doubleForKey(kVolume)) != 1.0f || defaults.boolForKey(QStringLiteral("dim"))
        || defaults.boolForKey(QStringLiteral("mute")))
        return f;
    const QVariantMap dither = defaults.dictionaryForKey(kDitherProperties);
    if (dither.value(QStringLiteral("enabled")).toBool() && dither.value(QStringLiteral("depth"), 16).toInt() < bits)
        return f;
    if (defaults.dictionaryForKey(kHeadphones).value(QStringLiteral("enabled")).toBool())
        return f;
    for (quint64 i = 0; i < numberOfEffectSlots; ++i)
        if (const VEKAudioProcessorPtr effect = processorAtIndex(i); effect && effect->isEnabled())
            return f;
    f.bitPerfect = true;
    return f;
}

void Stream::noteOutputFormat()
{
    const OutputFormat f = outputFormat();
    if (f != m_reportedFormat) {
        m_reportedFormat = f;
        emit outputFormatChanged();
    }
    SignalPath path = signalPath();
    if (path != m_reportedPath) {
        m_reportedPath = std::move(path);
        emit signalPathChanged();
    }
}

void Stream::watchEffectSlot(VEKAudioDock *dock)
{
    // An effect put in, taken out, or turned on or off decides bit-perfectness.
    connect(dock, &VEKAudioDock::processorChanged, this,
            [this](const VEKAudioProcessorPtr &processor, const VEKAudioProcessorPtr &previous) {
                if (previous)
                    disconnect(previous.get(), &VEKAudioProcessor::enabledChanged, this, nullptr);
                if (processor)
                    connect(processor.get(), &VEKAudioProcessor::enabledChanged, this, [this] { noteOutputFormat(); });
                noteOutputFormat();
            });
}
