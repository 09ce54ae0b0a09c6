#include "VEKAudioFileReader.h"

#include "VEKTagFile.h"
#include "core/VEKLocalizedString.h"
#include "core/VEKPaths.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <mutex>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/dict.h>
}

namespace {

const QString kDomain = QStringLiteral("VEKAudioFileReader");

enum ErrorCode {
    FileMissing = 1,
    OpenFailed = 2,
    NoAudio = 3,
    Damaged = 4,
};

void silenceFFmpeg()
{
    static std::once_flag once;
    std::call_once(once, [] { av_log_set_level(AV_LOG_QUIET); });
}

QString ffmpegErrorText(int code)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return QString::fromUtf8(text);
}

bool isDemuxer(const AVFormatContext *fmt, const char *name)
{
    // Demuxer names are comma-separated lists: "mov,mp4,m4a,3gp,3g2,mj2".
    const QList<QByteArray> names = QByteArray(fmt->iformat->name).split(',');
    return names.contains(QByteArray(name));
}

QString formatText(const AVFormatContext *fmt, AVCodecID codec)
{
    if (isDemuxer(fmt, "aiff"))
        return QStringLiteral("AIFF File");
    if (isDemuxer(fmt, "wav"))
        return QStringLiteral("WAVE File");
    if (isDemuxer(fmt, "caf"))
        return QStringLiteral("CAF File");
    if (isDemuxer(fmt, "mp3") && codec == AV_CODEC_ID_MP3)
        return QStringLiteral("MP3 Audio File");
    if (isDemuxer(fmt, "mov")) {
        if (codec == AV_CODEC_ID_ALAC)
            return QStringLiteral("Apple Lossless File");
        if (codec == AV_CODEC_ID_AAC)
            return QStringLiteral("AAC Audio File");
        return {};
    }
    if (isDemuxer(fmt, "ogg")) {
        if (codec == AV_CODEC_ID_VORBIS)
            return QStringLiteral("Ogg Vorbis Audio File");
        if (codec == AV_CODEC_ID_FLAC)
            return QStringLiteral("FLAC Audio File");
        return {};
    }
    if (isDemuxer(fmt, "flac"))
        return QStringLiteral("FLAC Audio File");
    if (isDemuxer(fmt, "ape"))
        return QStringLiteral("Monkey's Audio File");
    if (isDemuxer(fmt, "tta"))
        return QStringLiteral("True Audio File");
    if (isDemuxer(fmt, "wv"))
        return QStringLiteral("WavPack Audio File");
    if (isDemuxer(fmt, "mpc") || isDemuxer(fmt, "mpc8"))
        return QStringLiteral("Musepack Audio File");
    return {};
}

// What the first frame of an MP3 file says about its length. FFmpeg's own duration counts the
// encoder's delay and padding; the LAME tag records both, and FFmpeg's decoder drops exactly
// those samples, so subtracting them gives the count that decoding yields.
struct Mp3Header {
    quint64 frameCount = 0; // from a Xing/Info or VBRI header; 0 when there is none
    quint32 samplesPerFrame = 1152;
    bool hasLameTag = false;
    quint32 startPadding = 0;
    quint32 endPadding = 0;
};

