#include "review/WordlessCuts.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

using namespace velum;
using namespace velum::WordlessCuts;

namespace {

const QUuid source = QUuid::createUuid();

// A word delivered at rawStart...rawEnd in clip "a" and playing for
// localStart...localEnd (seams widen kept words), on a timeline where the clip
// begins at `base`.
TranscriptWord word(int index, double rawStart, double rawEnd, std::optional<CutReason> reason = std::nullopt,
                    double base = 0, double seam = 0)
{
    TranscriptWord w;
    w.id = QUuid::createUuid();
    w.text = QStringLiteral("w%1").arg(index);
    w.rawStart = rawStart;
    w.rawEnd = rawEnd;
    w.localStart = rawStart - seam;
    w.localEnd = rawEnd + seam;
    w.start = base + w.localStart;
    w.end = base + w.localEnd;
    w.sourceID = source;
    w.clipId = QStringLiteral("a");
    w.clipIndex = index;
    w.wordIndex = index;
    w.cutReason = reason;
    return w;
}

WordlessCut cutOf(double startS, double endS) { return WordlessCut{QStringLiteral("a"), startS, endS}; }

WordBounds boundsOf(const TranscriptWord &w) { return {w.start, w.end, w.localStart, w.localEnd}; }

TEST(WordlessCutsVerdict, AGapOfATenthOfASecondHoldsAir)
{
    // 2.3 - 2.2 is a hair under 0.1 in binary; it is still a tenth.
    const std::vector<TranscriptWord> words{word(0, 1.0, 2.2), word(1, 2.3, 3.0), word(2, 3.09, 4.0)};
    const auto before = airBefore(words[1].id, words);
    ASSERT_TRUE(std::holds_alternative<Air>(before));
    EXPECT_EQ(std::get<Air>(before), (Air{2.2, 2.3, words[0].id}));
    EXPECT_EQ(airAfter(words[0].id, words), (Verdict{Air{2.2, 2.3, words[1].id}}));

    EXPECT_EQ(airAfter(words[1].id, words), Verdict{NoAir{}});
    EXPECT_EQ(airBefore(words[2].id, words), Verdict{NoAir{}});
}

TEST(WordlessCutsVerdict, GapsAreMeasuredOnDeliveredTimesNotOnSeams)
{
    // Seams of 0.1 s make the words touch; the delivered gap is 0.3 s.
    const std::vector<TranscriptWord> words{word(0, 1.0, 1.5, {}, 0, 0.1), word(1, 1.8, 2.5, {}, 0, 0.1)};
    EXPECT_EQ(airBefore(words[1].id, words), (Verdict{Air{1.5, 1.8, words[0].id}}));
}

TEST(WordlessCutsVerdict, EdgesAndCutNeighbours)
{
    const std::vector<TranscriptWord> words{word(0, 0, 1), word(1, 2, 3, CutReason::filler), word(2, 4, 5)};
    EXPECT_EQ(airBefore(words[0].id, words), Verdict{ClipEdge{}});
    EXPECT_EQ(airAfter(words[2].id, words), Verdict{ClipEdge{}});
    EXPECT_EQ(airBefore(QUuid::createUuid(), words), Verdict{ClipEdge{}});
    EXPECT_EQ(airAfter(QUuid::createUuid(), {}), Verdict{ClipEdge{}});
    EXPECT_EQ(airAfter(words[0].id, words), Verdict{AlreadyCut{}});
    EXPECT_EQ(airBefore(words[2].id, words), Verdict{AlreadyCut{}});
    // Whether the word itself is cut does not matter: only the neighbour.
    EXPECT_TRUE(std::holds_alternative<Air>(airAfter(words[1].id, words)));
}

TEST(WordlessCutsVerdict, MessagesOfTheVerdicts)
{
    EXPECT_EQ(message(ClipEdge{}), "Nothing recorded on that side");
    EXPECT_EQ(message(AlreadyCut{}), "There is already a cut here — resize it instead");
    EXPECT_EQ(message(NoAir{}), "No air between these words");
    EXPECT_FALSE(message(Air{1, 2, QUuid::createUuid()}));
}

// --- Extent and speech level -------------------------------------------------

TEST(WordlessCutsExtent, TheGapLessTwentyMillisecondsAtEachEndWithoutAudio)
{
    const Air gap{2.0, 2.1, QUuid::createUuid()};
    const auto plain = extent(gap, {}, 100, 1);
    ASSERT_TRUE(plain);
    EXPECT_DOUBLE_EQ(plain->lower, 2.02);
    EXPECT_DOUBLE_EQ(plain->upper, 2.08);
    // A silent neighbourhood or an unusable rate give the same.
    const std::vector<float> loud(1000, 1.0F);
    EXPECT_EQ(extent(gap, loud, 100, 0), plain);
    EXPECT_EQ(extent(gap, loud, 0, 1), plain);
    EXPECT_EQ(extent(gap, loud, std::nan(""), 1), plain);
    EXPECT_EQ(extent(gap, loud, 100, std::nanf("")), plain);

    EXPECT_FALSE(extent(Air{2.0, 2.09, {}}, {}, 100, 1));
    EXPECT_FALSE(extent(Air{std::nan(""), 2.09, {}}, {}, 100, 1));
    EXPECT_FALSE(extent(Air{3, 2, {}}, loud, 100, 1));
}

TEST(WordlessCutsExtent, ShrinksToTheQuietPartOfTheGap)
{
    // 100 samples a second: the first word's tail rings on to 1.2 s and the
    // next word's breath starts at 1.8 s.
    std::vector<float> envelope(300, 1.0F);
    for (int i = 120; i < 180; ++i)
        envelope[static_cast<std::size_t>(i)] = 0.1F;
    const auto quiet = extent(Air{1.0, 2.0, {}}, envelope, 100, 1.0F);
    ASSERT_TRUE(quiet);
    EXPECT_NEAR(quiet->lower, 1.2, 0.0101);
    EXPECT_NEAR(quiet->upper, 1.79, 0.0101);
    EXPECT_GE(quiet->lower, 1.02);
    EXPECT_LE(quiet->upper, 1.98);
}

TEST(WordlessCutsExtent, NoiseAllThroughKeepsTheFirstEstimate)
{
    const std::vector<float> envelope(300, 1.0F);
    const auto noisy = extent(Air{1.0, 2.0, {}}, envelope, 100, 1.0F);
    ASSERT_TRUE(noisy);
    EXPECT_DOUBLE_EQ(noisy->lower, 1.02);
    EXPECT_DOUBLE_EQ(noisy->upper, 1.98);

    // A quiet pocket narrower than 0.06 s does not count either.
    std::vector<float> pocket(300, 1.0F);
    for (int i = 150; i < 153; ++i)
        pocket[static_cast<std::size_t>(i)] = 0;
    EXPECT_EQ(extent(Air{1.0, 2.0, {}}, pocket, 100, 1.0F), noisy);
}

TEST(WordlessCutsExtent, AnEnvelopeEndingBeforeTheGapOrAnAbsurdRateStillEnds)
{
    const std::vector<float> envelope(50, 1.0F);
    const auto past = extent(Air{1.0, 2.0, {}}, envelope, 100, 1.0F);
    ASSERT_TRUE(past);
    EXPECT_GE(past->lower, 1.02);
    EXPECT_LE(past->upper, 1.98);
    EXPECT_TRUE(extent(Air{1.0, 2.0, {}}, envelope, std::numeric_limits<double>::infinity(), 1.0F));
    EXPECT_TRUE(extent(Air{1.0, 2.0, {}}, envelope, std::numeric_limits<double>::denorm_min(), 1.0F));
    EXPECT_TRUE(extent(Air{-5.0, -4.0, {}}, envelope, 100, 1.0F));
}

TEST(WordlessCutsSpeechLevel, MedianOfTheMediansOfNearbyWords)
{
    // 10 samples a second over 6 seconds.
    std::vector<float> envelope(60, 0.0F);
    for (int i = 0; i < 6; ++i) // word A, 0.0-0.5: samples 0..5
        envelope[static_cast<std::size_t>(i)] = static_cast<float>(i + 1);
    for (int i = 20; i < 24; ++i) // word B, 2.0-2.35: samples 20..23
        envelope[static_cast<std::size_t>(i)] = i < 22 ? 0.5F : 0.9F;
    for (int i = 30; i < 34; ++i) // word C, 3.0-3.3: samples 30..33
        envelope[static_cast<std::size_t>(i)] = 2.0F;
    for (int i = 24; i < 30; ++i) // a token in the gap, and a far word
        envelope[static_cast<std::size_t>(i)] = 100.0F;
    for (int i = 55; i < 60; ++i)
        envelope[static_cast<std::size_t>(i)] = 100.0F;

    auto token = word(9, 2.4, 2.9, CutReason::manual);
    token.wordIndex = std::nullopt;
    const std::vector<TranscriptWord> words{word(0, 0.0, 0.5), word(1, 2.0, 2.35), token, word(2, 3.0, 3.3),
                                            word(3, 5.5, 5.9)};
    const Air gap{2.4, 2.9, words[1].id};
    // Medians 4, 0.9 and 2: the middle one.
    EXPECT_FLOAT_EQ(speechLevel(gap, words, envelope, 10), 2.0F);

    EXPECT_EQ(speechLevel(gap, words, envelope, 0), 0.0F);
    EXPECT_EQ(speechLevel(gap, words, {}, 10), 0.0F);
    EXPECT_EQ(speechLevel(gap, {}, envelope, 10), 0.0F);
}

TEST(WordlessCutsSpeechLevel, HostileTimesAndRatesAreSkipped)
{
    const std::vector<float> envelope(60, 1.0F);
    std::vector<TranscriptWord> words{word(0, 1.0, 1.5), word(1, 2.0, 2.5)};
    words[0].localStart = std::nan("");
    words[1].localStart = 2.5; // a word of no length has no samples
    const Air gap{1.5, 2.0, {}};
    EXPECT_EQ(speechLevel(gap, words, envelope, 10), 0.0F);
    const std::vector<TranscriptWord> fine{word(0, 1.0, 1.5), word(1, 20.0, 20.5)};
    EXPECT_EQ(speechLevel(gap, fine, envelope, std::numeric_limits<double>::infinity()), 0.0F);
    EXPECT_EQ(speechLevel(gap, fine, envelope, 1e300), 0.0F);
    EXPECT_FLOAT_EQ(speechLevel(gap, fine, envelope, 10), 1.0F);
}

// --- Restoring saved cuts ----------------------------------------------------

TEST(WordlessCutsRestore, PutsTheTokenInTheGapAndTrimsBothNeighbours)
{
    std::vector<TranscriptWord> words{word(0, 1.0, 1.5, {}, 30, 0.1), word(1, 2.0, 2.5, {}, 30, 0.1),
                                      word(2, 3.0, 3.5, {}, 30)};
    const auto original = words;
    std::vector<QString> notes;
    const auto insertions = restore({cutOf(1.55, 1.95)}, words, 30, notes);
    EXPECT_TRUE(notes.empty());
    ASSERT_EQ(insertions.size(), 1u);
    ASSERT_EQ(words.size(), 4u);

    const auto &token = words[1];
    EXPECT_EQ(token.id, insertions[0].tokenID);
    EXPECT_EQ(token.text, "[user cut]");
    EXPECT_DOUBLE_EQ(token.start, 31.55);
    EXPECT_DOUBLE_EQ(token.end, 31.95);
    EXPECT_EQ(token.localStart, 1.55);
    EXPECT_EQ(token.rawStart, 1.55);
    EXPECT_EQ(token.localEnd, 1.95);
    EXPECT_EQ(token.rawEnd, 1.95);
    EXPECT_EQ(token.sourceID, source);
    EXPECT_EQ(token.clipId, "a");
    EXPECT_EQ(token.clipIndex, -1);
    EXPECT_FALSE(token.wordIndex);
    EXPECT_EQ(token.cutReason, CutReason::manual);
    EXPECT_FALSE(token.isPauseToken || token.isKeptTic || token.isHiddenTrim);
    EXPECT_TRUE(token.isUserCut);

    EXPECT_EQ(words[0].localEnd, 1.55);
    EXPECT_DOUBLE_EQ(words[0].end, 31.55);
    EXPECT_EQ(words[2].localStart, 1.95);
    EXPECT_DOUBLE_EQ(words[2].start, 31.95);
    EXPECT_EQ(words[0].localStart, original[0].localStart);
    EXPECT_EQ(words[2].localEnd, original[1].localEnd);

    EXPECT_EQ(insertions[0].cut, cutOf(1.55, 1.95));
    EXPECT_EQ(insertions[0].closed.size(), 2);
    EXPECT_EQ(insertions[0].closed.value(original[0].id), boundsOf(original[0]));
    EXPECT_EQ(insertions[0].closed.value(original[1].id), boundsOf(original[1]));

    // Undoing it puts everything back as it was.
    remove(insertions[0].tokenID, words, insertions[0].closed);
    EXPECT_EQ(words, original);
}

TEST(WordlessCutsRestore, CutsGoInEarliestFirstAndASecondCutInOneGapFails)
{
    std::vector<TranscriptWord> words{word(0, 0, 1), word(1, 2, 3), word(2, 4, 5)};
    std::vector<QString> notes;
    const auto insertions =
        restore({cutOf(3.2, 3.8), cutOf(1.5, 1.7), cutOf(1.1, 1.3)}, words, 0, notes);
    ASSERT_EQ(insertions.size(), 2u);
    EXPECT_EQ(insertions[0].cut, cutOf(1.1, 1.3));
    EXPECT_EQ(insertions[1].cut, cutOf(3.2, 3.8));
    EXPECT_EQ(notes, (std::vector<QString>{
                         "review_edits: wordless cut a[1.5…1.7] no longer sits in a gap — skipped"}));
    ASSERT_EQ(words.size(), 5u);
    EXPECT_TRUE(words[1].isUserCut);
    EXPECT_TRUE(words[3].isUserCut);
    // The neighbour after the first token still ends where it did.
    EXPECT_EQ(words[2].localStart, 1.3);
    EXPECT_EQ(words[2].localEnd, 3.2);
}

TEST(WordlessCutsRestore, ACutBesideAWordCutSinceFailsAndChangesNothing)
{
    std::vector<TranscriptWord> words{word(0, 0, 1), word(1, 2, 3, CutReason::filler), word(2, 4, 5)};
    const auto original = words;
    std::vector<QString> notes;
    EXPECT_TRUE(restore({cutOf(1.25, 1.75), cutOf(3.14159265, 3.5)}, words, 10, notes).empty());
    EXPECT_EQ(words, original);
    EXPECT_EQ(notes, (std::vector<QString>{
                         "review_edits: wordless cut a[1.25…1.75] no longer sits in a gap — skipped",
                         "review_edits: wordless cut a[3.14159…3.5] no longer sits in a gap — skipped"}));
}

TEST(WordlessCutsRestore, CutsOutsideAnyGapOrOfNoWidthFail)
{
    std::vector<TranscriptWord> words{word(0, 1, 2), word(1, 3, 4)};
    const auto original = words;
    std::vector<QString> notes;
    const double nan = std::nan("");
    const double inf = std::numeric_limits<double>::infinity();
    const auto insertions = restore({cutOf(0.2, 0.8),  // before the first word: no gap there
                                     cutOf(4.2, 4.8),  // after the last word
                                     cutOf(1.9, 2.5),  // reaches into the word before
                                     cutOf(2.5, 3.1),  // reaches into the word after
                                     cutOf(2.5, 2.55), // narrower than 0.06 s
                                     cutOf(nan, 2.8), cutOf(2.2, nan), cutOf(2.2, inf), cutOf(-inf, 2.8)},
                                    words, 0, notes);
    EXPECT_TRUE(insertions.empty());
    EXPECT_EQ(words, original);
    ASSERT_EQ(notes.size(), 9u);
    EXPECT_EQ(notes.front(), "review_edits: wordless cut a[-inf…2.8] no longer sits in a gap — skipped");
    EXPECT_EQ(notes.back(), "review_edits: wordless cut a[nan…2.8] no longer sits in a gap — skipped");

    // The narrowest cut that may be made, restored.
    EXPECT_EQ(restore({cutOf(2.2, 2.26)}, words, 0, notes).size(), 1u);
}

TEST(WordlessCutsRemove, PutsBackBothNeighboursEvenWhenOnlyOneWasTrimmed)
{
    // The word before already ends where the cut starts: only the word after
    // is trimmed.
    std::vector<TranscriptWord> words{word(0, 0, 1), word(1, 2, 3)};
    const auto original = words;
    std::vector<QString> notes;
    const auto insertions = restore({cutOf(1.0, 1.6)}, words, 0, notes);
    ASSERT_EQ(insertions.size(), 1u);
    EXPECT_EQ(words[0], original[0]);
    EXPECT_NE(words[2], original[1]);
    // The user then moves the first word's in edge; undoing the cut puts
    // back what the cut closed and nothing else.
    words[0].localEnd = 0.9;
    remove(insertions[0].tokenID, words, insertions[0].closed);
    EXPECT_EQ(words, original);

    // An identity that is not there removes nothing.
    remove(QUuid::createUuid(), words, {});
    EXPECT_EQ(words, original);
}

TEST(WordlessCutsToken, MadeBesideItsNeighbour)
{
    auto neighbour = word(4, 2, 3);
    neighbour.clipId = QStringLiteral("clip-b");
    const auto a = token(cutOf(1.2, 1.8), neighbour, 100);
    const auto b = token(cutOf(1.2, 1.8), neighbour, 100);
    EXPECT_NE(a.id, b.id);
    EXPECT_EQ(a.clipId, "clip-b");
    EXPECT_DOUBLE_EQ(a.start, 101.2);
    EXPECT_DOUBLE_EQ(a.end, 101.8);
}

} // namespace
