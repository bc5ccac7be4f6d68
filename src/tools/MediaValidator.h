#pragma once

// The verdict on one project file: whether it can be used, in which state it
// goes on, what the user reads under its row, and the ClipMedia the rest of
// the system sees. Run whenever a file is added, and again by the probe
// stage and before measuring.
//
// The cost is one probe, one hash of the bytes and, for pictures, a decode of
// at most the first 60 seconds; external audio is never decoded here.

#include "model/Json.h"
#include "model/Project.h"
#include "tools/Cancellation.h"
#include "tools/FFmpegRunner.h"
#include "tools/ProcessRunner.h"

#include <QCoroTask>
#include <QString>
#include <QStringView>
#include <QUrl>

#include <optional>

namespace velum::MediaValidator {

struct Outcome {
    ProjectFileState state = ProjectFileState::pending;
    std::optional<QString> note; // shown beside the file
    std::optional<ClipMedia> media;

    friend bool operator==(const Outcome &, const Outcome &) = default;
};

// Files shorter than this cannot be used.
inline constexpr double shortestUsableDurationS = 0.2;
// The head of a picture file that is decoded to judge it.
inline constexpr double integritySampleS = 60;
// Between the notes of one file.
inline constexpr QStringView noteSeparator(u" · ");

// The ClipMedia of a probe: pictures' rate and size only when the file has
// video, so that a file without pictures never carries a frame rate of 0.
ClipMedia clipMedia(const FFmpegRunner::Probe &probe, const QString &clipId);

// Judges the file for its role. `clipID` names the clip when the caller
// knows it; otherwise it is the SHA-256 of the bytes, or the file's name when
// they cannot be read. Every problem becomes an outcome: nothing is thrown
// but CancelledError.
QCoro::Task<Outcome> validate(QUrl url, ProjectFileRole role, std::optional<QString> clipID = std::nullopt,
                              ProcessRunner runner = ProcessRunner(), Cancellation cancellation = Cancellation());

} // namespace velum::MediaValidator

namespace velum::json {

template <>
struct Fields<MediaValidator::Outcome> {
    static constexpr auto list = std::tuple{
        field("state", &MediaValidator::Outcome::state),
        field("note", &MediaValidator::Outcome::note),
        field("media", &MediaValidator::Outcome::media),
    };
};

} // namespace velum::json
