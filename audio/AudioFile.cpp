#include "AudioFile.h"

#include "settings/UserDefaults.h"

bool AudioFile::initWithURL(const QString &path, VEKError *error)
{
    if (!VEKAudioFileReader::initWithURL(path, error))
        return false;
    if (UserDefaults::standard().boolForKey(QStringLiteral("loadIntoMemory")))
        loadIntoMemory(nullptr); // a file that won't fit plays from the disk all the same

    const quint64 total = frames();
    const double rate = sampleRate();
    m_startFrame = 0;
    m_endFrame = total;
    if (total > 0 && rate > 0) {
        VEKAudioBufferList buffer(numberOfChannels(), quint32(examinedSeconds * rate));
        quint64 start = VEKAudioBufferList::NotFound;
        if (getAudio(buffer, 0, nullptr))
            start = buffer.frameGreaterThanOrEqualToMagnitude(silenceThreshold, false);
        // A file shorter than the buffer is read whole both times: the tail starts at 0.
        buffer.setFrames(buffer.capacity());
        const quint64 tail = total > buffer.frames() ? total - buffer.frames() : 0;
        quint64 end = total;
        if (getAudio(buffer, tail, nullptr)) {
            const quint64 last = buffer.frameGreaterThanOrEqualToMagnitude(silenceThreshold, true);
            // Just after the last audible frame, so the transition loses none of it.
            if (last != VEKAudioBufferList::NotFound)
                end = tail + last + 1;
        }
        if (start != VEKAudioBufferList::NotFound && start < end)
            m_startFrame = start;
        m_endFrame = end;
    }
    const double r = rate > 0 ? rate : 1.0;
    m_playableRange = {double(m_startFrame) / r, double(m_endFrame - m_startFrame) / r};
    return true;
}

std::shared_ptr<AudioFile> AudioFile::open(const QString &path, VEKError *error)
{
    auto file = std::make_shared<AudioFile>();
    if (!file->initWithURL(path, error))
        return nullptr;
    return file;
}
