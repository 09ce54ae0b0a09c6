#pragma once

#include "core/VEKError.h"
#include "rt/VEKAudioBufferList.h"

#include <QString>
#include <QVariantMap>
#include <QtGlobal>

#include <memory>

// An open audio file: its format, its exact length and its tags. FFmpeg gives the facts,
// TagLib the tags (FFmpeg's own metadata stands in for files TagLib cannot read).
//
// The demuxer stays open for the life of the reader for sample decoding. A reader belongs to one
// thread at a time; separate readers on separate threads are independent.
class VEKAudioFileReader {
public:
    VEKAudioFileReader();
    virtual ~VEKAudioFileReader();

    VEKAudioFileReader(const VEKAudioFileReader &) = delete;
    VEKAudioFileReader &operator=(const VEKAudioFileReader &) = delete;

    // Opens the file and reads its facts and tags. False with `error` filled when the file is
    // missing, not audio, or no stream can be decoded. A file whose end is missing (cut short
    // while copying) is refused as well, so a lossless length can be trusted.
    virtual bool initWithURL(const QString &path, VEKError *error = nullptr);
    // The error code of initWithURL when FFmpeg finds no audio stream at all: a format it does
    // not know (a text, a cue sheet) or one that holds none (a picture). A stream that is there
    // but cannot be decoded gives another code.
    static constexpr qint64 NoAudioStreamErrorCode = 7;

    static std::unique_ptr<VEKAudioFileReader> open(const QString &path, VEKError *error = nullptr);

    // The plain path as given, made absolute.
    const QString &URL() const;
    // "AIFF File", "FLAC Audio File", ...; a null string for a decodable file of another kind.
    const QString &format() const;
    // Seconds.
    double length() const;
    // Total sample frames, without encoder delay and padding where the file records them.
    quint64 frames() const;
    double sampleRate() const;
    quint32 numberOfChannels() const;
    // Bytes.
    quint64 fileSize() const;
    // Bits per second.
    quint64 bitrate() const;
    // Bits per sample of lossless and PCM formats; 0 for lossy ones.
    quint32 bitDepth() const;
    // "title", "artist", "album", "albumArtist", "composer", "genre", "trackNumber",
    // "numberOfTracks", "discNumber", "numberOfDiscs" as text and "imageData" as bytes (the
    // first embedded picture). A key is absent when the file has no such tag; a combined
    // track or disc number ("3/12") is kept as the file has it.
    const QVariantMap &metadata() const;

    // Decodes from `fromFrame` (counted from the first audible frame, encoder delay already
    // removed) into `list`: up to list.capacity() frames, de-interleaved to float, as many
    // channels as the list has (channels the file lacks are zeroed). Sets list.frames() to the
    // count delivered, fewer at the end of the file and 0 past it; from 0 to the end the counts
    // add up to frames(). Audio that ends before frames() (a damaged file) is completed with
    // silence. False with `error` filled only when the file can't be read any more (a system
    // read error, a file that changed underneath); list.frames() then tells what did arrive.
    //
    // Reading on from where the last call ended, or a short way ahead, decodes on without a
    // seek. Elsewhere the reader seeks: for lossless formats the same frame index always gives
    // the same samples, whatever was read before. For MP3 and Vorbis the samples after a seek
    // equal those of a read from the start as well; for AAC the position is exact but noise-
    // filled bands differ slightly (the decoder's noise generator does not restart).
    // Not for the render thread (it reads the disk and allocates); the generator's decoder
    // thread calls it.
    bool getAudio(VEKAudioBufferList &list, quint64 fromFrame, VEKError *error = nullptr);

    // Reads the whole file into memory; reading then no longer touches the disk. Keeps the
    // reading position. False with `error` filled when the file can't be read or doesn't fit
    // in memory; the reader then goes on reading from the disk.
    bool loadIntoMemory(VEKError *error = nullptr);

    // How many times reading has had to seek (for diagnostics and tests). Opening positions
    // the file near its end, so the first read from the start counts one.
    quint64 seekCount() const;

private:
    struct Impl;
    std::unique_ptr<Impl> d;
};
