#include "VEKAudioFileReaderImpl.h"

#include "core/VEKLocalizedString.h"
#include "core/VEKPaths.h"

#include <QFileInfo>

#include <algorithm>
#include <cstring>
#include <mutex>
#include <sys/stat.h>

using namespace VEKAudioFileReaderParts;

QString VEKAudioFileReaderParts::ffmpegErrorText(int code)
{
    char text[AV_ERROR_MAX_STRING_SIZE] = {};
    av_strerror(code, text, sizeof text);
    return QString::fromUtf8(text);
}

namespace {

void silenceFFmpeg()
{
    static std::once_flag once;
    std::call_once(once, [] { av_log_set_level(AV_LOG_QUIET); });
}

} // namespace

VEKAudioFileReader::VEKAudioFileReader() : d(std::make_unique<Impl>()) {}

VEKAudioFileReader::~VEKAudioFileReader() = default;

bool VEKAudioFileReader::initWithURL(const QString &path, VEKError *error)
{
    silenceFFmpeg();
    d = std::make_unique<Impl>();
    const QString absolute = path.isEmpty() ? QString() : VEKPaths::absolute(path);
    d->url = absolute;

    if (absolute.isEmpty() || !VEKPaths::existsAsFile(absolute)) {
        VEKError::set(error, VEKError(kDomain, FileMissing, VEKLocalizedString("Error_audioFileOpen"),
                                      VEKPaths::readable(absolute) + QStringLiteral(": ")
                                          + VEKLocalizedString("Error_audioFileMissing")));
        return false;
    }
    struct stat st = {};
    d->fileSize = VEKPaths::stat(absolute, &st) ? static_cast<quint64>(st.st_size) : 0;
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

bool VEKAudioFileReader::getAudio(VEKAudioBufferList &list, quint64 fromFrame, VEKError *error)
{
    list.setFrames(0);
    const auto fail = [&](ErrorCode code, const QString &detail) {
        VEKError::set(error, VEKError(kDomain, code, VEKLocalizedString("Error_audioFileRead"),
                                      VEKPaths::readable(d->url) + QStringLiteral(": ") + detail));
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
                                      VEKPaths::readable(d->url) + QStringLiteral(": ") + detail));
        return false;
    };
    if (!d->fmt || !d->decoder)
        return fail(NotOpen, QStringLiteral("not open"));
    if (d->memory)
        return true;

    auto memory = std::make_unique<VEKInMemoryFile>();
    QString problem;
    if (!memory->load(d->url, &problem))
        return fail(ReadFailed, problem);

    // Where reading stands now is kept; the demuxer starts over on the copy.
    const bool wasPositioned = d->positioned;
    const quint64 at = d->cursor;
    d->memory = std::move(memory);
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
