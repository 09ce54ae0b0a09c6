#pragma once

#include "outputs/VEKClockedDevice.h"

// "capture:/path/file.wav[?options]": a device that writes what it plays into a WAV file, for
// tests and offline renders. Options, joined with '&':
//   fast        render as fast as the graph can (else paced in real time, like a card)
//   bits=N      16, 24 or 32-bit integer samples whatever the output is opened with
//   float       32-bit float samples likewise
// Each open() of an output starts the file anew; stop() and close() leave a finished WAV.
class VEKCaptureDevice final : public VEKClockedDevice {
public:
    static constexpr const char *prefix = "capture:";

    struct Options {
        QString path;
        bool fast = false;
        quint32 bits = 0; // 0: as opened
        bool isFloat = false;
        bool ok = false;  // the UID parsed
    };
    // Reads a capture UID; `ok` is false for anything malformed (no path, unknown option).
    static Options parse(const QString &uid);

    explicit VEKCaptureDevice(const QString &uid);

    // An absolute path in an existing folder, and options that parse.
    bool isValid() const override;
    QString title(VEKError *error = nullptr) const override;
    std::unique_ptr<VEKAudioOutput> createOutput() override;
    bool rendersInRealTime() const override { return !m_options.fast; }

private:
    const Options m_options;
};
