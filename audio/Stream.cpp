// The stream's creation and graph: its settings, the graph and effect slots, the two branches.
#include "Stream.h"

#include "HeadphonesProcessor.h"
#include "Landmark.h"
#include "Player.h"
#include "core/VEKLocalizedString.h"
#include "core/VEKLog.h"
#include "graph/VEKAudioDock.h"
#include "graph/VEKConductorAudioProcessor.h"
#include "graph/VEKConverterAudioProcessor.h"
#include "graph/VEKDitherAudioProcessor.h"
#include "graph/VEKHardwareAudioProcessor.h"
#include "graph/VEKMeterAudioProcessor.h"
#include "graph/VEKRouterAudioProcessor.h"
#include "graph/VEKVolumeAudioProcessor.h"
#include "outputs/VEKAudioDeviceMonitor.h"
#include "settings/UserDefaults.h"
#include "settings/VEKSettingRange.h"
#include "settings/VEKPropertyList.h"

#include <QScopeGuard>

namespace {

QString id(const char *format, quint64 index)
{
    return QString::fromLatin1(format).arg(index + 1);
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
    m_ratePolicy.store(VEKSettingRange::checkedRatePolicy(UserDefaults::standard().integerForKey(kSampleRate)));
}

Stream::~Stream()
{
    // The render thread must be gone before the landmark's stream is.
    stop();
    if (m_landmark)
        m_landmark->setStream(nullptr);
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
    for (quint64 i = 0; i < numberOfEffectSlots; ++i) {
        if (!processorDockAtIndex(i))
            return missing(id("effect%1Dock", i));
        watchEffectSlot(processorDockAtIndex(i));
        // An effect put in, taken out, or turned on or off under a playing song is heard through
        // a short crossfade, without a gap or a click.
        processorDockAtIndex(i)->setCrossfadeDuration(effectCrossfadeDuration);
    }
    connect(this, &Stream::currentSongChanged, this, [this] { noteOutputFormat(); });

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

    processorWithIdentifier<VEKVolumeAudioProcessor>(kVolume)->setScalar(float(VEKSettingRange::checkedReal(kVolume, defaults.doubleForKey(kVolume), 0.0, 1.0, 1.0)));
    if (!applyDitherProperties(error))
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
            m_ratePolicy.store(VEKSettingRange::checkedRatePolicy(defaults.integerForKey(kSampleRate)));
        updateOutputDeviceSampleRate();
    } else if (key == kVolume) {
        processorWithIdentifier<VEKVolumeAudioProcessor>(kVolume)->setScalar(float(VEKSettingRange::checkedReal(kVolume, defaults.doubleForKey(kVolume), 0.0, 1.0, 1.0)));
    } else if (key == kDitherProperties) {
        if (!applyDitherProperties(&error))
            error.alert();
    } else if (key == kConvertorType) {
        if (!updatePlayerConverters(&error))
            error.alert();
    } else if (key == kConvertorQuality || key == kSteepness || key == kCutoff || key == kPreringing) {
        for (VEKAudioDock *dock : converterDocks())
            updatePlayerConverterQuality(dock->processor().get());
    } else if (key == kIsExclusive) {
        // Exclusive use opens the card's own device, which only a new opening of the output
        // reaches: the one change here that is heard as a restart.
        if (VEKAudioDevicePtr device = outputDevice(); device && device->supportsExclusive()) {
            const bool wasRunning = isRunning();
            stop();
            uninitialize();
            if (!device->setIsExclusive(defaults.boolForKey(kIsExclusive), &error))
                error.alert();
            if (wasRunning) {
                initialize();
                start();
            }
        }
    } else if (key == kHeadphones) {
        if (!processorWithIdentifier(QStringLiteral("headphones"))->setSettings(defaults.dictionaryForKey(key), &error))
            error.alert();
    }
    // Volume, dim, mute, dither and crossfeed decide bit-perfectness.
    noteOutputFormat();
}

bool Stream::applyDitherProperties(VEKError *error)
{
    // The registered record has no `enabled`: the dither stays out of the way until the user
    // turns it on, so a source that fits the output arrives bit for bit.
    QVariantMap properties = UserDefaults::standard().dictionaryForKey(kDitherProperties);
    properties.insert(QStringLiteral("enabled"), properties.value(QStringLiteral("enabled")).toBool());
    return processorWithIdentifier(QStringLiteral("dither"))->setSettings(properties, error);
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
    // The device keeps running: the dock prepares the processor here at the stream's format and
    // the render thread crossfades to it at a buffer boundary.
    processorDockAtIndex(index)->setProcessor(std::move(processor));
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

VEKMeterAudioProcessor *Stream::meter() const
{
    static const char *const points[] = {"preEffectsMeter", "postEffectsMeter", "postVolumeMeter"};
    const qint64 point = UserDefaults::standard().integerForKey(QStringLiteral("meterPoint"));
    return processorWithIdentifier<VEKMeterAudioProcessor>(
        QString::fromLatin1(points[std::clamp<qint64>(point, 0, 2)]));
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
    // The branch's converter only passes the song through (the conversion follows the
    // conductor): at its output's rate it builds no filter for nothing.
    if (auto *c = qobject_cast<VEKConverterAudioProcessor *>(converter.get())) {
        const VEKAudioConnection *out = c->outputConnection();
        c->setInSampleRate(out && out->sampleRate() > 0.0 ? out->sampleRate() : file->sampleRate(), nullptr);
    }
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
    // A following song of another rate: the converter after the conductor gets ready for it.
    if (m_currentSong)
        prepareMixSampleRateFor(index);
    return true;
}
