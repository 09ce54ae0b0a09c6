#pragma once

// What the parts of VEKAudioFileReader share: probing (VEKAudioFileReaderProbing.cpp), sample
// decoding (VEKAudioFileReaderDecoding.cpp) and the public face (VEKAudioFileReader.cpp).
// Nothing outside the reader includes this.

#include "VEKAudioFileReader.h"
#include "VEKInMemoryFile.h"

#include <QString>

#include <memory>
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

namespace VEKAudioFileReaderParts {

inline const QString kDomain = QStringLiteral("VEKAudioFileReader");

enum ErrorCode {
    FileMissing = 1,
    OpenFailed = 2,
    NoAudio = 3,
    Damaged = 4,
    ReadFailed = 5,
    NotOpen = 6,
    NoAudioStream = int(VEKAudioFileReader::NoAudioStreamErrorCode),
};

QString ffmpegErrorText(int code);

} // namespace VEKAudioFileReaderParts

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
    std::unique_ptr<VEKInMemoryFile> memory;
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
