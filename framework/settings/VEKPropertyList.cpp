#include "VEKPropertyList.h"

#include "core/VEKLocalizedString.h"
#include "core/VEKLog.h"

#include <QDateTime>
#include <QFile>
#include <QSaveFile>
#include <QStringList>

#include <plist/plist.h>

#include <algorithm>
#include <climits>
#include <cstdlib>
#include <memory>
#include <string_view>
#include <vector>

namespace VEKPropertyList {
namespace {

// Milliseconds from 1970-01-01 to 2001-01-01, the epoch of property-list dates.
constexpr qint64 referenceMSecs = 978307200000LL;

// Beyond a million nodes, a binary list may expand its shared objects to at most twice its
// size in nodes. Writers share strings and numbers, rarely containers, so real files stay far
// below this, while a few hundred hostile bytes could otherwise ask for billions of nodes.
constexpr quint64 nodeAllowanceFloor = 1000000;

struct PlistDeleter {
    void operator()(void *node) const { plist_free(node); }
};
using PlistPtr = std::unique_ptr<void, PlistDeleter>;

QString text(const char *key) { return VEKLocalizedString(key); }

VEKError malformed(const QString &reason)
{
    return VEKError(QString::fromLatin1(errorDomain), Malformed, text("Error_propertyListMalformed"),
                    reason);
}

// ---------------------------------------------------------------------------------------------
// Shape checks that run before libplist sees the bytes: its parsers, plist_free and its writers
// recurse once per level, and its binary parser copies a shared object at every reference.

quint64 readBigEndian(const uchar *p, int size)
{
    quint64 v = 0;
    for (int i = 0; i < size; ++i)
        v = (v << 8) | p[i];
    return v;
}

class BinaryShape {
public:
    BinaryShape(const uchar *data, quint64 size) : d(data), size(size) {}

    bool check(QString *reason)
    {
        constexpr quint64 headerSize = 8, trailerSize = 32;
        if (size < headerSize + trailerSize + 2)
            return fail(reason, QStringLiteral("binary property list too short"));
        const uchar *trailer = d + size - trailerSize;
        offsetSize = trailer[6];
        refSize = trailer[7];
        count = readBigEndian(trailer + 8, 8);
        const quint64 top = readBigEndian(trailer + 16, 8);
        tableAt = readBigEndian(trailer + 24, 8);
        const quint64 tableEnd = size - trailerSize;
        if (offsetSize < 1 || offsetSize > 8 || refSize < 1 || refSize > 8 || count == 0
            || top >= count || tableAt < headerSize + 1 || tableAt > tableEnd
            || count > (tableEnd - tableAt) / offsetSize)
            return fail(reason, QStringLiteral("damaged binary property list trailer"));
        return walk(top, reason);
    }

private:
    struct Frame {
        quint64 object;
        quint64 refsAt;
        quint64 refCount;
        quint64 keyCount = 0; // a dictionary's first references are its keys
        quint64 next = 0;
        quint64 nodes = 1;
        int height = 1;
    };
    enum State : uchar { Unseen, Open, Done };

    static bool fail(QString *reason, const QString &why)
    {
        *reason = why;
        return false;
    }

    // Reads an object's length: the marker's low nibble, or an integer object after it.
    bool length(quint64 at, quint64 *n, quint64 *contentAt) const
    {
        *n = d[at] & 0x0F;
        quint64 p = at + 1;
        if (*n == 0x0F) {
            if (p >= tableAt || (d[p] >> 4) != 1 || (d[p] & 0x0F) > 3)
                return false;
            const int width = 1 << (d[p] & 0x0F);
            if (quint64(width) >= tableAt - p)
                return false;
            *n = readBigEndian(d + p + 1, width);
            p += 1 + quint64(width);
        }
        *contentAt = p;
        return true;
    }

    // libplist 2.2 aborts on a key whose text holds a NUL (an assertion in plist_get_key_val),
    // and reads a key that is not a string as nonsense.
    bool isSafeKey(quint64 object) const
    {
        const quint64 at = readBigEndian(d + tableAt + object * offsetSize, offsetSize);
        if (at < 8 || at >= tableAt)
            return false;
        const int kind = d[at] >> 4;
        quint64 n = 0;
        quint64 p = 0;
        if ((kind != 0x5 && kind != 0x6) || !length(at, &n, &p))
            return false;
        const quint64 unit = kind == 0x6 ? 2 : 1;
        if (n > (tableAt - p) / unit)
            return false;
        for (quint64 i = 0; i < n; ++i) {
            if (d[p + i * unit] == 0 && (unit == 1 || d[p + i * unit + 1] == 0))
                return false;
        }
        return true;
    }

