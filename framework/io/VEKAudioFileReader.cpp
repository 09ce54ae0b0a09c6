#include "VEKAudioFileReader.h"

#include "VEKTagFile.h"
#include "core/VEKLocalizedString.h"
#include "core/VEKPaths.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>
#include <cstring>
#include <mutex>
#include <new>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/channel_layout.h>
#include <libavutil/dict.h>
#include <libavutil/intreadwrite.h>
#include <libavutil/mem.h>
#include <libswresample/swresample.h>
}

namespace {

const QString kDomain = QStringLiteral("VEKAudioFileReader");

enum ErrorCode {
    FileMissing = 1,
    OpenFailed = 2,
    NoAudio = 3,
    Damaged = 4,
    ReadFailed = 5,
    NotOpen = 6,
    NoAudioStream = int(VEKAudioFileReader::NoAudioStreamErrorCode),
};

// A file held in memory, read by FFmpeg through callbacks instead of from the disk.
struct MemoryFile {
    std::vector<uint8_t> bytes;
    int64_t position = 0;

    static int read(void *opaque, uint8_t *buffer, int size)
    {
        auto *m = static_cast<MemoryFile *>(opaque);
        const int64_t left = static_cast<int64_t>(m->bytes.size()) - m->position;
        if (left <= 0)
            return AVERROR_EOF;
        const int n = static_cast<int>(std::min<int64_t>(left, size));
        std::memcpy(buffer, m->bytes.data() + m->position, static_cast<size_t>(n));
        m->position += n;
        return n;
    }

    static int64_t seek(void *opaque, int64_t offset, int whence)
    {
        auto *m = static_cast<MemoryFile *>(opaque);
        const int64_t size = static_cast<int64_t>(m->bytes.size());
        int64_t target = 0;
        switch (whence & ~AVSEEK_FORCE) {
        case AVSEEK_SIZE: return size;
        case SEEK_SET: target = offset; break;
        case SEEK_CUR: target = m->position + offset; break;
        case SEEK_END: target = size + offset; break;
        default: return AVERROR(EINVAL);
        }
        if (target < 0)
            return AVERROR(EINVAL);
        m->position = target;
        return target;
    }
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
    AVCodecID codecId = AV_CODEC_ID_NONE;
    const AVCodec *codec = nullptr;
    bool lossless = false;
    // AAC in MP4 decodes whole 1024-sample frames; the last packet's duration tells how much of
    // the last one the edit list keeps.
    bool clampToPacketDuration = false;

    // What a frame's timestamp says minus where its audio really is, learnt from the first frame
    // of the file. FFmpeg times Ogg Vorbis packets as if the first packet gave audio, which no
    // Vorbis decoder does; for every other format this is 0.
    qint64 ptsBias = 0;

    // Decoding position. `pending` holds the decoded frame that getAudio() has not yet handed
    // out, planar float, `pendingChannels` planes of `pendingCapacity` frames; its valid frames
    // are [pendingBegin, pendingEnd) and the first of them is audible frame `cursor`.
    std::vector<float> pending;
    quint32 pendingCapacity = 0;
    quint32 pendingChannels = 0;
    quint32 pendingBegin = 0;
    quint32 pendingEnd = 0;
    quint64 cursor = 0;
    // Whether `cursor` is known. False after opening and after a seek until a frame with a
    // timestamp has arrived.
    bool positioned = false;
    // After a seek to the start a frame without a timestamp can only be the first one.
    bool atStart = false;
    bool demuxerDone = false;
    bool decoderDone = false;
    // Encoder delay still to drop when it covers more than one decoded frame.
    qint64 carrySkip = 0;
    // Frames to leave unplaced after a seek into lossy audio. The first frames after a decoder
    // flush are unsettled: the Vorbis decoder even makes the first of them a different length,
    // so its timestamp can't place the frames that follow.
    int unsettledFrames = 0;
    // Where the first packet of the audio lies. A seek that lands there is redone as a read from
    // the start: FFmpeg times the packets of the first Ogg page differently after a seek than
    // when it reads them first.
    int64_t firstPacketPos = -1;
    bool watchLanding = false;
    bool landedAtStart = false;
    quint64 seeks = 0;

