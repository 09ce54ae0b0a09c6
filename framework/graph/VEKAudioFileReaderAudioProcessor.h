#pragma once

#include "VEKAudioProcessor.h"
#include "io/VEKAudioFileReader.h"

#include <memory>

// The source of a conversion stream (identifier "reader"): renders its file from the start
// frame on at the file's own rate, and silence past the end. Unlike the player's generator it
// has no read-ahead thread: it reads with getAudio() inside render(), which only an offline
// stream allows (VEKAudioRenderInfo::offline), since that may wait on the disk. In a real-time
// stream it renders silence and does not advance.
//
// A read error leaves the rest of the file silent; readFailed() then says so, and the owner
// of the conversion reports it after the stream ends.
//
// Threads: main thread (the conversion's thread), except render(). setAudioFile() and
// setStartFrame() only while the stream is not rendering.
class VEKAudioFileReaderAudioProcessor : public VEKAudioProcessor {
    Q_OBJECT
public:
    using VEKAudioProcessor::VEKAudioProcessor;
    ~VEKAudioFileReaderAudioProcessor() override;

    std::shared_ptr<VEKAudioFileReader> audioFile() const { return m_file; }
    // Retains `file` (may be null: silence); rendering starts again from the start frame.
    void setAudioFile(std::shared_ptr<VEKAudioFileReader> file);

    // The first frame rendered (0 by default); setStartLocation() takes seconds at the file's
    // rate. Rendering starts again from there.
    quint64 startFrame() const { return m_startFrame; }
    void setStartFrame(quint64 frame);
    void setStartLocation(double seconds);

    // The next frame of the file that render() hands out.
    quint64 position() const { return m_position; }
    bool readFailed() const { return m_failed; }

    // Prepares the decoding buffer for the output connection's width and rewinds.
    bool initializeForRender(VEKError *error) override;
    // Back to the start frame.
    bool reset(VEKError *error) override;
    bool uninitialize(VEKError *error) override;
    void render(VEKAudioBufferList &list, quint32 bus, const VEKAudioRenderInfo &info) override;

private:
    void rewind();

    std::shared_ptr<VEKAudioFileReader> m_file;
    quint64 m_startFrame = 0;
    // Decoded frames not yet handed out: frames [m_bufferStart, m_bufferStart + m_buffer.frames())
    // of the file, getAudio() filling up to the buffer's capacity at a time.
    VEKAudioBufferList m_buffer;
    quint64 m_bufferStart = 0;
    quint64 m_position = 0;
    bool m_atEnd = false;
    bool m_failed = false;
};
