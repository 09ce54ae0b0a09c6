#include "VEKTagFile.h"

#include "core/VEKAtomicFile.h"
#include "core/VEKPaths.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <taglib/aifffile.h>
#include <taglib/apefile.h>
#include <taglib/apefooter.h>
#include <taglib/apetag.h>
#include <taglib/attachedpictureframe.h>
#include <taglib/flacfile.h>
#include <taglib/flacpicture.h>
#include <taglib/mp4coverart.h>
#include <taglib/id3v2header.h>
#include <taglib/id3v2tag.h>
#include <taglib/infotag.h>
#include <taglib/mp4file.h>
#include <taglib/mpcfile.h>
#include <taglib/mpegfile.h>
#include <taglib/oggflacfile.h>
#include <taglib/opusfile.h>
#include <taglib/speexfile.h>
#include <taglib/tbytevectorstream.h>
#include <taglib/tdebuglistener.h>
#include <taglib/tfilestream.h>
#include <taglib/tpropertymap.h>
#include <taglib/trueaudiofile.h>
#include <taglib/vorbisfile.h>
#include <taglib/wavfile.h>
#include <taglib/wavpackfile.h>

#include <mutex>

namespace {

// TagLib reports broken frames on stderr in some builds; the reader and the CLI stay quiet.
class SilentDebugListener final : public TagLib::DebugListener {
public:
    void printMessage(const TagLib::String &) override {}
};

void silenceTagLib()
{
    static std::once_flag once;
    static SilentDebugListener listener;
    std::call_once(once, [] { TagLib::setDebugListener(&listener); });
}

QString toQString(const TagLib::String &s)
{
    return QString::fromStdString(s.to8Bit(true));
}

TagLib::String toTagLib(const QString &s)
{
    return TagLib::String(s.toStdString(), TagLib::String::UTF8);
}

QByteArray toQByteArray(const TagLib::ByteVector &v)
{
    return QByteArray(v.data(), static_cast<qsizetype>(v.size()));
}

// Where each key lives in TagLib's unified property names. Totals have two spellings in
// Vorbis comments; the first one is the one we write.
struct KeyNames {
    const char *key;
    std::initializer_list<const char *> names;
};

const KeyNames kTextKeys[] = {
    {"title", {"TITLE"}},
    {"artist", {"ARTIST"}},
    {"album", {"ALBUM"}},
    {"albumArtist", {"ALBUMARTIST", "ALBUM ARTIST", "ALBUM_ARTIST"}},
    {"composer", {"COMPOSER"}},
    {"genre", {"GENRE"}},
    {"trackNumber", {"TRACKNUMBER"}},
    {"numberOfTracks", {"TRACKTOTAL", "TOTALTRACKS"}},
    {"discNumber", {"DISCNUMBER"}},
    {"numberOfDiscs", {"DISCTOTAL", "TOTALDISCS"}},
};

// RIFF INFO fields of a WAV file that carry our keys. "IPRT" and "ITRK" both appear for the
// track and "IMUS" for the composer, depending on the program that wrote the file; those are
// only kept up to date where the file already uses them.
struct InfoField {
    const char *id;
    const char *property;
    bool common;
};
const InfoField kInfoFields[] = {
    {"INAM", "TITLE", true},        {"IART", "ARTIST", true},       {"IPRD", "ALBUM", true},
    {"IGNR", "GENRE", true},        {"IPRT", "TRACKNUMBER", true},  {"ITRK", "TRACKNUMBER", false},
    {"IMUS", "COMPOSER", false},
};

QString firstValue(const TagLib::PropertyMap &map, const char *name)
{
    const auto it = map.find(name);
    if (it == map.end() || it->second.isEmpty())
        return {};
    return toQString(it->second.front()).trimmed();
}

void splitNumber(const QString &text, QString &number, QString &total)
{
    const qsizetype slash = text.indexOf(QLatin1Char('/'));
    if (slash < 0) {
        number = text.trimmed();
        return;
    }
    number = text.left(slash).trimmed();
    total = text.mid(slash + 1).trimmed();
}

bool isXiph(VEKTagFile::Kind kind)
{
    using K = VEKTagFile::Kind;
    return kind == K::FLAC || kind == K::OggVorbis || kind == K::OggFLAC || kind == K::OggOpus
        || kind == K::OggSpeex;
}

// Brings a number/total pair up to date in `map`. Vorbis comments keep the total in a field of
// its own; every other tag type holds "3/12" in one field.
void applyNumberChange(TagLib::PropertyMap &map, const QMap<QString, QString> &changes,
                       const QString &numberKey, const QString &totalKey, const char *numberName,
                       std::initializer_list<const char *> totalNames, bool xiph)
{
    if (!changes.contains(numberKey) && !changes.contains(totalKey))
        return;

    QString number;
    QString total;
    splitNumber(firstValue(map, numberName), number, total);
    for (const char *name : totalNames) {
        const QString separate = firstValue(map, name);
        if (!separate.isEmpty()) {
            total = separate;
            break;
        }
    }

    if (changes.contains(numberKey)) {
        QString newTotal;
        splitNumber(changes.value(numberKey), number, newTotal);
        if (!newTotal.isEmpty())
            total = newTotal;
    }
    if (changes.contains(totalKey))
        total = changes.value(totalKey).trimmed();

    map.erase(numberName);
    for (const char *name : totalNames)
        map.erase(name);

    if (xiph) {
        if (!number.isEmpty())
            map.replace(numberName, TagLib::StringList(toTagLib(number)));
        if (!total.isEmpty())
            map.replace(*totalNames.begin(), TagLib::StringList(toTagLib(total)));
    } else if (!number.isEmpty() || !total.isEmpty()) {
        // A total without a number is still worth keeping; "0/12" is how tags spell that.
        QString combined = number.isEmpty() ? QStringLiteral("0") : number;
        if (!total.isEmpty())
            combined += QLatin1Char('/') + total;
        map.replace(numberName, TagLib::StringList(toTagLib(combined)));
    }
}

QByteArray firstID3v2Picture(TagLib::ID3v2::Tag *tag)
{
    if (!tag)
        return {};
    const auto &frames = tag->frameListMap()["APIC"];
    for (auto *frame : frames) {
        if (auto *picture = dynamic_cast<TagLib::ID3v2::AttachedPictureFrame *>(frame))
            if (!picture->picture().isEmpty())
                return toQByteArray(picture->picture());
    }
    return {};
}

QByteArray firstAPEPicture(TagLib::APE::Tag *tag)
{
    if (!tag)
        return {};
    const auto &items = tag->itemListMap();
    const auto it = items.find("COVER ART (FRONT)");
    if (it == items.end())
        return {};
    // The item holds a file name, a zero byte, then the picture.
    const TagLib::ByteVector data = it->second.binaryData();
    const int zero = data.find('\0');
    if (zero < 0)
        return {};
    return toQByteArray(data.mid(static_cast<unsigned>(zero) + 1));
}

QByteArray firstXiphPicture(TagLib::Ogg::XiphComment *comment)
{
    if (!comment)
        return {};
    const auto pictures = comment->pictureList();
    for (auto *picture : pictures)
        if (!picture->data().isEmpty())
            return toQByteArray(picture->data());
    return {};
}

// TagLib 1.13 knows only ID3 tags in True Audio files, yet FFmpeg and other taggers put an APE
// tag at their end. Returns the offset of that tag's footer, or -1.
long trailingAPEFooter(TagLib::File *file)
{
    const long size = file->length();
    for (const long end : {size, size - 128}) {
        if (end < static_cast<long>(TagLib::APE::Footer::size()))
            continue;
        if (end != size) { // an ID3v1 tag may follow the APE tag
            file->seek(end);
            if (!file->readBlock(3).startsWith("TAG"))
                continue;
        }
        const long footer = end - static_cast<long>(TagLib::APE::Footer::size());
        file->seek(footer);
        if (file->readBlock(8) == TagLib::ByteVector("APETAGEX"))
            return footer;
    }
    return -1;
}

enum class ImageType { JPEG, PNG, GIF, BMP };

ImageType imageType(const QByteArray &data)
{
    if (data.startsWith("\x89PNG"))
        return ImageType::PNG;
    if (data.startsWith("GIF8"))
        return ImageType::GIF;
    if (data.startsWith("BM"))
        return ImageType::BMP;
    return ImageType::JPEG;
}

TagLib::String mimeType(const QByteArray &data)
{
    switch (imageType(data)) {
    case ImageType::PNG: return "image/png";
    case ImageType::GIF: return "image/gif";
    case ImageType::BMP: return "image/bmp";
    case ImageType::JPEG: break;
    }
    return "image/jpeg";
}

TagLib::ByteVector toByteVector(const QByteArray &data)
{
    return TagLib::ByteVector(data.constData(), static_cast<unsigned>(data.size()));
}

void setID3v2Picture(TagLib::ID3v2::Tag *tag, const QByteArray &data)
{
    if (!tag)
        return;
    tag->removeFrames("APIC");
    if (data.isEmpty())
        return;
    auto *frame = new TagLib::ID3v2::AttachedPictureFrame; // owned by the tag
    frame->setMimeType(mimeType(data));
    frame->setType(TagLib::ID3v2::AttachedPictureFrame::FrontCover);
    frame->setPicture(toByteVector(data));
    tag->addFrame(frame);
}

TagLib::FLAC::Picture *flacPicture(const QByteArray &data)
{
    auto *picture = new TagLib::FLAC::Picture; // owned by whoever it is added to
    picture->setType(TagLib::FLAC::Picture::FrontCover);
    picture->setMimeType(mimeType(data));
    picture->setData(toByteVector(data));
    return picture;
}

void setXiphPicture(TagLib::Ogg::XiphComment *comment, const QByteArray &data)
{
    if (!comment)
        return;
    comment->removeAllPictures();
    if (!data.isEmpty())
        comment->addPicture(flacPicture(data));
}

void setAPEPicture(TagLib::APE::Tag *tag, const QByteArray &data)
{
    if (!tag)
        return;
    tag->removeItem("COVER ART (FRONT)");
    if (data.isEmpty())
        return;
    // A file name, a zero byte, then the picture.
    const char *name = imageType(data) == ImageType::PNG ? "cover.png" : "cover.jpg";
    TagLib::ByteVector value(name);
    value.append('\0');
    value.append(toByteVector(data));
    tag->setItem("Cover Art (Front)", TagLib::APE::Item("Cover Art (Front)", value, true));
}

void setMP4Picture(TagLib::MP4::Tag *tag, const QByteArray &data)
{
    if (!tag)
        return;
    tag->removeItem("covr");
    if (data.isEmpty())
        return;
    TagLib::MP4::CoverArt::Format format = TagLib::MP4::CoverArt::JPEG;
    switch (imageType(data)) {
    case ImageType::PNG: format = TagLib::MP4::CoverArt::PNG; break;
    case ImageType::GIF: format = TagLib::MP4::CoverArt::GIF; break;
    case ImageType::BMP: format = TagLib::MP4::CoverArt::BMP; break;
    case ImageType::JPEG: break;
    }
    TagLib::MP4::CoverArtList covers;
    covers.append(TagLib::MP4::CoverArt(format, toByteVector(data)));
    tag->setItem("covr", covers);
}

// Puts `data` in the place metadata() reads pictures from for the file's kind.
void setPicture(TagLib::File *f, VEKTagFile::Kind kind, const QByteArray &data)
{
    using K = VEKTagFile::Kind;
    switch (kind) {
    case K::MPEG: setID3v2Picture(static_cast<TagLib::MPEG::File *>(f)->ID3v2Tag(true), data); break;
    case K::FLAC: {
        auto *flac = static_cast<TagLib::FLAC::File *>(f);
        flac->removePictures();
        if (flac->hasXiphComment())
            flac->xiphComment()->removeAllPictures();
        if (!data.isEmpty())
            flac->addPicture(flacPicture(data));
        break;
    }
    case K::MP4: setMP4Picture(static_cast<TagLib::MP4::File *>(f)->tag(), data); break;
    case K::OggVorbis:
    case K::OggFLAC:
    case K::OggOpus:
    case K::OggSpeex: setXiphPicture(dynamic_cast<TagLib::Ogg::XiphComment *>(f->tag()), data); break;
    case K::WAV: setID3v2Picture(static_cast<TagLib::RIFF::WAV::File *>(f)->ID3v2Tag(), data); break;
    case K::AIFF: setID3v2Picture(static_cast<TagLib::RIFF::AIFF::File *>(f)->tag(), data); break;
    case K::TrueAudio: setID3v2Picture(static_cast<TagLib::TrueAudio::File *>(f)->ID3v2Tag(true), data); break;
    case K::APE: setAPEPicture(static_cast<TagLib::APE::File *>(f)->APETag(true), data); break;
    case K::WavPack: setAPEPicture(static_cast<TagLib::WavPack::File *>(f)->APETag(true), data); break;
    case K::Musepack: setAPEPicture(static_cast<TagLib::MPC::File *>(f)->APETag(true), data); break;
    case K::Unknown:
    case K::CAF: break;
    }
}

} // namespace

