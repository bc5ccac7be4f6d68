#pragma once

// Removing sound that has no word in it: a breath, a chair, a cough between
// two kept words. A "[user cut]" token with reason `manual` is put into the
// gap, and the two neighbouring words are trimmed back to its edges. Where
// such a token may go comes from the words' delivered times; how wide it is
// comes from the clip's audio envelope (levels at `rateHz` samples a second,
// in clip time).

#include "review/ClosedRange.h"
#include "review/ReviewEdits.h"
#include "review/Transcript.h"

#include <QHash>
#include <QString>
#include <QUuid>

#include <optional>
#include <variant>
#include <vector>

namespace velum::WordlessCuts {

// The shortest gap that holds air.
inline constexpr double minimumGapS = 0.1;
// What is left of speech at each end of a gap.
inline constexpr double marginS = 0.02;
// The narrowest cut that may be made or restored.
inline constexpr double minimumCutS = 0.06;
// How far around a gap speech is listened to.
inline constexpr double neighbourhoodS = 2.0;
// Below this share of the speech level a sample counts as quiet.
inline constexpr double quietShare = 0.25;
// Slack for the binary rounding of decimal times: a gap written as 0.1 s may
// come out a hair shorter once subtracted.
inline constexpr double roundingSlackS = 1e-9;

inline const QString tokenText = QStringLiteral("[user cut]");

// A gap between a word and its neighbour, in clip seconds. `neighbourID` is
// the word on the other side of the gap.
struct Air {
    double start = 0;
    double end = 0;
    QUuid neighbourID;

    friend bool operator==(const Air &, const Air &) = default;
};

// Nothing was recorded on that side of the word: it is the first or last of
// its clip.
struct ClipEdge {
    friend bool operator==(const ClipEdge &, const ClipEdge &) = default;
};
// The neighbour is removed already; the cut there can be resized instead.
struct AlreadyCut {
    friend bool operator==(const AlreadyCut &, const AlreadyCut &) = default;
};
// The gap is too short to hold anything.
struct NoAir {
    friend bool operator==(const NoAir &, const NoAir &) = default;
};

using Verdict = std::variant<Air, ClipEdge, AlreadyCut, NoAir>;

// What the user is told when a gap cannot be cut; no value for air.
std::optional<QString> message(const Verdict &verdict);

// One wordless cut put into the words: the token, the cut it stands for, and
// the two neighbours' bounds from before it, for undo.
struct Insertion {
    QUuid tokenID;
    WordlessCut cut;
    QHash<QUuid, WordBounds> closed;

    friend bool operator==(const Insertion &, const Insertion &) = default;
};

// The gap before and after the word `id` among one clip's words in order.
Verdict airBefore(const QUuid &id, const std::vector<TranscriptWord> &words);
Verdict airAfter(const QUuid &id, const std::vector<TranscriptWord> &words);

// How loud speech is within two seconds of the gap: the median of the
// words' median levels, 0 with none.
float speechLevel(const Air &air, const std::vector<TranscriptWord> &words, const std::vector<float> &envelope,
                  double rateHz);

// The stretch of the gap that is really free of speech; no value for a gap
// too short to cut. A gap with noise all through it is still cuttable.
std::optional<ClosedRange> extent(const Air &air, const std::vector<float> &envelope, double rateHz,
                                  float speechLevel);

// The token that stands for `cut` in the words, beside `neighbour`, with a
// new identity.
TranscriptWord token(const WordlessCut &cut, const TranscriptWord &neighbour, double timelineStart);

// Takes every word with identity `id` out of `words` and puts back the
// bounds of the words in `closed`.
void remove(const QUuid &id, std::vector<TranscriptWord> &words, const QHash<QUuid, WordBounds> &closed);

// Puts one clip's saved cuts back into its words (in cut-list order) when the
// review is built, earliest first. A cut that no longer sits in a gap between
// two kept words is skipped with a note and changes nothing.
std::vector<Insertion> restore(std::vector<WordlessCut> cuts, std::vector<TranscriptWord> &words,
                               double timelineStart, std::vector<QString> &notes);

} // namespace velum::WordlessCuts
