#pragma once

// From the reviewed transcript to the export plan. All rounding to frames in
// the system happens here, in `tile`; everything downstream only re-expresses
// the plan's frame edges as rationals.

#include "export/ExportPlan.h"
#include "review/Transcript.h"
#include "stages/C05Sync.h"
#include "stages/C0Probe.h"

#include <QHash>
#include <QString>

#include <optional>
#include <vector>

namespace velum::ExportPlanner {

// A removed stretch of up to this many seconds between two kept runs is
// dropped when the kept runs merge, unless an off-script or manual cut lies
// in it: it is too short to survive as a clip of its own.
inline constexpr double mergeToleranceS = 0.12;

// The frame rate assumed for a clip whose probe found none.
inline constexpr double fallbackFps = 25.0;

// One input run of a clip, from a transcript segment: clip-local seconds,
// the reason it is removed (none: kept), and whether words back it.
struct Run {
    double start = 0;
    double end = 0;
    std::optional<CutReason> reason;
    bool wordBacked = false;

    friend bool operator==(const Run &, const Run &) = default;
};

// The plan of the reviewed transcript. Walks the media's clips in order and
// leaves out, silently, a clip without a probe entry with media, without
// transcript segments, or whose tiling is empty. Never fails.
ExportPlan plan(const QString &projectName, const Transcript &transcript, const ReviewMedia &media,
                const C0Probe &probe, const std::optional<C05Sync> &sync);

// The segments of one clip: a gapless tiling of [0, totalFrames) frames in
// whole frames, kept ranges merged and snapped, removed stretches between
// them with their dominant reason. All `timelineStart`s are zero. Empty when
// there are no runs, or the duration or the rate is not above zero.
std::vector<ExportPlan::Segment> tile(const std::vector<Run> &runs, double durationS, double fps);

// The reason for the removed stretch [from, to): the reason whose removed
// runs overlap it most, ties going to the smaller stored text; `silence`
// when no removed run overlaps it.
CutReason dominantReason(double from, double to, const std::vector<Run> &in);

// Fills every segment's `timelineStart` with the kept time before it.
void assignTimeline(ExportPlan &plan);

// One kept span per kept segment, from the clip's start on the timeline
// (`ReviewMedia::clipStarts()`, 0 for a clip not listed) plus its source
// times, at the segment's timeline position. No merging, no tolerance.
KeptRanges keptRanges(const ExportPlan &plan, const QHash<QString, double> &clipStarts);

} // namespace velum::ExportPlanner
