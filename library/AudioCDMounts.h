#pragma once

#include <QByteArray>
#include <QString>
#include <QStringList>
#include <functional>

// Where the system shows the tracks of an audio CD as files. Such tracks never become songs:
// an import skips them without a word. Recognised are:
//   - file systems made for audio CDs: cdfs, and any type with "cdda" in its name (cddafs and
//     the FUSE ones);
//   - the desktop's GVfs mount, for entries below it whose first component starts with "cdda:"
//     (as /run/user/1000/gvfs/cdda:host=sr0/Track 1.wav);
//   - iso9660 and udf mounts of an optical drive (/dev/sr*, /dev/scd*, /dev/cdrom*) whose disc
//     carries audio tracks (an enhanced or mixed-mode CD).
class AudioCDMounts {
public:
    // Nothing is an audio CD.
    AudioCDMounts() = default;

    // From the process's mount table (/proc/self/mounts), read now. An unreadable table gives
    // an empty set. Any thread; may open the optical drives to read their tables of contents.
    static AudioCDMounts current();

    // From mount-table text in the /proc/self/mounts form (escapes such as \040 understood).
    // `hasAudioTracks` answers for an optical drive whether its disc has audio tracks.
    static AudioCDMounts fromMountTable(const QByteArray &table,
                                        const std::function<bool(const QString &device)> &hasAudioTracks);

    // Whether the absolute path lies on one of the audio CD mounts.
    bool contains(const QString &path) const;

    // The folders below which everything is an audio CD's, for messages and tests.
    QStringList roots() const { return m_roots; }
    // GVfs mounts, below which only "cdda:" entries are an audio CD's.
    QStringList gvfsRoots() const { return m_gvfsRoots; }

    // Reads the disc's table of contents through the CD-ROM interface; false when the device
    // does not open or answer, or every track is a data track.
    static bool deviceHasAudioTracks(const QString &device);

private:
    QStringList m_roots;
    QStringList m_gvfsRoots;
};
