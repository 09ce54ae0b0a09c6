#include "VEKFrameReader.h"

#include <algorithm>
#include <cstring>

qsizetype VEKFrameReader::feed(const char *data, qsizetype size)
{
    if (failed() || m_ready || size <= 0)
        return 0;
    qsizetype used = 0;
    if (m_headerFill < 4) {
        const qsizetype n = std::min<qsizetype>(4 - m_headerFill, size);
        std::memcpy(m_header + m_headerFill, data, size_t(n));
        m_headerFill += int(n);
        used += n;
        if (m_headerFill < 4)
            return used;
        m_length = (quint32(m_header[0]) << 24) | (quint32(m_header[1]) << 16)
                   | (quint32(m_header[2]) << 8) | quint32(m_header[3]);
        if (m_length > m_limit) {
            m_error = QStringLiteral("a frame of %1 bytes announced; at most %2 are accepted")
                          .arg(m_length)
                          .arg(m_limit);
            return used;
        }
        m_payload.clear();
    }
    const qsizetype missing = qsizetype(m_length) - m_payload.size();
    const qsizetype n = std::min(missing, size - used);
    if (n > 0) {
        m_payload.append(data + used, n);
        used += n;
    }
    if (m_payload.size() == qsizetype(m_length))
        m_ready = true;
    return used;
}

qsizetype VEKFrameReader::wanted() const
{
    if (failed() || m_ready)
        return 0;
    if (m_headerFill < 4)
        return 4 - m_headerFill;
    return qsizetype(m_length) - m_payload.size();
}

QByteArray VEKFrameReader::takeFrame()
{
    if (!m_ready)
        return {};
    QByteArray frame = std::move(m_payload);
    m_payload = QByteArray();
    m_ready = false;
    m_headerFill = 0;
    m_length = 0;
    return frame;
}
