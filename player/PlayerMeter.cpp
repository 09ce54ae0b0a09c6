#include "PlayerMeter.h"

#include "PlayerAccessibility.h"
#include "PlayerArt.h"
#include "PlayerTransport.h"

#include <QPaintEvent>
#include <QPainter>
#include <cmath>

PlayerMeter::PlayerMeter(QWidget *parent) : QWidget(parent)
{
    PlayerAccessibility::install();
    m_timer.setInterval(1000 / 30);
    m_timer.setTimerType(Qt::PreciseTimer);
    connect(&m_timer, &QTimer::timeout, this, &PlayerMeter::tick);
    m_timer.start();
}

void PlayerMeter::setTransport(PlayerTransport *transport)
{
    m_transport = transport;
    tick();
}

void PlayerMeter::tick()
{
    // Only the stretch between the lit end shown and the new one changes: silence and pauses
    // cost nothing, and music redraws a sliver of each bar.
    const qreal s = height() / 56.0;
    const qreal full = widthOfSteps(fullScaleSteps, width());
    for (quint32 channel = 0; channel < 2; ++channel) {
        const int n = m_transport ? steps(m_transport->levelOfChannel(channel)) : 0;
        if (n == m_shown[channel])
            continue;
        const qreal a = qMin(widthOfSteps(qMin(n, m_shown[channel]), width()), full);
        const qreal b = qMin(widthOfSteps(qMax(n, m_shown[channel]), width()), full);
        update(QRectF(a - 1, channel == 0 ? 0 : 32 * s, b - a + 2, 24 * s).toAlignedRect());
        m_shown[channel] = n;
    }
}

int PlayerMeter::steps(float level)
{
    const float n = roundf((20.0f * log10f(level) + 40.0f) * 3.0f);
    // log10 of 0 is minus infinity: no steps, as for any level under -40 dB.
    if (!(n > 0.0f))
        return 0;
    return n > 100000.0f ? 100000 : int(n);
}

void PlayerMeter::paintEvent(QPaintEvent *event)
{
    QPainter p(this);
    p.setClipRegion(event->region());
    const qreal W = width();
    const qreal s = height() / 56.0;
    const qreal barHeight = 24.0 * s;
    // The image holds the lit bar at design size, 12 image points per step; it is rendered
    // once per size at the full width of 120 steps, and a reading copies its left part.
    const qreal full = widthOfSteps(fullScaleSteps, W);
    const qreal dpr = devicePixelRatioF();
    const QPixmap bar = PlayerArt::pixmap(QStringLiteral("Player_meter"), QSizeF(full, barHeight), dpr);
    const QPixmap track = PlayerArt::pixmap(QStringLiteral("Player_meter_track"), QSizeF(full, barHeight), dpr);
    const qreal rows[2] = {0.0, 32.0 * s}; // top-down: channel 0 above
    for (quint32 channel = 0; channel < 2; ++channel) {
        const QRectF place(0, rows[channel], full, barHeight);
        if (!track.isNull())
            p.drawPixmap(place, track, QRectF(track.rect()));
        const int n = m_shown[channel];
        if (n < 1 || bar.isNull())
            continue;
        const qreal w = widthOfSteps(n, W);
        const qreal sourceWidth = qMin<qreal>(bar.width(), bar.width() * n / qreal(fullScaleSteps));
        p.drawPixmap(QRectF(0, rows[channel], qMin(w, full), barHeight), bar,
                     QRectF(0, 0, sourceWidth, bar.height()));
    }
}