    // Where `object`'s references start and how many it has; scalars have none.
    bool references(quint64 object, quint64 *refsAt, quint64 *refCount, quint64 *keyCount,
                    bool *container) const
    {
        const quint64 at = readBigEndian(d + tableAt + object * offsetSize, offsetSize);
        if (at < 8 || at >= tableAt)
            return false;
        const uchar marker = d[at];
        const int kind = marker >> 4;
        *container = kind == 0xA || kind == 0xC || kind == 0xD;
        if (!*container)
            return true;
        quint64 n = 0;
        quint64 p = 0;
        if (!length(at, &n, &p))
            return false;
        const quint64 perEntry = quint64(refSize) * (kind == 0xD ? 2 : 1);
        if (n > (tableAt - p) / perEntry)
            return false;
        *refsAt = p;
        *refCount = n * (kind == 0xD ? 2 : 1);
        *keyCount = kind == 0xD ? n : 0;
        return true;
    }

    // Depth-first over the object graph with memoised subtree sizes and heights: linear in the
    // objects and references, and it finds cycles, which libplist would follow forever.
    bool walk(quint64 top, QString *reason)
    {
        const quint64 allowance = nodeAllowanceFloor + 2 * size;
        std::vector<uchar> state(count, Unseen);
        std::vector<quint64> nodes(count, 1);
        std::vector<quint16> heights(count, 0);
        std::vector<bool> checkedKeys(count, false); // a long key may be shared by every entry
        std::vector<Frame> stack;
        const QString damaged = QStringLiteral("damaged binary property list object");

        auto enter = [&](quint64 object) -> bool {
            Frame f{object, 0, 0};
            bool container = false;
            if (!references(object, &f.refsAt, &f.refCount, &f.keyCount, &container))
                return false;
            if (!container) {
                state[object] = Done;
                return true;
            }
            state[object] = Open;
            stack.push_back(f);
            return true;
        };

        if (!enter(top))
            return fail(reason, damaged);
        while (!stack.empty()) {
            Frame &f = stack.back();
            if (int(stack.size()) > maxDepth)
                return fail(reason, QStringLiteral("property list nested too deeply"));
            if (f.next == f.refCount) {
                nodes[f.object] = f.nodes;
                heights[f.object] = quint16(f.height);
                state[f.object] = Done;
                const Frame done = f;
                stack.pop_back();
                if (!stack.empty()) {
                    Frame &parent = stack.back();
                    parent.nodes += done.nodes;
                    parent.height = std::max(parent.height, done.height + 1);
                    if (parent.nodes > allowance)
                        return fail(reason, QStringLiteral("property list expands too far"));
                }
                continue;
            }
            const quint64 child = readBigEndian(d + f.refsAt + f.next * quint64(refSize), refSize);
            const bool isKey = f.next < f.keyCount;
            ++f.next;
            if (child >= count)
                return fail(reason, damaged);
            if (isKey && !checkedKeys[child]) {
                if (!isSafeKey(child))
                    return fail(reason, damaged);
                checkedKeys[child] = true;
            }
            if (state[child] == Open)
                return fail(reason, QStringLiteral("property list refers to itself"));
            if (state[child] == Unseen) {
                if (!enter(child))
                    return fail(reason, damaged);
                if (state[child] == Open)
                    continue; // `f` may be dangling now; the child is on top
            }
            Frame &parent = stack.back();
            parent.nodes += nodes[child];
            parent.height = std::max(parent.height, heights[child] + 1);
            if (parent.nodes > allowance)
                return fail(reason, QStringLiteral("property list expands too far"));
            if (int(stack.size()) - 1 + parent.height > maxDepth)
                return fail(reason, QStringLiteral("property list nested too deeply"));
        }
        return true;
    }

