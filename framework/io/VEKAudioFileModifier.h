#pragma once

#include "core/VEKError.h"

#include <QString>
#include <QVariant>

#include <memory>

// Writes tags into an audio file through TagLib. Changes are collected with setValue() and
// written together by commit(), so a file is rewritten at most once per edit.
class VEKAudioFileModifier {
public:
    VEKAudioFileModifier();
    ~VEKAudioFileModifier();

    VEKAudioFileModifier(const VEKAudioFileModifier &) = delete;
    VEKAudioFileModifier &operator=(const VEKAudioFileModifier &) = delete;

    // False with `error` filled when the file is missing, cannot be opened for writing, or is
    // of a kind TagLib knows but cannot parse. A file of a kind TagLib cannot tag at all (CAF)
    // opens, supports no key, and fails at commit().
    bool initWithURL(const QString &path, VEKError *error = nullptr);

    static std::unique_ptr<VEKAudioFileModifier> open(const QString &path, VEKError *error = nullptr);

    // "title", "artist", "album", "albumArtist", "composer", "genre", "trackNumber",
    // "numberOfTracks", "discNumber", "numberOfDiscs", where the file's kind can hold tags.
    bool supportsKey(const QString &key) const;

    // Records a pending change. A null or invalid value or an empty text clears the tag.
    // Unknown keys are ignored (callers pass "track" and "disc" along with the split values).
    // A combined "3/12" for trackNumber or discNumber sets the total as well.
    void setValue(const QString &key, const QVariant &value);

    // Records a new embedded picture (the image file's bytes, JPEG or PNG), replacing the
    // pictures the file has; an empty one removes them. Written by commit() with the tags.
    void setImageData(const QByteArray &data);

    // Writes the pending changes. Nothing pending is success without touching the file.
    bool commit(VEKError *error = nullptr);

private:
    struct Impl;
    std::unique_ptr<Impl> d;
};
