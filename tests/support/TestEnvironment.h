#pragma once

#include <QString>
#include <QStringList>
#include <QVariant>

// Helpers shared by every test binary. The test main (TestMain.cpp) points XDG_CONFIG_HOME,
// XDG_DATA_HOME and XDG_RUNTIME_DIR at a fresh temporary folder before any test runs, and
// creates a QCoreApplication, so no test can touch the user's own settings or library.
namespace TestEnvironment {

// The temporary root made for this test process.
QString root();

// A new empty folder below root(), unique per call.
QString makeTempDir(const QString &hint = QStringLiteral("t"));

// Empties the isolated config and data folders (the settings file, the library file).
void resetUserFolders();

// Runs a program to its end; returns its exit code (-1 if it could not start).
// Standard output and error land in `output` when given.
int run(const QString &program, const QStringList &args, QByteArray *output = nullptr,
        int timeoutMs = 120000);

// Makes an audio file with sox: `seconds` of a sine at `frequency` Hz. Extra arguments go
// before the output file (e.g. {"-b", "24"}). Fails the current test if sox fails.
QString makeSine(const QString &path, double seconds = 1.0, int rate = 44100, int channels = 2,
                 const QStringList &formatArgs = {}, double frequency = 440.0);

// Converts with ffmpeg: ffmpeg -y -i input <args> output. Fails the current test on error.
QString ffmpeg(const QString &input, const QString &output, const QStringList &args = {});

// Same values of the same types all the way down: an integer must not come back as a real.
void expectSame(const QVariant &expected, const QVariant &actual, const QString &at = QStringLiteral("root"));

} // namespace TestEnvironment

// Readable failure messages for Qt values.
#include <QJsonArray>
#include <QJsonDocument>
#include <ostream>
inline void PrintTo(const QString &s, std::ostream *os) { *os << '"' << s.toStdString() << '"'; }
inline void PrintTo(const QJsonArray &a, std::ostream *os)
{
    *os << QJsonDocument(a).toJson(QJsonDocument::Compact).toStdString();
}
