#include "SignalPathView.h"

#include "PlayerArt.h"
#include "audio/Stream.h"
#include "core/VEKLocalizedString.h"

#include <QPainter>
#include <QPainterPath>

namespace {

// Measurements in pixels at a device pixel ratio of 1.
constexpr int kMargin = 16;
constexpr int kHeader = 34;
constexpr int kRow = 46;
constexpr int kRail = 30;  // x of the line through the nodes
constexpr int kTextX = 52; // where titles start
constexpr int kFooterGap = 10;
constexpr qreal kTitleSize = 15;
constexpr qreal kDetailSize = 13;
constexpr qreal kHeaderSize = 12;

QColor amber()
{
    return QColor(255, 186, 102);
}
QColor muted()
{
    return QColor(128, 142, 160);
}
QColor faded(QColor c, int alpha)
{
    c.setAlpha(alpha);
    return c;
}

} // namespace

SignalPathView::SignalPathView(QWidget *parent) : QWidget(parent)
{
    setAccessibleName(VEKLocalizedString("SignalPathView_name"));
    QSizePolicy policy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    policy.setHeightForWidth(true);
    setSizePolicy(policy);
    setPath(SignalPath());
}

void SignalPathView::setPath(const SignalPath &path)
{
    const bool sameShape =
        path.stages().size() == m_path.stages().size() && path.reasons() == m_path.reasons();
    m_path = path;
    const QString words = describe(m_path);
    setToolTip(words);
    setAccessibleDescription(words);
    if (!sameShape) {
        updateGeometry();
        // A window of its own (the player's popup) follows its content's height.
        if (isWindow())
            resize(width(), heightForWidth(width()));
    }
    update();
}

void SignalPathView::resizeEvent(QResizeEvent *)
{
    // Without a compositor a window's clear corners show black: a window takes the panel's shape.
    if (!isWindow() || m_embedded)
        return;
    QPainterPath shape;
    shape.addRoundedRect(QRectF(rect()), 10, 10);
    setMask(QRegion(shape.toFillPolygon().toPolygon()));
}

void SignalPathView::setEmbedded(bool embedded)
{
    m_embedded = embedded;
    updateGeometry();
    update();
}

void SignalPathView::setStream(Stream *stream)
{
    disconnect(m_connection);
    m_stream = stream;
    if (stream)
        m_connection = connect(stream, &Stream::signalPathChanged, this, [this] {
            if (m_stream)
                setPath(m_stream->signalPath());
        });
    setPath(stream ? stream->signalPath() : SignalPath());
}

QString SignalPathView::describe(const SignalPath &path)
{
    QStringList lines;
    if (path.hasSong())
        lines << QStringLiteral("%1: %2").arg(VEKLocalizedString("SignalPath_source"), path.sourceText());
    for (const SignalPath::Stage &stage : path.stages())
        lines << QStringLiteral("%1: %2").arg(stage.title(), stage.detail());
    if (path.device().isValid())
        lines << QStringLiteral("%1: %2").arg(VEKLocalizedString("SignalPath_device"), path.deviceText());
    lines << path.verdictText();
    return lines.join(u'\n');
}

QList<SignalPathView::Node> SignalPathView::nodes() const
{
    QList<Node> list;
    if (!m_path.hasSong())
        return list;
    list.append({VEKLocalizedString("SignalPath_source"), m_path.sourceText(), Node::Untouched});
    for (const SignalPath::Stage &stage : m_path.stages())
        list.append({stage.title(), stage.detail(), stage.changesSamples ? Node::Changes : Node::Repacks});
    if (m_path.device().isValid()) {
        const VEKAudioDeviceFormat::Layer &hw = m_path.device().hardware();
        QString title = VEKLocalizedString("SignalPath_device");
        if (!hw.name.isEmpty())
            title += QStringLiteral("  ·  ") + hw.name;
        list.append({title, m_path.deviceText(), Node::Untouched});
    }
    return list;
}

int SignalPathView::footerHeight(int width) const
{
    const QString text =
        m_path.isBitPerfect() ? VEKLocalizedString("SignalPathView_untouched") : m_path.reasons().join(u'\n');
    const QFontMetrics fm(PlayerArt::font(PlayerArt::Weight::Regular, kDetailSize));
    const int margin = m_embedded ? 0 : kMargin;
    const QRect r =
        fm.boundingRect(QRect(0, 0, std::max(width - 2 * margin, 40), 10000), Qt::TextWordWrap, text);
    return r.height();
}

int SignalPathView::headerHeight() const
{
    // Embedded, the header holds only the verdict, and there is none without a song.
    return m_embedded && !m_path.hasSong() ? 0 : kHeader;
}

int SignalPathView::heightForWidth(int width) const
{
    const qsizetype rows = nodes().size();
    const int margin = m_embedded ? 0 : kMargin;
    return margin + headerHeight() + int(rows) * kRow + kFooterGap + footerHeight(width) + margin;
}

QSize SignalPathView::sizeHint() const
{
    return QSize(460, heightForWidth(460));
}

QSize SignalPathView::minimumSizeHint() const
{
    return QSize(280, heightForWidth(280));
}

