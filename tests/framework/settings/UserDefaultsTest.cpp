#include "settings/UserDefaults.h"
#include "settings/VEKPropertyList.h"
#include "settings/VEKSettingRange.h"
#include "core/VEKLocalizedString.h"
#include "core/VEKLog.h"
#include "support/Processes.h"
#include "support/SmallFilesystem.h"
#include "support/TestEnvironment.h"

#include <QDir>
#include <QElapsedTimer>
#include <QFile>
#include <QTest>
#include <QUrl>
#include <atomic>
#include <cmath>
#include <gtest/gtest.h>
#include <thread>

namespace {

class UserDefaultsTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        dir = TestEnvironment::makeTempDir("defaults");
        file = dir + "/Preferences.plist";
        VEKSetLogSink([this](const QString &line) { log.append(line); });
    }
    void TearDown() override { VEKSetLogSink({}); }

    QVariantMap onDisk() const { return VEKPropertyList::readFile(file).toMap(); }

    QString dir;
    QString file;
    QStringList log;
};

// Counts valueChanged per key.
struct ChangeCounter {
    explicit ChangeCounter(UserDefaults &d)
    {
        QObject::connect(&d, &UserDefaults::valueChanged, [this](const QString &k) { keys << k; });
    }
    QStringList keys;
};

} // namespace

TEST_F(UserDefaultsTest, RegisteredDefaultsAreVisibleNeverWrittenAndComeBackOnRemoval)
{
    UserDefaults d(file);
    d.registerDefaults({{"volume", 0.5}, {"shuffle", true}, {"name", "Quivera"}});
    d.registerDefaults({{"rate", 44100}});
    EXPECT_DOUBLE_EQ(d.doubleForKey("volume"), 0.5);
    EXPECT_TRUE(d.boolForKey("shuffle"));
    EXPECT_EQ(d.integerForKey("rate"), 44100);
    EXPECT_EQ(d.stringForKey("name"), "Quivera");
    EXPECT_FALSE(d.value("absent").isValid());
    EXPECT_EQ(d.integerForKey("absent"), 0);

    d.setValue("volume", 0.25);
    EXPECT_TRUE(d.synchronize());
    EXPECT_EQ(onDisk(), (QVariantMap{{"volume", 0.25}}));
    EXPECT_EQ(d.allKeys(), (QStringList{"name", "rate", "shuffle", "volume"}));
    EXPECT_EQ(d.dictionaryRepresentation().value("volume").toDouble(), 0.25);

    d.removeValue("volume"); // back to the default, and gone from the file
    EXPECT_DOUBLE_EQ(d.doubleForKey("volume"), 0.5);
    d.synchronize();
    EXPECT_EQ(onDisk(), QVariantMap());
}

TEST_F(UserDefaultsTest, StoredValuesKeepTheirTypesAcrossANewStoreAndUnstorableOnesAreRefused)
{
    const QDateTime when(QDate(2021, 2, 3), QTime(4, 5, 6), Qt::UTC);
    {
        UserDefaults d(file);
        d.registerDefaults({{"count", 1}});
        d.setValue("count", 7);
        d.setValue("gain", 1.0);
        d.setValue("flag", true);
        d.setValue("list", QStringList{"a", "b"});
        d.setValue("map", QVariantHash{{"x", 2}});
        d.setValue("blob", QByteArray("\0\1", 2));
        d.setValue("when", when.addMSecs(700)); // the file keeps whole seconds
        // What a property list cannot hold is refused, not kept in memory.
        d.setValue("url", QUrl("https://example.org"));
        d.setValue("nested", QVariantList{QVariant::fromValue(QTime(1, 2))});
        EXPECT_FALSE(d.value("url").isValid());
        EXPECT_FALSE(d.value("nested").isValid());
        // Read back already as they will be after a restart.
        EXPECT_EQ(d.value("count").typeId(), QMetaType::LongLong);
        EXPECT_EQ(d.dateForKey("when"), when);
    }
    EXPECT_EQ(onDisk().keys(), (QStringList{"blob", "count", "flag", "gain", "list", "map", "when"}));
    UserDefaults again(file);
    again.registerDefaults({{"count", 1}});
    EXPECT_EQ(again.value("count"), QVariant(qlonglong(7)));
    EXPECT_EQ(again.value("count").typeId(), QMetaType::LongLong);
    EXPECT_EQ(again.value("gain").typeId(), QMetaType::Double);
    EXPECT_EQ(again.value("flag").typeId(), QMetaType::Bool);
    EXPECT_EQ(again.arrayForKey("list"), (QVariantList{"a", "b"}));
    EXPECT_EQ(again.dictionaryForKey("map"), (QVariantMap{{"x", qlonglong(2)}}));
    EXPECT_EQ(again.dataForKey("blob"), QByteArray("\0\1", 2));
    EXPECT_EQ(again.dateForKey("when"), when);
    EXPECT_TRUE(again.dataForKey("list").isEmpty()); // no conversion between unrelated types
}

