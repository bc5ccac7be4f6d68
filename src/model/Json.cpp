#include "model/Json.h"

#include <QFile>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonParseError>
#include <QSaveFile>
#include <QTimeZone>
#include <QVariant>

#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstring>
#include <optional>
#include <string_view>

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

namespace {

// --- Decoding a long array in chunks -----------------------------------------
//
// A large document is mostly one long array near the top (the state's
// projects, a transcript's words), whose elements can be parsed apart: a scan
// that knows only strings and brackets finds the commas between the elements,
// and the array is cut there into chunks of a few kilobytes. Each chunk
// is parsed and decoded while its values are still in the processor's cache,
// chunks run on a few threads, and the rest of the document is parsed with
// the array left empty. The pieces are exact: a chunk is parsed inside as
// many brackets as enclose the array in the document, so it meets the same
// nesting limit, and when the rest and every chunk parse, the whole text
// parses to the same value. On any failure or doubt the caller decodes the
// whole document again in one piece, so errors are those of a whole decode.

// Below this much text, cutting costs more than it saves.
constexpr qsizetype cutBytesMinimum = 256 * 1024;

bool isJsonSpace(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

// Bytes that matter to the scan, outside strings and inside them.
constexpr auto byteSet(std::string_view bytes)
{
    std::array<bool, 256> set{};
    for (const char c : bytes)
        set[static_cast<unsigned char>(c)] = true;
    return set;
}
constexpr auto structural = byteSet("\"[]{},");
constexpr auto inString = byteSet("\"\\");

// Eight bytes at a time: whether any byte of a word is `c`.
constexpr std::uint64_t lowBits = 0x0101010101010101u;
constexpr std::uint64_t highBits = 0x8080808080808080u;

std::uint64_t load(const char *at)
{
    std::uint64_t word;
    std::memcpy(&word, at, sizeof word);
    return word;
}

std::uint64_t anyByte(std::uint64_t word, char c)
{
    const std::uint64_t x = word ^ (lowBits * static_cast<unsigned char>(c));
    return (x - lowBits) & ~x & highBits;
}

class StructureScan {
public:
    explicit StructureScan(QByteArrayView text) : m_begin(text.data()), m_at(text.data()), m_end(text.data() + text.size()) {}

    qsizetype offset() const { return m_at - m_begin; }
    bool at(char c) const { return m_at < m_end && *m_at == c; }
    void skip() { ++m_at; }
    void skipSpace()
    {
        while (m_at < m_end && isJsonSpace(*m_at))
            ++m_at;
    }

    // From an opening quote to past the closing one.
    bool skipString()
    {
        const char *c = m_at + 1;
        for (;;) {
            c = nextOf(c, [](std::uint64_t word) { return anyByte(word, '"') | anyByte(word, '\\'); }, inString);
            if (c >= m_end)
                return false;
            if (*c == '"') {
                m_at = c + 1;
                return true;
            }
            c += 2; // a backslash and the character it escapes
        }
    }

    // From an opening bracket or brace to past the one that closes it; the
    // offsets of the commas directly inside go to `commas`. Which kind of
    // bracket closes which is left to the parser.
    bool skipContainer(std::vector<qsizetype> *commas)
    {
        int depth = 0;
        const char *c = m_at;
        for (;;) {
            c = nextOf(c, [](std::uint64_t word) {
                // Setting bit 0x20 turns '[' into '{' and ']' into '}'.
                const std::uint64_t folded = word | (lowBits * 0x20);
                return anyByte(word, '"') | anyByte(word, ',') | anyByte(folded, '{') | anyByte(folded, '}');
            }, structural);
            if (c >= m_end)
                return false;
            switch (*c) {
            case '"':
                m_at = c;
                if (!skipString())
                    return false;
                c = m_at;
                continue;
            case '[':
            case '{':
                ++depth;
                break;
            case ']':
            case '}':
                if (--depth == 0) {
                    m_at = c + 1;
                    return true;
                }
                break;
            default: // a comma
                if (depth == 1 && commas)
                    commas->push_back(c - m_begin);
                break;
            }
            ++c;
        }
    }

    bool skipValue()
    {
        if (at('"'))
            return skipString();
        if (at('[') || at('{'))
            return skipContainer(nullptr);
        const char *start = m_at;
        while (m_at < m_end && !isJsonSpace(*m_at) && *m_at != ',' && *m_at != ']' && *m_at != '}')
            ++m_at;
        return m_at > start;
    }

private:
    // The first byte from `c` on that is in `set`, or the end. `flags`
    // marks bytes of a word in `set` by their top bit; the lowest mark is
    // exact, so the scan jumps straight to it.
    template <class Flags>
    const char *nextOf(const char *c, Flags flags, const std::array<bool, 256> &set) const
    {
        while (m_end - c >= 8) {
            if (const std::uint64_t found = flags(load(c))) {
                if constexpr (std::endian::native == std::endian::little)
                    return c + std::countr_zero(found) / 8;
                else
                    return c + std::countl_zero(found) / 8;
            }
            c += 8;
        }
        while (c < m_end && !set[static_cast<unsigned char>(*c)])
            ++c;
        return c;
    }

    const char *m_begin;
    const char *m_at;
    const char *m_end;
};

struct LongArray {
    qsizetype open = -1;  // offset of its opening bracket
    qsizetype close = -1; // offset of its closing bracket
    std::vector<qsizetype> commas; // between its elements
    QByteArrayView key;   // quoted, as written; empty for the top-level array
    qsizetype members = 0; // keys written in the top-level object
};

// The top-level array, or the longest array among the members of the
// top-level object. No value for anything else or anything unexpected.
std::optional<LongArray> findLongArray(QByteArrayView text)
{
    StructureScan scan(text);
    scan.skipSpace();
    LongArray longest;
    if (scan.at('[')) {
        longest.open = scan.offset();
        if (!scan.skipContainer(&longest.commas))
            return std::nullopt;
        longest.close = scan.offset() - 1;
        return longest;
    }
    if (!scan.at('{'))
        return std::nullopt;
    scan.skip();
    scan.skipSpace();
    qsizetype members = 0;
    while (!scan.at('}')) {
        if (members > 0) {
            if (!scan.at(','))
                return std::nullopt;
            scan.skip();
            scan.skipSpace();
        }
        const qsizetype keyStart = scan.offset();
        if (!scan.at('"') || !scan.skipString())
            return std::nullopt;
        const QByteArrayView key = text.sliced(keyStart, scan.offset() - keyStart);
        scan.skipSpace();
        if (!scan.at(':'))
            return std::nullopt;
        scan.skip();
        scan.skipSpace();
        ++members;
        if (scan.at('[')) {
            LongArray array;
            array.open = scan.offset();
            array.key = key;
            if (!scan.skipContainer(&array.commas))
                return std::nullopt;
            array.close = scan.offset() - 1;
            if (array.close - array.open > longest.close - longest.open)
                longest = std::move(array);
        } else if (!scan.skipValue()) {
            return std::nullopt;
        }
        scan.skipSpace();
    }
    if (longest.open < 0)
        return std::nullopt;
    longest.members = members;
    return longest;
}

std::optional<QJsonDocument> parseWhole(const QByteArray &text)
{
    QJsonParseError error{};
    QJsonDocument document = QJsonDocument::fromJson(text, &error);
    if (error.error != QJsonParseError::NoError)
        return std::nullopt;
    return document;
}

} // namespace

namespace detail {

std::optional<ArrayChunks> ArrayChunks::find(const QByteArray &bytes)
{
    if (bytes.size() < cutBytesMinimum)
        return std::nullopt;
    const std::optional<LongArray> array = findLongArray(bytes);
    if (!array)
        return std::nullopt;
    const qsizetype length = array->close - array->open;
    if (length < cutBytesMinimum / 2)
        return std::nullopt;

    ArrayChunks chunks;
    chunks.m_bytes = bytes;
    chunks.m_depth = array->key.isEmpty() ? 1 : 2;
    // Cuts at the first comma past each chunk's share of the text.
    chunks.m_bounds.push_back(array->open);
    auto comma = array->commas.begin();
    for (qsizetype share = array->open + bytesPerChunk; share < array->close; share += bytesPerChunk) {
        comma = std::lower_bound(comma, array->commas.end(), share);
        if (comma == array->commas.end())
            break;
        if (*comma > chunks.m_bounds.back())
            chunks.m_bounds.push_back(*comma);
    }
    chunks.m_bounds.push_back(array->close);

    // The rest of the document, with the array left empty.
    QByteArray text;
    text.reserve(bytes.size() - length + 1);
    text.append(bytes.constData(), array->open + 1).append(bytes.constData() + array->close, bytes.size() - array->close);
    const std::optional<QJsonDocument> rest = parseWhole(text);
    if (!rest)
        return std::nullopt;
    if (array->key.isEmpty()) {
        chunks.m_rest = rest->array();
        return chunks;
    }
    // The key read as the parser reads it. With a key written twice, which
    // one wins is left to the whole parse.
    const auto key = parseWhole(QByteArray(1, '[').append(array->key).append(']'));
    const QJsonObject object = rest->object();
    if (!key || object.size() != array->members)
        return std::nullopt;
    chunks.m_key = key->array().at(0).toString();
    const auto slot = object.constFind(chunks.m_key);
    if (slot == object.constEnd() || !slot->isArray() || !slot->toArray().isEmpty())
        return std::nullopt;
    chunks.m_rest = object;
    return chunks;
}

std::optional<QJsonArray> ArrayChunks::parse(std::size_t chunk) const
{
    const qsizetype from = m_bounds[chunk] + 1;
    QByteArray text;
    text.reserve(m_bounds[chunk + 1] - from + 2 * m_depth);
    text.append(m_depth, '[').append(m_bytes.constData() + from, m_bounds[chunk + 1] - from).append(m_depth, ']');
    const std::optional<QJsonDocument> document = parseWhole(text);
    if (!document)
        return std::nullopt;
    QJsonArray elements = m_depth == 1 ? document->array() : document->array().at(0).toArray();
    // Only space between two commas parses here, but not in the whole text.
    if (elements.isEmpty())
        return std::nullopt;
    return elements;
}

} // namespace detail

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
