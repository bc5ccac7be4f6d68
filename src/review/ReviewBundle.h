#pragma once

// From a project's folder of stage documents to the model the user reviews:
// one transcript over all clips in timeline order, which file plays which
// stretch, and what is needed to restore the user's edits. A pure read: it
// writes nothing, and every identity in its result is new on each run.

#include "model/ProjectWorkspace.h"
#include "review/PlanSections.h"
#include "review/ReviewEdits.h"
#include "review/Transcript.h"
#include "review/WordlessCuts.h"
#include "stages/C05Sync.h"
#include "stages/C0Probe.h"
#include "stages/C1Plan.h"
#include "stages/C1Transcript.h"
#include "stages/C2Takes.h"
#include "stages/C3Cuts.h"
#include "stages/C3Seams.h"
#include "stages/ClipOrder.h"

#include <QHash>
#include <QString>
#include <QUuid>

#include <optional>
#include <vector>

namespace velum::ProcessPipeline {

struct ReviewBundle {
    Transcript transcript; // as delivered, with restored overrides and wordless cuts
    ReviewMedia media;
    std::optional<QString> language;
    ReviewEdits edits; // the stored edits to lay over; only the overrides that took effect
    QHash<QUuid, WordBounds> pristineBounds;
    std::vector<PlanSections::Resolved> sections;
    std::vector<WordlessCuts::Insertion> wordlessTokens;
    std::vector<QString> editNotes;
    // Notes on the plan's sections, printed after the edit notes.
    std::vector<QString> planNotes;
};

// The documents a bundle is built from, read with the schema rules applied.
struct ReviewDocuments {
    C0Probe probe;
    C1Transcript transcript;
    std::optional<C05Sync> sync;
    std::optional<ClipOrder> order;
    std::optional<C2Takes> takes;
    std::optional<C3Cuts> cuts;
    std::optional<C3Seams> seams;
    std::optional<C1Plan> plan;
    std::optional<ReviewEdits> edits;

    // No value when the probe or the transcript is missing or unreadable,
    // or the probe is of another schema: there is nothing to review.
    static std::optional<ReviewDocuments> load(const QString &projectFolder);
};

// Builds the bundle from documents in memory. No value when no clip in the
// timeline order has words. Prints nothing.
std::optional<ReviewBundle> buildReviewBundle(const ReviewDocuments &documents);

// Reads the folder and builds the bundle; writes the edit notes and then the
// plan notes to standard output, one line each.
std::optional<ReviewBundle> reviewBundle(const QString &projectFolder);
std::optional<ReviewBundle> reviewBundle(const ProjectWorkspace &workspace, const QUuid &projectID);

// Words cut into paragraphs that follow the speech; a long run of cuts gets a
// paragraph of its own so that it can be folded away.
std::vector<std::vector<TranscriptWord>> paragraphSlices(const std::vector<TranscriptWord> &words);

} // namespace velum::ProcessPipeline
