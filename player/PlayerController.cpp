#include "PlayerController.h"

#include "PlayerButton.h"
#include "PlayerContentView.h"
#include "PlayerEffectEditor.h"
#include "PlayerImage.h"
#include "PlayerLabel.h"
#include "PlayerLayout.h"
#include "PlayerMeter.h"
#include "PlayerPosition.h"
#include "PlayerRepeatButton.h"
#include "PlayerSignalMark.h"
#include "PlayerTitle.h"
#include "PlayerVolume.h"
#include "PlayerWindow.h"
#include "SignalPathView.h"
#include "StreamTransport.h"

#include "app/ApplicationDelegate.h"
#include "app/SignalFrontEnd.h"
#include "audio/Stream.h"
#include "core/VEKLocalizedString.h"
#include "text/VEKFileSizeFormatter.h"
#include "graph/VEKAudioDock.h"
#include "remote/Remote.h"
#include "settings/UserDefaults.h"

#include <QGuiApplication>
#include <QRegularExpression>
#include <QScreen>

#include <algorithm>
#include <cmath>

namespace {

const QString kPlayerSize = QStringLiteral("playerSize");
const QString kPlayerCenter = QStringLiteral("playerCenter");
const QString kPositionTextFormat = QStringLiteral("positionTextFormat");
const QString kDim = QStringLiteral("dim");
const QString kMute = QStringLiteral("mute");

} // namespace

PlayerController::PlayerController(ApplicationDelegate &delegate, QObject *parent)
    : QObject(parent)
    , m_delegate(delegate)
    , m_stream(delegate.stream())
{
    m_positionTextFormat = defaults().boolForKey(kPositionTextFormat);
    m_positionTimer = new QTimer(this);
    m_positionTimer->setInterval(330);
    connect(m_positionTimer, &QTimer::timeout, this, &PlayerController::updatePositionTexts);

    m_window = new PlayerWindow();
    m_window->setAttribute(Qt::WA_DeleteOnClose, false);
    m_contentView = m_window->contentView();
    buildControls();
    m_contentView->setFocus();
    buildEffectsMenu();
    updateControls();
    updateEffects();
    updatePositionTexts();

    m_window->setFrameCenter(pointFromString(defaults().stringForKey(kPlayerCenter)).value_or(QPointF()));
    connect(m_window, &PlayerWindow::moved, this, &PlayerController::windowMoved);

    const quint64 size = quint64(std::max<qint64>(0, defaults().integerForKey(kPlayerSize)));
    if (size <= 3) {
        setPlayerSize(size);
        // A display that has gone since the last run: back to the default centre.
        if (!QGuiApplication::screenAt(m_window->frameGeometry().center())) {
            defaults().removeValue(kPlayerCenter);
            m_window->setFrameCenter(pointFromString(defaults().stringForKey(kPlayerCenter)).value_or(QPointF()));
        }
        m_window->raise();
        m_window->activateWindow();
    }
    observe();
}

PlayerController::~PlayerController()
{
    m_positionTimer->stop();
    for (const QPointer<PlayerEffectEditor> &editor : std::as_const(m_editors))
        delete editor.data();
    m_editors.clear();
    for (auto &watch : m_slotWatch)
        disconnect(watch);
    delete m_window;
}

UserDefaults &PlayerController::defaults() const
{
    return UserDefaults::standard();
}

// --- Points ----------------------------------------------------------------------------------

QString PlayerController::stringFromPoint(QPointF point)
{
    return QStringLiteral("{%1, %2}").arg(point.x()).arg(point.y());
}

std::optional<QPointF> PlayerController::pointFromString(const QString &text)
{
    static const QRegularExpression form(
        QStringLiteral(R"(^\s*\{\s*([-+0-9.eE]+)\s*,\s*([-+0-9.eE]+)\s*\}\s*$)"));
    const QRegularExpressionMatch m = form.match(text);
    if (!m.hasMatch())
        return std::nullopt;
    bool okX = false, okY = false;
    const double x = m.captured(1).toDouble(&okX);
    const double y = m.captured(2).toDouble(&okY);
    if (!okX || !okY || !std::isfinite(x) || !std::isfinite(y))
        return std::nullopt;
    return QPointF(x, y);
}

// --- Window --------------------------------------------------------------------------------

