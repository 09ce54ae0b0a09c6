#include "settings/VEKPropertyList.h"
#include "support/TestEnvironment.h"

#include <QBuffer>
#include <QDataStream>
#include <QDateTime>
#include <QElapsedTimer>
#include <gtest/gtest.h>

using TestEnvironment::expectSame;
using VEKPropertyList::Format;

namespace {

QDateTime utc(int y, int mo, int d, int h = 0, int mi = 0, int s = 0, int ms = 0)
{
    return QDateTime(QDate(y, mo, d), QTime(h, mi, s, ms), Qt::UTC);
}

QVariant roundTrip(const QVariant &value, Format format)
{
    const QByteArray bytes = VEKPropertyList::toData(value, format);
    EXPECT_FALSE(bytes.isEmpty());
    VEKError error;
    const QVariant back = VEKPropertyList::fromData(bytes, &error);
    EXPECT_TRUE(error.isNull()) << error.text().toStdString();
    return back;
}

QVariant uid(quint64 v) { return QVariant::fromValue(VEKPlistUID{v}); }

QVariantMap everyType(bool fractionalDates)
{
    const int ms = fractionalDates ? 250 : 0;
    return {
        {"text", QString::fromUtf8("Motörhead – 東京 \xF0\x9F\x8E\xB5")},
        {"emptyText", QString("")},
        {"int", qlonglong(-5)},
        {"int64", qlonglong(1) << 40},
        {"min", std::numeric_limits<qlonglong>::min()},
        {"max", std::numeric_limits<qlonglong>::max()},
        {"huge", std::numeric_limits<qulonglong>::max()},
        {"justAbove", qulonglong(1) << 63},
        {"real", 0.1},
        {"wholeReal", 1.0},
        {"yes", true},
        {"no", false},
        {"data", QByteArray("\0\x01\xff" "abc", 6)},
        {"emptyData", QByteArray("")},
        {"date", utc(2012, 3, 4, 12, 34, 56, ms)},
        {"before2001", utc(1999, 12, 31, 23, 59, 58, ms)},
        {"uid", uid(42)},
        {"emptyList", QVariantList()},
        {"emptyMap", QVariantMap()},
        {"nested", QVariantList{QVariantMap{{"a", QVariantList{1LL, "two", uid(3)}}},
                                QVariantList{QVariantList{}, 2.5}}},
    };
}

QVariant deepList(int depth)
{
    QVariant v = QVariantList{};
    for (int i = 1; i < depth; ++i)
        v = QVariantList{v};
    return v;
}

// An array object of a binary list with four-byte references.
QByteArray arrayObject(const QList<quint32> &refs)
{
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly); // big-endian, as the format is
    if (refs.size() < 15)
        out << quint8(0xA0 | refs.size());
    else
        out << quint8(0xAF) << quint8(0x12) << quint32(refs.size());
    for (quint32 r : refs)
        out << r;
    return bytes;
}

// A binary property list made by hand, for shapes no writer makes.
QByteArray binaryList(const QList<QByteArray> &objects)
{
    QByteArray bytes;
    QDataStream out(&bytes, QIODevice::WriteOnly);
    out.writeRawData("bplist00", 8);
    QList<quint32> offsets;
    for (const QByteArray &o : objects) {
        offsets.append(quint32(bytes.size()));
        out.writeRawData(o.constData(), int(o.size()));
    }
    const quint64 tableAt = quint64(bytes.size());
    for (quint32 o : offsets)
        out << o;
    // The trailer: six unused bytes, four-byte offsets and references, the object count, the top
    // object and where the offset table starts.
    out << quint32(0) << quint16(0) << quint8(4) << quint8(4) << quint64(objects.size()) << quint64(0)
        << tableAt;
    return bytes;
}

void expectRejected(const QByteArray &bytes, const char *what)
{
    VEKError error;
    EXPECT_FALSE(VEKPropertyList::fromData(bytes, &error).isValid()) << what;
    EXPECT_EQ(error.code(), VEKPropertyList::Malformed) << what;
}

} // namespace

// XML dates have no fraction; a date before 2001 rounds down, not towards 2001.
TEST(VEKPropertyListRoundTrip, BinaryKeepsEveryTypeExactlyAndXmlWithWholeSecondDates)
{
    expectSame(everyType(true), roundTrip(everyType(true), Format::Binary));
    expectSame(everyType(false), roundTrip(everyType(true), Format::XML));
}

