#include "review/ClipReorder.h"

#include <gtest/gtest.h>

using namespace velum;

namespace {

struct Clip {
    QString id;
    SourceFile source;
    double base = 0;
};

Clip clip(const QString &id, int colorIndex, double base)
{
    return Clip{id, SourceFile{.id = QUuid::createUuid(), .filename = id + ".mov", .colorIndex = colorIndex}, base};
}

// A paragraph of `clip` with one word for each (localStart, localEnd); every
// second word is cut.
TranscriptParagraph paragraph(const Clip &c, std::vector<std::pair<double, double>> times, int firstIndex = 0)
{
    TranscriptParagraph p{QUuid::createUuid(), c.source.id, {}};
    int index = firstIndex;
    for (const auto &[from, to] : times) {
        TranscriptWord w;
        w.id = QUuid::createUuid();
        w.text = QStringLiteral("%1-%2").arg(c.id).arg(index);
        w.localStart = w.rawStart = from;
        w.localEnd = w.rawEnd = to;
        w.start = c.base + from;
        w.end = c.base + to;
        w.sourceID = c.source.id;
        w.clipId = c.id;
        w.clipIndex = index;
        w.wordIndex = index;
        if (index % 2 == 1)
            w.cutReason = CutReason::filler;
        ++index;
        p.words.push_back(w);
    }
    return p;
}

ReviewMedia::Clip mediaOf(const Clip &c, double durationS)
{
    return ReviewMedia::Clip{c.source.id, c.id, QUrl::fromLocalFile("/footage/" + c.id + ".mov"), durationS, c.base,
                             0.25};
}

// Clip "a" of 10 s in two paragraphs, clip "b" of 6 s, external audio last.
struct TwoClips {
    Clip a = clip("a", 0, 0);
    Clip b = clip("b", 1, 10);
    SourceFile external{.id = QUuid::createUuid(), .filename = "lav.wav", .colorIndex = 2,
                        .kind = SourceKind::externalAudio};
    Transcript transcript;
    ReviewMedia media;

