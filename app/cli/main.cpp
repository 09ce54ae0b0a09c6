#include "CliCommand.h"
#include "core/VEKPaths.h"

#include <QCoreApplication>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Quivera"));
    // From argv itself: Qt's own decoding would turn a file name that is not UTF-8 into another.
    QStringList args;
    for (int i = 1; i < argc; ++i)
        args.append(VEKPaths::fromNative(QByteArray(argv[i])));
    return cliMain(args);
}
