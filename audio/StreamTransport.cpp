// The stream's transport: the playlist and current song, play and pause, the landmark between
// songs and its sequels on the main thread, and the position.
#include "Stream.h"

#include "Landmark.h"
#include "Player.h"
#include "core/VEKLocalizedString.h"
#include "graph/VEKAudioDock.h"
#include "graph/VEKConductorAudioProcessor.h"
#include "graph/VEKConverterAudioProcessor.h"

#include <QThread>
#include <cmath>
#include <thread>


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
    emit playlistChanged(m_playlist);
}

void Stream::playlistValueChanged(const QString &key)
{
    if (key == QLatin1String("repeatMode"))
        m_repeatMode.store(m_playlist->repeatMode());
    // Any change of the order in force (or of what follows the last song) prepares the following
    // song anew from it, so a song prepared from the old order is never heard.
    if (key == QLatin1String("songs") || key == QLatin1String("shuffle") || key == QLatin1String("sortKey")
        || key == QLatin1String("sortAscending") || key == QLatin1String("predicate")
        || key == QLatin1String("repeatMode"))
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
    // One notice per change, once the new song is heard from its start: observers never see a
    // passing "no song" nor the old song's position.
    if (!requested || (m_playlist && m_playlist->indexOfObjectInSongs(requested) == Playlist::NotFound)) {
        replaceCurrentSong(nullptr);
        return;
    }
    SongPtr song = requested;
    if (song->isMissing())
        song = songFollowing(song);
    pause();
    const quint64 idx = indexOfDisabledPlayer();
    VEKError error;
    if (!loadSong(song, idx, &error)) {
        alertUnopenable(song);
        replaceCurrentSong(nullptr);
        return;
    }
    setEnabled(false, 1 - idx);
    setEnabled(true, idx);
    if (song)
        setMixSampleRate(m_facts[idx].fileRate.load());
    // A song chosen by hand starts at the very start of its file. That is no seek: no
    // locationChanged.
    if (m_conductorProcessor)
        m_conductorProcessor->setLocation(0.0);
    const AudioFileRange range = playableRangeOfSongInPlayerAtIndex(idx);
    m_landmark->setLocation(range.location + range.length);
    m_preparingFollowingSong.store(false);
    replaceCurrentSong(song);
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
        landmark.setJumpSampleRate(0.0);
        landmark.setStop(false);
        return;
    }
    const quint64 d = indexOfDisabledPlayer();
    if (d < 2) {
        // Take the silent branch before looking at it: the main thread may be loading it anew
        // (the playlist changed). Then it is not ready, and the transition goes the long way,
        // through the main thread, once the load is done. So too when the last transition's
        // sequel has not run yet: the branch still holds the song just left (a song shorter
        // than the main thread's reaction), and jumping to it would swap the two forever.
        setEnabled(true, d);
        std::atomic_thread_fence(std::memory_order_seq_cst);
        if (m_loadingPlayer.load(std::memory_order_seq_cst) == int(d)
            || m_preparingFollowingSong.load(std::memory_order_acquire)) {
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
            // Following the song's rate means a stop, but only where the rate really changes;
            // so does a change of rate the converter is not ready for.
            const double nextRate = m_facts[d].fileRate.load(std::memory_order_relaxed);
            if ((m_ratePolicy.load(std::memory_order_relaxed) == -1 && rateChanges)
                || (rateChanges && !mixConverterReadyFor(nextRate))) {
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
            landmark.setJumpSampleRate(nextRate);
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
    adoptMixSampleRate();
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
    // The landmark counts on the conductor's time line, before the conversion to the device,
    // from where the last song's rate began.
    const double mixRate = mixSampleRate();
    const double outRate = format().sampleRate;
    const quint64 origin = mixInputOrigin();
    if (mixRate <= 0.0 || mixRate == outRate)
        return origin + quint64(t);
    return origin + quint64(std::llround(double(t) * outRate / mixRate));
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
