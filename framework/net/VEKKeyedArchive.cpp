#include "VEKKeyedArchive.h"

#include "core/VEKLocalizedString.h"
#include "settings/VEKPropertyList.h"

#include <QHash>
#include <QStringList>

#include <algorithm>
#include <climits>
#include <cstring>
#include <vector>

namespace VEKKeyedArchive {
namespace {

const QString kArchiver = QStringLiteral("$archiver");
const QString kVersion = QStringLiteral("$version");
const QString kTop = QStringLiteral("$top");
const QString kObjects = QStringLiteral("$objects");
const QString kRoot = QStringLiteral("root");
const QString kNull = QStringLiteral("$null");
const QString kClass = QStringLiteral("$class");
const QString kClassName = QStringLiteral("$classname");
const QString kClasses = QStringLiteral("$classes");
const QString kKeys = QStringLiteral("NS.keys");
const QString kValues = QStringLiteral("NS.objects");
const QString kString = QStringLiteral("NS.string");
const QString kData = QStringLiteral("NS.data");
constexpr qlonglong archiveVersion = 100000;

// Beyond a million values, the decoded tree may count at most twice as many values as the
// archive has bytes. Every reference costs at least a byte, so archives that share only
// strings and numbers (what archivers share) stay far below; a few hundred hostile bytes that
// share containers could otherwise stand for billions of values.
constexpr quint64 valueAllowanceFloor = 1000000;

VEKError malformed(const QString &reason)
{
    return VEKError(QString::fromLatin1(errorDomain), Malformed,
                    VEKLocalizedString("Error_archiveMalformed"), reason);
}

VEKError unsupported(const QString &reason)
{
    return VEKError(QString::fromLatin1(errorDomain), Unsupported,
                    VEKLocalizedString("Error_archiveUnsupported"), reason);
}

QVariant uid(quint64 value) { return QVariant::fromValue(VEKPlistUID{value}); }

bool isUid(const QVariant &v) { return v.metaType() == QMetaType::fromType<VEKPlistUID>(); }

// ---------------------------------------------------------------------------------------------
// Writing.

class Encoder {
public:
    // The UID of `value` in `objects`, or 0 (which is "$null", never a value) on failure.
    quint64 encode(const QVariant &value, int depth)
    {
        switch (value.typeId()) {
        case QMetaType::Bool:
            return shared(value.toBool() ? m_true : m_false, value);
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
            if (u <= qulonglong(LLONG_MAX))
                return sharedInteger(qlonglong(u));
            return sharedKeyed(m_numbers, QStringLiteral("u%1").arg(u), QVariant(u));
        }
        case QMetaType::Float:
        case QMetaType::Double: {
            const double d = value.toDouble();
            quint64 bits = 0;
            std::memcpy(&bits, &d, sizeof bits);
            return sharedKeyed(m_numbers, QStringLiteral("r%1").arg(bits), QVariant(d));
        }
        case QMetaType::QString: {
            const QString s = value.toString();
            return sharedKeyed(m_strings, s, QVariant(s));
        }
        case QMetaType::QByteArray:
            return append(QVariant(value.toByteArray()));
        case QMetaType::QVariantMap:
            return dictionary(value.toMap(), depth);
        case QMetaType::QVariantHash: {
            // Sorted, so that equal messages give equal bytes.
            const QVariantHash hash = value.toHash();
            QVariantMap sorted;
            for (auto it = hash.cbegin(); it != hash.cend(); ++it)
                sorted.insert(it.key(), it.value());
            return dictionary(sorted, depth);
        }
        case QMetaType::QVariantList:
            return array(value.toList(), depth);
        case QMetaType::QStringList: {
            const QStringList strings = value.toStringList();
            return array(QVariantList(strings.cbegin(), strings.cend()), depth);
        }
        default:
            return fail(value.isValid() ? QStringLiteral("a value of type %1 cannot be archived")
                                              .arg(QString::fromLatin1(value.metaType().name()))
                                        : QStringLiteral("an empty value cannot be archived"));
        }
    }

    QVariantList objects{kNull};
    QString reason;

private:
    quint64 fail(const QString &why)
    {
        if (reason.isEmpty())
            reason = why;
        return 0;
    }

    quint64 append(QVariant value)
    {
        objects.append(std::move(value));
        return quint64(objects.size() - 1);
    }

