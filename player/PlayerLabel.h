#pragma once

#include <QWidget>

// A line of text in the accent colour, sized by the label's height, left, right or centred.
// A press (not the release) emits pressed(): the position text toggles elapsed and remaining.
class PlayerLabel : public QWidget {
    Q_OBJECT
public:
    enum Align : quint64 { Left = 0, Right = 1, Centre = 2 };

    explicit PlayerLabel(QWidget *parent = nullptr);

    QString text() const { return m_text; }
    // Redraws only when the text differs.
    void setText(const QString &text);
    Align align() const { return m_align; }
    void setAlign(Align align);
    bool isBold() const { return m_bold; }
    void setBold(bool bold);
    // What a press does, for assistive tools.
    void press() { emit pressed(this); }

signals:
    void pressed(PlayerLabel *label);

protected:
    void mousePressEvent(QMouseEvent *event) override;
    void paintEvent(QPaintEvent *event) override;

private:
    QString m_text;
    Align m_align = Left;
    bool m_bold = false;
};