void SignalPathView::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    p.setRenderHint(QPainter::TextAntialiasing);
    const QColor accent = PlayerArt::accent();

    // The panel: the player's dark, a hairline of the accent round it.
    const QRectF panel = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    if (!m_embedded) {
        QLinearGradient shade(panel.topLeft(), panel.bottomLeft());
        shade.setColorAt(0, PlayerArt::panel().lighter(118));
        shade.setColorAt(1, PlayerArt::panel());
        p.setPen(QPen(faded(accent, 40), 1));
        p.setBrush(shade);
        p.drawRoundedRect(panel, 10, 10);
    }

    // The header: the name on the left, the verdict as a pill on the right; embedded, where the
    // section names it, only the verdict, on the left.
    const int margin = m_embedded ? 0 : kMargin;
    const QRect header(margin, margin, width() - 2 * margin, kHeader - 10);
    if (!m_embedded) {
        p.setFont(PlayerArt::font(PlayerArt::Weight::Bold, kHeaderSize));
        p.setPen(muted());
        p.drawText(header, Qt::AlignLeft | Qt::AlignVCenter,
                   VEKLocalizedString("SignalPathView_header").toUpper());
    }
    if (m_path.hasSong()) {
        const bool good = m_path.isBitPerfect();
        const QString verdict =
            VEKLocalizedString(good ? "SignalPath_bitPerfect" : "SignalPath_notBitPerfect").toUpper();
        const QFont font = PlayerArt::font(PlayerArt::Weight::Bold, kHeaderSize);
        const int w = QFontMetrics(font).horizontalAdvance(verdict) + 22;
        const QRectF pill(m_embedded ? header.left() + 1 : header.right() - w, header.top() + 1, w,
                          header.height() - 2);
        const QColor colour = good ? accent : amber();
        p.setPen(QPen(colour, 1.2));
        p.setBrush(faded(colour, good ? 46 : 30));
        p.drawRoundedRect(pill, pill.height() / 2, pill.height() / 2);
        p.setFont(font);
        p.setPen(colour);
        p.drawText(pill, Qt::AlignCenter, verdict);
    }

    const QList<Node> list = nodes();
    const int top = margin + headerHeight();
    const int rail = kRail - kMargin + margin;
    const int textX = kTextX - kMargin + margin;
    // The rail: accent while the samples are the song's own, amber from the first stage on.
    bool changed = false;
    for (qsizetype i = 0; i + 1 < list.size(); ++i) {
        changed = changed || list[i + 1].mark == Node::Changes;
        const qreal y0 = top + i * kRow + kRow * 0.32;
        const qreal y1 = top + (i + 1) * kRow + kRow * 0.32;
        p.setPen(QPen(changed ? faded(amber(), 170) : faded(accent, 170), 2, Qt::SolidLine, Qt::RoundCap));
        p.drawLine(QPointF(rail, y0 + 7), QPointF(rail, y1 - 7));
    }
    for (qsizetype i = 0; i < list.size(); ++i) {
        const Node &node = list[i];
        const qreal y = top + i * kRow;
        const QPointF centre(rail, y + kRow * 0.32);
        const bool end = i == 0 || i == list.size() - 1;
        if (end) {
            p.setPen(Qt::NoPen);
            p.setBrush(accent);
            p.drawEllipse(centre, 5.5, 5.5);
        } else if (node.mark == Node::Changes) {
            QPainterPath diamond;
            diamond.moveTo(centre + QPointF(0, -6.5));
            diamond.lineTo(centre + QPointF(6.5, 0));
            diamond.lineTo(centre + QPointF(0, 6.5));
            diamond.lineTo(centre + QPointF(-6.5, 0));
            diamond.closeSubpath();
            p.setPen(Qt::NoPen);
            p.setBrush(amber());
            p.drawPath(diamond);
        } else {
            p.setPen(QPen(muted(), 1.6));
            p.setBrush(PlayerArt::panel());
            p.drawEllipse(centre, 4.5, 4.5);
        }
        const int textWidth = width() - textX - margin;
        p.setFont(PlayerArt::font(PlayerArt::Weight::Medium, kTitleSize));
        p.setPen(node.mark == Node::Changes ? amber() : accent);
        const QFontMetrics tm(p.font());
        p.drawText(QRectF(textX, y, textWidth, kRow * 0.55), Qt::AlignLeft | Qt::AlignVCenter,
                   tm.elidedText(node.title, Qt::ElideRight, textWidth));
        p.setFont(PlayerArt::font(PlayerArt::Weight::Regular, kDetailSize));
        p.setPen(faded(accent, 175));
        const QFontMetrics dm(p.font());
        p.drawText(QRectF(textX, y + kRow * 0.5, textWidth, kRow * 0.4), Qt::AlignLeft | Qt::AlignVCenter,
                   dm.elidedText(node.detail, Qt::ElideRight, textWidth));
    }

    // The footer: why not, or that nothing is touched.
    const int footerTop = top + int(list.size()) * kRow + (list.isEmpty() ? 0 : kFooterGap);
    p.setFont(PlayerArt::font(PlayerArt::Weight::Regular, kDetailSize));
    p.setPen(m_path.isBitPerfect() ? faded(accent, 200) : m_path.hasSong() ? faded(amber(), 220) : muted());
    const QString footer =
        m_path.isBitPerfect() ? VEKLocalizedString("SignalPathView_untouched") : m_path.reasons().join(u'\n');
    p.drawText(QRect(margin, footerTop, width() - 2 * margin, height() - footerTop),
               Qt::AlignLeft | Qt::AlignTop | Qt::TextWordWrap, footer);
}
