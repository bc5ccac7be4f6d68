#include "review/CutBoundary.h"
#include "review/Cutlist.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace velum;
using CutBoundary::Span;
using Edge = ReviewEdits::BoundaryOverride::Edge;

namespace {

const QUuid sourceA = QUuid::createUuid();
const QUuid sourceB = QUuid::createUuid();

// A word of clip "a" (or of `source`'s clip) at clip seconds
// localStart...localEnd, on a timeline where the clip begins at `base`.
TranscriptWord word(int clipIndex, double localStart, double localEnd, std::optional<CutReason> reason = std::nullopt,
                    double base = 0, const QUuid &source = sourceA)
{
    TranscriptWord w;
    w.id = QUuid::createUuid();
    w.text = QStringLiteral("w%1").arg(clipIndex);
    w.start = base + localStart;
    w.end = base + localEnd;
    w.localStart = w.rawStart = localStart;
    w.localEnd = w.rawEnd = localEnd;
    w.sourceID = source;
    w.clipId = source == sourceA ? QStringLiteral("a") : QStringLiteral("b");
    w.clipIndex = clipIndex;
    w.wordIndex = clipIndex;
    w.cutReason = reason;
    return w;
}

TranscriptWord hiddenTrim(int clipIndex, double localStart, double localEnd, double base = 0,
                          const QUuid &source = sourceA)
{
    auto w = word(clipIndex, localStart, localEnd, CutReason::silence, base, source);
    w.text = Cutlist::hiddenTrimGlyph;
    w.wordIndex = std::nullopt;
    w.isHiddenTrim = true;
    return w;
}

// One paragraph per source, in the order the words come.
Transcript transcriptOf(const std::vector<TranscriptWord> &words)
{
    std::vector<TranscriptParagraph> paragraphs;
    for (const auto &w : words) {
        if (paragraphs.empty() || paragraphs.back().sourceID != w.sourceID)
            paragraphs.push_back(TranscriptParagraph{QUuid::createUuid(), w.sourceID, {}});
        paragraphs.back().words.push_back(w);
    }
    return Transcript({SourceFile{.id = sourceA, .filename = "a.mov"}, SourceFile{.id = sourceB, .filename = "b.mov",
                                                                                  .colorIndex = 1}},
                      std::move(paragraphs));
}

void expectRange(const std::optional<ClosedRange> &range, double lower, double upper);

TEST(CutBoundaryPresentation, HiddenTrimAfterRemovedSegmentLeavesNoTrace)
{
    const auto t = transcriptOf({word(0, 0, 1), word(1, 1, 2, CutReason::filler), hiddenTrim(2, 2, 2.4),
                                 word(3, 2.4, 3)});
    ASSERT_EQ(t.segments().size(), 4u);
    const auto shown = CutBoundary::presentationSegments(t.segments());
    ASSERT_EQ(shown.size(), 3u);
    EXPECT_EQ(shown[1].cutReason, CutReason::filler);
    EXPECT_DOUBLE_EQ(shown[1].end, 2);
    EXPECT_DOUBLE_EQ(shown[2].start, 2.4);
    for (const auto &s : shown)
        EXPECT_FALSE(s.isHiddenTrim);
}

TEST(CutBoundaryPresentation, HiddenTrimBetweenKeptStretchesOfOneSourceJoinsThem)
{
    const auto t = transcriptOf({word(0, 0, 1), hiddenTrim(1, 1, 1.2), word(2, 1.2, 2)});
    const auto shown = CutBoundary::presentationSegments(t.segments());
    ASSERT_EQ(shown.size(), 1u);
    EXPECT_DOUBLE_EQ(shown[0].start, 0);
    EXPECT_DOUBLE_EQ(shown[0].end, 2);
    EXPECT_DOUBLE_EQ(shown[0].localEnd, 2);
    EXPECT_TRUE(CutBoundary::removedSpans(t.segments(), 2).empty());
    EXPECT_EQ(CutBoundary::keptSegments(t.segments(), 2), (std::vector<Span>{{0, 2}}));
}

TEST(CutBoundaryPresentation, TrimIsHeldBeforeARemovalThatBeginsInsideIt)
{
    // The trim runs to 1.5 but the filler after it begins at 1.3 (seam air
    // overlaps); a second trim in between does not hide the filler.
    const auto t = transcriptOf({word(0, 0, 1), hiddenTrim(1, 1, 1.5), word(2, 1.3, 2, CutReason::filler),
                                 word(3, 2, 3)});
    auto segments = t.segments();
    segments.insert(segments.begin() + 2, segments[1]); // trim, trim, filler
    const auto shown = CutBoundary::presentationSegments(segments);
    ASSERT_EQ(shown.size(), 3u);
    EXPECT_DOUBLE_EQ(shown[0].end, 1.3);
    EXPECT_DOUBLE_EQ(shown[0].localEnd, 1.3);
    EXPECT_EQ(shown[1].cutReason, CutReason::filler);
}

TEST(CutBoundaryPresentation, TrimOfAnotherSourceOrAtTheStartIsDropped)
{
    const auto t = transcriptOf({hiddenTrim(0, 0, 0.2), word(1, 0.2, 1), hiddenTrim(0, 1, 1.4, 0, sourceB),
                                 word(1, 1.4, 2, std::nullopt, 0, sourceB)});
    const auto shown = CutBoundary::presentationSegments(t.segments());
    ASSERT_EQ(shown.size(), 2u);
    EXPECT_DOUBLE_EQ(shown[0].start, 0.2);
    EXPECT_DOUBLE_EQ(shown[0].end, 1);
    EXPECT_EQ(shown[1].sourceID, sourceB);
    EXPECT_DOUBLE_EQ(shown[1].start, 1.4);
}

TEST(CutBoundarySpans, RemovedSpansCoverEverythingBetweenKeptStretches)
{
    // Kept 0.0005..1, a silence 1..2, kept to 3, nothing at all 3..4, the
    // next clip kept to 5, then nothing to the end of the 6 s timeline.
    const auto t = transcriptOf({word(0, 0.0005, 1), word(1, 1, 2, CutReason::silence), word(2, 2, 3),
                                 word(0, 4, 5, std::nullopt, 0, sourceB)});
    const auto removed = CutBoundary::removedSpans(t.segments(), 6);
    EXPECT_EQ(removed, (std::vector<Span>{{1, 2}, {3, 4}, {5, 6}}));
    EXPECT_EQ(CutBoundary::keptSegments(t.segments(), 6), (std::vector<Span>{{0, 1}, {2, 3}, {4, 5}}));
}

TEST(CutBoundarySpans, NearlyTouchingStretchesMakeNoSliverCuts)
{
    const auto t = transcriptOf({word(0, 0, 1), word(1, 1.0008, 2)});
    EXPECT_TRUE(CutBoundary::removedSpans(t.segments(), 2.0009).empty());
    EXPECT_EQ(CutBoundary::keptSegments(t.segments(), 2.0009), (std::vector<Span>{{0, 2.0009}}));
    // With nothing kept, the whole timeline is one cut and nothing is kept.
    const auto cut = transcriptOf({word(0, 0, 1, CutReason::retake)});
    EXPECT_EQ(CutBoundary::removedSpans(cut.segments(), 1), (std::vector<Span>{{0, 1}}));
    EXPECT_TRUE(CutBoundary::keptSegments(cut.segments(), 1).empty());
    EXPECT_TRUE(CutBoundary::removedSpans({}, 0).empty());
}

TEST(CutBoundaryFoldedEnd, FoldsTrimsOfTheSameSourceAndStopsAtARemoval)
{
    const std::vector<TranscriptWord> words{word(0, 0, 1), hiddenTrim(1, 1, 1.3), hiddenTrim(2, 1.3, 1.6),
                                            word(3, 1.5, 2, CutReason::filler), word(4, 2, 3),
                                            hiddenTrim(5, 3, 3.2), word(0, 3.2, 4, std::nullopt, 0, sourceB)};
    EXPECT_DOUBLE_EQ(CutBoundary::foldedEnd(0, words), 1.5);
    EXPECT_DOUBLE_EQ(CutBoundary::foldedEnd(4, words), 3.2); // the next source's word does not hold it
    EXPECT_DOUBLE_EQ(CutBoundary::foldedEnd(6, words), 4);
    EXPECT_EQ(CutBoundary::foldedEnd(-1, words), 0);
    EXPECT_EQ(CutBoundary::foldedEnd(7, words), 0);
    EXPECT_EQ(CutBoundary::foldedEnd(std::numeric_limits<int>::min(), words), 0);
}

TEST(CutBoundaryAnchors, ARemovedSpanIsTiedToTheKeptWordsAtItsEdges)
{
    const std::vector<TranscriptWord> words{word(0, 0, 1), word(1, 1, 2, CutReason::filler), word(2, 2, 3)};
    const auto a = CutBoundary::anchors({1, 2}, words);
    ASSERT_TRUE(a.incoming);
    ASSERT_TRUE(a.outgoing);
    EXPECT_EQ(*a.incoming, (CutBoundary::Anchor{words[0].id, "a", 0, Edge::out}));
    EXPECT_EQ(*a.outgoing, (CutBoundary::Anchor{words[2].id, "a", 2, Edge::in}));

    // A span that stops short of a word edge cannot be resized on that side.
    const auto loose = CutBoundary::anchors({1.0005, 1.9}, words);
    EXPECT_TRUE(loose.incoming);
    EXPECT_FALSE(loose.outgoing);
}

TEST(CutBoundaryAnchors, HiddenTrimsCountToTheWordBeforeTheSpan)
{
    const std::vector<TranscriptWord> words{word(0, 0, 1), hiddenTrim(1, 1, 1.25),
                                            word(2, 1.25, 2, CutReason::silence), word(3, 2, 3)};
    const auto a = CutBoundary::anchors({1.25, 2}, words);
    ASSERT_TRUE(a.incoming);
    EXPECT_EQ(a.incoming->wordID, words[0].id);
    // Measured from the word's own end, the span would not meet it.
    EXPECT_FALSE(CutBoundary::anchors({1.25, 2}, {words[0], words[3]}).incoming);
}

TEST(CutBoundaryAnchors, TokensAndTiesFollowTheRules)
{
    auto token = word(-1, 1, 1.5);
    token.clipIndex = -1;
    // Two kept words end at 1; the earlier one wins the tie.
    const std::vector<TranscriptWord> words{word(0, 0.5, 1), word(1, 0.6, 1), token, word(2, 1.5, 2)};
    const auto a = CutBoundary::anchors({1, 1.5}, words);
    ASSERT_TRUE(a.incoming);
    EXPECT_EQ(a.incoming->wordID, words[0].id);
    ASSERT_TRUE(a.outgoing);
    EXPECT_EQ(a.outgoing->wordID, words[3].id); // the token is never an anchor
    EXPECT_EQ(CutBoundary::anchors({0, 5}, {}), CutBoundary::Anchors{});
}

TEST(CutBoundaryAnchors, SegmentAnchorsNameTheFirstAndLastKeptWords)
{
    const std::vector<TranscriptWord> words{word(0, 0, 1, CutReason::filler), word(1, 1, 2), word(2, 2, 3),
                                            hiddenTrim(3, 3, 3.2), word(4, 3.2, 4, CutReason::silence)};
    const auto s = CutBoundary::segmentAnchors({1, 3.2}, words);
    ASSERT_TRUE(s.leading);
    ASSERT_TRUE(s.trailing);
    EXPECT_EQ(*s.leading, (CutBoundary::Anchor{words[1].id, "a", 1, Edge::in}));
    EXPECT_EQ(*s.trailing, (CutBoundary::Anchor{words[2].id, "a", 2, Edge::out}));
    // A stretch ending short of the trailing word's folded end has no
    // trailing anchor.
    const auto shorter = CutBoundary::segmentAnchors({1, 2.5}, words);
    EXPECT_TRUE(shorter.leading);
    EXPECT_FALSE(shorter.trailing);
    // Touching a word by less than the tolerance is not overlapping it.
    EXPECT_EQ(CutBoundary::segmentAnchors({2.9995, 3.2}, words), CutBoundary::SegmentAnchors{});
}

TEST(CutBoundaryLegalRange, OutEdgeReclaimsRemovedWordsUpToTheNextKeptWord)
{
    const std::vector<TranscriptWord> words{word(0, 0, 1), word(1, 1.1, 1.6, CutReason::filler),
                                            word(2, 1.6, 2.4, CutReason::silence), word(3, 2.5, 3)};
    expectRange(CutBoundary::legalRange(Edge::out, 0, words), 0.01, 2.5);
    expectRange(CutBoundary::legalRange(Edge::in, 3, words), 1.0, 2.99);
}

TEST(CutBoundaryLegalRange, TheLastWordMayGoToTheClipsEndOrAnywhereWithoutOne)
{
    const std::vector<TranscriptWord> words{word(0, 0, 1), word(1, 10, 11)};
    expectRange(CutBoundary::legalRange(Edge::out, 1, words, 12.0), 10.01, 12.0);
    expectRange(CutBoundary::legalRange(Edge::out, 1, words), 10.01, std::numeric_limits<double>::max());
    // A duration shorter than the word never pulls the limit below its end.
    expectRange(CutBoundary::legalRange(Edge::out, 1, words, 5.0), 10.01, 11);
}

TEST(CutBoundaryLegalRange, InEdgeOfTheFirstWordOrAfterOnlyRemovalsGoesToZero)
{
    const std::vector<TranscriptWord> words{word(0, 0.5, 1, CutReason::silence), word(1, 1, 2)};
    expectRange(CutBoundary::legalRange(Edge::in, 1, words), 0, 1.99);
    expectRange(CutBoundary::legalRange(Edge::in, 0, words), 0, 0.99);
}

TEST(CutBoundaryLegalRange, AShortWordBetweenKeptNeighboursKeepsTenMilliseconds)
{
    const std::vector<TranscriptWord> words{word(0, 0, 1), word(1, 1, 1.015), word(2, 1.015, 2)};
    expectRange(CutBoundary::legalRange(Edge::out, 1, words), 1.01, 1.015);
    expectRange(CutBoundary::legalRange(Edge::in, 1, words), 1, 1.005);

    const std::vector<TranscriptWord> tiny{word(0, 0, 1), word(1, 1, 1.005), word(2, 1.005, 2)};
    EXPECT_FALSE(CutBoundary::legalRange(Edge::out, 1, tiny));
    EXPECT_FALSE(CutBoundary::legalRange(Edge::in, 1, tiny));
}

TEST(CutBoundaryLegalRange, HostileInputsGiveNoRange)
{
    const std::vector<TranscriptWord> words{word(0, 0, 1), word(1, std::nan(""), 2)};
    EXPECT_FALSE(CutBoundary::legalRange(Edge::out, -1, words));
    EXPECT_FALSE(CutBoundary::legalRange(Edge::in, 2, words));
    EXPECT_FALSE(CutBoundary::legalRange(Edge::out, 0, {}));
    EXPECT_FALSE(CutBoundary::legalRange(Edge::out, 1, words));
}

// --- Stored edge moves -------------------------------------------------------

ReviewEdits::BoundaryOverride move(int index, Edge edge, double seconds, const QString &clip = "a")
{
    return ReviewEdits::BoundaryOverride{clip, index, edge, seconds};
}

void expectRange(const std::optional<ClosedRange> &range, double lower, double upper)
{
    ASSERT_TRUE(range);
    EXPECT_DOUBLE_EQ(range->lower, lower);
    EXPECT_DOUBLE_EQ(range->upper, upper);
}

WordBounds boundsOf(const TranscriptWord &w) { return {w.start, w.end, w.localStart, w.localEnd}; }

TEST(BoundaryOverrides, MovesEdgesOnTheClipsTimelineAndRemembersTheOldBounds)
{
    std::vector<TranscriptWord> words{word(0, 0, 1, {}, 20), word(1, 1, 1.4, CutReason::silence, 20),
                                      word(2, 1.4, 2, {}, 20)};
    const auto before = words;
    const auto result = ReviewEdits::applyBoundaryOverrides(
        {move(0, Edge::out, 1.2), move(2, Edge::in, 1.3, "b")}, words, "a", 20);
    ASSERT_EQ(result.applied.size(), 1u);
    EXPECT_TRUE(result.notes.empty());
    EXPECT_DOUBLE_EQ(words[0].localEnd, 1.2);
    EXPECT_DOUBLE_EQ(words[0].end, 21.2);
    EXPECT_DOUBLE_EQ(words[0].localStart, 0);
    EXPECT_EQ(words[2], before[2]); // another clip's override is not for these words
    EXPECT_EQ(result.pristine.value(words[0].id), boundsOf(before[0]));
    EXPECT_EQ(result.pristine.size(), 1);
}

TEST(BoundaryOverrides, InIsAppliedBeforeOutAndTheSecondEdgeReplacesTheStoredBounds)
{
    std::vector<TranscriptWord> words{word(0, 0, 1), word(1, 1, 1.5), word(2, 1.5, 2)};
    const auto original = boundsOf(words[1]);
    // Given out first; sorted, "in" goes first, and the out edge's range then
    // starts at the moved in edge.
    auto result = ReviewEdits::applyBoundaryOverrides({move(1, Edge::out, 1.45), move(1, Edge::in, 1.2)}, words,
                                                      "a", 0);
    ASSERT_EQ(result.applied.size(), 2u);
    EXPECT_EQ(result.applied[0].edge, Edge::in);
    EXPECT_DOUBLE_EQ(words[1].localStart, 1.2);
    EXPECT_DOUBLE_EQ(words[1].localEnd, 1.45);
    const auto stored = result.pristine.value(words[1].id);
    EXPECT_DOUBLE_EQ(stored.localStart, 1.2);
    EXPECT_DOUBLE_EQ(stored.localEnd, original.localEnd);

    std::vector<TranscriptWord> again{word(0, 0, 1), word(1, 1, 1.5), word(2, 1.5, 2)};
    result = ReviewEdits::applyBoundaryOverrides({move(1, Edge::out, 1.3), move(1, Edge::in, 1.4)}, again, "a", 0);
    ASSERT_EQ(result.notes.size(), 1u);
    EXPECT_EQ(result.notes[0], "review_edits: boundary a[1].out dropped — 1.300 is outside [1.410, 1.500]");
    EXPECT_DOUBLE_EQ(again[1].localEnd, 1.5);
}

TEST(BoundaryOverrides, BadRecordsAreDroppedWithANoteAndTheRestApply)
{
    std::vector<TranscriptWord> words;
    for (int i = 0; i < 80; ++i)
        words.push_back(word(i, i, i + 0.5));
    words[40] = word(40, 40, 40.005);
    words[41] = word(41, 40.005, 41.5);
    const auto before = words;
    const auto result = ReviewEdits::applyBoundaryOverrides(
        {move(3, Edge::in, 2.9), move(3, Edge::in, 2.8), move(100, Edge::out, 1), move(-1, Edge::in, 0),
         move(5, Edge::out, std::nan("")), move(6, Edge::out, std::numeric_limits<double>::infinity()),
         move(40, Edge::out, 40.004), move(7, Edge::in, 6)},
        words, "a", 0);
    EXPECT_EQ(result.notes, (std::vector<QString>{
                                "review_edits: boundary a[-1].in dropped — no word at that index in this build",
                                "review_edits: boundary a[3].in dropped — duplicate record",
                                "review_edits: boundary a[5].out dropped — nan is not a time",
                                "review_edits: boundary a[6].out dropped — inf is not a time",
                                "review_edits: boundary a[7].in dropped — 6.000 is outside [6.500, 7.490]",
                                "review_edits: boundary a[40].out dropped — the word is too short to have two edges",
                                "review_edits: boundary a[100].out dropped — no word at that index in this build",
                            }));
    ASSERT_EQ(result.applied, (std::vector<ReviewEdits::BoundaryOverride>{move(3, Edge::in, 2.9)}));
    EXPECT_DOUBLE_EQ(words[3].localStart, 2.9);
    words[3] = before[3];
    EXPECT_EQ(words, before);
}

TEST(BoundaryOverrides, TheClipsLengthDoesNotLimitAStoredMove)
{
    std::vector<TranscriptWord> words{word(0, 0, 1)};
    const auto result = ReviewEdits::applyBoundaryOverrides({move(0, Edge::out, 1e6)}, words, "a", 3);
    EXPECT_TRUE(result.notes.empty());
    EXPECT_DOUBLE_EQ(words[0].end, 1e6 + 3);
}

} // namespace
