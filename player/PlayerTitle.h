#pragma once

#include <QElapsedTimer>
#include <QPointer>
#include <QTimer>
#include <QWidget>

#include "PlayerTransport.h"

// The line "artist • title" of the current song, on black, the artist in bold. A line wider
// than the view scrolls over and over: rests 3 s, glides to its end in 3 s, rests 3 s, fades
// out, jumps back unseen and fades in, 9.75 s in all. A line that fits stands still.
class PlayerTitle : public QWidget {
    Q_OBJECT
public:
    // The scroll's cycle, and where the line stands at a time of it.
    static constexpr double cycleSeconds = 9.75;
    struct ScrollState {
        double offset = 0.0; // 0 at rest at the start, `travel` at the end
        double opacity = 1.0;
    };
    static ScrollState scrollStateAt(double seconds, double travel);
    // How long the line rests from `seconds` on before it moves again; 0 while it moves or fades,
    // when it is redrawn at the display's pace.
    static double restAt(double seconds);
    // Milliseconds until a scrolling line needs its next frame.
    static int nextFrameDelayAt(double seconds);

    explicit PlayerTitle(QWidget *parent = nullptr);

    void setTransport(PlayerTransport *transport);

    QString artist() const { return m_artist; }
    QString title() const { return m_title; }
    // The line's width in pixels at the present size.
    qreal lineWidth() const { return m_lineWidth; }
    bool isScrolling() const { return m_scrolling; }
    // Reads the song afresh and restarts the scroll if the line needs one.
    void updateTitle();

protected:
    void paintEvent(QPaintEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    QFont artistFont() const;
    QFont titleFont() const;
    void tick();

    QPointer<PlayerTransport> m_transport;
    QString m_artist;
    QString m_title;
    qreal m_lineWidth = 0.0;
    bool m_scrolling = false;
    QElapsedTimer m_clock;
    QTimer m_timer;
};
