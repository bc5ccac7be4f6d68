#include "model/ProjectWorkspace.h"
#include "review/Cutlist.h"
#include "review/ReviewEdits.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <QFileInfo>

using namespace velum;

namespace {

// One clip of `count` positions, kept unless a reason is given.
Transcript clipTranscript(const QString &clip, int count, std::map<int, CutReason> reasons = {})
{
    const QUuid source = QUuid::createUuid();
    std::vector<TranscriptWord> words;
    for (int i = 0; i < count; ++i) {
        const double at = i;
        TranscriptWord w{.id = QUuid::createUuid(), .text = "w", .start = at, .end = at + 0.5, .localStart = at,
                         .localEnd = at + 0.5, .rawStart = at, .rawEnd = at + 0.5, .sourceID = source, .clipId = clip,
                         .clipIndex = i, .wordIndex = i};
        if (const auto r = reasons.find(i); r != reasons.end())
            w.cutReason = r->second;
        words.push_back(w);
    }
    return Transcript({SourceFile{source, clip, 0, std::nullopt, SourceKind::video}},
                      {TranscriptParagraph{QUuid::createUuid(), source, words}});
}

QHash<QUuid, std::optional<CutReason>> baselineOf(const Transcript &t)
{
    QHash<QUuid, std::optional<CutReason>> baseline;
    for (const auto &w : t.words())
        baseline.insert(w.id, w.cutReason);
    return baseline;
}

TEST(ReviewEditsApply, RestoresFirstThenCutsAndNotesMissingPositions)
{
    Transcript t = clipTranscript("c", 12, {{1, CutReason::filler}, {4, CutReason::silence}});
    const ReviewEdits edits{.cuts = {{"c", 10, 13, std::nullopt}, {"c", 4, 5, CutReason::retake}, {"gone", 0, 2, CutReason::manual}},
                            .restores = {{"c", 1, 2, std::nullopt}, {"c", 4, 5, std::nullopt}}};
    const auto notes = edits.apply(t);
    EXPECT_EQ(notes, (std::vector<QString>{
                         "review_edits: 1 word(s) of c[10..<13] are not in this build — skipped",
                         "review_edits: 2 word(s) of gone[0..<2] are not in this build — skipped",
                     }));
    EXPECT_FALSE(t.words()[1].cutReason);
    EXPECT_EQ(t.words()[4].cutReason, CutReason::retake); // named in both: cut wins
    EXPECT_EQ(t.words()[10].cutReason, CutReason::manual);
    EXPECT_EQ(t.words()[11].cutReason, CutReason::manual);
    EXPECT_FALSE(t.words()[9].cutReason);

    const ReviewEdits emptySpan{.cuts = {{"c", 3, 3, std::nullopt}}};
    EXPECT_TRUE(emptySpan.apply(t).empty());
    const ReviewEdits reversed{.cuts = {{"c", 5, 3, std::nullopt}}};
    EXPECT_THROW(reversed.apply(t), BrokenDocumentError);
}

TEST(ReviewEditsApply, HugeSpansAreCountedWithoutWalkingThem)
{
    Transcript t = clipTranscript("c", 3);
    const auto notes = ReviewEdits{.cuts = {{"c", -5, 2147483647, CutReason::filler}}}.apply(t);
    ASSERT_EQ(notes.size(), 1u);
    EXPECT_EQ(notes[0], "review_edits: 2147483649 word(s) of c[-5..<2147483647] are not in this build — skipped");
    EXPECT_EQ(t.words()[2].cutReason, CutReason::filler);
}

TEST(ReviewEditsDiff, RunsMergeIntoSpansAndBaselineMatchesVanish)
{
    Transcript t = clipTranscript("c", 10, {{2, CutReason::filler}});
    const auto baseline = baselineOf(t);
    const auto id = [&](int i) { return t.words()[static_cast<std::size_t>(i)].id; };
    t.setCutReason(CutReason::manual, {id(5), id(6)});
    t.setCutReason(CutReason::filler, {id(7)});
    t.setCutReason(std::nullopt, {id(2)});

    using O = ReviewEdits::BoundaryOverride;
    const auto edits = ReviewEdits::diff(t, baseline,
                                         {O{"c", 4, O::Edge::out, 1.2}, O{"b", 9, O::Edge::in, 0.5},
                                          O{"c", 4, O::Edge::in, 0.9}},
                                         std::nullopt, {{"c", 8.6, 8.9}, {"c", 3.6, 3.9}}, QStringLiteral("job-7"));
    EXPECT_EQ(edits.cuts, (std::vector<ReviewEdits::Span>{{"c", 5, 7, CutReason::manual}, {"c", 7, 8, CutReason::filler}}));
    EXPECT_EQ(edits.restores, (std::vector<ReviewEdits::Span>{{"c", 2, 3, std::nullopt}}));
    ASSERT_EQ(edits.boundaryOverrides.size(), 3u);
    EXPECT_EQ(edits.boundaryOverrides[0].clip, "b");
    EXPECT_EQ(edits.boundaryOverrides[1].edge, O::Edge::in);
    EXPECT_EQ(edits.boundaryOverrides[2].edge, O::Edge::out);
    ASSERT_TRUE(edits.wordlessCuts);
    EXPECT_DOUBLE_EQ(edits.wordlessCuts->front().startS, 3.6);
    EXPECT_EQ(edits.jobId, "job-7");
    EXPECT_FALSE(edits.clipOrder);

    // Cutting the restored filler again brings the word back to its
    // baseline, and the restore disappears.
    t.setCutReason(CutReason::filler, {id(2)});
    EXPECT_TRUE(ReviewEdits::diff(t, baseline, {}, std::nullopt, {}, std::nullopt).restores.empty());
}

TEST(ReviewEditsDiff, AppliedBackItGivesTheSameTranscript)
{
    Transcript built = clipTranscript("c", 20, {{3, CutReason::silence}, {4, CutReason::silence}});
    Transcript edited = built;
    const auto baseline = baselineOf(built);
    edited.setCutReason(CutReason::manual, {edited.words()[10].id, edited.words()[11].id});
    edited.setCutReason(std::nullopt, {edited.words()[3].id});
    const auto edits = ReviewEdits::diff(edited, baseline, {}, std::nullopt, {}, std::nullopt);
    const auto back = StageCoder::decode<ReviewEdits>(StageCoder::encode(edits));
    EXPECT_EQ(back, edits);
    EXPECT_TRUE(back.apply(built).empty());
    for (std::size_t i = 0; i < built.words().size(); ++i)
        EXPECT_EQ(built.words()[i].cutReason, edited.words()[i].cutReason) << i;
}

TEST(ReviewEditsStore, EmptyEditsDeleteTheFileAndOthersAreWrittenWhole)
{
    test::TempDir dir;
    const ReviewEditsStore store{dir.file("project/review_edits.json")};
    const ReviewEdits edits{.jobId = "j", .cuts = {{"c", 1, 2, CutReason::manual}}};
    store.save(edits);
    EXPECT_EQ(StageCoder::read<ReviewEdits>(*store.path), edits);
    EXPECT_TRUE(test::readBytes(*store.path).contains("\"job_id\" : \"j\""));

    store.save(ReviewEdits{.clipOrder = std::vector<QString>{}, .wordlessCuts = std::vector<WordlessCut>{}});
    EXPECT_FALSE(QFileInfo::exists(*store.path));
    ReviewEditsStore{}.save(edits); // no location: nothing happens
    store.save(ReviewEdits{}); // deleting a missing file is no error

    // A folder where the file should be: the save is swallowed.
    QDir().mkpath(*store.path);
    store.save(edits);
    EXPECT_TRUE(QFileInfo(*store.path).isDir());
}

TEST(ReviewEditsLoad, SchemaAndJobRules)
{
    test::TempDir dir;
    const QString file = dir.file(artifact::reviewEdits);
    StageCoder::write(ReviewEdits{.schema = 2, .cuts = {{"c", 0, 1, std::nullopt}}}, file);
    EXPECT_FALSE(ProcessPipeline::loadReviewEdits(dir.path()));

    // No job in the document: used whatever the stamp says.
    StageCoder::write(ReviewEdits{.cuts = {{"c", 0, 1, std::nullopt}}}, file);
    StageCoder::write(ArtifactsJob{.jobId = "other", .completedAt = json::nowWholeSeconds()},
                      dir.file(artifact::artifactsJob));
    EXPECT_TRUE(ProcessPipeline::loadReviewEdits(dir.path()));

    // A stamp of another schema cannot be compared: the edits stand.
    StageCoder::write(ReviewEdits{.jobId = "mine", .cuts = {{"c", 0, 1, std::nullopt}}}, file);
    StageCoder::write(ArtifactsJob{.schema = 3, .jobId = "other", .completedAt = json::nowWholeSeconds()},
                      dir.file(artifact::artifactsJob));
    EXPECT_TRUE(ProcessPipeline::loadReviewEdits(dir.path()));

    test::writeBytes(file, R"({"schema": 1, "cuts": [], "restores": []})"); // overrides missing
    EXPECT_FALSE(ProcessPipeline::loadReviewEdits(dir.path()));
}

} // namespace
