#pragma once

// Where one clip's stage documents become one ordered list: every word of the
// clip and every token between words, each with the clip times it plays for
// and the reason, if any, that it is removed. The service decides what goes;
// this decides how its decisions meet and where each kept word starts and
// stops, giving a kept word beside a removal some air (a seam).

#include "model/IndexRange.h"
#include "model/Project.h"
#include "stages/C1Transcript.h"
#include "stages/C3Cuts.h"
#include "stages/C3Seams.h"

#include <optional>
#include <stdexcept>
#include <utility>
#include <vector>

namespace velum {


// A stage document names a range that cannot exist (its lower bound above its
// upper bound once clamped to the words). The service never writes one.
class BrokenDocumentError : public std::logic_error {
public:
    using std::logic_error::logic_error;
};

namespace Cutlist {

struct Entry {
    QString text;
    double start = 0;    // seconds in the clip, after all adjustment
    double end = 0;
    double rawStart = 0; // as delivered
    double rawEnd = 0;
    std::optional<int> wordIndex; // none marks a token
    std::optional<CutReason> reason;
    bool isPause = false;
    bool isKeptTic = false;
    bool isHiddenTrim = false;

    friend bool operator==(const Entry &, const Entry &) = default;

    // "…", "···" and "...": a token with one of these texts is pause-like.
    static bool isSilenceGlyph(const QString &text);
};

inline const QString pauseGlyph = QStringLiteral("…");
inline const QString hiddenTrimGlyph = QStringLiteral("···");

// Seam air used when there is no readable cleanup document.
inline constexpr double defaultSeamS = 0.15;

using Reasons = std::vector<std::optional<CutReason>>;

// One reason per word: manual before retake before off-script before filler
// before island. Throws BrokenDocumentError for a reversed range.
Reasons reasons(const C1Transcript::Clip &clip, const std::vector<IndexRange> &retakes,
                const std::vector<IndexRange> &userCuts, const C3Cuts::Clip *cleanup);

// The (start, end) each word plays for once seams are added.
std::vector<std::pair<double, double>> seamBounds(const std::vector<TimedWord> &words, const Reasons &reasons,
                                                  double seamS, const C3Seams::Clip *seams);

// The whole list. An absent `cleanup` counts as all its lists empty.
std::vector<Entry> entries(const C1Transcript::Clip &clip, const std::vector<IndexRange> &retakes,
                           const std::vector<IndexRange> &userCuts, const C3Cuts::Clip *cleanup, double seamS,
                           const C3Seams::Clip *seams);

// Steps of `entries`, exposed for their own tests.
void clipToRemovals(std::vector<Entry> &entries);
void closingGaps(std::vector<Entry> &entries);

} // namespace Cutlist
} // namespace velum
