#pragma once

// Stage c0: every file of a project judged at once, each file's state, note
// and media updated, and "c0_probe.json" written, which every later stage
// starts from.

#include "model/Project.h"
#include "model/ProjectWorkspace.h"
#include "stages/C0Probe.h"
#include "tools/Cancellation.h"
#include "tools/MediaValidator.h"
#include "tools/ProcessRunner.h"

#include <QCoroTask>
#include <QDateTime>
#include <QUuid>

#include <vector>

namespace velum::ProcessPipeline {

struct C0Result {
    C0Probe document;
    std::vector<ProjectFile> files; // state, note and media updated, in input order

    friend bool operator==(const C0Result &, const C0Result &) = default;
};

// The probe document of files and their outcomes, both in input order:
// schema 2, the project's id in upper case, made `now`, with the three
// extraction signals. Pure; `runC0` and the measurements export share it.
C0Probe probeDocument(const QUuid &projectID, const std::vector<ProjectFile> &files,
                      const std::vector<MediaValidator::Outcome> &outcomes, const QDateTime &now);

// The file with its outcome's state, note and media.
ProjectFile withOutcome(ProjectFile file, const MediaValidator::Outcome &outcome);

// Validates every file at once (an existing clip id is kept, not hashed
// again), writes the document and returns it with the updated files. A file
// that cannot be read becomes a failed clip; only writing the document
// throws, and CancelledError.
QCoro::Task<C0Result> runC0(QUuid projectID, std::vector<ProjectFile> files, ProjectWorkspace workspace,
                            ProcessRunner runner = ProcessRunner(), Cancellation cancellation = Cancellation());

// Makes the project's folders and writes "c0_probe.json" atomically.
void write(const C0Probe &probe, const QUuid &projectID, const ProjectWorkspace &workspace);

} // namespace velum::ProcessPipeline
