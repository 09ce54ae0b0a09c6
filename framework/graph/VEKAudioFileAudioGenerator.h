#pragma once

#include "VEKAudioFileReadAhead.h"
#include "VEKAudioProcessor.h"

#include <atomic>
#include <memory>

// Plays a file: what it renders is its file at the location of the conductor that times it
// (without a conductor, the file from the start or from the prepared location, running on).
// A decoder thread reads ahead; render() only copies from the ring and never waits: frames not
// decoded in time are silence, and so is everything without a file, past the file's end, or
// while the transport is stopped. No rate conversion happens here: the branch's converter meets
// the file's rate.
//
// Threads: main thread, except render(). setAudioFile() is for an uninitialised generator, or to
// clear one; prepareForPlaybackFromLocation() for one whose branch is not being pulled.
class VEKAudioFileAudioGenerator : public VEKAudioProcessor {
    Q_OBJECT
public:
    // Size of the ring, and how much prepareForPlaybackFromLocation() waits for.
    static constexpr double readAheadSeconds = 2.0;
    static constexpr double preparedSeconds = 0.75;

    using VEKAudioProcessor::VEKAudioProcessor;
    ~VEKAudioFileAudioGenerator() override;

    std::shared_ptr<VEKAudioFileReader> audioFile() const { return m_file; }
    // Retains `file` (may be null). While initialised, the decoder restarts on the new file.
    void setAudioFile(std::shared_ptr<VEKAudioFileReader> file);

    // Decodes from `seconds` on until the first render from there cannot run dry (or the file
    // ends); returns when it has, or after 5 seconds of a stuck disk. Without initialisation it
    // only remembers the location for initializeForRender().
    void prepareForPlaybackFromLocation(double seconds);

    // Ramp the output over one buffer when the transport starts and when it stops. Off by
    // default; set before the stream renders.
    bool antiClickOnStart() const { return m_antiClickOnStart.load(); }
    void setAntiClickOnStart(bool on) { m_antiClickOnStart.store(on); }
    bool antiClickOnStop() const { return m_antiClickOnStop.load(); }
    void setAntiClickOnStop(bool on) { m_antiClickOnStop.store(on); }

    bool initializeForRender(VEKError *error) override;
    bool reset(VEKError *error) override;
    bool uninitialize(VEKError *error) override;
    void render(VEKAudioBufferList &list, quint32 bus, const VEKAudioRenderInfo &info) override;

protected:
    std::atomic<bool> m_antiClickOnStart{false};
    std::atomic<bool> m_antiClickOnStop{false};

private:
    void startReadAhead();

    std::shared_ptr<VEKAudioFileReader> m_file;
    VEKAudioFileReadAhead m_readAhead;
    std::atomic<bool> m_playable{false};
    // Read by the render thread, which may be inside render() while the file is cleared.
    std::atomic<double> m_fileRate{0.0};
    quint64 m_startFrame = 0;

    // Render thread.
    quint64 m_next = 0;
    quint64 m_seenGeneration = ~quint64(0);
};
