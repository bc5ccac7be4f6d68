#pragma once

// The plan's sections, turned from positions over the whole word stream into
// word ranges per clip and checked against the transcript this build has. A
// section that does not fit is dropped with a note for the developer; the
// others stand.

#include "review/Cutlist.h"
#include "stages/C1Plan.h"

#include <QHash>
#include <QString>

#include <optional>
#include <vector>

namespace velum::PlanSections {

struct Resolved {
    // Word indices of one clip that the section covers.
    struct Span {
        QString clip;
        IndexRange words;

        friend bool operator==(const Span &, const Span &) = default;
    };

    QString name;
    std::optional<QString> about;
    int order = 0; // the section's index in the plan
    std::vector<Span> spans;

    friend bool operator==(const Resolved &, const Resolved &) = default;
};

// `counts`: each clip's number of words in this build. Notes on what was
// dropped are appended to `notes`.
std::vector<Resolved> resolve(const C1Plan &plan, const QHash<QString, int> &counts, std::vector<QString> &notes);

} // namespace velum::PlanSections
