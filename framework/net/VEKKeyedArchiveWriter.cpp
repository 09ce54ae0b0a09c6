// The writing half of VEKKeyedArchive.h.

#include "VEKKeyedArchive.h"

#include "core/VEKLocalizedString.h"

#include <QHash>
#include <QStringList>

#include <algorithm>
#include <climits>
#include <cstring>
#include <vector>

namespace VEKKeyedArchive {
namespace {

VEKError unsupported(const QString &reason)
{
    return VEKError(QString::fromLatin1(errorDomain), Unsupported,
                    VEKLocalizedString("Error_archiveUnsupported"), reason);
}

// Writing: one walk over the value, straight into the bytes of the binary property list.
//
// Archive objects get their UIDs in the archiver's order (a container takes its slot first,
// its contents come after it and its class record after them). Property-list objects are
// written as soon as everything they refer to has been: a scalar when first met, a
// container's record after its contents. So every reference is known when it is written; only
// its width has to be chosen beforehand, from an estimate of the object count (see Estimate).
// When the real count, known at the end, needs another width (sharing of equal strings and
// numbers lowers it, a sampled list may not be like its samples), the archive is written again
// with the right one. For replies, whose lists hold items of one shape, that happens only for
// counts near 256, 65 536 or 16 777 216 objects.
//
// Not shared, as with the platform's archiver: containers, however equal, and data.
//
// libplist 2.2's writer kept its objects in a hash table of 4096 fixed buckets and slowed
// down with the square of their count: hence a writer of our own.

constexpr quint64 none = ~quint64(0);

// The fewest bytes (1 to 8) that hold `v`: object references and offsets.
int widthOf(quint64 v)
{
    int n = 1;
    while (n < 8 && (v >> (8 * n)) != 0)
        ++n;
    return n;
}

// The fewest of 1, 2, 4 or 8 bytes that hold `v`: integers and UIDs, which readers take only
// in these sizes.
int powerWidthOf(quint64 v)
{
    if (v <= 0xFF)
        return 1;
    if (v <= 0xFFFF)
        return 2;
    if (v <= 0xFFFFFFFFULL)
        return 4;
    return 8;
}

// A guess at what a value becomes, counted as if nothing were shared. Long lists are sampled:
// a reply's list holds items of one shape, and a wrong guess costs a second round, never a
// wrong archive.
struct Estimate {
    quint64 objects = 0;
    quint64 archived = 0;
    quint64 bytes = 0;
    quint64 strings = 0; // string values, keys left out: most keys repeat
    quint64 integers = 0;

