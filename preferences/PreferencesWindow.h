#pragma once

#include <QList>
#include <QWidget>

class PreferencesPane;
class QButtonGroup;
class QLabel;
class QStackedWidget;

// The preferences window: a column of the panes on the left, the pane in front on the right under
// its title. Choosing a pane in the column emits paneChosen(); the controller brings it to the
// front (which fills its controls) with showPane().
class PreferencesWindow : public QWidget {
    Q_OBJECT
public:
    explicit PreferencesWindow(QWidget *parent = nullptr);

    void addPane(PreferencesPane *pane);
    void showPane(int index);
    int currentIndex() const;

signals:
    void paneChosen(int index);

private:
    QList<PreferencesPane *> m_panes;
    QButtonGroup *m_buttons;
    QWidget *m_sidebar;
    QLabel *m_title;
    QLabel *m_subtitle;
    QStackedWidget *m_stack;
};
