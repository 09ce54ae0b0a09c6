#include "PreferencesWindow.h"

#include "PreferencesPane.h"
#include "PreferencesStyle.h"
#include "core/VEKLocalizedString.h"
#include "player/PlayerArt.h"

#include <QButtonGroup>
#include <QHBoxLayout>
#include <QIcon>
#include <QLabel>
#include <QPushButton>
#include <QScreen>
#include <QScrollArea>
#include <QStackedWidget>
#include <QVBoxLayout>

PreferencesWindow::PreferencesWindow(QWidget *parent)
    : QWidget(parent, Qt::Window), m_buttons(new QButtonGroup(this))
{
    setObjectName(QStringLiteral("PreferencesWindow"));
    setAttribute(Qt::WA_StyledBackground);
    setWindowTitle(VEKLocalizedString("PreferencesPane_title"));
    setWindowIcon(QIcon(QStringLiteral(":/icons/org.quivera.Quivera.svg")));
    PreferencesStyle::apply(this);

    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);

    auto *sidebar = new QFrame(this);
    sidebar->setObjectName(QStringLiteral("PreferencesSidebar"));
    sidebar->setFixedWidth(214);
    auto *column = new QVBoxLayout(sidebar);
    column->setContentsMargins(14, 22, 14, 18);
    column->setSpacing(3);
    auto *heading = new QLabel(VEKLocalizedString("PreferencesPane_title"), sidebar);
    heading->setObjectName(QStringLiteral("PreferencesSidebarTitle"));
    column->addWidget(heading);
    column->addStretch(1);
    m_sidebar = sidebar;
    layout->addWidget(sidebar);

    auto *content = new QVBoxLayout;
    content->setContentsMargins(32, 26, 32, 24);
    content->setSpacing(4);
    m_title = new QLabel(this);
    m_title->setObjectName(QStringLiteral("PreferencesTitle"));
    m_subtitle = new QLabel(this);
    m_subtitle->setObjectName(QStringLiteral("PreferencesSubtitle"));
    m_subtitle->setWordWrap(true);
    content->addWidget(m_title);
    content->addWidget(m_subtitle);
    content->addSpacing(16);
    m_stack = new QStackedWidget(this);
    content->addWidget(m_stack, 1);
    layout->addLayout(content, 1);

    // Toggled rather than clicked: assistive tools check the button without clicking it.
    connect(m_buttons, &QButtonGroup::idToggled, this, [this](int index, bool checked) {
        if (checked && index != m_stack->currentIndex())
            emit paneChosen(index);
    });
    // Never larger than the screen leaves free: a laptop's 768 lines are fewer than 850, and the
    // panes scroll.
    QSize wanted(960, 850);
    if (const QScreen *screen = this->screen())
        wanted = wanted.boundedTo(screen->availableGeometry().size() - QSize(40, 60));
    resize(wanted);
}

void PreferencesWindow::addPane(PreferencesPane *pane)
{
    const int index = int(m_panes.size());
    m_panes.append(pane);
    // A pane taller than the window scrolls rather than squeezes its rows.
    auto *scroll = new QScrollArea(m_stack);
    scroll->setWidget(pane);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_stack->addWidget(scroll);

    auto *button = new QPushButton(pane->title(), m_sidebar);
    button->setObjectName(QStringLiteral("PreferencesPaneButton"));
    button->setCheckable(true);
    button->setIcon(QIcon(QStringLiteral(":/preferences/%1.svg").arg(pane->iconName())));
    button->setIconSize(QSize(20, 20));
    button->setCursor(Qt::PointingHandCursor);
    m_buttons->addButton(button, index);
    auto *column = static_cast<QVBoxLayout *>(m_sidebar->layout());
    // Before the stretch that keeps the column at the top.
    column->insertWidget(column->count() - 1, button);
}

void PreferencesWindow::showPane(int index)
{
    if (index < 0 || index >= m_panes.size())
        return;
    m_stack->setCurrentIndex(index);
    m_buttons->button(index)->setChecked(true);
    m_title->setText(m_panes[index]->title());
    m_subtitle->setText(m_panes[index]->subtitle());
}

int PreferencesWindow::currentIndex() const
{
    return m_stack->currentIndex();
}
