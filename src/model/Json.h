#pragma once

// The JSON coding layer. Every document the system writes or reads goes
// through here, with one of two key styles:
//
//  - the stage coder (stage documents, edits, wire bodies, job records) turns
//    field names into snake case: `beforeP10Ms` is "before_p10_ms";
//  - the state coder (state.json) uses the field names as they are.
//
// Both write pretty-printed JSON with sorted keys, unescaped slashes, doubles
// in their shortest round-tripping form, ISO 8601 dates with whole seconds,
// and leave an optional without a value out instead of writing null.
//
// Records describe their fields once with `Fields<R>`; enumerations describe
// their stored texts once with `EnumTexts<E>`. Anything else specialises
// `Coding<T>`.

#include "model/Slices.h"

#include <QByteArray>
#include <QDateTime>
#include <QJsonArray>
#include <QJsonObject>
#include <QJsonValue>
#include <QString>
#include <QStringList>
#include <QUrl>
#include <QUuid>

#include <algorithm>
#include <array>
#include <concepts>
#include <cstdint>
#include <iterator>
#include <limits>
#include <map>
#include <optional>
#include <stdexcept>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

namespace velum::json {

enum class KeyStyle { fieldNames, snakeCase };

// A document, or a part of one, did not have the expected shape. The text
// names where: "clips[2].media.duration_s: expected a number".
class DecodingError : public std::runtime_error {
public:
    explicit DecodingError(const QString &message);
    const char *what() const noexcept override { return m_text.c_str(); }
    QString message() const { return m_message; }
    QString path() const { return m_path; }
    // Prefixes the location with an enclosing key or index.
    void within(const QString &component);

private:
    QString m_message;
    QString m_path;
    std::string m_text;
};

// A value cannot be written as JSON (a number that is not finite).
class EncodingError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

// Key conversion of the stage coder: a capital letter starts a new lower-case
// word, digits stay with what went before, and a run of capitals is one word
// ("profileID" is "profile_id", "sourceURL" is "source_url").
QString snakeCase(QStringView fieldName);

// The text form. `serialize` writes the layout described above; `parse` reads
// any JSON text and throws DecodingError on malformed input, invalid UTF-8,
// numbers out of range and nesting deeper than the parser allows.
QByteArray serialize(const QJsonValue &value);
QJsonValue parse(const QByteArray &bytes);

// ISO 8601 with whole seconds: "2025-03-01T09:30:00Z". Reading accepts a
// zone offset and a fraction of a second, which is dropped.
QString formatDate(const QDateTime &date);
std::optional<QDateTime> parseDate(QStringView text);

// The present moment in whole seconds, as it reads back from a document.
QDateTime nowWholeSeconds();

// --- Enumerations with stored texts -----------------------------------------

template <class E>
struct EnumTexts; // specialise: static constexpr std::array<std::pair<E, const char *>, N> values

template <class E>
concept StoredEnum = std::is_enum_v<E> && requires { EnumTexts<E>::values; };

template <StoredEnum E>
QString text(E value)
{
    for (const auto &[v, t] : EnumTexts<E>::values) {
        if (v == value)
            return QString::fromLatin1(t);
    }
    return {};
}

template <StoredEnum E>
std::optional<E> fromText(QStringView stored)
{
    for (const auto &[v, t] : EnumTexts<E>::values) {
        if (stored == QLatin1StringView(t))
            return v;
    }
    return std::nullopt;
}

template <StoredEnum E>
std::vector<E> allCases()
{
    std::vector<E> cases;
    for (const auto &entry : EnumTexts<E>::values)
        cases.push_back(entry.first);
    return cases;
}

// --- Records ----------------------------------------------------------------

// What decoding does when a record's key is absent.
enum class Absent {
    fail,        // a required key: the decode fails
    keepDefault, // the member keeps the value of a default-constructed record
};

template <class R, class M>
struct Field {
    const char *name;
    M R::*member;
    Absent absent;
};

template <class R, class M>
constexpr Field<R, M> field(const char *name, M R::*member, Absent absent = Absent::fail)
{
    return Field<R, M>{name, member, absent};
}

template <class R>
struct Fields; // specialise: static constexpr auto list = std::tuple{field(...), ...};

template <class R>
concept Record = requires { Fields<R>::list; };

template <class T>
struct Coding; // specialise for anything that is neither a record nor a stored enum

template <class T>
struct IsOptional : std::false_type {};
template <class T>
struct IsOptional<std::optional<T>> : std::true_type {};

template <class T>
QJsonValue encode(const T &value, KeyStyle style);
template <class T>
T decode(const QJsonValue &value, KeyStyle style);

namespace detail {

[[noreturn]] void typeMismatch(const char *expected, const QJsonValue &found);
qint64 integerValue(const QJsonValue &value, qint64 min, qint64 max);
double doubleValue(const QJsonValue &value);
QJsonValue doubleJson(double value);

template <class R, std::size_t... I>
std::array<QString, sizeof...(I)> keysOf(KeyStyle style, std::index_sequence<I...>)
{
    const auto &list = Fields<R>::list;
    return {(style == KeyStyle::snakeCase ? snakeCase(QString::fromLatin1(std::get<I>(list).name))
                                          : QString::fromLatin1(std::get<I>(list).name))...};
}

template <class R>
const auto &keys(KeyStyle style)
{
    constexpr auto count = std::tuple_size_v<std::decay_t<decltype(Fields<R>::list)>>;
    static const auto snake = keysOf<R>(KeyStyle::snakeCase, std::make_index_sequence<count>{});
    static const auto plain = keysOf<R>(KeyStyle::fieldNames, std::make_index_sequence<count>{});
    return style == KeyStyle::snakeCase ? snake : plain;
}

// The same keys in Latin-1, for lookups in a parsed object that convert
// nothing.
template <class R>
const auto &latinKeys(KeyStyle style)
{
    constexpr auto count = std::tuple_size_v<std::decay_t<decltype(Fields<R>::list)>>;
    const auto make = [](KeyStyle s) {
        std::array<QByteArray, count> out;
        for (std::size_t i = 0; i < count; ++i)
            out[i] = keys<R>(s)[i].toLatin1();
        return out;
    };
    static const auto snake = make(KeyStyle::snakeCase);
    static const auto plain = make(KeyStyle::fieldNames);
    return style == KeyStyle::snakeCase ? snake : plain;
}

// The field indices of a record in the order of their keys.
template <class R>
const auto &sortedFieldOrder(KeyStyle style)
{
    constexpr auto count = std::tuple_size_v<std::decay_t<decltype(Fields<R>::list)>>;
    const auto make = [](KeyStyle s) {
        const auto &names = keys<R>(s);
        std::array<std::size_t, count> order{};
        for (std::size_t i = 0; i < count; ++i)
            order[i] = i;
        std::sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return names[a] < names[b]; });
        return order;
    };
    static const auto snake = make(KeyStyle::snakeCase);
    static const auto plain = make(KeyStyle::fieldNames);
    return style == KeyStyle::snakeCase ? snake : plain;
}

