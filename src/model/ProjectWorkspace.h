#pragma once

// Where a project's folder is. Everything the system derives about a project
// (stage documents, the user's edits, logs, caches) lives in one flat folder
// named after the project's UUID:
//
//     root / "6BA7B810-9DAD-11D1-80B4-00C04FD430C8" / "c3_cuts.json"
//
// Source footage is never copied here, and the project's record itself lives
// in the state file, not in this folder.

#include "model/Json.h"

#include <QDateTime>
#include <QLatin1StringView>
#include <QString>
#include <QUrl>
#include <QUuid>

#include <array>
#include <optional>
#include <stdexcept>

namespace velum {

// The known names in a project's folder.
namespace artifact {
inline constexpr QLatin1StringView c0Probe{"c0_probe.json"};
inline constexpr QLatin1StringView c05Sync{"c05_sync.json"};
inline constexpr QLatin1StringView c1Transcript{"c1_transcript.json"};
inline constexpr QLatin1StringView c1Plan{"c1_plan.json"};
inline constexpr QLatin1StringView c15Order{"c15_order.json"};
inline constexpr QLatin1StringView c2Takes{"c2_takes.json"};
inline constexpr QLatin1StringView c3Cuts{"c3_cuts.json"};
inline constexpr QLatin1StringView c3Seams{"c3_seams.json"};
inline constexpr QLatin1StringView c4Suggestions{"c4_suggestions.json"};
inline constexpr QLatin1StringView artifactsJob{"artifacts_job.json"};
inline constexpr QLatin1StringView reviewEdits{"review_edits.json"};
inline constexpr QLatin1StringView suggestionDecisions{"suggestion_decisions.json"};
inline constexpr QLatin1StringView events{"events.jsonl"};
inline constexpr QLatin1StringView waveform{"waveform.json"};
inline constexpr QLatin1StringView cloudJob{"cloud_job.json"};
inline constexpr QLatin1StringView pause{"pause.json"};

inline constexpr std::array all{
    c0Probe, c05Sync, c1Transcript, c1Plan, c15Order, c2Takes, c3Cuts, c3Seams,
    c4Suggestions, artifactsJob, reviewEdits, suggestionDecisions, events, waveform, cloudJob, pause,
};
} // namespace artifact

// The store root of the account in use (AccountPartition::storeRoot()):
// base / "accounts" / <account>, or base / "accounts" / "_none" while no
// account is active.
QString defaultStoreRoot();

// A project's folder could not be made. The text is the file system's own.
class WorkspaceError : public std::runtime_error {
public:
    WorkspaceError(const QString &path, const QString &reason);
    QString path() const { return m_path; }
    QString reason() const { return m_reason; }

private:
    QString m_path;
    QString m_reason;
};

struct ProjectWorkspace {
    // With a value, the folder that holds the project folders; without one,
    // "projects" inside the store root.
    std::optional<QUrl> overrideRoot;

    friend bool operator==(const ProjectWorkspace &, const ProjectWorkspace &) = default;

    // The folder that holds all project folders, as a file URL.
    QUrl root() const;
    // The folder of one project. Nothing on disk is touched.
    QUrl folderURL(const QUuid &id) const;
    // A file in the project's folder. Nothing on disk is touched and the
    // folder need not exist.
    QUrl artifactURL(const QString &name, const QUuid &id) const;

    // The same places as local paths.
    QString folderPath(const QUuid &id) const;
    QString artifactPath(const QString &name, const QUuid &id) const;

    // Makes the project's folder with all missing parents and returns it. An
    // existing folder is no error. Throws WorkspaceError.
    QUrl create(const QUuid &id) const;
    // Removes the project's folder with everything in it. Any error, such as
    // a folder that was never made, is ignored.
    void remove(const QUuid &id) const noexcept;

    // The folder name of a project: the UUID in canonical upper-case text.
    static QString folderName(const QUuid &id);
};

// The document in "artifacts_job.json": which cloud job wrote the stage
// documents now in the folder.
struct ArtifactsJob {
    int schema = 1;
    QString jobId;
    QDateTime completedAt;

    friend bool operator==(const ArtifactsJob &, const ArtifactsJob &) = default;
};

} // namespace velum

namespace velum::ProcessPipeline {

// Records which job's artifacts are on disk; called once all of a job's
// artifacts have been written. Makes the folder when it is missing. Never
// throws: an unstamped folder only means that stored edits cannot be told
// apart by job.
void stampArtifactsJob(const QString &jobId, const QUuid &id, const ProjectWorkspace &workspace) noexcept;

} // namespace velum::ProcessPipeline

namespace velum::json {

template <>
struct Fields<ArtifactsJob> {
    static constexpr auto list = std::tuple{
        field("schema", &ArtifactsJob::schema),
        field("jobId", &ArtifactsJob::jobId),
        field("completedAt", &ArtifactsJob::completedAt),
    };
};

} // namespace velum::json
