#pragma once

#include <QString>

// What the program says of itself.
namespace Application {
inline QString code() { return QStringLiteral("QV"); }
inline QString identifier() { return QStringLiteral("org.quivera.Quivera"); }
inline QString version() { return QStringLiteral("1.5.2"); }
constexpr int majorVersion = 1;
constexpr int minorVersion = 5;
constexpr bool isBetaVersion = false;
} // namespace Application
