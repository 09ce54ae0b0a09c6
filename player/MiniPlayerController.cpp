#include "MiniPlayerController.h"

#include "MiniPlayerPosition.h"
#include "MiniPlayerScrollingText.h"
#include "MiniPlayerWindow.h"
#include "PlayerArt.h"
#include "PlayerButton.h"
#include "PlayerController.h"
#include "PlayerLabel.h"
#include "StreamTransport.h"

#include "app/ApplicationDelegate.h"
#include "app/SignalFrontEnd.h"
#include "audio/Stream.h"
#include "core/VEKLocalizedString.h"
#include "settings/UserDefaults.h"

#include <QLocale>

#include <cmath>

namespace {

const QString kPlayerSize = QStringLiteral("playerSize");
const QString kPlayerCenter = QStringLiteral("playerCenter");
const QString kVolume = QStringLiteral("volume");
const QString kDim = QStringLiteral("dim");
const QString kMute = QStringLiteral("mute");

// The layout, in the window's coordinates: the panel starts at the shadow margin.
constexpr int left = MiniPlayerWindow::shadowMargin + 14;
constexpr int lineWidth = MiniPlayerWindow::windowWidth - 2 * left;
constexpr int buttonSize = 26;
constexpr int buttonTop = 80;

} // namespace

float MiniPlayerController::volumeUp(float volume)
{
    const float v = volume == 0.0f ? 0.001f : volume * 1.2589254f;
    return qBound(0.0f, v, 1.0f);
}

float MiniPlayerController::volumeDown(float volume)
{
    if (volume <= 0.001f)
        return 0.0f;
    return std::max(0.0f, volume * 0.7943282f);
}

MiniPlayerController::MiniPlayerController(ApplicationDelegate &delegate, QObject *parent)
    : QObject(parent)
    , m_delegate(delegate)
    , m_stream(delegate.stream())
{
    PlayerArt::loadFonts();
    m_window = new MiniPlayerWindow();
    buildControls();
    // The panel holds the focus when the window becomes active, so no control shows a focus
    // ring until the keyboard moves to it.
    m_window->setFocus();
    updateControls();
    restoreCenter();
    connect(m_window, &MiniPlayerWindow::moved, this, &MiniPlayerController::windowMoved);
    // Any stored size above 3 starts with this window, so no start leaves the program with
    // neither player shown.
    const qint64 size = defaults().integerForKey(kPlayerSize);
    if (size > 3)
        setPlayerSize(quint64(size));
    observe();
}

MiniPlayerController::~MiniPlayerController()
{
    delete m_window;
}

UserDefaults &MiniPlayerController::defaults() const
{
    return UserDefaults::standard();
}

void MiniPlayerController::restoreCenter()
{
    if (const auto center = PlayerController::pointFromString(defaults().stringForKey(kPlayerCenter)))
        m_window->setFrameCenter(*center);
}

void MiniPlayerController::setPlayerSize(quint64 size)
{
    if (size <= 3) {
        m_window->hide();
        return;
    }
    // Where the player window stood (or this one, last time).
    restoreCenter();
    m_window->show();
    m_window->raise();
    m_window->activateWindow();
}

void MiniPlayerController::windowMoved()
{
    if (!m_window->isVisible())
        return;
    defaults().setValue(kPlayerCenter, PlayerController::stringFromPoint(m_window->frameCenter()));
}

