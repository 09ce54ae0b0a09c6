// The keyed-archive decoder on arbitrary bytes. Beyond "no crash, no hang, no leak" (the
// sanitizers and libFuzzer's limits), five oracles:
//  - a refusal always carries an error;
//  - only binary property lists are accepted (an XML one is refused, however well formed);
//  - what is accepted can be archived again, and that archive reads back to the same value
//    (on trees under roundTripLimit values);
//  - no single allocation is far out of proportion to the input, so a small message cannot
//    make the decoder reserve memory it has no bytes for, and the decoded tree stays within
//    a bound proportional to the input however its objects are shared.
//
// Byte mutations of a binary property list mostly break its offset table, and the decoder
// never gets past libplist. So half the mutations here work on the decoded property list
// instead (references pointed elsewhere, classes swapped, keys dropped, objects shared many
// levels deep) and write it out again, which reaches the archive rules themselves.

#include "FuzzSupport.h"
#include "core/VEKError.h"
#include "net/VEKKeyedArchive.h"
#include "settings/VEKPropertyList.h"

#include <QStringList>

#include <cstddef>
#include <cstdint>
#include <algorithm>
#include <cstring>
#include <random>

extern "C" size_t LLVMFuzzerMutate(uint8_t *data, size_t size, size_t maxSize);

namespace {

// Generous: the decoder may copy the input and build a table per object, but a reservation
// a hundred times the message's size means a count was trusted.
size_t allocationBound(size_t inputSize)
{
    return 128 * inputSize + 1024 * 1024;
}

using Rng = std::minstd_rand;

qsizetype pick(Rng &rng, qsizetype n)
{
    return n <= 0 ? 0 : qsizetype(rng() % quint64(n));
}

// Names that mean something to the decoder, and a few that must not.
const QStringList &words()
{
    static const QStringList w{"$null", "$class", "$classname", "$classes", "$objects", "$top",
                               "$archiver", "$version", "root", "NS.keys", "NS.objects",
                               "NS.string", "NS.data", "NSDictionary", "NSMutableDictionary",
                               "NSArray", "NSMutableArray", "NSString", "NSMutableString",
                               "NSData", "NSMutableData", "NSObject", "NSSet", "NSNumber",
                               "NSKeyedArchiver", "CF$UID", ""};
    return w;
}

QVariant uid(quint64 v)
{
    return QVariant::fromValue(VEKPlistUID{v});
}

QVariant randomLeaf(Rng &rng, const QVariant &like)
{
    switch (pick(rng, 9)) {
    case 0: return uid(quint64(pick(rng, 12)));
    case 1: return uid(pick(rng, 2) ? quint64(rng()) << 20 : 0xffffffffULL);
    case 2: return words().at(pick(rng, words().size()));
    case 3: return qlonglong(pick(rng, 2) ? -1 : 100000);
    case 4: return pick(rng, 2) ? QVariant(qulonglong(~0ULL)) : QVariant(double(rng()) / 7.0);
    case 5: return bool(pick(rng, 2));
    case 6: return QByteArray("\x00\xff", 2);
    case 7: return pick(rng, 2) ? QVariant(QVariantMap{}) : QVariant(QVariantList{});
    default: return like; // the same value again: for shared objects
    }
}

int countNodes(const QVariant &v)
{
    int n = 1;
    if (v.metaType().id() == QMetaType::QVariantMap)
        for (const QVariant &c : v.toMap())
            n += countNodes(c);
    else if (v.metaType().id() == QMetaType::QVariantList)
        for (const QVariant &c : v.toList())
            n += countNodes(c);
    return n;
}

void mutateNode(QVariant &v, Rng &rng)
{
    if (v.metaType().id() == QMetaType::QVariantMap) {
        QVariantMap m = v.toMap();
        switch (pick(rng, 3)) {
        case 0:
            if (!m.isEmpty())
                m.erase(std::next(m.begin(), pick(rng, m.size())));
            break;
        case 1: {
            const QVariant some = m.isEmpty() ? QVariant() : *std::next(m.cbegin(), pick(rng, m.size()));
            m.insert(words().at(pick(rng, words().size())), randomLeaf(rng, some));
            break;
        }
        default: {
            // A key's value moves to another key: NS.keys and NS.objects trade places.
            if (m.size() >= 2) {
                auto a = std::next(m.begin(), pick(rng, m.size()));
                auto b = std::next(m.begin(), pick(rng, m.size()));
                std::swap(*a, *b);
            }
        }
        }
        v = m;
    } else if (v.metaType().id() == QMetaType::QVariantList) {
        QVariantList l = v.toList();
        switch (pick(rng, 4)) {
        case 0:
            if (!l.isEmpty())
                l.removeAt(pick(rng, l.size()));
            break;
        case 1:
            if (!l.isEmpty())
                l.insert(pick(rng, l.size() + 1), l.at(pick(rng, l.size())));
            break;
        case 2:
            if (l.size() >= 2)
                l.swapItemsAt(pick(rng, l.size()), pick(rng, l.size()));
            break;
        default:
            l.insert(pick(rng, l.size() + 1), randomLeaf(rng, l.isEmpty() ? QVariant() : l.at(0)));
        }
        v = l;
    } else if (v.metaType() == QMetaType::fromType<VEKPlistUID>() && pick(rng, 2)) {
        const quint64 u = v.value<VEKPlistUID>().value;
        v = uid(pick(rng, 2) ? u + 1 : u - 1);
    } else {
        v = randomLeaf(rng, v);
    }
}

// Mutates the node that comes `k`-th in a walk of the tree.
bool mutateAt(QVariant &v, int &k, Rng &rng)
{
    if (k-- == 0) {
        mutateNode(v, rng);
        return true;
    }
    if (v.metaType().id() == QMetaType::QVariantMap) {
        QVariantMap m = v.toMap();
        for (auto i = m.begin(); i != m.end(); ++i)
            if (mutateAt(*i, k, rng)) {
                v = m;
                return true;
            }
    } else if (v.metaType().id() == QMetaType::QVariantList) {
        QVariantList l = v.toList();
        for (QVariant &c : l)
            if (mutateAt(c, k, rng)) {
                v = l;
                return true;
            }
    }
    return false;
}

// Wraps the root in `levels` arrays, each holding the one below twice: a few bytes that
// stand for 2^levels values once shared objects are expanded. Done in one step, since
// libFuzzer would keep no intermediate level (they add no coverage). Either a few levels or
// past a million values, which must be refused: the decoder accepts the band between by
// design, and a corpus full of such trees would spend seconds on each round trip.
bool deepen(QVariant &tree, Rng &rng)
{
    QVariantMap archive = tree.toMap();
    QVariantList objects = archive.value(QStringLiteral("$objects")).toList();
    QVariantMap top = archive.value(QStringLiteral("$top")).toMap();
    QVariant root = top.value(QStringLiteral("root"));
    if (objects.isEmpty() || !root.isValid())
        return false;
    qsizetype cls = objects.size();
    objects.append(QVariantMap{{"$classname", "NSArray"}, {"$classes", QVariantList{"NSArray", "NSObject"}}});
    const int levels = pick(rng, 2) ? 1 + int(pick(rng, 4)) : 21 + int(pick(rng, 20));
    for (int i = 0; i < levels; ++i) {
        objects.append(QVariantMap{{"NS.objects", QVariantList{root, root}}, {"$class", uid(quint64(cls))}});
        root = uid(quint64(objects.size() - 1));
    }
    top.insert(QStringLiteral("root"), root);
    archive.insert(QStringLiteral("$objects"), objects);
    archive.insert(QStringLiteral("$top"), top);
    tree = archive;
    return true;
}

size_t mutateStructure(uint8_t *data, size_t size, size_t maxSize, Rng &rng)
{
    QVariant tree = VEKPropertyList::fromData(QByteArray(reinterpret_cast<const char *>(data), qsizetype(size)));
    if (!tree.isValid())
        return 0;
    if (pick(rng, 16) == 0 && tree.metaType().id() == QMetaType::QVariantMap) {
        deepen(tree, rng);
    } else {
        const int edits = 1 + int(pick(rng, 3));
        for (int e = 0; e < edits; ++e) {
            int k = int(pick(rng, countNodes(tree)));
            mutateAt(tree, k, rng);
        }
    }
    const QByteArray out = VEKPropertyList::toData(tree, VEKPropertyList::Format::Binary);
    if (out.isEmpty() || size_t(out.size()) > maxSize)
        return 0;
    std::memcpy(data, out.constData(), size_t(out.size()));
    return size_t(out.size());
}

constexpr int roundTripLimit = 20000;

// Whether `v` counts fewer than `budget` values, stopping as soon as it knows.
bool smallerThan(const QVariant &v, int budget)
{
    int left = budget;
    auto walk = [&left](auto &&self, const QVariant &x) -> bool {
        if (--left <= 0)
            return false;
        if (x.metaType().id() == QMetaType::QVariantMap) {
            const QVariantMap m = x.toMap();
            for (const QVariant &c : m)
                if (!self(self, c))
                    return false;
        } else if (x.metaType().id() == QMetaType::QVariantList) {
            const QVariantList l = x.toList();
            for (const QVariant &c : l)
                if (!self(self, c))
                    return false;
        }
        return true;
    };
    return walk(walk, v);
}

} // namespace

