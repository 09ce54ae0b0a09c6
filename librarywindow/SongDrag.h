#pragma once

#include "library/Song.h"

#include <QList>
#include <QMimeData>

// The songs of a drag, as the song table puts them on it and as the table and the playlist
// sidebar read them back. Two formats, in the table's row order:
//   application/x-quivera-songids  the songIDs as decimal text, one per line (ASCII);
//   text/uri-list                  the songs' files, for file managers and other programs.
// The file list is made only when a taker asks for it, so starting a drag of 100,000 songs
// costs no 100,000 URLs. Main thread only.
class SongDrag : public QMimeData {
    Q_OBJECT
public:
    static const QString songIDsType;

    explicit SongDrag(QList<SongPtr> songs);

    const QList<SongPtr> &songs() const { return m_songs; }

    // Whether `data` carries songs of this program.
    static bool hasSongIDs(const QMimeData *data);
    // The songIDs of `data`, in order; empty when it carries none.
    static QList<qint64> songIDs(const QMimeData *data);

    QStringList formats() const override;
    bool hasFormat(const QString &mimeType) const override;

protected:
    QVariant retrieveData(const QString &mimeType, QMetaType type) const override;

private:
    QList<SongPtr> m_songs;
};
