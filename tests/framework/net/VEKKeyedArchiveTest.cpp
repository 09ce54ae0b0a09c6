#include "NetTestSupport.h"
#include "net/VEKKeyedArchive.h"
#include "support/Processes.h"
#include "support/TestEnvironment.h"

#include <QDateTime>
#include <QJsonDocument>
#include <gtest/gtest.h>

#include <limits>

using NetTestSupport::expectSame;
using NetTestSupport::uid;

namespace {

QVariantMap classRecord(const QString &name, const QStringList &supers = {})
{
    QVariantList chain{name};
    for (const QString &s : supers)
        chain.append(s);
    chain.append("NSObject");
    return {{"$classname", name}, {"$classes", chain}};
}

QVariantMap arrayRecord(const QVariantList &refs, quint64 cls)
{
    return {{"NS.objects", refs}, {"$class", uid(cls)}};
}

QVariantMap dictRecord(const QVariantList &keys, const QVariantList &values, quint64 cls)
{
    return {{"NS.keys", keys}, {"NS.objects", values}, {"$class", uid(cls)}};
}

// An archive laid out by hand, with whatever damage a test gives it.
QByteArray handMade(const QVariantList &objects, const QVariant &root = uid(1),
                    const QVariantMap &overrides = {})
{
    QVariantMap archive{
        {"$archiver", "NSKeyedArchiver"},
        {"$version", 100000},
        {"$top", QVariantMap{{"root", root}}},
        {"$objects", objects},
    };
    for (auto it = overrides.cbegin(); it != overrides.cend(); ++it) {
        if (it.value().isValid())
            archive.insert(it.key(), it.value());
        else
            archive.remove(it.key());
    }
    return VEKPropertyList::toData(archive, VEKPropertyList::Format::Binary);
}

QVariant decode(const QByteArray &bytes, VEKError *error = nullptr)
{
    return VEKKeyedArchive::unarchive(bytes, error);
}

void expectRefused(const QByteArray &bytes, const char *what, const char *reasonPart = nullptr)
{
    VEKError error;
    const QVariant value = decode(bytes, &error);
    EXPECT_FALSE(value.isValid()) << what;
    EXPECT_EQ(error.domain(), QString::fromLatin1(VEKKeyedArchive::errorDomain)) << what;
    EXPECT_EQ(error.code(), VEKKeyedArchive::Malformed) << what;
    if (reasonPart) {
        EXPECT_TRUE(error.failureReason().contains(QLatin1String(reasonPart)))
            << what << ": " << error.failureReason().toStdString();
    }
}

QVariantMap everyKind()
{
    return {
        {"command", "getResultsOfSearch"},
        {"text", QString::fromUtf8("Motörhead – 東京 \xF0\x9F\x8E\xB5")},
        {"empty", QString("")},
        {"nullLookalike", "$null"},
        {"withNul", QString::fromLatin1("a\0b", 3)},
        {"$class", "a user key that looks like a coder key"},
        {"int", qlonglong(-5)},
        {"zero", qlonglong(0)},
        {"min", std::numeric_limits<qlonglong>::min()},
        {"max", std::numeric_limits<qlonglong>::max()},
        {"huge", std::numeric_limits<qulonglong>::max()},
        {"real", 0.1},
        {"wholeReal", 1.0},
        {"yes", true},
        {"no", false},
        {"data", QByteArray("\0\x01\xff", 3)},
        {"emptyList", QVariantList()},
        {"emptyMap", QVariantMap()},
        {"songs", QVariantList{QVariantMap{{"songID", 1LL}, {"name", "One"}},
                               QVariantMap{{"songID", 2LL}, {"name", "Two"}, {"artist", "A"}}}},
        {"deep", QVariantList{QVariantList{QVariantMap{{"x", QVariantList{1LL, "two", 3.5}}}}}},
    };
}

} // namespace

// ---------------------------------------------------------------------------------------------

