#pragma once

#include "AudioFile.h"
#include "SignalPath.h"
#include "graph/VEKAudioStream.h"
#include "library/Playlist.h"
#include "library/Song.h"
#include "outputs/VEKAudioDevice.h"
#include "outputs/VEKAudioOutput.h"
#include "rt/VEKSPSCQueue.h"

#include <QMetaObject>
#include <atomic>
#include <memory>
#include <optional>

class Landmark;
class Player;
class UserDefaults;
class VEKAudioDock;
class VEKConductorAudioProcessor;
class VEKConverterAudioProcessor;
class VEKHardwareAudioProcessor;
class VEKMeterAudioProcessor;

// The player's audio engine: one per program, made at launch and torn down at quit.
//
// Its graph comes from the resource Stream.plist: two identical branches (player, router, converter
// dock), one heard and one silent with the following song ready, a mixer, the conductor, the
// converter to the device's rate, then one stereo chain to the output device: meter, three effect
// docks, meter, crossfeed, volume, meter, dim, mute, dither, hardware. The device runs from launch to quit; play and pause start and stop
// only the conductor. At the end of a song's playable range the landmark swaps the branches and
// jumps in the same buffer, so songs follow each other without a gap; the main thread then loads
// the song after that into the branch just freed.
//
// The stream follows its settings (output device, rate policy, volume, dither, converter type and
// quality, headphones) as they change, and keeps the effect slots in the settings whenever they
// change.
//
// Threads: everything on the main thread, except Landmark::action(), which runs on the render
// thread and reaches the main thread through a lock-free queue.
class Stream : public VEKAudioStream {
    Q_OBJECT
    Q_PROPERTY(bool playing READ isPlaying WRITE setPlaying NOTIFY playingChanged)
    Q_PROPERTY(SongPtr currentSong READ currentSong NOTIFY currentSongChanged)
public:
    // The player index that is none of the two.
    static constexpr quint64 notFound = 9223372036854775807ULL;
    static constexpr quint64 numberOfEffectSlots = 3;
    // How long an effect slot crossfades when its effect changes or is turned on or off.
    static constexpr double effectCrossfadeDuration = 0.02;

    // Registers the stream's default settings (rate policy, volume, dim, mute, converter,
    // dither, headphones). Called by the constructor too; harmless twice.
    static void registerDefaults(UserDefaults &defaults);
    // The graph description of the resources, as a dictionary.
    static QVariantMap defaultDescription();

    explicit Stream(QObject *parent = nullptr);
    ~Stream() override;

    // --- Choices of this run (before initWithDescription) ----------------------------------

    // A device that takes the place of the `outputDevice` setting for this run (the command
    // line's --device, an offline render's capture file). Null follows the setting.
    void setOutputDeviceOverride(VEKAudioDevicePtr device) { m_deviceOverride = std::move(device); }
    // A rate policy that takes the place of the `sampleRate` setting for this run.
    void setSampleRatePolicyOverride(std::optional<qint64> policy);
    // The policy in force: the override, else the setting. 0 leaves the device alone, -1
    // follows the song, another value is a rate in hertz.
    qint64 sampleRatePolicy() const { return m_ratePolicy.load(std::memory_order_relaxed); }

    // --- Creation and teardown --------------------------------------------------------------

    // Builds the graph, sets both players silent, finds the device and its rate, applies the
    // settings, makes the converters and restores the effect slots. Null-safe to fail: false
    // with `error` when the description, the dither or headphones settings or the converters
    // are refused.
    bool initWithDescription(const QVariantMap &description, VEKError *error = nullptr) override;
    bool initialize(VEKError *error = nullptr) override;
    // Stores the effect slots, gives up exclusive use of the device, stops following the
    // settings and lets go of the playlist. Once, after stop().
    void teardown();

    // --- Graph -----------------------------------------------------------------------------

    VEKAudioDock *processorDockAtIndex(quint64 index) const;
    VEKAudioProcessorPtr processorAtIndex(quint64 index) const;
    // Puts `processor` (null empties) into effect slot `index` while the device keeps running
    // (crossfaded, like turning an effect on or off), and stores the slots in the settings. A
    // processor that can't be prepared passes the audio through. False only for an index above 2.
    bool setProcessor(VEKAudioProcessorPtr processor, quint64 index, VEKError *error = nullptr);
    VEKAudioDevicePtr outputDevice() const;
    VEKHardwareAudioProcessor *hardware() const { return m_hardware; }
    // The meter at the point the setting `meterPoint` names (0 before the effects, 1 after them,
    // 2 after the volume).
    VEKMeterAudioProcessor *meter() const;

    // --- Output device and rate -------------------------------------------------------------