void MiniPlayerController::buildControls()
{
    QWidget *view = m_window;
    m_transport = new StreamTransport(m_stream.data(), this);

    const auto line = [&](PlayerArt::Weight weight, int top, const char *name) {
        auto *text = new MiniPlayerScrollingText(view);
        text->setFont(PlayerArt::font(weight, 15));
        text->setAccessibleName(VEKLocalizedString(name));
        text->setGeometry(left, top, lineWidth, 20);
        return text;
    };
    m_artistText = line(PlayerArt::Weight::Bold, MiniPlayerWindow::shadowMargin + 7, "MiniPlayer_artist");
    m_nameText = line(PlayerArt::Weight::Regular, MiniPlayerWindow::shadowMargin + 27, "MiniPlayer_name");

    m_position = new MiniPlayerPosition(view);
    m_position->setTransport(m_transport);
    m_position->setAccessibleName(VEKLocalizedString("Player_position"));
    m_position->setGeometry(left, 62, lineWidth - 52, 8);
    m_totalTimeText = new PlayerLabel(view);
    m_totalTimeText->setAlign(PlayerLabel::Right);
    m_totalTimeText->setAccessibleName(VEKLocalizedString("Player_totalTimeText"));
    m_totalTimeText->setGeometry(left + lineWidth - 46, 56, 46, 17);

    // Three groups: play modes, volume, transport; the groups further apart than their buttons.
    const int inner = 2;
    const int outer = (lineWidth - 10 * buttonSize - 7 * inner) / 2;
    int x = left;
    int index = 0;
    const auto button = [&](const char *image, const char *name, quint32 states, bool latching) {
        auto *b = new PlayerButton(view);
        b->setImageName(QString::fromLatin1(image), states);
        b->setLatching(latching);
        b->setAccessibleName(VEKLocalizedString(name));
        b->setGeometry(x, buttonTop, buttonSize, buttonSize);
        ++index;
        x += buttonSize + (index == 3 || index == 7 ? outer : inner);
        return b;
    };
    m_shuffle = button("Player_shuffle", "Player_shuffle", 2, true);
    m_repeatOne = button("MiniPlayer_repeatOne", "MiniPlayer_repeatOne", 2, false);
    m_repeatAll = button("MiniPlayer_repeatAll", "MiniPlayer_repeatAll", 2, false);
    m_volumeDown = button("MiniPlayer_volumeDown", "MiniPlayer_volumeDown", 2, false);
    m_mute = button("Player_mute", "Player_mute", 2, true);
    m_dim = button("Player_dim", "Player_dim", 2, true);
    m_volumeUp = button("MiniPlayer_volumeUp", "MiniPlayer_volumeUp", 2, false);
    m_previous = button("Player_previous", "Player_previous", 2, false);
    m_play = button("Player_play", "Player_play", 3, false);
    m_next = button("Player_next", "Player_next", 2, false);

    connect(m_shuffle, &PlayerButton::triggered, this, [this] { m_delegate.setShuffle(!m_delegate.shuffle()); });
    // Each repeat button turns its own mode on, or off when it is on: the two are never lit at once.
    connect(m_repeatOne, &PlayerButton::triggered, this,
            [this] { m_delegate.setRepeatMode(m_delegate.repeatMode() == 2 ? 0 : 2); });
    connect(m_repeatAll, &PlayerButton::triggered, this,
            [this] { m_delegate.setRepeatMode(m_delegate.repeatMode() == 1 ? 0 : 1); });
    connect(m_volumeDown, &PlayerButton::triggered, this, [this] { stepVolume(&volumeDown); });
    connect(m_volumeUp, &PlayerButton::triggered, this, [this] { stepVolume(&volumeUp); });
    connect(m_mute, &PlayerButton::triggered, this, [this] { defaults().setValue(kMute, m_mute->state()); });
    connect(m_dim, &PlayerButton::triggered, this, [this] { defaults().setValue(kDim, m_dim->state()); });
    connect(m_previous, &PlayerButton::triggered, this, [this] { m_delegate.previous(); });
    connect(m_play, &PlayerButton::triggered, this, [this] { m_delegate.play(); });
    connect(m_next, &PlayerButton::triggered, this, [this] { m_delegate.next(); });
}

void MiniPlayerController::stepVolume(float (*step)(float))
{
    const float volume = qBound(0.0f, float(defaults().doubleForKey(kVolume)), 1.0f);
    defaults().setValue(kVolume, double(step(volume)));
}

void MiniPlayerController::updateVolumeText()
{
    // The window has no knob to show the level: the volume buttons say it, to a pointer resting
    // on them and to a screen reader.
    const float volume = qBound(0.0f, float(defaults().doubleForKey(kVolume)), 1.0f);
    const QString text = volume > 0.0f
        ? VEKLocalizedString("MiniPlayer_volumeLevel").arg(QLocale().toString(20.0 * std::log10(volume), 'f', 1))
        : VEKLocalizedString("MiniPlayer_volumeSilent");
    for (PlayerButton *button : {m_volumeDown, m_volumeUp}) {
        button->setToolTip(text);
        button->setAccessibleDescription(text);
    }
}

void MiniPlayerController::updateControls()
{
    m_play->setSelected(m_stream && m_stream->isPlaying());
    const SongPtr song = m_stream ? m_stream->currentSong() : SongPtr();
    // No words stand in for a missing artist or name here: the line stays empty.
    const bool newSong = song != m_shownSong.lock();
    m_shownSong = song;
    m_artistText->setText(song ? song->artist() : QString(), newSong);
    m_nameText->setText(song ? song->name() : QString(), newSong);
    m_artistText->setIdleText(song ? QString() : QStringLiteral("Quivera"));
    m_totalTimeText->setText(song ? m_timeFormatter.stringForSeconds(song->length()) : QString());
    m_shuffle->setState(m_delegate.shuffle());
    m_repeatOne->setState(m_delegate.repeatMode() == 2);
    m_repeatAll->setState(m_delegate.repeatMode() == 1);
    m_dim->setState(defaults().boolForKey(kDim));
    m_mute->setState(defaults().boolForKey(kMute));
}

void MiniPlayerController::observe()
{
    if (m_stream) {
        connect(m_stream, &Stream::currentSongChanged, this, &MiniPlayerController::updateControls);
        connect(m_stream, &Stream::playingChanged, this, [this] { m_play->setSelected(m_stream && m_stream->isPlaying()); });
    }
    connect(&m_delegate, &ApplicationDelegate::selectedPlaylistChanged, this, &MiniPlayerController::updateControls);
    connect(&m_delegate, &ApplicationDelegate::playModeChanged, this, &MiniPlayerController::updateControls);
    if (auto *frontEnd = dynamic_cast<SignalFrontEnd *>(m_delegate.frontEnd()))
        connect(frontEnd, &SignalFrontEnd::updateControlsRequested, this, &MiniPlayerController::updateControls);
    connect(&defaults(), &UserDefaults::valueChanged, this, [this](const QString &key) {
        if (key == kDim || key == kMute)
            updateControls();
        else if (key == kVolume)
            updateVolumeText();
    });
    updateVolumeText();
}