TEST(KeyedArchiveRoundTrip, ValuesComeBackWithTheirTypesAndOtherQtTypesNormalisedAndPlistlibReadsThem)
{
    const QVariantHash hash{{"b", 2}, {"a", QStringList{"x", "y"}}};
    // Integers, reals and booleans of equal value are stored once each, never merged.
    const QVariantList mixed{1LL, 1.0, true, 0LL, 0.0, false, 1LL, true};
    const struct {
        QVariant in, out;
    } cases[] = {
        {everyKind(), everyKind()},
        {mixed, mixed},
        {QVariantList{int(3), uint(4), float(0.5f), QVariant(hash)},
         QVariantList{3LL, 4LL, 0.5, QVariantMap{{"a", QVariantList{"x", "y"}}, {"b", 2LL}}}},
    };
    for (const auto &c : cases) {
        VEKError error;
        const QByteArray bytes = VEKKeyedArchive::archivedData(c.in, &error);
        ASSERT_FALSE(bytes.isEmpty()) << error.text().toStdString();
        NetTestSupport::expectOursReadsBack(c.out, bytes);
    }
    // Another implementation reads ours: Python's plistlib.
    NetTestSupport::expectPythonReadsBack(everyKind(), VEKKeyedArchive::archivedData(everyKind()));
}

TEST(KeyedArchiveRoundTrip, WhatCannotBeArchivedIsRefused)
{
    const QVariant cases[] = {
        QVariant(),
        QVariantMap{{"when", QDateTime::currentDateTimeUtc()}},
        QVariantList{1LL, QVariant()},
    };
    for (const QVariant &value : cases) {
        VEKError error;
        EXPECT_TRUE(VEKKeyedArchive::archivedData(value, &error).isEmpty());
        EXPECT_EQ(error.code(), VEKKeyedArchive::Unsupported) << error.text().toStdString();
    }
    QVariant deep = QVariantList{};
    for (int i = 0; i < VEKKeyedArchive::maxDepth; ++i)
        deep = QVariantList{deep};
    VEKError error;
    EXPECT_TRUE(VEKKeyedArchive::archivedData(deep, &error).isEmpty());
    EXPECT_EQ(error.code(), VEKKeyedArchive::Unsupported);
}

TEST(KeyedArchiveLayout, IsTheArchiverLayoutWithRepeatedValuesStoredOnce)
{
    QVariantList songs;
    for (int i = 0; i < 1000; ++i)
        songs.append(QVariantMap{{"songID", qlonglong(i)}, {"name", "Same title"}});
    const QVariant plist =
        VEKPropertyList::fromData(VEKKeyedArchive::archivedData(QVariantMap{{"songs", songs}}));
    const QVariantMap top = plist.toMap();
    EXPECT_EQ(top.value("$top").toMap().value("root"), uid(1));
    const QVariantList objects = top.value("$objects").toList();
    ASSERT_GT(objects.size(), 1);
    const QVariantMap root = objects.at(1).toMap();
    ASSERT_TRUE(root.contains("NS.keys") && root.contains("NS.objects"));
    const QVariantMap rootClass =
        objects.at(qsizetype(root.value("$class").value<VEKPlistUID>().value)).toMap();
    EXPECT_EQ(rootClass.value("$classname"), QVariant("NSDictionary"));
    EXPECT_EQ(rootClass.value("$classes"), QVariant(QVariantList{"NSDictionary", "NSObject"}));

    // Keys, equal strings and class records are stored once: "$null", the root, 1000
    // dictionaries, 1000 IDs, 2 keys, one title, "songs", the array and 2 class records. (The
    // envelope and "$null" first: the plistlib reader of KeyedArchiveRoundTrip refuses others.)
    EXPECT_EQ(objects.size(), 1 + 1 + 1000 + 1000 + 2 + 1 + 1 + 1 + 2);
}

// ---------------------------------------------------------------------------------------------
// Archives laid out by another implementation: Python's plistlib.

TEST(KeyedArchivePython, WeReadArchivesLaidOutByAnotherArchiver)
{
    const QString dir = TestEnvironment::makeTempDir("theirs");
    QByteArray out;
    ASSERT_EQ(NetTestSupport::runTool({"build", dir}, &out), 0) << out.constData();
    const QStringList cases{"mutable", "shared", "immutable"};
    for (const QString &name : cases) {
        SCOPED_TRACE(name.toStdString());
        const QByteArray json = TestEnvironment::readFile(dir + "/" + name + ".json");
        NetTestSupport::expectOursReadsBack(NetTestSupport::fromTyped(QJsonDocument::fromJson(json).array()),
                                            TestEnvironment::readFile(dir + "/" + name + ".archive"));
    }
}

// ---------------------------------------------------------------------------------------------
// Hostile archives. Each is refused with an error, quickly, and nothing else happens.