    quint64 shared(quint64 &slot, const QVariant &value)
    {
        if (!slot)
            slot = append(value);
        return slot;
    }

    quint64 sharedInteger(qlonglong v)
    {
        auto it = m_integers.constFind(v);
        if (it != m_integers.cend())
            return it.value();
        const quint64 at = append(QVariant(v));
        m_integers.insert(v, at);
        return at;
    }

    quint64 sharedKeyed(QHash<QString, quint64> &table, const QString &key, const QVariant &value)
    {
        auto it = table.constFind(key);
        if (it != table.cend())
            return it.value();
        const quint64 at = append(value);
        table.insert(key, at);
        return at;
    }

    // The class record of NSDictionary or NSArray, written once and shared.
    quint64 classRecord(quint64 &slot, const char *name)
    {
        if (!slot) {
            const QString className = QString::fromLatin1(name);
            slot = append(QVariantMap{
                {kClassName, className},
                {kClasses, QVariantList{className, QStringLiteral("NSObject")}},
            });
        }
        return slot;
    }

    // As the archiver does: the container takes its slot first, its contents come after it
    // and its class record after them.
    quint64 dictionary(const QVariantMap &map, int depth)
    {
        if (depth >= maxDepth)
            return fail(QStringLiteral("value nested too deeply"));
        const quint64 at = append(QVariant());
        QVariantList keys;
        QVariantList values;
        keys.reserve(map.size());
        values.reserve(map.size());
        for (auto it = map.cbegin(); it != map.cend(); ++it) {
            keys.append(uid(sharedKeyed(m_strings, it.key(), QVariant(it.key()))));
        }
        for (auto it = map.cbegin(); it != map.cend(); ++it) {
            const quint64 v = encode(it.value(), depth + 1);
            if (!v)
                return 0;
            values.append(uid(v));
        }
        const quint64 cls = classRecord(m_dictionaryClass, "NSDictionary");
        objects[qsizetype(at)] = QVariantMap{{kKeys, keys}, {kValues, values}, {kClass, uid(cls)}};
        return at;
    }

    quint64 array(const QVariantList &items, int depth)
    {
        if (depth >= maxDepth)
            return fail(QStringLiteral("value nested too deeply"));
        const quint64 at = append(QVariant());
        QVariantList values;
        values.reserve(items.size());
        for (const QVariant &item : items) {
            const quint64 v = encode(item, depth + 1);
            if (!v)
                return 0;
            values.append(uid(v));
        }
        const quint64 cls = classRecord(m_arrayClass, "NSArray");
        objects[qsizetype(at)] = QVariantMap{{kValues, values}, {kClass, uid(cls)}};
        return at;
    }

    QHash<QString, quint64> m_strings;
    QHash<qlonglong, quint64> m_integers;
    QHash<QString, quint64> m_numbers; // reals by bit pattern, large unsigned integers
    quint64 m_true = 0;
    quint64 m_false = 0;
    quint64 m_dictionaryClass = 0;
    quint64 m_arrayClass = 0;
};

// ---------------------------------------------------------------------------------------------
// The binary property list, written here rather than by libplist: its writer (2.2) keeps its
// objects in a hash table of 4096 fixed buckets and slows down with the square of their count,
// which made the archive of a 20 000-song library take about two seconds. This one is linear.
// It writes only what archives hold: dictionaries, arrays, strings, integers, reals, booleans,
// data and UIDs. Equal values become one object.

class BinaryPlistWriter {
public:
    // Empty on a value it cannot write, with `reason` set.
    QByteArray write(const QVariant &root)
    {
        const quint64 top = flatten(root, 0);
        if (!reason.isEmpty())
            return {};
        const int refSize = bytesFor(quint64(m_objects.size()));
        QByteArray out("bplist00");
        std::vector<quint64> offsets;
        offsets.reserve(m_objects.size());
        for (const Object &o : m_objects) {
            offsets.push_back(quint64(out.size()));
            if (o.kind == Object::Scalar) {
                out += o.bytes;
                continue;
            }
            const quint64 entries = o.kind == Object::Dict ? o.refs.size() / 2 : o.refs.size();
            appendMarker(out, o.kind == Object::Dict ? 0xD0 : 0xA0, entries);
            for (quint64 ref : o.refs)
                appendBigEndian(out, ref, refSize);
        }
        const quint64 tableAt = quint64(out.size());
        const int offsetSize = bytesFor(tableAt + 1);
        for (quint64 offset : offsets)
            appendBigEndian(out, offset, offsetSize);
        out += QByteArray(6, '\0');
        out += char(offsetSize);
        out += char(refSize);
        appendBigEndian(out, quint64(m_objects.size()), 8);
        appendBigEndian(out, top, 8);
        appendBigEndian(out, tableAt, 8);
        return out;
    }