template <class M>
void encodeMember(QJsonObject &object, const QString &key, const M &value, KeyStyle style)
{
    if constexpr (IsOptional<M>::value) {
        if (value)
            object.insert(key, encode(*value, style));
    } else {
        object.insert(key, encode(value, style));
    }
}

// Decodes a member from its value, undefined when the key is absent.
template <class M>
void decodeMember(const QJsonValue &value, const QString &key, M &target, Absent absent, KeyStyle style)
{
    const bool missing = value.isUndefined();
    if constexpr (IsOptional<M>::value) {
        if (missing || value.isNull()) {
            if (absent != Absent::keepDefault)
                target.reset();
            return;
        }
        try {
            target = decode<typename M::value_type>(value, style);
        } catch (DecodingError &e) {
            e.within(key);
            throw;
        }
    } else {
        if (missing) {
            if (absent == Absent::keepDefault)
                return;
            DecodingError e(QStringLiteral("required key is missing"));
            e.within(key);
            throw e;
        }
        try {
            target = decode<M>(value, style);
        } catch (DecodingError &e) {
            e.within(key);
            throw;
        }
    }
}

} // namespace detail

template <Record R>
struct Coding<R> {
    using generic = void;
    static QJsonValue encode(const R &record, KeyStyle style)
    {
        QJsonObject object;
        const auto &names = detail::keys<R>(style);
        std::size_t i = 0;
        std::apply([&](const auto &...f) { (detail::encodeMember(object, names[i++], record.*(f.member), style), ...); },
                   Fields<R>::list);
        return object;
    }

