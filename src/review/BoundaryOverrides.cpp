// Stored word-edge moves, laid back over one clip's words when the review is
// built.

#include "review/CutBoundary.h"
#include "review/ReviewEdits.h"

#include <QSet>

#include <algorithm>
#include <cmath>

namespace velum {

namespace {

using Override = ReviewEdits::BoundaryOverride;

QString dropNote(const Override &stored, const QString &cause)
{
    return QStringLiteral("review_edits: boundary ") + stored.clip + QLatin1Char('[')
        + QString::number(stored.wordIndex) + QStringLiteral("].") + json::text(stored.edge)
        + QStringLiteral(" dropped — ") + cause;
}

// Why a stored move cannot be applied to these words, if it cannot.
std::optional<QString> refusal(const Override &stored, const std::vector<TranscriptWord> &words)
{
    if (stored.wordIndex < 0 || static_cast<std::size_t>(stored.wordIndex) >= words.size())
        return QStringLiteral("no word at that index in this build");
    if (!std::isfinite(stored.seconds))
        return QString::number(stored.seconds) + QStringLiteral(" is not a time");
    // Stored moves are checked against the words alone: the clip's length
    // does not limit them.
    const auto range = CutBoundary::legalRange(stored.edge, stored.wordIndex, words);
    if (!range)
        return QStringLiteral("the word is too short to have two edges");
    if (!range->contains(stored.seconds))
        return QString::asprintf("%.3f is outside [%.3f, %.3f]", stored.seconds, range->lower, range->upper);
    return std::nullopt;
}

} // namespace

ReviewEdits::BoundaryApplication ReviewEdits::applyBoundaryOverrides(const std::vector<BoundaryOverride> &overrides,
                                                                     std::vector<TranscriptWord> &words,
                                                                     const QString &clip, double timelineStart)
{
    std::vector<BoundaryOverride> mine;
    std::copy_if(overrides.begin(), overrides.end(), std::back_inserter(mine),
                 [&](const BoundaryOverride &o) { return o.clip == clip; });
    // By position, then "in" before "out": an out edge is checked against
    // the in edge already moved.
    std::stable_sort(mine.begin(), mine.end(), [](const BoundaryOverride &a, const BoundaryOverride &b) {
        if (a.wordIndex != b.wordIndex)
            return a.wordIndex < b.wordIndex;
        return json::text(a.edge) < json::text(b.edge);
    });

    BoundaryApplication application;
    QSet<BoundaryOverride::Key> seen;
    for (const auto &stored : mine) {
        const auto key = stored.key();
        if (seen.contains(key)) {
            application.notes.push_back(dropNote(stored, QStringLiteral("duplicate record")));
            continue;
        }
        seen.insert(key);
        if (const auto cause = refusal(stored, words)) {
            application.notes.push_back(dropNote(stored, *cause));
            continue;
        }

        auto &word = words[static_cast<std::size_t>(stored.wordIndex)];
        // A second edge of the same word replaces the entry, so the stored
        // bounds of a word with both edges moved hold its moved in edge.
        application.pristine.insert(word.id, WordBounds{word.start, word.end, word.localStart, word.localEnd});
        if (stored.edge == BoundaryOverride::Edge::in) {
            word.localStart = stored.seconds;
            word.start = timelineStart + stored.seconds;
        } else {
            word.localEnd = stored.seconds;
            word.end = timelineStart + stored.seconds;
        }
        application.applied.push_back(stored);
    }
    return application;
}

} // namespace velum
