#include "SongTableModel.h"

#include "app/ApplicationDelegate.h"
#include "audio/Stream.h"
#include "core/VEKLocalizedString.h"
#include "text/VEKFileSizeFormatter.h"
#include "text/VEKTimeFormatter.h"

#include <QColor>
#include <QLocale>

SongTableModel::SongTableModel(ApplicationDelegate *delegate, QObject *parent)
    : QAbstractTableModel(parent), m_delegate(delegate)
{
    m_songs = m_delegate->songs();
}

const QStringList &SongTableModel::identifiers()
{
    static const QStringList ids = {
        QStringLiteral("ordinal"),    QStringLiteral("name"),        QStringLiteral("artist"),
        QStringLiteral("album"),      QStringLiteral("track"),       QStringLiteral("length"),
        QStringLiteral("genre"),      QStringLiteral("albumArtist"), QStringLiteral("composer"),
        QStringLiteral("disc"),       QStringLiteral("kind"),        QStringLiteral("format"),
        QStringLiteral("sampleRate"), QStringLiteral("bitrate"),     QStringLiteral("size"),
        QStringLiteral("dateAdded"),
    };
    return ids;
}

bool SongTableModel::isNumeric(const QString &identifier)
{
    static const QStringList numeric = {QStringLiteral("ordinal"), QStringLiteral("length"),
                                        QStringLiteral("sampleRate"), QStringLiteral("bitrate"),
                                        QStringLiteral("size")};
    return numeric.contains(identifier);
}

void SongTableModel::reload()
{
    beginResetModel();
    m_songs = m_delegate->songs();
    endResetModel();
}

bool SongTableModel::showsDelegatesList() const
{
    // A list that shares the shown one's songs holds the same songs: a change of either would
    // have given it songs of its own first.
    const QList<SongPtr> &list = m_delegate->songs();
    return list.size() == m_songs.size() && list.constData() == m_songs.constData();
}

void SongTableModel::textsChanged()
{
    if (!m_songs.isEmpty())
        emit dataChanged(index(0, 0), index(int(m_songs.size()) - 1, columnCount() - 1));
}

void SongTableModel::statusChanged()
{
    if (!m_songs.isEmpty())
        emit dataChanged(index(0, 0), index(int(m_songs.size()) - 1, 0), {StatusRole});
}

SongPtr SongTableModel::songAt(int row) const
{
    return row >= 0 && row < m_songs.size() ? m_songs.at(row) : nullptr;
}

SongTableModel::Status SongTableModel::statusOf(int row) const
{
    const Stream *stream = m_delegate->stream();
    if (!stream || !stream->currentSong() || stream->playlist() != m_delegate->selectedPlaylist())
        return Status::None;
    const SongPtr song = songAt(row);
    if (!song || song->songID() != stream->currentSong()->songID())
        return Status::None;
    return stream->isPlaying() ? Status::Playing : Status::Current;
}

QString SongTableModel::text(int row, int column) const
{
    const QString &id = identifiers().value(column);
    if (id == QLatin1String("ordinal"))
        return QString::number(row + 1);
    const SongPtr song = songAt(row);
    if (!song)
        return {};
    if (id == QLatin1String("name"))
        return song->name();
    if (id == QLatin1String("artist"))
        return song->artist();
    if (id == QLatin1String("album"))
        return song->album();
    if (id == QLatin1String("length"))
        return VEKTimeFormatter().stringForSeconds(song->length());
    if (id == QLatin1String("size"))
        return VEKFileSizeFormatter().stringForByteCount(qint64(song->size()));
    if (id == QLatin1String("sampleRate"))
        return song->sampleRate() > 0 ? QStringLiteral("%1 kHz").arg(song->sampleRate() / 1000.0, 0, 'g', 4)
                                      : QString();
    if (id == QLatin1String("bitrate"))
        return song->bitrate() > 0 ? QStringLiteral("%1 kbps").arg(qRound(song->bitrate() / 1000.0))
                                   : QString();
    if (id == QLatin1String("dateAdded"))
        return song->dateAdded().isValid()
                   ? QLocale().toString(song->dateAdded().toLocalTime(), QLocale::ShortFormat)
                   : QString();
    return song->valueForKey(id).toString();
}

int SongTableModel::rowCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(m_songs.size());
}

int SongTableModel::columnCount(const QModelIndex &parent) const
{
    return parent.isValid() ? 0 : int(identifiers().size());
}

QVariant SongTableModel::data(const QModelIndex &index, int role) const
{
    if (!index.isValid())
        return {};
    switch (role) {
    case Qt::DisplayRole:
    case Qt::AccessibleTextRole:
    case Qt::ToolTipRole: return text(index.row(), index.column());
    case Qt::TextAlignmentRole:
        return isNumeric(identifiers().value(index.column())) ? int(Qt::AlignRight | Qt::AlignVCenter)
                                                              : int(Qt::AlignLeft | Qt::AlignVCenter);
    case StatusRole: return int(statusOf(index.row()));
    case SongRole: return QVariant::fromValue(songAt(index.row()));
    case Qt::ForegroundRole: {
        // A song whose file is gone is greyed out; the colour of others comes from the view.
        const SongPtr song = songAt(index.row());
        return song && song->isMissing() ? QVariant(QColor(128, 128, 128)) : QVariant();
    }
    default: return {};
    }
}

QVariant SongTableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (orientation != Qt::Horizontal)
        return {};
    const QString &id = identifiers().value(section);
    if (role == Qt::DisplayRole || role == Qt::AccessibleTextRole)
        return id == QLatin1String("ordinal") ? QString()
                                              : VEKLocalizedString(QStringLiteral("SongTable_column_") + id);
    if (role == Qt::ToolTipRole)
        return VEKLocalizedString(QStringLiteral("SongTable_column_") + id);
    if (role == Qt::TextAlignmentRole)
        return isNumeric(id) ? int(Qt::AlignRight | Qt::AlignVCenter) : int(Qt::AlignLeft | Qt::AlignVCenter);
    return {};
}

Qt::ItemFlags SongTableModel::flags(const QModelIndex &index) const
{
    if (!index.isValid())
        return Qt::ItemIsDropEnabled;
    return Qt::ItemIsEnabled | Qt::ItemIsSelectable | Qt::ItemIsDragEnabled;
}
