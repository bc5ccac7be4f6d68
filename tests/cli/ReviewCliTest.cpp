#include "model/ProjectWorkspace.h"
#include "review/ReviewEdits.h"
#include "stages/C0Probe.h"
#include "stages/C1Plan.h"
#include "stages/C1Transcript.h"
#include "stages/C3Cuts.h"
#include "support/Cli.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <QJsonArray>
#include <QJsonObject>

using namespace velum;

namespace {

// A project folder with two clips: "a" (8 words, 6 s of media) and "b"
// (4 words, no probe media), a filler and a long pause in "a".
void writeProject(const test::TempDir &dir)
{
    const QDateTime now = json::nowWholeSeconds();
    C1Transcript transcript{.schemaVersion = 1, .projectId = "p", .createdAt = now};
    for (const QString id : {"a", "b"}) {
        C1Transcript::Clip clip{.clipId = id, .filename = id + " take.mov", .language = "en"};
        const int count = id == "a" ? 8 : 4;
        for (int i = 0; i < count; ++i)
            clip.words.push_back(TimedWord{.text = i == 2 ? "um" : "word", .start = 0.5 * i, .end = 0.5 * i + 0.3,
                                           .isFiller = i == 2});
        transcript.clips.push_back(clip);
    }
    C0Probe probe{.schemaVersion = 2, .projectId = "p", .createdAt = now};
    probe.clips.push_back(C0Probe::Clip{.clipId = "a", .filename = "a take.mov", .path = "/media/a take.mov",
                                        .role = ProjectFileRole::aRoll, .state = ProjectFileState::ok,
                                        .media = ClipMedia{.clipId = "a", .durationS = 6}});
    probe.clips.push_back(C0Probe::Clip{.clipId = "b", .filename = "b take.mov", .path = "/media/b.mov",
                                        .role = ProjectFileRole::aRoll, .state = ProjectFileState::ok});
    C3Cuts cuts{.schemaVersion = 1, .projectId = "p", .createdAt = now,
                .params = C3Cuts::Params{.seamTightnessMs = 100, .source = "profile"}};
    C3Cuts::Clip cleanup{.clipId = "a", .filename = "a take.mov"};
    cleanup.fillerCuts = {C3Cuts::WordRange{.wordStart = 2, .wordEnd = 3, .startS = 1, .endS = 1.3, .text = "um"}};
    cleanup.silenceCuts = {C3Cuts::Gap{.afterWord = 4, .startS = 2.35, .endS = 2.45, .removedMs = 100}};
    cuts.clips.push_back(cleanup);
    C1Plan plan{.schemaVersion = 3, .clipOrder = {"a", "b"}};

    StageCoder::write(transcript, dir.file("c1_transcript.json"));
    StageCoder::write(probe, dir.file("c0_probe.json"));
    StageCoder::write(cuts, dir.file("c3_cuts.json"));
    StageCoder::write(plan, dir.file("c1_plan.json"));
    StageCoder::write(ReviewEdits{.cuts = {{"a", 6, 8, std::nullopt}, {"b", 3, 9, CutReason::filler}}},
                      dir.file("review_edits.json"));
}

TEST(ReviewCli, WritesTheModelWithIndicesAndPrintsItsNotes)
{
    test::TempDir dir;
    writeProject(dir);
    const QString out = dir.file("out/review.json");
    QDir().mkpath(dir.file("out"));
    const auto result = test::runVelumCli({"review", dir.path(), "--json", out});
    ASSERT_EQ(result.exitCode, 0) << result.standardError.constData();
    EXPECT_EQ(result.standardOutput, "c1_plan: schema 3 is not 1 — no sections\n"
                                     "review_edits: 5 word(s) of b[3..<9] are not in this build — skipped\n");

    const QJsonObject root = json::parse(test::readBytes(out)).toObject();
    const QJsonObject transcript = root["transcript"].toObject();
    const QJsonArray words = transcript["words"].toArray();
    // 8 + 4 words and the removed pause token of "a".
    ASSERT_EQ(words.size(), 13);
    EXPECT_EQ(root["language"].toString(), "en");
    EXPECT_EQ(root["notes"].toArray().size(), 2);
    EXPECT_TRUE(root["sections"].toArray().isEmpty());

    const QJsonObject filler = words[2].toObject();
    EXPECT_EQ(filler["cutReason"].toString(), "filler");
    EXPECT_EQ(filler["wordIndex"].toInt(), 2);
    const QJsonObject pause = words[5].toObject();
    EXPECT_EQ(pause["text"].toString(), "…");
    EXPECT_TRUE(pause["isPauseToken"].toBool());
    EXPECT_FALSE(pause.contains("wordIndex"));
    // The stored cut of positions 6 and 7 (word 5 and 6: the pause token
    // counts) is manual; clip "b" starts at 6 s, the probe's media length.
    EXPECT_EQ(words[6].toObject()["cutReason"].toString(), "manual");
    EXPECT_EQ(words[7].toObject()["cutReason"].toString(), "manual");
    EXPECT_FALSE(words[8].toObject().contains("cutReason"));
    EXPECT_DOUBLE_EQ(words[9].toObject()["start"].toDouble(), 6.0);
    EXPECT_EQ(words[9].toObject()["source"].toInt(), 1);
    EXPECT_EQ(words[12].toObject()["cutReason"].toString(), "filler");

    const QJsonArray sources = transcript["sources"].toArray();
    EXPECT_EQ(sources[0].toObject()["url"].toString(), "file:///media/a%20take.mov");
    EXPECT_EQ(sources[1].toObject()["kind"].toString(), "video");
    const QJsonArray clips = root["media"].toObject()["clips"].toArray();
    ASSERT_EQ(clips.size(), 2);
    EXPECT_DOUBLE_EQ(clips[1].toObject()["timelineStartS"].toDouble(), 6.0);
    EXPECT_FALSE(clips[0].toObject().contains("externalOffsetS"));

    // Paragraph word lists are indices into "words".
    int listed = 0;
    for (const auto &p : transcript["paragraphs"].toArray())
        listed += p.toObject()["words"].toArray().size();
    EXPECT_EQ(listed, 13);
    EXPECT_FALSE(transcript["keptRanges"].toArray().isEmpty());
}

TEST(ReviewCli, NothingToReviewAndUsageErrors)
{
    test::TempDir dir;
    auto result = test::runVelumCli({"review", dir.path(), "--json", dir.file("o.json")});
    EXPECT_EQ(result.exitCode, 1);
    EXPECT_TRUE(result.standardError.startsWith("velum-cli: nothing to review"));
    EXPECT_FALSE(QFileInfo::exists(dir.file("o.json")));

    test::writeBytes(dir.file("c0_probe.json"), "{\"schema_version\": 2, \"clips\": [");
    EXPECT_EQ(test::runVelumCli({"review", dir.path(), "--json", dir.file("o.json")}).exitCode, 1);

    EXPECT_EQ(test::runVelumCli({"review", dir.path()}).exitCode, 2);
    EXPECT_EQ(test::runVelumCli({"review", "--json"}).exitCode, 2);
    EXPECT_EQ(test::runVelumCli({"no-such-command"}).exitCode, 2);
    EXPECT_EQ(test::runVelumCli({"--help"}).exitCode, 0);
}

} // namespace