    QString reason;

private:
    struct Object {
        enum Kind : uchar { Scalar, Array, Dict } kind = Scalar;
        QByteArray bytes;          // a scalar's whole encoding
        std::vector<quint64> refs; // a dictionary's keys, then its values
    };

    // The fewest of 1, 2, 4 or 8 bytes that hold every value below `limit`.
    static int bytesFor(quint64 limit)
    {
        if (limit <= 0x100)
            return 1;
        if (limit <= 0x10000)
            return 2;
        if (limit <= 0x100000000ULL)
            return 4;
        return 8;
    }

    static void appendBigEndian(QByteArray &out, quint64 v, int size)
    {
        for (int i = size - 1; i >= 0; --i)
            out += char(uchar(v >> (8 * i)));
    }

    static QByteArray integerBytes(quint64 v, bool negative)
    {
        QByteArray b;
        // Readers take 1, 2 and 4 bytes as unsigned, 8 as signed: negative values need all 8.
        const int size = negative ? 8 : bytesFor(v + 1 == 0 ? v : v + 1);
        const int power = size == 1 ? 0 : size == 2 ? 1 : size == 4 ? 2 : 3;
        b += char(0x10 | power);
        appendBigEndian(b, v, size);
        return b;
    }

    // A marker with its length in the low nibble, or 0xF and an integer object after it.
    static void appendMarker(QByteArray &out, uchar kind, quint64 length)
    {
        if (length < 15) {
            out += char(kind | uchar(length));
        } else {
            out += char(kind | 0x0F);
            out += integerBytes(length, false);
        }
    }

    quint64 scalar(QByteArray bytes)
    {
        const auto it = m_scalars.constFind(bytes);
        if (it != m_scalars.cend())
            return it.value();
        const quint64 at = quint64(m_objects.size());
        m_scalars.insert(bytes, at);
        m_objects.push_back(Object{Object::Scalar, std::move(bytes), {}});
        return at;
    }

    quint64 flatten(const QVariant &value, int depth)
    {
        QByteArray b;
        switch (value.typeId()) {
        case QMetaType::Bool:
            return scalar(QByteArray(1, value.toBool() ? '\x09' : '\x08'));
        case QMetaType::LongLong: {
            const qlonglong v = value.toLongLong();
            return scalar(integerBytes(quint64(v), v < 0));
        }
        case QMetaType::ULongLong: {
            const qulonglong v = value.toULongLong();
            if (v <= qulonglong(LLONG_MAX))
                return scalar(integerBytes(v, false));
            // Above the signed range: the 16-byte form, high half zero.
            b += char(0x14);
            appendBigEndian(b, 0, 8);
            appendBigEndian(b, v, 8);
            return scalar(b);
        }
        case QMetaType::Double: {
            const double d = value.toDouble();
            quint64 bits = 0;
            std::memcpy(&bits, &d, sizeof bits);
            b += char(0x23);
            appendBigEndian(b, bits, 8);
            return scalar(b);
        }
        case QMetaType::QByteArray: {
            const QByteArray data = value.toByteArray();
            appendMarker(b, 0x40, quint64(data.size()));
            b += data;
            return scalar(b);
        }
        case QMetaType::QString: {
            const QString s = value.toString();
            // libplist reads a one-byte string as C text, cut at its first NUL; in UTF-16 it
            // keeps the NUL.
            const bool ascii = std::all_of(s.cbegin(), s.cend(), [](QChar c) {
                return c.unicode() > 0 && c.unicode() < 0x80;
            });
            if (ascii) {
                appendMarker(b, 0x50, quint64(s.size()));
                b += s.toLatin1();
            } else {
                appendMarker(b, 0x60, quint64(s.size()));
                for (QChar c : s)
                    appendBigEndian(b, c.unicode(), 2);
            }
            return scalar(b);
        }
        case QMetaType::QVariantList: {
            if (depth >= VEKPropertyList::maxDepth)
                return fail(QStringLiteral("value nested too deeply"));
            const QVariantList items = value.toList();
            std::vector<quint64> refs;
            refs.reserve(size_t(items.size()));
            for (const QVariant &item : items)
                refs.push_back(flatten(item, depth + 1));
            return container(Object::Array, std::move(refs));
        }
        case QMetaType::QVariantMap: {
            if (depth >= VEKPropertyList::maxDepth)
                return fail(QStringLiteral("value nested too deeply"));
            const QVariantMap map = value.toMap();
            std::vector<quint64> refs;
            refs.reserve(size_t(map.size()) * 2);
            for (auto it = map.cbegin(); it != map.cend(); ++it)
                refs.push_back(flatten(it.key(), depth + 1));
            for (auto it = map.cbegin(); it != map.cend(); ++it)
                refs.push_back(flatten(it.value(), depth + 1));
            return container(Object::Dict, std::move(refs));
        }
        default:
            if (isUid(value)) {
                const quint64 v = value.value<VEKPlistUID>().value;
                const int size = bytesFor(v + 1 == 0 ? v : v + 1);
                b += char(0x80 | (size - 1));
                appendBigEndian(b, v, size);
                return scalar(b);
            }
            return fail(QStringLiteral("a value of type %1 cannot be written")
                            .arg(QString::fromLatin1(value.metaType().name())));
        }
    }

