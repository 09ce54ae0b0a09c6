#include "PlaylistTableItemDelegate.h"

#include "PlaylistTableModel.h"

#include "player/PlayerArt.h"

#include <QLineEdit>
#include <QPainter>
#include <QPainterPath>

namespace {

constexpr int kRowHeight = 26;
constexpr int kHeaderHeight = 30;
constexpr int kInset = 14;
constexpr int kIcon = 16;
constexpr int kTextGap = 8;

QColor faded(QColor c, qreal alpha)
{
    c.setAlphaF(float(alpha));
    return c;
}

QFont headerFont()
{
    QFont f = PlayerArt::font(PlayerArt::Weight::Bold, 11);
    f.setLetterSpacing(QFont::AbsoluteSpacing, 1.6);
    return f;
}

} // namespace

QString PlaylistTableItemDelegate::iconName(bool isLibrary, bool locked)
{
    return QStringLiteral("Library_%1%2")
        .arg(isLibrary ? QStringLiteral("library") : QStringLiteral("playlist"),
             locked ? QStringLiteral("_locked") : QString());
}

void PlaylistTableItemDelegate::paint(QPainter *painter, const QStyleOptionViewItem &option,
                                      const QModelIndex &index) const
{
    const auto *model = qobject_cast<const PlaylistTableModel *>(index.model());
    if (!model)
        return QStyledItemDelegate::paint(painter, option, index);
    painter->save();
    painter->setRenderHint(QPainter::Antialiasing);
    const QRect r = option.rect;
    const QColor accent = PlayerArt::accent();

    if (model->isGroup(index)) {
        painter->setFont(headerFont());
        painter->setPen(faded(accent, 0.5));
        const QRect text = r.adjusted(kInset, 0, -kInset, -5);
        painter->drawText(text, Qt::AlignLeft | Qt::AlignBottom, index.data().toString());
        painter->restore();
        return;
    }

    const PlaylistPtr playlist = model->playlistAt(index);
    const bool selected = option.state & QStyle::State_Selected;
    const bool focused =
        option.state & QStyle::State_HasFocus || (option.widget && option.widget->hasFocus());
    const QRectF bar = QRectF(r).adjusted(6, 1, -6, -1);
    if (selected) {
        // The selection reads brighter while the sidebar has the keyboard.
        QPainterPath path;
        path.addRoundedRect(bar, 5, 5);
        painter->fillPath(path, focused ? accent.darker(230) : faded(accent.darker(260), 0.75));
    } else if (option.state & QStyle::State_MouseOver) {
        QPainterPath path;
        path.addRoundedRect(bar, 5, 5);
        painter->fillPath(path, faded(accent, 0.07));
    }
    if (m_dropTarget.isValid() && m_dropTarget == index) {
        QPainterPath path;
        path.addRoundedRect(bar.adjusted(0.75, 0.75, -0.75, -0.75), 5, 5);
        painter->fillPath(path, faded(accent, 0.14));
        painter->setPen(QPen(accent, 1.5));
        painter->drawPath(path);
    }

    const qreal dpr = painter->device() ? painter->device()->devicePixelRatioF() : 1.0;
    const QRect iconRect(r.left() + kInset, r.top() + (r.height() - kIcon) / 2, kIcon, kIcon);
    if (playlist) {
        const QPixmap icon = PlayerArt::pixmap(iconName(playlist->isLibraryPlaylist(), playlist->locked()),
                                               QSizeF(kIcon, kIcon), dpr);
        painter->setOpacity(selected ? 1.0 : 0.85);
        painter->drawPixmap(iconRect, icon);
        painter->setOpacity(1.0);
    }

    const QRect text(iconRect.right() + 1 + kTextGap, r.top(),
                     r.right() - iconRect.right() - kTextGap - kInset, r.height());
    const bool library = playlist && playlist->isLibraryPlaylist();
    QFont font = PlayerArt::font(library ? PlayerArt::Weight::Medium : PlayerArt::Weight::Regular, 14);
    painter->setFont(font);
    painter->setPen(selected ? QColor(Qt::white) : faded(accent, 0.92));
    const QString name = QFontMetrics(font).elidedText(index.data().toString(), Qt::ElideRight, text.width());
    painter->drawText(text, Qt::AlignLeft | Qt::AlignVCenter, name);
    painter->restore();
}

QSize PlaylistTableItemDelegate::sizeHint(const QStyleOptionViewItem &option, const QModelIndex &index) const
{
    const auto *model = qobject_cast<const PlaylistTableModel *>(index.model());
    const bool group = model && model->isGroup(index);
    // The first header stands a little clear of the window's top edge.
    const int height = group ? kHeaderHeight + (index.row() == 0 ? 4 : 8) : kRowHeight;
    return {option.rect.width() > 0 ? option.rect.width() : 160, height};
}

QWidget *PlaylistTableItemDelegate::createEditor(QWidget *parent, const QStyleOptionViewItem &,
                                                 const QModelIndex &) const
{
    auto *editor = new QLineEdit(parent);
    editor->setFrame(false);
    editor->setFont(PlayerArt::font(PlayerArt::Weight::Regular, 14));
    const QColor accent = PlayerArt::accent();
    editor->setStyleSheet(QStringLiteral("QLineEdit { background: %1; color: white; border: 1px solid %2;"
                                         " border-radius: 4px; padding: 0 4px;"
                                         " selection-background-color: %3; selection-color: white; }")
                              .arg(PlayerArt::panel().name(), accent.name(), accent.darker(200).name()));
    return editor;
}

void PlaylistTableItemDelegate::updateEditorGeometry(QWidget *editor, const QStyleOptionViewItem &option,
                                                     const QModelIndex &) const
{
    const QRect r = option.rect;
    const int left = r.left() + kInset + kIcon + kTextGap - 5;
    editor->setGeometry(QRect(left, r.top() + 2, r.right() - left - 6, r.height() - 4));
}
