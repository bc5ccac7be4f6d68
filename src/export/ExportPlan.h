#pragma once

// The finished cut in whole frames: for every A-roll clip, a gapless tiling
// of its source time into kept and removed segments. The FCPXML writer, its
// validator, the composition and the player all read this one plan, so what
// is heard in review is what the exported timeline holds.
//
// Segment boundaries are doubles, each the double nearest an exact frame edge
// of its clip's rate; `FCPXMLFrameRate(fps:)` on the clip's `media.fps` (25
// when absent) turns them back into exact frames.

#include "model/Json.h"
#include "model/Project.h"

#include <QSize>
#include <QString>
#include <QUrl>

#include <optional>
#include <vector>

namespace velum {

struct ExportPlan {
    struct Segment {
        double sourceStart = 0; // clip-local, a frame edge
        double sourceEnd = 0;   // clip-local, a frame edge
        // Position on the kept-only timeline: the sum of all earlier kept
        // segments over all clips. A removed segment carries the position at
        // which it would sit, the same as the next kept segment's.
        double timelineStart = 0;
        std::optional<CutReason> reason; // none: kept

        bool isKept() const { return !reason.has_value(); }

        friend bool operator==(const Segment &, const Segment &) = default;
    };

    struct Clip {
        QString clipId;
        QString filename; // display name, from the probe document
        QUrl url;         // the source file on disk
        ClipMedia media;
        // Seconds to add to a clip-local time to reach the external
        // recording's time; none when the clip is not synced.
        std::optional<double> externalOffsetS;
        std::vector<Segment> segments; // ordered by source time, never empty

        friend bool operator==(const Clip &, const Clip &) = default;
    };

    // The separately recorded sound, present when at least one clip is synced
    // to it.
    struct ExternalAudio {
        QString clipId;
        QString filename;
        QUrl url;
        double durationS = 0;
        std::optional<int> sampleRate;
        std::optional<int> channels;
        std::optional<MediaTimecode> startTimecode;

        friend bool operator==(const ExternalAudio &, const ExternalAudio &) = default;
    };

    QString projectName;
    std::vector<Clip> clips; // timeline order
    std::optional<ExternalAudio> externalAudio;

    friend bool operator==(const ExportPlan &, const ExportPlan &) = default;

    // Segments over all clips, the kept ones, and the removed ones.
    int segmentCount() const;
    int enabledCount() const;
    int disabledCount() const;
    // Seconds of kept segments, and of all segments (each counted as
    // max(end - start, 0)).
    double keptDuration() const;
    double sourceDuration() const;

    // A copy whose clips hold only their kept segments; a clip left with none
    // is dropped. Timeline positions and the external audio stay as they are.
    ExportPlan keptOnly() const;

    // The frame size that carries the most kept seconds (all seconds when no
    // clip has kept time); ties go to the larger area, then the larger width,
    // then the larger height. None when no clip has a size.
    std::optional<QSize> dominantVideoSize() const;
};

} // namespace velum

namespace velum::json {

template <>
struct Fields<ExportPlan::Segment> {
    static constexpr auto list = std::tuple{
        field("sourceStart", &ExportPlan::Segment::sourceStart),
        field("sourceEnd", &ExportPlan::Segment::sourceEnd),
        field("timelineStart", &ExportPlan::Segment::timelineStart),
        field("reason", &ExportPlan::Segment::reason),
    };
};

template <>
struct Fields<ExportPlan::Clip> {
    static constexpr auto list = std::tuple{
        field("clipId", &ExportPlan::Clip::clipId),
        field("filename", &ExportPlan::Clip::filename),
        field("url", &ExportPlan::Clip::url),
        field("media", &ExportPlan::Clip::media),
        field("externalOffsetS", &ExportPlan::Clip::externalOffsetS),
        field("segments", &ExportPlan::Clip::segments),
    };
};

template <>
struct Fields<ExportPlan::ExternalAudio> {
    static constexpr auto list = std::tuple{
        field("clipId", &ExportPlan::ExternalAudio::clipId),
        field("filename", &ExportPlan::ExternalAudio::filename),
        field("url", &ExportPlan::ExternalAudio::url),
        field("durationS", &ExportPlan::ExternalAudio::durationS),
        field("sampleRate", &ExportPlan::ExternalAudio::sampleRate),
        field("channels", &ExportPlan::ExternalAudio::channels),
        field("startTimecode", &ExportPlan::ExternalAudio::startTimecode),
    };
};

template <>
struct Fields<ExportPlan> {
    static constexpr auto list = std::tuple{
        field("projectName", &ExportPlan::projectName),
        field("clips", &ExportPlan::clips),
        field("externalAudio", &ExportPlan::externalAudio),
    };
};

} // namespace velum::json