Mp3Header readMp3Header(const QString &path)
{
    Mp3Header info;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return info;

    qint64 offset = 0;
    for (;;) {
        file.seek(offset);
        const QByteArray id3 = file.read(10);
        if (id3.size() < 10 || !id3.startsWith("ID3"))
            break;
        const auto b = [&](int i) { return static_cast<quint32>(static_cast<quint8>(id3[i])); };
        offset += 10 + ((b(6) & 0x7f) << 21 | (b(7) & 0x7f) << 14 | (b(8) & 0x7f) << 7 | (b(9) & 0x7f))
            + ((b(5) & 0x10) ? 10 : 0);
    }

    file.seek(offset);
    const QByteArray data = file.read(64 * 1024);
    const auto byte = [&](qsizetype i) { return static_cast<quint32>(static_cast<quint8>(data[i])); };
    const auto be32 = [&](qsizetype i) { return byte(i) << 24 | byte(i + 1) << 16 | byte(i + 2) << 8 | byte(i + 3); };

    for (qsizetype i = 0; i + 4 <= data.size(); ++i) {
        if (byte(i) != 0xff || (byte(i + 1) & 0xe0) != 0xe0)
            continue;
        const quint32 version = (byte(i + 1) >> 3) & 3; // 3: MPEG-1, 2: MPEG-2, 0: MPEG-2.5
        const quint32 layer = (byte(i + 1) >> 1) & 3;   // 1: layer III
        const quint32 bitrateIndex = byte(i + 2) >> 4;
        const quint32 rateIndex = (byte(i + 2) >> 2) & 3;
        if (version == 1 || layer != 1 || bitrateIndex == 0 || bitrateIndex == 15 || rateIndex == 3)
            continue;
        const bool mpeg1 = version == 3;
        const bool mono = (byte(i + 3) >> 6) == 3;
        info.samplesPerFrame = mpeg1 ? 1152 : 576;

        const qsizetype sideInfo = mpeg1 ? (mono ? 17 : 32) : (mono ? 9 : 17);
        qsizetype p = i + 4 + sideInfo;
        if (p + 8 <= data.size() && (data.mid(p, 4) == "Xing" || data.mid(p, 4) == "Info")) {
            const quint32 flags = be32(p + 4);
            p += 8;
            if (flags & 1) {
                if (p + 4 > data.size())
                    return info;
                info.frameCount = be32(p);
                p += 4;
            }
            if (flags & 2)
                p += 4;
            if (flags & 4)
                p += 100;
            if (flags & 8)
                p += 4;
            // LAME extension: encoder name (9), revision, lowpass, replay gain (8), flags,
            // bitrate, then 12 bits of delay and 12 of padding.
            if (p + 24 <= data.size()) {
                const QByteArray encoder = data.mid(p, 4);
                if (encoder == "LAME" || encoder == "Lavf" || encoder == "Lavc") {
                    const quint32 v = byte(p + 21) << 16 | byte(p + 22) << 8 | byte(p + 23);
                    info.hasLameTag = true;
                    info.startPadding = v >> 12;
                    info.endPadding = v & 0xfff;
                }
            }
        } else {
            const qsizetype v = i + 4 + 32;
            if (v + 18 <= data.size() && data.mid(v, 4) == "VBRI")
                info.frameCount = be32(v + 14);
        }
        return info;
    }
    return info;
}

const char *const kFFmpegKeys[][4] = {
    {"title", "title", nullptr, nullptr},
    {"artist", "artist", nullptr, nullptr},
    {"album", "album", nullptr, nullptr},
    {"albumArtist", "album_artist", "album artist", "albumartist"},
    {"composer", "composer", nullptr, nullptr},
    {"genre", "genre", nullptr, nullptr},
    {"trackNumber", "track", nullptr, nullptr},
    {"numberOfTracks", "tracktotal", "totaltracks", nullptr},
    {"discNumber", "disc", nullptr, nullptr},
    {"numberOfDiscs", "disctotal", "totaldiscs", nullptr},
};

} // namespace

struct VEKAudioFileReader::Impl {
    QString url;
    QString format;
    double sampleRate = 0;
    quint32 channels = 0;
    quint64 frames = 0;
    quint64 fileSize = 0;
    quint64 bitrate = 0;
    quint32 bitDepth = 0;
    QVariantMap metadata;

    // FFmpeg state, kept open for decoding.
    AVFormatContext *fmt = nullptr;
    AVCodecContext *decoder = nullptr;
    AVPacket *packet = nullptr;
    AVFrame *frame = nullptr;
    int streamIndex = -1;

    ~Impl()
    {
        av_frame_free(&frame);
        av_packet_free(&packet);
        avcodec_free_context(&decoder);
        avformat_close_input(&fmt);
    }

    AVStream *stream() const { return fmt->streams[streamIndex]; }

    qint64 toFrames(int64_t ts) const
    {
        return av_rescale_q(ts, stream()->time_base, AVRational{1, static_cast<int>(sampleRate)});
    }

    qint64 startTime() const
    {
        const int64_t start = stream()->start_time;
        return start == AV_NOPTS_VALUE ? 0 : start;
    }

    bool open(const QString &path, VEKError *error);
    bool scan(bool countToEnd, qint64 *countedFrames);
    bool reachesEnd(quint64 expectedFrames);
    void readMetadata(const QString &path);
};

