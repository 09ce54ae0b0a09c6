// Sample decoding: the reading position, seeking and the conversion to planar float. See
// VEKAudioFileReader::getAudio().

#include "VEKAudioFileReaderImpl.h"

#include <algorithm>
#include <cstring>

using namespace VEKAudioFileReaderParts;

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
            if (rc == AVERROR(EIO) || rc == AVERROR(ENOMEM)
                || (fmt->pb && fmt->pb->error < 0 && fmt->pb->error != AVERROR_EOF)) {
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
        if (swr_alloc_set_opts2(&swr, &layout, AV_SAMPLE_FMT_FLTP,
                                frame->sample_rate > 0 ? frame->sample_rate : int(sampleRate), &layout,
                                static_cast<AVSampleFormat>(frame->format),
                                frame->sample_rate > 0 ? frame->sample_rate : int(sampleRate), 0, nullptr)
                < 0
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
    const int converted =
        swr_convert(swr, planes.data(), samples, const_cast<const uint8_t **>(frame->extended_data), samples);
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
