#pragma once

#include "core/VEKError.h"

#include <QByteArray>
#include <QVariant>

// Keyed archives as the platform's keyed archiver writes them: the payload of every message on
// the remote connection. A binary property list with "$archiver" "NSKeyedArchiver", "$version"
// 100000, "$top" {"root": UID} and "$objects", whose first element is "$null" and whose other
// elements refer to each other by UID.
//
//   QVariantMap, QVariantHash <-> NSDictionary (NS.keys / NS.objects; keys are strings)
//   QVariantList, QStringList <-> NSArray (NS.objects)
//   QString <-> string          bool <-> boolean          QByteArray <-> data
//   integers <-> integer (qlonglong; above INT64_MAX qulonglong)    float, double <-> real
//
// Reading takes the mutable classes too (NSMutableDictionary, NSMutableArray), NSString and
// NSMutableString records (NS.string), NSData and NSMutableData records (NS.data), and objects
// referred to more than once. Everything else is refused with an error: unknown classes, a root
// that is no object, references that lead nowhere or back to themselves, containers holding
// nil, dictionary keys that are not strings.
//
// Both functions are pure and may run on any thread.
namespace VEKKeyedArchive {

inline constexpr char errorDomain[] = "VEKKeyedArchive";
enum ErrorCode : qint64 {
    Malformed = 1,   // the bytes are not a keyed archive we accept
    Unsupported = 2, // the value holds something an archive cannot carry
};

// The "$version" both sides write and accept.
inline constexpr qlonglong archiveVersion = 100000;

// Objects nested deeper than this are refused both ways. Messages nest a few levels.
inline constexpr int maxDepth = 256;

// Encodes `root` (dictionaries as NSDictionary, arrays as NSArray; equal strings and numbers
// are stored once). An empty result and `error` when the value, or anything inside it, has no
// archived form; an invalid QVariant has none, since archived containers cannot hold nil.
QByteArray archivedData(const QVariant &root, VEKError *error = nullptr);

// Decodes an archive into the values above. Safe on hostile input: beyond the property-list
// checks, the object graph is walked with a depth limit, cycle detection and a bound on the
// decoded size relative to the input's, so shared objects cannot multiply without end.
// An invalid QVariant and `error` on anything refused.
QVariant unarchive(const QByteArray &bytes, VEKError *error = nullptr);

} // namespace VEKKeyedArchive