    // Adds `e` scaled by num / den.
    void add(const Estimate &e, quint64 num, quint64 den)
    {
        objects += e.objects * num / den;
        archived += e.archived * num / den;
        bytes += e.bytes * num / den;
        strings += e.strings * num / den;
        integers += e.integers * num / den;
    }
};

constexpr qsizetype sampledItems = 32;

void estimate(const QVariant &value, int depth, Estimate *e)
{
    // Every archive object may need a UID object besides its own.
    switch (value.typeId()) {
    case QMetaType::QString:
        e->objects += 2;
        e->archived += 1;
        e->bytes += 16 + quint64(static_cast<const QString *>(value.constData())->size());
        e->strings += 1;
        return;
    case QMetaType::QByteArray:
        e->objects += 2;
        e->archived += 1;
        e->bytes += 16 + quint64(static_cast<const QByteArray *>(value.constData())->size());
        return;
    case QMetaType::QStringList: {
        const auto *list = static_cast<const QStringList *>(value.constData());
        const quint64 n = quint64(list->size());
        e->objects += 3 + 2 * n;
        e->archived += 1 + n;
        e->bytes += 48 + 24 * n;
        e->strings += n;
        return;
    }
    case QMetaType::QVariantList: {
        const auto *list = static_cast<const QVariantList *>(value.constData());
        e->objects += 3;
        e->archived += 1;
        e->bytes += 48;
        if (depth >= maxDepth)
            return;
        if (list->size() <= 2 * sampledItems) {
            for (const QVariant &item : *list)
                estimate(item, depth + 1, e);
            return;
        }
        // The first and the last items stand for all of them.
        Estimate sample;
        for (qsizetype i = 0; i < sampledItems; ++i) {
            estimate(list->at(i), depth + 1, &sample);
            estimate(list->at(list->size() - 1 - i), depth + 1, &sample);
        }
        e->add(sample, quint64(list->size()), 2 * sampledItems);
        return;
    }
    case QMetaType::QVariantMap: {
        const auto *map = static_cast<const QVariantMap *>(value.constData());
        e->objects += 4 + 2 * quint64(map->size());
        e->archived += 1 + quint64(map->size());
        e->bytes += 64;
        if (depth < maxDepth) {
            for (auto it = map->cbegin(); it != map->cend(); ++it) {
                e->bytes += 8; // its references: keys repeat
                estimate(it.value(), depth + 1, e);
            }
        }
        return;
    }
    case QMetaType::QVariantHash: {
        const auto *hash = static_cast<const QVariantHash *>(value.constData());
        e->objects += 4 + 2 * quint64(hash->size());
        e->archived += 1 + quint64(hash->size());
        e->bytes += 64;
        if (depth < maxDepth) {
            for (auto it = hash->cbegin(); it != hash->cend(); ++it) {
                e->bytes += 8; // its references: keys repeat
                estimate(it.value(), depth + 1, e);
            }
        }
        return;
    }
    default:
        e->objects += 2;
        e->archived += 1;
        e->bytes += 24;
        e->integers += 1; // or another number: no matter for a guess
        return;
    }
}

class ArchiveWriter {
public:
    ArchiveWriter(int refSize, const Estimate &b) : m_refSize(refSize)
    {
        // A generous first guess: most replies then never move.
        m_out.resize(qsizetype(std::min<quint64>(b.bytes, quint64(1) << 30)));
        m_data = m_out.data();
        std::memcpy(m_data, "bplist00", 8);
        m_offsets.reserve(size_t(b.objects));
        m_archived.reserve(size_t(b.archived));
        m_refs.reserve(1024);
        m_pending.reserve(256);
        // Growing these tables took a tenth of the time of a library reply.
        m_strings.reserve(qsizetype(std::min<quint64>(b.strings + 64, 1 << 24)));
        m_integers.reserve(qsizetype(std::min<quint64>(b.integers + 16, 1 << 24)));
    }

    // The whole property list; empty with `reason` set when something cannot be archived.
    QByteArray write(const QVariant &root)
    {
        m_archived.push_back({ascii("$null"), none});
        const quint64 top = encode(root, 0);
        if (!top)
            return {};

        const quint64 objects = beginContainer(0xA0, quint64(m_archived.size()));
        for (const Archived &a : m_archived)
            putRef(a.object);
        const quint64 rootUid = uidOf(top);
        const quint64 topKey = ascii("root");
        const quint64 topDict = beginContainer(0xD0, 1);
        putRef(topKey);
        putRef(rootUid);
        const quint64 keys[] = {ascii("$archiver"), ascii("$objects"), ascii("$top"),
                                ascii("$version")};
        const quint64 archiver = ascii("NSKeyedArchiver");
        const quint64 version = integer(quint64(archiveVersion), false);
        const quint64 envelope = beginContainer(0xD0, 4);
        for (quint64 k : keys)
            putRef(k);
        putRef(archiver);
        putRef(objects);
        putRef(topDict);
        putRef(version);

        const quint64 count = quint64(m_offsets.size());
        m_fits = widthOf(count - 1) <= m_refSize;
        if (!m_fits)
            return {};
        const quint64 tableAt = quint64(m_size);
        const int offsetSize = widthOf(tableAt - 1);
        char *p = grow(qsizetype(count) * offsetSize + 32);
        for (quint64 offset : m_offsets) {
            putBigEndian(p, offset, offsetSize);
            p += offsetSize;
        }
        std::memset(p, 0, 6);
        p[6] = char(offsetSize);
        p[7] = char(m_refSize);
        putBigEndian(p + 8, count, 8);
        putBigEndian(p + 16, envelope, 8);
        putBigEndian(p + 24, tableAt, 8);
        // Sharing makes the first guess generous; giving the rest back moves nothing.
        m_out.resize(m_size);
        m_out.squeeze();
        return std::move(m_out);
    }