bool VEKAudioFileReader::Impl::open(const QString &path, VEKError *error)
{
    const auto fail = [&](ErrorCode code, const char *description, const QString &detail) {
        VEKError::set(error, VEKError(kDomain, code, VEKLocalizedString(description),
                                      detail.isEmpty() ? path : path + QStringLiteral(": ") + detail));
        return false;
    };

    AVDictionary *options = nullptr;
    // Only the file itself: a playlist-like file must not make FFmpeg open other files or URLs.
    av_dict_set(&options, "protocol_whitelist", "file", 0);
    const QByteArray local = QFile::encodeName(path);
    int rc = avformat_open_input(&fmt, local.constData(), nullptr, &options);
    av_dict_free(&options);
    if (rc < 0) {
        fmt = nullptr;
        // Only the system refusing the file is an open failure; anything FFmpeg could read but
        // not make sense of is "no audio".
        const bool systemError = rc == AVERROR(EACCES) || rc == AVERROR(EPERM) || rc == AVERROR(ENOENT)
            || rc == AVERROR(EISDIR) || rc == AVERROR(ENOMEM) || rc == AVERROR(EMFILE);
        return fail(systemError ? OpenFailed : NoAudio,
                    systemError ? "Error_audioFileOpen" : "Error_audioFileNoAudio", ffmpegErrorText(rc));
    }
    rc = avformat_find_stream_info(fmt, nullptr);
    if (rc < 0)
        return fail(NoAudio, "Error_audioFileNoAudio", ffmpegErrorText(rc));

    const AVCodec *codec = nullptr;
    streamIndex = av_find_best_stream(fmt, AVMEDIA_TYPE_AUDIO, -1, -1, &codec, 0);
    if (streamIndex < 0 || !codec)
        return fail(NoAudio, "Error_audioFileNoAudio",
                    streamIndex == AVERROR_DECODER_NOT_FOUND ? QStringLiteral("no decoder for its audio")
                                                             : QStringLiteral("no audio stream"));
    for (unsigned i = 0; i < fmt->nb_streams; ++i)
        if (static_cast<int>(i) != streamIndex)
            fmt->streams[i]->discard = AVDISCARD_ALL;

    const AVCodecParameters *par = stream()->codecpar;
    sampleRate = par->sample_rate;
    channels = par->ch_layout.nb_channels > 0 ? static_cast<quint32>(par->ch_layout.nb_channels) : 0;
    if (sampleRate <= 0 || channels == 0)
        return fail(NoAudio, "Error_audioFileNoAudio", QStringLiteral("no sample rate or channels"));

    decoder = avcodec_alloc_context3(codec);
    packet = av_packet_alloc();
    frame = av_frame_alloc();
    if (!decoder || !packet || !frame)
        return fail(OpenFailed, "Error_audioFileOpen", ffmpegErrorText(AVERROR(ENOMEM)));
    avcodec_parameters_to_context(decoder, par);
    decoder->pkt_timebase = stream()->time_base;
    decoder->thread_count = 1;
    rc = avcodec_open2(decoder, codec, nullptr);
    if (rc < 0)
        return fail(NoAudio, "Error_audioFileNoAudio", ffmpegErrorText(rc));

    const AVCodecID codecId = par->codec_id;
    format = formatText(fmt, codecId);

    // The length. Headers give it exactly for most formats; MP3 needs its LAME tag, and a file
    // whose header keeps no length is counted packet by packet (no decoding).
    bool countToEnd = false;
    qint64 countedAdjust = 0;
    bool known = false;
    if (isDemuxer(fmt, "mp3") && codecId == AV_CODEC_ID_MP3) {
        const Mp3Header mp3 = readMp3Header(path);
        if (mp3.frameCount > 0) {
            const quint64 total = mp3.frameCount * mp3.samplesPerFrame;
            const quint64 trim = mp3.hasLameTag ? quint64(mp3.startPadding) + mp3.endPadding : 0;
            frames = total > trim ? total - trim : 0;
            known = true;
        } else {
            countToEnd = true;
            // FFmpeg drops the encoder delay and its own decoder delay at the start.
            countedAdjust = mp3.hasLameTag ? qint64(mp3.startPadding) + 529 : 0;
        }
    } else if (stream()->duration != AV_NOPTS_VALUE && stream()->duration > 0
               && fmt->duration_estimation_method != AVFMT_DURATION_FROM_BITRATE) {
        frames = static_cast<quint64>(qMax<qint64>(0, toFrames(stream()->duration)));
        known = true;
    } else {
        countToEnd = true;
    }

    qint64 counted = 0;
    if (!scan(countToEnd, &counted))
        return fail(NoAudio, "Error_audioFileNoAudio", QStringLiteral("its audio cannot be decoded"));
    if (!known)
        frames = static_cast<quint64>(qMax<qint64>(0, counted - countedAdjust));
    if (frames == 0 && fmt->duration > 0) // packets without durations: the container's estimate
        frames = static_cast<quint64>(av_rescale(fmt->duration, static_cast<int64_t>(sampleRate), AV_TIME_BASE));
    if (frames == 0)
        return fail(NoAudio, "Error_audioFileNoAudio", QStringLiteral("no audio frames"));

    // A lossless length comes from the header; make sure the file really reaches it, so a copy
    // cut short is reported here instead of ending early in the middle of playback.
    const AVCodecDescriptor *descriptor = avcodec_descriptor_get(codecId);
    const bool lossless = descriptor && (descriptor->props & AV_CODEC_PROP_LOSSLESS);
    if (lossless && known && !reachesEnd(frames))
        return fail(Damaged, "Error_audioFileDamaged", QStringLiteral("the file ends early"));

    if (lossless) {
        if (decoder->bits_per_raw_sample > 0)
            bitDepth = static_cast<quint32>(decoder->bits_per_raw_sample);
        else if (par->bits_per_raw_sample > 0)
            bitDepth = static_cast<quint32>(par->bits_per_raw_sample);
        else if (par->bits_per_coded_sample > 0)
            bitDepth = static_cast<quint32>(par->bits_per_coded_sample);
        else
            bitDepth = static_cast<quint32>(qMax(0, av_get_bits_per_sample(codecId)));
    }
    return true;
}

