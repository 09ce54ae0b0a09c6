#pragma once

#include <QString>
#include <functional>

// The program's log: one line per call, no levels, on standard error (the system log of a
// desktop session picks it up from there). Safe from any thread, but never from the render
// thread.
void VEKLog(const QString &line);

// Replaces where log lines go (tests capture them); an empty function restores standard error.
void VEKSetLogSink(std::function<void(const QString &)> sink);
