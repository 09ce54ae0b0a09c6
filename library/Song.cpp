#include "Song.h"

#include "core/VEKPaths.h"
#include "io/VEKAudioFileModifier.h"
#include "io/VEKAudioFileReader.h"
#include "settings/UserDefaults.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

namespace {

// NSString-style integer value: optional blanks, optional sign, digits; 0 without digits.
qint64 integerValue(const QString &text)
{
    qsizetype i = 0;
    const qsizetype n = text.size();
    while (i < n && text.at(i).isSpace())
        ++i;
    bool negative = false;
    if (i < n && (text.at(i) == u'-' || text.at(i) == u'+')) {
        negative = text.at(i) == u'-';
        ++i;
    }
    qint64 value = 0;
    for (; i < n; ++i) {
        const char16_t c = text.at(i).unicode();
        if (c < u'0' || c > u'9')
            break;
        if (value < (std::numeric_limits<qint64>::max() - 9) / 10)
            value = value * 10 + (c - u'0');
    }
    return negative ? -value : value;
}

// Alphanumeric in the Unicode sense: letters, marks and numbers.
bool isAlphanumeric(QChar c)
{
    return c.isLetterOrNumber() || c.isMark();
}

const QString kOf = QStringLiteral(" of ");

} // namespace

Song::Song() = default;

SongPtr Song::initWithURL(const QString &path, VEKError *error)
{
    if (!VEKPaths::existsAsFile(path))
        return nullptr;
    VEKAudioFileReader reader;
    if (!reader.initWithURL(path, error))
        return nullptr;
    return initWithAudioFile(reader);
}

SongPtr Song::initWithAudioFile(const VEKAudioFileReader &reader)
{
    auto song = std::make_shared<Song>();
    song->loadInfoFromAudioFile(reader);
    return song;
}

QString Song::composeNumber(const QVariant &number, const QVariant &count)
{
    if (!number.isValid() || number.isNull())
        return {};
    const QString text = number.toString();
    if (text.contains(u'/')) {
        QString out = text;
        return out.replace(QStringLiteral("/"), kOf);
    }
    const QString total = count.toString();
    if (count.isValid() && !total.isEmpty())
        return QStringLiteral("%1 of %2").arg(int(integerValue(text))).arg(int(integerValue(total)));
    return QString::number(int(integerValue(text)));
}

quint64 Song::leadingInteger(const QString &text)
{
    if (text.isNull())
        return 0;
    const qsizetype blank = text.indexOf(u' ');
    return quint64(integerValue(blank >= 0 ? text.left(blank) : text));
}

QString Song::shortFormatForKind(const QString &kind)
{
    static const QHash<QString, QString> table = {
        {QStringLiteral("AIFF File"), QStringLiteral("AIFF")},
        {QStringLiteral("WAVE File"), QStringLiteral("WAVE")},
        {QStringLiteral("CAF File"), QStringLiteral("CAF")},
        {QStringLiteral("MP3 Audio File"), QStringLiteral("MP3")},
        {QStringLiteral("Apple Lossless File"), QStringLiteral("ALAC")},
        {QStringLiteral("AAC Audio File"), QStringLiteral("AAC")},
        {QStringLiteral("Ogg Vorbis Audio File"), QStringLiteral("Vorbis")},
        {QStringLiteral("FLAC Audio File"), QStringLiteral("FLAC")},
        {QStringLiteral("Monkey's Audio File"), QStringLiteral("MAC")},
        {QStringLiteral("True Audio File"), QStringLiteral("TTA")},
        {QStringLiteral("WavPack Audio File"), QStringLiteral("WV")},
        {QStringLiteral("Musepack Audio File"), QStringLiteral("MPC")},
    };
    return table.value(kind);
}

QString Song::sortableForm(const QString &text)
{
    if (text.isNull())
        return {};
    qsizetype begin = 0, end = text.size();
    while (begin < end && !isAlphanumeric(text.at(begin)))
        ++begin;
    while (end > begin && !isAlphanumeric(text.at(end - 1)))
        --end;
    QString s = text.mid(begin, end - begin).toLower();
    if (s.startsWith(QLatin1String("a ")))
        s.remove(0, 2);
    if (s.startsWith(QLatin1String("the ")))
        s.remove(0, 4);
    if (s.isNull())
        s = QStringLiteral("");
    return s;
}

