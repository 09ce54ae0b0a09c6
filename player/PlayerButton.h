#pragma once

#include <QPointer>
#include <QWidget>

#include <QMenu>

// An image-strip button of the player: the strip holds one row per state, from the top normal,
// pressed and (with three states) selected, and the button draws one row scaled into its
// bounds. With a title it shows that text instead.
//
// A press shows the pressed row; a latching button toggles `state` on each click and shows it.
// `selected` is the resting form of a button that has one (the pause form of the play button);
// a press wins over it. A button with a menu opens the menu on a press and never changes its
// state. A disabled button draws at 0.3 opacity and ignores presses.
class PlayerButton : public QWidget {
    Q_OBJECT
public:
    explicit PlayerButton(QWidget *parent = nullptr);

    // `name` is the art's name (":/player/NAME.svg"); `states` its rows: 1, 2 or 3.
    void setImageName(const QString &name, quint32 states);
    QString imageName() const { return m_imageName; }
    quint32 states() const { return m_states; }

    bool state() const { return m_state; }
    void setState(bool state);
    bool isSelected() const { return m_selected; }
    void setSelected(bool selected);
    bool isLatching() const { return m_latching; }
    void setLatching(bool latching) { m_latching = latching; }
    QString title() const { return m_title; }
    void setTitle(const QString &title);
    int tag() const { return m_tag; }
    void setTag(int tag) { m_tag = tag; }
    QMenu *menu() const { return m_menu; }
    void setMenu(QMenu *menu) { m_menu = menu; }

    // The strip row drawn now, from the top: 0 normal, 1 pressed, 2 selected.
    virtual int row() const;

    // A press and release as the mouse gives them: for the keyboard and assistive tools. A
    // button with a menu opens it instead.
    void click();

signals:
    // After the release, with the state already set: the button's action.
    void triggered(PlayerButton *button);
    // Just before the menu opens, so the owner knows which button's menu it is.
    void willTrackMenu(PlayerButton *button);

protected:
    // The two halves of a click; the repeat button changes what they do.
    virtual void press();
    virtual void release();
    void openMenu(const QPoint &globalPosition);

    void mousePressEvent(QMouseEvent *event) override;
    void mouseReleaseEvent(QMouseEvent *event) override;
    void keyPressEvent(QKeyEvent *event) override;
    void paintEvent(QPaintEvent *event) override;
    void focusInEvent(QFocusEvent *event) override;
    void focusOutEvent(QFocusEvent *event) override;
    void changeEvent(QEvent *event) override;

private:
    QString m_imageName;
    quint32 m_states = 1;
    QString m_title;
    QPointer<QMenu> m_menu;
    int m_tag = 0;
    bool m_latching = false;
    bool m_previousState = false;
    bool m_state = false;
    bool m_selected = false;
    bool m_pressed = false;
    bool m_focusVisible = false;
};
