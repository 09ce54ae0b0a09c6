#include "ArtworkViewController.h"

#include "ArtworkView.h"

#include "app/ApplicationDelegate.h"
#include "audio/Stream.h"
#include "core/VEKLocalizedString.h"

#include <QApplication>
#include <QPointer>
#include <QThreadPool>

ArtworkViewController::ArtworkViewController(ApplicationDelegate *delegate, QWidget *parent)
    : QObject(parent), m_delegate(delegate), m_view(new ArtworkView(parent))
{
    m_view->setObjectName(QStringLiteral("Artwork"));
    m_view->setTitle(VEKLocalizedString("ArtworkViewController_nowPlaying"));
    m_view->setPlaceholder(VEKLocalizedString("ArtworkViewController_nothingPlaying"));
    if (Stream *stream = m_delegate->stream()) {
        connect(stream, &Stream::currentSongChanged, this, &ArtworkViewController::currentSongDidChange);
        // A song already playing shows at once, not only from the next one on.
        currentSongDidChange(stream->currentSong());
    }
}

ArtworkViewController::~ArtworkViewController() = default;

int ArtworkViewController::heightForWidth(int width)
{
    return width + ArtworkView::headerHeight;
}

void ArtworkViewController::currentSongDidChange(const SongPtr &song)
{
    const quint64 generation = ++m_generation;
    if (!song) {
        m_view->setImage(QImage());
        m_view->setPlaceholder(VEKLocalizedString("ArtworkViewController_nothingPlaying"));
        emit artworkChanged();
        return;
    }
    // The worker reads the file by its path alone: the song itself is the main thread's.
    const QString path = song->URL();
    QPointer<ArtworkViewController> self(this);
    QThreadPool::globalInstance()->start([self, generation, path] {
        Song probe;
        probe.setURL(path);
        const QImage cover = probe.image();
        QMetaObject::invokeMethod(qApp, [self, generation, cover] {
            if (!self || self->m_generation != generation)
                return;
            self->m_view->setImage(cover);
            self->m_view->setPlaceholder(VEKLocalizedString("ArtworkViewController_noArtwork"));
            emit self->artworkChanged();
        });
    });
}
