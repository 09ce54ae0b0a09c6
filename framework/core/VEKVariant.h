#pragma once

#include <QVariant>

namespace VEKVariant {

// Whether a value from a settings record or a property list holds a number. A boolean is not
// one: callers that take booleans as numbers say so with isNumberOrBool().
inline bool isNumber(const QVariant &v)
{
    switch (v.typeId()) {
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::LongLong:
    case QMetaType::ULongLong:
    case QMetaType::Double:
    case QMetaType::Float:
    case QMetaType::Short:
    case QMetaType::UShort:
        return true;
    default:
        return false;
    }
}

inline bool isNumberOrBool(const QVariant &v)
{
    return v.typeId() == QMetaType::Bool || isNumber(v);
}

} // namespace VEKVariant
