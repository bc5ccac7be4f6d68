#pragma once

// Exact rational time for everything that leaves the system for the editor:
// a number of seconds as an integer value over an integer timescale, and the
// frame rate behind a measured frames-per-second figure. Nothing here uses
// floating point once a rate has been recognised.

#include <QString>
#include <QStringView>

#include <QtGlobal>

#include <cstddef>
#include <functional>
#include <optional>
#include <stdexcept>

namespace velum {

// The length of one frame as a fraction of a second: 25 fps is 100/2500,
// 23.976 fps is 1001/24000.
struct FCPXMLFrameRate {
    qint64 frameNum = 1000;
    qint64 frameDen = 1;

    FCPXMLFrameRate() = default;
    FCPXMLFrameRate(qint64 frameNum, qint64 frameDen) : frameNum(frameNum), frameDen(frameDen) {}

    // Recognises the true rate behind a measured one, trying in order:
    //  1. a whole rate: within 0.001 of a positive integer n gives 100/(n·100);
    //  2. an NTSC rate: within 0.01 of n·1000/1001 for a positive n gives
    //     1001/(n·1000);
    //  3. anything else is 1000/max(round(fps·1000), 1).
    // A rate that is not a number counts as 0; a rate too large for 64-bit
    // frame arithmetic is held at the largest that fits.
    explicit FCPXMLFrameRate(double fps);

    friend bool operator==(const FCPXMLFrameRate &, const FCPXMLFrameRate &) = default;
};

size_t qHash(const FCPXMLFrameRate &rate, size_t seed = 0) noexcept;

// A time that cannot be computed in 64 bits, or a timescale of zero where a
// common timescale has to be found. Either is a fault of the code that built
// the operands, never of the user's media.
class FCPXMLTimeArithmeticError : public std::overflow_error {
public:
    using std::overflow_error::overflow_error;
};

// The 64-bit arithmetic of frame time, shared by everything that counts
// frames. Conversions from doubles are held inside the range (not-a-number
// reads as 0); products and sums that do not fit throw
// FCPXMLTimeArithmeticError.
namespace FrameArithmetic {
qint64 rounded(double x);
qint64 truncated(double x);
qint64 multiply(qint64 a, qint64 b);
qint64 add(qint64 a, qint64 b);
} // namespace FrameArithmetic

// `value` / `timescale` seconds. Equality is memberwise: 1/2 and 2/4 differ,
// and nothing is ever reduced to lowest terms.
struct FCPXMLTime {
    qint64 value = 0;
    qint64 timescale = 1;

    friend bool operator==(const FCPXMLTime &, const FCPXMLTime &) = default;

    // "0s" for a zero value; whole seconds as "3s" when the value is a
    // multiple of the timescale; otherwise "2002/24000s", unreduced.
    QString attribute() const;
    // "0s" for a zero value, otherwise always "value/timescales", so that an
    // asset's start keeps the timescale of the media's own timecode.
    QString nativeAttribute() const;

    // Reads an attribute value: "<int>s" (timescale 1) or "<int>/<int>s" with
    // a timescale of at least 1. Integers are base 10 with an optional sign.
    // Anything else, out-of-range numbers included, gives no value.
    static std::optional<FCPXMLTime> parse(QStringView text);

    // Euclid's algorithm; the result is never negative. Throws
    // FCPXMLTimeArithmeticError when the result, 2^63, does not fit.
    static qint64 gcd(qint64 a, qint64 b);
};

// A zero value on either side gives the other operand unchanged; equal
// timescales add the values; otherwise both are scaled to the least common
// multiple of the timescales, (t1 / gcd) · t2. Throws
// FCPXMLTimeArithmeticError on 64-bit overflow and on a zero timescale that
// would need scaling.
FCPXMLTime operator+(const FCPXMLTime &lhs, const FCPXMLTime &rhs);

} // namespace velum

template <>
struct std::hash<velum::FCPXMLFrameRate> {
    size_t operator()(const velum::FCPXMLFrameRate &rate) const noexcept { return velum::qHash(rate); }
};