VEKTagFile::VEKTagFile() = default;
VEKTagFile::~VEKTagFile()
{
    // The file first: it may still flush into the stream.
    m_file.reset();
    m_stream.reset();
}

const QStringList &VEKTagFile::textKeys()
{
    static const QStringList keys = [] {
        QStringList list;
        for (const auto &k : kTextKeys)
            list << QLatin1String(k.key);
        return list;
    }();
    return keys;
}

VEKTagFile::Kind VEKTagFile::sniff(const QString &path)
{
    QFile file;
    if (!VEKPaths::open(file, path, QIODevice::ReadOnly))
        return Kind::Unknown;

    // FLAC, TTA and Monkey's Audio files sometimes start with an ID3v2 tag.
    qint64 offset = 0;
    for (;;) {
        file.seek(offset);
        const QByteArray head = file.read(10);
        if (head.size() < 10 || !head.startsWith("ID3"))
            break;
        const auto b = [&](int i) { return static_cast<quint32>(static_cast<quint8>(head[i])); };
        const quint32 size = (b(6) & 0x7f) << 21 | (b(7) & 0x7f) << 14 | (b(8) & 0x7f) << 7 | (b(9) & 0x7f);
        offset += 10 + size + ((b(5) & 0x10) ? 10 : 0);
    }
    file.seek(offset);
    const QByteArray h = file.read(64);

    if (h.startsWith("fLaC"))
        return Kind::FLAC;
    if (h.startsWith("TTA1"))
        return Kind::TrueAudio;
    if (h.startsWith("MAC "))
        return Kind::APE;
    if (h.startsWith("wvpk"))
        return Kind::WavPack;
    if (h.startsWith("MP+") || h.startsWith("MPCK"))
        return Kind::Musepack;
    if (h.startsWith("caff"))
        return Kind::CAF;
    if (h.size() >= 12 && h.startsWith("RIFF") && h.mid(8, 4) == "WAVE")
        return Kind::WAV;
    if (h.size() >= 12 && h.startsWith("FORM") && (h.mid(8, 4) == "AIFF" || h.mid(8, 4) == "AIFC"))
        return Kind::AIFF;
    if (h.size() >= 8 && h.mid(4, 4) == "ftyp")
        return Kind::MP4;
    if (h.startsWith("OggS") && h.size() > 27) {
        // The first packet of the first page names the codec.
        const int payload = 27 + static_cast<quint8>(h[26]);
        file.seek(offset + payload);
        const QByteArray packet = file.read(8);
        if (packet.startsWith("\x01vorbis"))
            return Kind::OggVorbis;
        if (packet.startsWith("\x7f" "FLAC"))
            return Kind::OggFLAC;
        if (packet.startsWith("OpusHead"))
            return Kind::OggOpus;
        if (packet.startsWith("Speex   "))
            return Kind::OggSpeex;
        return Kind::Unknown;
    }
    file.close();

    // No magic of its own: MPEG audio is recognised by consecutive valid frame headers.
    TagLib::FileStream stream(VEKPaths::native(path).constData(), true);
    if (stream.isOpen() && TagLib::MPEG::File::isSupported(&stream))
        return Kind::MPEG;
    return Kind::Unknown;
}