    const uchar *d;
    quint64 size;
    int offsetSize = 0;
    int refSize = 0;
    quint64 count = 0;
    quint64 tableAt = 0;
};

// Counts open elements in one pass. Comments, CDATA, declarations and quoted attribute values
// are skipped so that nothing inside them can hide a real element from the count.
bool checkXmlDepth(std::string_view xml, QString *reason)
{
    // The <plist> element and a leaf element sit around the containers.
    constexpr int elementLimit = maxDepth + 2;
    int depth = 0;
    size_t p = 0;
    auto skipPast = [&](std::string_view terminator) {
        const size_t end = xml.find(terminator, p);
        p = end == std::string_view::npos ? xml.size() : end + terminator.size();
    };
    while ((p = xml.find('<', p)) != std::string_view::npos) {
        ++p;
        const std::string_view rest = xml.substr(p);
        if (rest.starts_with("!--")) {
            skipPast("-->");
        } else if (rest.starts_with("![CDATA[")) {
            skipPast("]]>");
        } else if (rest.starts_with('?')) {
            skipPast("?>");
        } else if (rest.starts_with('!') || rest.starts_with('/')) {
            if (rest.starts_with('/'))
                --depth;
            skipPast(">");
        } else {
            char quote = 0;
            size_t s = p;
            for (; s < xml.size(); ++s) {
                const char c = xml[s];
                if (quote) {
                    if (c == quote)
                        quote = 0;
                } else if (c == '"' || c == '\'') {
                    quote = c;
                } else if (c == '>') {
                    break;
                }
            }
            if (s >= xml.size())
                break; // unterminated tag: libplist refuses it
            if (xml[s - 1] != '/' && ++depth > elementLimit) {
                *reason = QStringLiteral("property list nested too deeply");
                return false;
            }
            p = s + 1;
        }
    }
    return true;
}


// ---------------------------------------------------------------------------------------------
// libplist nodes to QVariant.

struct FreeDeleter {
    void operator()(void *p) const { std::free(p); }
};

// A whole property list built by libplist's XML reader from one element: the only way its
// public API makes a 128-bit integer or a date outside the 32-bit second range.
plist_t nodeFromXmlElement(const QByteArray &element)
{
    const QByteArray doc = "<plist version=\"1.0\">" + element + "</plist>";
    plist_t node = nullptr;
    plist_from_xml(doc.constData(), uint32_t(doc.size()), &node);
    return node;
}

// The text libplist's XML writer gives between <tag> and </tag> for this one node.
QByteArray elementText(plist_t node, std::string_view tag)
{
    char *xml = nullptr;
    uint32_t length = 0;
    plist_to_xml(node, &xml, &length);
    if (!xml)
        return {};
    const std::string_view s(xml, length);
    QByteArray inner;
    const std::string open = "<" + std::string(tag) + ">";
    const std::string close = "</" + std::string(tag) + ">";
    const size_t begin = s.find(open);
    const size_t end = begin == std::string_view::npos ? begin : s.find(close, begin);
    if (end != std::string_view::npos) {
        const std::string_view value = s.substr(begin + open.size(), end - begin - open.size());
        inner = QByteArray(value.data(), qsizetype(value.size()));
    }
    plist_to_xml_free(xml);
    return inner;
}

// libplist 2.2 hands integers out as 64 raw bits; whether one with the top bit set was negative
// or a large unsigned value is known only to its writers. Such values are rare, so asking the
// XML writer costs nothing overall.
bool isLargeUnsigned(plist_t node)
{
    const QByteArray digits = elementText(node, "integer");
    return !digits.isEmpty() && digits.front() != '-';
}

QDateTime dateFromNode(plist_t node)
{
    int32_t sec = 0;
    int32_t usec = 0;
    plist_get_date_val(node, &sec, &usec);
    if (sec == INT32_MIN) {
        // Saturated: the date lies outside 1933-2069. The XML writer still prints it, in
        // whole seconds.
        QDateTime date = QDateTime::fromString(QString::fromLatin1(elementText(node, "date")),
                                               Qt::ISODate);
        return date.isValid() ? date.toUTC() : QDateTime();
    }
    // Before 2001 the microseconds come as a magnitude, counting away from the epoch.
    const qint64 msecs = qint64(std::abs(usec) + 500) / 1000;
    const qint64 offset = qint64(sec) * 1000 + (sec < 0 ? -msecs : msecs);
    return QDateTime::fromMSecsSinceEpoch(referenceMSecs + offset, Qt::UTC);
}

class Reader {
public:
    explicit Reader(bool fromXml) : m_fromXml(fromXml) {}

