#pragma once

// "c0_probe.json": what the local probe found out about each file of a
// project. Made on this machine; every later stage starts from it.

#include "model/Json.h"
#include "model/Project.h"
#include "stages/Extraction.h"

#include <QDateTime>
#include <QString>

#include <optional>
#include <vector>

namespace velum {

struct C0Probe {
    // The schema this build writes, and the only one it reads.
    static constexpr int currentSchemaVersion = 2;

    struct Clip {
        QString clipId;   // stage identifier of the clip
        QString filename; // display name
        QString path;     // file path on this machine, used to find the media
        ProjectFileRole role = ProjectFileRole::aRoll;
        ProjectFileState state = ProjectFileState::pending;
        std::optional<QString> note; // validation note
        std::optional<ClipMedia> media;

        friend bool operator==(const Clip &, const Clip &) = default;
    };

    int schemaVersion = currentSchemaVersion;
    QString projectId;
    QDateTime createdAt;
    std::vector<Clip> clips;
    analysis::Extraction extraction;

    friend bool operator==(const C0Probe &, const C0Probe &) = default;

    // The first clip with this identifier, pointing into this document.
    const Clip *clip(const QString &id) const &;
    const Clip *clip(const QString &id) const && = delete;

    // The clips whose state is not `failed`, in document order. All later
    // local stages work on these.
    std::vector<Clip> usableClips() const;
};

} // namespace velum

namespace velum::json {

template <>
struct Fields<C0Probe::Clip> {
    static constexpr auto list = std::tuple{
        field("clipId", &C0Probe::Clip::clipId),
        field("filename", &C0Probe::Clip::filename),
        field("path", &C0Probe::Clip::path),
        field("role", &C0Probe::Clip::role),
        field("state", &C0Probe::Clip::state),
        field("note", &C0Probe::Clip::note),
        field("media", &C0Probe::Clip::media),
    };
};

template <>
struct Fields<C0Probe> {
    static constexpr auto list = std::tuple{
        field("schemaVersion", &C0Probe::schemaVersion),
        field("projectId", &C0Probe::projectId),
        field("createdAt", &C0Probe::createdAt),
        field("clips", &C0Probe::clips),
        field("extraction", &C0Probe::extraction),
    };
};

} // namespace velum::json
