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
// The demuxer stays open for the life of the reader so that sample decoding can pick up
// where opening left off. A reader belongs to one thread at a time; separate readers on
// separate threads are independent.
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
    // channels as the list has. Sets list.frames() to the count delivered, fewer at the end of
    // the file and 0 past it. Sample-exact: the same frame index always gives the same samples,
    // whatever was read before. Not for the render thread (it may read the disk and allocate);
    // the generator's decoder thread calls it.
    bool getAudio(VEKAudioBufferList &list, quint64 fromFrame, VEKError *error = nullptr);

    // Reads the whole file into memory; reading then no longer touches the disk.
    bool loadIntoMemory(VEKError *error = nullptr);

private:
    struct Impl;
    std::unique_ptr<Impl> d;
};
