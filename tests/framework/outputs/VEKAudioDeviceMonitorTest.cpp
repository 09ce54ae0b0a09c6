#include "outputs/VEKAudioDeviceMonitor.h"
#include "support/Processes.h"
#include "support/TestEnvironment.h"

#include <QDir>
#include <QSignalSpy>
#include <QTest>
#include <gtest/gtest.h>

namespace {

void touch(const QString &path)
{
    ASSERT_TRUE(TestEnvironment::writeFile(path, {}));
}

// A card arriving makes its folder of device nodes appear first (no card before), then several
// nodes at once; leaving removes them. Each is one change.
TEST(DeviceMonitor, TellsOnceWhenTheFirstCardArrivesAndWhenItLeaves)
{
    const QString root = TestEnvironment::makeTempDir("dev");
    const QString snd = root + QStringLiteral("/snd");
    VEKAudioDeviceMonitor monitor(snd, 100);
    QSignalSpy changed(&monitor, &VEKAudioDeviceMonitor::devicesChanged);
    // Other devices beside the card folder are no change.
    touch(root + QStringLiteral("/ttyUSB0"));
    QTest::qWait(300);

    ASSERT_TRUE(QDir().mkpath(snd));
    touch(snd + QStringLiteral("/controlC0"));
    touch(snd + QStringLiteral("/pcmC0D0p"));
    ASSERT_TRUE(changed.wait(3000));
    QTest::qWait(300);
    EXPECT_EQ(changed.count(), 1);

    touch(snd + QStringLiteral("/controlC1"));
    ASSERT_TRUE(changed.wait(3000));
    EXPECT_EQ(changed.count(), 2);

    ASSERT_TRUE(QDir(snd).removeRecursively());
    ASSERT_TRUE(changed.wait(3000));
    EXPECT_EQ(changed.count(), 3);

    // Back again after the folder was gone: still watched.
    ASSERT_TRUE(QDir().mkpath(snd));
    touch(snd + QStringLiteral("/controlC0"));
    ASSERT_TRUE(changed.wait(3000));
    EXPECT_EQ(changed.count(), 4);
}

} // namespace
