#pragma once

#include "library/Song.h"

#include <QList>
#include <QMimeData>

// The songs of a drag out of the song table: their IDs (SongIDsMimeData's type, for the
// program's own table and sidebar) and their files as text/uri-list (for file managers and
// other programs). The file list is made only when a taker asks for it, so starting a drag of
// 100,000 songs makes no 100,000 URLs. Main thread only.
class SongDrag : public QMimeData {
    Q_OBJECT
public:
    explicit SongDrag(QList<SongPtr> songs);

    const QList<SongPtr> &songs() const { return m_songs; }

    QStringList formats() const override;
    bool hasFormat(const QString &mimeType) const override;

protected:
    QVariant retrieveData(const QString &mimeType, QMetaType type) const override;

private:
    QList<SongPtr> m_songs;
};
