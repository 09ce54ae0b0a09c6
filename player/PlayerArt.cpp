#include "PlayerArt.h"

#include <QCache>
#include <QFile>
#include <QFontDatabase>
#include <QHash>
#include <QPainter>
#include <QSvgRenderer>

#include <memory>

namespace {

const char *const fontFiles[] = {"RobotoCondensed-Regular.ttf", "RobotoCondensed-Medium.ttf",
                                 "RobotoCondensed-Bold.ttf"};
// Debian's unhinted package, and the hinted one should a system have that instead.
const char *const fontDirectories[] = {"/usr/share/fonts/truetype/roboto/unhinted/",
                                       "/usr/share/fonts/truetype/roboto/hinted/",
                                       "/usr/share/fonts/truetype/roboto/"};

QString &loadedFamily()
{
    static QString family;
    return family;
}

QSvgRenderer *renderer(const QString &name)
{
    static QHash<QString, std::shared_ptr<QSvgRenderer>> renderers;
    auto it = renderers.find(name);
    if (it == renderers.end()) {
        auto r = std::make_shared<QSvgRenderer>(QStringLiteral(":/player/%1.svg").arg(name));
        it = renderers.insert(name, r->isValid() ? r : nullptr);
    }
    return it->get();
}

} // namespace

QColor PlayerArt::accent()
{
    return QColor::fromRgbF(0.698f, 0.851f, 1.0f, 1.0f);
}

QColor PlayerArt::panel()
{
    return QColor(0x0c, 0x0f, 0x14);
}

QPalette PlayerArt::palette(bool menus)
{
    const QColor window = menus ? panel().lighter(180) : QColor(0x16, 0x1a, 0x20);
    const QColor base = menus ? window : QColor(0x10, 0x13, 0x18);
    const QColor button = menus ? window : QColor(0x23, 0x29, 0x31);
    const QColor text = menus ? accent() : QColor(0xdc, 0xe4, 0xee);
    QColor faint = menus ? accent() : text;
    faint.setAlphaF(0.38f);
    QPalette p;
    for (auto group : {QPalette::Active, QPalette::Inactive, QPalette::Disabled}) {
        const bool disabled = group == QPalette::Disabled;
        p.setColor(group, QPalette::Window, window);
        p.setColor(group, QPalette::Base, base);
        p.setColor(group, QPalette::AlternateBase, base.lighter(115));
        p.setColor(group, QPalette::Button, button);
        for (auto role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
            p.setColor(group, role, disabled ? faint : text);
        p.setColor(group, QPalette::BrightText, Qt::white);
        p.setColor(group, QPalette::PlaceholderText, faint);
        p.setColor(group, QPalette::ToolTipBase, panel().lighter(220));
        p.setColor(group, QPalette::ToolTipText, text);
        p.setColor(group, QPalette::Link, accent());
        p.setColor(group, QPalette::LinkVisited, accent().darker(130));
        p.setColor(group, QPalette::Highlight, disabled ? button : accent().darker(250));
        p.setColor(group, QPalette::HighlightedText, Qt::white);
        // The bevels of the style, kept close to the surface; no etched highlight under a
        // disabled text, which on dark would read brighter than an enabled one.
        p.setColor(group, QPalette::Light, disabled ? QColor(Qt::transparent) : button.lighter(140));
        p.setColor(group, QPalette::Midlight, button.lighter(120));
        p.setColor(group, QPalette::Mid, button.darker(130));
        p.setColor(group, QPalette::Dark, button.darker(170));
        p.setColor(group, QPalette::Shadow, QColor(0, 0, 0));
    }
    return p;
}

bool PlayerArt::loadFonts()
{
    static bool tried = false;
    if (!tried) {
        tried = true;
        for (const char *file : fontFiles) {
            for (const char *dir : fontDirectories) {
                const QString path = QString::fromLatin1(dir) + QString::fromLatin1(file);
                if (!QFile::exists(path))
                    continue;
                const int id = QFontDatabase::addApplicationFont(path);
                const QStringList families = QFontDatabase::applicationFontFamilies(id);
                if (!families.isEmpty())
                    loadedFamily() = families.first();
                break;
            }
        }
    }
    return !loadedFamily().isEmpty();
}

QString PlayerArt::fontFamily()
{
    loadFonts();
    return loadedFamily();
}

QString PlayerArt::styleSheet(QString sheet)
{
    const QString family = fontFamily();
    sheet.replace(QStringLiteral("PANEL_SCROLLBARS"), QStringLiteral(R"(
QScrollBar:vertical { background: transparent; width: 10px; margin: 2px; }
QScrollBar::handle:vertical { background: #2a3442; border-radius: 4px; min-height: 30px; }
QScrollBar::add-line, QScrollBar::sub-line { height: 0; }
QScrollBar::add-page, QScrollBar::sub-page { background: none; }
)"));
    sheet.replace(QStringLiteral("FAMILY"), family.isEmpty() ? QStringLiteral("sans-serif") : family);
    sheet.replace(QStringLiteral("ACCENT"), accent().name());
    return sheet;
}

QFont PlayerArt::font(Weight weight, qreal pixelSize)
{
    QFont f;
    const QString family = fontFamily();
    if (!family.isEmpty())
        f.setFamilies({family});
    else
        f.setStyleHint(QFont::SansSerif);
    f.setWeight(weight == Weight::Bold ? QFont::Bold
                : weight == Weight::Medium ? QFont::Medium
                                           : QFont::Normal);
    f.setPixelSize(qMax(1, qRound(pixelSize)));
    f.setHintingPreference(QFont::PreferNoHinting);
    return f;
}

QPixmap PlayerArt::pixmap(const QString &name, const QSizeF &logicalSize, qreal dpr)
{
    const QSize device = (logicalSize * dpr).toSize();
    if (device.isEmpty())
        return {};
    static QCache<QString, QPixmap> cache(64 * 1024 * 1024 / 4); // cost in pixels: 64 MiB
    const QString key = QStringLiteral("%1/%2x%3").arg(name).arg(device.width()).arg(device.height());
    if (QPixmap *hit = cache.object(key))
        return *hit;
    QSvgRenderer *svg = renderer(name);
    if (!svg)
        return {};
    QPixmap pixmap(device);
    pixmap.fill(Qt::transparent);
    {
        QPainter p(&pixmap);
        p.setRenderHint(QPainter::Antialiasing);
        p.setRenderHint(QPainter::SmoothPixmapTransform);
        svg->render(&p, QRectF(QPointF(0, 0), QSizeF(device)));
    }
    pixmap.setDevicePixelRatio(dpr);
    cache.insert(key, new QPixmap(pixmap), device.width() * device.height());
    return pixmap;
}

QSizeF PlayerArt::designSize(const QString &name)
{
    QSvgRenderer *svg = renderer(name);
    return svg ? svg->viewBoxF().size() : QSizeF();
}

void PlayerArt::drawFocusRing(QPainter &painter, const QRectF &rect, bool round)
{
    const qreal width = qMax(1.0, qMin(rect.width(), rect.height()) * 0.04);
    QColor colour = accent();
    colour.setAlphaF(0.8f);
    painter.save();
    painter.setRenderHint(QPainter::Antialiasing);
    painter.setPen(QPen(colour, width));
    painter.setBrush(Qt::NoBrush);
    const QRectF r = rect.adjusted(width / 2, width / 2, -width / 2, -width / 2);
    if (round)
        painter.drawEllipse(r);
    else
        painter.drawRoundedRect(r, r.height() * 0.2, r.height() * 0.2);
    painter.restore();
}
