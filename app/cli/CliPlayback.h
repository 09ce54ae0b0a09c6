#pragma once

#include "CliSession.h"
#include "audio/Stream.h"

// What `play`, `render` and `serve` share: the launch with a stream, the choice of playlist and
// first song, and the loop that runs until the playlist ends or a signal arrives.
namespace CliPlayback {

// The device named by --device, or null with a message for a UID no device answers to.
VEKAudioDevicePtr deviceForUID(CliSession &session, const QString &uid);

// Makes the stream play `--playlist` (default: the library) from `--song` (default: its first
// song), paused at the start. False with a message on the session when there is nothing to play.
bool cue(CliSession &session, const QString &playlistID, const QString &songID);

// Runs the event loop until the playlist ends or SIGINT/SIGTERM. While it runs, `status` (if
// given) is called five times a second. Returns true when the playlist ended by itself.
bool runUntilEnd(CliSession &session, const std::function<void()> &status = {});

// After the playlist ended: waits, at most `timeoutMs`, until the output has played the last
// frame of it. The end is found on the way into the converter to the device's rate, whose
// filter still holds the end then, and the output may be blocks behind; stopping at once
// would throw that tail away.
void waitForPlayOut(Stream *stream, int timeoutMs);

// The status line of `play`: "Name  1:02 / 4:05  44.1 kHz 16-bit, bit-perfect". The format is
// left out while the device has none.
QString statusLine(const QString &name, double position, double length, const Stream::OutputFormat &format);

} // namespace CliPlayback
