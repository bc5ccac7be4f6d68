#pragma once

// Writing a plan's Final Cut timeline to disk and checking the file as it
// landed there.

#include "export/ExportPlan.h"
#include "export/FCPXMLValidation.h"

#include <QUrl>

namespace velum::ProcessPipeline {

struct ExportResult {
    QUrl url; // the written file
    FCPXMLValidation::Report report;
    ExportPlan plan;

    friend bool operator==(const ExportResult &, const ExportResult &) = default;
};

// Creates the destination's folder with its parents, writes the plan's
// FCPXML document there atomically, reads the file back as UTF-8 and
// validates that text against the plan. A file that cannot be read back, or
// is not valid UTF-8, is validated as empty text and so fails "well-formed
// XML". The file stays on disk whatever the report says. Throws
// FileWriteError (model/Json.h) when the destination is not a local file,
// its folder cannot be made or the file cannot be written. Blocks for the
// xmllint run of the DTD check.
ExportResult write(const ExportPlan &plan, const QUrl &destination);

} // namespace velum::ProcessPipeline