bool VEKTagFile::canWrite(Kind kind)
{
    return kind != Kind::Unknown && kind != Kind::CAF;
}

bool VEKTagFile::open(const QString &path, bool forWriting)
{
    silenceTagLib();
    m_path = path;
    m_file.reset();
    m_stream.reset();
    m_kind = sniff(path);
    if (!canWrite(m_kind))
        return false;

    std::unique_ptr<TagLib::IOStream> stream;
    if (forWriting) {
        // Tags are edited in memory and the file is replaced whole when they are saved: an
        // edit that fails half-way (a full disk) then never touches the audio.
        if (!VEKPaths::canReplace(path))
            return false;
        QFile file;
        if (!VEKPaths::open(file, path, QIODevice::ReadOnly))
            return false;
        const QByteArray bytes = file.readAll();
        if (file.error() != QFileDevice::NoError)
            return false;
        stream = std::make_unique<TagLib::ByteVectorStream>(
            TagLib::ByteVector(bytes.constData(), static_cast<unsigned int>(bytes.size())));
    } else {
        auto onDisk = std::make_unique<TagLib::FileStream>(VEKPaths::native(path).constData(), true);
        if (!onDisk->isOpen())
            return false;
        stream = std::move(onDisk);
    }

    auto *factory = TagLib::ID3v2::FrameFactory::instance();
    TagLib::IOStream *s = stream.get();
    std::unique_ptr<TagLib::File> file;
    switch (m_kind) {
    case Kind::MPEG: file = std::make_unique<TagLib::MPEG::File>(s, factory, false); break;
    case Kind::FLAC: file = std::make_unique<TagLib::FLAC::File>(s, factory, false); break;
    case Kind::MP4: file = std::make_unique<TagLib::MP4::File>(s, false); break;
    case Kind::OggVorbis: file = std::make_unique<TagLib::Ogg::Vorbis::File>(s, false); break;
    case Kind::OggFLAC: file = std::make_unique<TagLib::Ogg::FLAC::File>(s, false); break;
    case Kind::OggOpus: file = std::make_unique<TagLib::Ogg::Opus::File>(s, false); break;
    case Kind::OggSpeex: file = std::make_unique<TagLib::Ogg::Speex::File>(s, false); break;
    case Kind::WAV: file = std::make_unique<TagLib::RIFF::WAV::File>(s, false); break;
    case Kind::AIFF: file = std::make_unique<TagLib::RIFF::AIFF::File>(s, false); break;
    case Kind::APE: file = std::make_unique<TagLib::APE::File>(s, false); break;
    case Kind::TrueAudio: file = std::make_unique<TagLib::TrueAudio::File>(s, factory, false); break;
    case Kind::WavPack: file = std::make_unique<TagLib::WavPack::File>(s, false); break;
    case Kind::Musepack: file = std::make_unique<TagLib::MPC::File>(s, false); break;
    case Kind::Unknown:
    case Kind::CAF: return false;
    }
    if (!file || !file->isValid())
        return false;
    m_stream = std::move(stream);
    m_file = std::move(file);
    return true;
}

