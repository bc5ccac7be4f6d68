#include "export/ExportPlanner.h"
#include "export/ExportPreferences.h"
#include "export/ExportResolution.h"
#include "model/FCPXMLTime.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <cmath>
#include <ostream>
#include <random>

using namespace velum;

namespace velum {
void PrintTo(const ExportPlan::Segment &s, std::ostream *os)
{
    *os << "[" << s.sourceStart << ", " << s.sourceEnd << ") at " << s.timelineStart << " "
        << (s.reason ? json::text(*s.reason).toStdString() : std::string("kept"));
}
} // namespace velum
using PlanRun = ExportPlanner::Run;
using Segment = ExportPlan::Segment;

namespace {

PlanRun kept(double start, double end) { return PlanRun{start, end, std::nullopt, true}; }
PlanRun cut(double start, double end, CutReason reason, bool wordBacked = false) { return PlanRun{start, end, reason, wordBacked}; }

// The time of frame f at a rate, as the planner writes it.
double frameTime(qint64 f, double fps)
{
    const FCPXMLFrameRate rate(fps);
    return static_cast<double>(f) * static_cast<double>(rate.frameNum) / static_cast<double>(rate.frameDen);
}

Segment keptSegment(double start, double end) { return Segment{start, end, 0, std::nullopt}; }
Segment removedSegment(double start, double end, CutReason reason) { return Segment{start, end, 0, reason}; }

// Each boundary is a whole frame, the segments are gapless from 0, kept and
// removed alternate (two kept segments never touch) and the last one ends at
// the clip's last frame.
void expectTiling(const std::vector<Segment> &segments, double durationS, double fps)
{
    ASSERT_FALSE(segments.empty());
    const FCPXMLFrameRate rate(fps);
    const double perSecond = static_cast<double>(rate.frameDen) / static_cast<double>(rate.frameNum);
    const auto total = std::max<qint64>(static_cast<qint64>(std::trunc(durationS * perSecond + 1e-6)), 1);
    EXPECT_EQ(segments.front().sourceStart, 0.0);
    EXPECT_EQ(segments.back().sourceEnd, frameTime(total, fps));
    for (std::size_t i = 0; i < segments.size(); ++i) {
        const auto &s = segments[i];
        EXPECT_LT(s.sourceStart, s.sourceEnd) << i;
        const double frame = std::round(s.sourceEnd * perSecond);
        EXPECT_EQ(s.sourceEnd, frameTime(static_cast<qint64>(frame), fps)) << i;
        EXPECT_EQ(s.timelineStart, 0.0);
        if (i > 0) {
            EXPECT_EQ(s.sourceStart, segments[i - 1].sourceEnd) << i;
            EXPECT_FALSE(s.isKept() && segments[i - 1].isKept()) << i;
        }
    }
}

// --- Tiling -----------------------------------------------------------------

TEST(ExportPlanTile, ShortGapsMergeUnlessTheUserOrTheScriptCut)
{
    // A 0.1 s silence between kept runs is too short for a clip of its own.
    const auto silence = ExportPlanner::tile({kept(0, 1), cut(1, 1.1, CutReason::silence), kept(1.1, 2)}, 2, 25);
    EXPECT_EQ(silence, (std::vector{keptSegment(0, frameTime(50, 25))}));

    // The same gap as a manual or off-script cut stays, in whole frames:
    // the second range starts at floor(27.5).
    for (const CutReason reason : {CutReason::manual, CutReason::offScript}) {
        const auto segments = ExportPlanner::tile({kept(0, 1), cut(1, 1.1, reason), kept(1.1, 2)}, 2, 25);
        EXPECT_EQ(segments, (std::vector{keptSegment(0, frameTime(25, 25)),
                                         removedSegment(frameTime(25, 25), frameTime(27, 25), reason),
                                         keptSegment(frameTime(27, 25), frameTime(50, 25))}))
            << json::text(reason).toStdString();
    }

    // A gap just over the tolerance stays even as a silence; a gap at the
    // tolerance merges (0.62 - 0.5 is exactly the double 0.12).
    EXPECT_EQ(ExportPlanner::tile({kept(0, 0.5), cut(0.5, 0.63, CutReason::silence), kept(0.63, 2)}, 2, 100).size(), 3u);
    EXPECT_EQ(ExportPlanner::tile({kept(0, 0.5), cut(0.5, 0.62, CutReason::silence), kept(0.62, 2)}, 2, 100).size(), 1u);

    // A manual cut anywhere between two kept runs blocks the merge, even
    // when a silence lies between them as well.
    EXPECT_EQ(ExportPlanner::tile({kept(0, 1), cut(1, 1.02, CutReason::manual), cut(1.02, 1.05, CutReason::silence),
                                   kept(1.05, 2)},
                                  2, 100)
                  .size(),
              3u);
}

TEST(ExportPlanTile, AWordBackedCutSurvivesAtAnyLength)
{
    // A 0.01 s manual cut inside one frame: without words behind it the two
    // kept ranges touch after snapping and become one ...
    const auto loose = ExportPlanner::tile({kept(0, 1), cut(1, 1.01, CutReason::manual), kept(1.01, 2)}, 2, 25);
    EXPECT_EQ(loose, (std::vector{keptSegment(0, frameTime(50, 25))}));
    // ... with a word behind it the kept ranges give way, and the cut keeps
    // the frame it starts in.
    const auto backed = ExportPlanner::tile({kept(0, 1), cut(1, 1.01, CutReason::manual, true), kept(1.01, 2)}, 2, 25);
    EXPECT_EQ(backed, (std::vector{keptSegment(0, frameTime(25, 25)),
                                   removedSegment(frameTime(25, 25), frameTime(26, 25), CutReason::manual),
                                   keptSegment(frameTime(26, 25), frameTime(50, 25))}));
}

TEST(ExportPlanTile, SnapsOutwardExceptAgainstWordBackedCuts)
{
    // 24 fps: 0.51 s is frame 12.24, 1.01 s is frame 24.24.
    const auto outward = ExportPlanner::tile(
        {cut(0, 0.51, CutReason::silence), kept(0.51, 1.01), cut(1.01, 2, CutReason::silence)}, 2, 24);
    EXPECT_EQ(outward, (std::vector{removedSegment(0, frameTime(12, 24), CutReason::silence),
                                    keptSegment(frameTime(12, 24), frameTime(25, 24)),
                                    removedSegment(frameTime(25, 24), frameTime(48, 24), CutReason::silence)}));

    const auto inward = ExportPlanner::tile(
        {cut(0, 0.51, CutReason::filler, true), kept(0.51, 1.01), cut(1.01, 2, CutReason::retake, true)}, 2, 24);
    EXPECT_EQ(inward, (std::vector{removedSegment(0, frameTime(13, 24), CutReason::filler),
                                   keptSegment(frameTime(13, 24), frameTime(24, 24)),
                                   removedSegment(frameTime(24, 24), frameTime(48, 24), CutReason::retake)}));

    // Only the nearest word-backed cut on each side counts, and a cut that
    // does not reach past the range's edge does not pull it in.
    const auto nearest = ExportPlanner::tile({cut(0, 0.1, CutReason::filler, true), kept(0.1, 0.3),
                                              cut(0.3, 0.51, CutReason::retake, true), kept(0.51, 1.01),
                                              cut(1.01, 1.5, CutReason::filler, true), kept(1.5, 2)},
                                             2, 24);
    ASSERT_EQ(nearest.size(), 6u);
    EXPECT_EQ(nearest[3], keptSegment(frameTime(13, 24), frameTime(24, 24)));
}

TEST(ExportPlanTile, ASubFrameKeptRunInsideACutWordVanishes)
{
    const auto segments = ExportPlanner::tile(
        {cut(0, 1, CutReason::retake, true), kept(1, 1.01), cut(1.01, 2, CutReason::retake, true)}, 2, 25);
    EXPECT_EQ(segments, (std::vector{removedSegment(0, frameTime(50, 25), CutReason::retake)}));
}

TEST(ExportPlanTile, TouchingRangesBecomeOneSegment)
{
    // Two ranges 0.16 s apart (no merge), but at 5 fps the first ends at
    // frame 6 and the second starts at frame 5.
    const auto segments = ExportPlanner::tile(
        {kept(0, 1.01), cut(1.01, 1.17, CutReason::silence), kept(1.17, 2)}, 2, 5);
    EXPECT_EQ(segments, (std::vector{keptSegment(0, frameTime(10, 5))}));
}

TEST(ExportPlanTile, EmptyInputsAndDegenerateClips)
{
    EXPECT_TRUE(ExportPlanner::tile({}, 2, 25).empty());
    EXPECT_TRUE(ExportPlanner::tile({kept(0, 1)}, 0, 25).empty());
    EXPECT_TRUE(ExportPlanner::tile({kept(0, 1)}, -1, 25).empty());
    EXPECT_TRUE(ExportPlanner::tile({kept(0, 1)}, 2, 0).empty());
    EXPECT_TRUE(ExportPlanner::tile({kept(0, 1)}, std::nan(""), 25).empty());

    // Shorter than a frame: one frame, kept or removed.
    EXPECT_EQ(ExportPlanner::tile({kept(0, 0.01)}, 0.01, 25), (std::vector{keptSegment(0, 0.04)}));
    EXPECT_EQ(ExportPlanner::tile({cut(0, 0.01, CutReason::noise)}, 0.01, 25),
              (std::vector{removedSegment(0, 0.04, CutReason::noise)}));

    // All removed: one segment over the whole clip with the dominant reason.
    EXPECT_EQ(ExportPlanner::tile({cut(0, 1, CutReason::filler), cut(1, 3, CutReason::retake)}, 3, 25),
              (std::vector{removedSegment(0, 3, CutReason::retake)}));

    // Kept runs past the clip's end are held to its last frame, and a
    // range lying wholly beyond it vanishes.
    EXPECT_EQ(ExportPlanner::tile({kept(0, 1), cut(1, 5, CutReason::silence), kept(5, 6)}, 2, 25),
              (std::vector{keptSegment(0, 1), removedSegment(1, 2, CutReason::silence)}));
}

TEST(ExportPlanTile, SnappingGapsWithoutARunAreSilence)
{
    // The kept run starts 0.02 s in, with nothing before it: the frame
    // before is removed, and no run accounts for it.
    const auto segments = ExportPlanner::tile({kept(0.05, 1)}, 1, 25);
    EXPECT_EQ(segments, (std::vector{removedSegment(0, 0.04, CutReason::silence), keptSegment(0.04, 1)}));
}

TEST(ExportPlanTile, AnyRunsGiveAGaplessTilingOfWholeFrames)
{
    std::mt19937 random(7);
    std::uniform_real_distribution<double> length(0.005, 0.6);
    std::uniform_int_distribution<int> reasonIndex(0, 6);
    const auto reasons = json::allCases<CutReason>();
    for (const double fps : {23.976, 24.0, 25.0, 29.97, 30.0, 59.94, 12.5}) {
        for (int trial = 0; trial < 20; ++trial) {
            std::vector<PlanRun> runs;
            double t = 0;
            while (t < 30) {
                const double end = t + length(random);
                const int r = reasonIndex(random);
                runs.push_back(r == 6 ? kept(t, end)
                                      : cut(t, end, reasons[static_cast<std::size_t>(r)], r % 2 == 0));
                // Now and then a long cut reaching back over earlier runs.
                if (runs.size() % 40 == 0)
                    runs.push_back(cut(std::max(t - 3, 0.0), end, CutReason::noise));
                t = end;
            }
            const auto segments = ExportPlanner::tile(runs, t, fps);
            expectTiling(segments, t, fps);
            // Each removed segment's reason is the dominant one over all runs.
            for (const auto &s : segments) {
                if (!s.isKept()) {
                    EXPECT_EQ(s.reason, ExportPlanner::dominantReason(s.sourceStart, s.sourceEnd, runs));
                }
            }
            // No kept frame lies wholly inside a word-backed cut.
            for (const auto &s : segments) {
                if (!s.isKept())
                    continue;
                for (const auto &run : runs) {
                    if (run.reason && run.wordBacked) {
                        EXPECT_FALSE(run.start <= s.sourceStart - 1e-9 && s.sourceEnd <= run.end + 1e-9)
                            << fps << " " << s.sourceStart << " " << s.sourceEnd;
                    }
                }
            }
        }
    }
}

// --- Frame grids ------------------------------------------------------------

TEST(ExportPlanRates, NtscAndWholeRatesAreDifferentGrids)
{
    const std::vector runs{cut(0, 1, CutReason::silence), kept(1, 2), cut(2, 10, CutReason::silence)};

    // 23.976 is 24000/1001 frames a second: 1 s is frame 23.976, so the kept
    // range widens to frames 23..48, and 10 s holds 239 whole frames.
    const auto ntsc = ExportPlanner::tile(runs, 10, 23.976);
    ASSERT_EQ(ntsc.size(), 3u);
    EXPECT_EQ(ntsc[1], keptSegment(23 * 1001 / 24000.0, 48 * 1001 / 24000.0));
    EXPECT_EQ(ntsc[2].sourceEnd, 239 * 1001 / 24000.0);
    expectTiling(ntsc, 10, 23.976);

    const auto film = ExportPlanner::tile(runs, 10, 24);
    ASSERT_EQ(film.size(), 3u);
    EXPECT_EQ(film[1], keptSegment(1, 2));
    EXPECT_EQ(film[2].sourceEnd, 10);
}

TEST(ExportPlanRates, NtscBoundariesSitOnExactFrames)
{
    // 29.97 is 30000/1001: frame 60 is at 2.002 s. 1e-11 s past it is
    // 3e-10 of a frame, within the slack.
    const double edge = 60 * 1001 / 30000.0;
    const auto within = ExportPlanner::tile({kept(0, edge + 1e-11), cut(edge + 1e-11, 4, CutReason::filler)}, 4, 29.97);
    ASSERT_EQ(within.size(), 2u);
    EXPECT_EQ(within[0].sourceEnd, edge);

    const auto beyond = ExportPlanner::tile({kept(0, edge + 1e-6), cut(edge + 1e-6, 4, CutReason::filler)}, 4, 29.97);
    ASSERT_EQ(beyond.size(), 2u);
    EXPECT_EQ(beyond[0].sourceEnd, 61 * 1001 / 30000.0);

    for (const auto &s : beyond) {
        const double frames = s.sourceEnd * 30000 / 1001;
        EXPECT_NEAR(frames, std::round(frames), 1e-9);
    }
    // 4 s is 119.88 frames; a duration a hair under a whole frame count
    // still counts that frame.
    EXPECT_EQ(beyond.back().sourceEnd, 119 * 1001 / 30000.0);
    EXPECT_EQ(ExportPlanner::tile({kept(0, 1)}, 120 * 1001 / 30000.0 - 1e-8, 29.97).back().sourceEnd,
              120 * 1001 / 30000.0);
}

// --- Dominant reason --------------------------------------------------------

TEST(ExportPlanDominantReason, LargestOverlapThenStoredTextOrder)
{
    // Overlaps of 0.3 (filler) and 0.4 (retake).
    EXPECT_EQ(ExportPlanner::dominantReason(1, 2, {cut(0.5, 1.3, CutReason::filler), cut(1.6, 3, CutReason::retake)}),
              CutReason::retake);
    // Totals add up per reason: two fillers of 0.3 beat a silence of 0.5.
    EXPECT_EQ(ExportPlanner::dominantReason(0, 2,
                                            {cut(0, 0.3, CutReason::filler), cut(0.3, 0.8, CutReason::silence),
                                             cut(1.7, 2, CutReason::filler)}),
              CutReason::filler);
    // Equal overlaps go by the stored text: "filler" before "silence",
    // "off_script" before "retake".
    EXPECT_EQ(ExportPlanner::dominantReason(0, 1, {cut(0, 0.5, CutReason::silence), cut(0.5, 1, CutReason::filler)}),
              CutReason::filler);
    EXPECT_EQ(ExportPlanner::dominantReason(0, 1, {cut(0, 0.5, CutReason::retake), cut(0.5, 1, CutReason::offScript)}),
              CutReason::offScript);
    // Kept runs, and runs that only touch the stretch, do not count; with
    // nothing overlapping the reason is silence.
    EXPECT_EQ(ExportPlanner::dominantReason(1, 2, {kept(1, 2), cut(0, 1, CutReason::retake), cut(2, 3, CutReason::noise)}),
              CutReason::silence);
    EXPECT_EQ(ExportPlanner::dominantReason(1, 2, {}), CutReason::silence);
}

// --- Plans ------------------------------------------------------------------

struct ClipBuilder {
    QUuid source = QUuid::createUuid();
    QString id;
    int position = 0;

