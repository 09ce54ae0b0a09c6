#pragma once

#include <QRectF>

#include <functional>
#include <optional>

class PlayerTransport;
class QKeyEvent;
class QMouseEvent;

// The seeking gesture of the position bars, the player's and the mini player's.
//
// A press on the bar jumps the knob there, a press on the knob grabs it where it was taken;
// dragging seeks at every move, and playback pauses for the gesture and resumes after it if it
// was playing. Left and right arrows seek by 5 seconds, Home and End to the ends.
class PlayerSeekGesture {
public:
    // `seek` moves the bar to a place from 0 to 1 of the song.
    explicit PlayerSeekGesture(std::function<void(float)> seek) : m_seek(std::move(seek)) {}

    // `knob` is the knob's frame now and `travel` the distance its left edge can move. Returns
    // the knob's new left edge when the press jumped it: the transport may report the new place
    // only later, and the knob must stay under the mouse meanwhile.
    std::optional<float> press(const QMouseEvent *event, PlayerTransport *transport, const QRectF &knob,
                               float travel);
    void move(const QMouseEvent *event, float travel);
    void release(const QMouseEvent *event, PlayerTransport *transport);
    // False for a key the gesture does not take.
    bool key(const QKeyEvent *event, PlayerTransport *transport, float location);

private:
    std::function<void(float)> m_seek;
    bool m_tracking = false;
    bool m_wasPlaying = false;
    float m_grab = 0.0f;
};
