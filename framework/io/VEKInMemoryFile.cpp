#include "VEKInMemoryFile.h"

#include "core/VEKPaths.h"

#include <QFile>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <new>

extern "C" {
#include <libavformat/avio.h>
#include <libavutil/error.h>
}

bool VEKInMemoryFile::load(const QString &path, QString *problem)
{
    QFile file;
    if (!VEKPaths::open(file, path, QIODevice::ReadOnly)) {
        *problem = QString::fromLocal8Bit(std::strerror(errno));
        return false;
    }
    try {
        bytes.resize(static_cast<size_t>(file.size()));
    } catch (const std::bad_alloc &) {
        char text[AV_ERROR_MAX_STRING_SIZE] = {};
        av_strerror(AVERROR(ENOMEM), text, sizeof text);
        *problem = QString::fromUtf8(text);
        return false;
    }
    qint64 done = 0;
    while (done < file.size()) {
        const qint64 n = file.read(reinterpret_cast<char *>(bytes.data()) + done, file.size() - done);
        if (n <= 0) {
            *problem = file.errorString();
            return false;
        }
        done += n;
    }
    position = 0;
    return true;
}

int VEKInMemoryFile::read(void *opaque, uint8_t *buffer, int size)
{
    auto *m = static_cast<VEKInMemoryFile *>(opaque);
    const int64_t left = static_cast<int64_t>(m->bytes.size()) - m->position;
    if (left <= 0)
        return AVERROR_EOF;
    const int n = static_cast<int>(std::min<int64_t>(left, size));
    std::memcpy(buffer, m->bytes.data() + m->position, static_cast<size_t>(n));
    m->position += n;
    return n;
}

int64_t VEKInMemoryFile::seek(void *opaque, int64_t offset, int whence)
{
    auto *m = static_cast<VEKInMemoryFile *>(opaque);
    const int64_t size = static_cast<int64_t>(m->bytes.size());
    int64_t target = 0;
    switch (whence & ~AVSEEK_FORCE) {
    case AVSEEK_SIZE: return size;
    case SEEK_SET: target = offset; break;
    case SEEK_CUR: target = m->position + offset; break;
    case SEEK_END: target = size + offset; break;
    default: return AVERROR(EINVAL);
    }
    if (target < 0)
        return AVERROR(EINVAL);
    m->position = target;
    return target;
}