void PlayerController::setPlayerSize(quint64 size)
{
    if (size > 3) {
        m_window->hide();
        return;
    }
    const float scale = 1.0f - float(size) * 0.25f;
    const int width = int(std::lround(2400.0f * scale));
    const int height = int(std::lround(600.0f * scale));
    const QRect old = m_window->geometry();
    // About the kept centre: the stored one, not the rounded frame, so going down and back up
    // does not walk the window by half pixels.
    const QPointF center = pointFromString(defaults().stringForKey(kPlayerCenter))
                               .value_or(QPointF(old.x() + old.width() * 0.5, old.y() + old.height() * 0.5));
    m_window->resize(width, height);
    m_window->setFrameCenter(center);
    m_window->show();
    m_window->raise();
    m_window->activateWindow();
}

void PlayerController::windowMoved()
{
    if (!m_window->isVisible())
        return;
    defaults().setValue(kPlayerCenter, stringFromPoint(m_window->frameCenter()));
}

// --- Controls ------------------------------------------------------------------------------

void PlayerController::buildControls()
{
    QWidget *view = m_contentView;
    m_transport = new StreamTransport(m_stream.data(), this);
    using L = PlayerLayout;

    m_title = new PlayerTitle(view);
    m_title->setTransport(m_transport);
    m_contentView->place(m_title, L::Title);
    m_position = new PlayerPosition(view);
    m_position->setTransport(m_transport);
    m_position->setAccessibleName(VEKLocalizedString("Player_position"));
    m_contentView->place(m_position, L::Position);
    m_meter = new PlayerMeter(view);
    m_meter->setTransport(m_transport);
    m_meter->setAccessibleName(VEKLocalizedString("Player_meter"));
    m_contentView->place(m_meter, L::Meter);
    m_volume = new PlayerVolume(view);
    m_volume->setAccessibleName(VEKLocalizedString("Player_volume"));
    m_contentView->place(m_volume, L::Volume);

    const auto label = [&](PlayerLabel::Align align, L::Item item, const char *name) {
        auto *l = new PlayerLabel(view);
        l->setAlign(align);
        l->setAccessibleName(VEKLocalizedString(name));
        m_contentView->place(l, item);
        return l;
    };
    m_positionText = label(PlayerLabel::Centre, L::PositionText, "Player_positionText");
    m_positionText->setBold(true);
    connect(m_positionText, &PlayerLabel::pressed, this, &PlayerController::togglePositionTextFormat);
    m_totalTimeText = label(PlayerLabel::Right, L::TotalTimeText, "Player_totalTimeText");
    m_formatText = label(PlayerLabel::Right, L::FormatText, "Player_formatText");
    m_sizeText = label(PlayerLabel::Right, L::SizeText, "Player_sizeText");
    m_signalMark = new PlayerSignalMark(view);
    m_contentView->place(m_signalMark, L::SignalMark);
    connect(m_signalMark, &PlayerSignalMark::pressed, this, &PlayerController::showSignalPath);

    const auto button = [&](const char *image, quint32 states, bool latching, L::Item item) {
        auto *b = new PlayerButton(view);
        b->setImageName(QString::fromLatin1(image), states);
        b->setLatching(latching);
        b->setAccessibleName(VEKLocalizedString(image));
        m_contentView->place(b, item);
        return b;
    };
    m_shuffle = button("Player_shuffle", 2, true, L::Shuffle);
    connect(m_shuffle, &PlayerButton::triggered, this, [this] { m_delegate.setShuffle(!m_delegate.shuffle()); });

    m_repeat = new PlayerRepeatButton(view);
    m_repeat->setImageName(QStringLiteral("Player_repeat"), 3);
    m_repeat->setAccessibleName(VEKLocalizedString("Player_repeat"));
    m_contentView->place(m_repeat, L::Repeat);
    connect(m_repeat, &PlayerButton::triggered, this, [this] { m_delegate.setRepeatMode(m_repeat->mode()); });

    m_previous = button("Player_previous", 2, false, L::Previous);
    connect(m_previous, &PlayerButton::triggered, this, [this] {
        if (m_stream)
            m_stream->previous();
    });
    m_play = button("Player_play", 3, false, L::Play);
    connect(m_play, &PlayerButton::triggered, this, &PlayerController::playButtonChanged);
    m_next = button("Player_next", 2, false, L::Next);
    connect(m_next, &PlayerButton::triggered, this, [this] {
        if (m_stream)
            m_stream->next();
    });
    m_mute = button("Player_mute", 2, true, L::Mute);
    connect(m_mute, &PlayerButton::triggered, this, [this] { defaults().setValue(kMute, m_mute->state()); });
    m_dim = button("Player_dim", 2, true, L::Dim);
    connect(m_dim, &PlayerButton::triggered, this, [this] { defaults().setValue(kDim, m_dim->state()); });

    for (int slot = 0; slot < numberOfEffectSlots; ++slot) {
        const auto key = [slot](const char *form) { return VEKLocalizedString(QString::fromLatin1(form).arg(slot + 1)); };
        auto *enable = button("Player_effect_power", 2, true, L::effectEnable(slot));
        enable->setTag(slot);
        enable->setAccessibleName(key("Player_effect%1_on"));
        connect(enable, &PlayerButton::triggered, this, [this, slot] { effectEnableChanged(slot); });
        m_effectEnable[size_t(slot)] = enable;

        auto *title = new PlayerButton(view);
        title->setTag(slot);
        title->setAccessibleName(key("Player_effect%1"));
        m_contentView->place(title, L::effectButton(slot));
        connect(title, &PlayerButton::triggered, this, [this, slot] { editEffect(slot); });
        m_effectButton[size_t(slot)] = title;

        auto *popup = button("Player_effect_menu", 1, false, L::effectPopup(slot));
        popup->setTag(slot);
        popup->setAccessibleName(key("Player_effect%1_menu"));
        connect(popup, &PlayerButton::willTrackMenu, this, [this, slot] { m_effectMenuIndex = slot; });
        m_effectPopup[size_t(slot)] = popup;
    }

    auto *remote = new PlayerImage(QStringLiteral(":/player/Player_remote.svg"), view);
    remote->setAccessibleName(VEKLocalizedString("Player_remote"));
    m_contentView->place(remote, L::Remote);
    m_remoteImage = remote;
}

