#include "PreferencesSegments.h"

#include <QAbstractButton>
#include <QButtonGroup>
#include <QHBoxLayout>
#include <QPushButton>

PreferencesSegments::PreferencesSegments(const QStringList &titles, QWidget *parent)
    : QWidget(parent), m_group(new QButtonGroup(this))
{
    auto *row = new QHBoxLayout(this);
    row->setContentsMargins(0, 0, 0, 0);
    row->setSpacing(0);
    for (int i = 0; i < titles.size(); ++i) {
        auto *button = new QPushButton(titles[i], this);
        button->setCheckable(true);
        const char *place = titles.size() == 1       ? "only"
                            : i == 0                 ? "first"
                            : i == titles.size() - 1 ? "last"
                                                     : "middle";
        button->setProperty("segment", QString::fromLatin1(place));
        m_group->addButton(button, i);
        row->addWidget(button);
    }
    connect(m_group, &QButtonGroup::idClicked, this, &PreferencesSegments::segmentChosen);
}

int PreferencesSegments::selectedSegment() const
{
    return m_group->checkedId();
}

void PreferencesSegments::setSelectedSegment(int index)
{
    if (QAbstractButton *button = m_group->button(index))
        button->setChecked(true);
}

void PreferencesSegments::choose(int index)
{
    if (QAbstractButton *button = m_group->button(index))
        button->click();
}
