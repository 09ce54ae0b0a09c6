// The menu commands of the delegate and the one validation that decides, each time a menu
// opens, which items are enabled, checked and how play and the effects item are called.
#include "ApplicationDelegate.h"

#include "MprisService.h"
#include "audio/Stream.h"
#include "core/VEKLocalizedString.h"
#include "graph/VEKAudioProcessor.h"
#include "settings/UserDefaults.h"

#include <algorithm>

namespace {
const QString kDim = QStringLiteral("dim");
const QString kMute = QStringLiteral("mute");
const QString kVolume = QStringLiteral("volume");
const QString kPlayerSize = QStringLiteral("playerSize");
constexpr quint64 kEffectSlots = 3;

void toggleSetting(const QString &key)
{
    UserDefaults &defaults = UserDefaults::standard();
    defaults.setValue(key, !defaults.boolForKey(key));
}
} // namespace

bool ApplicationDelegate::validateMenuItem(MenuItem &item) const
{
    using A = MenuItem::Action;
    const UserDefaults &defaults = UserDefaults::standard();
    const PlaylistPtr streamPlaylist = m_stream ? m_stream->playlist() : nullptr;
    const SongPtr current = streamCurrentSong();
    switch (item.action) {
    case A::OpenPreferences:
        item.hidden = false;
        return true;
    case A::Rescan:
        return !m_queue || m_queue->operationCount() == 0;
    case A::ToggleSongColumn:
        // The song table's columns belong to the library window, which answers for them.
        return true;
    case A::Play: {
        const bool playing = streamIsPlaying();
        const PlaylistPtr target = playing ? streamPlaylist : m_selectedPlaylist;
        if (!playing) {
            item.title = VEKLocalizedString("Commands_controlsMenu_play");
            return target && target->countOfSongs() > 0;
        }
        // The same pause either way; only the word tells whether the list in view plays.
        item.title = VEKLocalizedString(target == m_selectedPlaylist ? "Commands_controlsMenu_pause"
                                                                     : "Commands_controlsMenu_stop");
        return true;
    }
    case A::Previous:
        return MprisService::canGoPrevious(streamPlaylist.get(), current);
    case A::Next:
        return MprisService::canGoNext(streamPlaylist.get(), current);
    case A::ToggleDim:
        item.state = defaults.boolForKey(kDim);
        return true;
    case A::ToggleMute:
        item.state = defaults.boolForKey(kMute);
        return true;
    case A::RepeatChanged:
        item.state = m_selectedPlaylist && qint64(m_selectedPlaylist->repeatMode()) == item.tag;
        return true;
    case A::ToggleShuffle:
        item.state = m_selectedPlaylist && m_selectedPlaylist->shuffle();
        return true;
    case A::ToggleEffectsEnabled: {
        bool any = false, anyOn = false;
        for (quint64 slot = 0; slot < kEffectSlots; ++slot) {
            if (const VEKAudioProcessorPtr p = m_stream ? m_stream->processorAtIndex(slot) : nullptr) {
                any = true;
                anyOn = anyOn || p->isEnabled();
            }
        }
        item.title = VEKLocalizedString(anyOn ? "Commands_controlsMenu_disableEffects"
                                              : "Commands_controlsMenu_enableEffects");
        return any;
    }
    case A::ViewSizeChanged:
        item.state = defaults.integerForKey(kPlayerSize) == item.tag;
        return true;
    case A::VolumeUp:
        return defaults.doubleForKey(kVolume) < 1.0;
    case A::VolumeDown:
        return defaults.doubleForKey(kVolume) > 0.0;
    default:
        return true;
    }
}

void ApplicationDelegate::toggleDim() { toggleSetting(kDim); }

void ApplicationDelegate::toggleMute() { toggleSetting(kMute); }

void ApplicationDelegate::toggleShuffle() { setShuffle(!shuffle()); }

void ApplicationDelegate::toggleEffectsEnabled()
{
    if (!m_stream)
        return;
    QList<VEKAudioProcessorPtr> processors;
    for (quint64 slot = 0; slot < kEffectSlots; ++slot)
        processors.append(m_stream->processorAtIndex(slot));
    const bool enable = std::none_of(processors.cbegin(), processors.cend(), [](const VEKAudioProcessorPtr &p) {
        return p && p->isEnabled();
    });
    for (const VEKAudioProcessorPtr &p : processors)
        if (p)
            p->setEnabled(enable);
    updateAllControls();
}

void ApplicationDelegate::changeVolume(double step)
{
    UserDefaults &defaults = UserDefaults::standard();
    defaults.setValue(kVolume, std::clamp(defaults.doubleForKey(kVolume) + step, 0.0, 1.0));
}
