#include "PlayerPosition.h"

#include "PlayerAccessibility.h"
#include "PlayerArt.h"
#include "PlayerTransport.h"
#include "PlayerWaveformOperation.h"
#include "ops/OperationQueue.h"
#include "rt/VEKWaveformBuffer.h"

#include <QAccessible>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QPainter>

#include <cmath>

namespace {

// Fills column `x` of a premultiplied ARGB image from `top` to `bottom` (device pixels, y
// downward) in `colour`, with partial cover at the two ends so the extremes stay exact. The rows
// between take the colour as it is: a picture of thousands of columns draws in a millisecond.
void fillColumn(QImage &image, int x, double top, double bottom, QRgb colour)
{
    const int height = image.height();
    const int first = qMax(0, int(std::floor(top)));
    const int last = qMin(height - 1, int(std::ceil(bottom)) - 1);
    const uint a = qAlpha(colour), r = qRed(colour), g = qGreen(colour), b = qBlue(colour);
    const auto covered = [&](int y) {
        const double cover = qMin(bottom, y + 1.0) - qMax(top, double(y));
        const uint c = uint(std::lround(qBound(0.0, cover, 1.0) * 255.0));
        return qRgba(r * c / 255, g * c / 255, b * c / 255, a * c / 255);
    };
    const qsizetype stride = image.bytesPerLine() / qsizetype(sizeof(QRgb));
    QRgb *pixel = reinterpret_cast<QRgb *>(image.bits()) + x;
    for (int y = first; y <= last; ++y)
        pixel[y * stride] = (y == first || y == last) ? covered(y) : colour;
}

} // namespace

PlayerPosition::PlayerPosition(QWidget *parent)
    : QWidget(parent), m_queue(std::make_unique<OperationQueue>("quivera-wave")),
      m_gesture([this](float location) { seek(location); })
{
    PlayerAccessibility::install();
    setFocusPolicy(Qt::StrongFocus);
    m_drawingTimer.setInterval(500);
    connect(&m_drawingTimer, &QTimer::timeout, this, &PlayerPosition::updateWaveform);
    m_locationTimer.setInterval(100);
    connect(&m_locationTimer, &QTimer::timeout, this, &PlayerPosition::updateLocation);
    connect(m_queue.get(), &OperationQueue::operationFinished, this,
            [this](const std::shared_ptr<Operation> &operation) {
                if (auto waveform = std::dynamic_pointer_cast<PlayerWaveformOperation>(operation))
                    operationDidEnd(waveform);
            });
    updateFrame();
}

PlayerPosition::~PlayerPosition()
{
    // The queue's end cancels the reading and joins its thread before the view goes.
    m_queue->cancelAllOperations();
    m_queue.reset();
}

void PlayerPosition::setTransport(PlayerTransport *transport)
{
    if (m_transport)
        disconnect(m_transport, nullptr, this, nullptr);
    m_transport = transport;
    if (transport) {
        connect(transport, &PlayerTransport::currentSongChanged, this, [this] {
            beginUpdatingWaveform();
            updateLocation();
        });
        connect(transport, &PlayerTransport::locationChanged, this, &PlayerPosition::updateLocation);
        connect(transport, &PlayerTransport::playingChanged, this, &PlayerPosition::playingChanged);
        playingChanged(transport->isPlaying());
    }
    beginUpdatingWaveform();
    update();
}

std::shared_ptr<VEKWaveformBuffer> PlayerPosition::waveform() const
{
    return m_pictured ? m_pictured->waveform() : nullptr;
}

void PlayerPosition::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    updateFrame();
}

void PlayerPosition::updateFrame()
{
    const qreal dpr = devicePixelRatioF();
    const qreal handleWidth = width() / designWidth * handleDesignWidth;
    m_handleRect = QRectF(0, 0, handleWidth, height());
    // One picture column per device pixel of the handle's travel.
    const QSize device(qMax(0, int(std::floor((width() - handleWidth) * dpr))), qMax(0, int(std::lround(height() * dpr))));
    m_image = QImage(device, QImage::Format_ARGB32_Premultiplied);
    m_image.setDevicePixelRatio(dpr);
    m_image.fill(Qt::transparent);
    m_pictured.reset();
    m_columnsDrawn = 0;
    beginUpdatingWaveform();
    update();
}