    TranscriptWord word(double start, double end, std::optional<CutReason> reason = std::nullopt)
    {
        return TranscriptWord{.id = QUuid::createUuid(), .text = "w", .start = start, .end = end,
                              .localStart = start, .localEnd = end, .rawStart = start, .rawEnd = end,
                              .sourceID = source, .clipId = id, .clipIndex = position++,
                              .wordIndex = position - 1, .cutReason = reason};
    }
    SourceFile sourceFile() const
    {
        return SourceFile{source, id + ".mov", 0, QUrl::fromLocalFile("/footage/" + id + ".mov"), SourceKind::video};
    }
    ReviewMedia::Clip media(double durationS, double timelineStartS, std::optional<double> offset = std::nullopt) const
    {
        return ReviewMedia::Clip{source, id, QUrl::fromLocalFile("/footage/" + id + ".mov"), durationS, timelineStartS,
                                 offset};
    }
    C0Probe::Clip probe(double durationS, std::optional<double> fps, int width = 1920, int height = 1080) const
    {
        return C0Probe::Clip{.clipId = id, .filename = id + " take.mov", .path = "/footage/" + id + ".mov",
                             .role = ProjectFileRole::aRoll, .state = ProjectFileState::ok,
                             .media = ClipMedia{.clipId = id, .durationS = durationS, .fps = fps, .width = width,
                                                .height = height}};
    }
};

// Clips "a" (4 s, 25 fps, a filler on frames 25..40), "b" (2 s, all cut),
// "c" (no words) and "d" (words, no probe media).
struct PlanFixture {
    ClipBuilder a{.id = "a"}, b{.id = "b"}, c{.id = "c"}, d{.id = "d"};
    Transcript transcript;
    ReviewMedia media;
    C0Probe probe;