    SwrContext *swr = nullptr;
    int swrFormat = -1;
    int swrChannels = 0;
    std::vector<uint8_t *> planes;

    // Set by loadIntoMemory(): the demuxer then reads from here.
    std::unique_ptr<MemoryFile> memory;
    AVIOContext *memoryIO = nullptr;

    ~Impl()
    {
        swr_free(&swr);
        av_frame_free(&frame);
        av_packet_free(&packet);
        avcodec_free_context(&decoder);
        closeDemuxer();
    }

    AVStream *stream() const { return fmt->streams[streamIndex]; }

    qint64 toFrames(int64_t ts) const
    {
        return av_rescale_q(ts, stream()->time_base, AVRational{1, static_cast<int>(sampleRate)});
    }

    int64_t toTimestamp(qint64 frameIndex) const
    {
        return av_rescale_q(frameIndex, AVRational{1, static_cast<int>(sampleRate)}, stream()->time_base);
    }

    qint64 startTime() const
    {
        const int64_t start = stream()->start_time;
        return start == AV_NOPTS_VALUE ? 0 : start;
    }

    quint64 nextFrame() const { return cursor + (pendingEnd - pendingBegin); }

    int openDemuxer(const QString &path);
    int openDecoder(const AVCodec *codec);
    void closeDemuxer();
    bool open(const QString &path, VEKError *error);
    bool scan(bool countToEnd, qint64 *countedFrames);
    bool reachesEnd(quint64 expectedFrames);
    void readMetadata(const QString &path);

