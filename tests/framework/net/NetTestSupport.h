#pragma once

#include "settings/VEKPropertyList.h"

#include <QByteArray>
#include <QJsonValue>
#include <QString>
#include <QStringList>
#include <QVariant>

#include <functional>

// Helpers of the network tests: an independent peer in Python (standard library only) and
// ways to wait for it while our side keeps its event loop running.
namespace NetTestSupport {

inline QVariant uid(quint64 v) { return QVariant::fromValue(VEKPlistUID{v}); }

// Same values of the same types all the way down: an integer must not come back as a real.
void expectSame(const QVariant &expected, const QVariant &actual, const QString &at = "root");

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

// Runs the event loop until `done` holds or `timeoutMs` passes; returns `done()`.
bool waitUntil(const std::function<bool()> &done, int timeoutMs = 10000);

// Runs any program as runTool does.
int runServing(const QString &program, const QStringList &args, QByteArray *output = nullptr,
               int timeoutMs = 60000);

} // namespace NetTestSupport
