#include "model/FCPXMLTime.h"

#include <gtest/gtest.h>

#include <QHash>
#include <QSet>

#include <limits>
#include <unordered_set>

using namespace velum;

namespace {

constexpr qint64 int64Max = std::numeric_limits<qint64>::max();
constexpr qint64 int64Min = std::numeric_limits<qint64>::min();
__extension__ using Wide = __int128;

// Brace initialisers would split macro arguments at their commas.
FCPXMLTime rational(qint64 value, qint64 timescale)
{
    return FCPXMLTime{value, timescale};
}

// --- Frame rates -------------------------------------------------------------

TEST(FCPXMLFrameRate, NtscRatesAreThousandOneOverThousands)
{
    EXPECT_EQ(FCPXMLFrameRate(23.976), FCPXMLFrameRate(1001, 24000));
    EXPECT_EQ(FCPXMLFrameRate(29.97), FCPXMLFrameRate(1001, 30000));
    EXPECT_EQ(FCPXMLFrameRate(59.94), FCPXMLFrameRate(1001, 60000));
    // What a probe reports: the exact quotients and their usual roundings.
    EXPECT_EQ(FCPXMLFrameRate(24000.0 / 1001), FCPXMLFrameRate(1001, 24000));
    EXPECT_EQ(FCPXMLFrameRate(30000.0 / 1001), FCPXMLFrameRate(1001, 30000));
    EXPECT_EQ(FCPXMLFrameRate(60000.0 / 1001), FCPXMLFrameRate(1001, 60000));
    EXPECT_EQ(FCPXMLFrameRate(23.98), FCPXMLFrameRate(1001, 24000));
    EXPECT_EQ(FCPXMLFrameRate(119.88), FCPXMLFrameRate(1001, 120000));
    EXPECT_EQ(FCPXMLFrameRate(14.985), FCPXMLFrameRate(1001, 15000));
}

TEST(FCPXMLFrameRate, WholeRatesAreHundredOverHundreds)
{
    EXPECT_EQ(FCPXMLFrameRate(24.0), FCPXMLFrameRate(100, 2400));
    EXPECT_EQ(FCPXMLFrameRate(25.0), FCPXMLFrameRate(100, 2500));
    EXPECT_EQ(FCPXMLFrameRate(30.0), FCPXMLFrameRate(100, 3000));
    EXPECT_EQ(FCPXMLFrameRate(50.0), FCPXMLFrameRate(100, 5000));
    EXPECT_EQ(FCPXMLFrameRate(60.0), FCPXMLFrameRate(100, 6000));
    EXPECT_EQ(FCPXMLFrameRate(1.0), FCPXMLFrameRate(100, 100));
    // Measurement noise well inside a thousandth is still a whole rate.
    EXPECT_EQ(FCPXMLFrameRate(25.0004), FCPXMLFrameRate(100, 2500));
    EXPECT_EQ(FCPXMLFrameRate(29.9996), FCPXMLFrameRate(100, 3000));
}

TEST(FCPXMLFrameRate, TwentyFourAndItsNtscNeighbourStayApart)
{
    // Both round to 24, yet one is a whole rate and the other is not.
    const FCPXMLFrameRate film(24.0);
    const FCPXMLFrameRate ntsc(23.976);
    EXPECT_NE(film, ntsc);
    EXPECT_EQ(film.frameNum, 100);
    EXPECT_EQ(ntsc.frameNum, 1001);
    // Between the two bands: 23.99 is 0.01 away from 24 (not whole) and
    // 0.014 from 23.976 (not NTSC), so it is kept in thousandths.
    EXPECT_EQ(FCPXMLFrameRate(23.99), FCPXMLFrameRate(1000, 23990));
}

TEST(FCPXMLFrameRate, OtherRatesAreKeptInThousandths)
{
    EXPECT_EQ(FCPXMLFrameRate(12.5), FCPXMLFrameRate(1000, 12500));
    EXPECT_EQ(FCPXMLFrameRate(0.5), FCPXMLFrameRate(1000, 500));
    EXPECT_EQ(FCPXMLFrameRate(7.3331), FCPXMLFrameRate(1000, 7333));
}

TEST(FCPXMLFrameRate, DenominatorNeverFallsBelowOne)
{
    EXPECT_EQ(FCPXMLFrameRate(0.0), FCPXMLFrameRate(1000, 1));
    EXPECT_EQ(FCPXMLFrameRate(-25.0), FCPXMLFrameRate(1000, 1));
    EXPECT_EQ(FCPXMLFrameRate(0.0001), FCPXMLFrameRate(1000, 1));
    EXPECT_EQ(FCPXMLFrameRate(std::numeric_limits<double>::quiet_NaN()), FCPXMLFrameRate(1000, 1));
    EXPECT_EQ(FCPXMLFrameRate(-std::numeric_limits<double>::infinity()), FCPXMLFrameRate(1000, 1));
}

TEST(FCPXMLFrameRate, AbsurdRatesDoNotOverflow)
{
    const FCPXMLFrameRate huge(1e300);
    EXPECT_EQ(huge.frameNum, 1000);
    EXPECT_EQ(huge.frameDen, int64Max);
    const FCPXMLFrameRate infinite(std::numeric_limits<double>::infinity());
    EXPECT_EQ(infinite.frameDen, int64Max);
}

TEST(FCPXMLFrameRate, ServesAsAKeyByBothMembers)
{
    QSet<FCPXMLFrameRate> rates{FCPXMLFrameRate(25.0), FCPXMLFrameRate(25.0), FCPXMLFrameRate(23.976),
                                FCPXMLFrameRate(24.0)};
    EXPECT_EQ(rates.size(), 3);
    EXPECT_TRUE(rates.contains(FCPXMLFrameRate(100, 2400)));

    std::unordered_set<FCPXMLFrameRate> standard{FCPXMLFrameRate(29.97), FCPXMLFrameRate(30000.0 / 1001)};
    EXPECT_EQ(standard.size(), 1u);
    // Swapped members are a different rate.
    EXPECT_FALSE(standard.contains(FCPXMLFrameRate(30000, 1001)));
}

// --- Attributes --------------------------------------------------------------

TEST(FCPXMLTimeAttribute, ZeroWholeSecondsAndUnreducedFractions)
{
    EXPECT_EQ(rational(0, 24000).attribute(), "0s");
    EXPECT_EQ(rational(3000, 1000).attribute(), "3s");
    EXPECT_EQ(rational(72072, 24024).attribute(), "3s");
    EXPECT_EQ(rational(2002, 24000).attribute(), "2002/24000s");
    // Not reduced, even where it could be.
    EXPECT_EQ(rational(1500, 1000).attribute(), "1500/1000s");
    EXPECT_EQ(rational(-2500, 2500).attribute(), "-1s");
    EXPECT_EQ(rational(-1001, 24000).attribute(), "-1001/24000s");
    EXPECT_EQ(rational(7, 1).attribute(), "7s");
}

TEST(FCPXMLTimeAttribute, NativeFormKeepsTheTimescale)
{
    EXPECT_EQ(rational(3000, 1000).nativeAttribute(), "3000/1000s");
    EXPECT_EQ(rational(0, 1000).nativeAttribute(), "0s");
    EXPECT_EQ(rational(86400, 1).nativeAttribute(), "86400/1s");
    EXPECT_EQ(rational(3600 * 30000LL, 30000).nativeAttribute(), "108000000/30000s");
}

TEST(FCPXMLTimeAttribute, ExtremesAreWrittenWithoutOverflow)
{
    EXPECT_EQ(rational(int64Min, -1).attribute(), "9223372036854775808s");
    EXPECT_EQ(rational(int64Max, -1).attribute(), "-9223372036854775807s");
    EXPECT_EQ(rational(int64Min, 1).attribute(), "-9223372036854775808s");
    EXPECT_EQ(rational(5, 0).attribute(), "5/0s");
}

// --- Parsing -------------------------------------------------------------------

TEST(FCPXMLTimeParse, ReadsBothWrittenForms)
{
    EXPECT_EQ(FCPXMLTime::parse(u"0s"), rational(0, 1));
    EXPECT_EQ(FCPXMLTime::parse(u"3s"), rational(3, 1));
    EXPECT_EQ(FCPXMLTime::parse(u"2002/24000s"), rational(2002, 24000));
    EXPECT_EQ(FCPXMLTime::parse(u"3000/1000s"), rational(3000, 1000));
    EXPECT_EQ(FCPXMLTime::parse(u"-1001/30000s"), rational(-1001, 30000));
    EXPECT_EQ(FCPXMLTime::parse(u"+5s"), rational(5, 1));
    EXPECT_EQ(FCPXMLTime::parse(u"9223372036854775807/1s"), rational(int64Max, 1));
    EXPECT_EQ(FCPXMLTime::parse(u"-9223372036854775808s"), rational(int64Min, 1));
}

TEST(FCPXMLTimeParse, RejectsEverythingElse)
{
    for (const char16_t *bad : {u"1/0s", u"s", u"1/s", u"/1s", u"1.5s", u"", u"3", u"3S", u"1/-5s", u"1/2/3s",
                                u" 3s", u"3 s", u"3s ", u"-s", u"+/1s", u"1/+s", u"0x10s", u"3ss",
                                u"9223372036854775808s", u"1/9223372036854775808s", u"١٢s"}) {
        EXPECT_FALSE(FCPXMLTime::parse(bad)) << QString::fromUtf16(bad).toStdString();
    }
}

TEST(FCPXMLTimeParse, WrittenAttributesReadBackAsTheSameRatio)
{
    for (const FCPXMLTime t : {rational(2002, 24000), rational(3000, 1000), rational(-1001, 60000),
                               rational(123456789, 90000)}) {
        const auto native = FCPXMLTime::parse(t.nativeAttribute());
        ASSERT_TRUE(native);
        EXPECT_EQ(*native, t);
        const auto plain = FCPXMLTime::parse(t.attribute());
        ASSERT_TRUE(plain);
        // "3s" reads back as 3/1: the same number of seconds, not the same members.
        EXPECT_EQ(static_cast<Wide>(plain->value) * t.timescale,
                  static_cast<Wide>(t.value) * plain->timescale);
    }
}

// --- Arithmetic ----------------------------------------------------------------

TEST(FCPXMLTimeGcd, EuclidWithANonNegativeResult)
{
    EXPECT_EQ(FCPXMLTime::gcd(24000, 2500), 500);
    EXPECT_EQ(FCPXMLTime::gcd(2500, 24000), 500);
    EXPECT_EQ(FCPXMLTime::gcd(-24000, 2500), 500);
    EXPECT_EQ(FCPXMLTime::gcd(24000, -2500), 500);
    EXPECT_EQ(FCPXMLTime::gcd(-12, -18), 6);
    EXPECT_EQ(FCPXMLTime::gcd(0, 7), 7);
    EXPECT_EQ(FCPXMLTime::gcd(-7, 0), 7);
    EXPECT_EQ(FCPXMLTime::gcd(0, 0), 0);
    EXPECT_EQ(FCPXMLTime::gcd(1001, 1000), 1);
    EXPECT_EQ(FCPXMLTime::gcd(int64Min, 6), 2);
    EXPECT_EQ(FCPXMLTime::gcd(int64Max, int64Max), int64Max);
    EXPECT_THROW(FCPXMLTime::gcd(int64Min, 0), FCPXMLTimeArithmeticError);
    EXPECT_THROW(FCPXMLTime::gcd(int64Min, int64Min), FCPXMLTimeArithmeticError);
}

TEST(FCPXMLTimeAddition, AcrossTimescalesUsesTheLeastCommonMultiple)
{
    // One NTSC frame plus one PAL frame.
    const FCPXMLTime sum = rational(1001, 24000) + rational(100, 2500);
    EXPECT_EQ(sum.timescale, 120000);
    EXPECT_EQ(sum, rational(5005 + 4800, 120000));
    EXPECT_EQ(rational(100, 2500) + rational(1001, 24000), sum);

    // Timescales that share no factor multiply.
    EXPECT_EQ(rational(1, 3) + rational(1, 7), rational(10, 21));
    // One timescale dividing the other.
    EXPECT_EQ(rational(1001, 30000) + rational(1, 1), rational(31001, 30000));
    EXPECT_EQ(rational(3, 1) + rational(-2002, 24000), rational(69998, 24000));
}

TEST(FCPXMLTimeAddition, EqualTimescalesAddValuesWithoutReducing)
{
    EXPECT_EQ(rational(1001, 24000) + rational(1001, 24000), rational(2002, 24000));
    EXPECT_EQ(rational(500, 1000) + rational(500, 1000), rational(1000, 1000));
    EXPECT_EQ(rational(500, 1000) + rational(-500, 1000), rational(0, 1000));
}

TEST(FCPXMLTimeAddition, AZeroOperandGivesTheOtherUnchanged)
{
    EXPECT_EQ(FCPXMLTime() + rational(2002, 24000), rational(2002, 24000));
    EXPECT_EQ(rational(2002, 24000) + rational(0, 7), rational(2002, 24000));
    // Even a zero over a nonsensical timescale does not disturb the other side.
    EXPECT_EQ(rational(0, 0) + rational(3, 25), rational(3, 25));
}

TEST(FCPXMLTimeAddition, SummingFramesStaysExact)
{
    // An hour of 29.97 frames, one at a time, lands on the exact total.
    FCPXMLTime total{0, 1};
    const FCPXMLTime frame{1001, 30000};
    const qint64 frames = 107892; // 3600 s at 30000/1001 fps
    for (qint64 i = 0; i < frames; ++i)
        total = total + frame;
    EXPECT_EQ(total, rational(frames * 1001, 30000));
    EXPECT_EQ(total.attribute(), "107999892/30000s");
}

TEST(FCPXMLTimeAddition, OverflowIsReportedNotWrapped)
{
    EXPECT_THROW(rational(int64Max, 1) + rational(1, 1), FCPXMLTimeArithmeticError);
    EXPECT_THROW(rational(int64Max / 2, 3) + rational(1, 7), FCPXMLTimeArithmeticError);
    EXPECT_THROW(rational(1, 3037000507) + rational(1, 3037000493), FCPXMLTimeArithmeticError);
    EXPECT_THROW(rational(1, 0) + rational(1, 25), FCPXMLTimeArithmeticError);
}

} // namespace
