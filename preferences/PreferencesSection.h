#pragma once

#include <QFrame>

class QGridLayout;
class QLabel;

// A card of the preferences: a small heading and rows of a label, a control and, where it helps,
// a line of explanation under the control. Drawn by the preferences' style sheet.
class PreferencesSection : public QFrame {
    Q_OBJECT
public:
    explicit PreferencesSection(const QString &title, QWidget *parent = nullptr);

    // A row: the label on the left, the control on the right, the note (if any) under it. The
    // label names the control for assistive tools when it has no name of its own.
    // Returns the label, for panes whose label changes with a choice.
    QLabel *addRow(const QString &label, QWidget *control, const QString &note = {});
    // A control across the whole width (a check box with its own text, a table).
    void addWide(QWidget *control, const QString &note = {});
    // A row of controls side by side under one label.
    QLabel *addRow(const QString &label, const QList<QWidget *> &controls, const QString &note = {});

private:
    QLabel *makeNote(const QString &note);

    QGridLayout *m_grid;
    int m_row = 0;
};