    static R decode(const QJsonValue &value, KeyStyle style)
    {
        if (!value.isObject())
            detail::typeMismatch("an object", value);
        const QJsonObject object = value.toObject();
        const auto &names = detail::keys<R>(style);
        const auto &latin = detail::latinKeys<R>(style);
        R record{};
        std::size_t i = 0;
        std::apply([&](const auto &...f) {
            ((detail::decodeMember(object.value(QLatin1StringView(latin[i])), names[i], record.*(f.member), f.absent, style), ++i), ...);
        },
                   Fields<R>::list);
        return record;
    }
};

template <StoredEnum E>
struct Coding<E> {
    using generic = void;
    static QJsonValue encode(E value, KeyStyle) { return text(value); }
    static E decode(const QJsonValue &value, KeyStyle)
    {
        if (!value.isString())
            detail::typeMismatch("a string", value);
        if (const auto v = fromText<E>(value.toString()))
            return *v;
        throw DecodingError(QStringLiteral("unknown value \"%1\"").arg(value.toString()));
    }
};

template <>
struct Coding<bool> {
    static QJsonValue encode(bool value, KeyStyle) { return value; }
    static bool decode(const QJsonValue &value, KeyStyle)
    {
        if (!value.isBool())
            detail::typeMismatch("a boolean", value);
        return value.toBool();
    }
};

template <std::integral I>
    requires(!std::same_as<I, bool>)
struct Coding<I> {
    static QJsonValue encode(I value, KeyStyle) { return QJsonValue(static_cast<qint64>(value)); }
    static I decode(const QJsonValue &value, KeyStyle)
    {
        return static_cast<I>(detail::integerValue(value, std::numeric_limits<I>::min(),
                                                   static_cast<qint64>(std::min<std::uint64_t>(
                                                       std::numeric_limits<I>::max(),
                                                       std::numeric_limits<qint64>::max()))));
    }
};

template <>
struct Coding<double> {
    static QJsonValue encode(double value, KeyStyle) { return detail::doubleJson(value); }
    static double decode(const QJsonValue &value, KeyStyle) { return detail::doubleValue(value); }
};

template <>
struct Coding<QString> {
    static QJsonValue encode(const QString &value, KeyStyle) { return value; }
    static QString decode(const QJsonValue &value, KeyStyle)
    {
        if (!value.isString())
            detail::typeMismatch("a string", value);
        return value.toString();
    }
};

// UUIDs are written in canonical upper-case text and read in either case.
template <>
struct Coding<QUuid> {
    static QJsonValue encode(const QUuid &value, KeyStyle);
    static QUuid decode(const QJsonValue &value, KeyStyle);
};

// A URL is its absolute, percent-encoded text.
template <>
struct Coding<QUrl> {
    static QJsonValue encode(const QUrl &value, KeyStyle);
    static QUrl decode(const QJsonValue &value, KeyStyle);
};

template <>
struct Coding<QDateTime> {
    static QJsonValue encode(const QDateTime &value, KeyStyle);
    static QDateTime decode(const QJsonValue &value, KeyStyle);
};

template <class T>
struct Coding<std::vector<T>> {
    using generic = void;
    static QJsonValue encode(const std::vector<T> &values, KeyStyle style)
    {
        QJsonArray array;
        for (const auto &v : values)
            array.append(json::encode(v, style));
        return array;
    }
    static std::vector<T> decode(const QJsonValue &value, KeyStyle style)
    {
        if (!value.isArray())
            detail::typeMismatch("an array", value);
        const QJsonArray array = value.toArray();
        const auto count = static_cast<std::size_t>(array.size());
        const auto decodeRange = [&](std::size_t begin, std::size_t end, std::vector<T> &into) {
            into.reserve(end - begin);
            for (std::size_t i = begin; i < end; ++i) {
                try {
                    into.push_back(json::decode<T>(array.at(static_cast<qsizetype>(i)), style));
                } catch (DecodingError &e) {
                    e.within(QStringLiteral("[%1]").arg(i));
                    throw;
                }
            }
        };
        const std::size_t slices = Slices::count(count);
        std::vector<T> result;
        if (slices == 1) {
            decodeRange(0, count, result);
            return result;
        }
        // Elements are independent: long arrays are decoded in slices on a
        // few threads, and the slices joined in order. A failure is the one
        // of the earliest failing element, as when decoding in order.
        std::vector<std::vector<T>> parts(slices);
        Slices::forEach(count, slices, [&](std::size_t slice, std::size_t begin, std::size_t end) {
            decodeRange(begin, end, parts[slice]);
        });
        result.reserve(count);
        for (auto &part : parts)
            std::move(part.begin(), part.end(), std::back_inserter(result));
        return result;
    }
};

