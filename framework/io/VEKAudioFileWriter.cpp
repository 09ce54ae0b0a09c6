#include "VEKAudioFileWriter.h"

#include "VEKAudioFileModifier.h"
#include "VEKTagFile.h"
#include "core/VEKAtomicFile.h"
#include "core/VEKLocalizedString.h"
#include "core/VEKPaths.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QRandomGenerator>
#include <QRegularExpression>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <vector>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/audio_fifo.h>
#include <libavutil/channel_layout.h>
#include <libavutil/opt.h>
#include <libswresample/swresample.h>
}

namespace {

const QString kDomain = QStringLiteral("VEKAudioFileWriter");

enum ErrorCode {
    BadSettings = 1,
    CreateFailed = 2,
    EncodeFailed = 3,
    WriteFailed = 4,
    TagsFailed = 5,
    NotOpen = 6,
};

QString ffmpegErrorText(int code)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return QString::fromUtf8(text);
}

enum class Family { PCMBigEndian, PCMLittleEndian, AAC, ALAC, Vorbis, FLAC };

struct FormatInfo {
    const char *name;
    const char *extension;
    const char *muxer;
    Family family;
};

const FormatInfo kFormats[] = {
    {"AIFF File", "aif", "aiff", Family::PCMBigEndian},
    {"WAVE File", "wav", "wav", Family::PCMLittleEndian},
    // Big-endian, as Core Audio writes CAF.
    {"CAF File", "caf", "caf", Family::PCMBigEndian},
    {"AAC Audio File", "m4a", "ipod", Family::AAC},
    {"Apple Lossless File", "m4a", "ipod", Family::ALAC},
    {"Ogg Vorbis Audio File", "ogg", "ogg", Family::Vorbis},
    {"FLAC Audio File", "flac", "flac", Family::FLAC},
};

// What the format (through FFmpeg's encoder and muxer) cannot hold, in words for the user; empty
// when it can. FLAC frames code rates below 65535 Hz and multiples of 10 Hz below 655350 Hz;
// AAC has a table of 13 rates; libvorbis has modes up to 200 kHz; the coders of AAC, Apple
// Lossless, FLAC and Vorbis take at most 8 channels.
QString capacityProblem(const FormatInfo &info, quint32 rate, quint32 channels)
{
    const QString name = QLatin1String(info.name);
    const bool eight = info.family == Family::AAC || info.family == Family::ALAC
                       || info.family == Family::FLAC || info.family == Family::Vorbis;
    if (eight && channels > 8)
        return QStringLiteral("%1 holds at most 8 channels, and the source has %2").arg(name).arg(channels);
    if (info.family == Family::FLAC && !(rate < 65535 || (rate % 10 == 0 && rate < 655350)))
        return QStringLiteral("%1 cannot hold a sample rate of %2 Hz (at most 655340 Hz): set a lower "
                              "rate for the preferred format")
            .arg(name)
            .arg(rate);
    static const quint32 aacRates[] = {96000, 88200, 64000, 48000, 44100, 32000, 24000, 22050, 16000, 12000, 11025, 8000, 7350};
    if (info.family == Family::AAC && std::find(std::begin(aacRates), std::end(aacRates), rate) == std::end(aacRates))
        return QStringLiteral("%1 holds the sample rates of 7350 to 96000 Hz of its standard, not %2 Hz: set "
                              "one of them for the preferred format")
            .arg(name)
            .arg(rate);
    if (info.family == Family::Vorbis && rate > 200000)
        return QStringLiteral("%1 holds sample rates up to 200000 Hz, not %2 Hz: set a lower rate for the "
                              "preferred format")
            .arg(name)
            .arg(rate);
    return {};
}

const FormatInfo *formatInfo(const QString &name)
{
    for (const auto &f : kFormats)
        if (name == QLatin1String(f.name))
            return &f;
    return nullptr;
}

AVCodecID pcmCodec(Family family, quint32 bits)
{
    const bool big = family == Family::PCMBigEndian;
    switch (bits) {
    // 8-bit WAVE is unsigned, 8-bit AIFF and CAF signed.
    case 8: return big ? AV_CODEC_ID_PCM_S8 : AV_CODEC_ID_PCM_U8;
    case 24: return big ? AV_CODEC_ID_PCM_S24BE : AV_CODEC_ID_PCM_S24LE;
    case 32: return big ? AV_CODEC_ID_PCM_S32BE : AV_CODEC_ID_PCM_S32LE;
    default: return big ? AV_CODEC_ID_PCM_S16BE : AV_CODEC_ID_PCM_S16LE;
    }
}

