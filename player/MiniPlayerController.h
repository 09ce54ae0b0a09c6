#pragma once

#include "library/Song.h"
#include "text/VEKTimeFormatter.h"

#include <QObject>
#include <QPointer>

#include <memory>

class ApplicationDelegate;
class MiniPlayerPosition;
class MiniPlayerScrollingText;
class MiniPlayerWindow;
class PlayerButton;
class PlayerLabel;
class PlayerTransport;
class Stream;
class UserDefaults;

// The small form of the player: the artist and the song's name on two scrolling lines, the
// song's length, a thin position bar, and ten buttons (shuffle, repeat the song, repeat the
// playlist, volume down, mute, dim, volume up, previous, play, next). No meter, waveform or
// effects; the volume moves in steps of 2 dB.
//
// It lives beside PlayerController for the whole run. Which of the two shows is the setting
// `playerSize`: above 3 this one. Both keep their centre in `playerCenter`, so they stand in the
// same place. Like the player it holds no playback state: every control reads and writes the
// stream, the delegate or the settings (`volume`, `dim`, `mute`) and follows their signals.
// Main thread only.
class MiniPlayerController : public QObject {
    Q_OBJECT
public:
    // The volume buttons' steps: +2 dB and -2 dB on the stored linear gain. Up from silence
    // starts at 0.001; down from 0.001 or less is silence.
    static float volumeUp(float volume);
    static float volumeDown(float volume);

    explicit MiniPlayerController(ApplicationDelegate &delegate, QObject *parent = nullptr);
    ~MiniPlayerController() override;

    MiniPlayerWindow *window() const { return m_window; }

    // Above 3: the window, at the kept centre, made active and brought to the front. Otherwise
    // it is hidden. The caller stores the size.
    void setPlayerSize(quint64 size);

    // Redraw from the model.
    void updateControls();

    // The controls, for the tests and assistive tools.
    MiniPlayerScrollingText *artistText() const { return m_artistText; }
    MiniPlayerScrollingText *nameText() const { return m_nameText; }
    PlayerLabel *totalTimeText() const { return m_totalTimeText; }
    MiniPlayerPosition *positionView() const { return m_position; }
    PlayerButton *shuffleButton() const { return m_shuffle; }
    PlayerButton *repeatOneButton() const { return m_repeatOne; }
    PlayerButton *repeatAllButton() const { return m_repeatAll; }
    PlayerButton *volumeDownButton() const { return m_volumeDown; }
    PlayerButton *muteButton() const { return m_mute; }
    PlayerButton *dimButton() const { return m_dim; }
    PlayerButton *volumeUpButton() const { return m_volumeUp; }
    PlayerButton *previousButton() const { return m_previous; }
    PlayerButton *playButton() const { return m_play; }
    PlayerButton *nextButton() const { return m_next; }

private:
    void buildControls();
    void observe();
    void windowMoved();
    void restoreCenter();
    void stepVolume(float (*step)(float));
    void updateVolumeText();
    UserDefaults &defaults() const;

    ApplicationDelegate &m_delegate;
    QPointer<Stream> m_stream;
    PlayerTransport *m_transport = nullptr; // child: what the position bar reads of the stream
    MiniPlayerWindow *m_window = nullptr;
    VEKTimeFormatter m_timeFormatter{VEKTimeFormatter::hoursMinutesSeconds};
    // The song the lines show, only compared: a new one restarts both lines' cycles together.
    std::weak_ptr<Song> m_shownSong;

    MiniPlayerScrollingText *m_artistText = nullptr;
    MiniPlayerScrollingText *m_nameText = nullptr;
    PlayerLabel *m_totalTimeText = nullptr;
    MiniPlayerPosition *m_position = nullptr;
    PlayerButton *m_shuffle = nullptr;
    PlayerButton *m_repeatOne = nullptr;
    PlayerButton *m_repeatAll = nullptr;
    PlayerButton *m_volumeDown = nullptr;
    PlayerButton *m_mute = nullptr;
    PlayerButton *m_dim = nullptr;
    PlayerButton *m_volumeUp = nullptr;
    PlayerButton *m_previous = nullptr;
    PlayerButton *m_play = nullptr;
    PlayerButton *m_next = nullptr;
};