namespace {

// The properties of the tags we read and write. A WAV file may carry an ID3v2 chunk, a RIFF
// INFO list, or both; ID3v2 holds more, so it wins and INFO fills the gaps.
TagLib::PropertyMap currentProperties(TagLib::File *file, VEKTagFile::Kind kind)
{
    if (kind == VEKTagFile::Kind::TrueAudio) {
        TagLib::PropertyMap map = file->properties();
        const long footer = trailingAPEFooter(file);
        if (footer >= 0) {
            const TagLib::APE::Tag ape(file, footer);
            for (const auto &[name, values] : ape.properties())
                if (!map.contains(name))
                    map.insert(name, values);
        }
        return map;
    }
    if (kind != VEKTagFile::Kind::WAV)
        return file->properties();
    auto *wav = static_cast<TagLib::RIFF::WAV::File *>(file);
    TagLib::PropertyMap map;
    if (wav->hasID3v2Tag())
        map = wav->ID3v2Tag()->properties();
    if (wav->hasInfoTag()) {
        for (const auto &field : kInfoFields) {
            const TagLib::String text = wav->InfoTag()->fieldText(field.id);
            if (!text.isEmpty() && !map.contains(field.property))
                map.replace(field.property, TagLib::StringList(text));
        }
    }
    return map;
}

} // namespace