    // Finds the device from the settings (with its older forms), falling back to the default
    // device, selects its source and restarts the stream on it.
    void updateOutputDevice();
    // Applies the rate policy to the device, choosing among the rates it offers.
    void updateOutputDeviceSampleRate();
    // The rate a device offering `available` (in its order) should run at for `rate`: the rate
    // itself, else the first of rate x2, /2, x4, /4, x8, /8, x16, /16 on offer, else the nearest
    // (the first of two at equal distance; the largest finite double for an empty list).
    static double chooseSampleRate(double rate, const QList<double> &available);
    // Makes the two converters for `convertorType` (restarting the stream) unless they are of
    // the right kind already.
    bool updatePlayerConverters(VEKError *error = nullptr);
    // The rate the conductor runs at, which the converter after the conductor turns into the
    // device's rate: the rate of the song heard. Songs of one rate follow each other through one
    // continuous conversion, as if they were one file; at a song of another rate the converter
    // and the conductor take up its rate at its first frame, without a gap. A song at the
    // device's rate passes untouched.
    double mixSampleRate() const;
    // Hands the quality settings to a converter; a running one takes them at once.
    void updatePlayerConverterQuality(VEKAudioProcessor *converter);

    // What the output device plays: the rate, word length and channels negotiated when the stream
    // last opened it (the device's own rate before that), and whether the current song reaches
    // it unchanged: its rate is the device's, its word fits the output's, and nothing on the way
    // changes a bit (volume 1, no effect on, crossfeed, dim and mute off, the dither off or at
    // least as long as the song's word). Without a song, or with a lossy one, not bit-perfect.
    struct OutputFormat {
        double sampleRate = 0;
        int bitsPerSample = 0;
        int channels = 0;
        bool bitPerfect = false;
        bool operator==(const OutputFormat &) const = default;
    };
    OutputFormat outputFormat() const;
    // What the current song goes through on its way to the device, stage by stage, with the
    // device's format as it reported it when it opened. Main thread; built afresh on each call
    // from the settings and the graph, never from the render thread.
    SignalPath signalPath() const;

    // --- Players ----------------------------------------------------------------------------

    bool isPlayerEnabledAtIndex(quint64 index) const;
    // Sets whether the branch is heard; tells nobody. Any thread.
    void setEnabled(bool enabled, quint64 index);
    quint64 indexOfEnabledPlayer() const;
    quint64 indexOfDisabledPlayer() const;
    Player *playerAtIndex(quint64 index) const;
    SongPtr songInPlayerAtIndex(quint64 index) const;
    double lengthOfSongInPlayerAtIndex(quint64 index) const;
    AudioFileRange playableRangeOfSongInPlayerAtIndex(quint64 index) const;
    // Opens the song's file into the (silent) branch `index`; null empties it. False with
    // `error` when the file can't be opened: the branch then keeps its old file.
    bool loadSong(const SongPtr &song, quint64 index, VEKError *error = nullptr);

    // --- Transport ----------------------------------------------------------------------------

    const PlaylistPtr &playlist() const { return m_playlist; }
    void setPlaylist(const PlaylistPtr &playlist);
    const SongPtr &currentSong() const { return m_currentSong; }
    // Makes `song` current, paused at the very start of its file, with the following song
    // ready. A song not in the playlist clears the current song.
    void setCurrentSong(const SongPtr &song);
    void play();
    void pause();
    void next();
    void previous();
    bool isPlaying() const { return m_playing; }
    void setPlaying(bool playing);

    // Main thread, after the landmark: the branches were swapped (gapless), the transition
    // waits for a rate change (the rate follows the song), or nothing followed.
    void nextSongDidStart();
    void nextSongShouldStart();
    void playlistDidEnd();

    // --- Position (seconds on the current file's time line) ------------------------------------

    double location() const;
    void setLocation(double seconds);
    float normalizedLocation() const;
    void setNormalizedLocation(float fraction);
    double remaining() const;

    // Offline renders only: the output sample time at which the playlist ended (the landmark
    // that found nothing to follow), in frames of the device's rate; nothing before that.
    std::optional<quint64> endSampleTime() const;

    // Render thread (Landmark::action).
    void landmarkReached(Landmark &landmark);

signals:
    // Main thread, once per change of the current song (also to none), when the new song is in
    // place: heard from the start of its file when chosen by hand, from its playable start after
    // a transition. The new song's start is no seek: it sends no locationChanged.
    void currentSongChanged(const SongPtr &song);
    // Main thread: setPlaylist() took another playlist (or none). The current song was cleared
    // before, with its own notice.
    void playlistChanged(const PlaylistPtr &playlist);
    void playingChanged(bool playing);
    // A seek (setLocation); between seeks the position advances without notice.
    void locationChanged(double seconds);
    // After playlistDidEnd() ran: the playlist played out.
    void playlistEnded();
    // Another output device took the place of the one in use.
    void outputDeviceChanged();
    // outputFormat() changed: the negotiated format, or anything that decides bit-perfectness.
    void outputFormatChanged();
    // signalPath() changed: the song, a setting on the way, the converter or the device.
    void signalPathChanged();

private:
    enum class Event : quint8 { NextSongDidStart, NextSongShouldStart, PlaylistDidEnd };
    struct PlayerFacts {
        // Written on the main thread when a branch is loaded, read by the landmark.
        std::atomic<double> length{0.0};
        std::atomic<double> rangeLocation{0.0};
        std::atomic<double> rangeLength{0.0};
        std::atomic<double> fileRate{0.0};
    };