extern "C" size_t LLVMFuzzerCustomMutator(uint8_t *data, size_t size, size_t maxSize, unsigned seed)
{
    Rng rng(seed);
    if (pick(rng, 2)) {
        if (const size_t n = mutateStructure(data, size, maxSize, rng))
            return n;
    }
    return LLVMFuzzerMutate(data, size, maxSize);
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size)
{
    using namespace FuzzSupport;
    LargestAllocation::install();

    const QByteArray bytes(reinterpret_cast<const char *>(data), qsizetype(size));
    VEKError error;
    LargestAllocation::reset();
    const QVariant value = VEKKeyedArchive::unarchive(bytes, &error);
    if (LargestAllocation::largest() > allocationBound(size))
        fail("unarchive made an allocation out of proportion to its input");

    if (!value.isValid()) {
        if (error.isNull())
            fail("unarchive refused the input without an error");
        return 0;
    }
    if (!error.isNull())
        fail("unarchive returned a value and an error");
    if (!bytes.startsWith("bplist00"))
        fail("unarchive accepted something that is not a binary property list");

    // Shared objects must not multiply without end: a generous bound on the expanded tree,
    // well above what the decoder allows, so that only a missing limit trips it.
    if (!smallerThan(value, int(std::min<size_t>(4000000 + 64 * size, 100000000))))
        fail("a small archive decoded into a tree without bound");

    // The decoder accepts shared containers up to a million values by design; archiving such a
    // tree again takes seconds under the sanitizers and would starve the search. The round
    // trip is checked on the smaller trees, which go through the same code.
    if (!smallerThan(value, roundTripLimit))
        return 0;

    VEKError writeError;
    const QByteArray again = VEKKeyedArchive::archivedData(value, &writeError);
    if (again.isEmpty())
        fail("a decoded value could not be archived again");

    VEKError readError;
    const QVariant back = VEKKeyedArchive::unarchive(again, &readError);
    if (!back.isValid())
        fail("our own archive of a decoded value was refused");
    if (!sameValue(value, back))
        fail("a decoded value changed on its way through archivedData and unarchive");
    return 0;
}
