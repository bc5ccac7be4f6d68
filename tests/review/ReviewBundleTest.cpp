#include "review/ReviewBundle.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <QDir>

using namespace velum;
using namespace velum::ProcessPipeline;

namespace {

C1Transcript::Clip clipOf(const QString &id, int count, double spacing = 0.5, const QString &text = "word")
{
    C1Transcript::Clip clip{.clipId = id, .filename = id + ".mov"};
    for (int i = 0; i < count; ++i)
        clip.words.push_back(TimedWord{.text = text, .start = spacing * i, .end = spacing * i + 0.3});
    return clip;
}

C0Probe::Clip probeOf(const QString &id, std::optional<double> duration)
{
    C0Probe::Clip clip{.clipId = id, .filename = id + ".mov", .path = "/footage/" + id + ".mov",
                       .role = ProjectFileRole::aRoll, .state = ProjectFileState::ok};
    if (duration)
        clip.media = ClipMedia{.clipId = id, .durationS = *duration};
    return clip;
}

ReviewDocuments documents(std::vector<C1Transcript::Clip> clips, std::vector<C0Probe::Clip> probe)
{
    ReviewDocuments d;
    d.probe.schemaVersion = 2;
    d.probe.clips = std::move(probe);
    d.transcript.clips = std::move(clips);
    d.probe.createdAt = d.transcript.createdAt = json::nowWholeSeconds();
    d.probe.projectId = d.transcript.projectId = "1B4E28BA-2FA1-11D2-883F-0016D3CCA427";
    return d;
}

TEST(ReviewBundleBuild, SpineOnlyOpensWithEverythingKeptInFileOrder)
{
    auto d = documents({clipOf("b", 3), clipOf("a", 2)}, {probeOf("a", 10), probeOf("b", 10)});
    const auto bundle = buildReviewBundle(d);
    ASSERT_TRUE(bundle);
    const auto &t = bundle->transcript;
    EXPECT_EQ(t.words().size(), 5u);
    EXPECT_EQ(t.cutCount(), 0);
    EXPECT_EQ(t.words().front().clipId, "b");
    EXPECT_TRUE(bundle->sections.empty());
    EXPECT_FALSE(bundle->language);
    ASSERT_EQ(bundle->media.clips.size(), 2u);
    EXPECT_EQ(bundle->media.clips[1].clipId, "a");
    EXPECT_DOUBLE_EQ(bundle->media.clips[1].timelineStartS, 10);
    EXPECT_EQ(bundle->media.clips[0].url, QUrl::fromLocalFile("/footage/b.mov"));
}

TEST(ReviewBundleBuild, ClipsTakeTheirFullMediaLengthOnTheTimeline)
{
    // A 10 s clip whose last word ends at 7 s puts the next clip at 10 s; a
    // clip the probe does not know takes its last word's end and has no media.
    auto d = documents({clipOf("a", 15), clipOf("ghost", 4), clipOf("c", 2)}, {probeOf("a", 10), probeOf("c", 5)});
    d.order = ClipOrder{.timelineOrder = {"a", "missing", "ghost", "c"}};
    const auto bundle = buildReviewBundle(d);
    ASSERT_TRUE(bundle);
    const auto &t = bundle->transcript;
    ASSERT_EQ(t.sources().size(), 3u);
    EXPECT_FALSE(t.sources()[1].url);
    ASSERT_EQ(bundle->media.clips.size(), 2u);
    EXPECT_DOUBLE_EQ(bundle->media.clips[1].timelineStartS, 10 + 1.8);
    const auto ghostFirst = std::find_if(t.words().begin(), t.words().end(), [](auto &w) { return w.clipId == "ghost"; });
    EXPECT_DOUBLE_EQ(ghostFirst->start, 10);
    EXPECT_DOUBLE_EQ(ghostFirst->localStart, 0);
    EXPECT_EQ(t.sources()[2].colorIndex, 2);
}

TEST(ReviewBundleBuild, NothingToReviewWithoutWordsInTheOrder)
{
    auto d = documents({clipOf("a", 0)}, {probeOf("a", 10)});
    EXPECT_FALSE(buildReviewBundle(d));
    d = documents({clipOf("a", 3)}, {probeOf("a", 10)});
    d.order = ClipOrder{.timelineOrder = {"zzz"}};
    EXPECT_FALSE(buildReviewBundle(d));
}

TEST(ReviewBundleBuild, ExternalAudioOnlyWhenAClipIsSynced)
{
    auto d = documents({clipOf("a", 3)}, {probeOf("a", 10), probeOf("lav", 60)});
    d.sync = C05Sync{.externalClipId = "lav",
                     .clips = {C05Sync::Clip{.clipId = "a", .filename = "a.mov", .offsetS = 12.5,
                                             .syncSource = C05Sync::SyncSource::crossCorrelation, .isSynced = false}}};
    auto bundle = buildReviewBundle(d);
    ASSERT_TRUE(bundle);
    EXPECT_FALSE(bundle->media.externalURL);
    EXPECT_FALSE(bundle->media.clips[0].externalOffsetS);
    EXPECT_EQ(bundle->transcript.sources().size(), 1u);

    d.sync->clips[0].isSynced = true;
    bundle = buildReviewBundle(d);
    ASSERT_TRUE(bundle);
    EXPECT_EQ(bundle->media.clips[0].externalOffsetS, 12.5);
    ASSERT_EQ(bundle->transcript.sources().size(), 2u);
    EXPECT_EQ(bundle->transcript.sources()[1].kind, SourceKind::externalAudio);
    EXPECT_EQ(bundle->media.externalSourceID, bundle->transcript.sources()[1].id);
    EXPECT_EQ(bundle->media.externalURL, QUrl::fromLocalFile("/footage/lav.mov"));
}

TEST(ReviewBundleBuild, LanguageTallyTiesGoToTheFirstText)
{
    auto sv = clipOf("a", 30), en = clipOf("b", 30), de = clipOf("c", 10);
    sv.language = "sv";
    en.language = "en";
    de.language = "de";
    auto d = documents({sv, en, de}, {});
    EXPECT_EQ(buildReviewBundle(d)->language, "en");
    d.transcript.clips = {de, en, sv};
    EXPECT_EQ(buildReviewBundle(d)->language, "en");
}

TEST(ParagraphSlices, BreakAtFlipsAndAtOneHundredThirtyWords)
{
    std::vector<TranscriptWord> words;
    for (int i = 0; i < 70; ++i) {
        TranscriptWord w{.text = "word", .start = i * 0.5, .end = i * 0.5 + 0.3};
        if (i < 30)
            w.cutReason = CutReason::retake;
        words.push_back(w);
    }
    auto slices = paragraphSlices(words);
    ASSERT_EQ(slices.size(), 2u);
    EXPECT_EQ(slices[0].size(), 30u);

    words.clear();
    for (int i = 0; i < 140; ++i)
        words.push_back(TranscriptWord{.text = "word", .start = i * 0.4, .end = i * 0.4 + 0.3});
    slices = paragraphSlices(words);
    ASSERT_EQ(slices.size(), 2u);
    EXPECT_EQ(slices[0].size(), 130u);
    EXPECT_EQ(slices[1].size(), 10u);
}

TEST(ParagraphSlices, SentenceEndsCloseFromTwentyFiveWordsAndLongGapsFromNinety)
{
    std::vector<TranscriptWord> words;
    for (int i = 0; i < 60; ++i)
        words.push_back(TranscriptWord{.text = i == 9 || i == 29 ? "end." : "word", .start = i * 0.4, .end = i * 0.4 + 0.3});
    auto slices = paragraphSlices(words);
    ASSERT_EQ(slices.size(), 2u);
    EXPECT_EQ(slices[0].size(), 30u); // the end at word 10 is too early

    words.clear();
    for (int i = 0; i < 120; ++i) {
        const double start = i * 0.4 + (i > 40 ? 1.0 : 0) + (i > 95 ? 1.0 : 0);
        words.push_back(TranscriptWord{.text = "word", .start = start, .end = start + 0.3});
    }
    slices = paragraphSlices(words);
    ASSERT_EQ(slices.size(), 2u);
    EXPECT_EQ(slices[0].size(), 96u); // the gap after word 40 does not count yet
}

TEST(ReviewBundleFolder, SchemaRulesAndEditsOfAnotherJob)
{
    test::TempDir dir;
    auto d = documents({clipOf("a", 4)}, {probeOf("a", 5)});
    d.probe.schemaVersion = 1;
    StageCoder::write(d.probe, dir.file("c0_probe.json"));
    StageCoder::write(d.transcript, dir.file("c1_transcript.json"));
    EXPECT_FALSE(reviewBundle(dir.path()));

    d.probe.schemaVersion = 2;
    StageCoder::write(d.probe, dir.file("c0_probe.json"));
    test::writeBytes(dir.file("c3_cuts.json"), "{ broken");
    const ReviewEdits edits{.jobId = "job-1",
                            .cuts = {{"a", 0, 2, CutReason::manual}},
                            .restores = {{"a", 3, 4, std::nullopt}},
                            .wordlessCuts = std::vector<WordlessCut>{{"a", 1, 2}}};
    StageCoder::write(edits, dir.file("review_edits.json"));
    StageCoder::write(ArtifactsJob{.schema = 1, .jobId = "job-2", .completedAt = json::nowWholeSeconds()},
                      dir.file("artifacts_job.json"));

    testing::internal::CaptureStdout();
    const auto bundle = reviewBundle(dir.path());
    const std::string out = testing::internal::GetCapturedStdout();
    ASSERT_TRUE(bundle);
    EXPECT_EQ(out, "review_edits.json was written against job job-1 but the artifacts are from job-2 — dropping "
                   "1 cut(s), 1 restore(s) and 0 boundary override(s)\n");
    EXPECT_TRUE(bundle->edits.cuts.empty());
    // An unreadable cleanup document leaves the default seam allowance.
    EXPECT_EQ(bundle->transcript.words().size(), 4u);

    StageCoder::write(ArtifactsJob{.schema = 1, .jobId = "job-1", .completedAt = json::nowWholeSeconds()},
                      dir.file("artifacts_job.json"));
    const auto same = loadReviewEdits(dir.path());
    ASSERT_TRUE(same);
    EXPECT_EQ(same->cuts.size(), 1u);
}

} // namespace
