#pragma once

// Reading the stage documents of a project's folder, with the schema rules
// applied. A file that is missing, unreadable or undecodable gives no value,
// silently, and so does a file whose schema this build does not read:
//
//  - "c0_probe.json" only with schema 2;
//  - "c2_takes.json" and "c3_seams.json" only with schema 2;
//  - "c05_sync.json", "c1_transcript.json", "c15_order.json", "c3_cuts.json"
//    and "c4_suggestions.json" whatever their schema;
//  - "c1_plan.json" as it decodes: the plan's own schema rule is applied, with
//    a note the user sees, where its sections are resolved.
//
// `folder` is the project's folder (`ProjectWorkspace::folderPath`).

#include "stages/C05Sync.h"
#include "stages/C0Probe.h"
#include "stages/C1Plan.h"
#include "stages/C1Transcript.h"
#include "stages/C2Takes.h"
#include "stages/C3Cuts.h"
#include "stages/C3Seams.h"
#include "stages/C4Suggestions.h"
#include "stages/ClipOrder.h"

#include <QString>

#include <optional>

namespace velum::StageDocuments {

std::optional<C0Probe> loadC0Probe(const QString &folder);
std::optional<C05Sync> loadC05Sync(const QString &folder);
std::optional<C1Transcript> loadC1Transcript(const QString &folder);
std::optional<C1Plan> loadC1Plan(const QString &folder);
std::optional<ClipOrder> loadClipOrder(const QString &folder);
std::optional<C2Takes> loadC2Takes(const QString &folder);
std::optional<C3Cuts> loadC3Cuts(const QString &folder);
std::optional<C3Seams> loadC3Seams(const QString &folder);
std::optional<C4Suggestions> loadC4Suggestions(const QString &folder);

} // namespace velum::StageDocuments