// The sample format the encoder takes for `bits`: the codec's first format of the right width.
AVSampleFormat inputFormat(const AVCodec *codec, quint32 bits, bool lossy)
{
    const AVSampleFormat *formats = codec->sample_fmts;
    if (!formats)
        return AV_SAMPLE_FMT_NONE;
    if (lossy)
        return formats[0];
    for (const AVSampleFormat *f = formats; *f != AV_SAMPLE_FMT_NONE; ++f) {
        const int width = av_get_bytes_per_sample(*f) * 8;
        if ((bits == 8 && width == 8) || (bits == 16 && width == 16) || (bits > 16 && width == 32))
            return *f;
    }
    return AV_SAMPLE_FMT_NONE;
}

// The metadata keys of FFmpeg's muxers, which the reader falls back on for CAF.
void putFFmpegMetadata(AVDictionary **dict, const QVariantMap &metadata)
{
    const auto text = [&](const char *key) { return metadata.value(QLatin1String(key)).toString().trimmed(); };
    const auto put = [&](const char *name, const QString &value) {
        if (!value.isEmpty())
            av_dict_set(dict, name, value.toUtf8().constData(), 0);
    };
    const auto number = [&](const char *numberKey, const char *totalKey) {
        QString n = text(numberKey);
        const QString total = text(totalKey);
        if (!total.isEmpty() && !n.contains(QLatin1Char('/')))
            n = (n.isEmpty() ? QStringLiteral("0") : n) + QLatin1Char('/') + total;
        return n;
    };
    put("title", text("title"));
    put("artist", text("artist"));
    put("album", text("album"));
    put("album_artist", text("albumArtist"));
    put("composer", text("composer"));
    put("genre", text("genre"));
    put("track", number("trackNumber", "numberOfTracks"));
    put("disc", number("discNumber", "numberOfDiscs"));
}

} // namespace

struct VEKAudioFileWriter::Impl {
    // Settings.
    QString baseDirectory;
    QString baseFilename;
    QString existsAction;
    QString format;
    double sampleRate = 44100;
    quint32 channels = 2;
    quint32 bitDepth = 16;
    quint32 bitrate = 0;
    float quality = -1;
    QVariantMap metadata;
    quint64 expectedFrames = 0;

    // Open state.
    const FormatInfo *info = nullptr;
    quint32 bitsWritten = 0;
    QString finalPath;
    QString tempPath;
    QString stem;          // the result's name without extension, shortened to fit
    int tempLock = -1;     // holds a lock on tempPath while it is ours (see clearStaleParts)
    AVFormatContext *out = nullptr;
    AVCodecContext *encoder = nullptr;
    AVStream *stream = nullptr;
    SwrContext *swr = nullptr;
    AVAudioFifo *fifo = nullptr;
    AVFrame *frame = nullptr;
    AVPacket *packet = nullptr;
    int frameSize = 0;
    bool smallLastFrame = true;
    std::vector<uint8_t *> converted; // planes or one buffer, `convertedCapacity` frames
    int convertedCapacity = 0;
    std::vector<float> silence;
    std::vector<const uint8_t *> inputs;
    int64_t nextPts = 0;
    quint64 written = 0;
    std::atomic<float> progress{0.0f};
    QStringList results;

    ~Impl() { release(); }

    void release()
    {
        if (!converted.empty())
            av_freep(&converted[0]);
        converted.clear();
        convertedCapacity = 0;
        av_audio_fifo_free(fifo);
        fifo = nullptr;
        swr_free(&swr);
        av_frame_free(&frame);
        av_packet_free(&packet);
        avcodec_free_context(&encoder);
        if (out) {
            if (out->pb)
                avio_closep(&out->pb);
            avformat_free_context(out);
            out = nullptr;
        }
        stream = nullptr;
    }

    bool fail(VEKError *error, ErrorCode code, const char *description, const QString &detail)
    {
        const QString where =
            VEKPaths::readable(finalPath.isEmpty() ? QDir(baseDirectory).filePath(baseFilename) : finalPath);
        VEKError::set(error, VEKError(kDomain, code, VEKLocalizedString(description),
                                      detail.isEmpty() ? where : where + QStringLiteral(": ") + detail));
        return false;
    }

