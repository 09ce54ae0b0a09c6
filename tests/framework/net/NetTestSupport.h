#pragma once

#include "settings/VEKPropertyList.h"
#include "support/Processes.h"
#include "support/TestEnvironment.h"

#include <QByteArray>
#include <QJsonValue>
#include <QString>
#include <QStringList>
#include <QVariant>

// Helpers of the network tests: an independent peer in Python (standard library only) and
// ways to wait for it while our side keeps its event loop running.
namespace NetTestSupport {

inline QVariant uid(quint64 v) { return QVariant::fromValue(VEKPlistUID{v}); }

// A frame on the wire: `payload` after its length, four bytes big-endian (which may claim more).
inline QByteArray frame(const QByteArray &payload, quint32 length)
{
    const char header[4] = {char(length >> 24), char(length >> 16), char(length >> 8), char(length)};
    return QByteArray(header, 4) + payload;
}
inline QByteArray frame(const QByteArray &payload)
{
    return frame(payload, quint32(payload.size()));
}

using TestEnvironment::expectSame;
using TestEnvironment::runServing;
using TestEnvironment::waitUntil;

// The Python tool, written once per test process. Its sub-commands:
//   decode FILE          prints the typed JSON (see fromTyped) of the archive in FILE
//   build DIR            writes hand-made archives DIR/NAME.archive and DIR/NAME.json
//   client PORT SCENARIO [ARG]   talks to our pipe over TCP; exit code 0 when all went as told
//                        (echo, giant LENGTH, truncated, garbage, notdict)
QString pythonTool();

// The tool's typed JSON: ["s", text], ["i", "digits"], ["r", "repr"], ["b", bool],
// ["x", "hex"], ["a", [...]], ["d", {...}].
QVariant fromTyped(const QJsonValue &value);

// Runs python3 with the tool and `args` while this thread's event loop keeps running (our
// server lives on it). Returns the exit code, -1 if it did not start or finish in time.
int runTool(const QStringList &args, QByteArray *output = nullptr, int timeoutMs = 60000);

// `bytes`, an archive of `value`, decoded by our reader and by Python's plistlib, each giving
// back `value` with its types.
void expectOursReadsBack(const QVariant &value, const QByteArray &bytes);
void expectPythonReadsBack(const QVariant &value, const QByteArray &bytes);

} // namespace NetTestSupport
