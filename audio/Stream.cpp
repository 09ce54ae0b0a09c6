#include "Stream.h"

#include "HeadphonesProcessor.h"
#include "Landmark.h"
#include "Player.h"
#include "core/VEKLocalizedString.h"
#include "core/VEKLog.h"
#include "dsp/VEKPlatformConverter.h"
#include "graph/APLConverterAudioProcessor.h"
#include "graph/IZOConverterAudioProcessor.h"
#include "graph/VEKAudioDock.h"
#include "graph/VEKConductorAudioProcessor.h"
#include "graph/VEKDitherAudioProcessor.h"
#include "graph/VEKHardwareAudioProcessor.h"
#include "graph/VEKMeterAudioProcessor.h"
#include "graph/VEKRouterAudioProcessor.h"
#include "graph/VEKVolumeAudioProcessor.h"
#include "outputs/VEKAudioDeviceMonitor.h"
#include "settings/UserDefaults.h"
#include "settings/VEKPropertyList.h"

#include <QScopeGuard>
#include <QThread>
#include <cmath>
#include <limits>
#include <thread>

namespace {

const QString kSampleRate = QStringLiteral("sampleRate");
const QString kVolume = QStringLiteral("volume");
const QString kDitherProperties = QStringLiteral("ditherProperties");
const QString kHeadphones = QStringLiteral("headphonesProcessorSettings");
const QString kConvertorType = QStringLiteral("convertorType");
const QString kConvertorQuality = QStringLiteral("convertorQuality");
const QString kSteepness = QStringLiteral("resamplerFilterSteepness");
const QString kCutoff = QStringLiteral("resamplerCutoffScaling");
const QString kPreringing = QStringLiteral("resamplerPreringing");
const QString kOutputDevice = QStringLiteral("outputDevice");
const QString kIsExclusive = QStringLiteral("isExclusive");

QString id(const char *format, quint64 index)
{
    return QString::fromLatin1(format).arg(index + 1);
}

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

void Stream::registerDefaults(UserDefaults &defaults)
{
    defaults.registerDefaults({
        {kSampleRate, 0},
        {kVolume, 1},
        {QStringLiteral("dim"), false},
        {QStringLiteral("mute"), false},
        {kConvertorType, 0},
        {kConvertorQuality, 1},
        {kIsExclusive, false},
        {kSteepness, 150},
        {kCutoff, 1},
        {kPreringing, 1},
        {kDitherProperties,
         QVariantMap{{QStringLiteral("depth"), 16},
                     {QStringLiteral("type"), 2},
                     {QStringLiteral("basicShape"), 2},
                     {QStringLiteral("basicNumberOfBits"), 0},
                     {QStringLiteral("mbitShape"), 3},
                     {QStringLiteral("mbitAmount"), 2},
                     {QStringLiteral("autoBlanking"), false},
                     {QStringLiteral("minimizePeaks"), false},
                     {QStringLiteral("silenceHarmonics"), false}}},
        {kHeadphones,
         QVariantMap{{QStringLiteral("enabled"), false},
                     {QStringLiteral("speakerAngle"), 0},
                     {QStringLiteral("crossfeedType"), 1},
                     {QStringLiteral("crossfeedAmount"), 0},
                     {QStringLiteral("treble"), 0},
                     {QStringLiteral("bass"), 0},
                     {QStringLiteral("mono"), false},
                     {QStringLiteral("swapped"), false},
                     {QStringLiteral("outOfPhase"), false},
                     {QStringLiteral("solo"), false},
                     {QStringLiteral("crossfeedClipProtectionEnabled"), true},
                     {QStringLiteral("eqClipProtectionEnabled"), true}}},
    });
}

QVariantMap Stream::defaultDescription()
{
    return VEKPropertyList::readFile(QStringLiteral(":/Stream.plist")).toMap();
}

Stream::Stream(QObject *parent) : VEKAudioStream(parent)
{
    registerDefaults(UserDefaults::standard());
    m_ratePolicy.store(UserDefaults::standard().integerForKey(kSampleRate));
}

Stream::~Stream()
{
    // The render thread must be gone before the landmark's stream is.
    stop();
    if (m_landmark)
        m_landmark->setStream(nullptr);
}

void Stream::setSampleRatePolicyOverride(std::optional<qint64> policy)
{
    m_ratePolicyOverride = policy;
    m_ratePolicy.store(policy ? *policy : UserDefaults::standard().integerForKey(kSampleRate));
}

// --- Creation and teardown ----------------------------------------------------------------------

bool Stream::initWithDescription(const QVariantMap &description, VEKError *error)
{
    if (!VEKAudioStream::initWithDescription(description, error))
        return false;
    auto missing = [error](const QString &what) {
        VEKError::set(error, VEKError(QStringLiteral("Stream"), 1,
                                      VEKLocalizedString("Stream_missingProcessor").arg(what)));
        return false;
    };
    m_conductorProcessor = processorWithIdentifier<VEKConductorAudioProcessor>(QStringLiteral("conductor"));
    if (!m_conductorProcessor)
        return missing(QStringLiteral("conductor"));
    m_hardware = processorWithIdentifier<VEKHardwareAudioProcessor>(QStringLiteral("hardware"));
    if (!m_hardware)
        return missing(QStringLiteral("hardware"));
    for (quint64 i = 0; i < 2; ++i) {
        m_players[i] = processorWithIdentifier<Player>(id("player%1Generator", i));
        m_toMixer[i] = connectionWithIdentifier(id("converter%1ToMixer", i));
        if (!m_players[i])
            return missing(id("player%1Generator", i));
        if (!m_toMixer[i])
            return missing(id("converter%1ToMixer", i));
        for (const char *name : {"player%1Router", "player%1ConverterDock"})
            if (!processorWithIdentifier(id(name, i)))
                return missing(id(name, i));
    }
    for (const char *name : {"mixConverterDock", "volume", "dither", "headphones", "preEffectsMeter", "postEffectsMeter",
                             "postVolumeMeter"})
        if (!processorWithIdentifier(QString::fromLatin1(name)))
            return missing(QString::fromLatin1(name));
    for (quint64 i = 0; i < numberOfEffectSlots; ++i)
        if (!processorDockAtIndex(i))
            return missing(id("effect%1Dock", i));

    m_landmark = VEKConductorLandmark::landmark<Landmark>();
    m_landmark->setStream(this);
    m_landmark->setJump(true);
    m_conductorProcessor->insertLandmark(m_landmark, 0);
    connect(m_conductorProcessor, &VEKConductorAudioProcessor::landmarkPassed, this,
            [this] { deliverLandmarkEvents(); });
    connect(m_conductorProcessor, &VEKConductorAudioProcessor::transportStopped, this,
            [this] { deliverLandmarkEvents(); });

    setEnabled(false, 0);
    setEnabled(false, 1);

    UserDefaults &defaults = UserDefaults::standard();
    updateOutputDevice();
    updateOutputDeviceSampleRate();

    VEKError exclusiveError;
    if (VEKAudioDevicePtr device = outputDevice();
        device && !device->setIsExclusive(defaults.boolForKey(kIsExclusive), &exclusiveError)
        && exclusiveError.code() != VEKAudioDevice::unknownPropertyCode)
        exclusiveError.alert();

    processorWithIdentifier<VEKVolumeAudioProcessor>(kVolume)->setScalar(float(defaults.doubleForKey(kVolume)));
    if (!processorWithIdentifier(QStringLiteral("dither"))->setSettings(defaults.dictionaryForKey(kDitherProperties), error))
        return false;
    if (!processorWithIdentifier(QStringLiteral("headphones"))->setSettings(defaults.dictionaryForKey(kHeadphones), error))
        return false;
    if (!updatePlayerConverters(error))
        return false;

    // A slot whose plug-in is gone stays empty, without a word; its setting stays until quit.
    m_restoringEffects = true;
    for (quint64 i = 0; i < numberOfEffectSlots; ++i) {
        const QVariant stored = defaults.value(id("effect%1", i));
        if (stored.isValid())
            setProcessor(VEKAudioProcessor::processorWithSettings(stored.toMap()), i);
    }
    m_restoringEffects = false;

    connect(&VEKAudioDeviceMonitor::shared(), &VEKAudioDeviceMonitor::devicesChanged, this,
            [this] { updateOutputDevice(); });
    m_settingsConnection = connect(&defaults, &UserDefaults::valueChanged, this,
                                   [this](const QString &key) { settingChanged(key); });
    return true;
}

void Stream::teardown()
{
    if (m_tornDown)
        return;
    m_tornDown = true;
    storeEffectSlots();
    if (m_hardware && m_hardware->device())
        m_hardware->device()->setIsExclusive(false, nullptr);
    disconnect(m_settingsConnection);
    if (m_playlist)
        disconnect(m_playlistConnection);
    m_currentSong.reset();
    m_playlist.reset();
}

void Stream::storeEffectSlots()
{
    UserDefaults &defaults = UserDefaults::standard();
    for (quint64 i = 0; i < numberOfEffectSlots; ++i) {
        if (VEKAudioProcessorPtr processor = processorAtIndex(i))
            defaults.setValue(id("effect%1", i), processor->settings());
        else
            defaults.removeValue(id("effect%1", i));
    }
}

// --- Following the settings --------------------------------------------------------------------

void Stream::settingChanged(const QString &key)
{
    UserDefaults &defaults = UserDefaults::standard();
    VEKError error;
    if (key == kOutputDevice) {
        stop();
        uninitialize();
        updateOutputDevice();
        initialize();
        start();
    } else if (key == kSampleRate) {
        if (!m_ratePolicyOverride)
            m_ratePolicy.store(defaults.integerForKey(kSampleRate));
        updateOutputDeviceSampleRate();
    } else if (key == kVolume) {
        processorWithIdentifier<VEKVolumeAudioProcessor>(kVolume)->setScalar(float(defaults.doubleForKey(kVolume)));
    } else if (key == kDitherProperties) {
        if (!processorWithIdentifier(QStringLiteral("dither"))->setSettings(defaults.dictionaryForKey(key), &error))
            error.alert();
    } else if (key == kConvertorType) {
        if (!updatePlayerConverters(&error))
            error.alert();
    } else if (key == kConvertorQuality || key == kSteepness || key == kCutoff || key == kPreringing) {
        for (VEKAudioDock *dock : converterDocks())
            updatePlayerConverterQuality(dock->processor().get());
    } else if (key == kHeadphones) {
        if (!processorWithIdentifier(QStringLiteral("headphones"))->setSettings(defaults.dictionaryForKey(key), &error))
            error.alert();
    }
}

// --- Graph -------------------------------------------------------------------------------------

VEKAudioDock *Stream::processorDockAtIndex(quint64 index) const
{
    return processorWithIdentifier<VEKAudioDock>(id("effect%1Dock", index));
}

VEKAudioProcessorPtr Stream::processorAtIndex(quint64 index) const
{
    VEKAudioDock *dock = processorDockAtIndex(index);
    return dock ? dock->processor() : nullptr;
}

bool Stream::setProcessor(VEKAudioProcessorPtr processor, quint64 index, VEKError *)
{
    if (index >= numberOfEffectSlots)
        return false;
    const bool wasRunning = isRunning();
    const bool wasInitialized = isInitialized();
    // The dock may only change while the render thread is away from it.
    stop();
    uninitialize();
    processorDockAtIndex(index)->setProcessor(std::move(processor));
    restart(wasInitialized, wasRunning);
    if (!m_restoringEffects)
        storeEffectSlots();
    return true;
}

void Stream::restart(bool wasInitialized, bool wasRunning)
{
    if (wasInitialized)
        initialize();
    if (wasRunning)
        start();
}

VEKAudioDevicePtr Stream::outputDevice() const
{
    return m_hardware ? m_hardware->device() : nullptr;
}

VEKMeterAudioProcessor *Stream::meter() const
{
    static const char *const points[] = {"preEffectsMeter", "postEffectsMeter", "postVolumeMeter"};
    const qint64 point = UserDefaults::standard().integerForKey(QStringLiteral("meterPoint"));
    return processorWithIdentifier<VEKMeterAudioProcessor>(
        QString::fromLatin1(points[std::clamp<qint64>(point, 0, 2)]));
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
    VEKError error;
    if (!m_hardware->setDevice(device, &error))
        error.alert();
    if (wasRunning) {
        initialize();
        start();
    }
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

double Stream::mixSampleRate() const
{
    auto *dock = processorWithIdentifier<VEKAudioDock>(QStringLiteral("mixConverterDock"));
    auto *converter = dock ? qobject_cast<VEKConverterAudioProcessor *>(dock->processor().get()) : nullptr;
    return converter ? converter->inSampleRate() : 0.0;
}

void Stream::setMixSampleRate(double rate)
{
    auto *dock = processorWithIdentifier<VEKAudioDock>(QStringLiteral("mixConverterDock"));
    auto *converter = dock ? qobject_cast<VEKConverterAudioProcessor *>(dock->processor().get()) : nullptr;
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
            if (auto file = m_players[i]->audioFile())
                converter->setInSampleRate(file->sampleRate(), nullptr);
        } else if (mixRate > 0.0) {
            converter->setInSampleRate(mixRate, nullptr);
        }
    }
    for (int i = 0; i < 3; ++i)
        docks[i]->setProcessor(converters[i]);
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

// --- Players -----------------------------------------------------------------------------------

bool Stream::isPlayerEnabledAtIndex(quint64 index) const
{
    return index < 2 && m_toMixer[index] && m_toMixer[index]->isActive();
}

void Stream::setEnabled(bool enabled, quint64 index)
{
    if (index < 2 && m_toMixer[index])
        m_toMixer[index]->setActive(enabled);
}

quint64 Stream::indexOfEnabledPlayer() const
{
    return isPlayerEnabledAtIndex(0) ? 0 : isPlayerEnabledAtIndex(1) ? 1 : notFound;
}

quint64 Stream::indexOfDisabledPlayer() const
{
    return !isPlayerEnabledAtIndex(0) ? 0 : !isPlayerEnabledAtIndex(1) ? 1 : notFound;
}

Player *Stream::playerAtIndex(quint64 index) const
{
    return index < 2 ? m_players[index] : nullptr;
}

SongPtr Stream::songInPlayerAtIndex(quint64 index) const
{
    Player *player = playerAtIndex(index);
    return player ? player->song() : nullptr;
}

double Stream::lengthOfSongInPlayerAtIndex(quint64 index) const
{
    Player *player = playerAtIndex(index);
    return player && player->audioFile() ? player->audioFile()->length() : 0.0;
}

AudioFileRange Stream::playableRangeOfSongInPlayerAtIndex(quint64 index) const
{
    Player *player = playerAtIndex(index);
    auto file = player ? std::dynamic_pointer_cast<AudioFile>(player->audioFile()) : nullptr;
    return file ? file->playableRange() : AudioFileRange();
}

bool Stream::claimSilentPlayer(quint64 index)
{
    // Against the landmark, which may make this branch the heard one at any moment: each side
    // first says what it is about to do, then looks at the other. At most one goes ahead.
    m_loadingPlayer.store(int(index), std::memory_order_seq_cst);
    std::atomic_thread_fence(std::memory_order_seq_cst);
    if (isPlayerEnabledAtIndex(index)) {
        m_loadingPlayer.store(-1, std::memory_order_seq_cst);
        return false;
    }
    return true;
}

bool Stream::loadSong(const SongPtr &song, quint64 index, VEKError *error)
{
    Player *generator = playerAtIndex(index);
    if (!generator || !claimSilentPlayer(index))
        return false;
    // The landmark takes the branch again once this returns.
    const auto release = qScopeGuard([this] { m_loadingPlayer.store(-1, std::memory_order_seq_cst); });
    generator->setSong(song);
    PlayerFacts &facts = m_facts[index];
    if (!song) {
        facts.length.store(0.0);
        generator->setAudioFile(nullptr);
        return true;
    }
    std::shared_ptr<AudioFile> file = AudioFile::open(song->URL(), error);
    if (!file)
        return false;
    song->loadInfoFromAudioFile(*file);

    auto *router = processorWithIdentifier<VEKRouterAudioProcessor>(id("player%1Router", index));
    VEKAudioProcessorPtr converter = processorWithIdentifier<VEKAudioDock>(id("player%1ConverterDock", index))->processor();
    VEKAudioProcessor *chain[] = {generator, router, converter.get()};
    for (VEKAudioProcessor *p : chain) {
        if (!p)
            continue;
        p->uninitialize(nullptr);
        p->setInitialized(false);
    }
    // The landmark must not see the new length with the old range: the length goes last.
    facts.length.store(0.0);
    generator->setAudioFile(file);
    const quint32 channels = std::max<quint32>(file->numberOfChannels(), 1);
    router->setNumberOfInputChannels(channels, nullptr);
    router->router().clearTies();
    router->router().tie(0, 0);
    router->router().tie(std::min<quint32>(channels - 1, 1), 1);
    if (auto *c = qobject_cast<VEKConverterAudioProcessor *>(converter.get()))
        c->setInSampleRate(file->sampleRate(), nullptr);
    if (isInitialized()) {
        for (auto it = std::rbegin(chain); it != std::rend(chain); ++it) {
            if (!*it)
                continue;
            (*it)->initializeForRender(nullptr);
            (*it)->setInitialized(true);
        }
    }
    const AudioFileRange range = file->playableRange();
    generator->prepareForPlaybackFromLocation(range.location);
    facts.fileRate.store(file->sampleRate());
    facts.rangeLocation.store(range.location);
    facts.rangeLength.store(range.length);
    facts.length.store(file->length());
    return true;
}

// --- Transport ---------------------------------------------------------------------------------

SongPtr Stream::songFollowing(const SongPtr &song) const
{
    if (!m_playlist)
        return nullptr;
    SongPtr next = m_playlist->songFollowingSong(song);
    while (next && next->isMissing())
        next = m_playlist->songFollowingSong(next);
    return next;
}

SongPtr Stream::songPreceding(const SongPtr &song) const
{
    if (!m_playlist)
        return nullptr;
    SongPtr previous = m_playlist->songPrecedingSong(song);
    while (previous && previous->isMissing())
        previous = m_playlist->songPrecedingSong(previous);
    return previous;
}

SongPtr Stream::songToPrepare() const
{
    SongPtr next = songFollowing(m_currentSong);
    // A repeating playlist goes round the gapless way too, also when it holds one song.
    if (!next && m_currentSong && m_playlist && m_playlist->repeatMode() == 1)
        next = songFollowing(nullptr);
    return next;
}

void Stream::setPlaylist(const PlaylistPtr &playlist)
{
    if (playlist == m_playlist)
        return;
    pause();
    setCurrentSong(nullptr);
    if (m_playlist)
        disconnect(m_playlistConnection);
    m_playlist = playlist;
    m_repeatMode.store(m_playlist ? m_playlist->repeatMode() : 0);
    if (m_playlist)
        m_playlistConnection = connect(m_playlist.get(), &Playlist::valueChanged, this,
                                       [this](const QString &key) { playlistValueChanged(key); });
}

void Stream::playlistValueChanged(const QString &key)
{
    if (key == QLatin1String("repeatMode"))
        m_repeatMode.store(m_playlist->repeatMode());
    if (key == QLatin1String("songs") || key == QLatin1String("shuffle") || key == QLatin1String("sortKey")
        || key == QLatin1String("predicate") || key == QLatin1String("repeatMode"))
        reloadFollowingSong();
}

void Stream::reloadFollowingSong()
{
    loadSong(songToPrepare(), indexOfDisabledPlayer(), nullptr);
}

void Stream::replaceCurrentSong(const SongPtr &song)
{
    if (song == m_currentSong)
        return;
    m_currentSong = song;
    emit currentSongChanged(m_currentSong);
}

void Stream::setCurrentSong(const SongPtr &requested)
{
    if (requested == m_currentSong)
        return;
    replaceCurrentSong(nullptr);
    if (m_playlist && m_playlist->indexOfObjectInSongs(requested) == Playlist::NotFound)
        return;
    if (!requested)
        return;
    SongPtr song = requested;
    if (song->isMissing())
        song = songFollowing(song);
    pause();
    const quint64 idx = indexOfDisabledPlayer();
    VEKError error;
    if (!loadSong(song, idx, &error)) {
        alertUnopenable(song);
        return;
    }
    setEnabled(false, 1 - idx);
    setEnabled(true, idx);
    if (song)
        setMixSampleRate(m_facts[idx].fileRate.load());
    replaceCurrentSong(song);
    setLocation(0.0);
    const AudioFileRange range = playableRangeOfSongInPlayerAtIndex(idx);
    m_landmark->setLocation(range.location + range.length);
    m_preparingFollowingSong.store(false);
    reloadFollowingSong();
}

void Stream::alertUnopenable(const SongPtr &song)
{
    VEKError(QStringLiteral("Stream"), 2,
             VEKLocalizedString("Controller_audioFileError_title").arg(song ? song->name() : QString()),
             VEKLocalizedString("Controller_audioFileError_message"))
        .alert();
}

void Stream::play()
{
    if (!m_currentSong)
        return;
    if (normalizedLocation() >= 1.0f) {
        SongPtr next = songFollowing(m_currentSong);
        if (!next && m_playlist && m_playlist->repeatMode() == 1)
            next = m_playlist->objectInSongsAtIndex(0);
        if (!next) {
            playlistDidEnd();
            setLocation(0.0);
            return;
        }
        setCurrentSong(next);
        if (!m_currentSong)
            return;
    }
    m_endSampleTime.store(-1);
    updateOutputDeviceSampleRate();
    // A fade-in keeps a resume mid-song from clicking; from the very start of the file it would
    // only soften the song's own first attack.
    if (Player *player = playerAtIndex(indexOfEnabledPlayer()))
        player->setAntiClickOnStart(location() > 0.0);
    m_conductorProcessor->start();
    if (!m_playing)
        setPlaying(true);
}

void Stream::pause()
{
    if (m_conductorProcessor)
        m_conductorProcessor->stop();
    if (m_playing)
        setPlaying(false);
}

void Stream::setPlaying(bool playing)
{
    if (playing == m_playing)
        return;
    m_playing = playing;
    emit playingChanged(m_playing);
}

void Stream::next()
{
    SongPtr next = songFollowing(m_currentSong);
    if (!next && m_playlist && m_playlist->repeatMode() == 1)
        next = m_playlist->objectInSongsAtIndex(0);
    if (!next)
        return;
    const bool wasPlaying = isPlaying();
    setCurrentSong(next);
    if (wasPlaying)
        play();
}

void Stream::previous()
{
    const bool wasPlaying = isPlaying();
    const double at = location();
    if (wasPlaying) {
        if (at > 3.0) {
            setLocation(0.0);
            return;
        }
        const SongPtr previous = songPreceding(m_currentSong);
        if (!previous) {
            setLocation(0.0);
            return;
        }
        setCurrentSong(previous);
        play();
        return;
    }
    if (at != 0.0) {
        setLocation(0.0);
        return;
    }
    if (const SongPtr previous = songPreceding(m_currentSong))
        setCurrentSong(previous);
}

// --- The landmark and its sequels ----------------------------------------------------------------

bool Stream::initialize(VEKError *error)
{
    const VEKAudioDevicePtr device = outputDevice();
    m_offline.store(device && !device->rendersInRealTime());
    return VEKAudioStream::initialize(error);
}

void Stream::landmarkReached(Landmark &landmark)
{
    // An offline render runs far ahead of real time: before the next transition it waits until
    // the main thread has loaded the branch that the last one freed. Nobody listens, so waiting
    // here loses nothing.
    if (m_offline.load(std::memory_order_relaxed)) {
        for (int waited = 0; (m_preparingFollowingSong.load(std::memory_order_acquire)
                              || m_loadingPlayer.load(std::memory_order_seq_cst) >= 0)
                             && waited < 30000;
             ++waited)
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }

    if (m_repeatMode.load(std::memory_order_relaxed) == 2) {
        // From the very start of the file, in every rate mode.
        landmark.setJump(true);
        landmark.setJumpLocation(0.0);
        landmark.setStop(false);
        return;
    }
    const quint64 d = indexOfDisabledPlayer();
    if (d < 2) {
        // Take the silent branch before looking at it: the main thread may be loading it anew
        // (the playlist changed). Then it is not ready, and the transition goes the long way,
        // through the main thread, once the load is done.
        setEnabled(true, d);
        std::atomic_thread_fence(std::memory_order_seq_cst);
        if (m_loadingPlayer.load(std::memory_order_seq_cst) == int(d)) {
            setEnabled(false, d);
            landmark.setJump(false);
            m_events.push(Event::NextSongShouldStart);
            landmark.setStop(false);
            return;
        }
        if (m_facts[d].length.load(std::memory_order_acquire) > 0.0) {
            const quint64 e = 1 - d;
            const bool rateChanges = m_facts[d].fileRate.load(std::memory_order_relaxed)
                                     != m_facts[e].fileRate.load(std::memory_order_relaxed);
            // Following the song's rate means a stop, but only where the rate really changes.
            if (m_ratePolicy.load(std::memory_order_relaxed) == -1 && rateChanges) {
                setEnabled(false, d);
                landmark.setJump(false);
                m_events.push(Event::NextSongShouldStart);
                landmark.setStop(false);
                return;
            }
            setEnabled(false, e);
            const double start = m_facts[d].rangeLocation.load(std::memory_order_relaxed);
            const double length = m_facts[d].rangeLength.load(std::memory_order_relaxed);
            landmark.setJump(true);
            landmark.setJumpLocation(start);
            landmark.setLocation(start + length);
            m_preparingFollowingSong.store(true, std::memory_order_release);
            m_events.push(Event::NextSongDidStart);
            landmark.setStop(false);
            return;
        }
    }
    setEnabled(false, 0);
    setEnabled(false, 1);
    landmark.setStop(true);
    m_endSampleTime.store(qint64(m_conductorProcessor->landmarkSampleTime()), std::memory_order_release);
    m_events.push(Event::PlaylistDidEnd);
}

void Stream::deliverLandmarkEvents()
{
    Event event;
    while (m_events.pop(event)) {
        switch (event) {
        case Event::NextSongDidStart:
            nextSongDidStart();
            break;
        case Event::NextSongShouldStart:
            nextSongShouldStart();
            break;
        case Event::PlaylistDidEnd:
            playlistDidEnd();
            break;
        }
    }
}

void Stream::nextSongDidStart()
{
    replaceCurrentSong(songInPlayerAtIndex(indexOfEnabledPlayer()));
    reloadFollowingSong();
    m_preparingFollowingSong.store(false, std::memory_order_release);
}

void Stream::nextSongShouldStart()
{
    stop();
    uninitialize();
    const quint64 d = indexOfDisabledPlayer();
    if (lengthOfSongInPlayerAtIndex(d) <= 0.0) {
        // The branch was being loaded when the landmark came, and nothing follows after all.
        initialize();
        start();
        m_conductorProcessor->stop();
        setEnabled(false, 0);
        setEnabled(false, 1);
        playlistDidEnd();
        return;
    }
    setEnabled(false, 1 - d);
    setEnabled(true, d);
    replaceCurrentSong(songInPlayerAtIndex(indexOfEnabledPlayer()));
    if (auto *c = qobject_cast<VEKConverterAudioProcessor *>(
            processorWithIdentifier<VEKAudioDock>(QStringLiteral("mixConverterDock"))->processor().get()))
        c->setInSampleRate(m_facts[d].fileRate.load(), nullptr);
    const VEKAudioDevicePtr device = outputDevice();
    const double rateBefore = device ? device->sampleRate(nullptr) : 0.0;
    updateOutputDeviceSampleRate();
    // Let the device settle at a new rate.
    if (device && device->sampleRate(nullptr) != rateBefore)
        QThread::msleep(250);
    const AudioFileRange range = playableRangeOfSongInPlayerAtIndex(indexOfEnabledPlayer());
    m_landmark->setJumpLocation(range.location);
    m_landmark->setLocation(range.location + range.length);
    setLocation(range.location);
    initialize();
    start();
    reloadFollowingSong();
}

void Stream::playlistDidEnd()
{
    if (m_playlist && m_playlist->repeatMode() == 1) {
        // The list went round without a song ready (the walk found only missing songs).
        setCurrentSong(m_playlist->objectInSongsAtIndex(0));
        play();
        return;
    }
    replaceCurrentSong(nullptr);
    loadSong(nullptr, 0, nullptr);
    loadSong(nullptr, 1, nullptr);
    // The transport stopped at the end: the play button shows it.
    setPlaying(false);
    emit playlistEnded();
}

std::optional<quint64> Stream::endSampleTime() const
{
    const qint64 t = m_endSampleTime.load(std::memory_order_acquire);
    if (t < 0)
        return std::nullopt;
    // The landmark counts on the conductor's time line, before the conversion to the device.
    const double mixRate = mixSampleRate();
    const double outRate = format().sampleRate;
    if (mixRate <= 0.0 || mixRate == outRate)
        return quint64(t);
    return quint64(std::llround(double(t) * outRate / mixRate));
}

// --- Position ----------------------------------------------------------------------------------

double Stream::location() const
{
    return m_currentSong && m_conductorProcessor ? m_conductorProcessor->location() : 0.0;
}

void Stream::setLocation(double seconds)
{
    if (!m_currentSong || !m_conductorProcessor)
        return;
    m_conductorProcessor->setLocation(seconds);
    emit locationChanged(seconds);
}

float Stream::normalizedLocation() const
{
    if (!m_currentSong)
        return 0.0f;
    const double length = lengthOfSongInPlayerAtIndex(indexOfEnabledPlayer());
    return length == 0.0 ? 0.0f : float(location() / length);
}

void Stream::setNormalizedLocation(float fraction)
{
    if (!m_currentSong)
        return;
    const double n = fraction < 0.0f ? 0.0 : fraction >= 1.0f ? 1.0 : double(fraction);
    const AudioFileRange range = playableRangeOfSongInPlayerAtIndex(indexOfEnabledPlayer());
    const double target = n * range.length + range.location;
    // One frame of the conductor's time line short of the end, so the landmark there still
    // fires.
    double rate = mixSampleRate();
    if (rate <= 0.0)
        rate = format().sampleRate;
    setLocation(target - 1.0 / rate);
}

double Stream::remaining() const
{
    if (!m_currentSong)
        return 0.0;
    return lengthOfSongInPlayerAtIndex(indexOfEnabledPlayer()) - location();
}
