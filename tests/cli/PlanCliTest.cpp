// velum-cli plan, run as the built program on a small project folder.

#include "review/ReviewEdits.h"
#include "stages/C05Sync.h"
#include "stages/C0Probe.h"
#include "stages/C1Transcript.h"
#include "stages/C3Cuts.h"
#include "support/Cli.h"
#include "support/SmallProject.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <QFileInfo>
#include <QJsonArray>
#include <QJsonObject>

using namespace velum;

namespace {

// The small project with its media said to be in /media, without camera
// sound.
void writeProject(const test::TempDir &dir)
{
    test::writeSmallProject(dir);
}

QJsonObject readJson(const QString &path) { return json::parse(test::readBytes(path)).toObject(); }

// The segment of a clip that holds a time.
QJsonObject segmentAt(const QJsonObject &clip, double time)
{
    for (const auto &value : clip["segments"].toArray()) {
        const QJsonObject s = value.toObject();
        if (s["sourceStart"].toDouble() <= time && time < s["sourceEnd"].toDouble())
            return s;
    }
    return {};
}

TEST(PlanCli, WritesThePlanOfTheReviewWithItsEdits)
{
    test::TempDir dir;
    writeProject(dir);
    const QString out = dir.file("plan.json");
    const auto result = test::runVelumCli({"plan", dir.path(), "--json", out});
    ASSERT_EQ(result.exitCode, 0) << result.standardError.constData();

    const QJsonObject plan = readJson(out);
    EXPECT_EQ(plan["projectName"].toString(), QFileInfo(dir.path()).fileName());
    const QJsonArray clips = plan["clips"].toArray();
    ASSERT_EQ(clips.size(), 2);
    const QJsonObject a = clips[0].toObject();
    const QJsonObject b = clips[1].toObject();
    EXPECT_EQ(a["clipId"].toString(), "a");
    EXPECT_EQ(a["filename"].toString(), "a take.mov");
    EXPECT_EQ(a["url"].toString(), "file:///media/a%20take.mov");
    EXPECT_EQ(a["externalOffsetS"].toDouble(), 1.5);
    EXPECT_FALSE(b.contains("externalOffsetS"));
    const QJsonObject media = a["media"].toObject();
    EXPECT_EQ(media["durationS"].toDouble(), 6);
    EXPECT_EQ(media["videoCodec"].toString(), "h264");
    EXPECT_EQ(media["width"].toInt(), 1920);
    EXPECT_FALSE(media.contains("audioCodec"));

    // Every word of the review sits in a segment of its kind: the filler in
    // a filler segment, the stored cut in a manual one, the rest kept.
    const auto reasonAt = [](const QJsonObject &clip, double t) {
        const QJsonObject s = segmentAt(clip, t);
        EXPECT_FALSE(s.isEmpty()) << t;
        return s.contains("reason") ? s["reason"].toString() : QString("kept");
    };
    EXPECT_EQ(reasonAt(a, 0.15), "kept");
    EXPECT_EQ(reasonAt(a, 1.15), "filler");
    EXPECT_EQ(reasonAt(a, 2.65), "manual");
    EXPECT_EQ(reasonAt(a, 3.15), "manual");
    EXPECT_EQ(reasonAt(a, 3.65), "kept");
    EXPECT_EQ(reasonAt(b, 0.15), "kept");
    EXPECT_EQ(reasonAt(b, 1.65), "kept");

    // The segments tile each clip on its own frame grid, and the timeline
    // runs over the kept ones; the counts and durations agree with them.
    int segments = 0, kept = 0;
    double keptSeconds = 0, allSeconds = 0, timeline = 0;
    for (const auto &[clip, fps, length] : {std::tuple{a, 25.0, 6.0}, std::tuple{b, 24.0, 3.0}}) {
        double cursor = 0;
        for (const auto &value : clip["segments"].toArray()) {
            const QJsonObject s = value.toObject();
            const double start = s["sourceStart"].toDouble();
            const double end = s["sourceEnd"].toDouble();
            EXPECT_EQ(start, cursor);
            EXPECT_NEAR(end * fps, std::round(end * fps), 1e-9);
            EXPECT_EQ(s["timelineStart"].toDouble(), timeline);
            ++segments;
            allSeconds += end - start;
            if (!s.contains("reason")) {
                ++kept;
                keptSeconds += end - start;
                timeline += end - start;
            }
            cursor = end;
        }
        EXPECT_EQ(cursor, length);
    }
    EXPECT_EQ(plan["segmentCount"].toInt(), segments);
    EXPECT_EQ(plan["enabledCount"].toInt(), kept);
    EXPECT_EQ(plan["disabledCount"].toInt(), segments - kept);
    EXPECT_DOUBLE_EQ(plan["keptDuration"].toDouble(), keptSeconds);
    EXPECT_DOUBLE_EQ(plan["sourceDuration"].toDouble(), 9);
    EXPECT_DOUBLE_EQ(allSeconds, 9);

    const QJsonObject external = plan["externalAudio"].toObject();
    EXPECT_EQ(external["clipId"].toString(), "mic");
    EXPECT_EQ(external["url"].toString(), "file:///media/mic.wav");
    EXPECT_EQ(external["durationS"].toDouble(), 20);
    EXPECT_EQ(external["sampleRate"].toInt(), 48000);
    EXPECT_EQ(external["channels"].toInt(), 1);
    const QJsonObject timecode = external["startTimecode"].toObject();
    EXPECT_EQ(timecode["value"].toInteger(), 172800000);
    EXPECT_EQ(timecode["source"].toString(), "bwf_time_reference");
    EXPECT_EQ(timecode["text"].toString(), "01:00:00:00");

    // Clip "a" has the most kept seconds.
    EXPECT_EQ(plan["dominantVideoSize"].toObject(), (QJsonObject{{"width", 1920}, {"height", 1080}}));
}

TEST(PlanCli, KeptOnlyAndName)
{
    test::TempDir dir;
    writeProject(dir);
    const QString full = dir.file("full.json");
    const QString keptOnly = dir.file("kept.json");
    ASSERT_EQ(test::runVelumCli({"plan", dir.path(), "--json", full}).exitCode, 0);
    ASSERT_EQ(test::runVelumCli({"plan", "--kept-only", dir.path(), "--name", "Launch video", "--json", keptOnly})
                  .exitCode,
              0);
    const QJsonObject all = readJson(full);
    const QJsonObject kept = readJson(keptOnly);
    EXPECT_EQ(kept["projectName"].toString(), "Launch video");
    EXPECT_EQ(kept["disabledCount"].toInt(), 0);
    EXPECT_EQ(kept["segmentCount"].toInt(), all["enabledCount"].toInt());
    EXPECT_EQ(kept["keptDuration"], all["keptDuration"]);
    EXPECT_EQ(kept["sourceDuration"], all["keptDuration"]);
    EXPECT_EQ(kept["externalAudio"], all["externalAudio"]);
    // Kept segments keep their timeline positions.
    const QJsonArray keptSegments = kept["clips"].toArray()[0].toObject()["segments"].toArray();
    QJsonArray fullKept;
    for (const auto &s : all["clips"].toArray()[0].toObject()["segments"].toArray())
        if (!s.toObject().contains("reason"))
            fullKept.append(s);
    EXPECT_EQ(keptSegments, fullKept);
}

TEST(PlanCli, NothingToPlanAndUsageErrors)
{
    test::TempDir dir;
    const QString out = dir.file("o.json");
    auto result = test::runVelumCli({"plan", dir.path(), "--json", out});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(result.standardError.startsWith("velum-cli: nothing to plan in "));
    EXPECT_EQ(result.standardError.count('\n'), 1);
    EXPECT_FALSE(QFileInfo::exists(out));

    writeProject(dir);
    EXPECT_EQ(test::runVelumCli({"plan", dir.path()}).exitCode, 2);
    EXPECT_EQ(test::runVelumCli({"plan", dir.path(), "--json"}).exitCode, 2);
    EXPECT_EQ(test::runVelumCli({"plan", dir.path(), "--json", out, "--name"}).exitCode, 2);
    EXPECT_EQ(test::runVelumCli({"plan", dir.path(), "--json", out, "--everything"}).exitCode, 2);
    EXPECT_EQ(test::runVelumCli({"plan", dir.path(), dir.path(), "--json", out}).exitCode, 2);
    EXPECT_FALSE(QFileInfo::exists(out));
}

} // namespace
