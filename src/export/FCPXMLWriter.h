#pragma once

// The export plan as an FCPXML 1.13 timeline.
//
// The kept segments become the primary storyline, laid end to end at the
// first clip's rate. Every removed segment travels along as a disabled clip
// on a lane above the storyline, anchored to the kept clip that follows it
// (a removed tail to the end of the last kept clip) and marked with the
// reason it was removed, so that the editor can switch any cut back on.
// When a clip is synced to a separately recorded sound, the camera keeps its
// picture, its own channels are muted, and the external file plays on lane -1
// under it, sample-exact.
//
// All positions are whole frames or whole 48 kHz samples held as integer
// rationals; the plan's double boundaries are turned back into frames once,
// at the top of the spine walk, and no floating point reaches the document
// after that.

#include "export/ExportPlan.h"
#include "export/FCPXML.h"
#include "model/FCPXMLTime.h"
#include "model/Project.h"

#include <QString>
#include <QUrl>

#include <optional>
#include <vector>

namespace velum::FCPXMLWriter {

// The document's version and the event that holds the project.
inline const QString version = QStringLiteral("1.13");
inline const QString eventName = QStringLiteral("Velum");
// The format an audio-only clip on a lane names, so that it inherits no
// video format from its host.
inline const QString rateUndefinedFormatName = QStringLiteral("FFVideoFormatRateUndefined");

// What makes two clips share a `format` resource: equal rates and equal
// sizes, an absent side counting as no value.
struct FormatKey {
    FCPXMLFrameRate rate;
    std::optional<int> width;
    std::optional<int> height;

    friend bool operator==(const FormatKey &, const FormatKey &) = default;
};

// One clip of the storyline as laid down: where it reads its asset (media
// timecode included), for how long, and where it sits on the sequence in
// seconds.
struct SpineClip {
    FCPXMLTime start;
    FCPXMLTime duration;
    double timelineStart = 0;

    friend bool operator==(const SpineClip &, const SpineClip &) = default;
};

// One removed segment waiting to be hung on the storyline. `anchorIndex` is
// the number of storyline clips laid down before it, so the index of the
// kept clip that follows it.
struct RideAlong {
    int anchorIndex = 0;
    QString assetId;
    QString formatId;
    QString name;
    FCPXMLTime start;
    FCPXMLTime duration;
    FCPXMLTime frameDuration;
    bool hasAudio = false;
    std::optional<CutReason> reason;

    friend bool operator==(const RideAlong &, const RideAlong &) = default;
};

// The whole timeline of a plan. It cannot fail for any plan the planner
// makes; frame arithmetic beyond 64 bits, which no real media reaches, throws
// FCPXMLTimeArithmeticError as the programming fault it is.
FCPXMLDocument document(const ExportPlan &plan);

// The short rate name of a format: "2398", "24", "25", "2997", "30", "50",
// "5994" or "60", when the rate is within 0.01 frames a second of one of
// them; none otherwise.
std::optional<QString> rateToken(const FCPXMLFrameRate &rate);

// "FFVideoFormat1080p25", "FFVideoFormat720p2398", "FFVideoFormat1080x1920p30";
// "FFVideoFormatRateUndefined" without a size of at least 1 by 1 or without a
// rate token.
QString formatName(const FCPXMLFrameRate &rate, std::optional<int> width, std::optional<int> height);

// `media-rep` of kind "original-media" whose `src` is the absolute, fully
// percent-encoded "file://" URL of the file. A relative path is taken from
// the current folder.
FCPXMLNode mediaRep(const QUrl &url);

// An `adjust-volume` that fades in and out over `durationS`, counted in
// whole 48 kHz samples; none when that is less than one sample.
std::optional<FCPXMLNode> audioFade(double durationS);

// "1, 2" for a stereo camera: channels 1 to the clip's channel count (at
// least 1, and 2 when unknown).
QString sourceChannels(const ClipMedia &media);

// The `audio-channel-source` that switches all of a camera file's own sound
// off, for a clip whose sound comes from the external recording.
FCPXMLNode mutedCameraChannels(const ClipMedia &media);

// Hangs each removed segment on the storyline clip at its anchor index (the
// last one for a removed tail), on the lowest lane from 1 up that is free at
// its position, as a disabled clip with a marker naming the reason. It is
// placed ahead of the host's `audio-channel-source`, where the element order
// wants anchored items. `spine` holds the storyline clips in the order of
// `storyline`; `sequenceEnd` is the end of the storyline in seconds. Does
// nothing without ride-alongs or without storyline clips.
void attach(const std::vector<RideAlong> &rideAlongs, FCPXMLNode &spine, const std::vector<SpineClip> &storyline,
            double sequenceEnd);

// The words for a reason on a marker and in a ride-along's name: "Silence",
// "Filler", "Retake", "Noise", "Off-script", "Your cut". Both use it in
// lower case.
QString reasonLabel(CutReason reason);

} // namespace velum::FCPXMLWriter
