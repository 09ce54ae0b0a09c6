#pragma once

#include "outputs/VEKAudioOutput.h"
#include "support/Processes.h"

#include <QByteArray>
#include <QString>

#include <vector>

// The output tests' world: an ALSA configuration of their own (no card needed) and signals whose
// expected bytes are built from integers, independently of the code under test.
namespace OutputTestSupport {

// Writes the test ALSA configuration (once) and points ALSA_CONFIG_PATH at it. Its PCMs:
//   default, anyformat   `file` over `null`: any rate and format, bytes into files named with
//                        %r-%c-%b ("any-44100-2-32.raw")
//   file16, file24, file24in32   `file` PCMs over test cards that take only S16_LE, S24_3LE and
//                        S16_LE, S24_LE and S16_LE ("file16-44100-2-16.raw", ...)
//   card44               test card: 44100 and 96000 Hz, S16_LE and S24_3LE, into card44.raw
//   paced                test card in real time: 48000 Hz, S16_LE, into paced.raw
//   floatcard            test card: 48000 Hz, FLOAT_LE and S16_LE, into float.raw
//   hw:CARD=X,DEV=n      test card "X": 44100 and 88200 Hz, S16_LE and S24_3LE, into hw-X-n.raw
//   plughw:CARD=X,DEV=n  ALSA's plug over it; its mixer has "Headphone" and "Speaker" switches
// Hinted (listed by outputDevices): default, anyformat, file16, card44.
void installALSAConfiguration();
// Where the PCMs write.
QString alsaDir();
using TestEnvironment::readFile;
// "RATE FORMAT CHANNELS" as the test card saw its hardware parameters.
QString cardParams(const QString &rawPath);

// A deterministic signal on the integer grid of `bits` (16 or 24): interleaved integer values,
// full scale at both ends included, and the same as floats per channel.
struct GridSignal {
    quint32 channels = 2;
    quint32 frames = 0;
    std::vector<qint32> values;             // interleaved
    std::vector<std::vector<float>> planes; // per channel, value / 2^(bits-1)
};
GridSignal gridSignal(quint32 bits, quint32 channels, quint32 frames, quint32 seed = 1);

// Little-endian words of `values` each shifted left by `shift`, `bytes` bytes a word.
QByteArray packInts(const std::vector<qint32> &values, int shift, int bytes);

// Starts `output` with a callback that plays `planes` and then silence, waits until every frame
// has been asked for, and stops. Fails the test after `timeoutMs`. Returns the seconds from
// start() until the last frame of the signal was asked for.
double play(VEKAudioOutput &output, const std::vector<std::vector<float>> &planes, int timeoutMs = 20000);

} // namespace OutputTestSupport
