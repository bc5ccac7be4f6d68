#include "model/Json.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonParseError>
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

void appendEscaped(QByteArray &out, const char *data, qsizetype size)
{
    for (qsizetype i = 0; i < size; ++i) {
        const char ch = data[i];
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
}

void appendString(QByteArray &out, QStringView text)
{
    out.append('"');
    // Most texts are plain ASCII: copy those without making a UTF-8 copy.
    const bool ascii = std::all_of(text.begin(), text.end(), [](QChar c) { return c.unicode() < 0x80; });
    if (ascii) {
        const qsizetype start = out.size();
        out.resize(start + text.size());
        char *dst = out.data() + start;
        for (qsizetype i = 0; i < text.size(); ++i)
            dst[i] = static_cast<char>(text[i].unicode());
        // Escape in place only when needed.
        const bool plain = std::none_of(dst, dst + text.size(), [](char ch) {
            return ch == '"' || ch == '\\' || static_cast<unsigned char>(ch) < 0x20;
        });
        if (!plain) {
            const QByteArray raw(dst, text.size());
            out.resize(start);
            appendEscaped(out, raw.constData(), raw.size());
        }
    } else {
        const QByteArray utf8 = text.toUtf8();
        appendEscaped(out, utf8.constData(), utf8.size());
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
    static constexpr char spaces[] = "                                                                ";
    qsizetype left = qsizetype(depth) * 2;
    while (left > 0) {
        const qsizetype n = std::min<qsizetype>(left, sizeof spaces - 1);
        out.append(spaces, n);
        left -= n;
    }
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
        // Objects keep their keys in sorted order, so walking them in order
        // writes sorted keys.
        out.append("{\n");
        for (auto it = object.constBegin(); it != object.constEnd();) {
            appendIndent(out, depth + 1);
            appendString(out, it.key());
            out.append(" : ");
            appendValue(out, it.value(), depth + 1);
            ++it;
            out.append(it != object.constEnd() ? ",\n" : "\n");
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

void TextWriter::separator()
{
    if (m_counts.empty())
        return;
    m_out.append(m_counts.back() > 0 ? ",\n" : "\n");
    ++m_counts.back();
    appendIndent(m_out, static_cast<int>(m_counts.size()));
}

void TextWriter::beginObject()
{
    m_out.append('{');
    m_counts.push_back(0);
}

void TextWriter::key(QStringView key)
{
    separator();
    appendString(m_out, key);
    m_out.append(" : ");
}

void TextWriter::endObject()
{
    const int count = m_counts.back();
    m_counts.pop_back();
    if (count > 0) {
        m_out.append('\n');
        appendIndent(m_out, static_cast<int>(m_counts.size()));
    }
    m_out.append('}');
}

void TextWriter::beginArray()
{
    m_out.append('[');
    m_counts.push_back(0);
}

void TextWriter::element()
{
    separator();
}

void TextWriter::endArray()
{
    const int count = m_counts.back();
    m_counts.pop_back();
    if (count > 0) {
        m_out.append('\n');
        appendIndent(m_out, static_cast<int>(m_counts.size()));
    }
    m_out.append(']');
}

void TextWriter::string(QStringView text)
{
    appendString(m_out, text);
}

void TextWriter::integer(qint64 value)
{
    char buf[32];
    const auto [end, ec] = std::to_chars(buf, buf + sizeof buf, value);
    m_out.append(buf, end - buf);
}

void TextWriter::number(double value)
{
    if (!std::isfinite(value))
        throw EncodingError("a number that is not finite cannot be written as JSON");
    char buf[64];
    const auto [end, ec] = std::to_chars(buf, buf + sizeof buf, value);
    m_out.append(buf, end - buf);
}

void TextWriter::boolean(bool value)
{
    m_out.append(value ? "true" : "false");
}

void TextWriter::json(const QJsonValue &value)
{
    appendValue(m_out, value, static_cast<int>(m_counts.size()));
}

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
    // yyyy-MM-ddTHH:mm:ss, an optional fraction, then Z or an offset
    // (+hh:mm or +hhmm).
    qsizetype pos = 0;
    const auto digits = [&](int count) -> std::optional<int> {
        if (pos + count > text.size())
            return std::nullopt;
        int value = 0;
        for (int i = 0; i < count; ++i) {
            const char16_t c = text[pos + i].unicode();
            if (c < u'0' || c > u'9')
                return std::nullopt;
            value = value * 10 + (c - u'0');
        }
        pos += count;
        return value;
    };
    const auto literal = [&](char16_t expected) {
        if (pos < text.size() && text[pos].unicode() == expected) {
            ++pos;
            return true;
        }
        return false;
    };
    const auto year = digits(4);
    if (!year || !literal(u'-'))
        return std::nullopt;
    const auto month = digits(2);
    if (!month || !literal(u'-'))
        return std::nullopt;
    const auto day = digits(2);
    if (!day || !literal(u'T'))
        return std::nullopt;
    const auto hour = digits(2);
    if (!hour || !literal(u':'))
        return std::nullopt;
    const auto minute = digits(2);
    if (!minute || !literal(u':'))
        return std::nullopt;
    const auto second = digits(2);
    if (!second)
        return std::nullopt;
    if (literal(u'.') || literal(u',')) {
        const qsizetype fractionStart = pos;
        while (pos < text.size() && text[pos].isDigit())
            ++pos;
        if (pos == fractionStart)
            return std::nullopt;
    }
    int offset = 0;
    if (literal(u'Z') || literal(u'z')) {
        // UTC
    } else if (pos < text.size() && (text[pos] == u'+' || text[pos] == u'-')) {
        const int sign = text[pos] == u'-' ? -1 : 1;
        ++pos;
        const auto hours = digits(2);
        if (!hours)
            return std::nullopt;
        literal(u':');
        const auto minutes = digits(2);
        if (!minutes || *hours > 23 || *minutes > 59)
            return std::nullopt;
        offset = sign * (*hours * 3600 + *minutes * 60);
    } else {
        return std::nullopt;
    }
    if (pos != text.size())
        return std::nullopt;
    const QDate date(*year, *month, *day);
    const QTime time(*hour, *minute, *second);
    if (!date.isValid() || !time.isValid())
        return std::nullopt;
    return QDateTime(date, time, Qt::UTC).addSecs(-offset);
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
    // Only the canonical 8-4-4-4-12 form, in either case.
    const QString text = value.toString();
    bool canonical = text.size() == 36;
    for (qsizetype i = 0; canonical && i < text.size(); ++i) {
        const char16_t c = text[i].unicode();
        if (i == 8 || i == 13 || i == 18 || i == 23)
            canonical = c == u'-';
        else
            canonical = (c >= u'0' && c <= u'9') || (c >= u'a' && c <= u'f') || (c >= u'A' && c <= u'F');
    }
    if (!canonical)
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
