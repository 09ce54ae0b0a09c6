#pragma once

#include <QMap>
#include <QString>
#include <QStringList>
#include <QVariantMap>

#include <memory>
#include <optional>

namespace TagLib {
class File;
class IOStream;
}

// The tags of one audio file through TagLib, shared by the reader and the modifier so that
// what one writes the other reads back. The TagLib class is chosen by the file's first bytes,
// never by its name: a FLAC file called ".mp3" is still tagged as FLAC.
class VEKTagFile {
public:
    enum class Kind {
        Unknown,
        MPEG,
        FLAC,
        MP4,
        OggVorbis,
        OggFLAC,
        OggOpus,
        OggSpeex,
        WAV,
        AIFF,
        CAF,
        APE,
        TrueAudio,
        WavPack,
        Musepack,
    };

    VEKTagFile();
    ~VEKTagFile();
    VEKTagFile(const VEKTagFile &) = delete;
    VEKTagFile &operator=(const VEKTagFile &) = delete;

    static Kind sniff(const QString &path);
    // Whether TagLib can write tags into files of this kind (CAF, for one, it cannot).
    static bool canWrite(Kind kind);
    // The keys the reader reports as text and the modifier writes.
    static const QStringList &textKeys();

    // Opens the file through TagLib: for writing, a copy in memory, and only when the file and
    // its folder are writable, as saving replaces the file. False when TagLib has no class for
    // the kind, finds the file invalid, or (for writing) either is not writable. kind() is set
    // either way.
    bool open(const QString &path, bool forWriting);
    Kind kind() const { return m_kind; }

    // The text keys present in the file, and "imageData" (first embedded picture).
    QVariantMap metadata() const;

    // Applies `changes` (key to new text; an empty text removes the tag) and saves.
    // Combined numbers and totals are kept in the form the tag type expects. With `picture`,
    // the embedded pictures are replaced by that one (as the front cover); an empty picture
    // removes them.
    // The file is replaced whole (see VEKAtomicFile): on failure it stays as it was and
    // errorText() tells why when the system did.
    bool write(const QMap<QString, QString> &changes, const std::optional<QByteArray> &picture = std::nullopt);
    const QString &errorText() const { return m_error; }

    // The number of valid frames iTunes records in an MP4 file ("iTunSMPB"); 0 without one.
    quint64 iTunesValidFrames() const;

private:
    // Applies the changes to the copy in memory.
    bool edit(const QMap<QString, QString> &changes, const std::optional<QByteArray> &picture);

    QString m_path;
    QString m_error;
    Kind m_kind = Kind::Unknown;
    // Declared before the file: TagLib does not own the stream, which must outlive it.
    std::unique_ptr<TagLib::IOStream> m_stream;
    std::unique_ptr<TagLib::File> m_file;
};
