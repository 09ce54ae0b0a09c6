#pragma once

#include "core/VEKError.h"

#include <QByteArray>
#include <QMetaType>
#include <QString>
#include <QVariant>

// A property-list UID: the object reference of keyed archives. It has no QVariant type of its
// own, so it travels as this small value type.
struct VEKPlistUID {
    quint64 value = 0;
    bool operator==(const VEKPlistUID &) const = default;
};
Q_DECLARE_METATYPE(VEKPlistUID)

// Property lists, XML and binary, to and from QVariant (through libplist).
//
//   dict    <-> QVariantMap          array <-> QVariantList      string <-> QString
//   integer <-> qlonglong (values above INT64_MAX as qulonglong)
//   real    <-> double               true/false <-> bool          data <-> QByteArray
//   date    <-> QDateTime in UTC, to the millisecond              UID <-> VEKPlistUID
//
// Writing also takes int, uint, float, QStringList and QVariantHash. XML has no UID type: a UID
// goes out as the usual {"CF$UID": n} dictionary, and such a dictionary reads back as a UID.
// XML dates carry whole seconds only.
//
// Reading is safe on hostile input (network frames, damaged files): nesting deeper than
// maxDepth, binary lists whose shared objects would expand far beyond their size, and anything
// libplist rejects all give an invalid QVariant and an error.
namespace VEKPropertyList {

enum class Format { XML, Binary };

inline constexpr char errorDomain[] = "VEKPropertyList";
enum ErrorCode : qint64 {
    ReadFailed = 1,  // the file could not be opened or read
    Malformed = 2,   // the bytes are not a property list we accept
    WriteFailed = 3, // the file could not be written
    Unsupported = 4, // the value holds a type a property list cannot carry
};

// Containers nested deeper than this are refused in both directions.
inline constexpr int maxDepth = 512;

// Detects XML or binary; an invalid QVariant and `error` on anything malformed.
QVariant fromData(const QByteArray &bytes, VEKError *error = nullptr);
QVariant readFile(const QString &path, VEKError *error = nullptr);

// An empty result when `value` (or anything inside it) cannot be written.
QByteArray toData(const QVariant &value, Format format);
// Replaces the file atomically: readers see the old file or the new one, never a mix.
bool writeFile(const QString &path, const QVariant &value, Format format,
               VEKError *error = nullptr);

} // namespace VEKPropertyList