    // After write(): how many objects the list holds, and whether the references were wide
    // enough for them.
    quint64 objectCount() const { return quint64(m_offsets.size()); }
    bool fits() const { return m_fits; }

    QString reason;

private:
    struct Archived {
        quint64 object; // the property-list object of this archive object
        quint64 uid;    // the UID object that refers to it, once one has been written
    };

    quint64 fail(const QString &why)
    {
        if (reason.isEmpty())
            reason = why;
        return 0;
    }

    // --- Bytes.

    char *grow(qsizetype n)
    {
        if (m_size + n > m_out.size()) {
            m_out.resize(std::max(m_out.size() * 2, m_size + n));
            m_data = m_out.data();
        }
        char *p = m_data + m_size;
        m_size += n;
        return p;
    }

    static void putBigEndian(char *p, quint64 v, int size)
    {
        for (int i = size - 1; i >= 0; --i, v >>= 8)
            p[i] = char(uchar(v));
    }

    // Starts a new object; its index.
    quint64 begin()
    {
        m_offsets.push_back(quint64(m_size));
        return quint64(m_offsets.size() - 1);
    }

    void putRef(quint64 object) { putBigEndian(grow(m_refSize), object, m_refSize); }

    // A marker with the length in its low nibble, or 0xF and an integer after it.
    void putMarker(uchar kind, quint64 length)
    {
        if (length < 15) {
            *grow(1) = char(kind | uchar(length));
            return;
        }
        const int size = powerWidthOf(length);
        char *p = grow(2 + size);
        p[0] = char(kind | 0x0F);
        p[1] = char(0x10 | (size == 1 ? 0 : size == 2 ? 1 : size == 4 ? 2 : 3));
        putBigEndian(p + 2, length, size);
    }

    // --- Property-list objects; each returns its index.

    // The container's references must follow at once: whatever they refer to is written
    // before it.
    quint64 beginContainer(uchar kind, quint64 entries)
    {
        const quint64 at = begin();
        putMarker(kind, entries);
        return at;
    }

    quint64 array(const quint64 *refs, size_t n)
    {
        const quint64 at = beginContainer(0xA0, n);
        char *p = grow(qsizetype(n) * m_refSize);
        for (size_t i = 0; i < n; ++i, p += m_refSize)
            putBigEndian(p, refs[i], m_refSize);
        return at;
    }

    // Readers take 1, 2 and 4 bytes as unsigned and 8 as signed: negative values need all 8.
    quint64 integer(quint64 v, bool negative)
    {
        const quint64 at = begin();
        const int size = negative ? 8 : powerWidthOf(v);
        char *p = grow(1 + size);
        p[0] = char(0x10 | (size == 1 ? 0 : size == 2 ? 1 : size == 4 ? 2 : 3));
        putBigEndian(p + 1, v, size);
        return at;
    }

    quint64 string(QStringView s)
    {
        const quint64 at = begin();
        const char16_t *u = s.utf16();
        const qsizetype n = s.size();
        // libplist reads a one-byte string as C text, cut at its first NUL; in UTF-16 it keeps
        // the NUL.
        bool oneByte = true;
        for (qsizetype i = 0; i < n && oneByte; ++i)
            oneByte = u[i] - 1u < 0x7Fu;
        if (oneByte) {
            putMarker(0x50, quint64(n));
            char *p = grow(n);
            for (qsizetype i = 0; i < n; ++i)
                p[i] = char(u[i]);
        } else {
            // UTF-16 code units as they are: a surrogate pair counts two in the length.
            putMarker(0x60, quint64(n));
            char *p = grow(2 * n);
            for (qsizetype i = 0; i < n; ++i) {
                p[2 * i] = char(u[i] >> 8);
                p[2 * i + 1] = char(u[i] & 0xFF);
            }
        }
        return at;
    }

