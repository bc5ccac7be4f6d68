#include "perception/ShootingOrder.h"

#include "support/Async.h"
#include "support/SpeechSamples.h"

#include <gtest/gtest.h>

#include <QDate>
#include <QTimeZone>

namespace velum {
namespace {

using FilenameDate::publishedAt;
using ProcessPipeline::naturalCompare;

TEST(FilenameDate, OnlyADateAtTheVeryStartCounts)
{
    const auto day = [](int y, int m, int d) { return QDateTime(QDate(y, m, d), QTime(0, 0), QTimeZone::utc()); };
    EXPECT_EQ(publishedAt(u"2024-05-01 x"), day(2024, 5, 1));
    EXPECT_EQ(publishedAt(u"2024-05-01"), day(2024, 5, 1));
    EXPECT_EQ(publishedAt(u"20240501_final.mp4"), day(2024, 5, 1));
    EXPECT_FALSE(publishedAt(u"2024-05-011"));
    EXPECT_FALSE(publishedAt(u"2024-05-1 x"));
    EXPECT_FALSE(publishedAt(u"20240501123000 clip"));
    EXPECT_FALSE(publishedAt(u"2024_05_01"));
    EXPECT_FALSE(publishedAt(u"vlog 2024-05-01"));
    EXPECT_FALSE(publishedAt(u"٢٠٢٤-05-01"));
    EXPECT_FALSE(publishedAt(u""));

    EXPECT_FALSE(publishedAt(u"2004-12-31"));
    EXPECT_TRUE(publishedAt(u"2005-01-01"));
    const int year = QDateTime::currentDateTimeUtc().date().year();
    EXPECT_EQ(publishedAt(QString::number(year + 1) + "-12-31"), day(year + 1, 12, 31));
    EXPECT_FALSE(publishedAt(QString::number(year + 2) + "-01-01"));

    EXPECT_FALSE(publishedAt(u"20241301"));
    EXPECT_FALSE(publishedAt(u"2024-02-30"));
    EXPECT_FALSE(publishedAt(u"2023-02-29"));
    EXPECT_EQ(publishedAt(u"2024-02-29"), day(2024, 2, 29));
}

TEST(NaturalCompare, NumbersByValueAndCaseIgnored)
{
    EXPECT_LT(naturalCompare(u"take 2", u"take 10"), 0);
    EXPECT_GT(naturalCompare(u"take 10", u"take 2"), 0);
    EXPECT_LT(naturalCompare(u"Take 9.mov", u"take 10.mov"), 0);
    EXPECT_EQ(naturalCompare(u"TAKE 3", u"take 3"), 0);
    EXPECT_LT(naturalCompare(u"a", u"B"), 0);
}

C05Sync::Clip row(const QString &id, std::optional<double> offsetS = std::nullopt)
{
    C05Sync::Clip c{.clipId = id, .filename = id, .offsetS = offsetS, .isSynced = offsetS.has_value()};
    c.syncSource = offsetS ? C05Sync::SyncSource::crossCorrelation : C05Sync::SyncSource::creationTime;
    return c;
}

C0Probe::Clip probed(const QString &id, const QString &path)
{
    return C0Probe::Clip{.clipId = id, .filename = id, .path = path, .state = ProjectFileState::ok};
}

struct Placed {
    QString id;
    int index;
    C05Sync::SyncSource source;
    friend bool operator==(const Placed &, const Placed &) = default;
    friend std::ostream &operator<<(std::ostream &out, const Placed &p)
    {
        return out << p.id.toStdString() << "@" << p.index << "/" << json::text(p.source).toStdString();
    }
};

std::vector<Placed> order(std::vector<C05Sync::Clip> clips, const C0Probe &probe)
{
    std::vector<Placed> placed;
    for (const auto &c : test::awaitTask(ProcessPipeline::assignShootingOrder(std::move(clips), probe)))
        placed.push_back({c.clipId, c.shootingIndex, c.syncSource});
    return placed;
}

TEST(ShootingOrder, OffsetThenCreationTimeThenName)
{
    using enum C05Sync::SyncSource;
    const auto &speech = test::SpeechSamples::get();
    const QString nowhere = QStringLiteral("/nonexistent/clip.mov");

    // The synced ones by offset; two unsynced ones with creation times by
    // time, against the order of their names.
    C0Probe probe;
    probe.clips = {probed("take 9", speech.evening), probed("at 10", nowhere), probed("take 10", speech.morning),
                   probed("at 4", nowhere)};
    EXPECT_EQ(order({row("take 9"), row("at 10", 10), row("take 10"), row("at 4", 4)}, probe),
              (std::vector<Placed>{{"at 4", 0, crossCorrelation},
                                   {"at 10", 1, crossCorrelation},
                                   {"take 10", 2, creationTime},
                                   {"take 9", 3, creationTime}}));

    // Without a date on both sides the names decide, as numbers and
    // without case.
    probe.clips = {probed("take 10", nowhere), probed("Take 2", nowhere), probed("B", speech.morning),
                   probed("a", nowhere)};
    EXPECT_EQ(order({row("take 10"), row("Take 2")}, probe),
              (std::vector<Placed>{{"Take 2", 0, filename}, {"take 10", 1, filename}}));
    EXPECT_EQ(order({row("B"), row("a")}, probe), (std::vector<Placed>{{"a", 0, filename}, {"B", 1, creationTime}}));
}

} // namespace
} // namespace velum
