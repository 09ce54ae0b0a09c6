#include "CliCommand.h"

#include <QCoreApplication>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Quivera"));
    QStringList args = QCoreApplication::arguments();
    args.removeFirst();
    return cliMain(args);
}