// Reads from the start until one frame decodes, proving the stream is playable; with
// `countToEnd` it goes on to the end and adds up the packet durations.
bool VEKAudioFileReader::Impl::scan(bool countToEnd, qint64 *countedFrames)
{
    // Garbage can demux into endless packets that never decode; don't try forever.
    constexpr int kMaxPacketsBeforeAudio = 2000;
    bool decoded = false;
    int tried = 0;
    int64_t duration = 0;

    const auto drain = [&] {
        while (avcodec_receive_frame(decoder, frame) >= 0) {
            if (frame->nb_samples > 0)
                decoded = true;
            av_frame_unref(frame);
        }
    };

    for (;;) {
        const int rc = av_read_frame(fmt, packet);
        if (rc < 0)
            break;
        if (packet->stream_index == streamIndex) {
            if (packet->duration > 0)
                duration += packet->duration;
            if (!decoded && tried < kMaxPacketsBeforeAudio) {
                ++tried;
                avcodec_send_packet(decoder, packet);
                drain();
            }
        }
        av_packet_unref(packet);
        if (decoded && !countToEnd)
            break;
        if (!decoded && tried >= kMaxPacketsBeforeAudio)
            break;
    }
    if (!decoded && tried > 0) {
        // Decoders with a delay hand out their first frame only when flushed.
        avcodec_send_packet(decoder, nullptr);
        drain();
    }
    avcodec_flush_buffers(decoder);
    *countedFrames = toFrames(duration);
    return decoded;
}

// Seeks to just before the end the header promises and decodes what is there. Timestamps
// are absolute, so the answer does not depend on where decoding starts.
bool VEKAudioFileReader::Impl::reachesEnd(quint64 expectedFrames)
{
    const qint64 back = qMax<qint64>(1, static_cast<qint64>(sampleRate) / 4);
    const qint64 target = static_cast<qint64>(expectedFrames) > back ? static_cast<qint64>(expectedFrames) - back : 0;
    const int64_t ts = startTime()
        + av_rescale_q(target, AVRational{1, static_cast<int>(sampleRate)}, stream()->time_base);
    // A seek can fail because the spot lies beyond what the file holds; then read on from where
    // the first scan stopped, which costs more but gives the same answer.
    if (av_seek_frame(fmt, streamIndex, ts, AVSEEK_FLAG_BACKWARD) >= 0)
        avcodec_flush_buffers(decoder);

    qint64 end = -1;
    const auto drain = [&] {
        while (avcodec_receive_frame(decoder, frame) >= 0) {
            const int64_t pts = frame->best_effort_timestamp;
            if (frame->nb_samples > 0) {
                // The parser may leave the last frame of a file without a timestamp: it follows
                // on from the one before.
                if (pts != AV_NOPTS_VALUE)
                    end = qMax(end, toFrames(pts - startTime()) + frame->nb_samples);
                else if (end >= 0)
                    end += frame->nb_samples;
            }
            av_frame_unref(frame);
        }
    };
    const auto readToEnd = [&] {
        while (av_read_frame(fmt, packet) >= 0) {
            if (packet->stream_index == streamIndex) {
                avcodec_send_packet(decoder, packet);
                drain();
            }
            av_packet_unref(packet);
        }
        avcodec_send_packet(decoder, nullptr);
        drain();
        avcodec_flush_buffers(decoder);
    };
    readToEnd();
    return end >= static_cast<qint64>(expectedFrames);
}