void Song::setArtist(const QString &v)
{
    if (v.isNull() == m_artist.isNull() && v == m_artist)
        return;
    m_artist = v;
    m_artistSortable = sortableForm(v);

}

void Song::setAlbum(const QString &v)
{
    if (v.isNull() == m_album.isNull() && v == m_album)
        return;
    m_album = v;
    m_albumSortable = sortableForm(v);

}

void Song::loadInfoFromAudioFile(const VEKAudioFileReader &reader)
{
    const QVariantMap &meta = reader.metadata();
    m_url = reader.URL();

    const auto title = meta.constFind(QStringLiteral("title"));
    if (title != meta.cend())
        m_name = title->toString();
    if (m_name.isEmpty())
        m_name = VEKPaths::filename(m_url);

    const auto tag = [&meta](const char *key, auto setter) {
        const auto it = meta.constFind(QLatin1String(key));
        if (it != meta.cend())
            setter(it->toString());
    };
    tag("artist", [this](const QString &v) { setArtist(v); });
    tag("album", [this](const QString &v) { setAlbum(v); });
    tag("albumArtist", [this](const QString &v) { m_albumArtist = v; });
    tag("composer", [this](const QString &v) { m_composer = v; });
    tag("genre", [this](const QString &v) { m_genre = v; });

    m_kind = reader.format();
    m_length = reader.length();
    m_size = reader.fileSize();
    m_sampleRate = reader.sampleRate();
    m_bitrate = reader.bitrate();

    const QString track = composeNumber(meta.value(QStringLiteral("trackNumber")),
                                        meta.value(QStringLiteral("numberOfTracks")));
    if (!track.isNull())
        m_track = track;
    m_trackSortable = leadingInteger(m_track);
    const QString disc = composeNumber(meta.value(QStringLiteral("discNumber")),
                                       meta.value(QStringLiteral("numberOfDiscs")));
    if (!disc.isNull())
        m_disc = disc;
    m_discSortable = leadingInteger(m_disc);

    const QString shortForm = shortFormatForKind(reader.format());
    if (reader.bitDepth() != 0)
        m_format = QStringLiteral("%1 %2bit")
                       .arg(shortForm.isNull() ? QStringLiteral("(null)") : shortForm)
                       .arg(reader.bitDepth());
    else
        m_format = shortForm;
}

bool Song::setMetadata(const QVariantMap &metadata, VEKError *error)
{
    VEKAudioFileModifier modifier;
    if (!modifier.initWithURL(m_url, error))
        return false;
    const auto splitNumber = [&modifier](const QVariant &value, const char *numberKey,
                                         const char *countKey) {
        if (value.typeId() == QMetaType::QString && !value.isNull()) {
            const QStringList pieces = value.toString().split(kOf);
            modifier.setValue(QLatin1String(numberKey), pieces.at(0));
            if (pieces.size() >= 2)
                modifier.setValue(QLatin1String(countKey), pieces.at(1));
        } else {
            modifier.setValue(QLatin1String(numberKey), QVariant());
            modifier.setValue(QLatin1String(countKey), QVariant());
        }
    };
    for (auto it = metadata.cbegin(); it != metadata.cend(); ++it) {
        if (it.key() == QLatin1String("track"))
            splitNumber(it.value(), "trackNumber", "numberOfTracks");
        else if (it.key() == QLatin1String("disc"))
            splitNumber(it.value(), "discNumber", "numberOfDiscs");
        modifier.setValue(it.key(), it.value());
    }
    if (!modifier.commit(error))
        return false;
    VEKAudioFileReader reader;
    if (!reader.initWithURL(m_url, error))
        return false;
    loadInfoFromAudioFile(reader);
    return true;
}

