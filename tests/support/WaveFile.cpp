#include "WaveFile.h"

#include "Processes.h"

#include <QtEndian>

WaveFile WaveFile::read(const QString &path)
{
    WaveFile w;
    const QByteArray f = TestEnvironment::readFile(path);
    w.fileSize = f.size();
    if (f.size() < 12 || !f.startsWith("RIFF") || f.mid(8, 4) != "WAVE")
        return w;
    w.isWave = true;
    w.riffSize = qFromLittleEndian<quint32>(f.constData() + 4);
    qsizetype at = 12;
    while (at + 8 <= f.size()) {
        const QByteArray id = f.mid(at, 4);
        const quint32 size = qFromLittleEndian<quint32>(f.constData() + at + 4);
        const char *body = f.constData() + at + 8;
        if (id == "fmt ") {
            w.tag = qFromLittleEndian<quint16>(body);
            w.channels = qFromLittleEndian<quint16>(body + 2);
            w.rate = qFromLittleEndian<quint32>(body + 4);
            w.bits = qFromLittleEndian<quint16>(body + 14);
            if (w.tag == 0xFFFE)
                w.tag = qFromLittleEndian<quint16>(body + 24);
        } else if (id == "data") {
            w.data = f.mid(at + 8, size);
            break;
        }
        at += 8 + qsizetype(size) + (size % 2);
    }
    return w;
}
