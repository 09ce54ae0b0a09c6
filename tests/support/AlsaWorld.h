#pragma once

#include <QString>

// ALSA configurations of the tests' own, over the test sound card module (target
// quivera_test_alsa): real ALSA with no card, files instead of speakers.
namespace AlsaWorld {

// A test card `name` taking `rates` ("44100 48000") and `formats` ("\"S16_LE\""), with `extra`
// lines ("  paced true\n", "  file \"...\"\n") and a hint that lists it among the devices.
QString card(const QString &name, const QString &rates, const QString &formats, const QString &extra = {},
             const QString &hint = {});
// A `file` PCM over `slave` writing the bytes it gets to DIR/STEM-RATE-CHANNELS-BITS.raw.
QString filePCM(const QString &name, const QString &slave, const QString &dir, const QString &stem,
                const QString &hint = {});
// Writes the card module's types and `pcms` into DIR/asound.conf and points ALSA_CONFIG_PATH at
// it. Returns the file's path, empty when it could not be written.
QString install(const QString &dir, const QString &module, const QString &pcms);

} // namespace AlsaWorld
