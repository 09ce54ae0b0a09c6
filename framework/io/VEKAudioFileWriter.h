#pragma once

#include "core/VEKError.h"
#include "rt/VEKAudioBufferList.h"

#include <QString>
#include <QStringList>
#include <QVariantMap>
#include <QtGlobal>

#include <memory>

// Encodes float audio into a new file of one of the seven target formats, through FFmpeg's
// encoders and muxers, and tags it through TagLib when the audio is written. The engine under
// the conversion stream's file writer: that processor configures it, feeds it the converted
// (and already dithered) audio, and finishes or cancels it.
//
// Set up with the setters, then open(), write() as often as needed, and finish() or cancel().
// One thread drives a writer (the conversion runs on a thread of the operation queue);
// progress() alone may be read from any thread. A failed write() or finish() removes what was
// written, so a failure never leaves a partial file behind.
//
// The file is written under a hidden name in the target folder (".name.XXXXXXXX.part.ext"),
// synced, and takes its name only when finish() succeeds: with the exists-action "rename" the
// first free name at that moment, never replacing a file; otherwise an existing file of that
// name is replaced at the end, and stays as it was if the writing fails or is cancelled. A
// name too long for the system is shortened. Hidden files left by a writer that was killed are
// removed by the next open() in the same folder.
class VEKAudioFileWriter {
public:
    VEKAudioFileWriter();
    // Cancels an unfinished file.
    ~VEKAudioFileWriter();

    VEKAudioFileWriter(const VEKAudioFileWriter &) = delete;
    VEKAudioFileWriter &operator=(const VEKAudioFileWriter &) = delete;

    // "AIFF File", "WAVE File", "CAF File", "AAC Audio File", "Apple Lossless File",
    // "Ogg Vorbis Audio File", "FLAC Audio File".
    static const QStringList &formats();
    // "aif", "wav", "caf", "m4a", "m4a", "ogg", "flac"; a null string for another format.
    static QString extensionForFormat(const QString &format);
    // What a requested bit depth becomes in `format`: 0 means 16; PCM holds 8, 16, 24 and 32
    // bits, FLAC and Apple Lossless 16 and 24 (FFmpeg's encoders); others round up to the next
    // of these. 0 for the lossy formats.
    static quint32 bitDepthWritten(const QString &format, quint32 requested);

    // The folder of the result; it must exist.
    void setBaseDirectory(const QString &directory);
    // The result's name without extension; the extension follows from the format.
    void setBaseFilename(const QString &name);
    // "rename": when "name.ext" exists, write "name 1.ext", "name 2.ext"... instead.
    void setExistsAction(const QString &action);
    // One of formats().
    void setFormat(const QString &format);
    // Hertz, a whole number. No rate conversion happens here: the audio must have this rate.
    void setSampleRate(double rate);
    void setNumberOfChannels(quint32 channels);
    // Bits per sample for PCM and the lossless formats (see bitDepthWritten()).
    void setBitDepth(quint32 bits);
    // Bits per second for AAC (0 means 128000), and for Vorbis when no quality is set.
    void setBitrate(quint32 bitsPerSecond);
    // 0 to 1: Vorbis quality (variable bit rate, 1 best) and FLAC compression (1 smallest
    // file). Negative means none: Vorbis then uses the bit rate.
    void setQuality(float quality);
    // The reader's keys: "title", "artist", "album", "albumArtist", "composer", "genre",
    // "trackNumber", "numberOfTracks", "discNumber", "numberOfDiscs" as text, "imageData" as
    // the bytes of a JPEG or PNG picture. Written when the audio is finished. A CAF file gets
    // the text keys through FFmpeg, as TagLib can't write CAF, and no picture.
    void setMetadata(const QVariantMap &metadata);
    QVariantMap &metadata();
    // Frames the caller means to write, for progress(); 0 for unknown.
    void setExpectedFrames(quint64 frames);

    const QString &baseDirectory() const;
    const QString &baseFilename() const;
    const QString &existsAction() const;
    const QString &format() const;
    double sampleRate() const;
    quint32 numberOfChannels() const;
    quint32 bitDepth() const;
    quint32 bitrate() const;
    float quality() const;

    // Picks the file name and starts encoding. False with `error` filled for settings the
    // format can't take (an unknown format, a rate the encoder refuses, no channels), a folder
    // that is missing or not writable, or an encoder that fails to start; nothing is left on
    // disk then.
    bool open(VEKError *error = nullptr);
    // Encodes list.frames() frames of the list's first numberOfChannels() channels (missing
    // channels are silence). PCM and the lossless formats clip floats beyond ±1; AAC and Vorbis
    // code them as they are. False with `error` filled when encoding or the disk fails; the
    // writer is then cancelled.
    bool write(const VEKAudioBufferList &list, VEKError *error = nullptr);
    // Flushes the encoder, closes the file, writes the metadata and gives the file its name.
    // False with `error` filled on failure; the writer is then cancelled.
    bool finish(VEKError *error = nullptr);
    // Stops and removes what was written (and the reserved name). Harmless when not open.
    void cancel();

    bool isOpen() const;
    // The file written, after a successful finish(); empty before.
    QStringList resultURLs() const;
    // Frames handed to write() since open().
    quint64 framesWritten() const;
    // framesWritten() against setExpectedFrames(), 0 to 1; 1 after finish(). Any thread.
    float progress() const;

private:
    struct Impl;
    std::unique_ptr<Impl> d;
};