TEST_F(UserDefaultsTest, ValueChangedFiresOncePerEffectiveChange)
{
    UserDefaults d(file);
    d.registerDefaults({{"volume", 1.0}});
    ChangeCounter changes(d);
    d.setValue("volume", 0.5);
    d.setValue("volume", 0.5);  // identical
    d.setValue("volume", 0.5f); // same value once stored
    EXPECT_EQ(changes.keys, QStringList{"volume"});

    changes.keys.clear();
    d.removeValue("volume"); // back to the default 1.0: a change
    d.setValue("volume", 1.0); // stored now, but the effective value stays 1.0
    d.setValue("volume", 1);   // integer 1 is not real 1.0
    d.removeValue("absent");
    EXPECT_EQ(changes.keys, (QStringList{"volume", "volume"}));
}

TEST_F(UserDefaultsTest, CorruptFileIsMovedAsideAndReportedOnce)
{
    const QByteArray truncated =
        VEKPropertyList::toData(QVariantMap{{"a", 1}, {"b", "text"}}, VEKPropertyList::Format::XML)
            .chopped(60);
    for (const QByteArray &bad :
         {QByteArray("\x89garbage\0\x01", 10), QByteArray("<plist><array/></plist>"), truncated}) {
        log.clear();
        ASSERT_TRUE(TestEnvironment::writeFile(file, bad));
        UserDefaults d(file);
        d.registerDefaults({{"volume", 0.75}});
        EXPECT_DOUBLE_EQ(d.doubleForKey("volume"), 0.75);
        const VEKError first = d.takeLoadError();
        EXPECT_FALSE(first.isNull());
        EXPECT_EQ(first.localizedDescription(), VEKLocalizedString("Error_settingsCorrupt"));
        EXPECT_TRUE(d.takeLoadError().isNull());
        EXPECT_EQ(log.size(), 1) << log.join('\n').toStdString();
        EXPECT_FALSE(QFile::exists(file));
        QFile aside(file + ".corrupt");
        ASSERT_TRUE(aside.open(QIODevice::ReadOnly));
        EXPECT_EQ(aside.readAll(), bad);
        d.setValue("volume", 0.5);
        d.synchronize();
        EXPECT_EQ(onDisk().value("volume"), 0.5);
    }
    EXPECT_TRUE(UserDefaults(file).takeLoadError().isNull());
}

TEST_F(UserDefaultsTest, UnwritableFolderKeepsValuesInMemory)
{
    // A file where the folder should be: refused even to root.
    const QString blocked = dir + "/blocked";
    QFile(blocked).open(QIODevice::WriteOnly);
    UserDefaults d(blocked + "/Preferences.plist");
    d.setValue("a", 1);
    VEKError error;
    EXPECT_FALSE(d.synchronize(&error));
    EXPECT_FALSE(error.isNull());
    d.setValue("b", 2);
    EXPECT_FALSE(d.synchronize());
    EXPECT_EQ(d.integerForKey("a"), 1);
    EXPECT_EQ(d.integerForKey("b"), 2);
    EXPECT_EQ(log.size(), 1) << "one line per run of failures";

    ASSERT_TRUE(QFile::remove(blocked));
    d.setValue("c", 3);
    EXPECT_TRUE(d.synchronize());
    EXPECT_EQ(UserDefaults(d.path()).dictionaryRepresentation(),
              (QVariantMap{{"a", qlonglong(1)}, {"b", qlonglong(2)}, {"c", qlonglong(3)}}));
}

TEST_F(UserDefaultsTest, ADraggedControlIsNotifiedAtOnceAndWrittenAQuarterSecondApart)
{
    auto d = std::make_unique<UserDefaults>(file);
    ChangeCounter counted(*d);
    int writes = 0;
    double lastOnDisk = -1;
    QElapsedTimer clock;
    clock.start();
    int n = 0;
    // A second of changes every 5 ms, the event loop running between them as in the player.
    for (; clock.elapsed() < 1000; ++n) {
        d->setValue("volume", n / 1000.0);
        QTest::qWait(5);
        const double now = onDisk().value("volume", -1).toDouble();
        if (now != lastOnDisk) {
            ++writes;
            lastOnDisk = now;
        }
    }
    EXPECT_EQ(counted.keys.size(), n);
    EXPECT_GE(writes, 1) << "written while the control moves";
    EXPECT_LE(writes, 1000 / UserDefaults::writeDelayMs + 1);
    d->setValue("volume", 2.0);
    d.reset(); // a normal quit loses nothing
    EXPECT_EQ(onDisk().value("volume"), 2.0);
}

