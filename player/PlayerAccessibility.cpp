#include "PlayerAccessibility.h"

#include "PlayerButton.h"
#include "MiniPlayerPosition.h"
#include "MiniPlayerScrollingText.h"
#include "PlayerLabel.h"
#include "PlayerPosition.h"
#include "PlayerRepeatButton.h"
#include "PlayerTitle.h"
#include "PlayerVolume.h"

#include <QAccessibleWidget>

namespace {

class ButtonAccessible : public QAccessibleWidget {
public:
    explicit ButtonAccessible(PlayerButton *button) : QAccessibleWidget(button, roleOf(button)) {}

    static QAccessible::Role roleOf(PlayerButton *b)
    {
        if (b->menu())
            return QAccessible::ButtonMenu;
        if (b->isLatching())
            return QAccessible::CheckBox;
        return QAccessible::Button;
    }

    PlayerButton *button() const { return static_cast<PlayerButton *>(widget()); }

    QAccessible::State state() const override
    {
        QAccessible::State s = QAccessibleWidget::state();
        if (button()->isLatching()) {
            s.checkable = true;
            s.checked = button()->state();
        }
        if (button()->menu())
            s.hasPopup = true;
        return s;
    }

    QString text(QAccessible::Text t) const override
    {
        QString s = QAccessibleWidget::text(t);
        if (t == QAccessible::Name && s.isEmpty())
            s = button()->title();
        if (t == QAccessible::Value) {
            if (auto *repeat = qobject_cast<PlayerRepeatButton *>(button()))
                s = repeat->mode() == 1 ? QStringLiteral("All") : repeat->mode() == 2 ? QStringLiteral("One") : QStringLiteral("Off");
        }
        return s;
    }

    QStringList actionNames() const override
    {
        if (!button()->isEnabled())
            return {};
        if (button()->menu())
            return {showMenuAction()};
        if (button()->isLatching())
            return {toggleAction(), pressAction()};
        return {pressAction()};
    }

    void doAction(const QString &name) override
    {
        if (name == pressAction() || name == toggleAction() || name == showMenuAction())
            button()->click();
        else
            QAccessibleWidget::doAction(name);
    }
};

class ValueAccessible : public QAccessibleWidget, public QAccessibleValueInterface {
public:
    ValueAccessible(QWidget *widget, QAccessible::Role role) : QAccessibleWidget(widget, role) {}

    void *interface_cast(QAccessible::InterfaceType type) override
    {
        if (type == QAccessible::ValueInterface)
            return static_cast<QAccessibleValueInterface *>(this);
        return QAccessibleWidget::interface_cast(type);
    }

    QString text(QAccessible::Text t) const override
    {
        if (t == QAccessible::Value)
            return QString::number(qRound(currentValue().toDouble() * 100)) + QLatin1Char('%');
        return QAccessibleWidget::text(t);
    }

    QVariant currentValue() const override
    {
        if (auto *volume = qobject_cast<PlayerVolume *>(widget()))
            return double(volume->volume());
        if (auto *position = qobject_cast<PlayerPosition *>(widget()))
            return double(position->location());
        if (auto *mini = qobject_cast<MiniPlayerPosition *>(widget()))
            return double(mini->location());
        return 0.0;
    }

    void setCurrentValue(const QVariant &value) override
    {
        const float v = qBound(0.0f, value.toFloat(), 1.0f);
        if (auto *volume = qobject_cast<PlayerVolume *>(widget()))
            volume->setVolume(v);
        else if (auto *position = qobject_cast<PlayerPosition *>(widget()))
            position->seek(v);
        else if (auto *mini = qobject_cast<MiniPlayerPosition *>(widget()))
            mini->seek(v);
    }

    QStringList actionNames() const override
    {
        return QAccessibleWidget::actionNames() + QStringList{increaseAction(), decreaseAction()};
    }

    void doAction(const QString &name) override
    {
        const double step = minimumStepSize().toDouble();
        if (name == increaseAction())
            setCurrentValue(currentValue().toDouble() + step);
        else if (name == decreaseAction())
            setCurrentValue(currentValue().toDouble() - step);
        else
            QAccessibleWidget::doAction(name);
    }

    QVariant maximumValue() const override { return 1.0; }
    QVariant minimumValue() const override { return 0.0; }
    QVariant minimumStepSize() const override { return 0.01; }
};

class TextAccessible : public QAccessibleWidget {
public:
    explicit TextAccessible(QWidget *widget) : QAccessibleWidget(widget, QAccessible::StaticText) {}

    QString shown() const
    {
        if (auto *label = qobject_cast<PlayerLabel *>(widget()))
            return label->text();
        if (auto *title = qobject_cast<PlayerTitle *>(widget()))
            return title->artist().isEmpty() && title->title().isEmpty()
                ? QString() : title->artist() + QStringLiteral(" \u2022 ") + title->title();
        if (auto *line = qobject_cast<MiniPlayerScrollingText *>(widget()))
            return line->text();
        return {};
    }

    QString text(QAccessible::Text t) const override
    {
        QString s = QAccessibleWidget::text(t);
        if (t == QAccessible::Value || (t == QAccessible::Name && s.isEmpty()))
            s = shown();
        return s;
    }

    QStringList actionNames() const override
    {
        return qobject_cast<PlayerLabel *>(widget()) ? QStringList{pressAction()} : QStringList{};
    }

    void doAction(const QString &name) override
    {
        if (auto *label = qobject_cast<PlayerLabel *>(widget()); label && name == pressAction())
            label->press();
    }
};

QAccessibleInterface *factory(const QString &, QObject *object)
{
    if (!object || !object->isWidgetType())
        return nullptr;
    if (auto *button = qobject_cast<PlayerButton *>(object))
        return new ButtonAccessible(button);
    if (auto *volume = qobject_cast<PlayerVolume *>(object))
        return new ValueAccessible(volume, QAccessible::Dial);
    if (auto *position = qobject_cast<PlayerPosition *>(object))
        return new ValueAccessible(position, QAccessible::Slider);
    if (auto *position = qobject_cast<MiniPlayerPosition *>(object))
        return new ValueAccessible(position, QAccessible::Slider);
    if (qobject_cast<PlayerLabel *>(object) || qobject_cast<PlayerTitle *>(object)
        || qobject_cast<MiniPlayerScrollingText *>(object))
        return new TextAccessible(static_cast<QWidget *>(object));
    return nullptr;
}

} // namespace

void PlayerAccessibility::install()
{
    static bool installed = false;
    if (installed)
        return;
    installed = true;
    QAccessible::installFactory(factory);
}
