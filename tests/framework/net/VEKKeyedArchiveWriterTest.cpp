// The writer's byte-level choices: integer and string encodings at their size boundaries, and
// the width of object references and offsets as archives grow. Each archive is read back by
// our reader and, where it matters, by Python's plistlib.

#include "NetTestSupport.h"
#include "net/VEKKeyedArchive.h"

#include <gtest/gtest.h>

#include <limits>

using NetTestSupport::expectOursReadsBack;
using NetTestSupport::expectPythonReadsBack;

namespace {

struct Trailer {
    int offsetSize = 0;
    int refSize = 0;
    quint64 objectCount = 0;
    quint64 tableAt = 0;
};

Trailer trailerOf(const QByteArray &bytes)
{
    Trailer t;
    if (bytes.size() < 40)
        return t;
    const auto *p = reinterpret_cast<const uchar *>(bytes.constData() + bytes.size() - 32);
    t.offsetSize = p[6];
    t.refSize = p[7];
    for (int i = 0; i < 8; ++i) {
        t.objectCount = (t.objectCount << 8) | p[8 + i];
        t.tableAt = (t.tableAt << 8) | p[24 + i];
    }
    return t;
}

// The fewest bytes that hold `v`.
int widthOf(quint64 v)
{
    int n = 1;
    while (n < 8 && (v >> (8 * n)) != 0)
        ++n;
    return n;
}

QByteArray archive(const QVariant &value)
{
    VEKError error;
    const QByteArray bytes = VEKKeyedArchive::archivedData(value, &error);
    EXPECT_FALSE(bytes.isEmpty()) << error.text().toStdString();
    return bytes;
}

// References and offsets are as narrow as the archive allows, and wide enough.
void expectNarrowest(const QByteArray &bytes)
{
    const Trailer t = trailerOf(bytes);
    ASSERT_GT(t.objectCount, 0u);
    EXPECT_EQ(t.refSize, widthOf(t.objectCount - 1)) << t.objectCount << " objects";
    EXPECT_EQ(t.offsetSize, widthOf(t.tableAt - 1)) << "offset table at " << t.tableAt;
}

} // namespace

TEST(KeyedArchiveWriter, IntegersAtEveryWidthComeBackExactly)
{
    constexpr qlonglong min = std::numeric_limits<qlonglong>::min();
    constexpr qlonglong max = std::numeric_limits<qlonglong>::max();
    const QVariantList values{
        0LL,           1LL,           255LL,          256LL,         65535LL,
        65536LL,       0xFFFFFFFFLL,  0x100000000LL,  max,           -1LL,
        -128LL,        -129LL,        -255LL,         -256LL,        -65536LL,
        -0x80000000LL, -0x80000001LL, min,            min + 1,       QVariant(qulonglong(max) + 1),
        QVariant(std::numeric_limits<qulonglong>::max()),
    };
    const QByteArray bytes = archive(values);
    expectOursReadsBack(values, bytes);
    expectPythonReadsBack(values, bytes);
}

TEST(KeyedArchiveWriter, StringsOfEveryEncodingAndLengthComeBackExactly)
{
    QVariantList values{
        QString(""),
        QString("\x7f is the last one-byte character"),
        QString::fromUtf8("\xc3\xa9"),         // Latin-1 but not ASCII: UTF-16
        QString::fromUtf8("\xf0\x9d\x84\x9e"), // a surrogate pair alone
        QString::fromUtf8("ab\xf0\x9f\x8e\xb5" "cd\xe6\x9d\xb1"),
        QString::fromLatin1("nul\0inside", 10),
    };
    // Lengths around the marker's nibble (15 and up take an integer after it) and the widths
    // of that integer, in both encodings.
    for (int n : {14, 15, 16, 255, 256, 65535, 65536}) {
        values.append(QString(n, QChar('a')));
        values.append(QString(n, QChar(0x00FC)));
        values.append(QString(n - 1, QChar('b')) + QString::fromUtf8("\xc3\xbc"));
    }
    const QByteArray bytes = archive(values);
    expectOursReadsBack(values, bytes);
    expectPythonReadsBack(values, bytes);
}

TEST(KeyedArchiveWriter, ReferencesWidenExactlyAtTheirThresholds)
{
    // Distinct integers in an array: the object count passes 256 somewhere in this range.
    for (int n = 100; n <= 140; ++n) {
        QVariantList values;
        for (int i = 0; i < n; ++i)
            values.append(qlonglong(1000 + i));
        const QByteArray bytes = archive(values);
        expectNarrowest(bytes);
        expectOursReadsBack(values, bytes);
        if (HasFailure())
            FAIL() << "with " << n << " integers";
    }
}

TEST(KeyedArchiveWriter, OffsetsWidenExactlyAtTheirThresholds)
{
    // The offset table starts just before or after 65536 bytes.
    const int overhead = int(trailerOf(archive(QVariantMap{{"text", QString(1000, 'x')}})).tableAt) - 1000;
    const int atThreshold = 65536 - overhead;
    for (int n = atThreshold - 6; n <= atThreshold + 6; ++n) {
        const QVariant value = QVariantMap{{"text", QString(n, QChar('x'))}};
        const QByteArray bytes = archive(value);
        expectNarrowest(bytes);
        expectOursReadsBack(value, bytes);
        if (HasFailure())
            FAIL() << "with a string of " << n;
    }
}

TEST(KeyedArchiveWriter, EqualContainersStaySeparateObjects)
{
    // As the platform's archiver does: equal dictionaries and arrays are not merged, so a
    // reader that mutates one never sees the change in the other.
    const QVariantMap song{{"name", "x"}};
    const QVariantList list{song, song, QVariantList{1LL}, QVariantList{1LL}};
    const QVariantMap top = VEKPropertyList::fromData(archive(list)).toMap();
    int dictionaries = 0, arrays = 0;
    for (const QVariant &o : top.value("$objects").toList()) {
        const QVariantMap record = o.toMap();
        if (record.contains("NS.keys"))
            ++dictionaries;
        else if (record.contains("NS.objects"))
            ++arrays;
    }
    EXPECT_EQ(dictionaries, 2);
    EXPECT_EQ(arrays, 3);
}

TEST(KeyedArchiveWriter, ListsUnlikeTheirEndsAreStillWrittenWholeWithThreeByteReferences)
{
    // The writer guesses the size of a long list from its first and last items. Here those
    // are small numbers and the middle holds more than 65536 objects, so both readers must take
    // three-byte references.
    QVariantList values;
    for (int i = 0; i < 40; ++i)
        values.append(qlonglong(i % 3));
    QVariantList middle;
    for (int i = 0; i < 40000; ++i)
        middle.append(QString("item %1").arg(i));
    values.append(QVariant(middle));
    for (int i = 0; i < 40; ++i)
        values.append(qlonglong(i % 3));
    const QByteArray bytes = archive(values);
    EXPECT_EQ(trailerOf(bytes).refSize, 3);
    expectNarrowest(bytes);
    expectOursReadsBack(values, bytes);
    expectPythonReadsBack(values, bytes);
}
