#include "review/Cutlist.h"

#include <gtest/gtest.h>

using namespace velum;
using Cutlist::Entry;

namespace {

// Words of 0.3 s with 0.2 s of air between them: word i runs from
// 0.5 i to 0.5 i + 0.3.
C1Transcript::Clip clipOf(int count)
{
    C1Transcript::Clip clip{.clipId = "clip-a", .filename = "A001.mov"};
    for (int i = 0; i < count; ++i)
        clip.words.push_back(TimedWord{.text = QStringLiteral("w%1").arg(i), .start = 0.5 * i, .end = 0.5 * i + 0.3});
    return clip;
}

C3Cuts::WordRange range(int lower, int upper) { return C3Cuts::WordRange{.wordStart = lower, .wordEnd = upper}; }

const Entry &wordEntry(const std::vector<Entry> &entries, int index)
{
    for (const auto &e : entries) {
        if (e.wordIndex == index)
            return e;
    }
    throw std::out_of_range("no such word");
}

TEST(CutlistReasons, ManualBeforeRetakeBeforeOffScriptBeforeFillerBeforeIsland)
{
    const auto clip = clipOf(8);
    C3Cuts::Clip cleanup{.clipId = "clip-a"};
    cleanup.fillerCuts = {range(3, 4), range(5, 6)};
    cleanup.chatterCuts = {range(5, 7)};
    cleanup.mergedIslands = {C3Cuts::Gap{.afterWord = 5, .startS = 2.9, .endS = 4.0},
                             C3Cuts::Gap{.afterWord = 0, .startS = 0.0, .endS = 0.3, .reason = CutReason::noise}};

    auto reasons = Cutlist::reasons(clip, {{3, 4}}, {}, &cleanup);
    EXPECT_EQ(reasons[3], CutReason::retake);
    EXPECT_EQ(reasons[5], CutReason::offScript);
    EXPECT_EQ(reasons[6], CutReason::offScript);
    EXPECT_EQ(reasons[7], CutReason::silence); // 3.5..3.8 lies inside the island
    EXPECT_EQ(reasons[0], CutReason::noise);   // only an island's explicit reason gives noise
    EXPECT_FALSE(reasons[1]);

    reasons = Cutlist::reasons(clip, {{3, 4}}, {{3, 4}}, &cleanup);
    EXPECT_EQ(reasons[3], CutReason::manual);
}

TEST(CutlistReasons, RangesAreClampedAndReversedOnesRefused)
{
    const auto clip = clipOf(4);
    const auto reasons = Cutlist::reasons(clip, {{-3, 1}, {3, 99}}, {}, nullptr);
    EXPECT_EQ(reasons, (Cutlist::Reasons{CutReason::retake, std::nullopt, std::nullopt, CutReason::retake}));
    EXPECT_THROW(Cutlist::reasons(clip, {{3, 2}}, {}, nullptr), BrokenDocumentError);
    EXPECT_THROW(Cutlist::reasons(clip, {{9, 12}}, {}, nullptr), BrokenDocumentError);
}

TEST(CutlistSeams, EstimateWithoutCleanupDocument)
{
    // Word 2 retaken: words 1 and 3 get half of 0.15 s, bounded by the gap
    // (0.2 s), plus the smaller of 50 ms and 40% of the removed 0.3 s.
    const auto clip = clipOf(5);
    const auto entries = Cutlist::entries(clip, {{2, 3}}, {}, nullptr, Cutlist::defaultSeamS, nullptr);
    ASSERT_EQ(entries.size(), 5u);
    EXPECT_DOUBLE_EQ(wordEntry(entries, 1).end, 0.8 + 0.075 + 0.05);
    EXPECT_DOUBLE_EQ(wordEntry(entries, 3).start, 1.5 - 0.075 - 0.05);
    EXPECT_DOUBLE_EQ(wordEntry(entries, 1).rawEnd, 0.8);
    EXPECT_EQ(wordEntry(entries, 2).reason, CutReason::retake);
    // Removed words keep their delivered times.
    EXPECT_DOUBLE_EQ(wordEntry(entries, 2).start, 1.0);
    EXPECT_DOUBLE_EQ(wordEntry(entries, 0).end, 0.3);
}

TEST(CutlistSeams, ShortRemovalsGetFortyPercentAndContentCutsGetNone)
{
    // A 100 ms filler gets 40 ms of extra air on each side.
    C1Transcript::Clip clip = clipOf(3);
    clip.words[1].start = 0.6;
    clip.words[1].end = 0.7;
    C3Cuts::Clip cleanup{.clipId = "clip-a", .fillerCuts = {range(1, 2)}};
    auto entries = Cutlist::entries(clip, {}, {}, &cleanup, 0.1, nullptr);
    EXPECT_NEAR(wordEntry(entries, 0).end, 0.3 + 0.05 + 0.04, 1e-12);
    EXPECT_NEAR(wordEntry(entries, 2).start, 1.0 - 0.05 - 0.04, 1e-12);

    // The same word cut by the user or as off-script: no air on either side.
    entries = Cutlist::entries(clip, {}, {{1, 2}}, &cleanup, 0.1, nullptr);
    EXPECT_DOUBLE_EQ(wordEntry(entries, 0).end, 0.3);
    EXPECT_DOUBLE_EQ(wordEntry(entries, 2).start, 1.0);
    C3Cuts::Clip chatter{.clipId = "clip-a", .chatterCuts = {range(1, 2)}};
    entries = Cutlist::entries(clip, {}, {}, &chatter, 0.1, nullptr);
    EXPECT_DOUBLE_EQ(wordEntry(entries, 0).end, 0.3);
    EXPECT_DOUBLE_EQ(wordEntry(entries, 2).start, 1.0);
}

TEST(CutlistSeams, ServiceSeamsReplaceTheEstimateAndNegativeMeansNone)
{
    const auto clip = clipOf(10);
    C3Seams::Clip seams{.clipId = "clip-a",
                        .seams = {C3Seams::Seam{.wordIndex = 7, .edge = C3Seams::Edge::trailing, .offsetS = 0.03},
                                  C3Seams::Seam{.wordIndex = 7, .edge = C3Seams::Edge::trailing, .offsetS = -0.02},
                                  C3Seams::Seam{.wordIndex = 9, .edge = C3Seams::Edge::leading, .offsetS = 0.01}}};
    const auto entries = Cutlist::entries(clip, {{8, 9}}, {}, nullptr, 0.15, &seams);
    // The later seam for the same word and edge wins, and a negative offset
    // leaves the delivered end exactly.
    EXPECT_EQ(wordEntry(entries, 7).end, 3.8);
    EXPECT_DOUBLE_EQ(wordEntry(entries, 9).start, 4.5 - 0.01);
}

TEST(CutlistTokens, OrderedByPositionThenStartThenSource)
{
    const auto clip = clipOf(2);
    C3Cuts::Clip cleanup{.clipId = "clip-a"};
    cleanup.silenceCuts = {C3Cuts::Gap{.afterWord = 0, .startS = 0.35, .endS = 0.45}};
    cleanup.bandPauses = {C3Cuts::Gap{.afterWord = -1, .startS = 0.0, .endS = 0.1}};
    cleanup.hiddenSilenceCuts = {C3Cuts::Gap{.afterWord = 0, .startS = 0.30, .endS = 0.35}};
    cleanup.noiseCuts = {C3Cuts::NoiseCut{.afterWord = 0, .startS = 0.35, .endS = 0.4, .label = "[cough]"},
                         C3Cuts::NoiseCut{.afterWord = 5, .startS = 9, .endS = 9.5, .label = "[never]"}};
    cleanup.keptAudioEvents = {C3Cuts::NoiseCut{.afterWord = -1, .startS = 0.0, .endS = 0.05, .label = "[clap]"}};
    const auto entries = Cutlist::entries(clip, {}, {}, &cleanup, 0.15, nullptr);

    QStringList texts;
    for (const auto &e : entries)
        texts << e.text;
    EXPECT_EQ(texts, (QStringList{"…", "[clap]", "w0", "···", "…", "[cough]", "w1"}));
    EXPECT_TRUE(entries[0].isPause);
    EXPECT_FALSE(entries[0].reason);
    EXPECT_TRUE(entries[3].isHiddenTrim);
    EXPECT_EQ(entries[3].reason, CutReason::silence);
    EXPECT_EQ(entries[5].reason, CutReason::noise);
    EXPECT_FALSE(entries[1].wordIndex);
}

TEST(CutlistTokens, ClipWithoutWordsHasOnlyLeadingTokens)
{
    C1Transcript::Clip clip{.clipId = "empty"};
    C3Cuts::Clip cleanup{.clipId = "empty"};
    cleanup.silenceCuts = {C3Cuts::Gap{.afterWord = -1, .startS = 2, .endS = 3},
                           C3Cuts::Gap{.afterWord = 0, .startS = 4, .endS = 5}};
    cleanup.bandPauses = {C3Cuts::Gap{.afterWord = -1, .startS = 1, .endS = 2}};
    const auto entries = Cutlist::entries(clip, {}, {}, &cleanup, 0.15, nullptr);
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_DOUBLE_EQ(entries[0].start, 1);
    EXPECT_DOUBLE_EQ(entries[1].start, 2);
}

TEST(CutlistAdjustment, KeptWordNeverShrinksBelowTenMilliseconds)
{
    // A removed pause starting 5 ms after the word's start, inside it.
    auto clip = clipOf(2);
    C3Cuts::Clip cleanup{.clipId = "clip-a"};
    cleanup.silenceCuts = {C3Cuts::Gap{.afterWord = 0, .startS = 0.005, .endS = 0.45}};
    const auto entries = Cutlist::entries(clip, {}, {}, &cleanup, 0.15, nullptr);
    const auto &w0 = wordEntry(entries, 0);
    EXPECT_DOUBLE_EQ(w0.start, 0.0);
    EXPECT_DOUBLE_EQ(w0.end, 0.01);
}

TEST(CutlistAdjustment, GapsToRemovedAndPauseTokensAreClosed)
{
    auto clip = clipOf(3);
    C3Cuts::Clip cleanup{.clipId = "clip-a"};
    cleanup.silenceCuts = {C3Cuts::Gap{.afterWord = 0, .startS = 0.4, .endS = 0.45}};
    cleanup.bandPauses = {C3Cuts::Gap{.afterWord = 1, .startS = 0.85, .endS = 0.95}};
    cleanup.keptAudioEvents = {C3Cuts::NoiseCut{.afterWord = 2, .startS = 1.4, .endS = 1.6, .label = "[laugh]"}};
    const auto entries = Cutlist::entries(clip, {}, {}, &cleanup, 0.0, nullptr);
    // Word 0 reaches forward to the removed pause; word 1 reaches back to its
    // end and forward to the band pause.
    EXPECT_DOUBLE_EQ(wordEntry(entries, 0).end, 0.4);
    EXPECT_DOUBLE_EQ(wordEntry(entries, 1).start, 0.45);
    EXPECT_DOUBLE_EQ(wordEntry(entries, 1).end, 0.85);
    EXPECT_DOUBLE_EQ(wordEntry(entries, 2).start, 0.95);
    // A kept sound is no reason to stretch a word.
    EXPECT_DOUBLE_EQ(wordEntry(entries, 2).end, 1.3);
}

TEST(CutlistTics, KeptTicsOnlyOnKeptWords)
{
    const auto clip = clipOf(6);
    C3Cuts::Clip cleanup{.clipId = "clip-a", .fillerCuts = {range(1, 2)}};
    cleanup.keptTics = {1, 2};
    cleanup.keptMicroRepeats = {range(4, 6), range(-2, 1), range(5, 1000000)};
    const auto entries = Cutlist::entries(clip, {}, {}, &cleanup, 0.15, nullptr);
    EXPECT_FALSE(wordEntry(entries, 1).isKeptTic);
    EXPECT_TRUE(wordEntry(entries, 2).isKeptTic);
    EXPECT_FALSE(wordEntry(entries, 3).isKeptTic);
    EXPECT_TRUE(wordEntry(entries, 4).isKeptTic);
    EXPECT_TRUE(wordEntry(entries, 5).isKeptTic);
    EXPECT_TRUE(wordEntry(entries, 0).isKeptTic);
}

TEST(CutlistGlyphs, SilenceGlyphs)
{
    EXPECT_TRUE(Entry::isSilenceGlyph("…"));
    EXPECT_TRUE(Entry::isSilenceGlyph("···"));
    EXPECT_TRUE(Entry::isSilenceGlyph("..."));
    EXPECT_FALSE(Entry::isSilenceGlyph(".."));
}

} // namespace