    // `depth` counts the containers around `node`.
    bool convert(plist_t node, int depth, QVariant &out)
    {
        switch (plist_get_node_type(node)) {
        case PLIST_BOOLEAN: {
            uint8_t value = 0;
            plist_get_bool_val(node, &value);
            out = bool(value);
            return true;
        }
        case PLIST_UINT: {
            uint64_t value = 0;
            plist_get_uint_val(node, &value);
            if ((value >> 63) && isLargeUnsigned(node))
                out = qulonglong(value);
            else
                out = qlonglong(value);
            return true;
        }
        case PLIST_REAL: {
            double value = 0;
            plist_get_real_val(node, &value);
            out = value;
            return true;
        }
        case PLIST_STRING: {
            uint64_t length = 0;
            const char *chars = plist_get_string_ptr(node, &length);
            out = QString::fromUtf8(chars, chars ? qsizetype(length) : 0);
            return true;
        }
        case PLIST_DATA: {
            uint64_t length = 0;
            const char *bytes = plist_get_data_ptr(node, &length);
            out = bytes ? QByteArray(bytes, qsizetype(length)) : QByteArray("");
            return true;
        }
        case PLIST_DATE: {
            const QDateTime date = dateFromNode(node);
            if (!date.isValid())
                return fail(QStringLiteral("unreadable date"));
            out = date;
            return true;
        }
        case PLIST_UID: {
            uint64_t value = 0;
            plist_get_uid_val(node, &value);
            out = QVariant::fromValue(VEKPlistUID{value});
            return true;
        }
        case PLIST_ARRAY:
            return convertArray(node, depth, out);
        case PLIST_DICT:
            return convertDict(node, depth, out);
        default:
            return fail(QStringLiteral("unexpected element"));
        }
    }

    QString reason;

private:
    bool fail(const QString &why)
    {
        reason = why;
        return false;
    }

    bool convertArray(plist_t node, int depth, QVariant &out)
    {
        if (depth >= maxDepth)
            return fail(QStringLiteral("property list nested too deeply"));
        QVariantList list;
        list.reserve(qsizetype(plist_array_get_size(node)));
        plist_array_iter rawIter = nullptr;
        plist_array_new_iter(node, &rawIter);
        const std::unique_ptr<void, FreeDeleter> iter(rawIter);
        for (;;) {
            plist_t item = nullptr;
            plist_array_next_item(node, iter.get(), &item);
            if (!item)
                break;
            QVariant value;
            if (!convert(item, depth + 1, value))
                return false;
            list.append(std::move(value));
        }
        out = std::move(list);
        return true;
    }

    bool convertDict(plist_t node, int depth, QVariant &out)
    {
        if (depth >= maxDepth)
            return fail(QStringLiteral("property list nested too deeply"));
        if (m_fromXml && plist_dict_get_size(node) == 1) {
            // XML spells a UID as {"CF$UID": n}.
            const plist_t uid = plist_dict_get_item(node, "CF$UID");
            if (uid && plist_get_node_type(uid) == PLIST_UINT) {
                uint64_t value = 0;
                plist_get_uint_val(uid, &value);
                out = QVariant::fromValue(VEKPlistUID{value});
                return true;
            }
        }
        QVariantMap map;
        plist_dict_iter rawIter = nullptr;
        plist_dict_new_iter(node, &rawIter);
        const std::unique_ptr<void, FreeDeleter> iter(rawIter);
        for (;;) {
            char *rawKey = nullptr;
            plist_t item = nullptr;
            plist_dict_next_item(node, iter.get(), &rawKey, &item);
            const std::unique_ptr<char, FreeDeleter> key(rawKey);
            if (!item)
                break;
            QVariant value;
            if (!convert(item, depth + 1, value))
                return false;
            map.insert(QString::fromUtf8(key.get()), std::move(value));
        }
        out = std::move(map);
        return true;
    }

    bool m_fromXml;
};

// ---------------------------------------------------------------------------------------------
// QVariant to libplist nodes.

class Writer {
public:
    explicit Writer(Format format) : m_format(format) {}

