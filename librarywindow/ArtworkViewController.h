#pragma once

#include "library/Song.h"

#include <QObject>

class ApplicationDelegate;
class ArtworkView;
class QWidget;

// The artwork panel at the foot of the library window's left column: the cover of the song now
// playing (the stream's current song, never the one selected in the table), "No Artwork" for a
// song without one and "Nothing Playing" with no song. The cover is read off the main thread;
// an answer for a song that is no longer current is dropped. Main thread only.
class ArtworkViewController : public QObject {
    Q_OBJECT
public:
    ArtworkViewController(ApplicationDelegate *delegate, QWidget *parent);
    ~ArtworkViewController() override;

    ArtworkView *view() const { return m_view; }
    // The panel's height for a column `width` wide: the square and its header.
    static int heightForWidth(int width);

signals:
    // The panel shows the cover (or the text) of the current song.
    void artworkChanged();

private:
    void currentSongDidChange(const SongPtr &song);

    ApplicationDelegate *m_delegate;
    ArtworkView *m_view;
    quint64 m_generation = 0;
};