    TwoClips()
    {
        transcript = Transcript({a.source, b.source, external},
                                {paragraph(a, {{0.5, 1}, {1, 2}}), paragraph(a, {{3, 4}, {4, 7.5}}, 2),
                                 TranscriptParagraph{QUuid::createUuid(), a.source.id, {}},
                                 paragraph(b, {{0.2, 1}, {1, 5.5}})});
        media.clips = {mediaOf(a, 10), mediaOf(b, 6)};
        media.externalURL = QUrl::fromLocalFile("/footage/lav.wav");
        media.externalSourceID = external.id;
    }
};

TEST(ClipReorderOrder, ClipsInTheOrderTheyFirstAppear)
{
    const Clip a = clip("a", 0, 0), b = clip("b", 1, 10);
    const Transcript t({a.source, b.source}, {TranscriptParagraph{QUuid::createUuid(), a.source.id, {}},
                                               paragraph(b, {{0, 1}}), paragraph(a, {{0, 1}}),
                                               paragraph(b, {{2, 3}}, 1)});
    EXPECT_EQ(ClipReorder::order(t), (std::vector<QString>{"b", "a"}));
    const auto sources = ClipReorder::sourceIDs(t);
    EXPECT_EQ(sources.size(), 2);
    EXPECT_EQ(sources.value("a"), a.source.id);
    EXPECT_EQ(sources.value("b"), b.source.id);
    EXPECT_TRUE(ClipReorder::order(Transcript::empty()).empty());
}

TEST(ClipReorderNormalized, AStaleOrderNeitherLosesNorInventsAClip)
{
    const std::vector<QString> current{"a", "b", "c"};
    EXPECT_EQ(ClipReorder::normalized({"c", "x", "a", "c"}, current), (std::vector<QString>{"c", "a", "b"}));
    EXPECT_EQ(ClipReorder::normalized({"x", "y"}, current), current);
    EXPECT_EQ(ClipReorder::normalized({}, current), current);
    EXPECT_TRUE(ClipReorder::normalized({"a"}, {}).empty());
}

TEST(ClipReorderApply, NothingChangesForThePresentOrderOrUnknownClips)
{
    const TwoClips f;
    EXPECT_FALSE(ClipReorder::apply({"a", "b"}, f.transcript, f.media));
    EXPECT_FALSE(ClipReorder::apply({"a"}, f.transcript, f.media));
    EXPECT_FALSE(ClipReorder::apply({"a", "zz", "b", "a"}, f.transcript, f.media));
    EXPECT_FALSE(ClipReorder::apply({"zz"}, f.transcript, f.media));
    EXPECT_FALSE(ClipReorder::apply({"b", "a"}, Transcript::empty(), ReviewMedia{}));
}

TEST(ClipReorderApply, SwappingClipsOfTenAndSixSeconds)
{
    const TwoClips f;
    const auto result = ClipReorder::apply({"b", "a", "b"}, f.transcript, f.media);
    ASSERT_TRUE(result);
    EXPECT_DOUBLE_EQ(result->shifts.value("a"), 6);
    EXPECT_DOUBLE_EQ(result->shifts.value("b"), -10);
    EXPECT_EQ(result->shifts.size(), 2);

    ASSERT_EQ(result->media.clips.size(), 2u);
    EXPECT_EQ(result->media.clips[0].clipId, "b");
    EXPECT_DOUBLE_EQ(result->media.clips[0].timelineStartS, 0);
    EXPECT_EQ(result->media.clips[1].clipId, "a");
    EXPECT_DOUBLE_EQ(result->media.clips[1].timelineStartS, 6);
    EXPECT_EQ(result->media.clips[1].externalOffsetS, 0.25);
    EXPECT_EQ(result->media.externalURL, f.media.externalURL);
    EXPECT_EQ(result->media.externalSourceID, f.external.id);

    const auto &t = result->transcript;
    EXPECT_EQ(ClipReorder::order(t), (std::vector<QString>{"b", "a"}));
    // The empty paragraph belongs to no clip and is gone.
    EXPECT_EQ(t.paragraphs().size(), 3u);
    ASSERT_EQ(t.words().size(), f.transcript.words().size());
    for (const auto &moved : t.words()) {
        const TranscriptWord *before = f.transcript.word(moved.id);
        ASSERT_NE(before, nullptr);
        const double shift = result->shifts.value(moved.clipId);
        EXPECT_DOUBLE_EQ(moved.start, before->start + shift);
        EXPECT_DOUBLE_EQ(moved.end, before->end + shift);
        EXPECT_EQ(moved.localStart, before->localStart);
        EXPECT_EQ(moved.localEnd, before->localEnd);
        EXPECT_EQ(moved.rawStart, before->rawStart);
        EXPECT_EQ(moved.cutReason, before->cutReason);
        EXPECT_EQ(moved.clipIndex, before->clipIndex);
    }
    EXPECT_NEAR(t.words().front().start, 0.2, 1e-9);
    EXPECT_DOUBLE_EQ(t.duration(), 6 + 7.5);

    // Sources follow the clips, the external audio stays last, and each
    // keeps its colour.
    ASSERT_EQ(t.sources().size(), 3u);
    EXPECT_EQ(t.sources()[0], f.b.source);
    EXPECT_EQ(t.sources()[1], f.a.source);
    EXPECT_EQ(t.sources()[2], f.external);
    EXPECT_EQ(t.color(f.b.source.id), SourceFile::color(1));
    EXPECT_EQ(t.revision(), 1);

    // Swapping back restores the timeline.
    const auto back = ClipReorder::apply({"a", "b"}, t, result->media);
    ASSERT_TRUE(back);
    EXPECT_DOUBLE_EQ(back->shifts.value("a"), -6);
    EXPECT_DOUBLE_EQ(back->shifts.value("b"), 10);
    EXPECT_EQ(back->media, f.media);
}

TEST(ClipReorderApply, ARequestNamingTwoOfThreeClipsPutsTheThirdLast)
{
    const Clip a = clip("a", 0, 0), b = clip("b", 1, 4), c = clip("c", 2, 9);
    const Transcript t({a.source, b.source, c.source},
                       {paragraph(a, {{0, 3}}), paragraph(b, {{0, 5}}), paragraph(c, {{0, 2}})});
    const ReviewMedia media{{mediaOf(a, 4), mediaOf(b, 5), mediaOf(c, 3)}, std::nullopt, std::nullopt};
    const auto result = ClipReorder::apply({"c", "a"}, t, media);
    ASSERT_TRUE(result);
    EXPECT_EQ(ClipReorder::order(result->transcript), (std::vector<QString>{"c", "a", "b"}));
    EXPECT_DOUBLE_EQ(result->shifts.value("c"), -9);
    EXPECT_DOUBLE_EQ(result->shifts.value("a"), 3);
    EXPECT_DOUBLE_EQ(result->shifts.value("b"), 3);
    EXPECT_DOUBLE_EQ(result->media.clips[2].timelineStartS, 7);
}

TEST(ClipReorderApply, ALastClipWithoutMediaIsAsLongAsItsWords)
{
    const Clip a = clip("a", 0, 0), b = clip("b", 1, 10);
    const Transcript t({a.source, b.source}, {paragraph(a, {{0, 3}}), paragraph(b, {{0.5, 4.2}, {1, 2}})});
    const ReviewMedia media{{mediaOf(a, 10)}, std::nullopt, std::nullopt};
    const auto result = ClipReorder::apply({"b"}, t, media);
    ASSERT_TRUE(result);
    EXPECT_DOUBLE_EQ(result->shifts.value("b"), -10);
    EXPECT_DOUBLE_EQ(result->shifts.value("a"), 4.2);
    ASSERT_EQ(result->media.clips.size(), 1u);
    EXPECT_DOUBLE_EQ(result->media.clips[0].timelineStartS, 4.2);
}

TEST(ClipReorderApply, ClipsOutOfTimelineOrderTakeNoNegativeLength)
{
    // "a" comes first in the words but starts later on the timeline.
    const Clip a = clip("a", 0, 8), b = clip("b", 1, 0);
    const Transcript t({a.source, b.source}, {paragraph(a, {{0, 1}}), paragraph(b, {{0, 1}})});
    const ReviewMedia media{{mediaOf(a, 8), mediaOf(b, 5)}, std::nullopt, std::nullopt};
    const auto result = ClipReorder::apply({"b", "a"}, t, media);
    ASSERT_TRUE(result);
    EXPECT_DOUBLE_EQ(result->shifts.value("b"), 0);
    EXPECT_DOUBLE_EQ(result->shifts.value("a"), 5 - 8);
}

} // namespace
