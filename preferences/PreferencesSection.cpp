#include "PreferencesSection.h"

#include <QGridLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QVBoxLayout>

PreferencesSection::PreferencesSection(const QString &title, QWidget *parent) : QFrame(parent)
{
    setObjectName(QStringLiteral("PreferencesSection"));
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 14, 20, 16);
    layout->setSpacing(10);
    if (!title.isEmpty()) {
        auto *heading = new QLabel(title.toUpper(), this);
        heading->setObjectName(QStringLiteral("PreferencesSectionTitle"));
        layout->addWidget(heading);
    }
    m_grid = new QGridLayout;
    m_grid->setHorizontalSpacing(18);
    m_grid->setVerticalSpacing(8);
    m_grid->setColumnMinimumWidth(0, 170);
    m_grid->setColumnStretch(1, 1);
    layout->addLayout(m_grid);
}

QLabel *PreferencesSection::makeNote(const QString &note)
{
    auto *label = new QLabel(note, this);
    label->setObjectName(QStringLiteral("PreferencesNote"));
    label->setWordWrap(true);
    return label;
}

QLabel *PreferencesSection::addRow(const QString &label, QWidget *control, const QString &note)
{
    return addRow(label, QList<QWidget *>{control}, note);
}

QLabel *PreferencesSection::addRow(const QString &label, const QList<QWidget *> &controls,
                                   const QString &note)
{
    auto *name = new QLabel(label, this);
    name->setObjectName(QStringLiteral("PreferencesLabel"));
    name->setAlignment(Qt::AlignRight | Qt::AlignVCenter);
    m_grid->addWidget(name, m_row, 0);
    auto *row = new QHBoxLayout;
    row->setSpacing(10);
    for (QWidget *control : controls) {
        control->setParent(this);
        row->addWidget(control);
    }
    // The first control is what the label names (a popup's own name is the item it shows, so
    // its role goes in the description).
    QWidget *first = nullptr;
    for (QWidget *control : controls)
        if (!first && !control->inherits("QLabel"))
            first = control;
    if (first && !label.isEmpty()) {
        if (first->accessibleName().isEmpty() && !first->inherits("QAbstractButton"))
            first->setAccessibleName(label);
        if (first->accessibleDescription().isEmpty())
            first->setAccessibleDescription(label);
    }
    if (first)
        name->setBuddy(first);
    row->addStretch(1);
    m_grid->addLayout(row, m_row++, 1);
    if (!note.isEmpty())
        m_grid->addWidget(makeNote(note), m_row++, 1);
    return name;
}

void PreferencesSection::addWide(QWidget *control, const QString &note)
{
    control->setParent(this);
    m_grid->addWidget(control, m_row++, 0, 1, 2);
    if (!note.isEmpty())
        m_grid->addWidget(makeNote(note), m_row++, 0, 1, 2);
}