    PlanFixture()
    {
        transcript = Transcript(
            {a.sourceFile(), b.sourceFile(), c.sourceFile(), d.sourceFile()},
            {{QUuid::createUuid(), a.source, {a.word(0, 1), a.word(1, 1.6, CutReason::filler), a.word(1.6, 4)}},
             {QUuid::createUuid(), b.source, {b.word(0, 1, CutReason::retake), b.word(1, 2, CutReason::manual)}},
             {QUuid::createUuid(), d.source, {d.word(0, 1)}}});
        media.clips = {a.media(4, 0, 0.25), b.media(2, 4), c.media(3, 6), d.media(1, 9)};
        probe.clips = {a.probe(4, 25), b.probe(2, std::nullopt, 1080, 1920), c.probe(3, 25),
                       C0Probe::Clip{.clipId = "d", .filename = "d.mov", .path = "/footage/d.mov"}};
    }

    ExportPlan plan(const std::optional<C05Sync> &sync = std::nullopt) const
    {
        return ExportPlanner::plan("Talk", transcript, media, probe, sync);
    }
};

TEST(ExportPlanPlan, ClipsSegmentsAndTimeline)
{
    const PlanFixture p;
    const ExportPlan plan = p.plan();
    EXPECT_EQ(plan.projectName, "Talk");
    // "c" has no transcript segments and "d" no probe media.
    ASSERT_EQ(plan.clips.size(), 2u);
    const auto &a = plan.clips[0];
    EXPECT_EQ(a.clipId, "a");
    EXPECT_EQ(a.filename, "a take.mov");
    EXPECT_EQ(a.url, QUrl::fromLocalFile("/footage/a.mov"));
    EXPECT_EQ(a.media, *p.probe.clips[0].media);
    EXPECT_EQ(a.externalOffsetS, 0.25);
    EXPECT_EQ(a.segments, (std::vector{Segment{0, 1, 0, std::nullopt}, Segment{1, 1.6, 1, CutReason::filler},
                                       Segment{1.6, 4, 1, std::nullopt}}));

    // "b" has no rate in its probe: 25 fps. All of it is removed, as one
    // segment; its retake and manual cut overlap it equally, and "manual"
    // comes first. It sits where the next kept segment would.
    const auto &b = plan.clips[1];
    EXPECT_FALSE(b.externalOffsetS);
    EXPECT_EQ(b.segments, (std::vector{Segment{0, 2, 3.4, CutReason::manual}}));
    EXPECT_FALSE(plan.externalAudio);

    EXPECT_EQ(plan.segmentCount(), 4);
    EXPECT_EQ(plan.enabledCount(), 2);
    EXPECT_EQ(plan.disabledCount(), 2);
    EXPECT_DOUBLE_EQ(plan.keptDuration(), 3.4);
    EXPECT_DOUBLE_EQ(plan.sourceDuration(), 6);
}

TEST(ExportPlanPlan, ProbeRateAndMediaLength)
{
    PlanFixture p;
    // The media clip's length, not the probe's, bounds the tiling; the
    // probe's rate sets the grid. On 29.97 the filler's edges, 1 s and
    // 1.6 s, are frames 29.97 and 47.95: the kept ranges give way to it.
    p.media.clips[0].durationS = 3.99;
    p.probe.clips[0].media->fps = 29.97;
    const auto segments = p.plan().clips[0].segments;
    ASSERT_EQ(segments.size(), 3u);
    EXPECT_EQ(segments[0].sourceEnd, 29 * 1001 / 30000.0);
    EXPECT_EQ(segments[1].sourceEnd, 48 * 1001 / 30000.0);
    EXPECT_EQ(segments[2].sourceEnd, 119 * 1001 / 30000.0);
}

TEST(ExportPlanPlan, ExternalAudio)
{
    PlanFixture p;
    p.probe.clips.push_back(C0Probe::Clip{
        .clipId = "mic", .filename = "mic.wav", .path = "/audio/mic 1.wav", .role = ProjectFileRole::externalAudio,
        .state = ProjectFileState::ok,
        .media = ClipMedia{.clipId = "mic", .durationS = 30, .audioSampleRate = 48000, .audioChannels = 2,
                           .startTimecode = MediaTimecode{.value = 3600 * 48000, .timescale = 48000,
                                                          .source = MediaTimecode::Source::bwfTimeReference}}});
    const ExportPlan::ExternalAudio expected{.clipId = "mic", .filename = "mic.wav",
                                             .url = QUrl::fromLocalFile("/audio/mic 1.wav"), .durationS = 30,
                                             .sampleRate = 48000, .channels = 2,
                                             .startTimecode = p.probe.clips.back().media->startTimecode};

    // From the sync document.
    C05Sync sync;
    sync.externalClipId = "mic";
    EXPECT_EQ(p.plan(sync).externalAudio, expected);

    // Without one, through the review's external URL, matched by path and
    // role; the URL of the plan comes from the probe's path.
    p.media.externalURL = QUrl::fromLocalFile("/audio/mic 1.wav");
    EXPECT_EQ(p.plan().externalAudio, expected);
    EXPECT_EQ(p.plan(C05Sync{}).externalAudio, expected);
    p.probe.clips.back().role = ProjectFileRole::bRoll;
    EXPECT_FALSE(p.plan().externalAudio);
    EXPECT_EQ(p.plan(sync).externalAudio, expected);
    p.probe.clips.back().role = ProjectFileRole::externalAudio;

    // No clip synced: no external audio.
    p.media.clips[0].externalOffsetS.reset();
    EXPECT_FALSE(p.plan(sync).externalAudio);
    p.media.clips[0].externalOffsetS = -1.5;
    EXPECT_EQ(p.plan(sync).externalAudio, expected);

    // An identifier the probe lacks, or a probe clip without media.
    sync.externalClipId = "other";
    EXPECT_FALSE(p.plan(sync).externalAudio);
    sync.externalClipId = "mic";
    p.probe.clips.back().media.reset();
    EXPECT_FALSE(p.plan(sync).externalAudio);
}

TEST(ExportPlanPlan, KeptOnlyAndKeptRanges)
{
    const PlanFixture p;
    const ExportPlan plan = p.plan();
    const ExportPlan keptOnly = plan.keptOnly();
    EXPECT_EQ(keptOnly.projectName, plan.projectName);
    ASSERT_EQ(keptOnly.clips.size(), 1u); // "b" is all cut
    EXPECT_EQ(keptOnly.clips[0].segments,
              (std::vector{Segment{0, 1, 0, std::nullopt}, Segment{1.6, 4, 1, std::nullopt}}));
    EXPECT_EQ(keptOnly.keptDuration(), plan.keptDuration());
    EXPECT_EQ(keptOnly.disabledCount(), 0);

    ExportPlan withAudio = plan;
    withAudio.externalAudio = ExportPlan::ExternalAudio{.clipId = "mic", .durationS = 3};
    EXPECT_EQ(withAudio.keptOnly().externalAudio, withAudio.externalAudio);

    // One span per kept segment at the clip's place on the timeline, with
    // no merging; a clip missing from the starts counts from 0.
    ExportPlan twoClips = plan;
    twoClips.clips[1].segments = {Segment{0, 0.5, 3.4, std::nullopt}, Segment{0.5, 2, 3.9, CutReason::retake}};
    EXPECT_EQ(ExportPlanner::keptRanges(twoClips, p.media.clipStarts()).spans,
              (std::vector<KeptRanges::Span>{{0, 1, 0}, {1.6, 4, 1}, {4, 4.5, 3.4}}));
    EXPECT_EQ(ExportPlanner::keptRanges(twoClips, {{"a", 10}}).spans,
              (std::vector<KeptRanges::Span>{{10, 11, 0}, {10 + 1.6, 14, 1}, {0, 0.5, 3.4}}));
    // The kept ranges map time the same way the plan's timeline runs.
    const KeptRanges ranges = ExportPlanner::keptRanges(twoClips, p.media.clipStarts());
    EXPECT_DOUBLE_EQ(ranges.keptTime(4.2), 3.6);
    EXPECT_DOUBLE_EQ(ranges.keptTime(1.3), 1); // inside the filler: where playback resumes
    EXPECT_DOUBLE_EQ(ranges.timelineTime(1.2), 1.8);
}

TEST(ExportPlanTimeline, KeptSecondsAccumulateOverClips)
{
    ExportPlan plan;
    plan.clips = {ExportPlan::Clip{.clipId = "x", .segments = {Segment{0, 1, 9, CutReason::silence},
                                                               Segment{1, 2.5, 9, std::nullopt},
                                                               Segment{2.5, 3, 9, CutReason::retake}}},
                  ExportPlan::Clip{.clipId = "y", .segments = {Segment{0, 0.5, 9, std::nullopt},
                                                               Segment{0.5, 0.5, 9, std::nullopt},
                                                               Segment{0.5, 1, 9, CutReason::manual},
                                                               Segment{1, 2, 9, std::nullopt}}}};
    ExportPlanner::assignTimeline(plan);
    std::vector<double> starts;
    for (const auto &clip : plan.clips)
        for (const auto &s : clip.segments)
            starts.push_back(s.timelineStart);
    EXPECT_EQ(starts, (std::vector<double>{0, 0, 1.5, 1.5, 2, 2, 2}));
    EXPECT_DOUBLE_EQ(plan.keptDuration(), 3);
    EXPECT_DOUBLE_EQ(plan.sourceDuration(), 5);
    EXPECT_EQ(plan.segmentCount(), 7);
    EXPECT_EQ(plan.enabledCount(), 4);
    EXPECT_EQ(plan.disabledCount(), 3);
}

// --- Dominant video size ----------------------------------------------------

ExportPlan::Clip sized(std::optional<int> width, std::optional<int> height, double keptS, double removedS = 0)
{
    ExportPlan::Clip clip{.media = ClipMedia{.width = width, .height = height}};
    if (keptS > 0)
        clip.segments.push_back(Segment{0, keptS, 0, std::nullopt});
    if (removedS > 0)
        clip.segments.push_back(Segment{keptS, keptS + removedS, 0, CutReason::silence});
    return clip;
}

TEST(ExportPlanVideoSize, MostKeptSecondsThenAreaWidthHeight)
{
    ExportPlan plan;
    EXPECT_FALSE(plan.dominantVideoSize());

    // Kept seconds add up per size: two 1080p clips beat one longer 4K clip.
    plan.clips = {sized(1920, 1080, 3), sized(3840, 2160, 5, 20), sized(1920, 1080, 3)};
    EXPECT_EQ(plan.dominantVideoSize(), QSize(1920, 1080));

    // Equal seconds: the larger area, then the larger width, then height.
    plan.clips = {sized(1280, 720, 2), sized(1920, 1080, 2)};
    EXPECT_EQ(plan.dominantVideoSize(), QSize(1920, 1080));
    plan.clips = {sized(1080, 1920, 2), sized(1920, 1080, 2)};
    EXPECT_EQ(plan.dominantVideoSize(), QSize(1920, 1080));
    plan.clips = {sized(1000, 1000, 2), sized(500, 2000, 2)};
    EXPECT_EQ(plan.dominantVideoSize(), QSize(1000, 1000));

    // Clips without a size, or with a side below 1, do not count.
    plan.clips = {sized(std::nullopt, 1080, 9), sized(0, 720, 9), sized(640, 480, 1)};
    EXPECT_EQ(plan.dominantVideoSize(), QSize(640, 480));

    // Nothing kept anywhere: all seconds count instead.
    plan.clips = {sized(640, 480, 0, 2), sized(1920, 1080, 0, 1)};
    EXPECT_EQ(plan.dominantVideoSize(), QSize(640, 480));
    plan.clips = {sized(std::nullopt, std::nullopt, 3)};
    EXPECT_FALSE(plan.dominantVideoSize());
}

// --- Resolutions and preferences --------------------------------------------

TEST(ExportResolutionCanvas, FixedLandscapeAndShapedPortrait)
{
    const QSizeF landscape(1440, 1080);
    EXPECT_EQ(canvas(ExportResolution::source, landscape), QSize(1440, 1080));
    EXPECT_EQ(canvas(ExportResolution::uhd4K, landscape), QSize(3840, 2160));
    EXPECT_EQ(canvas(ExportResolution::hd1080, landscape), QSize(1920, 1080));
    EXPECT_EQ(canvas(ExportResolution::hd720, landscape), QSize(1280, 720));

    // Portrait and square keep their shape at the long side's height;
    // sides are forced even.
    const QSizeF portrait(1080, 1920);
    EXPECT_EQ(canvas(ExportResolution::hd1080, portrait), QSize(1080, 1920));
    EXPECT_EQ(canvas(ExportResolution::hd720, portrait), QSize(720, 1280));
    EXPECT_EQ(canvas(ExportResolution::uhd4K, QSizeF(1000, 1000)), QSize(3840, 3840));
    EXPECT_EQ(canvas(ExportResolution::hd720, QSizeF(1001, 1999)), QSize(640, 1280)); // 640.96 → 640
    EXPECT_EQ(canvas(ExportResolution::source, QSizeF(1281, 719.4)), QSize(1282, 720));
    EXPECT_EQ(canvas(ExportResolution::source, QSizeF(1, 1)), QSize(2, 2));

    // No usable source: 1920×1080 is assumed.
    for (const auto &missing : {std::optional<QSizeF>(), std::optional(QSizeF(0, 1080)), std::optional(QSizeF(1920, 0.5))}) {
        EXPECT_EQ(canvas(ExportResolution::source, missing), QSize(1920, 1080));
        EXPECT_EQ(canvas(ExportResolution::hd720, missing), QSize(1280, 720));
    }
}

TEST(ExportResolutionLabel, TextsAndStoredValues)
{
    EXPECT_EQ(resolutionText(QSizeF(1920, 1080)), QString("1920×1080"));
    EXPECT_EQ(resolutionText(QSizeF(1279.5, 719.4)), QString("1280×719"));
    EXPECT_FALSE(resolutionText(std::nullopt));
    EXPECT_FALSE(resolutionText(QSizeF(0.5, 1080)));

    EXPECT_EQ(label(ExportResolution::source, QSizeF(3840, 2160)), "Source (3840×2160)");
    EXPECT_EQ(label(ExportResolution::source, std::nullopt), "Source");
    EXPECT_EQ(label(ExportResolution::uhd4K, QSizeF(1920, 1080)), "4K");
    EXPECT_EQ(label(ExportResolution::hd1080, std::nullopt), "1080p");
    EXPECT_EQ(label(ExportResolution::hd720, std::nullopt), "720p");

    // Menu order, stored texts, and an unknown text reads as no value.
    EXPECT_EQ(json::allCases<ExportResolution>(), (std::vector{ExportResolution::source, ExportResolution::uhd4K,
                                                               ExportResolution::hd1080, ExportResolution::hd720}));
    EXPECT_EQ(json::fromText<ExportResolution>(u"4k"), ExportResolution::uhd4K);
    EXPECT_EQ(json::text(ExportResolution::hd720), "720p");
    EXPECT_FALSE(json::fromText<ExportResolution>(u"4K"));
}

TEST(ExportPreferencesTest, IncludeRestorableCutsDefaultsToTrue)
{
    test::TempDir dir;
    const QString file = dir.file("settings.ini");
    {
        QSettings settings(file, QSettings::IniFormat);
        EXPECT_TRUE(ExportPreferences::includeRestorableCuts(settings));
        ExportPreferences::setIncludeRestorableCuts(settings, false);
        EXPECT_FALSE(ExportPreferences::includeRestorableCuts(settings));
    }
    {
        // As read back from the file.
        QSettings settings(file, QSettings::IniFormat);
        EXPECT_FALSE(ExportPreferences::includeRestorableCuts(settings));
        EXPECT_EQ(settings.value("export.includeRestorableCuts").toString(), "false");
        ExportPreferences::setIncludeRestorableCuts(settings, true);
        EXPECT_TRUE(ExportPreferences::includeRestorableCuts(settings));
        // Not a boolean: true.
        settings.setValue("export.includeRestorableCuts", 0);
        EXPECT_TRUE(ExportPreferences::includeRestorableCuts(settings));
        settings.setValue("export.includeRestorableCuts", "no");
        EXPECT_TRUE(ExportPreferences::includeRestorableCuts(settings));
    }
}

} // namespace