    // Sample decoding, see getAudio().
    enum class Step { Frame, End, Failed };
    void resetDecoding();
    Step decodeFrame(int *failure);
    bool takeFrame();
    bool convertFrame(int samples);
    bool positionAt(quint64 target, int *failure);
    bool decodeUpTo(quint64 target, int *failure);
    bool seekTo(quint64 target, int *failure);
    bool seekDemuxer(quint64 frameIndex);
    qint64 preroll() const;
    bool reopen(QString *problem);
};

// A new decoder for the stream. Returns FFmpeg's status.
int VEKAudioFileReader::Impl::openDecoder(const AVCodec *codec)
{
    avcodec_free_context(&decoder);
    decoder = avcodec_alloc_context3(codec);
    if (!decoder)
        return AVERROR(ENOMEM);
    avcodec_parameters_to_context(decoder, stream()->codecpar);
    decoder->pkt_timebase = stream()->time_base;
    decoder->thread_count = 1;
    // Encoder delay and padding come to us as side data: the decoder would move timestamps and
    // cut the last frame by FFmpeg's view of the end, which is wrong for Ogg Vorbis (see ptsBias).
    decoder->flags2 |= AV_CODEC_FLAG2_SKIP_MANUAL;
    const int rc = avcodec_open2(decoder, codec, nullptr);
    if (rc < 0)
        avcodec_free_context(&decoder);
    return rc;
}

// Opens `path` (or the bytes in `memory`) with FFmpeg's demuxer and reads its stream facts.
// Returns FFmpeg's status.
int VEKAudioFileReader::Impl::openDemuxer(const QString &path)
{
    const QByteArray local = QFile::encodeName(path);
    AVDictionary *options = nullptr;
    if (memory) {
        fmt = avformat_alloc_context();
        constexpr int kBufferSize = 64 * 1024;
        auto *buffer = static_cast<unsigned char *>(av_malloc(kBufferSize));
        memoryIO = buffer ? avio_alloc_context(buffer, kBufferSize, 0, memory.get(), &MemoryFile::read,
                                               nullptr, &MemoryFile::seek)
                          : nullptr;
        if (!fmt || !memoryIO) {
            av_free(buffer);
            avformat_free_context(fmt);
            fmt = nullptr;
            return AVERROR(ENOMEM);
        }
        memory->position = 0;
        fmt->pb = memoryIO;
    } else {
        // Only the file itself: a playlist-like file must not make FFmpeg open other files or URLs.
        av_dict_set(&options, "protocol_whitelist", "file", 0);
    }
    // The name still helps FFmpeg guess the format when reading from memory.
    int rc = avformat_open_input(&fmt, local.constData(), nullptr, &options);
    av_dict_free(&options);
    if (rc < 0) {
        fmt = nullptr; // freed by FFmpeg
        return rc;
    }
    return avformat_find_stream_info(fmt, nullptr);
}

void VEKAudioFileReader::Impl::closeDemuxer()
{
    avformat_close_input(&fmt);
    if (memoryIO) {
        av_freep(&memoryIO->buffer);
        avio_context_free(&memoryIO);
    }
}

bool VEKAudioFileReader::Impl::open(const QString &path, VEKError *error)
{
    const auto fail = [&](ErrorCode code, const char *description, const QString &detail) {
        VEKError::set(error, VEKError(kDomain, code, VEKLocalizedString(description),
                                      detail.isEmpty() ? path : path + QStringLiteral(": ") + detail));
        return false;
    };

    int rc = openDemuxer(path);
    if (rc < 0) {
        // Only the system refusing the file is an open failure; anything FFmpeg could read but
        // not make sense of is "no audio".
        const bool systemError = rc == AVERROR(EACCES) || rc == AVERROR(EPERM) || rc == AVERROR(ENOENT)
            || rc == AVERROR(EISDIR) || rc == AVERROR(ENOMEM) || rc == AVERROR(EMFILE);
        return fail(systemError ? OpenFailed : rc == AVERROR_INVALIDDATA ? NoAudioStream : NoAudio,
                    systemError ? "Error_audioFileOpen" : "Error_audioFileNoAudio", ffmpegErrorText(rc));
    }

    streamIndex = av_find_best_stream(fmt, AVMEDIA_TYPE_AUDIO, -1, -1, &codec, 0);
    if (streamIndex < 0 || !codec)
        return fail(streamIndex == AVERROR_DECODER_NOT_FOUND ? NoAudio : NoAudioStream, "Error_audioFileNoAudio",
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

    packet = av_packet_alloc();
    frame = av_frame_alloc();
    if (!packet || !frame)
        return fail(OpenFailed, "Error_audioFileOpen", ffmpegErrorText(AVERROR(ENOMEM)));
    rc = openDecoder(codec);
    if (rc < 0)
        return fail(NoAudio, "Error_audioFileNoAudio", ffmpegErrorText(rc));

    codecId = par->codec_id;
    format = formatText(fmt, codecId);
    clampToPacketDuration = codecId == AV_CODEC_ID_AAC && isDemuxer(fmt, "mov");

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
    lossless = descriptor && (descriptor->props & AV_CODEC_PROP_LOSSLESS);
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
            if (frame->nb_samples > 0 && !(frame->flags & AV_FRAME_FLAG_DISCARD) && !decoded) {
                decoded = true;
                // The first audible frame of the file is frame 0, whatever its timestamp says.
                const int64_t pts = frame->pts != AV_NOPTS_VALUE ? frame->pts : frame->best_effort_timestamp;
                const AVFrameSideData *skip = av_frame_get_side_data(frame, AV_FRAME_DATA_SKIP_SAMPLES);
                const qint64 skipped = skip && skip->size >= 10 ? qint64(AV_RL32(skip->data)) : 0;
                if (pts != AV_NOPTS_VALUE)
                    ptsBias = toFrames(pts - startTime()) + skipped;
            }
            av_frame_unref(frame);
        }
    };

