#pragma once

#include "audio/SignalPath.h"

#include <QWidget>

// The player window's small mark of the signal path: a pill reading "BIT-PERFECT" in the accent
// colour, or in amber the first thing that alters the samples ("RESAMPLED", "DITHERED", ...);
// where the player is too small for words, a dot (filled when bit-perfect, a ring when not).
// Nothing while no song plays. Its tooltip and accessible description give the whole path and
// the reasons in words. A press emits pressed(), for showing the full path. Main thread only.
class PlayerSignalMark : public QWidget {
    Q_OBJECT
public:
    explicit PlayerSignalMark(QWidget *parent = nullptr);

    void setPath(const SignalPath &path);
    const SignalPath &path() const { return m_path; }
    // The pill's word for `path`, empty with no song.
    static QString word(const SignalPath &path);

signals:
    void pressed();

protected:
    void paintEvent(QPaintEvent *event) override;
    void mousePressEvent(QMouseEvent *event) override;

private:
    SignalPath m_path;
};