void PlayerController::showSignalPath()
{
    if (!m_signalPathPopup) {
        m_signalPathPopup = new SignalPathView(m_window);
        m_signalPathPopup->setWindowFlags(Qt::Popup | Qt::FramelessWindowHint);
        // The view draws its own rounded panel; the corners outside it stay clear.
        m_signalPathPopup->setAttribute(Qt::WA_TranslucentBackground);
        m_signalPathPopup->setStream(m_stream);
    }
    const int width = m_signalPathPopup->sizeHint().width();
    m_signalPathPopup->resize(width, m_signalPathPopup->heightForWidth(width));
    // Under the mark, its left edge on the mark's, kept on the mark's screen.
    QPoint at = m_signalMark->mapToGlobal(QPoint(0, m_signalMark->height() + 6));
    if (const QScreen *screen = m_signalMark->screen()) {
        const QRect area = screen->availableGeometry();
        at.setX(std::clamp(at.x(), area.left(),
                           std::max(area.left(), area.right() - m_signalPathPopup->width())));
        if (at.y() + m_signalPathPopup->height() > area.bottom())
            at.setY(m_signalMark->mapToGlobal(QPoint(0, 0)).y() - m_signalPathPopup->height() - 6);
    }
    m_signalPathPopup->move(at);
    m_signalPathPopup->show();
}

void PlayerController::playButtonChanged()
{
    if (!m_stream)
        return;
    // The menu's Play, MPRIS and this button start a stopped player the same way.
    m_delegate.play();
}

QString PlayerController::timeText(double seconds) const
{
    QString text = m_timeFormatter.stringForSeconds(seconds);
    // No time left is still remaining time: -0 keeps its sign, so the mode shows.
    if (std::signbit(seconds) && !text.startsWith(u'-'))
        text.prepend(u'-');
    return text;
}

void PlayerController::updateControls()
{
    m_play->setSelected(m_stream && m_stream->isPlaying());
    const SongPtr song = m_stream ? m_stream->currentSong() : SongPtr();
    if (song) {
        m_totalTimeText->setText(timeText(song->length()));
        m_formatText->setText(song->format().isEmpty() ? QStringLiteral("--") : song->format());
        m_sizeText->setText(VEKFileSizeFormatter().stringForByteCount(qint64(song->size())));
    } else {
        // The position keeps its last text until its next refresh.
        m_totalTimeText->setText(QString());
        m_formatText->setText(QString());
        m_sizeText->setText(QString());
    }
    m_shuffle->setState(m_delegate.shuffle());
    m_repeat->setMode(m_delegate.repeatMode());
    m_dim->setState(defaults().boolForKey(kDim));
    m_mute->setState(defaults().boolForKey(kMute));
}