    quint64 ascii(const char *text)
    {
        const quint64 at = begin();
        const size_t n = std::strlen(text);
        putMarker(0x50, n);
        std::memcpy(grow(qsizetype(n)), text, n);
        return at;
    }

    // The coder's own keys, each written once.
    quint64 key(quint64 &slot, const char *text)
    {
        if (slot == none)
            slot = ascii(text);
        return slot;
    }

    // --- Archive objects; each returns its UID (0, "$null", on failure).

    quint64 archived(quint64 object)
    {
        m_archived.push_back({object, none});
        return quint64(m_archived.size() - 1);
    }

    quint64 uidOf(quint64 archiveIndex)
    {
        Archived &a = m_archived[size_t(archiveIndex)];
        if (a.uid == none) {
            a.uid = begin();
            const int size = powerWidthOf(archiveIndex);
            char *p = grow(1 + size);
            p[0] = char(0x80 | (size - 1));
            putBigEndian(p + 1, archiveIndex, size);
        }
        return a.uid;
    }

    quint64 sharedString(QStringView s)
    {
        // Keys, and values copied from one string, share their characters: recognising the
        // same characters at the same address spares hashing and comparing them.
        const auto address = reinterpret_cast<quintptr>(s.utf16());
        SeenString &seen = m_seen[(address >> 4 ^ address >> 10) % std::size(m_seen)];
        if (seen.text == s.utf16() && seen.size == s.size())
            return seen.uid;
        auto it = m_strings.constFind(s);
        quint64 at;
        if (it != m_strings.cend()) {
            at = it.value();
        } else {
            at = archived(string(s));
            m_strings.insert(s, at);
        }
        seen = {s.utf16(), s.size(), at};
        return at;
    }

    quint64 sharedInteger(qlonglong v)
    {
        auto it = m_integers.constFind(v);
        if (it != m_integers.cend())
            return it.value();
        const quint64 at = archived(integer(quint64(v), v < 0));
        m_integers.insert(v, at);
        return at;
    }

    // Above the signed range: the 16-byte form, high half zero.
    quint64 sharedHugeInteger(quint64 v)
    {
        auto it = m_hugeIntegers.constFind(v);
        if (it != m_hugeIntegers.cend())
            return it.value();
        const quint64 object = begin();
        char *p = grow(17);
        p[0] = char(0x14);
        putBigEndian(p + 1, 0, 8);
        putBigEndian(p + 9, v, 8);
        const quint64 at = archived(object);
        m_hugeIntegers.insert(v, at);
        return at;
    }

    // Reals are shared by bit pattern, so that 0.0 and -0.0 stay apart.
    quint64 sharedReal(double d)
    {
        quint64 bits = 0;
        std::memcpy(&bits, &d, sizeof bits);
        auto it = m_reals.constFind(bits);
        if (it != m_reals.cend())
            return it.value();
        const quint64 object = begin();
        char *p = grow(9);
        p[0] = char(0x23);
        putBigEndian(p + 1, bits, 8);
        const quint64 at = archived(object);
        m_reals.insert(bits, at);
        return at;
    }

    quint64 sharedBool(bool v)
    {
        quint64 &slot = v ? m_true : m_false;
        if (!slot) {
            const quint64 object = begin();
            *grow(1) = v ? '\x09' : '\x08';
            slot = archived(object);
        }
        return slot;
    }

    quint64 data(const QByteArray &bytes)
    {
        const quint64 object = begin();
        putMarker(0x40, quint64(bytes.size()));
        std::memcpy(grow(bytes.size()), bytes.constData(), size_t(bytes.size()));
        return archived(object);
    }