    bool chooseNames(VEKError *error);
    bool lockTemp();
    bool giveFinalName(VEKError *error);
    bool startEncoder(VEKError *error);
    bool encodeFrames(bool flushAll, VEKError *error);
    bool sendFrame(AVFrame *f, VEKError *error);
    bool writeTags(VEKError *error);
    void removeFiles();
};

namespace {

// A file name may hold 255 bytes. The result's name keeps room for " 99999" and its extension,
// the hidden file for its own additions; names are cut at a character, never inside one.
constexpr int kNameMax = 255;

QString shortened(const QString &name, int maxBytes)
{
    QString result = name;
    while (!result.isEmpty() && VEKPaths::native(result).size() > maxBytes)
        result.chop(result.size() >= 2 && result.at(result.size() - 1).isLowSurrogate() ? 2 : 1);
    return result;
}

// ".<name>.<8 hex digits>.part.<extension>": the hidden files this writer makes.
const QRegularExpression &partNames()
{
    static const QRegularExpression pattern(QStringLiteral("^\\..+\\.[0-9a-f]{8}\\.part\\.[a-z0-9]+$"));
    return pattern;
}

} // namespace

bool VEKAudioFileWriter::Impl::lockTemp()
{
    if (tempLock >= 0)
        ::close(tempLock);
    tempLock = ::open(VEKPaths::native(tempPath).constData(), O_RDONLY | O_CLOEXEC);
    return tempLock >= 0 && ::flock(tempLock, LOCK_EX | LOCK_NB) == 0;
}

