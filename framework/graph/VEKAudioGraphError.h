#pragma once

#include "core/VEKError.h"

#include <QString>

// Errors of the audio graph: building a stream from its description, initialising it, opening its
// output. The description (localised) names what went wrong; the reason carries the detail.
namespace VEKAudioGraphError {

inline constexpr char domain[] = "VEKAudioGraph";

enum Code : qint64 {
    UnknownClass = 1,        // a class name nobody registered
    MalformedDescription = 2, // a description entry of the wrong shape
    UnknownIdentifier = 3,   // a connection names a processor the description lacks
    DuplicateIdentifier = 4, // two entries share one identifier
    BadTopology = 5,         // fan-out, several inputs into a non-mixer, a cycle, no sink
    NoDevice = 6,            // the hardware processor has no device
    StreamNotStopped = 7,    // a change that needs a stopped, uninitialised stream
    OutputFailed = 8,        // the device or sink could not be opened or started
    InvalidArgument = 9,     // a setting out of range
    NotInitialized = 10,     // start without initialize
    ProcessorFailed = 11,    // a processor's initializeForRender failed without saying why
};

// An error whose description is the localised text of `key`, with `arg` in place of %1.
VEKError make(Code code, const char *key, const QString &arg = {}, const QString &reason = {});

} // namespace VEKAudioGraphError