    quint64 encode(const QVariant &value, int depth)
    {
        switch (value.typeId()) {
        case QMetaType::Bool:
            return sharedBool(value.toBool());
        case QMetaType::Char:
        case QMetaType::SChar:
        case QMetaType::Short:
        case QMetaType::Int:
        case QMetaType::Long:
        case QMetaType::LongLong:
            return sharedInteger(value.toLongLong());
        case QMetaType::UChar:
        case QMetaType::UShort:
        case QMetaType::UInt:
        case QMetaType::ULong:
        case QMetaType::ULongLong: {
            const qulonglong u = value.toULongLong();
            return u <= qulonglong(LLONG_MAX) ? sharedInteger(qlonglong(u)) : sharedHugeInteger(u);
        }
        case QMetaType::Float:
        case QMetaType::Double:
            return sharedReal(value.toDouble());
        case QMetaType::QString:
            return sharedString(*static_cast<const QString *>(value.constData()));
        case QMetaType::QByteArray:
            return data(*static_cast<const QByteArray *>(value.constData()));
        case QMetaType::QVariantMap: {
            const auto &map = *static_cast<const QVariantMap *>(value.constData());
            return dictionary(depth, [&](auto &&visit) {
                for (auto it = map.cbegin(); it != map.cend(); ++it)
                    visit(it.key(), it.value());
            });
        }
        case QMetaType::QVariantHash: {
            // In key order, so that equal messages give equal bytes.
            const auto &hash = *static_cast<const QVariantHash *>(value.constData());
            std::vector<QVariantHash::const_iterator> entries;
            entries.reserve(size_t(hash.size()));
            for (auto it = hash.cbegin(); it != hash.cend(); ++it)
                entries.push_back(it);
            std::sort(entries.begin(), entries.end(),
                      [](const auto &a, const auto &b) { return a.key() < b.key(); });
            return dictionary(depth, [&](auto &&visit) {
                for (const auto &it : entries)
                    visit(it.key(), it.value());
            });
        }
        case QMetaType::QVariantList: {
            const auto &list = *static_cast<const QVariantList *>(value.constData());
            return arrayRecord(depth, [&] {
                for (const QVariant &item : list) {
                    const quint64 v = encode(item, depth + 1);
                    if (!v)
                        return false;
                    m_refs.push_back(v);
                }
                return true;
            });
        }
        case QMetaType::QStringList: {
            const auto &list = *static_cast<const QStringList *>(value.constData());
            return arrayRecord(depth, [&] {
                for (const QString &s : list)
                    m_refs.push_back(sharedString(s));
                return true;
            });
        }
        default:
            return fail(value.isValid() ? QStringLiteral("a value of type %1 cannot be archived")
                                              .arg(QString::fromLatin1(value.metaType().name()))
                                        : QStringLiteral("an empty value cannot be archived"));
        }
    }

    // The class record of NSDictionary or NSArray, written once and shared.
    quint64 classRecord(quint64 &slot, const char *name)
    {
        if (!slot) {
            const quint64 nameString = ascii(name);
            const quint64 chain[] = {nameString, key(m_nsObject, "NSObject")};
            const quint64 classes = array(chain, 2);
            const quint64 keys[] = {key(m_classNameKey, "$classname"),
                                    key(m_classesKey, "$classes")};
            const quint64 record = beginContainer(0xD0, 2);
            putRef(keys[0]);
            putRef(keys[1]);
            putRef(nameString);
            putRef(classes);
            slot = archived(record);
        }
        return slot;
    }

    // Turns the UIDs from `from` on in m_refs into the UID objects that refer to them.
    void toUidObjects(size_t from)
    {
        for (size_t i = from; i < m_refs.size(); ++i)
            m_refs[i] = uidOf(m_refs[i]);
    }

