// The reading half of VEKKeyedArchive.h: a binary property list checked and turned into values,
// with the limits that make hostile input safe.

#include "VEKKeyedArchive.h"

#include "core/VEKLocalizedString.h"
#include "settings/VEKPropertyList.h"

#include <algorithm>
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
const QString kKeys = QStringLiteral("NS.keys");
const QString kValues = QStringLiteral("NS.objects");
const QString kString = QStringLiteral("NS.string");
const QString kData = QStringLiteral("NS.data");

// Beyond a million values, the decoded tree may count at most twice as many values as the
// archive has bytes. Every reference costs at least a byte, so archives that share only
// strings and numbers (what archivers share) stay far below; a few hundred hostile bytes that
// share containers could otherwise stand for billions of values.
constexpr quint64 valueAllowanceFloor = 1000000;

VEKError malformed(const QString &reason)
{
    return VEKError(QString::fromLatin1(errorDomain), Malformed, VEKLocalizedString("Error_archiveMalformed"),
                    reason);
}

bool isUid(const QVariant &v)
{
    return v.metaType() == QMetaType::fromType<VEKPlistUID>();
}

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
        : m_objects(objects), m_state(size_t(objects.size()), Unseen), m_values(size_t(objects.size())),
          m_sizes(size_t(objects.size())), m_allowance(valueAllowanceFloor + 2 * inputSize)
    {}

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
        case Open: return fail(QStringLiteral("object %1 contains itself").arg(index));
        case Unseen: break;
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
        case QMetaType::QByteArray: return object;
        case QMetaType::QVariantMap: return decodeRecord(object.toMap(), depth, size);
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
        case Kind::Dictionary: return decodeDictionary(record, depth, size);
        case Kind::Array: return decodeArray(record, depth, size);
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
        case Kind::Unknown: break;
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
        if (keysValue.typeId() != QMetaType::QVariantList || valuesValue.typeId() != QMetaType::QVariantList)
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
    if (archiver.typeId() != QMetaType::QString || archiver.toString() != QLatin1String("NSKeyedArchiver")) {
        VEKError::set(error, malformed(QStringLiteral("not written by a keyed archiver")));
        return {};
    }
    if (version.typeId() != QMetaType::LongLong || version.toLongLong() != archiveVersion) {
        VEKError::set(error, malformed(QStringLiteral("unknown archive version")));
        return {};
    }
    const QVariant objectsValue = archive.value(kObjects);
    const QVariant top = archive.value(kTop);
    if (objectsValue.typeId() != QMetaType::QVariantList || top.typeId() != QMetaType::QVariantMap) {
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
