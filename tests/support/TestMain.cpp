#include "TestEnvironment.h"

#include <QCoreApplication>
#include <gtest/gtest.h>

namespace TestEnvironment {
void setUpProcess();
void tearDownProcess();
}

int main(int argc, char **argv)
{
    // Before anything reads the environment: isolate the user's folders.
    TestEnvironment::setUpProcess();
    QCoreApplication app(argc, argv);
    ::testing::InitGoogleTest(&argc, argv);
    const int rc = RUN_ALL_TESTS();
    TestEnvironment::tearDownProcess();
    return rc;
}
