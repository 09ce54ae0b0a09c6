#include "RemoteTestSupport.h"

namespace RemoteTestSupport {

QString clientScript()
{
    return QStringLiteral(QUIVERA_SOURCE_DIR "/tests/remote/remote_client.py");
}

int runClient(const QStringList &args, QByteArray *output, int timeoutMs)
{
    return runServing(QStringLiteral("python3"), QStringList{clientScript()} + args, output, timeoutMs);
}

} // namespace RemoteTestSupport
