#pragma once

#include <QString>
#include <QtGlobal>

class QIODevice;

// What the first frame of an MP3 file says about its length. FFmpeg's own duration counts the
// encoder's delay and padding; the LAME tag records both, and FFmpeg's decoder drops exactly
// those samples, so subtracting them gives the count that decoding yields.
//
// The bytes are the file's, so anything may be in them: fields are read only where the input
// holds them, and a header that makes no sense is ignored (the defaults below).
class VEKMp3Header {
public:
    // The header of the file at `path`; the defaults when it can't be read.
    static VEKMp3Header read(const QString &path);
    // The header of the file in `device`, read from its start: ID3v2 tags are skipped, then the
    // first MPEG audio frame of layer III is looked for in the next 64 KiB.
    static VEKMp3Header read(QIODevice &device);

    quint64 frameCount = 0; // from a Xing/Info or VBRI header; 0 when there is none
    quint32 samplesPerFrame = 1152;
    bool hasLameTag = false;
    quint32 startPadding = 0;
    quint32 endPadding = 0;
};