// Dictionaries keep their keys as they are under both coders: the keys are
// data (clip identifiers, signal names), not field names.
template <class T>
struct Coding<std::map<QString, T>> {
    using generic = void;
    static QJsonValue encode(const std::map<QString, T> &values, KeyStyle style)
    {
        QJsonObject object;
        for (const auto &[k, v] : values)
            object.insert(k, json::encode(v, style));
        return object;
    }
    static std::map<QString, T> decode(const QJsonValue &value, KeyStyle style)
    {
        if (!value.isObject())
            detail::typeMismatch("an object", value);
        const QJsonObject object = value.toObject();
        std::map<QString, T> result;
        for (auto it = object.constBegin(); it != object.constEnd(); ++it) {
            try {
                result.emplace(it.key(), json::decode<T>(it.value(), style));
            } catch (DecodingError &e) {
                e.within(it.key());
                throw;
            }
        }
        return result;
    }
};

template <class T>
struct Coding<std::optional<T>> {
    using generic = void;
    static QJsonValue encode(const std::optional<T> &value, KeyStyle style)
    {
        return value ? json::encode(*value, style) : QJsonValue(QJsonValue::Null);
    }
    static std::optional<T> decode(const QJsonValue &value, KeyStyle style)
    {
        if (value.isNull() || value.isUndefined())
            return std::nullopt;
        return json::decode<T>(value, style);
    }
};

template <class T>
QJsonValue encode(const T &value, KeyStyle style)
{
    return Coding<T>::encode(value, style);
}

template <class T>
T decode(const QJsonValue &value, KeyStyle style)
{
    return Coding<T>::decode(value, style);
}

// --- Large documents ----------------------------------------------------------

namespace detail {

// The long array at the top of a large document (the document itself, or the
// longest array among the members of its object), cut at the commas between
// its elements into chunks of whole elements that parse apart.
class ArrayChunks {
public:
    // No value for a short document, one without such an array, or anything
    // unexpected: the whole parse then decides.
    static std::optional<ArrayChunks> find(const QByteArray &bytes);
    // About this much text a chunk: its parsed values stay in a core's cache.
    static constexpr qsizetype bytesPerChunk = 8 * 1024;