void PlayerPosition::beginUpdatingWaveform()
{
    m_queue->cancelAllOperations();
    const SongPtr song = m_transport ? m_transport->currentSong() : SongPtr();
    if (!song) {
        m_latest.reset();
        m_pictured.reset();
        m_columnsDrawn = 0;
        m_image.fill(Qt::transparent);
        update();
        return;
    }
    auto operation = std::make_shared<PlayerWaveformOperation>(song->URL(), quint64(m_image.width()));
    std::weak_ptr<PlayerWaveformOperation> weak = operation;
    connect(operation.get(), &PlayerWaveformOperation::started, this, [this, weak] {
        if (auto op = weak.lock())
            operationDidStart(op);
    }, Qt::QueuedConnection);
    m_latest = operation;
    m_queue->addOperation(operation);
}

void PlayerPosition::operationDidStart(const std::shared_ptr<PlayerWaveformOperation> &)
{
    if (!m_drawingTimer.isActive())
        m_drawingTimer.start();
}

void PlayerPosition::operationDidEnd(const std::shared_ptr<PlayerWaveformOperation> &operation)
{
    m_drawingTimer.stop();
    // An operation dropped from the queue before it began has nothing to show, and must not
    // wipe the picture of the one that ran.
    if (operation->waveform()->frames() > 0)
        updateWaveformWithOperation(operation);
    // A later operation may be waiting behind this one; its own start restarts the timer.
    emit waveformFinished();
}

void PlayerPosition::updateWaveform()
{
    const auto operations = m_queue->operations();
    if (operations.isEmpty())
        return;
    if (auto operation = std::dynamic_pointer_cast<PlayerWaveformOperation>(operations.first()))
        updateWaveformWithOperation(operation);
}

void PlayerPosition::updateWaveformWithOperation(const std::shared_ptr<PlayerWaveformOperation> &operation)
{
    // The work of a size the picture no longer has would draw in the wrong columns.
    if (!operation || operation->width() != quint64(m_image.width()))
        return;
    if (operation != m_pictured) {
        // The previous song's picture stands until the new one has something to show.
        m_image.fill(Qt::transparent);
        m_pictured = operation;
        m_columnsDrawn = 0;
        update();
    }
    const VEKWaveformBuffer &waveform = *operation->waveform();
    const quint64 frames = waveform.frames();
    if (frames <= m_columnsDrawn)
        return;

    // In device pixels, y downward: the positive half reaches up from the centre line by
    // `up`, the negative half down by one pixel less.
    const double half = m_image.height() * 0.5;
    const double centre = std::trunc(half);
    const float up = float(half), down = float(half - 1.0);
    const QRgb colour = PlayerArt::accent().rgba();
    for (quint64 i = m_columnsDrawn; i < frames; ++i) {
        const double top = centre - double(waveform.positiveValueAtFrame(i) * up);
        const double bottom = centre - double(waveform.negativeValueAtFrame(i) * down);
        // Silence still shows as a hairline, so the bar reads as one even where nothing sounds.
        const double mid = (top + bottom) * 0.5;
        if (bottom - top < 1.0)
            fillColumn(m_image, int(i), mid - 0.5, mid + 0.5, colour);
        else
            fillColumn(m_image, int(i), top, bottom, colour);
    }
    const qreal dpr = m_image.devicePixelRatio();
    const qreal inset = m_handleRect.width() * 0.5;
    const QRectF changed(inset + m_columnsDrawn / dpr, 0, (frames - m_columnsDrawn) / dpr, height());
    m_columnsDrawn = frames;
    update(changed.toAlignedRect());
}

float PlayerPosition::location() const
{
    return m_transport && m_transport->currentSong() ? qBound(0.0f, m_transport->normalizedLocation(), 1.0f) : 0.0f;
}

QRectF PlayerPosition::handleRectAt(float location) const
{
    QRectF r = m_handleRect;
    r.moveLeft(std::round((width() - r.width()) * location));
    return r;
}

qreal PlayerPosition::playedEdgeAt(float location) const
{
    const qreal dpr = m_image.devicePixelRatio();
    const float played = std::round(float(m_image.width()) * location);
    return m_handleRect.width() * 0.5 + played / dpr;
}

