// The playback side of the delegate: the stream's launch, the transport actions of the media
// keys and menus, and what the library operations ask of the stream.
#include "ApplicationDelegate.h"

#include "audio/AudioProcessorClasses.h"
#include "audio/Stream.h"
#include "lv2/VEKLV2World.h"

#include <algorithm>

QList<QVariantMap> ApplicationDelegate::processorDescriptionsForType(quint32 type)
{
    QList<QVariantMap> descriptions;
    const QVariantList found = VEKLV2World::shared().effectDescriptions(type);
    descriptions.reserve(found.size());
    for (const QVariant &description : found)
        descriptions.append(description.toMap());
    return descriptions;
}

const QList<QVariantMap> &ApplicationDelegate::effectDescriptions() const
{
    if (!m_effectDescriptions) {
        QList<QVariantMap> descriptions = processorDescriptionsForType(0x61756678);
        descriptions += processorDescriptionsForType(0x61756d66);
        m_effectDescriptions = std::move(descriptions);
    }
    return *m_effectDescriptions;
}

void ApplicationDelegate::launchStream(const LaunchOptions &options)
{
    if (!options.stream)
        return;
    registerAudioProcessorClasses();
    auto stream = std::make_unique<Stream>();
    stream->setOutputDeviceOverride(options.outputDevice);
    stream->setSampleRatePolicyOverride(options.sampleRatePolicy);
    VEKError error;
    if (!stream->initWithDescription(Stream::defaultDescription(), &error)) {
        // No engine: every later message to the stream is a no-op, and the library works on.
        error.alert();
        return;
    }
    m_stream = std::move(stream);
    connect(m_stream.get(), &Stream::currentSongChanged, this,
            [this](const SongPtr &song) { currentSongDidChange(song); });
    if (!m_stream->initialize(&error)) {
        error.alert();
        return;
    }
    if (options.startStream && !m_stream->start(&error))
        error.alert();
}

void ApplicationDelegate::play()
{
    if (streamIsPlaying()) {
        streamPause();
        return;
    }
    if (m_stream && !m_stream->currentSong() && !makeFirstSongCurrent())
        return;
    streamPlay();
}

PlaylistPtr ApplicationDelegate::playlistInView() const
{
    if (m_stream && m_stream->playlist())
        return m_stream->playlist();
    return m_selectedPlaylist ? m_selectedPlaylist : m_localPlaylists.value(0);
}

bool ApplicationDelegate::makeFirstSongCurrent()
{
    const PlaylistPtr playlist = playlistInView();
    if (!m_stream || !playlist)
        return false;
    const QList<SongPtr> songs = playlist->songs();
    const auto first = std::find_if(songs.begin(), songs.end(), [](const SongPtr &song) { return !song->isMissing(); });
    if (first == songs.end())
        return false;
    if (m_stream->playlist() != playlist)
        m_stream->setPlaylist(playlist);
    m_stream->setCurrentSong(*first);
    return m_stream->currentSong() != nullptr;
}

void ApplicationDelegate::next()
{
    if (m_stream)
        m_stream->next();
}

void ApplicationDelegate::previous()
{
    if (m_stream)
        m_stream->previous();
}

SongPtr ApplicationDelegate::streamCurrentSong() const
{
    return m_stream ? m_stream->currentSong() : nullptr;
}

bool ApplicationDelegate::streamIsPlaying() const
{
    return m_stream && m_stream->isPlaying();
}

void ApplicationDelegate::streamPause()
{
    if (m_stream)
        m_stream->pause();
}

void ApplicationDelegate::streamPlay()
{
    if (m_stream)
        m_stream->play();
}

void ApplicationDelegate::streamStopIfPlaying(const PlaylistPtr &playlist)
{
    // A deleted playlist (or, with none given, a library read anew) must not go on playing.
    if (!m_stream || (playlist && m_stream->playlist() != playlist))
        return;
    m_stream->pause();
    m_stream->setCurrentSong(nullptr);
    m_stream->setPlaylist(nullptr);
}
