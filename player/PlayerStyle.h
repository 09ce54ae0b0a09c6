#pragma once

#include <QProxyStyle>

// The program's widget style: Fusion, which draws with the palette it is given (a desktop style
// may keep its own light colours), with the dark palette of PlayerArt and without the stock
// icons on dialog buttons, which come out as stray glyphs on many desktops. Alerts get icons
// drawn in the player's colours instead of the stock yellow triangle and blue balloon, a bold
// question over a softer explanation, and room for it to read in a few lines.
class PlayerStyle : public QProxyStyle {
    Q_OBJECT
public:
    PlayerStyle();

    // Sets the style and the palettes (the menus' own) on the application.
    static void install();

    int styleHint(StyleHint hint, const QStyleOption *option = nullptr, const QWidget *widget = nullptr,
                  QStyleHintReturn *returnData = nullptr) const override;
    int pixelMetric(PixelMetric metric, const QStyleOption *option = nullptr,
                    const QWidget *widget = nullptr) const override;
    QIcon standardIcon(StandardPixmap icon, const QStyleOption *option = nullptr,
                       const QWidget *widget = nullptr) const override;
    void polish(QWidget *widget) override;
    using QProxyStyle::polish;
};
