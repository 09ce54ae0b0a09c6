#pragma once

#include "support/Processes.h"

#include <QByteArray>
#include <QString>
#include <QStringList>

// Helpers of the remote's tests: the Python client, run while our event loop keeps serving.
namespace RemoteTestSupport {

using TestEnvironment::PrivateAvahi;
using TestEnvironment::runServing;
using TestEnvironment::systemBusSocket;
using TestEnvironment::waitUntil;

// tests/remote/remote_client.py of the source tree.
QString clientScript();

// The Python client with `args`, as runServing runs it.
int runClient(const QStringList &args, QByteArray *output = nullptr, int timeoutMs = 60000);

} // namespace RemoteTestSupport
