#pragma once

#include "io/VEKAudioFileReader.h"

// A stretch of a file in seconds: where it starts and how long it runs.
struct AudioFileRange {
    double location = 0.0;
    double length = 0.0;
    bool operator==(const AudioFileRange &) const = default;
};

// The file a player opens: a reader that also knows the playable range, the part between the
// silence at its two ends. Only the first and the last two seconds are looked at, against a
// threshold of -60 dB; the range starts at the first frame at or above it and ends just after
// the last such frame, so a gapless transition loses no audible sample. Silence that fills the
// whole first (last) two seconds is not trimmed at that end. A file with no silence at its ends
// plays every frame.
//
// Opening honours the setting `loadIntoMemory`. Main thread; the reader is then handed to a
// generator, which reads it on its decoder thread.
class AudioFile : public VEKAudioFileReader {
public:
    // -60 dB as a linear magnitude.
    static constexpr float silenceThreshold = 0.001f;
    static constexpr double examinedSeconds = 2.0;

    bool initWithURL(const QString &path, VEKError *error = nullptr) override;

    static std::shared_ptr<AudioFile> open(const QString &path, VEKError *error = nullptr);

    // Seconds; the whole file until initWithURL() found the ends.
    AudioFileRange playableRange() const { return m_playableRange; }
    void setPlayableRange(const AudioFileRange &range) { m_playableRange = range; }
    // The same in frames of the file: first audible frame and the frame after the last.
    quint64 playableStartFrame() const { return m_startFrame; }
    quint64 playableEndFrame() const { return m_endFrame; }

private:
    AudioFileRange m_playableRange;
    quint64 m_startFrame = 0;
    quint64 m_endFrame = 0;
};