void VEKAudioFileReader::Impl::readMetadata(const QString &path)
{
    VEKTagFile tags;
    if (tags.open(path, false)) {
        metadata = tags.metadata();
        // iTunes files without an edit list keep their end padding in the sample table.
        const quint64 valid = tags.iTunesValidFrames();
        if (valid > 0 && valid < frames && format == QLatin1String("AAC Audio File"))
            frames = valid;
    }

    // Formats TagLib cannot read (CAF) or whose tags it does not find: FFmpeg's view.
    const bool anyText = std::any_of(VEKTagFile::textKeys().cbegin(), VEKTagFile::textKeys().cend(),
                                     [&](const QString &key) { return metadata.contains(key); });
    if (!anyText) {
        for (const auto &keys : kFFmpegKeys) {
            for (int i = 1; i < 4 && keys[i]; ++i) {
                const AVDictionaryEntry *entry = av_dict_get(fmt->metadata, keys[i], nullptr, 0);
                if (!entry)
                    entry = av_dict_get(stream()->metadata, keys[i], nullptr, 0);
                const QString value = entry ? QString::fromUtf8(entry->value).trimmed() : QString();
                if (!value.isEmpty()) {
                    metadata.insert(QLatin1String(keys[0]), value);
                    break;
                }
            }
        }
    }
    if (!metadata.contains(QStringLiteral("imageData"))) {
        for (unsigned i = 0; i < fmt->nb_streams; ++i) {
            const AVStream *s = fmt->streams[i];
            if ((s->disposition & AV_DISPOSITION_ATTACHED_PIC) && s->attached_pic.size > 0) {
                metadata.insert(QStringLiteral("imageData"),
                                QByteArray(reinterpret_cast<const char *>(s->attached_pic.data),
                                           s->attached_pic.size));
                break;
            }
        }
    }
}

VEKAudioFileReader::VEKAudioFileReader() : d(std::make_unique<Impl>()) {}

VEKAudioFileReader::~VEKAudioFileReader() = default;

bool VEKAudioFileReader::initWithURL(const QString &path, VEKError *error)
{
    silenceFFmpeg();
    d = std::make_unique<Impl>();
    const QString absolute = path.isEmpty() ? QString() : QFileInfo(path).absoluteFilePath();
    d->url = absolute;

    if (absolute.isEmpty() || !VEKPaths::existsAsFile(absolute)) {
        VEKError::set(error, VEKError(kDomain, FileMissing, VEKLocalizedString("Error_audioFileOpen"),
                                      absolute + QStringLiteral(": ") + VEKLocalizedString("Error_audioFileMissing")));
        return false;
    }
    d->fileSize = static_cast<quint64>(QFileInfo(absolute).size());
    if (!d->open(absolute, error)) {
        // A failed reader keeps only its URL, never half-read facts.
        d = std::make_unique<Impl>();
        d->url = absolute;
        return false;
    }
    d->readMetadata(absolute);

    const double seconds = static_cast<double>(d->frames) / d->sampleRate;
    const int64_t streamRate = d->stream()->codecpar->bit_rate;
    if (streamRate > 0)
        d->bitrate = static_cast<quint64>(streamRate);
    else if (seconds > 0)
        d->bitrate = static_cast<quint64>(static_cast<double>(d->fileSize) * 8.0 / seconds + 0.5);
    else if (d->fmt->bit_rate > 0)
        d->bitrate = static_cast<quint64>(d->fmt->bit_rate);
    return true;
}

std::unique_ptr<VEKAudioFileReader> VEKAudioFileReader::open(const QString &path, VEKError *error)
{
    auto reader = std::make_unique<VEKAudioFileReader>();
    if (!reader->initWithURL(path, error))
        return nullptr;
    return reader;
}

const QString &VEKAudioFileReader::URL() const { return d->url; }
const QString &VEKAudioFileReader::format() const { return d->format; }
double VEKAudioFileReader::length() const
{
    return d->sampleRate > 0 ? static_cast<double>(d->frames) / d->sampleRate : 0.0;
}
quint64 VEKAudioFileReader::frames() const { return d->frames; }
double VEKAudioFileReader::sampleRate() const { return d->sampleRate; }
quint32 VEKAudioFileReader::numberOfChannels() const { return d->channels; }
quint64 VEKAudioFileReader::fileSize() const { return d->fileSize; }
quint64 VEKAudioFileReader::bitrate() const { return d->bitrate; }
quint32 VEKAudioFileReader::bitDepth() const { return d->bitDepth; }
const QVariantMap &VEKAudioFileReader::metadata() const { return d->metadata; }