    std::size_t count() const { return m_bounds.size() - 1; }
    // A chunk's elements, or no value when they do not parse.
    std::optional<QJsonArray> parse(std::size_t chunk) const;
    // The member's key; empty when the document is the array.
    const QString &key() const { return m_key; }
    // The document with the array left empty.
    const QJsonValue &rest() const { return m_rest; }

private:
    QByteArray m_bytes;
    std::vector<qsizetype> m_bounds; // the opening bracket, the commas cut at, the closing bracket
    int m_depth = 1;                 // the array's brackets and, for a member, the object's
    QString m_key;
    QJsonValue m_rest;
};

template <class T>
struct IsVector : std::false_type {};
template <class E>
struct IsVector<std::vector<E>> : std::true_type {};

// The elements of every chunk, each chunk parsed, decoded and let go of on
// one thread, a few threads at a time. No value when any chunk fails.
template <class E>
std::optional<std::vector<E>> decodeChunks(const ArrayChunks &chunks, KeyStyle style)
{
    const std::size_t count = chunks.count();
    std::vector<std::vector<E>> parts(count);
    std::vector<char> decoded(count, 0);
    Slices::forEach(count, Slices::count(count, 1), [&](std::size_t, std::size_t begin, std::size_t end) {
        for (std::size_t chunk = begin; chunk < end; ++chunk) {
            const std::optional<QJsonArray> elements = chunks.parse(chunk);
            if (!elements)
                return;
            auto &part = parts[chunk];
            part.reserve(static_cast<std::size_t>(elements->size()));
            try {
                for (const QJsonValue element : *elements)
                    part.push_back(json::decode<E>(element, style));
            } catch (const DecodingError &) {
                return;
            }
            decoded[chunk] = 1;
        }
    });
    if (std::find(decoded.begin(), decoded.end(), 0) != decoded.end())
        return std::nullopt;
    std::size_t total = 0;
    for (const auto &part : parts)
        total += part.size();
    std::vector<E> all;
    all.reserve(total);
    for (auto &part : parts)
        std::move(part.begin(), part.end(), std::back_inserter(all));
    return all;
}

// As decode<T>(parse(bytes)) for a large document whose long array is a
// std::vector: the document itself, or a field of a record coded by its
// fields. No value when that does not apply or anything fails.
template <class T>
std::optional<T> decodeInChunks(const QByteArray &bytes, KeyStyle style)
{
    if constexpr (IsVector<T>::value) {
        auto chunks = ArrayChunks::find(bytes);
        if (!chunks || !chunks->key().isEmpty())
            return std::nullopt;
        return decodeChunks<typename T::value_type>(*chunks, style);
    } else if constexpr (Record<T> && requires { typename Coding<T>::generic; }) {
        auto chunks = ArrayChunks::find(bytes);
        if (!chunks || chunks->key().isEmpty())
            return std::nullopt;
        const auto &names = keys<T>(style);
        std::optional<T> result;
        const auto tryField = [&]<class M>(const Field<T, M> &field, const QString &name) {
            if constexpr (IsVector<M>::value) {
                if (name != chunks->key())
                    return;
                auto elements = decodeChunks<typename M::value_type>(*chunks, style);
                if (!elements)
                    return;
                try {
                    T record = Coding<T>::decode(chunks->rest(), style);
                    record.*(field.member) = std::move(*elements);
                    result = std::move(record);
                } catch (const DecodingError &) {
                }
            }
        };
        std::size_t i = 0;
        std::apply([&](const auto &...f) { (tryField(f, names[i++]), ...); }, Fields<T>::list);
        return result;
    } else {
        return std::nullopt;
    }
}

} // namespace detail

// As decode<T>(parse(bytes), style), with the same values and errors; a
// large document's long array is decoded in chunks on a few threads.
template <class T>
T decodeText(const QByteArray &bytes, KeyStyle style)
{
    if (auto decoded = detail::decodeInChunks<T>(bytes, style))
        return std::move(*decoded);
    return decode<T>(parse(bytes), style);
}

// Helpers for hand-written codings of records with unusual rules.
template <class T>
std::optional<T> decodeKey(const QJsonObject &object, const QString &key, KeyStyle style)
{
    const auto found = object.constFind(key);
    if (found == object.constEnd() || found->isNull() || found->isUndefined())
        return std::nullopt;
    try {
        return decode<T>(*found, style);
    } catch (DecodingError &e) {
        e.within(key);
        throw;
    }
}


// --- Writing text straight from values ---------------------------------------
//
// The same layout as serialize(), without building a QJsonValue tree first:
// records write their fields in sorted key order straight from their field
// lists. Values with a hand-written coding go through their QJsonValue form.

class TextWriter {
public:
    explicit TextWriter(QByteArray &out) : m_out(out) {}

    void beginObject();
    void key(QStringView key);
    void endObject();
    void beginArray();
    void element();
    void endArray();

    void string(QStringView text);
    void integer(qint64 value);
    void number(double value); // throws EncodingError when not finite
    void boolean(bool value);
    // A value of a hand-written coding, at the current depth.
    void json(const QJsonValue &value);

private:
    void separator();
    QByteArray &m_out;
    std::vector<int> m_counts; // entries written in each open container
};

template <class T>
void write(TextWriter &writer, const T &value, KeyStyle style);