    // Containers come after their contents, so that equal ones can be shared too: every
    // song of a library reply has the same array of keys.
    quint64 container(Object::Kind kind, std::vector<quint64> refs)
    {
        QByteArray key(1, char(kind));
        key.reserve(qsizetype(1 + refs.size() * sizeof(quint64)));
        key.append(reinterpret_cast<const char *>(refs.data()),
                   qsizetype(refs.size() * sizeof(quint64)));
        const auto it = m_containers.constFind(key);
        if (it != m_containers.cend())
            return it.value();
        const quint64 at = quint64(m_objects.size());
        m_containers.insert(key, at);
        m_objects.push_back(Object{kind, {}, std::move(refs)});
        return at;
    }

    quint64 fail(const QString &why)
    {
        if (reason.isEmpty())
            reason = why;
        return 0;
    }

    std::vector<Object> m_objects;
    QHash<QByteArray, quint64> m_scalars;
    QHash<QByteArray, quint64> m_containers;
};

// ---------------------------------------------------------------------------------------------
// Reading.

enum class Kind { Dictionary, Array, String, Data, Unknown };

Kind kindOfClass(const QString &name)
{
    if (name == QLatin1String("NSDictionary") || name == QLatin1String("NSMutableDictionary"))
        return Kind::Dictionary;
    if (name == QLatin1String("NSArray") || name == QLatin1String("NSMutableArray"))
        return Kind::Array;
    if (name == QLatin1String("NSString") || name == QLatin1String("NSMutableString"))
        return Kind::String;
    if (name == QLatin1String("NSData") || name == QLatin1String("NSMutableData"))
        return Kind::Data;
    return Kind::Unknown;
}

class Decoder {
public:
    // What a decoded object stands for: how many values, itself included, and how many
    // containers deep it goes (0 for a string or a number).
    struct Size {
        quint64 values = 0;
        int height = 0;
    };

    Decoder(const QVariantList &objects, quint64 inputSize)
        : m_objects(objects), m_state(size_t(objects.size()), Unseen),
          m_values(size_t(objects.size())), m_sizes(size_t(objects.size())),
          m_allowance(valueAllowanceFloor + 2 * inputSize)
    {
    }

    // The value of object `ref`; invalid with `reason` set on failure. `depth` counts the
    // containers around it.
    QVariant decode(const QVariant &ref, int depth, Size *size)
    {
        if (!isUid(ref))
            return fail(QStringLiteral("a reference is not a UID"));
        const quint64 index = ref.value<VEKPlistUID>().value;
        if (index >= quint64(m_objects.size()))
            return fail(QStringLiteral("UID %1 refers to no object").arg(index));
        if (index == 0)
            return fail(QStringLiteral("nil where an object is required"));
        switch (m_state[index]) {
        case Done:
            // A shared object may sit deeper the second time.
            if (depth + m_sizes[index].height > maxDepth)
                return fail(QStringLiteral("objects nested too deeply"));
            *size = m_sizes[index];
            return m_values[index];
        case Open:
            return fail(QStringLiteral("object %1 contains itself").arg(index));
        case Unseen:
            break;
        }
        m_state[index] = Open;
        Size own{1, 0};
        QVariant value = decodeObject(m_objects.at(qsizetype(index)), depth, &own);
        if (!value.isValid())
            return {};
        m_state[index] = Done;
        m_values[index] = value;
        m_sizes[index] = own;
        *size = own;
        return value;
    }

