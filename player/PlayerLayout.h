#pragma once

#include <QRect>
#include <QRectF>
#include <QSize>

// Where each control of the player window stands. The picture is drawn once, at the largest size
// (2400 by 600 points), and every other size is the same picture scaled: a control's frame is its
// design rectangle times the window's width over 2400. The position bar and the meter are 1436
// points wide at that size, the width their own drawing is measured against.
//
// The window is bigger than the panel it shows: a margin all round holds the panel's shadow.
class PlayerLayout {
public:
    enum Item {
        Panel, // the dark panel inside the shadow margin
        Title,
        Position,
        PositionText,
        TotalTimeText,
        FormatText,
        SizeText,
        Meter,
        Volume,
        Previous,
        Play,
        Next,
        Shuffle,
        Repeat,
        Mute,
        Dim,
        Effect1Enable,
        Effect1Button,
        Effect1Popup,
        Effect2Enable,
        Effect2Button,
        Effect2Popup,
        Effect3Enable,
        Effect3Button,
        Effect3Popup,
        Remote,
        SignalMark, // the bit-perfect mark, left of the size text
        ItemCount
    };

    static constexpr double designWidth = 2400.0;
    static constexpr double designHeight = 600.0;
    // Corner radius of the panel and width of the shadow margin, at the design size.
    static constexpr double panelRadius = 40.0;
    static constexpr double shadowMargin = 24.0;

    // The item's rectangle at the design size.
    static QRectF designRect(Item item);
    // The item's frame in a window of `windowSize`, in whole pixels: the design rectangle scaled by
    // width / 2400, its edges rounded (so neighbours that touch at the design size still touch).
    static QRect rect(Item item, QSize windowSize);
    // The effect items of slot 0, 1 or 2.
    static Item effectEnable(int slot) { return Item(Effect1Enable + 3 * slot); }
    static Item effectButton(int slot) { return Item(Effect1Button + 3 * slot); }
    static Item effectPopup(int slot) { return Item(Effect1Popup + 3 * slot); }
};
