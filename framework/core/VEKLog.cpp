#include "VEKLog.h"

#include <QMutex>
#include <cstdio>

namespace {
QMutex g_logMutex;
std::function<void(const QString &)> g_sink;
}

void VEKLog(const QString &line)
{
    QMutexLocker lock(&g_logMutex);
    if (g_sink) {
        g_sink(line);
        return;
    }
    const QByteArray bytes = (QStringLiteral("Quivera: ") + line + QLatin1Char('\n')).toUtf8();
    std::fwrite(bytes.constData(), 1, size_t(bytes.size()), stderr);
}

void VEKSetLogSink(std::function<void(const QString &)> sink)
{
    QMutexLocker lock(&g_logMutex);
    g_sink = std::move(sink);
}