    // Null on failure, with `reason` set. `depth` counts the containers around `value`.
    plist_t convert(const QVariant &value, int depth)
    {
        switch (value.typeId()) {
        case QMetaType::Bool:
            return plist_new_bool(value.toBool() ? 1 : 0);
        case QMetaType::Int:
        case QMetaType::LongLong:
            return plist_new_uint(uint64_t(value.toLongLong()));
        case QMetaType::UInt:
        case QMetaType::ULongLong: {
            const quint64 u = value.toULongLong();
            if (u <= quint64(LLONG_MAX))
                return plist_new_uint(u);
            return made(nodeFromXmlElement("<integer>" + QByteArray::number(u) + "</integer>"),
                        QStringLiteral("large integer"));
        }
        case QMetaType::Double:
        case QMetaType::Float:
            return plist_new_real(value.toDouble());
        case QMetaType::QString:
            return plist_new_string(value.toString().toUtf8().constData());
        case QMetaType::QByteArray: {
            const QByteArray bytes = value.toByteArray();
            return plist_new_data(bytes.constData(), uint64_t(bytes.size()));
        }
        case QMetaType::QDateTime:
            return dateNode(value.toDateTime());
        case QMetaType::QVariantList:
            return array(value.toList(), depth);
        case QMetaType::QStringList: {
            const QStringList strings = value.toStringList();
            return array(QVariantList(strings.cbegin(), strings.cend()), depth);
        }
        case QMetaType::QVariantMap:
            return dict(value.toMap(), depth);
        case QMetaType::QVariantHash: {
            // Sorted, so that equal settings give equal files.
            const QVariantHash hash = value.toHash();
            QVariantMap sorted;
            for (auto it = hash.cbegin(); it != hash.cend(); ++it)
                sorted.insert(it.key(), it.value());
            return dict(sorted, depth);
        }
        default:
            if (value.metaType() == QMetaType::fromType<VEKPlistUID>())
                return plist_new_uid(value.value<VEKPlistUID>().value);
            return fail(value.isValid()
                            ? QStringLiteral("a value of type %1 cannot be stored")
                                  .arg(QString::fromLatin1(value.metaType().name()))
                            : QStringLiteral("an empty value cannot be stored"));
        }
    }

    QString reason;

private:
    plist_t fail(const QString &why)
    {
        reason = why;
        return nullptr;
    }

    plist_t made(plist_t node, const QString &what)
    {
        return node ? node : fail(what + QStringLiteral(" could not be made"));
    }

    plist_t dateNode(const QDateTime &date)
    {
        if (!date.isValid())
            return fail(QStringLiteral("an invalid date cannot be stored"));
        const qint64 offset = date.toMSecsSinceEpoch() - referenceMSecs;
        qint64 sec = offset / 1000;
        qint64 msecs = offset % 1000;
        if (msecs < 0) {
            msecs += 1000;
            --sec;
        }
        // XML dates carry whole seconds; round down as other writers do.
        if (m_format == Format::XML)
            msecs = 0;
        if (sec > INT32_MIN && sec <= INT32_MAX)
            return plist_new_date(int32_t(sec), int32_t(msecs * 1000));
        const QDateTime utc = date.toUTC();
        if (utc.date().year() < 1 || utc.date().year() > 9999)
            return fail(QStringLiteral("a date outside years 1-9999 cannot be stored"));
        const QString text = utc.toString(QStringLiteral("yyyy-MM-dd'T'HH:mm:ss'Z'"));
        return made(nodeFromXmlElement("<date>" + text.toLatin1() + "</date>"),
                    QStringLiteral("date"));
    }

    plist_t array(const QVariantList &items, int depth)
    {
        if (depth >= maxDepth)
            return fail(QStringLiteral("value nested too deeply"));
        PlistPtr node(plist_new_array());
        for (const QVariant &item : items) {
            plist_t child = convert(item, depth + 1);
            if (!child)
                return nullptr;
            plist_array_append_item(node.get(), child);
        }
        return node.release();
    }

    plist_t dict(const QVariantMap &map, int depth)
    {
        if (depth >= maxDepth)
            return fail(QStringLiteral("value nested too deeply"));
        PlistPtr node(plist_new_dict());
        for (auto it = map.cbegin(); it != map.cend(); ++it) {
            plist_t child = convert(it.value(), depth + 1);
            if (!child)
                return nullptr;
            plist_dict_set_item(node.get(), it.key().toUtf8().constData(), child);
        }
        return node.release();
    }