bool Song::isInPreferredFormat() const
{
    static const char *const kinds[] = {"AIFF File", "WAVE File", "CAF File", "AAC Audio File",
                                        "Apple Lossless File", "Ogg Vorbis Audio File",
                                        "FLAC Audio File"};
    const QVariantMap preferred =
        UserDefaults::standard().dictionaryForKey(QStringLiteral("preferredFormat"));
    const quint64 format = preferred.value(QStringLiteral("format")).toULongLong();
    if (format >= std::size(kinds) || m_kind != QLatin1String(kinds[format]))
        return false;
    return preferred.value(QStringLiteral("sampleRate")).toULongLong() == quint64(m_sampleRate);
}

QByteArray Song::imageData(QString *source) const
{
    auto reader = VEKAudioFileReader::open(m_url);
    if (reader) {
        const QByteArray data = reader->metadata().value(QStringLiteral("imageData")).toByteArray();
        if (!data.isEmpty()) {
            if (source)
                *source = m_url;
            return data;
        }
    }
    // A cover file beside the song stands in for embedded art.
    const QDir folder = QFileInfo(m_url).dir();
    for (const char *base : {"cover", "folder", "front", "Cover", "Folder", "Front"}) {
        for (const char *ext : {".jpg", ".jpeg", ".png", ".JPG", ".JPEG", ".PNG"}) {
            const QString path = folder.filePath(QLatin1String(base) + QLatin1String(ext));
            QFile file;
            if (VEKPaths::existsAsFile(path) && VEKPaths::open(file, path, QIODevice::ReadOnly)) {
                if (source)
                    *source = path;
                return file.readAll();
            }
        }
    }
    return {};
}

QImage Song::image() const
{
    const QByteArray data = imageData();
    return data.isEmpty() ? QImage() : QImage::fromData(data);
}

QVariant Song::valueForKey(const QString &key) const
{
    return valueOfField(fieldOfKey(key));
}

int Song::fieldOfKey(const QString &key)
{
    static const QHash<QString, int> keys = {
        {QStringLiteral("songID"), 0},        {QStringLiteral("name"), 1},
        {QStringLiteral("artist"), 2},        {QStringLiteral("album"), 3},
        {QStringLiteral("albumArtist"), 4},   {QStringLiteral("composer"), 5},
        {QStringLiteral("genre"), 6},         {QStringLiteral("track"), 7},
        {QStringLiteral("disc"), 8},          {QStringLiteral("kind"), 9},
        {QStringLiteral("format"), 10},       {QStringLiteral("length"), 11},
        {QStringLiteral("size"), 12},         {QStringLiteral("sampleRate"), 13},
        {QStringLiteral("bitrate"), 14},      {QStringLiteral("dateAdded"), 15},
        {QStringLiteral("isMissing"), 16},    {QStringLiteral("URL"), 17},
        {QStringLiteral("path"), 17},         {QStringLiteral("track_sortable"), 18},
        {QStringLiteral("disc_sortable"), 19}, {QStringLiteral("artist_sortable"), 20},
        {QStringLiteral("album_sortable"), 21},
    };
    return keys.value(key, -1);
}

QVariant Song::valueOfField(int field) const
{
    const auto str = [](const QString &s) { return s.isNull() ? QVariant() : QVariant(s); };
    switch (field) {
    case 0: return m_songID;
    case 1: return str(m_name);
    case 2: return str(m_artist);
    case 3: return str(m_album);
    case 4: return str(m_albumArtist);
    case 5: return str(m_composer);
    case 6: return str(m_genre);
    case 7: return str(m_track);
    case 8: return str(m_disc);
    case 9: return str(m_kind);
    case 10: return str(m_format);
    case 11: return m_length;
    case 12: return m_size;
    case 13: return m_sampleRate;
    case 14: return m_bitrate;
    case 15: return m_dateAdded.isValid() ? QVariant(m_dateAdded) : QVariant();
    case 16: return m_isMissing;
    case 17: return str(m_url);
    case 18: return m_trackSortable;
    case 19: return m_discSortable;
    case 20: return str(m_artistSortable);
    case 21: return str(m_albumSortable);
    default: return {};
    }
}
