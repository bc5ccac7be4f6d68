#include "perception/ProbeStage.h"

#include "model/Json.h"

#include <QFileInfo>

namespace velum::ProcessPipeline {

namespace {

using Signal = analysis::Extraction::Signal;
using Status = analysis::Extraction::Status;

QString localPath(const QUrl &url)
{
    return url.isLocalFile() ? url.toLocalFile() : url.path();
}

} // namespace

ProjectFile withOutcome(ProjectFile file, const MediaValidator::Outcome &outcome)
{
    file.state = outcome.state;
    file.note = outcome.note;
    file.media = outcome.media;
    return file;
}

C0Probe probeDocument(const QUuid &projectID, const std::vector<ProjectFile> &files,
                      const std::vector<MediaValidator::Outcome> &outcomes, const QDateTime &now)
{
    C0Probe probe;
    probe.schemaVersion = C0Probe::currentSchemaVersion;
    probe.projectId = projectID.toString(QUuid::WithoutBraces).toUpper();
    probe.createdAt = now;
    int failedCount = 0;
    for (std::size_t i = 0; i < files.size() && i < outcomes.size(); ++i) {
        const ProjectFile &file = files[i];
        const MediaValidator::Outcome &outcome = outcomes[i];
        const QString path = localPath(file.url);
        const QString filename = QFileInfo(path).fileName();
        if (outcome.state == ProjectFileState::failed)
            ++failedCount;
        probe.clips.push_back(C0Probe::Clip{
            // An unreadable file keeps a stable name in the document.
            .clipId = outcome.media ? outcome.media->clipId : filename,
            .filename = filename,
            .path = path,
            .role = file.role,
            .state = outcome.state,
            .note = outcome.note,
            .media = outcome.media,
        });
    }
    auto &signals = probe.extraction.signals;
    signals[QStringLiteral("probe")] = Signal{
        .tool = QStringLiteral("ffprobe"),
        .version = QStringLiteral("ffmpeg/8.1"),
        .status = failedCount > 0 ? Status::fallback : Status::ok,
        .note = failedCount > 0 ? std::optional(QStringLiteral("%1 clip(s) unreadable").arg(failedCount))
                                : std::nullopt,
    };
    signals[QStringLiteral("clip_id")] = Signal{.tool = QStringLiteral("sha256"), .version = QStringLiteral("sha256/1")};
    signals[QStringLiteral("validation")] =
        Signal{.tool = QStringLiteral("media-validator"), .version = QStringLiteral("media-validator/4")};
    return probe;
}

void write(const C0Probe &probe, const QUuid &projectID, const ProjectWorkspace &workspace)
{
    workspace.create(projectID);
    StageCoder::write(probe, workspace.artifactPath(artifact::c0Probe, projectID));
}

QCoro::Task<C0Result> runC0(QUuid projectID, std::vector<ProjectFile> files, ProjectWorkspace workspace,
                            ProcessRunner runner, Cancellation cancellation)
{
    // Every file at once: a task runs until its first tool is started, so
    // all are under way before the first is awaited. Awaiting them in input
    // order keeps the document in input order whatever finishes first.
    std::vector<QCoro::Task<MediaValidator::Outcome>> validations;
    validations.reserve(files.size());
    for (const ProjectFile &file : files) {
        const std::optional<QString> clipID =
            file.media ? std::optional<QString>(file.media->clipId) : std::nullopt;
        validations.push_back(MediaValidator::validate(file.url, file.role, clipID, runner, cancellation));
    }
    std::vector<MediaValidator::Outcome> outcomes;
    outcomes.reserve(files.size());
    for (auto &validation : validations)
        outcomes.push_back(co_await std::move(validation));

    C0Result result;
    result.document = probeDocument(projectID, files, outcomes, json::nowWholeSeconds());
    for (std::size_t i = 0; i < files.size(); ++i)
        result.files.push_back(withOutcome(files[i], outcomes[i]));
    write(result.document, projectID, workspace);
    co_return result;
}

} // namespace velum::ProcessPipeline
