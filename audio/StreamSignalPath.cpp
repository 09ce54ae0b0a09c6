// The stream's account of what the current song goes through: read from the graph and the settings
// on the main thread, never from the render thread.
#include "Stream.h"

#include "Player.h"
#include "core/VEKLocalizedString.h"
#include "dsp/VEKPlatformConverter.h"
#include "graph/APLConverterAudioProcessor.h"
#include "graph/IZOConverterAudioProcessor.h"
#include "graph/VEKAudioDock.h"
#include "settings/UserDefaults.h"
#include "settings/VEKSettingRange.h"

namespace {

// The converter that runs after the conductor, by what it is rather than by what the setting asks.
QString converterName(const VEKAudioProcessor *converter)
{
    if (qobject_cast<const IZOConverterAudioProcessor *>(converter))
        return VEKLocalizedString("SignalPath_converterTunable");
    if (const auto *platform = qobject_cast<const APLConverterAudioProcessor *>(converter)) {
        switch (platform->complexity()) {
        case VEKPlatformConverter::Linear: return VEKLocalizedString("SignalPath_converterLinear");
        case VEKPlatformConverter::Mastering: return VEKLocalizedString("SignalPath_converterMastering");
        default: return VEKLocalizedString("SignalPath_converterNormal");
        }
    }
    return {};
}

} // namespace

SignalPath Stream::signalPath() const
{
    SignalPath::Source source;
    Player *player = playerAtIndex(indexOfEnabledPlayer());
    const auto file = player ? player->audioFile() : nullptr;
    if (m_currentSong && file) {
        source.codec = Song::shortFormatForKind(file->format());
        source.sampleRate = file->sampleRate();
        source.bitsPerSample = int(file->bitDepth());
        source.channels = int(file->numberOfChannels());
    }

    UserDefaults &defaults = UserDefaults::standard();
    SignalPath::Settings settings;
    settings.volume = VEKSettingRange::checkedReal(kVolume, defaults.doubleForKey(kVolume), 0.0, 1.0, 1.0);
    settings.dim = defaults.boolForKey(QStringLiteral("dim"));
    settings.mute = defaults.boolForKey(QStringLiteral("mute"));
    settings.headphones = defaults.dictionaryForKey(kHeadphones).value(QStringLiteral("enabled")).toBool();
    const QVariantMap dither = defaults.dictionaryForKey(kDitherProperties);
    settings.ditherEnabled = dither.value(QStringLiteral("enabled")).toBool();
    settings.ditherDepth = dither.value(QStringLiteral("depth"), 16).toInt();
    for (quint64 i = 0; i < numberOfEffectSlots; ++i)
        if (const VEKAudioProcessorPtr effect = processorAtIndex(i); effect && effect->isEnabled())
            settings.effects << effect->name();
    auto *dock = processorWithIdentifier<VEKAudioDock>(QStringLiteral("mixConverterDock"));
    settings.converter = converterName(dock ? dock->processor().get() : nullptr);
    return SignalPath::build(source, settings, m_deviceFormat);
}