    void settingChanged(const QString &key);
    void playlistValueChanged(const QString &key);
    void reloadFollowingSong();
    SongPtr songFollowing(const SongPtr &song) const;
    SongPtr songPreceding(const SongPtr &song) const;
    // What the silent branch should hold: the song following the current one, or with the
    // playlist repeating, the first song after the last.
    SongPtr songToPrepare() const;
    void replaceCurrentSong(const SongPtr &song);
    void deliverLandmarkEvents();
    void alertUnopenable(const SongPtr &song);
    void storeEffectSlots();
    // Hands `ditherProperties` to the dither, which acts only when its `enabled` is true.
    bool applyDitherProperties(VEKError *error);
    void restart(bool wasInitialized, bool wasRunning);
    // Marks silent branch `index` as being loaded; false (and nothing marked) if the landmark has
    // made it the heard one meanwhile.
    bool claimSilentPlayer(quint64 index);
    QList<VEKAudioDock *> converterDocks() const;
    void setMixSampleRate(double rate);
    VEKConverterAudioProcessor *mixConverter() const;
    // Songs follow each other gaplessly through a change of rate: the converter after the
    // conductor is made ready for the rate of the song in silent branch `index` (main thread),
    // the landmark asks whether it is (render thread), and the main thread takes note once the
    // rate changed.
    void prepareMixSampleRateFor(quint64 index);
    bool mixConverterReadyFor(double rate) const;
    void adoptMixSampleRate();
    quint64 mixInputOrigin() const;
    // Emits outputFormatChanged() and signalPathChanged() for what is no longer as last told.
    void noteOutputFormat();
    void watchEffectSlot(VEKAudioDock *dock);

    // The settings the stream follows.
    inline static const QString kSampleRate = QStringLiteral("sampleRate");
    inline static const QString kVolume = QStringLiteral("volume");
    inline static const QString kDitherProperties = QStringLiteral("ditherProperties");
    inline static const QString kHeadphones = QStringLiteral("headphonesProcessorSettings");
    inline static const QString kConvertorType = QStringLiteral("convertorType");
    inline static const QString kConvertorQuality = QStringLiteral("convertorQuality");
    inline static const QString kSteepness = QStringLiteral("resamplerFilterSteepness");
    inline static const QString kCutoff = QStringLiteral("resamplerCutoffScaling");
    inline static const QString kPreringing = QStringLiteral("resamplerPreringing");
    inline static const QString kOutputDevice = QStringLiteral("outputDevice");
    inline static const QString kIsExclusive = QStringLiteral("isExclusive");

    PlaylistPtr m_playlist;
    SongPtr m_currentSong;
    bool m_playing = false;
    VEKConductorAudioProcessor *m_conductorProcessor = nullptr;
    VEKHardwareAudioProcessor *m_hardware = nullptr;
    std::shared_ptr<Landmark> m_landmark;
    Player *m_players[2] = {nullptr, nullptr};
    VEKAudioConnection *m_toMixer[2] = {nullptr, nullptr};
    PlayerFacts m_facts[2];
    VEKAudioDevicePtr m_deviceOverride;
    std::optional<qint64> m_ratePolicyOverride;
    QMetaObject::Connection m_settingsConnection;
    QMetaObject::Connection m_playlistConnection;
    bool m_tornDown = false;
    bool m_restoringEffects = false;
    // The format the device settled on when last opened; none before that or after a change of
    // device.
    std::optional<VEKAudioFormat> m_negotiated;
    // The device's own account of that format.
    VEKAudioDeviceFormat m_deviceFormat;
    OutputFormat m_reportedFormat;
    SignalPath m_reportedPath;

    // Read by the landmark on the render thread.
    std::atomic<qint64> m_ratePolicy{0};
    std::atomic<quint64> m_repeatMode{0};
    // Set by a gapless swap, cleared once the main thread has loaded the branch it freed; an
    // offline render waits for it before the next transition, so it never outruns the loading.
    std::atomic<bool> m_preparingFollowingSong{false};
    std::atomic<qint64> m_endSampleTime{-1};
    // The branch the main thread is loading, or -1.
    std::atomic<int> m_loadingPlayer{-1};
    // The device takes the audio faster than real time (a capture file): renders may wait.
    std::atomic<bool> m_offline{false};
    VEKSPSCQueue<Event> m_events{64};
    // The converter after the conductor, for the landmark; replaced only while stopped.
    std::atomic<VEKConverterAudioProcessor *> m_mixConverter{nullptr};
};
