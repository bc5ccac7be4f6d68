#pragma once

// The review model of a project folder as the review opens it: the bundle
// built from the stage documents, then the stored cuts and restores laid
// over its transcript. Shared by the commands that start from the review.

#include "review/ReviewBundle.h"

#include <QString>

#include <optional>
#include <vector>

namespace velum::cli {

struct ReviewModel {
    ProcessPipeline::ReviewBundle bundle;
    Transcript transcript; // the bundle's transcript with the stored edits applied
    std::vector<QString> applyNotes; // what of the stored edits did not apply
};

// Builds the model. The bundle's edit and plan notes and then the notes of
// applying the edits go to standard output, one line each, as they arise. No
// value when there is nothing to review. Throws what the bundle throws.
std::optional<ReviewModel> loadReviewModel(const QString &folder);

} // namespace velum::cli
