// Opening a file: the demuxer, the decoder, the stream's facts, its exact length and its tags.

#include "VEKAudioFileReaderImpl.h"
#include "core/VEKPaths.h"

#include "VEKMp3Header.h"
#include "VEKTagFile.h"
#include "core/VEKLocalizedString.h"

#include <QFile>

#include <algorithm>

using namespace VEKAudioFileReaderParts;

namespace {

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
    const QByteArray local = VEKPaths::native(path);
    AVDictionary *options = nullptr;
    if (memory) {
        fmt = avformat_alloc_context();
        constexpr int kBufferSize = 64 * 1024;
        auto *buffer = static_cast<unsigned char *>(av_malloc(kBufferSize));
        memoryIO = buffer ? avio_alloc_context(buffer, kBufferSize, 0, memory.get(), &VEKInMemoryFile::read,
                                               nullptr, &VEKInMemoryFile::seek)
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
        VEKError::set(error,
                      VEKError(kDomain, code, VEKLocalizedString(description),
                               detail.isEmpty() ? VEKPaths::readable(path)
                                                : VEKPaths::readable(path) + QStringLiteral(": ") + detail));
        return false;
    };

    int rc = openDemuxer(path);
    if (rc < 0) {
        // Only the system refusing the file is an open failure; anything FFmpeg could read but
        // not make sense of is "no audio".
        const bool systemError = rc == AVERROR(EACCES) || rc == AVERROR(EPERM) || rc == AVERROR(ENOENT)
                                 || rc == AVERROR(EISDIR) || rc == AVERROR(ENOMEM) || rc == AVERROR(EMFILE);
        return fail(systemError                 ? OpenFailed
                    : rc == AVERROR_INVALIDDATA ? NoAudioStream
                                                : NoAudio,
                    systemError ? "Error_audioFileOpen" : "Error_audioFileNoAudio", ffmpegErrorText(rc));
    }

    streamIndex = av_find_best_stream(fmt, AVMEDIA_TYPE_AUDIO, -1, -1, &codec, 0);
    if (streamIndex < 0 || !codec)
        return fail(streamIndex == AVERROR_DECODER_NOT_FOUND ? NoAudio : NoAudioStream,
                    "Error_audioFileNoAudio",
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
        const VEKMp3Header mp3 = VEKMp3Header::read(path);
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
        frames =
            static_cast<quint64>(av_rescale(fmt->duration, static_cast<int64_t>(sampleRate), AV_TIME_BASE));
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
    const qint64 target =
        static_cast<qint64>(expectedFrames) > back ? static_cast<qint64>(expectedFrames) - back : 0;
    const int64_t ts =
        startTime() + av_rescale_q(target, AVRational{1, static_cast<int>(sampleRate)}, stream()->time_base);
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
                metadata.insert(
                    QStringLiteral("imageData"),
                    QByteArray(reinterpret_cast<const char *>(s->attached_pic.data), s->attached_pic.size));
                break;
            }
        }
    }
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
