#pragma once

// Stage c05: each A-roll clip placed against the external audio by its
// loudness envelope, the clips put in shooting order, and "c05_sync.json"
// written.

#include "model/ProjectWorkspace.h"
#include "stages/C05Sync.h"
#include "stages/C0Probe.h"
#include "tools/Cancellation.h"
#include "tools/ProcessRunner.h"

#include <QCoroTask>
#include <QUuid>

namespace velum::ProcessPipeline {

// Every problem with the sound becomes a note on the clips; only writing the
// document throws, and CancelledError.
QCoro::Task<C05Sync> runC05(QUuid projectID, C0Probe probe, ProjectWorkspace workspace,
                            ProcessRunner runner = ProcessRunner(), Cancellation cancellation = Cancellation());

} // namespace velum::ProcessPipeline