    QString reason;

private:
    enum State : uchar { Unseen, Open, Done };

    QVariant fail(const QString &why)
    {
        if (reason.isEmpty())
            reason = why;
        return {};
    }

    QVariant decodeObject(const QVariant &object, int depth, Size *size)
    {
        switch (object.typeId()) {
        case QMetaType::QString:
        case QMetaType::Bool:
        case QMetaType::LongLong:
        case QMetaType::ULongLong:
        case QMetaType::Double:
        case QMetaType::QByteArray:
            return object;
        case QMetaType::QVariantMap:
            return decodeRecord(object.toMap(), depth, size);
        default:
            return fail(QStringLiteral("an object of type %1 has no archived meaning")
                            .arg(QString::fromLatin1(object.metaType().name())));
        }
    }

    QString className(const QVariantMap &record) const
    {
        const QVariant classRef = record.value(kClass);
        if (!isUid(classRef))
            return {};
        const quint64 index = classRef.value<VEKPlistUID>().value;
        if (index == 0 || index >= quint64(m_objects.size()))
            return {};
        const QVariant cls = m_objects.at(qsizetype(index));
        if (cls.typeId() != QMetaType::QVariantMap)
            return {};
        const QVariant name = cls.toMap().value(kClassName);
        return name.typeId() == QMetaType::QString ? name.toString() : QString();
    }

    QVariant decodeRecord(const QVariantMap &record, int depth, Size *size)
    {
        const QString name = className(record);
        if (name.isEmpty())
            return fail(QStringLiteral("an object without a readable class"));
        switch (kindOfClass(name)) {
        case Kind::Dictionary:
            return decodeDictionary(record, depth, size);
        case Kind::Array:
            return decodeArray(record, depth, size);
        case Kind::String: {
            const QVariant s = record.value(kString);
            if (s.typeId() != QMetaType::QString)
                return fail(QStringLiteral("%1 without NS.string").arg(name));
            return s;
        }
        case Kind::Data: {
            const QVariant d = record.value(kData);
            if (d.typeId() != QMetaType::QByteArray)
                return fail(QStringLiteral("%1 without NS.data").arg(name));
            return d;
        }
        case Kind::Unknown:
            break;
        }
        return fail(QStringLiteral("class %1 is not accepted").arg(name));
    }

    // Adds a decoded child to its container's size.
    bool grow(Size *size, const Size &child)
    {
        size->values += child.values;
        size->height = std::max(size->height, child.height + 1);
        if (size->values > m_allowance) {
            fail(QStringLiteral("archive expands too far"));
            return false;
        }
        return true;
    }

    QVariant decodeDictionary(const QVariantMap &record, int depth, Size *size)
    {
        if (depth >= maxDepth)
            return fail(QStringLiteral("objects nested too deeply"));
        size->height = 1;
        const QVariant keysValue = record.value(kKeys);
        const QVariant valuesValue = record.value(kValues);
        if (keysValue.typeId() != QMetaType::QVariantList
            || valuesValue.typeId() != QMetaType::QVariantList)
            return fail(QStringLiteral("a dictionary without NS.keys and NS.objects arrays"));
        const QVariantList keys = keysValue.toList();
        const QVariantList values = valuesValue.toList();
        if (keys.size() != values.size())
            return fail(QStringLiteral("a dictionary with %1 keys and %2 objects")
                            .arg(keys.size())
                            .arg(values.size()));
        QVariantMap map;
        for (qsizetype i = 0; i < keys.size(); ++i) {
            Size child;
            const QVariant key = decode(keys.at(i), depth + 1, &child);
            if (!key.isValid() || !grow(size, child))
                return {};
            if (key.typeId() != QMetaType::QString)
                return fail(QStringLiteral("a dictionary key is not a string"));
            const QVariant value = decode(values.at(i), depth + 1, &child);
            if (!value.isValid() || !grow(size, child))
                return {};
            map.insert(key.toString(), value);
        }
        return map;
    }

