#pragma once

#include "core/VEKError.h"

#include <QDateTime>
#include <QImage>
#include <QString>
#include <QVariant>
#include <memory>

class Song;
class VEKAudioFileReader;
using SongPtr = std::shared_ptr<Song>;

// One entry of the library: where the file is, the tags read from it, its technical facts, and
// the derived values sorting needs. Songs are shared by reference (the library owns them,
// playlists and the engine refer to them); two songs are the same song only if they are the
// same object. Text fields use a null QString for "absent". Not thread-safe: a song in the
// library is changed on the main thread only.
class Song {
public:
    // An empty song, all fields absent or zero.
    Song();

    // A song read from an audio file. Null, with `error` left untouched, if there is no regular
    // file at `path`; null with the reader's error if the reader refuses the file.
    static SongPtr initWithURL(const QString &path, VEKError *error = nullptr);
    // A song read from an open reader.
    static SongPtr initWithAudioFile(const VEKAudioFileReader &reader);

    // Fills the fields from an open reader; tags the file lacks leave their fields as they were.
    // Does not touch songID, dateAdded or isMissing.
    void loadInfoFromAudioFile(const VEKAudioFileReader &reader);

    // Writes tags into the file and reads the song back from it. Keys: "title", "artist",
    // "album", "albumArtist", "composer", "genre", "track", "disc"; a null QVariant clears the
    // tag. "track" and "disc" take the display form '3 of 12'. Does not touch the library file.
    bool setMetadata(const QVariantMap &metadata, VEKError *error = nullptr);

    // Whether kind and sample rate are those of the `preferredFormat` setting.
    bool isInPreferredFormat() const;

    // The embedded picture, else a cover file in the song's folder (cover, folder, front with
    // .jpg, .jpeg or .png), else a null image. Opens the file each time.
    QImage image() const;
    // The raw bytes behind image(), and the file they came from (the song's own file for an
    // embedded picture); empty when there is none.
    QByteArray imageData(QString *source = nullptr) const;

    // Generic read access by field name, as sort descriptors, the song table and JSON output
    // use it. Unknown keys give an invalid QVariant.
    QVariant valueForKey(const QString &key) const;
    // The same in two steps, for a caller that reads one key of many songs: the key's field
    // (-1 for none), then its value.
    static int fieldOfKey(const QString &key);
    QVariant valueOfField(int field) const;

    // The kind's short form: "FLAC" for "FLAC Audio File"; null for an unknown kind.
    static QString shortFormatForKind(const QString &kind);
    // The sort form of an artist or album: trimmed of non-alphanumerics, lower-cased, with a
    // leading "a " and then "the " dropped. Null for null.
    static QString sortableForm(const QString &text);
    // The leading decimal number of a text, 0 if there is none ("07 of 10" gives 7).
    static quint64 leadingInteger(const QString &text);
    // '3/12' style tag values to the display form '3 of 12'.
    static QString composeNumber(const QVariant &number, const QVariant &count);

    qint64 songID() const { return m_songID; }
    void setSongID(qint64 id) { m_songID = id; }
    const QString &URL() const { return m_url; }
    void setURL(const QString &path) { m_url = path; }
    bool isMissing() const { return m_isMissing; }
    void setIsMissing(bool missing) { m_isMissing = missing; }

    const QString &name() const { return m_name; }
    void setName(const QString &v) { m_name = v; }
    const QString &artist() const { return m_artist; }
    void setArtist(const QString &v);
    const QString &album() const { return m_album; }
    void setAlbum(const QString &v);
    const QString &albumArtist() const { return m_albumArtist; }
    void setAlbumArtist(const QString &v) { m_albumArtist = v; }
    const QString &composer() const { return m_composer; }
    void setComposer(const QString &v) { m_composer = v; }
    const QString &genre() const { return m_genre; }
    void setGenre(const QString &v) { m_genre = v; }
    const QString &track() const { return m_track; }
    void setTrack(const QString &v) { m_track = v; }
    const QString &disc() const { return m_disc; }
    void setDisc(const QString &v) { m_disc = v; }
    const QString &kind() const { return m_kind; }
    void setKind(const QString &v) { m_kind = v; }
    const QString &format() const { return m_format; }
    void setFormat(const QString &v) { m_format = v; }
    const QDateTime &dateAdded() const { return m_dateAdded; }
    void setDateAdded(const QDateTime &v) { m_dateAdded = v; }

    quint64 size() const { return m_size; }
    void setSize(quint64 v) { m_size = v; }
    double length() const { return m_length; }
    void setLength(double v) { m_length = v; }
    double sampleRate() const { return m_sampleRate; }
    void setSampleRate(double v) { m_sampleRate = v; }
    quint64 bitrate() const { return m_bitrate; }
    void setBitrate(quint64 v) { m_bitrate = v; }

    quint64 track_sortable() const { return m_trackSortable; }
    void setTrack_sortable(quint64 v) { m_trackSortable = v; }
    quint64 disc_sortable() const { return m_discSortable; }
    void setDisc_sortable(quint64 v) { m_discSortable = v; }
    const QString &artist_sortable() const { return m_artistSortable; }
    const QString &album_sortable() const { return m_albumSortable; }

private:
    qint64 m_songID = 0;
    QString m_url;
    bool m_isMissing = false;
    QString m_name, m_artist, m_album, m_albumArtist, m_composer, m_genre;
    QString m_track, m_disc, m_kind, m_format;
    QDateTime m_dateAdded;
    quint64 m_size = 0;
    double m_length = 0;
    double m_sampleRate = 0;
    quint64 m_bitrate = 0;
    quint64 m_trackSortable = 0;
    quint64 m_discSortable = 0;
    QString m_artistSortable, m_albumSortable;
};
