#include "review/Transcript.h"

#include <gtest/gtest.h>

using namespace velum;

namespace {

struct Builder {
    QUuid source = QUuid::createUuid();
    QString clip = "clip-a";
    int position = 0;

    TranscriptWord word(double start, double end, std::optional<CutReason> reason = std::nullopt)
    {
        return TranscriptWord{.id = QUuid::createUuid(), .text = "w", .start = start, .end = end,
                              .localStart = start, .localEnd = end, .rawStart = start, .rawEnd = end,
                              .sourceID = source, .clipId = clip, .clipIndex = position++,
                              .wordIndex = position - 1, .cutReason = reason};
    }
    TranscriptWord hiddenTrim(double start, double end)
    {
        auto w = word(start, end, CutReason::silence);
        w.text = "···";
        w.wordIndex.reset();
        w.isHiddenTrim = true;
        return w;
    }
    SourceFile sourceFile(int colorIndex = 0) const
    {
        return SourceFile{source, "A.mov", colorIndex, QUrl::fromLocalFile("/a.mov"), SourceKind::video};
    }
};

TEST(KeptRangesMaps, EdgesBelongToTheNextSpan)
{
    const KeptRanges ranges{{{0, 2, 0}, {5, 6, 2}}};
    EXPECT_DOUBLE_EQ(ranges.keptTime(1), 1);
    EXPECT_DOUBLE_EQ(ranges.keptTime(2), 2);
    EXPECT_DOUBLE_EQ(ranges.keptTime(3.5), 2); // inside the cut: where playback resumes
    EXPECT_DOUBLE_EQ(ranges.keptTime(5.5), 2.5);
    EXPECT_DOUBLE_EQ(ranges.keptTime(9), 3);
    EXPECT_DOUBLE_EQ(ranges.timelineTime(1), 1);
    EXPECT_DOUBLE_EQ(ranges.timelineTime(2), 5); // a span's end is the next span's start
    EXPECT_DOUBLE_EQ(ranges.timelineTime(2.5), 5.5);
    EXPECT_DOUBLE_EQ(ranges.timelineTime(3), 6);
    EXPECT_DOUBLE_EQ(ranges.timelineTime(40), 6);
    EXPECT_DOUBLE_EQ(KeptRanges{}.keptTime(3), 0);
    EXPECT_DOUBLE_EQ(KeptRanges{}.timelineTime(3), 0);
}

TEST(KeptRangesMerge, SmallCutsMergeUnlessADecisionLiesBetween)
{
    const QUuid s = QUuid::createUuid();
    auto seg = [&](double a, double b, std::optional<CutReason> r) {
        return TranscriptSegment{a, b, a, b, s, r, false, true};
    };
    // A 0.1 s silence is ignored; a 0.1 s manual cut is not; a 0.5 s one is not.
    auto ranges = KeptRanges::fromSegments({seg(0, 1, std::nullopt), seg(1, 1.1, CutReason::silence),
                                            seg(1.1, 2, std::nullopt), seg(2, 2.1, CutReason::manual),
                                            seg(2.1, 3, std::nullopt), seg(3, 3.5, CutReason::filler),
                                            seg(3.5, 4, std::nullopt)},
                                           0.12);
    ASSERT_EQ(ranges.spans.size(), 3u);
    EXPECT_EQ(ranges.spans[0], (KeptRanges::Span{0, 2, 0}));
    EXPECT_EQ(ranges.spans[1], (KeptRanges::Span{2.1, 3, 2}));
    EXPECT_DOUBLE_EQ(ranges.spans[2].keptStart, 2.9);
}

TEST(TranscriptRebuild, SegmentsCountsAndDisplayLists)
{
    Builder a;
    Builder b;
    b.clip = "clip-b";
    const std::vector<TranscriptParagraph> paragraphs{
        {QUuid::createUuid(), a.source, {a.word(0, 1), a.word(1, 2, CutReason::filler), a.hiddenTrim(2, 2.05), a.word(2.05, 3)}},
        {QUuid::createUuid(), a.source, {a.hiddenTrim(3, 3.1)}},
        {QUuid::createUuid(), b.source, {b.word(10, 11, CutReason::retake), b.word(11, 12, CutReason::retake)}},
        {QUuid::createUuid(), b.source, {b.word(12, 13)}},
    };
    const Transcript t({a.sourceFile(0), b.sourceFile(1)}, paragraphs);
    EXPECT_EQ(t.words().size(), 8u);
    EXPECT_EQ(t.revision(), 1);
    EXPECT_DOUBLE_EQ(t.duration(), 13);
    // kept | filler | trim | kept | trim | retake | kept
    ASSERT_EQ(t.segments().size(), 7u);
    EXPECT_TRUE(t.segments()[2].isHiddenTrim);
    EXPECT_FALSE(t.segments()[2].wordBacked);
    EXPECT_DOUBLE_EQ(t.segments()[5].end, 12);
    EXPECT_EQ(t.cutCount(), 2);
    EXPECT_DOUBLE_EQ(t.keptDuration(), 1 + 0.95 + 1);
    EXPECT_EQ(t.paragraphsShowingCuts(), (std::vector<int>{0, 2, 3}));
    EXPECT_EQ(t.paragraphsHidingCuts(), (std::vector<int>{0, 3}));
    EXPECT_EQ(t.location(paragraphs[3].words[0].id), (Transcript::Location{3, 0, 7}));
    EXPECT_EQ(t.color(b.source), SourceFile::color(1));
    EXPECT_EQ(t.word(paragraphs[2].words[1].id)->start, 11);
    EXPECT_EQ(t.source(b.source)->colorIndex, 1);
    EXPECT_FALSE(t.word(QUuid::createUuid()));
}

TEST(TranscriptRebuild, KeptWordsOfTwoClipsAreTwoSegments)
{
    Builder a, b;
    const Transcript t({a.sourceFile(), b.sourceFile(1)},
                       {{QUuid::createUuid(), a.source, {a.word(0, 1)}}, {QUuid::createUuid(), b.source, {b.word(1, 2)}}});
    EXPECT_EQ(t.segments().size(), 2u);
    // The two kept stretches touch, so they play as one range.
    EXPECT_EQ(t.keptRanges().spans.size(), 1u);
}

TEST(TranscriptMutators, RebuildOnlyOnChange)
{
    Builder a;
    const auto w0 = a.word(0, 1), w1 = a.word(1, 2);
    Transcript t({a.sourceFile()}, {{QUuid::createUuid(), a.source, {w0, w1}}});
    EXPECT_FALSE(t.setCutReason(std::nullopt, {w0.id}));
    EXPECT_EQ(t.revision(), 1);
    EXPECT_TRUE(t.setCutReason(CutReason::manual, {w0.id, QUuid::createUuid()}));
    EXPECT_EQ(t.revision(), 2);
    EXPECT_EQ(t.words()[0].cutReason, CutReason::manual);
    EXPECT_EQ(t.cutCount(), 1);

    EXPECT_FALSE(t.setBounds({1, 2, 1, 2}, w1.id));
    EXPECT_FALSE(t.setBounds({1, 2.5, 1, 2.5}, QUuid::createUuid()));
    EXPECT_TRUE(t.setBounds({1.1, 2.5, 1.1, 2.5}, w1.id));
    EXPECT_DOUBLE_EQ(t.duration(), 2.5);
    EXPECT_EQ(t.revision(), 3);
}

TEST(TranscriptMutators, SetWordsKeepsParagraphsOfTheClip)
{
    Builder a, b;
    b.clip = "clip-b";
    const auto a0 = a.word(0, 1), a1 = a.word(1, 2), a2 = a.word(2, 3);
    const auto b0 = b.word(5, 6);
    Transcript t({a.sourceFile(), b.sourceFile(1)}, {{QUuid::createUuid(), a.source, {a0, a1}},
                                                     {QUuid::createUuid(), a.source, {a2}},
                                                     {QUuid::createUuid(), b.source, {b0}}});
    auto token = a.word(1.5, 1.6, CutReason::manual);
    auto orphan = a.word(-1, -0.5);
    // The orphan before any known word is dropped; the token follows a1;
    // a2 is gone so its paragraph empties.
    t.setWords({orphan, a0, a1, token}, "clip-a");
    ASSERT_EQ(t.paragraphs().size(), 3u);
    EXPECT_EQ(t.paragraphs()[0].words.size(), 3u);
    EXPECT_EQ(t.paragraphs()[0].words[2].id, token.id);
    EXPECT_TRUE(t.paragraphs()[1].words.empty());
    EXPECT_EQ(t.paragraphs()[2].words[0].id, b0.id);
    EXPECT_EQ(t.words().size(), 4u);
}

TEST(TranscriptLookup, ParagraphCoveringTime)
{
    Builder a;
    Transcript t({a.sourceFile()}, {{QUuid::createUuid(), a.source, {a.word(0, 1), a.word(1, 2)}},
                                    {QUuid::createUuid(), a.source, {a.word(3, 4)}},
                                    {QUuid::createUuid(), a.source, {a.word(6, 8)}}});
    const std::vector<int> all{0, 1, 2};
    EXPECT_EQ(t.paragraph(all, 1.5), t.paragraphs()[0].id);
    EXPECT_EQ(t.paragraph(all, 3), t.paragraphs()[1].id);
    EXPECT_EQ(t.paragraph(all, 8), t.paragraphs()[2].id);
    EXPECT_FALSE(t.paragraph(all, 2.5));
    EXPECT_FALSE(t.paragraph(all, -1));
    EXPECT_FALSE(t.paragraph(all, 9));
    EXPECT_EQ(t.paragraph({0, 2}, 7), t.paragraphs()[2].id);
    EXPECT_FALSE(t.paragraph({}, 1));
}

} // namespace
