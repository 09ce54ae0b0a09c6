#pragma once

#include <QString>

// A tmpfs of a few kilobytes mounted at a folder for the life of the object, to meet a full disk
// for real. Needs the right to mount (root); when it is missing, `available()` is false and
// `reason()` says why, so the test can skip with a message.
class SmallFilesystem {
public:
    SmallFilesystem(const QString &folder, qint64 bytes);
    ~SmallFilesystem();
    SmallFilesystem(const SmallFilesystem &) = delete;
    SmallFilesystem &operator=(const SmallFilesystem &) = delete;

    bool available() const { return m_mounted; }
    QString reason() const { return m_reason; }
    // Takes free blocks with a filler file until at most `leaveFree` bytes stay free (none by
    // default, so the next write meets ENOSPC).
    void fill(qint64 leaveFree = 0) const;

private:
    QString m_folder;
    bool m_mounted = false;
    QString m_reason;
};
