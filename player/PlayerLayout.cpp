#include "PlayerLayout.h"

#include <array>
#include <cmath>

namespace {

// The design, in points of the 2400 by 600 window. Three columns inside the panel: the knob; the
// title, waveform, times, meter and effect slots over the 1436 points of the bar; the transport,
// the four toggles and the song's format and size.
constexpr double barX = 480;
constexpr double barWidth = 1436;
constexpr double rightX = 1980;
constexpr double rightWidth = 356;
constexpr double slotWidth = barWidth / 3;

constexpr std::array<QRectF, PlayerLayout::ItemCount> makeTable()
{
    std::array<QRectF, PlayerLayout::ItemCount> t{};
    using L = PlayerLayout;
    const double m = L::shadowMargin;
    t[L::Panel] = QRectF(m, m, L::designWidth - 2 * m, L::designHeight - 2 * m);
    t[L::Title] = QRectF(barX, 64, barWidth, 56);
    t[L::Position] = QRectF(barX, 136, barWidth, 208);
    t[L::PositionText] = QRectF(barX + barWidth / 2 - 180, 356, 360, 48);
    t[L::TotalTimeText] = QRectF(barX + barWidth - 360, 356, 360, 48);
    t[L::Meter] = QRectF(barX, 420, barWidth, 56);
    t[L::Volume] = QRectF(96, 150, 300, 300);
    t[L::Remote] = QRectF(72, 488, 48, 48);
    t[L::Previous] = QRectF(rightX, 112, 100, 100);
    t[L::Play] = QRectF(rightX + rightWidth / 2 - 70, 92, 140, 140);
    t[L::Next] = QRectF(rightX + rightWidth - 100, 112, 100, 100);
    const double toggle = 64;
    const double toggleStep = (rightWidth - toggle) / 3;
    t[L::Shuffle] = QRectF(rightX, 272, toggle, toggle);
    t[L::Repeat] = QRectF(rightX + toggleStep, 272, toggle, toggle);
    t[L::Mute] = QRectF(rightX + 2 * toggleStep, 272, toggle, toggle);
    t[L::Dim] = QRectF(rightX + 3 * toggleStep, 272, toggle, toggle);
    t[L::FormatText] = QRectF(rightX, 420, rightWidth, 48);
    // The size is right-aligned and short: the signal mark takes the left of its row.
    t[L::SignalMark] = QRectF(rightX, 494, 150, 36);
    t[L::SizeText] = QRectF(rightX + 156, 488, rightWidth - 156, 48);
    for (int slot = 0; slot < 3; ++slot) {
        const double x = barX + slot * slotWidth;
        t[L::Effect1Enable + 3 * slot] = QRectF(x, 496, 40, 40);
        t[L::Effect1Button + 3 * slot] = QRectF(x + 56, 500, slotWidth - 56 - 88, 32);
        t[L::Effect1Popup + 3 * slot] = QRectF(x + slotWidth - 80, 496, 40, 40);
    }
    return t;
}

constexpr auto table = makeTable();

} // namespace

QRectF PlayerLayout::designRect(Item item)
{
    return item >= 0 && item < ItemCount ? table[item] : QRectF();
}

QRect PlayerLayout::rect(Item item, QSize windowSize)
{
    const QRectF r = designRect(item);
    const double s = windowSize.width() / designWidth;
    const int left = int(std::lround(r.left() * s));
    const int top = int(std::lround(r.top() * s));
    const int right = int(std::lround((r.left() + r.width()) * s));
    const int bottom = int(std::lround((r.top() + r.height()) * s));
    return QRect(left, top, right - left, bottom - top);
}
