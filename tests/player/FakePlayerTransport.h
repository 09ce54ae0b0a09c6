#pragma once

#include "player/PlayerTransport.h"

#include <QApplication>
#include <QMouseEvent>
#include <QWidget>

// A transport the tests drive by hand: it plays and seeks as told and keeps what it was told.
class FakePlayerTransport : public PlayerTransport {
public:
    SongPtr song;
    bool playing = false;
    float location = 0.0f;
    float levels[2] = {0.0f, 0.0f};
    int pauses = 0;
    bool playingWhenLastSeeked = false;

    SongPtr currentSong() const override { return song; }
    bool isPlaying() const override { return playing; }
    void play() override { playing = true; emit playingChanged(true); }
    void pause() override { ++pauses; playing = false; emit playingChanged(false); }
    float normalizedLocation() const override { return location; }
    void setNormalizedLocation(float f) override
    {
        location = f;
        playingWhenLastSeeked = playing;
    }
    float levelOfChannel(quint32 c) const override { return c < 2 ? levels[c] : 0.0f; }

    void setSong(const QString &path, const QString &artist = {}, const QString &name = {})
    {
        song = std::make_shared<Song>();
        song->setURL(path);
        song->setArtist(artist);
        song->setName(name);
        emit currentSongChanged();
    }
};

// The widget's own drawing on a transparent image, without the window's background.
inline QImage renderAlone(QWidget *w)
{
    QImage image(w->size(), QImage::Format_ARGB32_Premultiplied);
    image.fill(Qt::transparent);
    w->render(&image, QPoint(), QRegion(), QWidget::DrawChildren);
    return image.convertToFormat(QImage::Format_ARGB32);
}

// The strongest alpha of the widget's own drawing, and the rightmost column with any ink (-1:
// none).
struct Ink {
    int strongest = 0;
    int right = -1;
};
inline Ink inkOf(QWidget *w)
{
    const QImage image = renderAlone(w);
    Ink ink;
    for (int y = 0; y < image.height(); ++y)
        for (int x = 0; x < image.width(); ++x)
            if (const int alpha = qAlpha(image.pixel(x, y)); alpha > 0) {
                ink.strongest = std::max(ink.strongest, alpha);
                ink.right = std::max(ink.right, x);
            }
    return ink;
}

// Mouse events as the window system gives them, straight to the widget.
inline void sendMouse(QWidget *w, QEvent::Type type, QPointF at, Qt::MouseButtons held = Qt::LeftButton)
{
    const Qt::MouseButton button = type == QEvent::MouseMove ? Qt::NoButton : Qt::LeftButton;
    QMouseEvent event(type, at, w->mapToGlobal(at), button, held, Qt::NoModifier);
    QApplication::sendEvent(w, &event);
}
