#pragma once

#include "VEKOfflineSinkAudioProcessor.h"
#include "io/VEKAudioFileWriter.h"

#include <QStringList>
#include <QVariantMap>

class Operation;

// The sink of a conversion stream (identifier "writer"): encodes exactly the range it is given
// into a new file through VEKAudioFileWriter. The stream runs at the writer's sample rate and
// channel count (setSampleRate, setNumberOfChannels; 0 takes the stream's), so the range's
// length in seconds times that rate is the number of frames written, rounded to the nearest.
//
// The file appears under its name only when the whole range is written (start() returns true
// and resultURLs() names it). A cancelled operation stops the stream after the buffer under
// way: start() then returns true, and nothing is left on disk. A failure of the encoder or the
// disk fails start() with the writer's error, again leaving nothing behind.
//
// Threads: all on the conversion's thread; progress() from any thread.
//
// Settings (besides the offline sink's): "format", "bitDepth", "bitrate", "quality",
// "existsAction", "baseFilename", "baseDirectory".
class VEKAudioFileWriterAudioProcessor : public VEKOfflineSinkAudioProcessor {
    Q_OBJECT
public:
    using VEKOfflineSinkAudioProcessor::VEKOfflineSinkAudioProcessor;
    ~VEKAudioFileWriterAudioProcessor() override;

    // The operation whose cancellation ends the stream; may be null.
    void setOperation(Operation *operation) { m_operation = operation; }
    Operation *operation() const { return m_operation; }

    void setBaseDirectory(const QString &directory) { m_writer.setBaseDirectory(directory); }
    void setBaseFilename(const QString &name) { m_writer.setBaseFilename(name); }
    // "rename": an existing file of the name is kept and the result gets a new one.
    void setExistsAction(const QString &action) { m_writer.setExistsAction(action); }
    // The part of the source to write, in seconds. Its length must be positive before open; it
    // fixes how many frames are written. The location is kept for the one who sets up the
    // stream: the reader is told where to start (VEKAudioFileReaderAudioProcessor).
    void setRange(double location, double length);
    double rangeLocation() const { return m_location; }
    double rangeLength() const { return m_length; }
    // One of VEKAudioFileWriter::formats().
    void setFormat(const QString &format) { m_writer.setFormat(format); }
    // These hide the offline sink's own: they set what the stream runs at and what is written.
    void setSampleRate(double rate);
    void setNumberOfChannels(quint32 channels);
    void setBitDepth(quint32 bits) { m_writer.setBitDepth(bits); }
    void setBitrate(quint32 bitsPerSecond) { m_writer.setBitrate(bitsPerSecond); }
    void setQuality(float quality) { m_writer.setQuality(quality); }
    // Tags written into the result (the reader's keys).
    QVariantMap &metadata() { return m_writer.metadata(); }

    // 0 to 1; 1 once the file is finished.
    float progress() const { return m_writer.progress(); }
    // The file written, after the stream finished; empty before, after a cancellation or failure.
    QStringList resultURLs() const { return m_writer.resultURLs(); }
    // The frames the range comes to at the stream's rate; valid while open.
    quint64 totalFrames() const { return m_total; }
    quint64 framesWritten() const { return m_written; }
    bool wasCancelled() const { return m_cancelled; }
    // The engine, for what this processor does not forward.
    const VEKAudioFileWriter &writer() const { return m_writer; }

    // Opens the file for the stream's format. False with `error` for an empty range, or when the
    // writer cannot open (VEKAudioFileWriter::open()).
    bool openSink(const VEKAudioStreamFormat &requested, VEKError *error) override;
    // Removes an unfinished file.
    void closeSink() override;
    bool startSink(VEKAudioStream *stream, VEKError *error) override;

    QVariantMap settings() const override;
    bool setSettings(const QVariantMap &settings, VEKError *error) override;

protected:
    quint32 framesToRenderNext() const override;
    bool consumeRenderedAudio(const VEKAudioBufferList &audio, VEKError *error) override;
    bool isFinished() const override;

private:
    bool cancellationRequested() const;

    VEKAudioFileWriter m_writer;
    Operation *m_operation = nullptr;
    double m_location = 0.0;
    double m_length = 0.0;
    quint64 m_total = 0;
    quint64 m_written = 0;
    bool m_cancelled = false;
};
