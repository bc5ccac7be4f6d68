#include "model/Json.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonParseError>
#include <QRegularExpression>
#include <QSaveFile>
#include <QTimeZone>
#include <QVariant>

#include <algorithm>
#include <charconv>
#include <cmath>

namespace velum::json {

DecodingError::DecodingError(const QString &message)
    : std::runtime_error(message.toStdString())
    , m_message(message)
    , m_text(message.toStdString())
{
}

void DecodingError::within(const QString &component)
{
    if (m_path.isEmpty() || m_path.startsWith(QLatin1Char('[')))
        m_path = component + m_path;
    else
        m_path = component + QLatin1Char('.') + m_path;
    m_text = (m_path + QStringLiteral(": ") + m_message).toStdString();
}

QString snakeCase(QStringView key)
{
    if (key.isEmpty())
        return {};
    // Split into words: a capital that follows a lower-case letter or digit
    // starts a word; within a run of capitals, the last one before a
    // lower-case letter starts the next word ("URLValue" is "url_value").
    QString out;
    out.reserve(key.size() + 4);
    const auto isUpper = [](QChar c) { return c.isUpper(); };
    const auto isLower = [](QChar c) { return c.isLower(); };
    for (qsizetype i = 0; i < key.size(); ++i) {
        const QChar c = key[i];
        if (i > 0 && isUpper(c)) {
            const QChar prev = key[i - 1];
            const bool nextLower = i + 1 < key.size() && isLower(key[i + 1]);
            if (!isUpper(prev) || nextLower)
                out.append(QLatin1Char('_'));
        }
        out.append(c.toLower());
    }
    return out;
}

namespace {

void appendString(QByteArray &out, const QString &text)
{
    out.append('"');
    const QByteArray utf8 = text.toUtf8();
    for (const char ch : utf8) {
        const auto c = static_cast<unsigned char>(ch);
        switch (c) {
        case '"': out.append("\\\""); break;
        case '\\': out.append("\\\\"); break;
        case '\n': out.append("\\n"); break;
        case '\r': out.append("\\r"); break;
        case '\t': out.append("\\t"); break;
        case '\b': out.append("\\b"); break;
        case '\f': out.append("\\f"); break;
        default:
            if (c < 0x20) {
                char buf[8];
                std::snprintf(buf, sizeof buf, "\\u%04x", c);
                out.append(buf);
            } else {
                out.append(ch);
            }
        }
    }
    out.append('"');
}

void appendNumber(QByteArray &out, const QJsonValue &value)
{
    const QVariant v = value.toVariant();
    char buf[64];
    if (v.typeId() == QMetaType::LongLong) {
        const auto [end, ec] = std::to_chars(buf, buf + sizeof buf, v.toLongLong());
        out.append(buf, end - buf);
        return;
    }
    const double d = value.toDouble();
    if (!std::isfinite(d))
        throw EncodingError("a number that is not finite cannot be written as JSON");
    const auto [end, ec] = std::to_chars(buf, buf + sizeof buf, d);
    out.append(buf, end - buf);
}

void appendIndent(QByteArray &out, int depth)
{
    out.append(QByteArray(depth * 2, ' '));
}

void appendValue(QByteArray &out, const QJsonValue &value, int depth)
{
    switch (value.type()) {
    case QJsonValue::Null:
    case QJsonValue::Undefined:
        out.append("null");
        break;
    case QJsonValue::Bool:
        out.append(value.toBool() ? "true" : "false");
        break;
    case QJsonValue::Double:
        appendNumber(out, value);
        break;
    case QJsonValue::String:
        appendString(out, value.toString());
        break;
    case QJsonValue::Array: {
        const QJsonArray array = value.toArray();
        if (array.isEmpty()) {
            out.append("[]");
            break;
        }
        out.append("[\n");
        for (qsizetype i = 0; i < array.size(); ++i) {
            appendIndent(out, depth + 1);
            appendValue(out, array.at(i), depth + 1);
            out.append(i + 1 < array.size() ? ",\n" : "\n");
        }
        appendIndent(out, depth);
        out.append(']');
        break;
    }
    case QJsonValue::Object: {
        const QJsonObject object = value.toObject();
        if (object.isEmpty()) {
            out.append("{}");
            break;
        }
        QStringList keys = object.keys();
        std::sort(keys.begin(), keys.end());
        out.append("{\n");
        for (qsizetype i = 0; i < keys.size(); ++i) {
            appendIndent(out, depth + 1);
            appendString(out, keys[i]);
            out.append(" : ");
            appendValue(out, object.value(keys[i]), depth + 1);
            out.append(i + 1 < keys.size() ? ",\n" : "\n");
        }
        appendIndent(out, depth);
        out.append('}');
        break;
    }
    }
}

const char *kindName(const QJsonValue &value)
{
    switch (value.type()) {
    case QJsonValue::Null: return "null";
    case QJsonValue::Bool: return "a boolean";
    case QJsonValue::Double: return "a number";
    case QJsonValue::String: return "a string";
    case QJsonValue::Array: return "an array";
    case QJsonValue::Object: return "an object";
    case QJsonValue::Undefined: return "nothing";
    }
    return "nothing";
}

} // namespace

QByteArray serialize(const QJsonValue &value)
{
    QByteArray out;
    appendValue(out, value, 0);
    return out;
}

QJsonValue parse(const QByteArray &bytes)
{
    QJsonParseError error{};
    const QJsonDocument document = QJsonDocument::fromJson(bytes, &error);
    if (error.error != QJsonParseError::NoError)
        throw DecodingError(QStringLiteral("not valid JSON: %1 at offset %2").arg(error.errorString()).arg(error.offset));
    if (document.isArray())
        return document.array();
    if (document.isObject())
        return document.object();
    throw DecodingError(QStringLiteral("not valid JSON"));
}

QString formatDate(const QDateTime &date)
{
    QDateTime utc = date.toUTC();
    utc.setTime(QTime(utc.time().hour(), utc.time().minute(), utc.time().second()));
    return utc.toString(Qt::ISODate);
}

std::optional<QDateTime> parseDate(QStringView text)
{
    static const QRegularExpression pattern(QStringLiteral(
        R"(^(\d{4})-(\d{2})-(\d{2})T(\d{2}):(\d{2}):(\d{2})(?:[.,]\d+)?(Z|z|([+-])(\d{2}):?(\d{2}))$)"));
    const auto match = pattern.match(text.toString());
    if (!match.hasMatch())
        return std::nullopt;
    const auto num = [&](int group) { return match.capturedView(group).toInt(); };
    const QDate date(num(1), num(2), num(3));
    const QTime time(num(4), num(5), num(6));
    if (!date.isValid() || !time.isValid())
        return std::nullopt;
    QDateTime result(date, time, Qt::UTC);
    if (match.hasCaptured(8)) {
        const int hours = num(9), minutes = num(10);
        if (hours > 23 || minutes > 59)
            return std::nullopt;
        const int offset = (hours * 3600 + minutes * 60) * (match.capturedView(8) == u"-" ? -1 : 1);
        result = result.addSecs(-offset);
    }
    return result;
}

QDateTime nowWholeSeconds()
{
    const qint64 seconds = QDateTime::currentSecsSinceEpoch();
    return QDateTime::fromSecsSinceEpoch(seconds, Qt::UTC);
}

namespace detail {

void typeMismatch(const char *expected, const QJsonValue &found)
{
    throw DecodingError(QStringLiteral("expected %1, found %2").arg(QLatin1StringView(expected), QLatin1StringView(kindName(found))));
}

qint64 integerValue(const QJsonValue &value, qint64 min, qint64 max)
{
    if (!value.isDouble())
        typeMismatch("an integer", value);
    const QVariant v = value.toVariant();
    if (v.typeId() != QMetaType::LongLong)
        throw DecodingError(QStringLiteral("expected an integer, found %1").arg(value.toDouble()));
    const qint64 n = v.toLongLong();
    if (n < min || n > max)
        throw DecodingError(QStringLiteral("the number %1 does not fit").arg(n));
    return n;
}

double doubleValue(const QJsonValue &value)
{
    if (!value.isDouble())
        typeMismatch("a number", value);
    return value.toDouble();
}

QJsonValue doubleJson(double value)
{
    if (!std::isfinite(value))
        throw EncodingError("a number that is not finite cannot be written as JSON");
    return QJsonValue(value);
}

} // namespace detail

QJsonValue Coding<QUuid>::encode(const QUuid &value, KeyStyle)
{
    return value.toString(QUuid::WithoutBraces).toUpper();
}

QUuid Coding<QUuid>::decode(const QJsonValue &value, KeyStyle)
{
    if (!value.isString())
        detail::typeMismatch("a UUID string", value);
    static const QRegularExpression pattern(QStringLiteral(
        "^[0-9A-Fa-f]{8}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{4}-[0-9A-Fa-f]{12}$"));
    const QString text = value.toString();
    if (!pattern.match(text).hasMatch())
        throw DecodingError(QStringLiteral("\"%1\" is not a UUID").arg(text));
    return QUuid::fromString(text);
}

QJsonValue Coding<QUrl>::encode(const QUrl &value, KeyStyle)
{
    return value.toString(QUrl::FullyEncoded);
}

QUrl Coding<QUrl>::decode(const QJsonValue &value, KeyStyle)
{
    if (!value.isString())
        detail::typeMismatch("a URL string", value);
    const QString text = value.toString();
    const QUrl url(text, QUrl::StrictMode);
    if (text.isEmpty() || !url.isValid())
        throw DecodingError(QStringLiteral("\"%1\" is not a URL").arg(text));
    return url;
}

QJsonValue Coding<QDateTime>::encode(const QDateTime &value, KeyStyle)
{
    if (!value.isValid())
        throw EncodingError("an invalid date cannot be written");
    return formatDate(value);
}

QDateTime Coding<QDateTime>::decode(const QJsonValue &value, KeyStyle)
{
    if (!value.isString())
        detail::typeMismatch("an ISO 8601 date", value);
    if (const auto date = parseDate(value.toString()))
        return *date;
    throw DecodingError(QStringLiteral("\"%1\" is not an ISO 8601 date").arg(value.toString()));
}

} // namespace velum::json

namespace velum {

void writeFileAtomically(const QString &path, const QByteArray &bytes)
{
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        throw FileWriteError(QStringLiteral("cannot write %1: %2").arg(path, file.errorString()).toStdString());
    if (file.write(bytes) != bytes.size()) {
        const QString reason = file.errorString();
        file.cancelWriting();
        throw FileWriteError(QStringLiteral("cannot write %1: %2").arg(path, reason).toStdString());
    }
    if (!file.commit())
        throw FileWriteError(QStringLiteral("cannot write %1: %2").arg(path, file.errorString()).toStdString());
}

std::optional<QByteArray> readFile(const QString &path)
{
    const QFileInfo info(path);
    if (!info.isFile())
        return std::nullopt;
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    QByteArray bytes = file.readAll();
    if (file.error() != QFileDevice::NoError)
        return std::nullopt;
    return bytes;
}

} // namespace velum
