#pragma once

#include <QStringList>
#include <QWidget>

class QButtonGroup;

// A row of joined buttons of which one is chosen (normal or inverted phase; both, left or right
// channel). Each button is a checkable button to assistive tools, named by its text.
class PreferencesSegments : public QWidget {
    Q_OBJECT
public:
    PreferencesSegments(const QStringList &titles, QWidget *parent = nullptr);

    int selectedSegment() const;
    // Quiet: no segmentChosen().
    void setSelectedSegment(int index);
    // Chooses as the user would (tests).
    void choose(int index);

signals:
    void segmentChosen(int index);

private:
    QButtonGroup *m_group;
};
