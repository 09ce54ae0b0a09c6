#include "LV2Fixtures.h"

#include "support/TestEnvironment.h"

#include <QDir>
#include <QFile>
#include <cmath>
#include <gtest/gtest.h>

namespace LV2Fixtures {

void setUp()
{
    static bool done = false;
    if (done)
        return;
    done = true;
    const QString source = QStringLiteral(QUIVERA_SOURCE_DIR "/tests/framework/lv2/fixtures");
    const QString bundles = TestEnvironment::makeTempDir("lv2");
    const QString bundle = bundles + QStringLiteral("/quivera-test.lv2");
    QDir().mkpath(bundle);
    QByteArray output;
    const int rc = TestEnvironment::run("cc",
                                        {"-std=c99", "-shared", "-fPIC", "-O1", "-o",
                                         bundle + QStringLiteral("/quivera_test_plugins.so"),
                                         source + QStringLiteral("/quivera_test_plugins.c")},
                                        &output);
    ASSERT_EQ(rc, 0) << "the test plugins did not compile: " << output.constData();
    ASSERT_TRUE(QFile::copy(source + QStringLiteral("/manifest.ttl"), bundle + QStringLiteral("/manifest.ttl")));
    // Only the system's packaged bundles and ours: nothing from ~/.lv2 or /usr/local.
    qputenv("LV2_PATH", QFile::encodeName(QStringLiteral("/usr/lib/lv2:") + bundles));
}

std::vector<float> signal(size_t frames, int seed)
{
    std::vector<float> s(frames);
    for (size_t i = 0; i < frames; ++i)
        s[i] = 0.6f * float(std::sin(0.05 * double(i) * (seed + 1) + seed)) + 0.001f * float(seed);
    return s;
}

} // namespace LV2Fixtures
