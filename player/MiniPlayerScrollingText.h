#pragma once

#include <QElapsedTimer>
#include <QFont>
#include <QTimer>
#include <QWidget>

// One line of the mini player (the artist or the song's name) in the accent colour. A line that
// fits stands still, centred; a wider one scrolls by the player title's cycle: rests at its
// start, glides to its end, rests, fades out and back in at its start, and again. Only a line
// that scrolls runs a timer, and only while it moves or fades.
class MiniPlayerScrollingText : public QWidget {
    Q_OBJECT
public:
    explicit MiniPlayerScrollingText(QWidget *parent = nullptr);

    void setFont(const QFont &font);
    QString text() const { return m_text; }
    // A new text restarts the cycle from its rest at the start; the same text changes nothing
    // unless `restart` asks for it (a new song by the same artist: both lines start together).
    void setText(const QString &text, bool restart = false);
    // Drawn faint and centred while the line has no text (the program's name with no song), so
    // an idle player reads as waiting rather than broken.
    void setIdleText(const QString &text);
    QString idleText() const { return m_idleText; }
    bool scrolls() const { return m_scrolls; }
    qreal textWidth() const { return m_textWidth; }
    // Where the line is drawn now, and how opaque, in the view's coordinates.
    qreal x() const;
    qreal opacity() const;

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    void measure();
    void tick();
    double seconds() const { return m_clock.elapsed() / 1000.0; }

    QString m_text;
    QString m_idleText;
    QFont m_font;
    qreal m_textWidth = 0.0;
    bool m_scrolls = false;
    QElapsedTimer m_clock;
    QTimer m_timer;
};
