#pragma once

#include "core/VEKError.h"
#include "outputs/VEKAudioOutput.h"

#include <QString>
#include <atomic>
#include <vector>

// Writes interleaved little-endian samples into a WAV file: 16-bit PCM in the classic header,
// wider words, float and more than two channels in the extensible one with its fact chunk, as
// readers expect. The header's sizes are right after every finish(); between two, the file is a
// valid WAV of what finish() last saw.
//
// open(), finish() and close() belong to one thread (the output's owner); append() to one other
// thread at a time (the render thread), never while finish() runs.
class VEKWaveFileWriter {
public:
    VEKWaveFileWriter() = default;
    ~VEKWaveFileWriter() { close(); }
    VEKWaveFileWriter(const VEKWaveFileWriter &) = delete;
    VEKWaveFileWriter &operator=(const VEKWaveFileWriter &) = delete;

    // Creates or empties `path` and writes the header for `format` (bitDepth 16, 24 or 32, or
    // float). False with `error` when the file can't be made.
    bool open(const QString &path, const VEKAudioFormat &format, VEKError *error);
    // Adds samples. Copies into a buffer made by open() and writes it out when full: no
    // allocation. A failing write is remembered and reported by finish(), and nothing is
    // written after it.
    void append(const void *bytes, size_t size);
    // Writes out what is buffered and the sizes into the header, and syncs the file. False with
    // `error` if any write since open() failed.
    bool finish(VEKError *error);
    // Finishes (errors are dropped) and closes; harmless when closed.
    void close();

    bool isOpen() const { return m_fd >= 0; }

    // Cuts a closed WAV file of ours down to its first `frames` frames (a render that knows where
    // its audio ended only after it has run on). Fewer frames in the file leave it as it is.
    // False with `error` when it is not such a file or can't be written.
    static bool truncateFile(const QString &path, quint64 frames, VEKError *error);
    // Whether a closed WAV file of ours holds `frames` whole frames on disk and its header says
    // so: false with `error` when a write fell short (a full disk), which the header, counting
    // every frame handed to append(), then claims more than the file has.
    static bool holdsFrames(const QString &path, quint64 frames, VEKError *error);
    quint64 dataBytes() const { return m_dataBytes; }

private:
    void flush();
    void writeAt(quint64 offset, const void *bytes, size_t size);

    QString m_path;
    int m_fd = -1;
    quint32 m_headerBytes = 0;
    quint32 m_factOffset = 0;
    quint32 m_blockAlign = 1;
    quint64 m_dataBytes = 0; // handed to the file (not counting what waits in m_buffer)
    std::vector<char> m_buffer;
    size_t m_buffered = 0;
    std::atomic<int> m_errno{0};
};
