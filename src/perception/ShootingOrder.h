#pragma once

// The order in which the A-roll clips were shot (later takes tend to be the
// better ones), and the date at the start of a file name.

#include "stages/C05Sync.h"
#include "stages/C0Probe.h"
#include "tools/Cancellation.h"
#include "tools/ProcessRunner.h"

#include <QCoroTask>
#include <QDateTime>
#include <QStringView>

#include <optional>
#include <vector>

namespace velum::ProcessPipeline {

// Sorts the sync rows, stably: synced clips by offset first, then unsynced
// ones by creation time (probed one after another) when both have one, else
// by natural file name order. Sets each `shootingIndex` to the position, and
// the `syncSource` of unsynced rows to `creationTime` or `filename`.
QCoro::Task<std::vector<C05Sync::Clip>> assignShootingOrder(std::vector<C05Sync::Clip> clips, C0Probe probe,
                                                             ProcessRunner runner = ProcessRunner(),
                                                             Cancellation cancellation = Cancellation());

// Natural, case-insensitive order of names, in which "take 2" comes before
// "take 10": negative, 0 or positive.
int naturalCompare(QStringView a, QStringView b);

} // namespace velum::ProcessPipeline

namespace velum::FilenameDate {

// The date a name starts with, "YYYYMMDD" or "YYYY-MM-DD" not followed by a
// digit, as the start of that day in UTC; years 2005 to next year only.
std::optional<QDateTime> publishedAt(QStringView filename);

} // namespace velum::FilenameDate