namespace detail {

template <class R, std::size_t I>
void writeFieldAt(TextWriter &writer, const R &record, KeyStyle style, const QString &key)
{
    const auto &member = record.*(std::get<I>(Fields<R>::list).member);
    if constexpr (IsOptional<std::decay_t<decltype(member)>>::value) {
        if (!member)
            return;
        writer.key(key);
        json::write(writer, *member, style);
    } else {
        writer.key(key);
        json::write(writer, member, style);
    }
}

template <class R>
using FieldWriter = void (*)(TextWriter &, const R &, KeyStyle, const QString &);

template <class R, std::size_t... I>
constexpr std::array<FieldWriter<R>, sizeof...(I)> fieldWriters(std::index_sequence<I...>)
{
    return {&writeFieldAt<R, I>...};
}

} // namespace detail

template <class T>
void write(TextWriter &writer, const T &value, KeyStyle style)
{
    if constexpr (std::is_same_v<T, bool>) {
        writer.boolean(value);
    } else if constexpr (std::is_integral_v<T>) {
        writer.integer(static_cast<qint64>(value));
    } else if constexpr (std::is_same_v<T, double>) {
        writer.number(value);
    } else if constexpr (std::is_same_v<T, QString>) {
        writer.string(value);
    } else if constexpr (std::is_same_v<T, QUuid> || std::is_same_v<T, QUrl> || std::is_same_v<T, QDateTime>) {
        writer.string(Coding<T>::encode(value, style).toString());
    } else if constexpr (IsOptional<T>::value) {
        if (value)
            json::write(writer, *value, style);
        else
            writer.json(QJsonValue(QJsonValue::Null));
    } else if constexpr (StoredEnum<T> && requires { typename Coding<T>::generic; }) {
        writer.string(text(value));
    } else if constexpr (Record<T> && requires { typename Coding<T>::generic; }) {
        constexpr auto count = std::tuple_size_v<std::decay_t<decltype(Fields<T>::list)>>;
        static constexpr auto writers = detail::fieldWriters<T>(std::make_index_sequence<count>{});
        const auto &names = detail::keys<T>(style);
        writer.beginObject();
        for (const std::size_t i : detail::sortedFieldOrder<T>(style))
            writers[i](writer, value, style, names[i]);
        writer.endObject();
    } else if constexpr (requires { typename Coding<T>::generic; typename T::value_type; typename T::allocator_type; }
                         && !requires { typename T::key_type; }) {
        writer.beginArray();
        for (const auto &element : value) {
            writer.element();
            json::write(writer, element, style);
        }
        writer.endArray();
    } else if constexpr (requires { typename Coding<T>::generic; typename T::key_type; typename T::mapped_type; }) {
        writer.beginObject();
        for (const auto &[k, v] : value) {
            writer.key(k);
            json::write(writer, v, style);
        }
        writer.endObject();
    } else {
        writer.json(Coding<T>::encode(value, style));
    }
}

} // namespace velum::json

namespace velum {

// Files are written whole or not at all: the new content goes to a temporary
// file beside the target, which then replaces it. The folder must exist.
// Throws FileWriteError.
class FileWriteError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};
void writeFileAtomically(const QString &path, const QByteArray &bytes);

// The whole content of a regular file, or no value when it cannot be read.
std::optional<QByteArray> readFile(const QString &path);

// The two coders. `decode` throws json::DecodingError; `read` treats a file
// that cannot be read or decoded as absent; `write` is atomic and throws.
template <json::KeyStyle Style>
struct Coder {
    template <class T>
    static QByteArray encode(const T &value)
    {
        QByteArray out;
        json::TextWriter writer(out);
        json::write(writer, value, Style);
        return out;
    }

    template <class T>
    static T decode(const QByteArray &bytes)
    {
        return json::decodeText<T>(bytes, Style);
    }

    template <class T>
    static std::optional<T> read(const QString &path) noexcept
    {
        try {
            const auto bytes = readFile(path);
            if (!bytes)
                return std::nullopt;
            return decode<T>(*bytes);
        } catch (const std::exception &) {
            return std::nullopt;
        }
    }

    template <class T>
    static void write(const T &value, const QString &path)
    {
        writeFileAtomically(path, encode(value));
    }
};

using StageCoder = Coder<json::KeyStyle::snakeCase>;
using StateCoder = Coder<json::KeyStyle::fieldNames>;

} // namespace velum