void PlayerController::updateOutputFormat()
{
    // What reaches the device, for the listener who asks (a pointer resting on the format, or a
    // screen reader): the song's own format stays on the panel.
    QString text;
    if (m_stream && m_stream->currentSong()) {
        const Stream::OutputFormat f = m_stream->outputFormat();
        text = VEKLocalizedString(f.bitPerfect ? "PlayerController_outputBitPerfect" : "PlayerController_output")
                   .arg(QLocale().toString(f.sampleRate / 1000.0, 'g', 4))
                   .arg(f.bitsPerSample);
    }
    m_formatText->setToolTip(text);
    m_formatText->setAccessibleDescription(text);
}

void PlayerController::updatePositionTexts()
{
    const double location = m_stream ? m_stream->location() : 0.0;
    const double remaining = m_stream ? m_stream->remaining() : 0.0;
    m_positionText->setText(timeText(m_positionTextFormat ? -remaining : location));
}

void PlayerController::togglePositionTextFormat()
{
    m_positionTextFormat = !m_positionTextFormat;
    updatePositionTexts();
    defaults().setValue(kPositionTextFormat, m_positionTextFormat);
}

void PlayerController::playingChanged()
{
    const bool playing = m_stream && m_stream->isPlaying();
    if (playing && !m_positionTimer->isActive())
        m_positionTimer->start();
    else if (!playing)
        m_positionTimer->stop();
    m_play->setSelected(playing);
}

void PlayerController::observe()
{
    if (m_stream) {
        connect(m_stream, &Stream::currentSongChanged, this, [this] {
            updateControls();
            updatePositionTexts();
            updateOutputFormat();
        });
        connect(m_stream, &Stream::outputFormatChanged, this, &PlayerController::updateOutputFormat);
        connect(m_stream, &Stream::signalPathChanged, this,
                [this] { m_signalMark->setPath(m_stream->signalPath()); });
        m_signalMark->setPath(m_stream->signalPath());
        connect(m_stream, &Stream::locationChanged, this, &PlayerController::updatePositionTexts);
        connect(m_stream, &Stream::playingChanged, this, &PlayerController::playingChanged);
        for (int slot = 0; slot < numberOfEffectSlots; ++slot) {
            VEKAudioDock *dock = m_stream->processorDockAtIndex(quint64(slot));
            if (!dock)
                continue;
            watchSlot(slot, dock->processor());
            connect(dock, &VEKAudioDock::processorChanged, this, [this, slot](VEKAudioProcessorPtr processor) {
                watchSlot(slot, processor);
                updateEffects();
            });
        }
        playingChanged();
    }
    // Shuffle and repeat are the selected playlist's: they change with it, and by any road (the
    // menus, the remote, MPRIS).
    connect(&m_delegate, &ApplicationDelegate::selectedPlaylistChanged, this, &PlayerController::updateControls);
    connect(&m_delegate, &ApplicationDelegate::playModeChanged, this, &PlayerController::updateControls);
    if (auto *frontEnd = dynamic_cast<SignalFrontEnd *>(m_delegate.frontEnd()))
        connect(frontEnd, &SignalFrontEnd::updateControlsRequested, this, &PlayerController::updateControls);
    connect(&defaults(), &UserDefaults::valueChanged, this, [this](const QString &key) {
        if (key == kDim || key == kMute)
            updateControls();
    });
    Remote *remote = Remote::sharedInstance();
    m_remoteImage->setVisible(remote->connected());
    connect(remote, &Remote::connectedChanged, m_remoteImage, &QWidget::setVisible);
}

void PlayerController::watchSlot(int slot, const VEKAudioProcessorPtr &processor)
{
    disconnect(m_slotWatch[size_t(slot)]);
    if (processor)
        m_slotWatch[size_t(slot)] =
            connect(processor.get(), &VEKAudioProcessor::enabledChanged, this, &PlayerController::updateEffects);
}