// Dates outside 1933-2069, where libplist's 32-bit seconds no longer reach, survive too.
TEST(VEKPropertyListRoundTrip, ConvenienceTypesComeBackAsPlistTypesAndFarDatesSurvive)
{
    const QVariantList dates{utc(1800, 1, 1), utc(2200, 6, 7, 8, 9, 10), utc(2000, 12, 31, 23, 59, 59)};
    const QVariantList in =
        QVariantList{int(-3), uint(4000000000u), 0.5f, QStringList{"a"}, QVariantHash{{"k", 1}}} + dates;
    const QVariantList expected = QVariantList{qlonglong(-3), qlonglong(4000000000LL), 0.5, QVariantList{"a"},
                                               QVariantMap{{"k", qlonglong(1)}}}
                                  + dates;
    for (Format f : {Format::XML, Format::Binary})
        expectSame(expected, roundTrip(in, f));
}

TEST(VEKPropertyListRoundTrip, NestingIsLimitedTheSameWayBothWays)
{
    const QVariant deepest = deepList(VEKPropertyList::maxDepth);
    for (Format f : {Format::XML, Format::Binary})
        expectSame(deepest, roundTrip(deepest, f));
    EXPECT_TRUE(VEKPropertyList::toData(deepList(VEKPropertyList::maxDepth + 1), Format::Binary)
                    .isEmpty());
}

TEST(VEKPropertyListInterop, PythonAndWeReadEachOthersLists)
{
    const QString dir = TestEnvironment::makeTempDir("py");
    const QVariantMap ours{{"uid", uid(9)},
                           {"big", std::numeric_limits<qulonglong>::max()},
                           {"neg", qlonglong(-7)},
                           {"date", utc(2010, 5, 6, 7, 8, 9, 500)},
                           {"list", QVariantList{1.5, false, QByteArray("z"), QString::fromUtf8("naïve")}}};
    ASSERT_TRUE(VEKPropertyList::writeFile(dir + "/ours.bplist", ours, Format::Binary));
    ASSERT_TRUE(VEKPropertyList::writeFile(dir + "/ours.xml", ours, Format::XML));
    const QString script = QStringLiteral(
        "import plistlib, datetime, sys\n"
        "d = sys.argv[1]\n"
        "b = plistlib.load(open(d + '/ours.bplist', 'rb'))\n"
        "x = plistlib.load(open(d + '/ours.xml', 'rb'))\n"
        "assert b['uid'] == plistlib.UID(9) and x['uid'] == {'CF$UID': 9}, (b, x)\n"
        "for p in (b, x):\n"
        "    assert p['big'] == 2**64 - 1 and p['neg'] == -7, p\n"
        "    assert p['list'] == [1.5, False, b'z', 'na\\u00efve'], p\n"
        "assert b['date'] == datetime.datetime(2010, 5, 6, 7, 8, 9, 500000), b\n"
        "assert x['date'] == datetime.datetime(2010, 5, 6, 7, 8, 9), x\n"
        "t = {'uid': plistlib.UID(7), 'big': 2**64 - 1, 'neg': -5, 'ok': True,\n"
        "     'early': datetime.datetime(2000, 12, 31, 23, 59, 58, 250000),\n"
        "     'list': [{}, [], b'\\x00', 'caf\\u00e9', 'x', 'x']}\n"
        "open(d + '/theirs.plist', 'wb').write(plistlib.dumps(t, fmt=plistlib.FMT_BINARY))\n");
    QByteArray out;
    ASSERT_EQ(TestEnvironment::run("python3", {"-c", script, dir}, &out), 0) << out.constData();

    VEKError error;
    const QVariant theirs = VEKPropertyList::readFile(dir + "/theirs.plist", &error);
    ASSERT_TRUE(error.isNull()) << error.text().toStdString();
    expectSame(QVariantMap{{"uid", uid(7)},
                           {"big", std::numeric_limits<qulonglong>::max()},
                           {"neg", qlonglong(-5)},
                           {"ok", true},
                           {"early", utc(2000, 12, 31, 23, 59, 58, 250)},
                           {"list", QVariantList{QVariantMap(), QVariantList(), QByteArray("\0", 1),
                                                 QString::fromUtf8("café"), "x", "x"}}},
               theirs);
}