    // `entries(visit)` calls visit(key, value) for each entry in order.
    template <typename Entries>
    quint64 dictionary(int depth, const Entries &entries)
    {
        if (depth >= maxDepth)
            return fail(QStringLiteral("value nested too deeply"));
        const quint64 at = archived(none);
        const size_t base = m_refs.size();
        const size_t pendingBase = m_pending.size();
        // Keys first, as the archiver numbers them; the values wait on a stack of their own.
        entries([&](const QString &k, const QVariant &v) {
            m_refs.push_back(sharedString(k));
            m_pending.push_back(&v);
        });
        const size_t n = m_refs.size() - base;
        for (size_t i = 0; i < n; ++i) {
            const quint64 uid = encode(*m_pending[pendingBase + i], depth + 1);
            if (!uid)
                return 0;
            m_refs.push_back(uid);
        }
        m_pending.resize(pendingBase);
        const quint64 cls = classRecord(m_dictionaryClass, "NSDictionary");
        toUidObjects(base);
        const quint64 keys = array(m_refs.data() + base, n);
        const quint64 values = array(m_refs.data() + base + n, n);
        m_refs.resize(base);
        const quint64 clsUid = uidOf(cls);
        const quint64 recordKeys[] = {key(m_classKey, "$class"), key(m_keysKey, "NS.keys"),
                                      key(m_objectsKey, "NS.objects")};
        const quint64 record = beginContainer(0xD0, 3);
        for (quint64 k : recordKeys)
            putRef(k);
        putRef(clsUid);
        putRef(keys);
        putRef(values);
        m_archived[size_t(at)].object = record;
        return at;
    }

    // `items()` pushes the UIDs of the items onto m_refs, false on failure.
    template <typename Items>
    quint64 arrayRecord(int depth, const Items &items)
    {
        if (depth >= maxDepth)
            return fail(QStringLiteral("value nested too deeply"));
        const quint64 at = archived(none);
        const size_t base = m_refs.size();
        if (!items())
            return 0;
        const quint64 cls = classRecord(m_arrayClass, "NSArray");
        toUidObjects(base);
        const quint64 values = array(m_refs.data() + base, m_refs.size() - base);
        m_refs.resize(base);
        const quint64 clsUid = uidOf(cls);
        const quint64 recordKeys[] = {key(m_classKey, "$class"), key(m_objectsKey, "NS.objects")};
        const quint64 record = beginContainer(0xD0, 2);
        for (quint64 k : recordKeys)
            putRef(k);
        putRef(clsUid);
        putRef(values);
        m_archived[size_t(at)].object = record;
        return at;
    }

    const int m_refSize;
    QByteArray m_out;
    char *m_data = nullptr;
    qsizetype m_size = 8; // the header is in place
    std::vector<quint64> m_offsets;
    std::vector<Archived> m_archived;
    std::vector<quint64> m_refs; // UIDs of the contents of the containers being written
    std::vector<const QVariant *> m_pending; // their values still to write
    bool m_fits = true;

    // Archive objects shared by value.
    QHash<QStringView, quint64> m_strings; // views into the value being archived
    struct SeenString {
        const char16_t *text = nullptr;
        qsizetype size = -1;
        quint64 uid = 0;
    };
    SeenString m_seen[64]; // the strings met last, by the address of their characters
    QHash<qlonglong, quint64> m_integers;
    QHash<quint64, quint64> m_hugeIntegers;
    QHash<quint64, quint64> m_reals; // by bit pattern
    quint64 m_true = 0;
    quint64 m_false = 0;
    quint64 m_dictionaryClass = 0;
    quint64 m_arrayClass = 0;

    // Property-list strings of the coder's keys.
    quint64 m_classKey = none;
    quint64 m_keysKey = none;
    quint64 m_objectsKey = none;
    quint64 m_classNameKey = none;
    quint64 m_classesKey = none;
    quint64 m_nsObject = none;
};

} // namespace

QByteArray archivedData(const QVariant &root, VEKError *error)
{
    // The envelope, the two class records and the coder's keys, then the value.
    Estimate b{64, 4, 512, 0, 0};
    estimate(root, 0, &b);
    int refSize = widthOf(b.objects - 1);
    // A second round only when the estimate chose the wrong width: the count is then known.
    for (int round = 0; round < 2; ++round) {
        ArchiveWriter writer(refSize, b);
        QByteArray bytes = writer.write(root);
        if (!writer.reason.isEmpty()) {
            VEKError::set(error, unsupported(writer.reason));
            return {};
        }
        const int needed = widthOf(writer.objectCount() - 1);
        if (writer.fits() && needed == refSize)
            return bytes;
        refSize = needed;
    }
    VEKError::set(error, unsupported(QStringLiteral("the object count kept changing")));
    return {};
}

} // namespace VEKKeyedArchive