    QVariant decodeArray(const QVariantMap &record, int depth, Size *size)
    {
        if (depth >= maxDepth)
            return fail(QStringLiteral("objects nested too deeply"));
        size->height = 1;
        const QVariant valuesValue = record.value(kValues);
        if (valuesValue.typeId() != QMetaType::QVariantList)
            return fail(QStringLiteral("an array without NS.objects"));
        const QVariantList refs = valuesValue.toList();
        QVariantList list;
        list.reserve(refs.size());
        for (const QVariant &ref : refs) {
            Size child;
            QVariant value = decode(ref, depth + 1, &child);
            if (!value.isValid() || !grow(size, child))
                return {};
            list.append(std::move(value));
        }
        return list;
    }

    const QVariantList &m_objects;
    std::vector<uchar> m_state;
    std::vector<QVariant> m_values;
    std::vector<Size> m_sizes;
    quint64 m_allowance;
};

} // namespace

QByteArray archivedData(const QVariant &root, VEKError *error)
{
    Encoder encoder;
    const quint64 top = encoder.encode(root, 0);
    if (!top) {
        VEKError::set(error, unsupported(encoder.reason));
        return {};
    }
    const QVariantMap archive{
        {kArchiver, QStringLiteral("NSKeyedArchiver")},
        {kVersion, archiveVersion},
        {kTop, QVariantMap{{kRoot, uid(top)}}},
        {kObjects, encoder.objects},
    };
    BinaryPlistWriter writer;
    QByteArray bytes = writer.write(archive);
    if (bytes.isEmpty())
        VEKError::set(error, unsupported(writer.reason));
    return bytes;
}

QVariant unarchive(const QByteArray &bytes, VEKError *error)
{
    // Text property lists are no archives of ours; refusing them here spares the XML parser.
    if (!bytes.startsWith("bplist")) {
        VEKError::set(error, malformed(QStringLiteral("not a binary property list")));
        return {};
    }
    VEKError plistError;
    const QVariant plist = VEKPropertyList::fromData(bytes, &plistError);
    if (!plist.isValid()) {
        VEKError::set(error, malformed(plistError.failureReason()));
        return {};
    }
    if (plist.typeId() != QMetaType::QVariantMap) {
        VEKError::set(error, malformed(QStringLiteral("the property list is not a dictionary")));
        return {};
    }
    const QVariantMap archive = plist.toMap();
    const QVariant archiver = archive.value(kArchiver);
    const QVariant version = archive.value(kVersion);
    if (archiver.typeId() != QMetaType::QString
        || archiver.toString() != QLatin1String("NSKeyedArchiver")) {
        VEKError::set(error, malformed(QStringLiteral("not written by a keyed archiver")));
        return {};
    }
    if (version.typeId() != QMetaType::LongLong || version.toLongLong() != archiveVersion) {
        VEKError::set(error, malformed(QStringLiteral("unknown archive version")));
        return {};
    }
    const QVariant objectsValue = archive.value(kObjects);
    const QVariant top = archive.value(kTop);
    if (objectsValue.typeId() != QMetaType::QVariantList
        || top.typeId() != QMetaType::QVariantMap) {
        VEKError::set(error, malformed(QStringLiteral("no $objects array or $top dictionary")));
        return {};
    }
    const QVariantList objects = objectsValue.toList();
    if (objects.isEmpty() || objects.first().typeId() != QMetaType::QString
        || objects.first().toString() != kNull) {
        VEKError::set(error, malformed(QStringLiteral("$objects does not start with $null")));
        return {};
    }
    const QVariant rootRef = top.toMap().value(kRoot);
    if (!isUid(rootRef)) {
        VEKError::set(error, malformed(QStringLiteral("$top has no root UID")));
        return {};
    }
    Decoder decoder(objects, quint64(bytes.size()));
    Decoder::Size size;
    QVariant value = decoder.decode(rootRef, 0, &size);
    if (!value.isValid())
        VEKError::set(error, malformed(decoder.reason));
    return value;
}

} // namespace VEKKeyedArchive
