#pragma once

// Helpers for the few stage records whose coding is written by hand because
// they carry a rule the field list cannot state (a tolerant array, a range
// check, a capped number). Keys are given in field form and converted the way
// the record coder converts them.

#include "model/Json.h"

#include <QJsonObject>
#include <QString>

namespace velum::json {

inline QString keyFor(const char *fieldName, KeyStyle style)
{
    const QString name = QString::fromLatin1(fieldName);
    return style == KeyStyle::snakeCase ? snakeCase(name) : name;
}

// A key that must be present; its absence fails the decode like a missing
// key of a described record.
template <class T>
T decodeRequired(const QJsonObject &object, const char *fieldName, KeyStyle style)
{
    const QString key = keyFor(fieldName, style);
    const auto found = object.constFind(key);
    if (found == object.constEnd() || found->isUndefined()) {
        DecodingError e(QStringLiteral("required key is missing"));
        e.within(key);
        throw e;
    }
    try {
        return decode<T>(*found, style);
    } catch (DecodingError &e) {
        e.within(key);
        throw;
    }
}

// A key that may be absent or null.
template <class T>
std::optional<T> decodeOptional(const QJsonObject &object, const char *fieldName, KeyStyle style)
{
    return decodeKey<T>(object, keyFor(fieldName, style), style);
}

// Writes a member; an optional without a value is left out.
template <class T>
void encodeInto(QJsonObject &object, const char *fieldName, const T &value, KeyStyle style)
{
    if constexpr (IsOptional<T>::value) {
        if (value)
            object.insert(keyFor(fieldName, style), encode(*value, style));
    } else {
        object.insert(keyFor(fieldName, style), encode(value, style));
    }
}

inline QJsonObject requireObject(const QJsonValue &value)
{
    if (!value.isObject())
        detail::typeMismatch("an object", value);
    return value.toObject();
}

} // namespace velum::json