    for (;;) {
        const int rc = av_read_frame(fmt, packet);
        if (rc < 0)
            break;
        if (packet->stream_index == streamIndex) {
            if (firstPacketPos < 0)
                firstPacketPos = packet->pos;
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

// ---- Sample decoding ------------------------------------------------------------------------

void VEKAudioFileReader::Impl::resetDecoding()
{
    if (decoder)
        avcodec_flush_buffers(decoder);
    pendingBegin = pendingEnd = 0;
    positioned = false;
    atStart = false;
    demuxerDone = false;
    decoderDone = false;
    carrySkip = 0;
    unsettledFrames = 0;
}

// Hands the next decoded frame to takeFrame() until one leaves audible frames in `pending`.
// End when the file has no more; Failed (with FFmpeg's status) when it can't be read.
VEKAudioFileReader::Impl::Step VEKAudioFileReader::Impl::decodeFrame(int *failure)
{
    // A damaged frame is left out and decoding goes on, as every player does; only a decoder
    // that keeps failing is given up.
    int decodeErrors = 0;
    for (;;) {
        if (decoderDone)
            return Step::End;
        int rc = avcodec_receive_frame(decoder, frame);
        if (rc >= 0) {
            decodeErrors = 0;
            const bool kept = takeFrame();
            av_frame_unref(frame);
            if (kept)
                return Step::Frame;
            continue;
        }
        if (rc == AVERROR_EOF) {
            decoderDone = true;
            return Step::End;
        }
        if (rc != AVERROR(EAGAIN)) {
            if (++decodeErrors > 1000) {
                *failure = rc;
                return Step::Failed;
            }
            continue;
        }
        if (demuxerDone) { // flushed, yet the decoder wants more: nothing will come
            decoderDone = true;
            return Step::End;
        }
        rc = av_read_frame(fmt, packet);
        if (rc == AVERROR(EAGAIN))
            continue;
        if (rc < 0) {
            // A read error of the system is a failure; anything else ends the audio where a
            // damaged or cut-off file stops making sense, as a player would.
            if (rc == AVERROR(EIO) || rc == AVERROR(ENOMEM) || (fmt->pb && fmt->pb->error < 0
                                                               && fmt->pb->error != AVERROR_EOF)) {
                *failure = rc;
                return Step::Failed;
            }
            demuxerDone = true;
            avcodec_send_packet(decoder, nullptr);
            continue;
        }
        if (packet->stream_index == streamIndex) {
            if (watchLanding) {
                watchLanding = false;
                landedAtStart = firstPacketPos >= 0 && packet->pos >= 0 && packet->pos <= firstPacketPos;
            }
            // A packet the decoder refuses is left out, the same way on every read.
            avcodec_send_packet(decoder, packet);
        }
        av_packet_unref(packet);
    }
}

// Places the audible part of `frame` in `pending`. False when nothing of it is audible or its
// place in the file can't be told yet.
bool VEKAudioFileReader::Impl::takeFrame()
{
    qint64 samples = frame->nb_samples;
    if (samples <= 0 || (frame->flags & AV_FRAME_FLAG_DISCARD))
        return false;
    if (clampToPacketDuration && frame->pkt_duration > 0)
        samples = std::min(samples, toFrames(frame->pkt_duration));

    qint64 skip = carrySkip;
    carrySkip = 0;
    if (const AVFrameSideData *side = av_frame_get_side_data(frame, AV_FRAME_DATA_SKIP_SAMPLES);
        side && side->size >= 10)
        skip += AV_RL32(side->data);
    // End padding is not taken from the side data: frames() already ends where the audio does.

    if (!positioned && unsettledFrames > 0) {
        --unsettledFrames;
        return false;
    }

    qint64 first; // audible index of the first sample after the skip
    if (positioned) {
        first = static_cast<qint64>(nextFrame());
    } else {
        const int64_t pts = frame->pts != AV_NOPTS_VALUE ? frame->pts : frame->best_effort_timestamp;
        if (pts != AV_NOPTS_VALUE)
            first = toFrames(pts - startTime()) + skip - ptsBias;
        else if (atStart)
            first = 0;
        else
            return false; // wait for a frame that says where it is
    }
    if (skip >= samples) { // all of it is encoder delay; the rest of the delay is in the next
        carrySkip = skip - samples;
        return false;
    }

    qint64 begin = skip;
    if (first < 0) { // before the first audible frame
        begin -= first;
        first = 0;
        if (begin >= samples)
            return false;
    }
    const qint64 total = static_cast<qint64>(frames);
    qint64 end = samples;
    if (first + (end - begin) > total)
        end = begin + std::max<qint64>(0, total - first);

    if (!convertFrame(frame->nb_samples))
        return false;
    cursor = static_cast<quint64>(first);
    pendingBegin = static_cast<quint32>(begin);
    pendingEnd = static_cast<quint32>(end);
    positioned = true;
    atStart = false;
    if (first >= total)
        decoderDone = true; // past the end of the audio: stop decoding
    return true;
}

// All samples of `frame` to planar float in `pending`; only the sample format changes.
bool VEKAudioFileReader::Impl::convertFrame(int samples)
{
    const int frameChannels = frame->ch_layout.nb_channels;
    if (frameChannels <= 0)
        return false;
    if (!swr || swrFormat != frame->format || swrChannels != frameChannels) {
        swr_free(&swr);
        AVChannelLayout layout;
        av_channel_layout_default(&layout, frameChannels);
        // The same layout and rate on both sides: swresample only changes the sample format.
        if (swr_alloc_set_opts2(&swr, &layout, AV_SAMPLE_FMT_FLTP, frame->sample_rate > 0 ? frame->sample_rate : int(sampleRate),
                                &layout, static_cast<AVSampleFormat>(frame->format),
                                frame->sample_rate > 0 ? frame->sample_rate : int(sampleRate), 0, nullptr) < 0
            || swr_init(swr) < 0) {
            av_channel_layout_uninit(&layout);
            swr_free(&swr);
            return false;
        }
        av_channel_layout_uninit(&layout);
        swrFormat = frame->format;
        swrChannels = frameChannels;
    }
    if (quint32(samples) > pendingCapacity || quint32(frameChannels) != pendingChannels) {
        pendingCapacity = std::max(pendingCapacity, quint32(samples));
        pendingChannels = quint32(frameChannels);
        pending.assign(size_t(pendingCapacity) * pendingChannels, 0.0f);
    }
    planes.resize(size_t(frameChannels));
    for (int c = 0; c < frameChannels; ++c)
        planes[size_t(c)] = reinterpret_cast<uint8_t *>(pending.data() + size_t(c) * pendingCapacity);
    const int converted = swr_convert(swr, planes.data(), samples,
                                      const_cast<const uint8_t **>(frame->extended_data), samples);
    return converted == samples;
}

// How far before a target a lossy decoder has to start so that what it gives at the target no
// longer depends on where it started: the MP3 bit reservoir and the overlap of the transforms
// of MP3, AAC and Vorbis all reach back much less than half a second.
qint64 VEKAudioFileReader::Impl::preroll() const
{
    return lossless ? 0 : std::max<qint64>(16384, qint64(sampleRate) / 2);
}

// Makes `cursor` equal `target`: by dropping what is pending, by decoding on (for a short way
// forward, which costs less than a seek and keeps sequential reading free of seeks) or by
// seeking.
bool VEKAudioFileReader::Impl::positionAt(quint64 target, int *failure)
{
    if (positioned && target >= cursor) {
        const quint64 forwardWithoutSeek = std::max<quint64>(quint64(sampleRate) / 2, 8192);
        if (target <= nextFrame() || (target - nextFrame() <= forwardWithoutSeek))
            return decodeUpTo(target, failure);
    }
    return seekTo(target, failure);
}

// Decodes forward, dropping audio, until `target` is the next frame to hand out. At the end of
// the audio the cursor still moves: what lies beyond is given as silence.
bool VEKAudioFileReader::Impl::decodeUpTo(quint64 target, int *failure)
{
    for (;;) {
        if (target <= nextFrame()) {
            pendingBegin += quint32(target - cursor);
            cursor = target;
            return true;
        }
        // Everything pending lies before the target.
        cursor = nextFrame();
        pendingBegin = pendingEnd = 0;
        if (decoderDone) {
            cursor = target;
            return true;
        }
        if (decodeFrame(failure) == Step::Failed)
            return false;
    }
}

bool VEKAudioFileReader::Impl::seekDemuxer(quint64 frameIndex)
{
    // The start of lossy audio is where opening left the demuxer: seeking there lands on the
    // first key packet, which for AAC in MP4 is past the priming packet the decoder needs, and
    // Ogg timestamps after a seek are not those of a read from the start. Opening again is
    // exact (and costs about a millisecond).
    QString problem;
    if (frameIndex == 0 && !lossless)
        return reopen(&problem);
    const int64_t ts = startTime() + toTimestamp(qint64(frameIndex) + ptsBias);
    if (av_seek_frame(fmt, streamIndex, ts, AVSEEK_FLAG_BACKWARD) >= 0)
        return true;
    if (avformat_seek_file(fmt, streamIndex, INT64_MIN, ts, ts, 0) >= 0)
        return true;
    // A demuxer that can't seek can still start again from the beginning.
    return frameIndex == 0 && reopen(&problem);
}

// Seeks to a point before `target` and decodes up to it. Lossless frames decode alone, so this
// is exact; lossy decoders start early enough (preroll()) to have settled by the target.
bool VEKAudioFileReader::Impl::seekTo(quint64 target, int *failure)
{
    qint64 back = preroll();
    for (int attempt = 0; attempt < 6; ++attempt) {
        const quint64 from = target > quint64(back) ? target - quint64(back) : 0;
        ++seeks;
        const bool sought = seekDemuxer(from);
        resetDecoding();
        if (!sought && from > 0) {
            back = qint64(target); // go for the start
            continue;
        }
        if (!sought) {
            *failure = AVERROR(EIO);
            return false;
        }
        atStart = from == 0;
        unsettledFrames = lossless || atStart ? 0 : 2;
        watchLanding = !atStart;
        landedAtStart = false;
        Step step = Step::Frame;
        while (!positioned && (step = decodeFrame(failure)) == Step::Frame) {
        }
        watchLanding = false;
        if (step == Step::Failed)
            return false;
        if (landedAtStart) {
            back = qint64(target);
            continue;
        }
        if (!positioned) {
            // Nothing audible after the seek point: either the target is beyond the audio, or
            // the demuxer landed past it.
            if (from == 0) {
                positioned = true;
                decoderDone = true;
                cursor = target;
                return true;
            }
            back = std::max<qint64>(back * 4, qint64(sampleRate));
            continue;
        }
        if (cursor <= target)
            return decodeUpTo(target, failure);
        if (from == 0) { // the very start lies after the target: cannot happen but for damage
            pendingBegin = pendingEnd = 0;
            cursor = target;
            decoderDone = true;
            return true;
        }
        // Landed after the target (an inexact index): start further back.
        back = std::max<qint64>(back * 4, qint64(cursor - target) + qint64(sampleRate));
    }
    *failure = AVERROR(EIO);
    return false;
}

// Opens the demuxer again, from memory once loadIntoMemory() has run. The stream layout is the
// file's, so the stream index stays valid.
bool VEKAudioFileReader::Impl::reopen(QString *problem)
{
    closeDemuxer();
    const int rc = openDemuxer(url);
    if (rc < 0 || !fmt || streamIndex >= static_cast<int>(fmt->nb_streams)
        || fmt->streams[streamIndex]->codecpar->codec_id != codecId) {
        *problem = rc < 0 ? ffmpegErrorText(rc) : QStringLiteral("the file changed");
        closeDemuxer();
        return false;
    }
    for (unsigned i = 0; i < fmt->nb_streams; ++i)
        if (static_cast<int>(i) != streamIndex)
            fmt->streams[i]->discard = AVDISCARD_ALL;
    // A fresh decoder as well: the AAC decoder's noise generator runs on across flushes, and a
    // read from the start should give the same samples every time.
    const int rc2 = openDecoder(codec);
    if (rc2 < 0) {
        *problem = ffmpegErrorText(rc2);
        return false;
    }
    return true;
}

bool VEKAudioFileReader::getAudio(VEKAudioBufferList &list, quint64 fromFrame, VEKError *error)
{
    list.setFrames(0);
    const auto fail = [&](ErrorCode code, const QString &detail) {
        VEKError::set(error, VEKError(kDomain, code, VEKLocalizedString("Error_audioFileRead"),
                                      d->url + QStringLiteral(": ") + detail));
        return false;
    };
    if (!d->fmt || !d->decoder)
        return fail(NotOpen, QStringLiteral("not open"));
    if (fromFrame >= d->frames || list.capacity() == 0)
        return true;

    int failure = 0;
    if (!d->positionAt(fromFrame, &failure))
        return fail(ReadFailed, ffmpegErrorText(failure));

    const quint32 want = quint32(std::min<quint64>(list.capacity(), d->frames - fromFrame));
    const quint32 outChannels = list.numberOfChannels();
    quint32 delivered = 0;
    while (delivered < want) {
        quint32 available = d->pendingEnd - d->pendingBegin;
        if (available == 0) {
            const Impl::Step step = d->decoderDone ? Impl::Step::End : d->decodeFrame(&failure);
            if (step == Impl::Step::Failed) {
                list.setFrames(delivered);
                return fail(ReadFailed, ffmpegErrorText(failure));
            }
            if (step == Impl::Step::End) {
                // The audio ended before its length: the rest is silence, so the length the
                // player shows and the frames it gets agree.
                for (quint32 c = 0; c < outChannels; ++c)
                    std::fill(list.channel(c) + delivered, list.channel(c) + want, 0.0f);
                d->cursor += want - delivered;
                delivered = want;
                break;
            }
            continue;
        }
        const quint32 n = std::min(available, want - delivered);
        for (quint32 c = 0; c < outChannels; ++c) {
            float *out = list.channel(c) + delivered;
            if (c < d->pendingChannels)
                std::memcpy(out, d->pending.data() + size_t(c) * d->pendingCapacity + d->pendingBegin,
                            size_t(n) * sizeof(float));
            else
                std::fill(out, out + n, 0.0f);
        }
        d->pendingBegin += n;
        d->cursor += n;
        delivered += n;
    }
    list.setFrames(delivered);
    return true;
}

quint64 VEKAudioFileReader::seekCount() const { return d->seeks; }

bool VEKAudioFileReader::loadIntoMemory(VEKError *error)
{
    const auto fail = [&](ErrorCode code, const QString &detail) {
        VEKError::set(error, VEKError(kDomain, code, VEKLocalizedString("Error_audioFileRead"),
                                      d->url + QStringLiteral(": ") + detail));
        return false;
    };
    if (!d->fmt || !d->decoder)
        return fail(NotOpen, QStringLiteral("not open"));
    if (d->memory)
        return true;

    QFile file(d->url);
    if (!file.open(QIODevice::ReadOnly))
        return fail(ReadFailed, file.errorString());
    auto memory = std::make_unique<MemoryFile>();
    try {
        memory->bytes.resize(static_cast<size_t>(file.size()));
    } catch (const std::bad_alloc &) {
        return fail(ReadFailed, ffmpegErrorText(AVERROR(ENOMEM)));
    }
    qint64 done = 0;
    while (done < file.size()) {
        const qint64 n = file.read(reinterpret_cast<char *>(memory->bytes.data()) + done, file.size() - done);
        if (n <= 0)
            return fail(ReadFailed, file.errorString());
        done += n;
    }

    // Where reading stands now is kept; the demuxer starts over on the copy.
    const bool wasPositioned = d->positioned;
    const quint64 at = d->cursor;
    d->memory = std::move(memory);
    QString problem;
    if (!d->reopen(&problem)) {
        d->memory.reset();
        // Back to the disk, so the reader stays usable.
        QString again;
        d->reopen(&again);
        d->resetDecoding();
        return fail(ReadFailed, problem);
    }
    d->resetDecoding();
    if (wasPositioned) {
        int failure = 0;
        d->seekTo(at, &failure);
    }
    return true;
}
