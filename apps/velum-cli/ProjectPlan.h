#pragma once

// The export plan of a finished project folder, made exactly as an export
// from the review makes it: the review model with the stored edits laid over,
// the folder's "c0_probe.json" and "c05_sync.json", then the planner. Shared
// by the commands that export or check an export.

#include "export/ExportPlan.h"

#include <QString>

#include <optional>

namespace velum::cli {

// The last component of the folder's path, "." and ".." resolved: the
// project's name when none is given.
QString folderName(const QString &folder);

// The plan, named `name` or else after the folder; its kept-only copy when
// `keptOnly`. No value when there is nothing to review or no probe document.
// Notes of the review model go to standard output as they arise. Throws what
// the review model throws.
std::optional<ExportPlan> planProject(const QString &folder, const std::optional<QString> &name, bool keptOnly);

} // namespace velum::cli
