#pragma once

#include "VEKAudioProcessor.h"

class VEKAudioStream;

// The end of a stream: what pulls the graph. A stream has exactly one sink, which has no output
// connection. Two kinds: a real-time sink whose own thread pulls (the hardware processor), and an
// offline sink pulled to completion on the thread that starts the stream (a file writer).
//
// Threads: all of these on the stream's owning thread; the stream calls them in the order
// openSink, startSink, stopSink, closeSink (start and stop possibly repeated).
class VEKAudioSinkProcessor : public VEKAudioProcessor {
    Q_OBJECT
public:
    using VEKAudioProcessor::VEKAudioProcessor;

    // Opens what the sink writes to, asking for `requested`; sinkFormat() and framesPerBuffer()
    // then tell what it settled on. Called while the stream initialises, before any processor is
    // initialised, since the whole graph's format follows from it. False with `error` on failure.
    virtual bool openSink(const VEKAudioStreamFormat &requested, VEKError *error) = 0;
    // Harmless when not open.
    virtual void closeSink() = 0;
    virtual VEKAudioStreamFormat sinkFormat() const = 0;
    // The largest buffer the sink will pull; every processor is told it before it initialises.
    virtual quint32 framesPerBuffer() const = 0;

    // Starts pulling `stream` (through VEKAudioStream::renderCycle). A real-time sink returns at
    // once; an offline sink returns when it is finished, stopped or failed, and its result says
    // whether it finished or was stopped without failing.
    virtual bool startSink(VEKAudioStream *stream, VEKError *error) = 0;
    // A real-time sink stops its thread and returns when it has; an offline sink only asks its
    // loop to end (this one may come from another thread). Harmless when not started.
    virtual void stopSink() = 0;
    virtual bool pullsOnCallingThread() const = 0;

    bool rendersWhenDisabled() const override { return true; }
};
