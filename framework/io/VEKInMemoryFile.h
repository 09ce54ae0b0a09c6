#pragma once

#include <QString>

#include <cstdint>
#include <vector>

// A file held in memory, read by FFmpeg through AVIO callbacks instead of from the disk. The
// reader opens its demuxer on one after VEKAudioFileReader::loadIntoMemory().
class VEKInMemoryFile {
public:
    // Reads the whole file. False with `problem` set when it can't be read or doesn't fit in
    // memory.
    bool load(const QString &path, QString *problem);

    // The AVIO callbacks; `opaque` is the VEKInMemoryFile.
    static int read(void *opaque, uint8_t *buffer, int size);
    static int64_t seek(void *opaque, int64_t offset, int whence);

    std::vector<uint8_t> bytes;
    int64_t position = 0;
};
