#include "PlayerStyle.h"

#include "PlayerArt.h"

#include <QApplication>
#include <QStyleFactory>

PlayerStyle::PlayerStyle() : QProxyStyle(QStyleFactory::create(QStringLiteral("Fusion"))) {}

void PlayerStyle::install()
{
    QApplication::setStyle(new PlayerStyle);
    QApplication::setPalette(PlayerArt::palette());
    QApplication::setPalette(PlayerArt::palette(true), "QMenu");
}

int PlayerStyle::styleHint(StyleHint hint, const QStyleOption *option, const QWidget *widget,
                           QStyleHintReturn *returnData) const
{
    if (hint == SH_DialogButtonBox_ButtonsHaveIcons)
        return 0;
    return QProxyStyle::styleHint(hint, option, widget, returnData);
}
