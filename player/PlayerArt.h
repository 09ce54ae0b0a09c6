#pragma once

#include <QColor>
#include <QFont>
#include <QPalette>
#include <QPixmap>
#include <QSizeF>
#include <QString>

class QPainter;

// The player's look in one place: the accent colour, the panel colour, the fonts and the art.
//
// The art is SVG in the resources under ":/player/NAME.svg", drawn in the accent colour on a
// dark panel and rendered here at the size and device pixel ratio it is shown at, so it stays
// sharp at every player size and on high-density screens. Main (GUI) thread only.
class PlayerArt {
public:
    enum class Weight { Regular, Medium, Bold };

    // Red 0.698, green 0.851, blue 1.0.
    static QColor accent();
    // The dark panel the art is drawn for.
    static QColor panel();
    // The dark palette of every window and dialog of the program, so that no box opens light
    // beside the dark player; `menus` gives the menus' variant, a lighter surface with the
    // accent for text.
    static QPalette palette(bool menus = false);

    // Loads the player's font family (Roboto Condensed from fonts-roboto-unhinted: regular,
    // medium, bold) into the application once; true when it is there. Without it the fonts
    // below fall back to the system's sans serif. Needs a QGuiApplication.
    static bool loadFonts();
    static QString fontFamily();
    // The player's font at a size in pixels, which is how the controls measure their text
    // against their own height.
    static QFont font(Weight weight, qreal pixelSize);
    // A style sheet in the player's look: FAMILY and ACCENT in `sheet` become the font family
    // (or the system's sans serif) and the accent's colour, and PANEL_SCROLLBARS the thin
    // vertical scroll bars the dialogs' panels share.
    static QString styleSheet(QString sheet);

    // The image `name` (without ".svg") rendered to fill `logicalSize` at `dpr`, cached per
    // name, size and ratio. A null pixmap for a missing image or an empty size.
    static QPixmap pixmap(const QString &name, const QSizeF &logicalSize, qreal dpr);
    // The image's own size (its view box), for keeping proportions; empty if missing.
    static QSizeF designSize(const QString &name);

    // The ring a control shows while it has the keyboard focus, inside `rect`.
    static void drawFocusRing(QPainter &painter, const QRectF &rect, bool round);
};
