#include "PlayerStyle.h"

#include "PlayerArt.h"

#include <QApplication>
#include <QCheckBox>
#include <QIcon>
#include <QLabel>
#include <QMessageBox>
#include <QPainter>
#include <QPainterPath>
#include <QPushButton>
#include <QStyleFactory>

namespace {

constexpr int kAlertIconSize = 44;

// An alert's mark: a rounded triangle in amber for a warning, a disc otherwise (red for an error,
// the accent for a question or a note), with its sign cut out in the panel's colour.
QPixmap alertPixmap(QStyle::StandardPixmap kind, int size, qreal dpr)
{
    QPixmap pixmap(QSize(size, size) * dpr);
    pixmap.setDevicePixelRatio(dpr);
    pixmap.fill(Qt::transparent);
    QPainter p(&pixmap);
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF box(1, 1, size - 2, size - 2);
    QString sign = QStringLiteral("!");
    QRectF signBox = box;
    p.setPen(Qt::NoPen);
    if (kind == QStyle::SP_MessageBoxWarning) {
        QPainterPath triangle;
        const qreal r = size * 0.12;
        const QPointF top(box.center().x(), box.top() + size * 0.04);
        const QPointF right(box.right(), box.bottom() - size * 0.06);
        const QPointF left(box.left(), box.bottom() - size * 0.06);
        // Rounded corners: each corner is cut by r along both of its sides and joined by a curve.
        const auto along = [](QPointF from, QPointF to, qreal by) {
            const QPointF d = to - from;
            const qreal length = std::hypot(d.x(), d.y());
            return from + d * (by / length);
        };
        triangle.moveTo(along(top, right, r));
        triangle.lineTo(along(right, top, r));
        triangle.quadTo(right, along(right, left, r));
        triangle.lineTo(along(left, right, r));
        triangle.quadTo(left, along(left, top, r));
        triangle.lineTo(along(top, left, r));
        triangle.quadTo(top, along(top, right, r));
        p.setBrush(QColor(0xff, 0xc4, 0x8a));
        p.drawPath(triangle);
        signBox = box.adjusted(0, size * 0.22, 0, 0);
    } else {
        p.setBrush(kind == QStyle::SP_MessageBoxCritical ? QColor(0xff, 0x8f, 0x86) : PlayerArt::accent());
        p.drawEllipse(box);
        if (kind == QStyle::SP_MessageBoxQuestion)
            sign = QStringLiteral("?");
        else if (kind == QStyle::SP_MessageBoxInformation)
            sign = QStringLiteral("i");
    }
    p.setPen(PlayerArt::panel());
    p.setFont(PlayerArt::font(PlayerArt::Weight::Bold, size * 0.56));
    p.drawText(signBox, Qt::AlignCenter, sign);
    return pixmap;
}

// The clear button of a text field: a flat disc in a faint accent with a cross cut out of it, in
// place of the style's bright grey bead.
QPixmap clearPixmap(int size, qreal dpr)
{
    QPixmap pixmap(QSize(size, size) * dpr);
    pixmap.setDevicePixelRatio(dpr);
    pixmap.fill(Qt::transparent);
    QPainter p(&pixmap);
    p.setRenderHint(QPainter::Antialiasing);
    QColor disc = PlayerArt::accent();
    disc.setAlphaF(0.55f);
    p.setPen(Qt::NoPen);
    p.setBrush(disc);
    const QRectF box(1.5, 1.5, size - 3, size - 3);
    p.drawEllipse(box);
    p.setPen(QPen(PlayerArt::panel(), 1.6, Qt::SolidLine, Qt::RoundCap));
    const qreal arm = box.width() * 0.2;
    const QPointF c = box.center();
    p.drawLine(c + QPointF(-arm, -arm), c + QPointF(arm, arm));
    p.drawLine(c + QPointF(-arm, arm), c + QPointF(arm, -arm));
    return pixmap;
}

} // namespace

PlayerStyle::PlayerStyle() : QProxyStyle(QStyleFactory::create(QStringLiteral("Fusion"))) {}

void PlayerStyle::install()
{
    QApplication::setStyle(new PlayerStyle);
    QApplication::setPalette(PlayerArt::palette());
    QApplication::setPalette(PlayerArt::palette(true), "QMenu");
    // The player's type everywhere a window does not choose its own: a dialog without a parent
    // (the first start's question) would otherwise mix it with the desktop's sans serif.
    if (PlayerArt::loadFonts())
        QApplication::setFont(PlayerArt::font(PlayerArt::Weight::Regular, 14));
}

int PlayerStyle::styleHint(StyleHint hint, const QStyleOption *option, const QWidget *widget,
                           QStyleHintReturn *returnData) const
{
    if (hint == SH_DialogButtonBox_ButtonsHaveIcons)
        return 0;
    return QProxyStyle::styleHint(hint, option, widget, returnData);
}

int PlayerStyle::pixelMetric(PixelMetric metric, const QStyleOption *option, const QWidget *widget) const
{
    if (metric == PM_MessageBoxIconSize)
        return kAlertIconSize;
    return QProxyStyle::pixelMetric(metric, option, widget);
}

QIcon PlayerStyle::standardIcon(StandardPixmap icon, const QStyleOption *option, const QWidget *widget) const
{
    switch (icon) {
    case SP_MessageBoxWarning:
    case SP_MessageBoxCritical:
    case SP_MessageBoxQuestion:
    case SP_MessageBoxInformation: {
        QIcon drawn;
        for (qreal dpr : {1.0, 2.0})
            drawn.addPixmap(alertPixmap(icon, kAlertIconSize, dpr));
        return drawn;
    }
    case SP_LineEditClearButton: {
        QIcon drawn;
        for (qreal dpr : {1.0, 2.0})
            drawn.addPixmap(clearPixmap(16, dpr));
        return drawn;
    }
    default: return QProxyStyle::standardIcon(icon, option, widget);
    }
}

void PlayerStyle::polish(QWidget *widget)
{
    QProxyStyle::polish(widget);
    // The box's outline is drawn a shade darker than the window: on the dark ground it needs a
    // lighter window to show at all.
    if (qobject_cast<QCheckBox *>(widget) && widget->styleSheet().isEmpty()) {
        QPalette p = widget->palette();
        p.setColor(QPalette::Window, QColor(0x4a, 0x58, 0x6a));
        p.setColor(QPalette::Base, QColor(0x1a, 0x21, 0x2c));
        widget->setPalette(p);
    }
    // An alert's buttons as tall as the preferences' ones, and never just wide enough for their word.
    if (qobject_cast<QPushButton *>(widget) && widget->parentWidget()
        && qobject_cast<QMessageBox *>(widget->parentWidget()->parentWidget())) {
        widget->setMinimumSize(std::max(widget->minimumWidth(), 88), std::max(widget->minimumHeight(), 30));
        return;
    }
    if (!qobject_cast<QMessageBox *>(widget->parentWidget()) || !qobject_cast<QLabel *>(widget))
        return;
    if (widget->objectName() == QLatin1String("qt_msgbox_label")) {
        widget->setFont(PlayerArt::font(PlayerArt::Weight::Bold, 16));
    } else if (widget->objectName() == QLatin1String("qt_msgbox_informativelabel")) {
        widget->setFont(PlayerArt::font(PlayerArt::Weight::Regular, 14));
        widget->setMinimumWidth(340);
        QPalette p = widget->palette();
        p.setColor(QPalette::WindowText, QColor(0xae, 0xbf, 0xd1));
        widget->setPalette(p);
    }
}
