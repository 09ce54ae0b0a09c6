#include "PreferencesPane.h"

#include "PreferencesSection.h"
#include "settings/UserDefaults.h"

#include <QComboBox>
#include <QVBoxLayout>

PreferencesPane::PreferencesPane(UserDefaults &defaults, QWidget *parent)
    : QWidget(parent), m_defaults(defaults), m_layout(new QVBoxLayout(this))
{
    m_layout->setContentsMargins(0, 0, 0, 0);
    m_layout->setSpacing(14);
}

void PreferencesPane::addTaggedItem(QComboBox *popup, const QString &text, qint64 tag)
{
    popup->addItem(text, QVariant(tag));
}

bool PreferencesPane::selectTag(QComboBox *popup, qint64 tag)
{
    for (int i = 0; i < popup->count(); ++i) {
        const QVariant data = popup->itemData(i);
        if (data.isValid() && data.toLongLong() == tag) {
            popup->setCurrentIndex(i);
            return true;
        }
    }
    popup->setCurrentIndex(-1);
    return false;
}

qint64 PreferencesPane::selectedTag(const QComboBox *popup)
{
    return popup->currentData().toLongLong();
}

PreferencesSection *PreferencesPane::addSection(const QString &title)
{
    auto *section = new PreferencesSection(title, this);
    m_layout->addWidget(section);
    return section;
}

QComboBox *PreferencesPane::makePopup(const QString &objectName, const QString &accessibleName)
{
    auto *popup = new QComboBox(this);
    popup->setObjectName(objectName);
    popup->setAccessibleName(accessibleName);
    popup->setAccessibleDescription(accessibleName);
    popup->setSizeAdjustPolicy(QComboBox::AdjustToContents);
    popup->setMinimumWidth(190);
    return popup;
}

void PreferencesPane::storeEntry(const QString &key, const QString &entry, const QVariant &value)
{
    QVariantMap record = m_defaults.dictionaryForKey(key);
    record.insert(entry, value);
    m_defaults.setValue(key, record);
}

void PreferencesPane::finishLayout()
{
    m_layout->addStretch(1);
}