QVariantMap VEKTagFile::metadata() const
{
    QVariantMap result;
    if (!m_file)
        return result;

    const TagLib::PropertyMap map = currentProperties(m_file.get(), m_kind);
    for (const auto &k : kTextKeys) {
        for (const char *name : k.names) {
            const auto it = map.find(name);
            if (it == map.end())
                continue;
            // Several values (two artists in a Vorbis comment) are shown together.
            QStringList values;
            for (const auto &v : it->second) {
                const QString text = toQString(v).trimmed();
                if (!text.isEmpty())
                    values << text;
            }
            if (!values.isEmpty()) {
                result.insert(QLatin1String(k.key), values.join(QStringLiteral("; ")));
                break;
            }
        }
    }

    QByteArray image;
    TagLib::File *f = m_file.get();
    switch (m_kind) {
    case Kind::MPEG: {
        auto *mpeg = static_cast<TagLib::MPEG::File *>(f);
        image = firstID3v2Picture(mpeg->ID3v2Tag());
        if (image.isEmpty())
            image = firstAPEPicture(mpeg->APETag());
        break;
    }
    case Kind::FLAC: {
        auto *flac = static_cast<TagLib::FLAC::File *>(f);
        for (auto *picture : flac->pictureList()) {
            if (!picture->data().isEmpty()) {
                image = toQByteArray(picture->data());
                break;
            }
        }
        if (image.isEmpty())
            image = firstXiphPicture(flac->xiphComment());
        break;
    }
    case Kind::MP4: {
        auto *tag = static_cast<TagLib::MP4::File *>(f)->tag();
        if (tag && tag->contains("covr")) {
            const auto covers = tag->item("covr").toCoverArtList();
            if (!covers.isEmpty())
                image = toQByteArray(covers.front().data());
        }
        break;
    }
    case Kind::OggVorbis:
    case Kind::OggFLAC:
    case Kind::OggOpus:
    case Kind::OggSpeex:
        image = firstXiphPicture(dynamic_cast<TagLib::Ogg::XiphComment *>(f->tag()));
        break;
    case Kind::WAV:
        image = firstID3v2Picture(static_cast<TagLib::RIFF::WAV::File *>(f)->ID3v2Tag());
        break;
    case Kind::AIFF:
        image = firstID3v2Picture(static_cast<TagLib::RIFF::AIFF::File *>(f)->tag());
        break;
    case Kind::TrueAudio: {
        image = firstID3v2Picture(static_cast<TagLib::TrueAudio::File *>(f)->ID3v2Tag());
        const long footer = image.isEmpty() ? trailingAPEFooter(f) : -1;
        if (footer >= 0) {
            TagLib::APE::Tag ape(f, footer);
            image = firstAPEPicture(&ape);
        }
        break;
    }
    case Kind::APE:
        image = firstAPEPicture(static_cast<TagLib::APE::File *>(f)->APETag());
        break;
    case Kind::WavPack:
        image = firstAPEPicture(static_cast<TagLib::WavPack::File *>(f)->APETag());
        break;
    case Kind::Musepack:
        image = firstAPEPicture(static_cast<TagLib::MPC::File *>(f)->APETag());
        break;
    case Kind::Unknown:
    case Kind::CAF:
        break;
    }
    if (!image.isEmpty())
        result.insert(QStringLiteral("imageData"), image);
    return result;
}