TEST_F(UserDefaultsTest, AFailedWriteOnAFullDiskKeepsThePreviousFile)
{
    const QString folder = dir + "/small";
    SmallFilesystem fs(folder, 64 * 1024);
    if (!fs.available())
        GTEST_SKIP() << fs.reason().toStdString();
    const QString path = folder + "/Preferences.plist";
    UserDefaults d(path);
    d.setValue("volume", 0.5);
    d.setValue("dim", true);
    ASSERT_TRUE(d.synchronize());
    const QByteArray good = TestEnvironment::readFile(path);
    fs.fill();
    d.setValue("shuffle", true);
    d.setValue("name", QString(4000, 'x'));
    VEKError error;
    EXPECT_FALSE(d.synchronize(&error));
    EXPECT_FALSE(error.isNull());
    EXPECT_EQ(TestEnvironment::readFile(path), good);
    EXPECT_EQ(QDir(folder).entryList(QDir::Files | QDir::Hidden), (QStringList{".filler", "Preferences.plist"}))
        << "no temporary file left behind";
    EXPECT_TRUE(d.boolForKey("shuffle")) << "kept in memory";
}

TEST_F(UserDefaultsTest, TwoStoresOnOneFileKeepEachOthersChanges)
{
    UserDefaults first(file);
    UserDefaults second(file);
    ChangeCounter secondChanges(second);
    first.setValue("fromFirst", "one");
    first.synchronize();
    second.setValue("fromSecond", "two");
    second.synchronize();
    EXPECT_EQ(second.stringForKey("fromFirst"), "one");
    EXPECT_EQ(secondChanges.keys, (QStringList{"fromSecond", "fromFirst"}));
    first.removeValue("fromFirst");
    first.synchronize();
    second.setValue("fromSecond", "three");
    second.synchronize();
    EXPECT_FALSE(second.value("fromFirst").isValid());
    EXPECT_EQ(UserDefaults(file).dictionaryRepresentation(), (QVariantMap{{"fromSecond", "three"}}));
}

TEST_F(UserDefaultsTest, WorkersReadWhileTheMainThreadWrites)
{
    // Writes fail at once here, so the maps change as fast as the loop runs.
    QFile(dir + "/blocked").open(QIODevice::WriteOnly);
    UserDefaults d(dir + "/blocked/Preferences.plist");
    d.setValue("list", QVariantList{0});
    std::atomic<bool> stop{false};
    std::atomic<int> torn{0};
    const auto read = [&] {
        while (!stop) {
            const QVariantList list = d.arrayForKey("list");
            if (list.isEmpty() || list.size() != list.first().toLongLong() + 1)
                ++torn;
            d.dictionaryRepresentation();
        }
    };
    std::thread first(read), second(read);
    for (int n = 1; n < 800; ++n) {
        d.setValue("list", QVariantList(n % 50 + 1, QVariant(n % 50)));
        d.setValue(QString("k%1").arg(n % 200), n);
    }
    stop = true;
    first.join();
    second.join();
    EXPECT_EQ(torn, 0);
}

TEST_F(UserDefaultsTest, ValuesOutOfRangeAreReportedOnceAndReplacedByTheDefault)
{
    using namespace VEKSettingRange;
    const struct {
        qint64 got, expected;
    } rates[] = {{0, 0}, {8000, 8000}, {768000, 768000}, {1, 0}, {7999, 0}, {768001, 0}, {-44100, 0}};
    for (const auto &c : rates)
        EXPECT_EQ(checkedRateOrZero("test.rate", c.got), c.expected) << c.got;
    EXPECT_EQ(checkedRatePolicy(-1), -1);
    EXPECT_EQ(checkedRatePolicy(96000), 96000);
    EXPECT_EQ(checkedRatePolicy(-2), 0);
    EXPECT_EQ(checkedFromTable("test.bits", 20, {0, 16, 24}, 0), 0);
    EXPECT_EQ(checkedFromTable("test.bits", 24, {0, 16, 24}, 0), 24);
    EXPECT_EQ(checkedReal("test.volume", 0.25, 0, 1, 1), 0.25);
    EXPECT_EQ(checkedReal("test.volume", std::nan(""), 0, 1, 1), 1);
    EXPECT_EQ(checkedReal("test.volume", 40, 0, 1, 1), 1);
    log.clear();
    checkedRateOrZero("test.once", 5);
    checkedRateOrZero("test.once", 5);
    checkedRateOrZero("test.once", 6);
    EXPECT_EQ(log.size(), 2) << log.join('\n').toStdString();
    EXPECT_TRUE(log.value(0).contains("test.once = 5")) << log.value(0).toStdString();
}
