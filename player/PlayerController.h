#pragma once

#include "graph/VEKAudioProcessor.h"
#include "text/VEKTimeFormatter.h"

#include <QList>
#include <QObject>
#include <QPointF>
#include <QPointer>
#include <QTimer>

#include <array>
#include <optional>

class ApplicationDelegate;
class PlayerButton;
class PlayerContentView;
class PlayerEffectEditor;
class PlayerLabel;
class PlayerMeter;
class PlayerPosition;
class PlayerRepeatButton;
class PlayerSignalMark;
class SignalPathView;
class PlayerTitle;
class PlayerTransport;
class PlayerVolume;
class PlayerWindow;
class QAction;
class QMenu;
class QWidget;
class Stream;
class UserDefaults;

// The player window and everything on it: the current song's title, waveform and times, the
// meter, the volume knob, the transport, shuffle, repeat, mute and dim, the three effect slots
// and the mark of a connected remote client.
//
// It holds no playback state. Every control reads and writes the Stream, the ApplicationDelegate
// or the settings, and follows their signals; a command changes the model, never the display.
//
// Made once by the windowed launch, after the library is loaded and the stream runs:
//
//     PlayerController player(delegate);   // builds the window and shows it at `playerSize`
//     player.window();                     // the PlayerWindow, for menus and MPRIS's Raise
//
// It reads the delegate's stream once, when made (null: the controls show nothing and act on
// nothing). Settings: `playerSize` (0 to 3 the player at that size; above 3 the mini player
// instead, and this window stays hidden), `playerCenter` (text "{x, y}" in Qt's top-left screen
// coordinates, written on every move), `positionTextFormat` (elapsed or remaining time), and
// the `dim` and `mute` the buttons write. Main thread only.
class PlayerController : public QObject {
    Q_OBJECT
public:
    static constexpr int numberOfEffectSlots = 3;

    explicit PlayerController(ApplicationDelegate &delegate, QObject *parent = nullptr);
    ~PlayerController() override;

    PlayerWindow *window() const { return m_window; }

    // 0 to 3: the window at 2400x600 scaled by 1 - size x 0.25 (1800x450, 1200x300, 600x150),
    // about its present centre, made active and brought to the front. Above 3: hidden, keeping
    // its frame. The caller stores the size (the view-size command); this only shows it.
    void setPlayerSize(quint64 size);

    // Redraw from the model; each reads everything afresh and keeps nothing.
    void updateControls();
    void updatePositionTexts();
    void updateEffects();

    // Elapsed time (false) or remaining time as a negative value (true), kept in the settings.
    bool positionTextFormat() const { return m_positionTextFormat; }
    void togglePositionTextFormat();

    // The effects menu, shared by the three slots' popups: one submenu per maker, each holding
    // its effects by name, and the item that empties the slot. Which slot an item acts on is the
    // slot whose popup opened the menu last (effectMenuIndex).
    QMenu *effectsMenu() const { return m_effectsMenu; }
    qint64 effectMenuIndex() const { return m_effectMenuIndex; }
    // Puts the effect of `item` (an item of the effects menu) into the slot of effectMenuIndex,
    // closing the editor of the effect it replaces. An effect that can't be made, or a slot
    // that refuses it, is alerted and leaves the slot empty.
    void setEffect(QAction *item);
    // Empties the slot of effectMenuIndex, closing its effect's editor.
    void removeEffect();
    // Opens the editor of the effect in `slot`, or brings its open one to the front. An empty
    // slot does nothing.
    void editEffect(int slot);
    // The open effect editors, one at most per effect.
    QList<PlayerEffectEditor *> editors() const;

    // The player's own controls, for the menus and the tests.
    PlayerButton *playButton() const { return m_play; }
    PlayerButton *effectPopup(int slot) const { return m_effectPopup[size_t(slot)]; }
    PlayerButton *effectButton(int slot) const { return m_effectButton[size_t(slot)]; }
    PlayerButton *effectEnableButton(int slot) const { return m_effectEnable[size_t(slot)]; }
    PlayerLabel *positionText() const { return m_positionText; }
    PlayerSignalMark *signalMark() const { return m_signalMark; }
    // Shows the whole signal path in a popup under the signal mark (what a press on it does).
    void showSignalPath();
    SignalPathView *signalPathPopup() const { return m_signalPathPopup; }

    // "{x, y}" and back, the form `playerCenter` is kept in. A text that is no point gives none.
    static QString stringFromPoint(QPointF point);
    static std::optional<QPointF> pointFromString(const QString &text);

private:
    void buildControls();
    void buildEffectsMenu();
    void observe();
    void watchSlot(int slot, const VEKAudioProcessorPtr &processor);
    void playingChanged();
    void updateOutputFormat();
    void playButtonChanged();
    void windowMoved();
    void effectEnableChanged(int slot);
    void closeEditorsOf(const VEKAudioProcessorPtr &processor);
    void restoreCenter();
    QString timeText(double seconds) const;
    UserDefaults &defaults() const;

    ApplicationDelegate &m_delegate;
    QPointer<Stream> m_stream;
    PlayerTransport *m_transport = nullptr; // child: what the controls read of the stream
    PlayerWindow *m_window = nullptr;
    PlayerContentView *m_contentView = nullptr;

    PlayerMeter *m_meter = nullptr;
    PlayerPosition *m_position = nullptr;
    PlayerTitle *m_title = nullptr;
    PlayerVolume *m_volume = nullptr;
    PlayerLabel *m_positionText = nullptr;
    PlayerLabel *m_totalTimeText = nullptr;
    PlayerLabel *m_formatText = nullptr;
    PlayerLabel *m_sizeText = nullptr;
    PlayerSignalMark *m_signalMark = nullptr;
    SignalPathView *m_signalPathPopup = nullptr; // made on first use
    PlayerButton *m_shuffle = nullptr;
    PlayerRepeatButton *m_repeat = nullptr;
    PlayerButton *m_previous = nullptr;
    PlayerButton *m_play = nullptr;
    PlayerButton *m_next = nullptr;
    PlayerButton *m_mute = nullptr;
    PlayerButton *m_dim = nullptr;
    std::array<PlayerButton *, numberOfEffectSlots> m_effectEnable{};
    std::array<PlayerButton *, numberOfEffectSlots> m_effectButton{};
    std::array<PlayerButton *, numberOfEffectSlots> m_effectPopup{};
    QWidget *m_remoteImage = nullptr;

    VEKTimeFormatter m_timeFormatter{VEKTimeFormatter::hoursMinutesSeconds};
    bool m_positionTextFormat = false;
    // Runs only during playback, so the time moves on between seeks.
    QTimer *m_positionTimer = nullptr;
    qint64 m_effectMenuIndex = 0;
    QMenu *m_effectsMenu = nullptr;
    QAction *m_removeItem = nullptr;
    QList<QPointer<PlayerEffectEditor>> m_editors;
    // The `enabled` watch on the processor in each slot.
    std::array<QMetaObject::Connection, numberOfEffectSlots> m_slotWatch{};
};