    Format m_format;
};

QByteArray serialize(const QVariant &value, Format format, QString *reason)
{
    Writer writer(format);
    const PlistPtr root(writer.convert(value, 0));
    if (!root) {
        *reason = writer.reason;
        return {};
    }
    char *out = nullptr;
    uint32_t length = 0;
    QByteArray bytes;
    if (format == Format::XML) {
        plist_to_xml(root.get(), &out, &length);
        if (out)
            bytes = QByteArray(out, qsizetype(length));
        plist_to_xml_free(out);
    } else {
        plist_to_bin(root.get(), &out, &length);
        if (out)
            bytes = QByteArray(out, qsizetype(length));
        plist_to_bin_free(out);
    }
    if (bytes.isEmpty())
        *reason = QStringLiteral("libplist wrote nothing");
    return bytes;
}

} // namespace

QVariant fromData(const QByteArray &bytes, VEKError *error)
{
    std::string_view view(bytes.constData(), size_t(bytes.size()));
    if (view.starts_with("\xEF\xBB\xBF"))
        view.remove_prefix(3); // libplist refuses a byte-order mark
    if (view.empty()) {
        VEKError::set(error, malformed(QStringLiteral("no data")));
        return {};
    }
    if (view.size() > UINT32_MAX) {
        VEKError::set(error, malformed(QStringLiteral("property list larger than 4 GiB")));
        return {};
    }
    const bool binary = view.starts_with("bplist");
    QString reason;
    plist_t raw = nullptr;
    if (binary) {
        if (!view.starts_with("bplist00"))
            reason = QStringLiteral("unsupported binary property list version");
        else if (BinaryShape(reinterpret_cast<const uchar *>(view.data()), view.size())
                     .check(&reason))
            plist_from_bin(view.data(), uint32_t(view.size()), &raw);
    } else if (checkXmlDepth(view, &reason)) {
        plist_from_xml(view.data(), uint32_t(view.size()), &raw);
    }
    const PlistPtr root(raw);
    if (!root) {
        if (reason.isEmpty())
            reason = binary ? QStringLiteral("damaged binary property list")
                            : QStringLiteral("not a property list");
        VEKError::set(error, malformed(reason));
        return {};
    }
    Reader reader(!binary);
    QVariant out;
    if (!reader.convert(root.get(), 0, out)) {
        VEKError::set(error, malformed(reader.reason));
        return {};
    }
    return out;
}

QVariant readFile(const QString &path, VEKError *error)
{
    // Read, not mapped: a file cut short by someone else while mapped would kill us with SIGBUS.
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        VEKError::set(error, VEKError(QString::fromLatin1(errorDomain), ReadFailed,
                                      text("Error_propertyListRead"),
                                      path + QStringLiteral(": ") + file.errorString()));
        return {};
    }
    if (file.size() > qint64(UINT32_MAX)) {
        VEKError::set(error, VEKError(QString::fromLatin1(errorDomain), Malformed,
                                      text("Error_propertyListMalformed"),
                                      path + QStringLiteral(": larger than 4 GiB")));
        return {};
    }
    const QByteArray bytes = file.readAll();
    if (file.error() != QFileDevice::NoError) {
        VEKError::set(error, VEKError(QString::fromLatin1(errorDomain), ReadFailed,
                                      text("Error_propertyListRead"),
                                      path + QStringLiteral(": ") + file.errorString()));
        return {};
    }
    VEKError inner;
    QVariant value = fromData(bytes, &inner);
    if (!value.isValid())
        VEKError::set(error, VEKError(inner.domain(), inner.code(), inner.localizedDescription(),
                                      path + QStringLiteral(": ") + inner.failureReason()));
    return value;
}

QByteArray toData(const QVariant &value, Format format)
{
    QString reason;
    QByteArray bytes = serialize(value, format, &reason);
    if (bytes.isEmpty())
        VEKLog(QStringLiteral("Property list not made: ") + reason);
    return bytes;
}

bool writeFile(const QString &path, const QVariant &value, Format format, VEKError *error)
{
    QString reason;
    const QByteArray bytes = serialize(value, format, &reason);
    if (bytes.isEmpty()) {
        VEKError::set(error, VEKError(QString::fromLatin1(errorDomain), Unsupported,
                                      text("Error_propertyListWrite"),
                                      path + QStringLiteral(": ") + reason));
        return false;
    }
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size() || !file.commit()) {
        VEKError::set(error, VEKError(QString::fromLatin1(errorDomain), WriteFailed,
                                      text("Error_propertyListWrite"),
                                      path + QStringLiteral(": ") + file.errorString()));
        return false;
    }
    return true;
}

} // namespace VEKPropertyList
