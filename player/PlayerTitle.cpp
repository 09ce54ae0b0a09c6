#include "PlayerTitle.h"

#include "PlayerAccessibility.h"
#include "PlayerArt.h"
#include "PlayerTransport.h"
#include "core/VEKLocalizedString.h"

#include <QAccessible>
#include <QEasingCurve>
#include <QPainter>

#include <cmath>

namespace {
const QString separator = QStringLiteral(" \u2022 ");

// Ease in and out as the usual cubic curve through (0.42, 0) and (0.58, 1).
double easeInOut(double t)
{
    static const QEasingCurve curve = [] {
        QEasingCurve c(QEasingCurve::BezierSpline);
        c.addCubicBezierSegment(QPointF(0.42, 0.0), QPointF(0.58, 1.0), QPointF(1.0, 1.0));
        return c;
    }();
    return curve.valueForProgress(t);
}
} // namespace

PlayerTitle::ScrollState PlayerTitle::scrollStateAt(double seconds, double travel)
{
    const double t = std::fmod(seconds, cycleSeconds);
    ScrollState s;
    if (t < 3.0)
        s.offset = 0.0;
    else if (t < 6.0)
        s.offset = travel * easeInOut((t - 3.0) / 3.0);
    else if (t < 9.3)
        s.offset = travel;
    else if (t < 9.4)
        s.offset = travel * (1.0 - (t - 9.3) / 0.1);
    else
        s.offset = 0.0;

    if (t >= 9.0 && t < 9.25)
        s.opacity = 1.0 - (t - 9.0) / 0.25;
    else if (t >= 9.25 && t < 9.5)
        s.opacity = 0.0;
    else if (t >= 9.5)
        s.opacity = (t - 9.5) / 0.25;
    return s;
}

double PlayerTitle::restAt(double seconds)
{
    const double t = std::fmod(seconds, cycleSeconds);
    if (t < 3.0)
        return 3.0 - t;
    if (t >= 6.0 && t < 9.0)
        return 9.0 - t;
    return 0.0;
}

int PlayerTitle::nextFrameDelayAt(double seconds)
{
    // Redraw at the display's pace while the line moves or fades, and not at all while it
    // rests: the rests are most of the cycle.
    const double wait = restAt(seconds);
    return wait > 0.0 ? int(std::ceil(wait * 1000.0)) : 16;
}

PlayerTitle::PlayerTitle(QWidget *parent) : QWidget(parent)
{
    PlayerAccessibility::install();
    setAttribute(Qt::WA_OpaquePaintEvent);
    m_timer.setSingleShot(true);
    connect(&m_timer, &QTimer::timeout, this, &PlayerTitle::tick);
}

void PlayerTitle::setTransport(PlayerTransport *transport)
{
    if (m_transport)
        disconnect(m_transport, nullptr, this, nullptr);
    m_transport = transport;
    if (transport)
        connect(transport, &PlayerTransport::currentSongChanged, this, &PlayerTitle::updateTitle);
    updateTitle();
}

QFont PlayerTitle::artistFont() const
{
    return PlayerArt::font(PlayerArt::Weight::Bold, height() * 0.875);
}

QFont PlayerTitle::titleFont() const
{
    return PlayerArt::font(PlayerArt::Weight::Regular, height() * 0.875);
}

void PlayerTitle::updateTitle()
{
    const SongPtr song = m_transport ? m_transport->currentSong() : SongPtr();
    if (song) {
        m_artist = song->artist().isEmpty() ? VEKLocalizedString("PlayerTitle_unknownArtist") : song->artist();
        m_title = song->name().isEmpty() ? VEKLocalizedString("PlayerTitle_untitledSong") : song->name();
    } else {
        m_artist.clear();
        m_title.clear();
    }
    const QFontMetricsF bold(artistFont()), regular(titleFont());
    m_lineWidth = song ? bold.horizontalAdvance(m_artist + separator) + regular.horizontalAdvance(m_title) : 0.0;
    m_scrolling = m_lineWidth > width();
    m_clock.start();
    m_timer.stop();
    if (m_scrolling)
        tick();
    update();
    QAccessibleEvent event(this, QAccessible::NameChanged);
    QAccessible::updateAccessibility(&event);
}

void PlayerTitle::tick()
{
    if (!m_scrolling)
        return;
    update();
    m_timer.start(nextFrameDelayAt(m_clock.elapsed() / 1000.0));
}

void PlayerTitle::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    updateTitle();
}

void PlayerTitle::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    p.fillRect(rect(), Qt::black);
    p.setRenderHint(QPainter::TextAntialiasing);
    if (m_artist.isEmpty() && m_title.isEmpty()) {
        // With no song the line is the program's name, faint and centred, so the empty view reads
        // as waiting rather than broken.
        QColor faint = PlayerArt::accent();
        faint.setAlphaF(0.3f);
        p.setPen(faint);
        p.setFont(artistFont());
        p.drawText(rect(), Qt::AlignCenter, QStringLiteral("Quivera"));
        return;
    }
    ScrollState s;
    if (m_scrolling)
        s = scrollStateAt(m_clock.elapsed() / 1000.0, m_lineWidth - width());
    p.setOpacity(s.opacity);
    const QFont bold = artistFont(), regular = titleFont();
    const QFontMetricsF metrics(bold);
    // The baseline leaves the font's descent below it, so the line sits in the view's height.
    const qreal baseline = height() - metrics.descent() - (height() - metrics.height()) * 0.5;
    p.setPen(PlayerArt::accent());
    qreal x = -s.offset;
    p.setFont(bold);
    const QString head = m_artist + separator;
    p.drawText(QPointF(x, baseline), head);
    x += metrics.horizontalAdvance(head);
    p.setFont(regular);
    p.drawText(QPointF(x, baseline), m_title);
}
