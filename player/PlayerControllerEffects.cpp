// The effect slots of the player: the shared effects menu, putting an effect into a slot or
// taking it out, switching it on and off, and its editor window.

#include "PlayerButton.h"
#include "PlayerController.h"
#include "PlayerEffectEditor.h"
#include "PlayerWindow.h"

#include "app/ApplicationDelegate.h"
#include "audio/Stream.h"
#include "core/VEKLocalizedString.h"

#include <QGuiApplication>
#include <QMenu>
#include <QScreen>

#include <algorithm>

void PlayerController::buildEffectsMenu()
{
    QList<QVariantMap> descriptions = m_delegate.effectDescriptions();
    std::stable_sort(descriptions.begin(), descriptions.end(), [](const QVariantMap &a, const QVariantMap &b) {
        const QString ma = a.value(QStringLiteral("manufacturer")).toString();
        const QString mb = b.value(QStringLiteral("manufacturer")).toString();
        if (ma != mb)
            return ma < mb;
        return a.value(QStringLiteral("name")).toString() < b.value(QStringLiteral("name")).toString();
    });

    m_effectsMenu = new QMenu(m_window);
    QHash<QString, QMenu *> makers;
    for (const QVariantMap &description : std::as_const(descriptions)) {
        const QString maker = description.value(QStringLiteral("manufacturer")).toString();
        QMenu *&submenu = makers[maker];
        if (!submenu)
            submenu = m_effectsMenu->addMenu(maker);
        QAction *item = submenu->addAction(description.value(QStringLiteral("name")).toString());
        item->setData(description);
        connect(item, &QAction::triggered, this, [this, item] { setEffect(item); });
    }
    m_effectsMenu->addSeparator();
    m_removeItem = m_effectsMenu->addAction(VEKLocalizedString("PlayerController_effectsMenu_remove"));
    connect(m_removeItem, &QAction::triggered, this, &PlayerController::removeEffect);
    // Validated each time it opens, for the slot whose popup opened it.
    connect(m_effectsMenu, &QMenu::aboutToShow, this, [this] {
        m_removeItem->setEnabled(m_stream && m_stream->processorAtIndex(quint64(m_effectMenuIndex)));
    });
    for (PlayerButton *popup : m_effectPopup)
        popup->setMenu(m_effectsMenu);
}

void PlayerController::updateEffects()
{
    for (int slot = 0; slot < numberOfEffectSlots; ++slot) {
        const VEKAudioProcessorPtr p = m_stream ? m_stream->processorAtIndex(quint64(slot)) : nullptr;
        m_effectEnable[size_t(slot)]->setState(p && p->isEnabled());
        m_effectButton[size_t(slot)]->setEnabled(bool(p));
        m_effectButton[size_t(slot)]->setTitle(p ? p->name() : VEKLocalizedString("PlayerController_noEffect"));
    }
}

void PlayerController::effectEnableChanged(int slot)
{
    const VEKAudioProcessorPtr p = m_stream ? m_stream->processorAtIndex(quint64(slot)) : nullptr;
    if (p)
        p->setEnabled(m_effectEnable[size_t(slot)]->state());
    else
        updateEffects(); // an empty slot's switch stays off
}

void PlayerController::closeEditorsOf(const VEKAudioProcessorPtr &processor)
{
    if (!processor)
        return;
    // Over a copy: a closing editor takes itself out of the list.
    const QList<QPointer<PlayerEffectEditor>> open = m_editors;
    for (const QPointer<PlayerEffectEditor> &editor : open)
        if (editor && editor->processor() == processor) {
            editor->close();
            m_editors.removeAll(editor);
        }
}

void PlayerController::setEffect(QAction *item)
{
    if (!m_stream || !item)
        return;
    const quint64 slot = quint64(m_effectMenuIndex);
    closeEditorsOf(m_stream->processorAtIndex(slot));
    VEKError error;
    // What can't be made empties the slot: the user chose to replace what stood there.
    const VEKAudioProcessorPtr processor = VEKAudioProcessor::processorWithSettings(item->data().toMap(), &error);
    error.alert();
    VEKError slotError;
    if (!m_stream->setProcessor(processor, slot, &slotError))
        slotError.alert();
    updateEffects();
}

void PlayerController::removeEffect()
{
    if (!m_stream)
        return;
    const quint64 slot = quint64(m_effectMenuIndex);
    closeEditorsOf(m_stream->processorAtIndex(slot));
    m_stream->setProcessor(nullptr, slot);
    updateEffects();
}

QList<PlayerEffectEditor *> PlayerController::editors() const
{
    QList<PlayerEffectEditor *> open;
    for (const QPointer<PlayerEffectEditor> &editor : m_editors)
        if (editor)
            open.append(editor.data());
    return open;
}

void PlayerController::editEffect(int slot)
{
    const VEKAudioProcessorPtr p = m_stream && slot >= 0 && slot < numberOfEffectSlots
                                       ? m_stream->processorAtIndex(quint64(slot))
                                       : nullptr;
    if (!p)
        return;
    for (PlayerEffectEditor *editor : editors()) {
        if (editor->processor() == p) {
            editor->raise();
            editor->activateWindow();
            return;
        }
    }
    auto *editor = new PlayerEffectEditor(p);
    editor->setAttribute(Qt::WA_DeleteOnClose);
    m_editors.append(editor);
    connect(editor, &QObject::destroyed, this, [this] {
        m_editors.removeIf([](const QPointer<PlayerEffectEditor> &e) { return e.isNull(); });
    });
    // Centred on the player's screen.
    if (QScreen *screen = m_window->screen()) {
        QRect frame(QPoint(), editor->size());
        frame.moveCenter(screen->availableGeometry().center());
        editor->move(frame.topLeft());
    }
    editor->show();
    editor->raise();
    editor->activateWindow();
}
