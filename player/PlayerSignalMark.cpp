#include "PlayerSignalMark.h"

#include "PlayerArt.h"
#include "SignalPathView.h"
#include "core/VEKLocalizedString.h"

#include <QMouseEvent>
#include <QPainter>

namespace {

QColor amber()
{
    return QColor(255, 186, 102);
}

// Below this height in pixels a word would be unreadable: the mark becomes a dot.
constexpr int kSmallestWordHeight = 15;

} // namespace

PlayerSignalMark::PlayerSignalMark(QWidget *parent) : QWidget(parent)
{
    setAccessibleName(VEKLocalizedString("SignalPathView_name"));
    setCursor(Qt::PointingHandCursor);
    setPath(SignalPath());
}

QString PlayerSignalMark::word(const SignalPath &path)
{
    if (!path.hasSong())
        return {};
    if (path.isBitPerfect())
        return VEKLocalizedString("PlayerSignalMark_bitPerfect");
    if (path.source().isLossy())
        return VEKLocalizedString("PlayerSignalMark_lossy");
    if (!path.device().isValid())
        return VEKLocalizedString("PlayerSignalMark_noDevice");
    for (const SignalPath::Stage &stage : path.stages()) {
        if (!stage.changesSamples)
            continue;
        switch (stage.kind) {
        case SignalPath::Kind::RateConversion: return VEKLocalizedString("PlayerSignalMark_resampled");
        case SignalPath::Kind::Volume: return VEKLocalizedString("PlayerSignalMark_volume");
        case SignalPath::Kind::Effect: return VEKLocalizedString("PlayerSignalMark_effects");
        case SignalPath::Kind::Headphones: return VEKLocalizedString("PlayerSignalMark_crossfeed");
        case SignalPath::Kind::Dim: return VEKLocalizedString("PlayerSignalMark_dimmed");
        case SignalPath::Kind::Mute: return VEKLocalizedString("PlayerSignalMark_muted");
        case SignalPath::Kind::Dither: return VEKLocalizedString("PlayerSignalMark_dithered");
        case SignalPath::Kind::Rounding: return VEKLocalizedString("PlayerSignalMark_rounded");
        case SignalPath::Kind::DeviceLayer: return VEKLocalizedString("PlayerSignalMark_converted");
        }
    }
    return VEKLocalizedString("SignalPath_notBitPerfect");
}

void PlayerSignalMark::setPath(const SignalPath &path)
{
    m_path = path;
    const QString words = path.hasSong() ? SignalPathView::describe(path) : QString();
    setToolTip(words);
    setAccessibleDescription(path.hasSong() ? path.verdictText() : QString());
    update();
}

void PlayerSignalMark::mousePressEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton && m_path.hasSong())
        emit pressed();
}

void PlayerSignalMark::paintEvent(QPaintEvent *)
{
    const QString text = word(m_path).toUpper();
    if (text.isEmpty())
        return;
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const bool good = m_path.isBitPerfect();
    QColor colour = good ? PlayerArt::accent() : amber();
    const qreal h = height();
    if (h < kSmallestWordHeight) {
        const qreal r = std::max(2.0, h * 0.3);
        const QPointF centre(r + 1, h / 2);
        p.setPen(good ? Qt::NoPen : QPen(colour, std::max(1.0, r * 0.4)));
        p.setBrush(good ? QBrush(colour) : Qt::NoBrush);
        p.drawEllipse(centre, r, r);
        return;
    }
    // The pill hugs its word, left-aligned in its frame; the text is 0.55 of the height.
    const QFont font = PlayerArt::font(PlayerArt::Weight::Bold, h * 0.5);
    const qreal w = std::min<qreal>(width() - 1, QFontMetricsF(font).horizontalAdvance(text) + h * 0.9);
    const QRectF pill(0.75, 0.75, w - 1.5, h - 1.5);
    p.setPen(QPen(colour, std::max(1.0, h * 0.045)));
    QColor fill = colour;
    fill.setAlpha(good ? 46 : 28);
    p.setBrush(fill);
    p.drawRoundedRect(pill, pill.height() / 2, pill.height() / 2);
    p.setFont(font);
    p.setPen(colour);
    p.drawText(pill, Qt::AlignCenter, text);
}
