#pragma once

// Header only: just the test binaries that link Qt Network include it.

#include "Processes.h"

#include <QTcpSocket>

namespace TestEnvironment {

// Whether a TCP connection to `port` on loopback gets established (the server may drop it
// right after).
inline bool connects(quint16 port)
{
    QTcpSocket s;
    bool connected = false;
    QObject::connect(&s, &QTcpSocket::connected, [&] { connected = true; });
    s.connectToHost(QHostAddress::LocalHost, port);
    waitUntil([&] { return connected || s.state() == QAbstractSocket::UnconnectedState; }, 5000);
    return connected;
}

} // namespace TestEnvironment
