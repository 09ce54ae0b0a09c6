#include "TestEnvironment.h"

#include <QCoreApplication>
#include <gtest/gtest.h>
#include <memory>

namespace TestEnvironment {
void setUpProcess();
void tearDownProcess();

// The application object of the test binary. A binary that tests widgets defines its own,
// making a QApplication; the others get this one.
__attribute__((weak)) QCoreApplication *makeApplication(int &argc, char **argv)
{
    return new QCoreApplication(argc, argv);
}
}

int main(int argc, char **argv)
{
    // Before anything reads the environment: isolate the user's folders.
    TestEnvironment::setUpProcess();
    std::unique_ptr<QCoreApplication> app(TestEnvironment::makeApplication(argc, argv));
    ::testing::InitGoogleTest(&argc, argv);
    const int rc = RUN_ALL_TESTS();
    TestEnvironment::tearDownProcess();
    return rc;
}