bool VEKTagFile::write(const QMap<QString, QString> &changes, const std::optional<QByteArray> &picture)
{
    m_error.clear();
    if (!m_file || m_stream->readOnly() || !dynamic_cast<TagLib::ByteVectorStream *>(m_stream.get()))
        return false;
    if (!edit(changes, picture))
        return false;
    auto *memory = static_cast<TagLib::ByteVectorStream *>(m_stream.get());
    const TagLib::ByteVector *bytes = memory->data();
    if (!VEKAtomicFile::replace(m_path, QByteArray(bytes->data(), static_cast<qsizetype>(bytes->size())), &m_error))
        return false;
    // TagLib's idea of where its tags are may be out of date after an insert of our own.
    return open(m_path, true);
}

bool VEKTagFile::edit(const QMap<QString, QString> &changes, const std::optional<QByteArray> &picture)
{

    TagLib::PropertyMap map = currentProperties(m_file.get(), m_kind);
    for (const auto &k : kTextKeys) {
        const QString key = QLatin1String(k.key);
        if (key == QLatin1String("trackNumber") || key == QLatin1String("numberOfTracks")
            || key == QLatin1String("discNumber") || key == QLatin1String("numberOfDiscs"))
            continue;
        if (!changes.contains(key))
            continue;
        for (const char *name : k.names)
            map.erase(name);
        const QString value = changes.value(key);
        if (!value.isEmpty())
            map.replace(*k.names.begin(), TagLib::StringList(toTagLib(value)));
    }
    const bool xiph = isXiph(m_kind);
    applyNumberChange(map, changes, QStringLiteral("trackNumber"), QStringLiteral("numberOfTracks"),
                      "TRACKNUMBER", {"TRACKTOTAL", "TOTALTRACKS"}, xiph);
    applyNumberChange(map, changes, QStringLiteral("discNumber"), QStringLiteral("numberOfDiscs"),
                      "DISCNUMBER", {"DISCTOTAL", "TOTALDISCS"}, xiph);

    switch (m_kind) {
    case Kind::WAV: {
        auto *wav = static_cast<TagLib::RIFF::WAV::File *>(m_file.get());
        wav->ID3v2Tag()->setProperties(map);
        if (picture)
            setPicture(wav, m_kind, *picture);
        // Keep the INFO list in step, so programs that read only INFO see the same values.
        auto *info = wav->InfoTag();
        for (const auto &field : kInfoFields) {
            if (!field.common && info->fieldText(field.id).isEmpty())
                continue;
            const auto it = map.find(field.property);
            info->setFieldText(field.id, it == map.end() || it->second.isEmpty() ? TagLib::String()
                                                                                 : it->second.front());
        }
        const int version = wav->hasID3v2Tag() ? static_cast<int>(wav->ID3v2Tag()->header()->majorVersion()) : 4;
        return wav->save(TagLib::RIFF::WAV::File::AllTags, TagLib::File::StripNone,
                         version == 3 ? TagLib::ID3v2::v3 : TagLib::ID3v2::v4);
    }
    case Kind::MPEG: {
        auto *mpeg = static_cast<TagLib::MPEG::File *>(m_file.get());
        mpeg->setProperties(map);
        if (picture)
            setPicture(mpeg, m_kind, *picture);
        // Keep the ID3v2 version the file had and add no tag types it did not have.
        int tags = TagLib::MPEG::File::ID3v2;
        if (mpeg->hasID3v1Tag())
            tags |= TagLib::MPEG::File::ID3v1;
        if (mpeg->hasAPETag())
            tags |= TagLib::MPEG::File::APE;
        const bool v3 = mpeg->hasID3v2Tag() && mpeg->ID3v2Tag()->header()->majorVersion() == 3;
        return mpeg->save(tags, TagLib::File::StripNone, v3 ? TagLib::ID3v2::v3 : TagLib::ID3v2::v4,
                          TagLib::File::DoNotDuplicate);
    }
    case Kind::TrueAudio: {
        m_file->setProperties(map);
        if (picture)
            setPicture(m_file.get(), m_kind, *picture);
        if (!m_file->save())
            return false;
        // Keep a trailing APE tag in step, or programs that prefer it show the old values.
        const long footer = trailingAPEFooter(m_file.get());
        if (footer < 0)
            return true;
        TagLib::APE::Tag ape(m_file.get(), footer);
        ape.setProperties(map);
        const long size = static_cast<long>(ape.footer()->completeTagSize());
        const long start = footer + static_cast<long>(TagLib::APE::Footer::size()) - size;
        const TagLib::ByteVector rendered = ape.render();
        m_file->insert(rendered, static_cast<unsigned long>(start), static_cast<unsigned long>(size));
        return true;
    }
    default:
        m_file->setProperties(map);
        if (picture)
            setPicture(m_file.get(), m_kind, *picture);
        return m_file->save();
    }
}

quint64 VEKTagFile::iTunesValidFrames() const
{
    if (m_kind != Kind::MP4 || !m_file)
        return 0;
    auto *tag = static_cast<TagLib::MP4::File *>(m_file.get())->tag();
    static const char *const key = "----:com.apple.iTunes:iTunSMPB";
    if (!tag || !tag->contains(key))
        return 0;
    const TagLib::StringList values = tag->item(key).toStringList();
    if (values.isEmpty())
        return 0;
    // " 00000000 <priming> <padding> <valid frames> ..." in hexadecimal.
    const QStringList fields = toQString(values.front()).split(QLatin1Char(' '), Qt::SkipEmptyParts);
    if (fields.size() < 4)
        return 0;
    bool ok = false;
    const quint64 frames = fields[3].toULongLong(&ok, 16);
    return ok ? frames : 0;
}