TEST(KeyedArchiveHostile, TruncatedAndDamagedBytesAreRefused)
{
    const QByteArray bytes = VEKKeyedArchive::archivedData(everyKind());
    for (qsizetype n = 0; n < bytes.size(); ++n) {
        VEKError error;
        EXPECT_FALSE(decode(bytes.left(n), &error).isValid()) << n;
        EXPECT_FALSE(error.isNull()) << n;
    }
    // A trailer that claims 2^60 objects is not believed.
    QByteArray damaged = bytes;
    damaged.replace(damaged.size() - 24, 8, QByteArray::fromHex("1000000000000000"));
    expectRefused(damaged, "2^60 objects");
}

TEST(KeyedArchiveHostile, WrongEnvelopeIsRefused)
{
    const QVariantList fine{"$null", "a string"};
    EXPECT_TRUE(decode(handMade(fine)).isValid()) << "the baseline must be accepted";

    expectRefused(VEKPropertyList::toData(QVariantList{"$null"}, VEKPropertyList::Format::Binary),
                  "root of the property list is an array", "not a dictionary");
    expectRefused(VEKPropertyList::toData(QVariantMap{{"$objects", fine}},
                                          VEKPropertyList::Format::XML),
                  "text property list", "binary");
    expectRefused(QByteArray("definitely not a property list"), "plain text");
    expectRefused(handMade(fine, uid(1), {{"$archiver", "NSArchiver"}}), "other archiver");
    expectRefused(handMade(fine, uid(1), {{"$archiver", QVariant()}}), "no archiver");
    expectRefused(handMade(fine, uid(1), {{"$version", 200000}}), "other version");
    expectRefused(handMade(fine, uid(1), {{"$version", "100000"}}), "version as text");
    expectRefused(handMade(fine, uid(1), {{"$objects", QVariant()}}), "no objects");
    expectRefused(handMade(fine, uid(1), {{"$objects", "objects"}}), "objects not an array");
    expectRefused(handMade({}), "no objects at all", "$null");
    expectRefused(handMade({"a string", "$null"}), "objects not starting with $null", "$null");
    expectRefused(handMade(fine, uid(1), {{"$top", QVariant()}}), "no top");
    expectRefused(handMade(fine, 1), "root is an integer, not a UID", "root");
    expectRefused(handMade(fine, uid(0)), "root is nil", "nil");
    expectRefused(handMade(fine, uid(2)), "root refers past the objects", "refers to no object");
    expectRefused(handMade(fine, uid(quint64(1) << 40)), "root UID far away");
}

TEST(KeyedArchiveHostile, BrokenReferencesClassesAndRecordsAreRefused)
{
    // References; object 2 is the class record in each.
    expectRefused(handMade({"$null", arrayRecord({uid(9)}, 2), classRecord("NSArray")}),
                  "dangling UID", "refers to no object");
    expectRefused(handMade({"$null", arrayRecord({uid(0)}, 2), classRecord("NSArray")}),
                  "nil inside an array", "nil");
    expectRefused(handMade({"$null", arrayRecord({3}, 2), classRecord("NSArray")}),
                  "integer where a UID belongs", "not a UID");
    expectRefused(handMade({"$null", arrayRecord({uid(1)}, 2), classRecord("NSArray")}),
                  "array holding itself", "contains itself");
    expectRefused(handMade({"$null", arrayRecord({uid(3)}, 2), classRecord("NSArray"),
                            arrayRecord({uid(1)}, 2)}),
                  "two arrays holding each other", "contains itself");
    expectRefused(handMade({"$null", dictRecord({uid(3)}, {uid(1)}, 2),
                            classRecord("NSDictionary"), "key"}),
                  "dictionary holding itself", "contains itself");
    expectRefused(handMade({"$null", arrayRecord({uid(2)}, 2), classRecord("NSArray")}),
                  "class record used as a value", "class");
    expectRefused(handMade({"$null", uid(1)}), "a bare UID as an object", "no archived meaning");
    expectRefused(handMade({"$null", QVariantList{uid(0)}}), "a bare array as an object",
                  "no archived meaning");

    // Classes we do not decode, and damaged class records.
    expectRefused(handMade({"$null", QVariantMap{{"NS.time", 1.0}, {"$class", uid(2)}},
                            classRecord("NSDate")}),
                  "a date", "NSDate");
    expectRefused(handMade({"$null", arrayRecord({}, 2), classRecord("NSSet")}), "a set", "NSSet");
    expectRefused(handMade({"$null", QVariantMap{{"NS.objects", QVariantList{}}}}),
                  "no $class", "class");
    expectRefused(handMade({"$null", arrayRecord({}, 2), QVariantMap{{"$classes", QVariantList{}}}}),
                  "class record without a name", "class");
    expectRefused(handMade({"$null", arrayRecord({}, 2), "NSArray"}),
                  "class record that is a string", "class");
    expectRefused(handMade({"$null", arrayRecord({}, 0)}), "class is nil", "class");
    expectRefused(handMade({"$null", arrayRecord({}, 7)}), "class past the end", "class");

    // Wrong types inside records.
    const QVariantMap dictClass = classRecord("NSMutableDictionary", {"NSDictionary"});
    expectRefused(handMade({"$null", QVariantMap{{"NS.keys", "k"}, {"NS.objects", QVariantList{}},
                                                 {"$class", uid(2)}},
                            dictClass}),
                  "NS.keys not an array", "NS.keys");
    expectRefused(handMade({"$null", QVariantMap{{"NS.keys", QVariantList{}}, {"$class", uid(2)}},
                            dictClass}),
                  "no NS.objects", "NS.keys");
    expectRefused(handMade({"$null", dictRecord({uid(3), uid(3)}, {uid(3)}, 2), dictClass, "k"}),
                  "more keys than objects", "2 keys and 1 objects");
    expectRefused(handMade({"$null", dictRecord({uid(3)}, {uid(3)}, 2), dictClass, 42}),
                  "integer key", "key is not a string");
    expectRefused(handMade({"$null", dictRecord({uid(3)}, {uid(4)}, 2), dictClass,
                            arrayRecord({}, 5), "v", classRecord("NSArray")}),
                  "array as a key", "key is not a string");
    expectRefused(handMade({"$null", arrayRecord({}, 2), classRecord("NSMutableString", {"NSString"})}),
                  "string record without NS.string", "NS.string");
    expectRefused(handMade({"$null", QVariantMap{{"NS.string", 5}, {"$class", uid(2)}},
                            classRecord("NSString")}),
                  "NS.string not a string", "NS.string");
    expectRefused(handMade({"$null", QVariantMap{{"NS.objects", "x"}, {"$class", uid(2)}},
                            classRecord("NSArray")}),
                  "NS.objects not an array", "NS.objects");
}

