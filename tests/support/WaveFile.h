#pragma once

#include <QByteArray>
#include <QString>

// A WAV file read by walking its chunks, as any reader would, independently of our writer.
struct WaveFile {
    quint16 tag = 0; // the format tag; for WAVE_FORMAT_EXTENSIBLE its sub-format
    quint16 channels = 0;
    quint32 rate = 0;
    quint16 bits = 0;
    quint32 riffSize = 0;
    QByteArray data; // the data chunk, cut at the end of the file if the chunk says more
    qsizetype fileSize = 0;
    bool isWave = false;

    // Fails the test if the file cannot be read; isWave tells whether it is a WAV at all.
    static WaveFile read(const QString &path);
};