bool VEKAudioFileWriter::Impl::chooseNames(VEKError *error)
{
    const QDir dir(baseDirectory);
    struct stat folder {};
    if (baseDirectory.isEmpty() || !VEKPaths::stat(baseDirectory, &folder) || !S_ISDIR(folder.st_mode))
        return fail(error, CreateFailed, "Error_audioFileWrite", QStringLiteral("the folder does not exist"));
    const QString extension = QLatin1String(info->extension);
    const int extensionBytes = 1 + int(std::strlen(info->extension));
    stem = shortened(baseFilename, kNameMax - extensionBytes - (existsAction == QLatin1String("rename") ? 6 : 0));
    if (stem.isEmpty())
        return fail(error, CreateFailed, "Error_audioFileWrite", QStringLiteral("no file name"));
    // The result takes its name only when it is complete (giveFinalName), so a conversion that
    // is killed leaves nothing under a name of the user's.
    finalPath.clear();
    // Hidden files that a killed conversion left go when the next one starts in the folder.
    VEKAtomicFile::removeStale(baseDirectory, partNames());

    // The audio goes to a hidden file beside the result. Created like any new file (not 0600 as
    // QTemporaryFile would), so the result gets the permissions the user's umask gives.
    const QString hiddenStem = shortened(stem, kNameMax - 16 - extensionBytes);
    int lastErrno = 0;
    for (int attempt = 0; attempt < 100 && tempPath.isEmpty(); ++attempt) {
        const QString path = dir.absoluteFilePath(QStringLiteral(".%1.%2.part.%3")
                                                      .arg(hiddenStem)
                                                      .arg(QRandomGenerator::global()->generate(), 8, 16, QLatin1Char('0'))
                                                      .arg(extension));
        const int fd =
            ::open(VEKPaths::native(path).constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
        if (fd >= 0) {
            ::close(fd);
            tempPath = path;
            if (!lockTemp()) {
                lastErrno = errno;
                removeFiles();
            }
        } else if ((lastErrno = errno) != EEXIST) {
            break;
        }
    }
    if (tempPath.isEmpty()) {
        removeFiles();
        return fail(error, CreateFailed, "Error_audioFileWrite",
                    lastErrno == EACCES || lastErrno == EPERM || lastErrno == EROFS
                        ? QStringLiteral("the folder is not writable")
                        : QString::fromLocal8Bit(std::strerror(lastErrno)));
    }
    return true;
}

bool VEKAudioFileWriter::Impl::giveFinalName(VEKError *error)
{
    const QDir dir(baseDirectory);
    const QString extension = QLatin1Char('.') + QLatin1String(info->extension);
    const QByteArray from = VEKPaths::native(tempPath);
    if (existsAction != QLatin1String("rename")) {
        finalPath = dir.absoluteFilePath(stem + extension);
        if (std::rename(from.constData(), VEKPaths::native(finalPath).constData()) != 0)
            return fail(error, WriteFailed, "Error_audioFileWrite", QString::fromLocal8Bit(std::strerror(errno)));
        return true;
    }
    // "name.ext", "name 1.ext"...: the first free one, taken without replacing anything that
    // appeared meanwhile (another writer, in this process or another).
    for (int n = 0; n < 100000; ++n) {
        const QString path = dir.absoluteFilePath((n == 0 ? stem : QStringLiteral("%1 %2").arg(stem).arg(n)) + extension);
        const QByteArray to = VEKPaths::native(path);
        int rc = ::renameat2(AT_FDCWD, from.constData(), AT_FDCWD, to.constData(), RENAME_NOREPLACE);
        if (rc != 0 && (errno == EINVAL || errno == ENOSYS)) {
            // A filesystem without the flag: a hard link fails on a taken name as well.
            rc = ::link(from.constData(), to.constData());
            if (rc == 0)
                ::unlink(from.constData());
        }
        if (rc == 0) {
            finalPath = path;
            return true;
        }
        if (errno != EEXIST)
            return fail(error, WriteFailed, "Error_audioFileWrite", QString::fromLocal8Bit(std::strerror(errno)));
    }
    return fail(error, CreateFailed, "Error_audioFileWrite", QStringLiteral("no free name"));
}

bool VEKAudioFileWriter::Impl::startEncoder(VEKError *error)
{
    const int rate = static_cast<int>(sampleRate);
    const bool lossy = info->family == Family::AAC || info->family == Family::Vorbis;
    AVCodecID codecId = AV_CODEC_ID_NONE;
    const AVCodec *codec = nullptr;
    switch (info->family) {
    case Family::PCMBigEndian:
    case Family::PCMLittleEndian: codecId = pcmCodec(info->family, bitsWritten); break;
    case Family::AAC: codecId = AV_CODEC_ID_AAC; break;
    case Family::ALAC: codecId = AV_CODEC_ID_ALAC; break;
    case Family::FLAC: codecId = AV_CODEC_ID_FLAC; break;
    case Family::Vorbis: codec = avcodec_find_encoder_by_name("libvorbis"); break;
    }
    if (!codec)
        codec = avcodec_find_encoder(codecId);
    if (!codec)
        return fail(error, BadSettings, "Error_audioFileWriteFormat", QStringLiteral("no encoder for %1").arg(format));

    const QByteArray local = VEKPaths::native(tempPath);
    int rc = avformat_alloc_output_context2(&out, nullptr, info->muxer, local.constData());
    if (rc < 0 || !out)
        return fail(error, BadSettings, "Error_audioFileWriteFormat", ffmpegErrorText(rc));

    encoder = avcodec_alloc_context3(codec);
    frame = av_frame_alloc();
    packet = av_packet_alloc();
    if (!encoder || !frame || !packet)
        return fail(error, EncodeFailed, "Error_audioFileWrite", ffmpegErrorText(AVERROR(ENOMEM)));
    encoder->sample_rate = rate;
    av_channel_layout_default(&encoder->ch_layout, static_cast<int>(channels));
    encoder->sample_fmt = inputFormat(codec, bitsWritten, lossy);
    if (encoder->sample_fmt == AV_SAMPLE_FMT_NONE)
        return fail(error, BadSettings, "Error_audioFileWriteFormat", QStringLiteral("%1 bits").arg(bitsWritten));
    encoder->time_base = AVRational{1, rate};
    if (bitsWritten > 16 && bitsWritten <= 24)
        encoder->bits_per_raw_sample = 24;
    switch (info->family) {
    case Family::AAC: encoder->bit_rate = bitrate > 0 ? bitrate : 128000; break;
    case Family::Vorbis:
        if (quality >= 0) {
            // libvorbis reads a quality of 0 to 10 from here.
            encoder->flags |= AV_CODEC_FLAG_QSCALE;
            encoder->global_quality = static_cast<int>(std::lround(std::clamp(quality, 0.0f, 1.0f) * 10.0f * FF_QP2LAMBDA));
        } else {
            encoder->bit_rate = bitrate > 0 ? bitrate : 128000;
        }
        break;
    case Family::FLAC:
        // FLAC's usual levels 0 to 8; above 8 FFmpeg only searches harder.
        encoder->compression_level = quality >= 0 ? static_cast<int>(std::lround(std::clamp(quality, 0.0f, 1.0f) * 8.0f)) : 5;
        break;
    default: break;
    }
    if (out->oformat->flags & AVFMT_GLOBALHEADER)
        encoder->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;

    rc = avcodec_open2(encoder, codec, nullptr);
    if (rc < 0)
        return fail(error, BadSettings, "Error_audioFileWriteFormat",
                    QStringLiteral("%1 cannot be written with %2 channels at %3 Hz, %4 bits (%5)")
                        .arg(format)
                        .arg(channels)
                        .arg(rate)
                        .arg(bitsWritten)
                        .arg(ffmpegErrorText(rc)));

    stream = avformat_new_stream(out, nullptr);
    if (!stream)
        return fail(error, EncodeFailed, "Error_audioFileWrite", ffmpegErrorText(AVERROR(ENOMEM)));
    avcodec_parameters_from_context(stream->codecpar, encoder);
    stream->time_base = encoder->time_base;
    if (info->family == Family::PCMBigEndian || info->family == Family::PCMLittleEndian) {
        // So that a 24-bit file says 24 bits, not the 32 of its container word.
        stream->codecpar->bits_per_raw_sample = static_cast<int>(bitsWritten);
    }
    if (QLatin1String(info->muxer) == QLatin1String("caf"))
        putFFmpegMetadata(&out->metadata, metadata);

    rc = avio_open(&out->pb, local.constData(), AVIO_FLAG_WRITE);
    if (rc < 0)
        return fail(error, CreateFailed, "Error_audioFileWrite", ffmpegErrorText(rc));
    AVDictionary *options = nullptr;
    if (QLatin1String(info->muxer) == QLatin1String("ipod")) {
        // The edit list that trims AAC's priming and padding is kept in the movie's timescale;
        // FFmpeg's default of 1000 would round it to milliseconds.
        av_dict_set_int(&options, "movie_timescale", rate, 0);
    }
    if (QLatin1String(info->muxer) == QLatin1String("wav"))
        av_dict_set(&options, "rf64", "auto", 0); // a WAVE file past 4 GiB stays readable
    rc = avformat_write_header(out, &options);
    av_dict_free(&options);
    if (rc < 0)
        return fail(error, BadSettings, "Error_audioFileWriteFormat", ffmpegErrorText(rc));

    AVChannelLayout layout;
    av_channel_layout_default(&layout, static_cast<int>(channels));
    // Same rate and layout on both sides: only the sample format changes.
    rc = swr_alloc_set_opts2(&swr, &layout, encoder->sample_fmt, rate, &layout, AV_SAMPLE_FMT_FLTP, rate, 0, nullptr);
    av_channel_layout_uninit(&layout);
    if (rc < 0 || swr_init(swr) < 0)
        return fail(error, EncodeFailed, "Error_audioFileWrite", QStringLiteral("sample conversion"));

    const bool variable = codec->capabilities & AV_CODEC_CAP_VARIABLE_FRAME_SIZE;
    frameSize = encoder->frame_size > 0 && !variable ? encoder->frame_size : 4096;
    smallLastFrame = variable || (codec->capabilities & AV_CODEC_CAP_SMALL_LAST_FRAME);
    fifo = av_audio_fifo_alloc(encoder->sample_fmt, static_cast<int>(channels), frameSize * 2);
    if (!fifo)
        return fail(error, EncodeFailed, "Error_audioFileWrite", ffmpegErrorText(AVERROR(ENOMEM)));
    return true;
}

bool VEKAudioFileWriter::Impl::sendFrame(AVFrame *f, VEKError *error)
{
    int rc = avcodec_send_frame(encoder, f);
    if (rc < 0)
        return fail(error, EncodeFailed, "Error_audioFileWrite", ffmpegErrorText(rc));
    for (;;) {
        rc = avcodec_receive_packet(encoder, packet);
        if (rc == AVERROR(EAGAIN) || rc == AVERROR_EOF)
            return true;
        if (rc < 0)
            return fail(error, EncodeFailed, "Error_audioFileWrite", ffmpegErrorText(rc));
        av_packet_rescale_ts(packet, encoder->time_base, stream->time_base);
        packet->stream_index = stream->index;
        rc = av_interleaved_write_frame(out, packet);
        if (rc < 0)
            return fail(error, WriteFailed, "Error_audioFileWrite", ffmpegErrorText(rc));
    }
}

// Hands the FIFO's audio to the encoder in frames of its size; with `flushAll` the remainder
// too, as a short last frame (padded with silence for an encoder that can't take one).
bool VEKAudioFileWriter::Impl::encodeFrames(bool flushAll, VEKError *error)
{
    while (av_audio_fifo_size(fifo) >= frameSize || (flushAll && av_audio_fifo_size(fifo) > 0)) {
        const int available = av_audio_fifo_size(fifo);
        const int n = std::min(available, frameSize);
        const int size = n < frameSize && !smallLastFrame ? frameSize : n;
        av_frame_unref(frame);
        frame->nb_samples = size;
        frame->format = encoder->sample_fmt;
        frame->sample_rate = encoder->sample_rate;
        av_channel_layout_copy(&frame->ch_layout, &encoder->ch_layout);
        int rc = av_frame_get_buffer(frame, 0);
        if (rc < 0)
            return fail(error, EncodeFailed, "Error_audioFileWrite", ffmpegErrorText(rc));
        if (size > n)
            av_samples_set_silence(frame->extended_data, 0, size, static_cast<int>(channels), encoder->sample_fmt);
        if (av_audio_fifo_read(fifo, reinterpret_cast<void **>(frame->extended_data), n) < n)
            return fail(error, EncodeFailed, "Error_audioFileWrite", QStringLiteral("buffer"));
        frame->pts = nextPts;
        nextPts += n;
        if (!sendFrame(frame, error))
            return false;
    }
    return true;
}

bool VEKAudioFileWriter::Impl::writeTags(VEKError *error)
{
    if (QLatin1String(info->muxer) == QLatin1String("caf"))
        return true; // written by the muxer
    VEKAudioFileModifier modifier;
    if (!modifier.initWithURL(tempPath, error))
        return false;
    for (const QString &key : VEKTagFile::textKeys()) {
        const QVariant value = metadata.value(key);
        if (value.isValid() && !value.toString().trimmed().isEmpty())
            modifier.setValue(key, value.toString());
    }
    const QByteArray picture = metadata.value(QStringLiteral("imageData")).toByteArray();
    if (!picture.isEmpty())
        modifier.setImageData(picture);
    return modifier.commit(error);
}

void VEKAudioFileWriter::Impl::removeFiles()
{
    if (!tempPath.isEmpty())
        ::unlink(VEKPaths::native(tempPath).constData());
    if (tempLock >= 0)
        ::close(tempLock);
    tempLock = -1;
    tempPath.clear();
    finalPath.clear();
}

VEKAudioFileWriter::VEKAudioFileWriter() : d(std::make_unique<Impl>()) {}

VEKAudioFileWriter::~VEKAudioFileWriter()
{
    cancel();
}

const QStringList &VEKAudioFileWriter::formats()
{
    static const QStringList list = [] {
        QStringList names;
        for (const auto &f : kFormats)
            names << QLatin1String(f.name);
        return names;
    }();
    return list;
}

QString VEKAudioFileWriter::extensionForFormat(const QString &format)
{
    const FormatInfo *info = formatInfo(format);
    return info ? QLatin1String(info->extension) : QString();
}

quint32 VEKAudioFileWriter::bitDepthWritten(const QString &format, quint32 requested)
{
    const FormatInfo *info = formatInfo(format);
    if (!info || info->family == Family::AAC || info->family == Family::Vorbis)
        return 0;
    const quint32 bits = requested == 0 ? 16 : requested;
    if (info->family == Family::FLAC || info->family == Family::ALAC)
        return bits <= 16 ? 16 : 24;
    for (quint32 supported : {8u, 16u, 24u, 32u})
        if (bits <= supported)
            return supported;
    return 32;
}

void VEKAudioFileWriter::setBaseDirectory(const QString &directory) { d->baseDirectory = directory; }
void VEKAudioFileWriter::setBaseFilename(const QString &name) { d->baseFilename = name; }
void VEKAudioFileWriter::setExistsAction(const QString &action) { d->existsAction = action; }
void VEKAudioFileWriter::setFormat(const QString &format) { d->format = format; }
void VEKAudioFileWriter::setSampleRate(double rate) { d->sampleRate = rate; }
void VEKAudioFileWriter::setNumberOfChannels(quint32 channels) { d->channels = channels; }
void VEKAudioFileWriter::setBitDepth(quint32 bits) { d->bitDepth = bits; }
void VEKAudioFileWriter::setBitrate(quint32 bitsPerSecond) { d->bitrate = bitsPerSecond; }
void VEKAudioFileWriter::setQuality(float quality) { d->quality = quality; }
void VEKAudioFileWriter::setMetadata(const QVariantMap &metadata) { d->metadata = metadata; }
QVariantMap &VEKAudioFileWriter::metadata() { return d->metadata; }
void VEKAudioFileWriter::setExpectedFrames(quint64 frames) { d->expectedFrames = frames; }

const QString &VEKAudioFileWriter::baseDirectory() const { return d->baseDirectory; }
const QString &VEKAudioFileWriter::baseFilename() const { return d->baseFilename; }
const QString &VEKAudioFileWriter::existsAction() const { return d->existsAction; }
const QString &VEKAudioFileWriter::format() const { return d->format; }
double VEKAudioFileWriter::sampleRate() const { return d->sampleRate; }
quint32 VEKAudioFileWriter::numberOfChannels() const { return d->channels; }
quint32 VEKAudioFileWriter::bitDepth() const { return d->bitDepth; }
quint32 VEKAudioFileWriter::bitrate() const { return d->bitrate; }
float VEKAudioFileWriter::quality() const { return d->quality; }

bool VEKAudioFileWriter::open(VEKError *error)
{
    cancel();
    d->results.clear();
    d->written = 0;
    d->nextPts = 0;
    d->progress = 0.0f;
    d->info = formatInfo(d->format);
    if (!d->info)
        return d->fail(error, BadSettings, "Error_audioFileWriteFormat",
                       QStringLiteral("no such format: \"%1\"").arg(d->format));
    if (d->sampleRate < 1 || d->sampleRate > 1e6 || d->sampleRate != std::floor(d->sampleRate))
        return d->fail(error, BadSettings, "Error_audioFileWriteFormat",
                       QStringLiteral("sample rate %1").arg(d->sampleRate));
    if (d->channels == 0 || d->channels > 64)
        return d->fail(error, BadSettings, "Error_audioFileWriteFormat",
                       QStringLiteral("%1 channels").arg(d->channels));
    if (d->baseFilename.isEmpty() || d->baseFilename.contains(QLatin1Char('/')))
        return d->fail(error, BadSettings, "Error_audioFileWriteFormat", QStringLiteral("no file name"));
    d->bitsWritten = bitDepthWritten(d->format, d->bitDepth);
    if (const QString problem = capacityProblem(*d->info, quint32(d->sampleRate), d->channels); !problem.isEmpty())
        return d->fail(error, BadSettings, "Error_audioFileWriteFormat", problem);

    if (!d->chooseNames(error))
        return false;
    if (!d->startEncoder(error)) {
        d->release();
        d->removeFiles();
        return false;
    }
    return true;
}

bool VEKAudioFileWriter::write(const VEKAudioBufferList &list, VEKError *error)
{
    if (!d->out)
        return d->fail(error, NotOpen, "Error_audioFileWrite", QStringLiteral("not open"));
    const int n = static_cast<int>(list.frames());
    if (n == 0)
        return true;

    // Channels the list lacks are silence.
    d->inputs.resize(d->channels);
    for (quint32 c = 0; c < d->channels; ++c) {
        if (c < list.numberOfChannels()) {
            d->inputs[c] = reinterpret_cast<const uint8_t *>(list.channel(c));
        } else {
            if (d->silence.size() < size_t(n))
                d->silence.assign(size_t(n), 0.0f);
            d->inputs[c] = reinterpret_cast<const uint8_t *>(d->silence.data());
        }
    }
    if (n > d->convertedCapacity) {
        if (!d->converted.empty())
            av_freep(&d->converted[0]);
        const int planes = av_sample_fmt_is_planar(d->encoder->sample_fmt) ? static_cast<int>(d->channels) : 1;
        d->converted.assign(size_t(planes), nullptr);
        if (av_samples_alloc(d->converted.data(), nullptr, static_cast<int>(d->channels), n, d->encoder->sample_fmt, 0) < 0) {
            d->converted.clear();
            d->convertedCapacity = 0;
            d->fail(error, EncodeFailed, "Error_audioFileWrite", ffmpegErrorText(AVERROR(ENOMEM)));
            cancel();
            return false;
        }
        d->convertedCapacity = n;
    }
    const int done = swr_convert(d->swr, d->converted.data(), n, d->inputs.data(), n);
    if (done != n) {
        d->fail(error, EncodeFailed, "Error_audioFileWrite", QStringLiteral("sample conversion"));
        cancel();
        return false;
    }
    if (d->bitsWritten == 24 && av_get_bytes_per_sample(d->encoder->sample_fmt) == 4) {
        // The encoders keep the top 24 bits of each 32-bit word and drop the rest: round here,
        // so audio already at 24 bits passes unchanged and the rest is not biased down.
        const int planes = static_cast<int>(d->converted.size());
        const int perPlane = planes == 1 ? n * static_cast<int>(d->channels) : n;
        for (int p = 0; p < planes; ++p) {
            auto *s = reinterpret_cast<int32_t *>(d->converted[size_t(p)]);
            for (int i = 0; i < perPlane; ++i) {
                const int64_t rounded = (int64_t(s[i]) + 128) & ~int64_t(255);
                s[i] = static_cast<int32_t>(std::min<int64_t>(rounded, 0x7fffff00));
            }
        }
    }
    if (av_audio_fifo_write(d->fifo, reinterpret_cast<void **>(d->converted.data()), n) < n) {
        d->fail(error, EncodeFailed, "Error_audioFileWrite", ffmpegErrorText(AVERROR(ENOMEM)));
        cancel();
        return false;
    }
    if (!d->encodeFrames(false, error)) {
        cancel();
        return false;
    }
    d->written += quint64(n);
    if (d->expectedFrames > 0)
        d->progress = float(std::min(1.0, double(d->written) / double(d->expectedFrames)));
    return true;
}

bool VEKAudioFileWriter::finish(VEKError *error)
{
    if (!d->out)
        return d->fail(error, NotOpen, "Error_audioFileWrite", QStringLiteral("not open"));
    const auto failed = [&] {
        cancel();
        return false;
    };
    if (!d->encodeFrames(true, error) || !d->sendFrame(nullptr, error))
        return failed();
    int rc = av_write_trailer(d->out);
    if (rc < 0) {
        d->fail(error, WriteFailed, "Error_audioFileWrite", ffmpegErrorText(rc));
        return failed();
    }
    rc = avio_closep(&d->out->pb);
    d->release();
    if (rc < 0) {
        d->fail(error, WriteFailed, "Error_audioFileWrite", ffmpegErrorText(rc));
        return failed();
    }
    if (!d->writeTags(error))
        return failed();
    // The tags replaced the hidden file with a new one, which is locked anew; then it is synced
    // so the result never stands under its name with part of its contents.
    if (!d->lockTemp()) {
        d->fail(error, WriteFailed, "Error_audioFileWrite", QString::fromLocal8Bit(std::strerror(errno)));
        return failed();
    }
    QString why;
    if (!VEKAtomicFile::syncFile(d->tempLock, &why)) {
        d->fail(error, WriteFailed, "Error_audioFileWrite", why);
        return failed();
    }
    if (!d->giveFinalName(error))
        return failed();
    VEKAtomicFile::syncFolderOf(d->finalPath);
    d->results = QStringList{d->finalPath};
    ::close(d->tempLock);
    d->tempLock = -1;
    d->tempPath.clear();
    d->finalPath.clear();
    d->progress = 1.0f;
    return true;
}

void VEKAudioFileWriter::cancel()
{
    d->release();
    d->removeFiles();
}

bool VEKAudioFileWriter::isOpen() const { return d->out != nullptr; }
QStringList VEKAudioFileWriter::resultURLs() const { return d->results; }
quint64 VEKAudioFileWriter::framesWritten() const { return d->written; }
float VEKAudioFileWriter::progress() const { return d->progress; }
