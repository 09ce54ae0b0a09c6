// Mutation fuzzing inside the test suite: a fixed-seed generator, so every run tries the same
// inputs and a failure can be replayed. The counts can be raised for a longer hunt with
// QUIVERA_FUZZ_INPUTS.

#include "NetTestSupport.h"
#include "net/VEKKeyedArchive.h"

#include <QElapsedTimer>
#include <QList>
#include <gtest/gtest.h>

#include <cstdio>

namespace {

qint64 inputCount()
{
    bool ok = false;
    const qint64 n = qEnvironmentVariableIntValue("QUIVERA_FUZZ_INPUTS", &ok);
    return ok && n > 0 ? n : 1000000;
}

// xorshift64*: fast, and the same sequence on every machine.
class Random {
public:
    explicit Random(quint64 seed) : m_state(seed | 1) {}
    quint64 next()
    {
        m_state ^= m_state >> 12;
        m_state ^= m_state << 25;
        m_state ^= m_state >> 27;
        return m_state * 0x2545F4914F6CDD1DULL;
    }
    qsizetype below(qsizetype n) { return n <= 0 ? 0 : qsizetype(next() % quint64(n)); }

private:
    quint64 m_state;
};

QList<QByteArray> seedArchives()
{
    using NetTestSupport::uid;
    QList<QByteArray> seeds;
    seeds.append(VEKKeyedArchive::archivedData(QVariantMap{{"command", "getCurrentStatus"}}));
    seeds.append(VEKKeyedArchive::archivedData(QVariantMap{
        {"isPlaying", true}, {"position", 0.25}, {"name", "Hyperballad"}, {"length", 321.5},
        {"target", 7}, {"songs", QVariantList{QVariantMap{{"songID", 1}, {"name", "x"}},
                                              QVariantMap{{"songID", -2}, {"album", "y"}}}}}));
    // The platform's shapes: mutable classes, string records, shared objects.
    const QVariantMap dictClass{{"$classname", "NSMutableDictionary"},
                                {"$classes", QVariantList{"NSMutableDictionary", "NSDictionary",
                                                          "NSObject"}}};
    const QVariantMap stringClass{{"$classname", "NSMutableString"},
                                  {"$classes", QVariantList{"NSMutableString", "NSString",
                                                            "NSObject"}}};
    const QVariantList objects{
        "$null",
        QVariantMap{{"NS.keys", QVariantList{uid(2), uid(3)}},
                    {"NS.objects", QVariantList{uid(4), uid(6)}}, {"$class", uid(5)}},
        "command", "artist",
        QVariantMap{{"NS.string", "getSongsForArtist"}, {"$class", uid(7)}},
        dictClass,
        "Bj\xc3\xb6rk",
        stringClass,
    };
    seeds.append(VEKPropertyList::toData(
        QVariantMap{{"$archiver", "NSKeyedArchiver"}, {"$version", 100000},
                    {"$top", QVariantMap{{"root", uid(1)}}}, {"$objects", objects}},
        VEKPropertyList::Format::Binary));
    return seeds;
}

QByteArray mutate(const QByteArray &seed, Random &rnd)
{
    static const uchar interesting[] = {0x00, 0x01, 0x02, 0x0f, 0x10, 0x7f, 0x80, 0xff,
                                        0xa1, 0xaf, 0xd1, 0xdf, 0x13, 0x80, 0x5f, 0x08};
    QByteArray data = seed;
    const int edits = 1 + int(rnd.below(4));
    for (int e = 0; e < edits && !data.isEmpty(); ++e) {
        // Half the edits land in the offset table and trailer, where one byte moves the most.
        const qsizetype tail = std::min<qsizetype>(data.size(), 48);
        const qsizetype at = rnd.below(2) ? data.size() - 1 - rnd.below(tail) : rnd.below(data.size());
        switch (rnd.below(6)) {
        case 0:
            data[at] = char(uchar(data[at]) ^ (1u << rnd.below(8)));
            break;
        case 1:
            data[at] = char(interesting[rnd.below(sizeof interesting)]);
            break;
        case 2:
            data[at] = char(rnd.next());
            break;
        case 3:
            data.truncate(at);
            break;
        case 4:
            data.insert(at, char(rnd.next()));
            break;
        case 5: {
            // Copy a few bytes from elsewhere: references and markers that mean something.
            const qsizetype from = rnd.below(data.size());
            const qsizetype n = std::min<qsizetype>(1 + rnd.below(8), data.size() - std::max(at, from));
            if (n > 0)
                data.replace(at, n, data.mid(from, n));
            break;
        }
        }
    }
    return data;
}

} // namespace

TEST(NetFuzz, ArchiveDecoderSurvivesMutatedArchives)
{
    const QList<QByteArray> seeds = seedArchives();
    for (const QByteArray &s : seeds)
        ASSERT_TRUE(VEKKeyedArchive::unarchive(s).isValid()) << "every seed must decode";

    Random rnd(0x51ee7);
    const qint64 inputs = inputCount();
    qint64 accepted = 0;
    QElapsedTimer timer;
    timer.start();
    for (qint64 i = 0; i < inputs; ++i) {
        const QByteArray data = mutate(seeds.at(rnd.below(seeds.size())), rnd);
        VEKError error;
        const QVariant value = VEKKeyedArchive::unarchive(data, &error);
        if (!value.isValid()) {
            ASSERT_FALSE(error.isNull()) << "refused without a reason, input " << i;
            continue;
        }
        ++accepted;
        // What we accept we can write again, and it reads back the same (compared as bytes:
        // a mutated real may well be a NaN).
        const QByteArray again = VEKKeyedArchive::archivedData(value);
        ASSERT_FALSE(again.isEmpty()) << "input " << i;
        const QByteArray third = VEKKeyedArchive::archivedData(VEKKeyedArchive::unarchive(again));
        ASSERT_TRUE(third == again) << "input " << i << "\n" << data.toHex().constData() << "\n"
                                    << again.toHex().constData() << "\n" << third.toHex().constData();
    }
    std::printf("[ fuzz     ] archive decoder: %lld inputs, %lld accepted, %.1f s\n",
                static_cast<long long>(inputs), static_cast<long long>(accepted),
                timer.elapsed() / 1000.0);
}
