#include "model/FCPXMLTime.h"

#include <QHashFunctions>

#include <charconv>
#include <cmath>
#include <limits>

namespace velum {

namespace {

// 2^63 is exactly representable; every double below it fits.
qint64 heldInRange(double whole)
{
    if (whole >= 9223372036854775808.0)
        return std::numeric_limits<qint64>::max();
    if (whole <= -9223372036854775808.0)
        return std::numeric_limits<qint64>::min();
    return static_cast<qint64>(whole);
}

} // namespace

qint64 FrameArithmetic::rounded(double x)
{
    return std::isnan(x) ? 0 : heldInRange(std::round(x));
}

qint64 FrameArithmetic::truncated(double x)
{
    return std::isnan(x) ? 0 : heldInRange(std::trunc(x));
}

qint64 FrameArithmetic::multiply(qint64 a, qint64 b)
{
    qint64 result = 0;
    if (__builtin_mul_overflow(a, b, &result))
        throw FCPXMLTimeArithmeticError("rational time overflows 64 bits");
    return result;
}

qint64 FrameArithmetic::add(qint64 a, qint64 b)
{
    qint64 result = 0;
    if (__builtin_add_overflow(a, b, &result))
        throw FCPXMLTimeArithmeticError("rational time overflows 64 bits");
    return result;
}

namespace {

constexpr qint64 int64Max = std::numeric_limits<qint64>::max();
constexpr qint64 int64Min = std::numeric_limits<qint64>::min();

// "<value>/<timescale>s", or "<value>s" without a timescale, built in one
// buffer: a timeline has tens of thousands of these.
QString seconds(qint64 value, std::optional<qint64> timescale = std::nullopt)
{
    char buffer[48];
    char *end = std::to_chars(buffer, buffer + 20, value).ptr;
    if (timescale) {
        *end++ = '/';
        end = std::to_chars(end, end + 20, *timescale).ptr;
    }
    *end++ = 's';
    return QString::fromLatin1(buffer, end - buffer);
}

// A base-10 integer with an optional sign and at least one digit; nothing
// else, not even a blank. No value when it does not fit in 64 bits.
std::optional<qint64> strictInteger(QStringView text)
{
    if (text.isEmpty())
        return std::nullopt;
    bool negative = false;
    qsizetype i = 0;
    if (text[0] == QLatin1Char('+') || text[0] == QLatin1Char('-')) {
        negative = text[0] == QLatin1Char('-');
        i = 1;
    }
    if (i == text.size())
        return std::nullopt;
    // Accumulate towards the negative side, which holds one more value.
    qint64 result = 0;
    for (; i < text.size(); ++i) {
        const char16_t c = text[i].unicode();
        if (c < u'0' || c > u'9')
            return std::nullopt;
        if (__builtin_mul_overflow(result, qint64(10), &result)
            || __builtin_sub_overflow(result, qint64(c - u'0'), &result))
            return std::nullopt;
    }
    if (negative)
        return result;
    if (result == int64Min)
        return std::nullopt;
    return -result;
}

} // namespace

FCPXMLFrameRate::FCPXMLFrameRate(double fps)
{
    if (std::isnan(fps))
        fps = 0;

    // 1. Whole rates.
    const qint64 whole = FrameArithmetic::rounded(fps);
    if (std::fabs(fps - static_cast<double>(whole)) < 0.001 && whole > 0 && whole <= int64Max / 100) {
        frameNum = 100;
        frameDen = whole * 100;
        return;
    }

    // 2. NTSC rates: n·1000/1001 frames a second.
    const qint64 ntsc = FrameArithmetic::rounded(fps * 1001 / 1000);
    if (ntsc > 0 && ntsc <= int64Max / 1000
        && std::fabs(fps - static_cast<double>(ntsc) * 1000 / 1001) < 0.01) {
        frameNum = 1001;
        frameDen = ntsc * 1000;
        return;
    }

    // 3. Anything else, in thousandths of a frame.
    frameNum = 1000;
    frameDen = std::max<qint64>(FrameArithmetic::rounded(fps * 1000), 1);
}

size_t qHash(const FCPXMLFrameRate &rate, size_t seed) noexcept
{
    return qHashMulti(seed, rate.frameNum, rate.frameDen);
}

QString FCPXMLTime::attribute() const
{
    if (value == 0)
        return QStringLiteral("0s");
    if (timescale == 1)
        return seconds(value);
    // A timescale of -1 divides everything; its quotient may not fit in a
    // signed 64-bit integer, so it is written through the unsigned negation.
    if (timescale == -1) {
        const quint64 magnitude = value < 0 ? 0 - static_cast<quint64>(value) : static_cast<quint64>(value);
        return (value < 0 ? QString() : QStringLiteral("-")) + QString::number(magnitude) + QLatin1Char('s');
    }
    if (timescale != 0 && value % timescale == 0)
        return seconds(value / timescale);
    return seconds(value, timescale);
}

QString FCPXMLTime::nativeAttribute() const
{
    if (value == 0)
        return QStringLiteral("0s");
    return seconds(value, timescale);
}

std::optional<FCPXMLTime> FCPXMLTime::parse(QStringView text)
{
    if (!text.endsWith(QLatin1Char('s')))
        return std::nullopt;
    const QStringView body = text.chopped(1);
    const qsizetype slash = body.indexOf(QLatin1Char('/'));
    if (slash < 0) {
        const auto v = strictInteger(body);
        if (!v)
            return std::nullopt;
        return FCPXMLTime{*v, 1};
    }
    const auto v = strictInteger(body.left(slash));
    const auto t = strictInteger(body.mid(slash + 1));
    if (!v || !t || *t < 1)
        return std::nullopt;
    return FCPXMLTime{*v, *t};
}

qint64 FCPXMLTime::gcd(qint64 a, qint64 b)
{
    // Euclid on magnitudes, so that the most negative value is no trap.
    quint64 x = a < 0 ? 0 - static_cast<quint64>(a) : static_cast<quint64>(a);
    quint64 y = b < 0 ? 0 - static_cast<quint64>(b) : static_cast<quint64>(b);
    while (y != 0) {
        const quint64 r = x % y;
        x = y;
        y = r;
    }
    if (x > static_cast<quint64>(int64Max))
        throw FCPXMLTimeArithmeticError("greatest common divisor does not fit in 64 bits");
    return static_cast<qint64>(x);
}

FCPXMLTime operator+(const FCPXMLTime &lhs, const FCPXMLTime &rhs)
{
    if (lhs.value == 0)
        return rhs;
    if (rhs.value == 0)
        return lhs;
    if (lhs.timescale == rhs.timescale)
        return FCPXMLTime{FrameArithmetic::add(lhs.value, rhs.value), lhs.timescale};
    if (lhs.timescale == 0 || rhs.timescale == 0)
        throw FCPXMLTimeArithmeticError("cannot add times when one has a timescale of zero");

    const qint64 divisor = FCPXMLTime::gcd(lhs.timescale, rhs.timescale);
    const qint64 timescale = FrameArithmetic::multiply(lhs.timescale / divisor, rhs.timescale);
    const qint64 left = FrameArithmetic::multiply(lhs.value, timescale / lhs.timescale);
    const qint64 right = FrameArithmetic::multiply(rhs.value, timescale / rhs.timescale);
    return FCPXMLTime{FrameArithmetic::add(left, right), timescale};
}

} // namespace velum