void PlayerPosition::updateLocation()
{
    const float now = location();
    if (now == m_shownLocation) {
        update(handleRectAt(now).toAlignedRect()); // the handle's opacity follows the song
        return;
    }
    const QRectF before = handleRectAt(m_shownLocation), after = handleRectAt(now);
    const qreal a = playedEdgeAt(m_shownLocation), b = playedEdgeAt(now);
    const QRectF played(qMin(a, b) - 1, 0, std::abs(b - a) + 2, height());
    update((before | after | played).toAlignedRect());
    m_shownLocation = now;
    QAccessibleValueChangeEvent event(this, now);
    QAccessible::updateAccessibility(&event);
}

void PlayerPosition::playingChanged(bool playing)
{
    if (playing && !m_locationTimer.isActive())
        m_locationTimer.start();
    else if (!playing)
        m_locationTimer.stop();
    updateLocation();
}

void PlayerPosition::paintEvent(QPaintEvent *event)
{
    if (!qFuzzyCompare(m_image.devicePixelRatio(), devicePixelRatioF())) {
        // Moved to a screen of another density: remake the picture at its pixels.
        QMetaObject::invokeMethod(this, &PlayerPosition::updateFrame, Qt::QueuedConnection);
    }
    QPainter p(this);
    p.setClipRegion(event->region());
    const float loc = location();
    m_shownLocation = loc;
    const QPointF origin(m_handleRect.width() * 0.5, 0);
    const qreal dpr = m_image.devicePixelRatio();
    // Two layers: the whole song faint, and the played part again over it.
    p.setOpacity(0.15);
    p.drawImage(origin, m_image);
    const float played = std::round(float(m_image.width()) * loc);
    if (played > 0.0f) {
        p.setOpacity(0.5);
        p.drawImage(QRectF(origin, QSizeF(played / dpr, height())), m_image, QRectF(0, 0, played, m_image.height()));
    }
    m_handleRect = handleRectAt(loc);
    const bool hasSong = m_transport && m_transport->currentSong();
    p.setOpacity(hasSong ? 1.0 : 0.3);
    const QPixmap handle = PlayerArt::pixmap(QStringLiteral("Player_position_handle"), m_handleRect.size(), devicePixelRatioF());
    p.drawPixmap(m_handleRect, handle, QRectF(handle.rect()));
    p.setOpacity(1.0);
    if (m_focusVisible && hasFocus())
        PlayerArt::drawFocusRing(p, rect(), false);
}

void PlayerPosition::seek(float location)
{
    if (m_transport)
        m_transport->setNormalizedLocation(location);
    updateLocation();
}

void PlayerPosition::mousePressEvent(QMouseEvent *event)
{
    m_handleRect = handleRectAt(location());
    if (const auto left = m_gesture.press(event, m_transport, m_handleRect, travel()))
        m_handleRect.moveLeft(*left);
}

void PlayerPosition::mouseMoveEvent(QMouseEvent *event)
{
    m_gesture.move(event, travel());
}

void PlayerPosition::mouseReleaseEvent(QMouseEvent *event)
{
    m_gesture.release(event, m_transport);
}

void PlayerPosition::keyPressEvent(QKeyEvent *event)
{
    if (!m_gesture.key(event, m_transport, location()))
        QWidget::keyPressEvent(event);
}

void PlayerPosition::focusInEvent(QFocusEvent *event)
{
    // Shown when the keyboard brought the focus, and kept as it was when the window returns.
    if (event->reason() != Qt::ActiveWindowFocusReason && event->reason() != Qt::PopupFocusReason)
        m_focusVisible = event->reason() == Qt::TabFocusReason || event->reason() == Qt::BacktabFocusReason
            || event->reason() == Qt::ShortcutFocusReason;
    update();
    QWidget::focusInEvent(event);
}

void PlayerPosition::focusOutEvent(QFocusEvent *event)
{
    if (event->reason() != Qt::ActiveWindowFocusReason && event->reason() != Qt::PopupFocusReason)
        m_focusVisible = false;
    update();
    QWidget::focusOutEvent(event);
}
