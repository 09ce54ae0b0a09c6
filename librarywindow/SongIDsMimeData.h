#pragma once

#include "library/Song.h"

#include <QList>
#include <QString>

class QMimeData;

// Songs on the clipboard of a drag inside the program: the type application/x-quivera-songids
// holds the songs' IDs in order, as a JSON array of numbers. The song table writes it (with the
// files as text/uri-list beside it, for other programs); the table and the sidebar read it.
class SongIDsMimeData {
public:
    static const QString mimeType;

    // A new drag payload for `songs`, with both types; the caller owns it.
    static QMimeData *create(const QList<SongPtr> &songs);
    static QByteArray encode(const QList<qint64> &songIDs);
    // The IDs of `data`, in order; empty when it holds none or something else.
    static QList<qint64> songIDs(const QMimeData *data);
};