TEST(VEKPropertyListHostile, GarbageEmptyAndTruncatedInputIsRejected)
{
    expectRejected(QByteArray(), "empty");
    expectRejected("hello, world", "text");
    expectRejected("<plist><dict><key>a</key></plist>", "unbalanced XML");
    expectRejected("bplist01" + QByteArray(40, '\0'), "unknown binary version");

    // A UTF-16 key holding a NUL trips an assertion inside libplist 2.2.
    const QByteArray dict("\xD1\0\0\0\1\0\0\0\2", 9); // key object 1, value object 2
    expectRejected(binaryList({dict, QByteArray("\x62\x00\xE9\x00\x00", 5), "\x51v"}),
                   "NUL inside a key");

    const QByteArray binary = VEKPropertyList::toData(everyType(true), Format::Binary);
    for (qsizetype n = 0; n < binary.size(); ++n)
        expectRejected(binary.left(n), "truncated binary");
    const QByteArray xml = VEKPropertyList::toData(everyType(true), Format::XML);
    const qsizetype rootEnd = xml.lastIndexOf("</dict>");
    for (qsizetype n = 0; n < rootEnd; n += 7)
        expectRejected(xml.left(n), "truncated XML");
}

TEST(VEKPropertyListHostile, DeepNestingIsRefusedWithoutCrashing)
{
    constexpr int depth = 1000000; // deep enough to overflow the stack of a recursive reader
    expectRejected("<plist version=\"1.0\">" + QByteArray("<array>").repeated(depth)
                       + QByteArray("</array>").repeated(depth) + "</plist>",
                   "deep XML");
    // Attribute values must not hide elements from the depth count.
    expectRejected("<plist>" + QByteArray("<array a=\"/>\">").repeated(depth) + "</plist>",
                   "XML hiding elements");

    QList<QByteArray> objects;
    for (quint32 i = 0; i + 1 < depth; ++i)
        objects.append(arrayObject({i + 1}));
    objects.append(arrayObject({}));
    expectRejected(binaryList(objects), "deep binary");

    // Just past the limit, without libplist being at risk.
    expectRejected(VEKPropertyList::toData(deepList(VEKPropertyList::maxDepth), Format::XML)
                       .replace("<array/>", "<array><array/></array>"),
                   "one level too deep");
}

TEST(VEKPropertyListHostile, SharedObjectsAndCyclesCannotExplode)
{
    // 40 arrays, each holding the next one 15 times: 15^39 nodes from 2 KB.
    QList<QByteArray> objects;
    for (quint32 i = 0; i + 1 < 40; ++i)
        objects.append(arrayObject(QList<quint32>(15, i + 1)));
    objects.append(QByteArray("\x10\x07", 2));
    QElapsedTimer timer;
    timer.start();
    expectRejected(binaryList(objects), "expansion bomb");
    expectRejected(binaryList({arrayObject({0})}), "array holding itself");
    EXPECT_LT(timer.elapsed(), 2000);

    // Sharing a container as Python does is fine in honest amounts.
    const QString path = TestEnvironment::makeTempDir("py") + "/shared.plist";
    const QString script = QStringLiteral(
        "import plistlib, sys\n"
        "x = {'a': 1, 'b': [1, 2]}\n"
        "open(sys.argv[1], 'wb').write(plistlib.dumps([x] * 5000, fmt=plistlib.FMT_BINARY))\n");
    ASSERT_EQ(TestEnvironment::run("python3", {"-c", script, path}), 0);
    EXPECT_EQ(VEKPropertyList::readFile(path).toList().size(), 5000);
}

TEST(VEKPropertyListFiles, FailuresAreReportedWithTheirKind)
{
    const QString dir = TestEnvironment::makeTempDir("files");
    VEKError error;
    EXPECT_FALSE(VEKPropertyList::readFile(dir + "/missing.plist", &error).isValid());
    EXPECT_EQ(error.code(), VEKPropertyList::ReadFailed);
    EXPECT_TRUE(error.failureReason().contains("missing.plist"));

    // Nothing half-written when the value cannot be stored.
    ASSERT_TRUE(VEKPropertyList::writeFile(dir + "/keep.plist", QVariantMap{{"a", 1}}, Format::XML));
    error = VEKError();
    EXPECT_FALSE(VEKPropertyList::writeFile(dir + "/keep.plist",
                                            QVariantMap{{"bad", QVariant::fromValue(QTime(1, 2))}},
                                            Format::XML, &error));
    EXPECT_EQ(error.code(), VEKPropertyList::Unsupported);
    expectSame(QVariantMap{{"a", qlonglong(1)}}, VEKPropertyList::readFile(dir + "/keep.plist"));
}
