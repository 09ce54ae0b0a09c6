#include "AlsaWorld.h"

#include "Processes.h"

#include <QFile>

namespace AlsaWorld {

QString card(const QString &name, const QString &rates, const QString &formats, const QString &extra,
             const QString &hint)
{
    QString s = QStringLiteral("pcm.%1 {\n  type quivera_test\n  rates [ %2 ]\n  formats [ %3 ]\n%4")
                    .arg(name, rates, formats, extra);
    if (!hint.isEmpty())
        s += QStringLiteral("  hint { show on description \"%1\" }\n").arg(hint);
    return s + QStringLiteral("}\n");
}

QString filePCM(const QString &name, const QString &slave, const QString &dir, const QString &stem,
                const QString &hint)
{
    QString s = QStringLiteral("pcm.%1 {\n  type file\n  slave.pcm \"%2\"\n  file \"%3/%4-%r-%c-%b.raw\"\n"
                               "  format \"raw\"\n")
                    .arg(name, slave, dir, stem);
    if (!hint.isEmpty())
        s += QStringLiteral("  hint { show on description \"%1\" }\n").arg(hint);
    return s + QStringLiteral("}\n");
}

QString install(const QString &dir, const QString &module, const QString &pcms)
{
    const QString path = dir + QStringLiteral("/asound.conf");
    const QString types =
        QStringLiteral("pcm_type.quivera_test { lib \"%1\" }\nctl_type.quivera_test { lib \"%1\" }\n").arg(module);
    if (!TestEnvironment::writeFile(path, (types + pcms).toUtf8()))
        return {};
    qputenv("ALSA_CONFIG_PATH", QFile::encodeName(path));
    return path;
}

} // namespace AlsaWorld
