#include "VEKPaths.h"

#include "VEKLocalizedString.h"

#include <QDir>
#include <QFileInfo>
#include <sys/stat.h>

namespace {
QString xdgDirectory(const char *variable, const char *fallback, VEKError *error)
{
    QString base = qEnvironmentVariable(variable);
    if (base.isEmpty() || !QDir::isAbsolutePath(base))
        base = QDir::homePath() + QLatin1String(fallback);
    const QString dir = base + QStringLiteral("/Quivera");
    if (!QDir().mkpath(dir)) {
        VEKError::set(error, VEKError(QStringLiteral("VEKPaths"), 1,
                                      VEKLocalizedString("Error_supportFolder"), dir));
        return {};
    }
    return dir;
}
}

QString VEKPaths::supportDirectory(VEKError *error)
{
    return xdgDirectory("XDG_DATA_HOME", "/.local/share", error);
}

QString VEKPaths::configDirectory(VEKError *error)
{
    return xdgDirectory("XDG_CONFIG_HOME", "/.config", error);
}

bool VEKPaths::existsAsFile(const QString &path)
{
    // stat() directly: this runs once per song at every launch.
    struct stat st;
    const QByteArray local = QFile::encodeName(path);
    return !local.isEmpty() && ::stat(local.constData(), &st) == 0 && S_ISREG(st.st_mode);
}

QString VEKPaths::filename(const QString &path)
{
    return QFileInfo(path).completeBaseName();
}