TEST(KeyedArchiveHostile, NestingIsBoundedEvenThroughSharedObjects)
{
    // A chain of `n` arrays: object i holds object i+1; the last holds nothing.
    const auto chain = [](int n) {
        QVariantList objects{"$null", classRecord("NSArray")};
        for (int i = 0; i < n; ++i) {
            const quint64 at = quint64(objects.size());
            objects.append(arrayRecord(i + 1 < n ? QVariantList{uid(at + 1)} : QVariantList{}, 1));
        }
        return objects;
    };
    EXPECT_TRUE(decode(handMade(chain(VEKKeyedArchive::maxDepth), uid(2))).isValid())
        << "as deep as we write";
    expectRefused(handMade(chain(VEKKeyedArchive::maxDepth + 1), uid(2)), "one level deeper",
                  "too deeply");
    expectRefused(handMade(chain(5000), uid(2)), "five thousand levels", "too deeply");

    // The same 200-deep chain reached first at the top, then from 100 levels down: decoded once,
    // it must not be taken again where it would end up 300 deep.
    QVariantList objects = chain(200);              // objects 2..201, the chain's top at 2
    const quint64 first = quint64(objects.size());  // the root: [chain, another chain]
    objects.append(arrayRecord({uid(2), uid(first + 1)}, 1));
    for (int i = 0; i < 100; ++i) {
        const quint64 at = quint64(objects.size());
        objects.append(arrayRecord({i + 1 < 100 ? uid(at + 1) : uid(2)}, 1));
    }
    expectRefused(handMade(objects, uid(first)), "shared chain reached deep", "too deeply");
}

TEST(KeyedArchiveHostile, SharingCannotMultiplyTheDecodedSize)
{
    // Level i is [level i-1, level i-1]: 64 levels stand for 2^64 strings in a few KiB.
    const auto doubling = [](int levels) {
        QVariantList objects{"$null", classRecord("NSArray"), "leaf"};
        for (int i = 0; i < levels; ++i) {
            const quint64 below = quint64(objects.size() - 1);
            objects.append(arrayRecord({uid(below), uid(below)}, 1));
        }
        return handMade(objects, uid(quint64(objects.size() - 1)));
    };
    expectRefused(doubling(64), "doubling levels", "expands too far");
    // Sharing within the allowance is fine: 16 levels are 65536 strings.
    EXPECT_TRUE(decode(doubling(16)).isValid());
}
