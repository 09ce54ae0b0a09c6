// The front ends' tests draw real widgets: their binaries run on a QApplication, off screen
// unless the environment chose a display.

#include <QApplication>

namespace TestEnvironment {
QCoreApplication *makeApplication(int &argc, char **argv)
{
    if (qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    return new QApplication(argc, argv);
}
} // namespace TestEnvironment
