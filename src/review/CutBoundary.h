#pragma once

// Cuts and kept stretches as the user sees them on the timeline, the word
// edges at their ends, and how far each edge may be dragged. A word has two
// edges: `in` is its localStart, `out` its localEnd. Times are compared with
// a tolerance of a millisecond, and no edge may leave a word shorter than
// ten milliseconds.
//
// Every function is one pass over the segments or words; they run per
// gesture and per paint, hold no state, and allocate only their result.

#include "model/Json.h"
#include "review/ClosedRange.h"
#include "review/ReviewEdits.h"
#include "review/Transcript.h"

#include <QString>
#include <QUuid>

#include <optional>
#include <vector>

namespace velum {

namespace CutBoundary {

// Two times closer than this are the same time.
inline constexpr double toleranceS = 0.001;
// The shortest a word may become by moving one of its edges.
inline constexpr double minimumWordS = 0.01;

// A stretch of the project timeline, in seconds.
struct Span {
    double start = 0;
    double end = 0;

    friend bool operator==(const Span &, const Span &) = default;
};

enum class Side { in, out };

// One word edge, by its identity in this session and by its address in the
// stored edits.
struct Anchor {
    QUuid wordID;
    QString clip;
    int clipIndex = 0;
    ReviewEdits::BoundaryOverride::Edge edge = ReviewEdits::BoundaryOverride::Edge::in;

    friend bool operator==(const Anchor &, const Anchor &) = default;
};

// The word edges at the two ends of a removed span: the out edge of the kept
// word before it and the in edge of the kept word after it.
struct Anchors {
    std::optional<Anchor> incoming;
    std::optional<Anchor> outgoing;

    friend bool operator==(const Anchors &, const Anchors &) = default;
};

// The word edges at the two ends of a kept stretch.
struct SegmentAnchors {
    std::optional<Anchor> leading;
    std::optional<Anchor> trailing;

    friend bool operator==(const SegmentAnchors &, const SegmentAnchors &) = default;
};

// The segments as the user sees them: hidden trims folded into the kept
// stretch before them, and kept stretches of one source merged.
std::vector<TranscriptSegment> presentationSegments(const std::vector<TranscriptSegment> &segments);

// Whatever lies between kept stretches on 0...duration, including stretches
// with no words at all.
std::vector<Span> removedSpans(const std::vector<TranscriptSegment> &segments, double duration);

// The complement of `removedSpans` in 0...duration.
std::vector<Span> keptSegments(const std::vector<TranscriptSegment> &segments, double duration);

// The timeline end of word `index` including the hidden trims after it, held
// before a removed word of the same source. 0 for an index out of bounds.
double foldedEnd(int index, const std::vector<TranscriptWord> &words);

// The word edges a removed span is tied to; `words` are all the words of the
// transcript. A side that does not meet a word edge exactly has no anchor.
Anchors anchors(const Span &span, const std::vector<TranscriptWord> &words);

// The word edges at the ends of a kept stretch; `words` as for `anchors`.
SegmentAnchors segmentAnchors(const Span &span, const std::vector<TranscriptWord> &words);

// Where one edge of word `wordIndex` of a clip (`words`: that clip's words in
// cut-list order) may go, in clip seconds: it may reclaim the removed words
// beside it up to the next kept word. Without a clip duration an out edge of
// the last word may go anywhere. No value for an index out of bounds or a
// word too short to have two edges.
std::optional<ClosedRange> legalRange(ReviewEdits::BoundaryOverride::Edge edge, int wordIndex,
                                      const std::vector<TranscriptWord> &words,
                                      std::optional<double> clipDurationS = std::nullopt);

} // namespace CutBoundary

// One drag of the in or out point of a cut or of a kept segment.
struct CutAdjustSession {
    struct Handle {
        CutBoundary::Anchor anchor;
        double originalSeconds = 0;           // where the edge was when the session began
        std::optional<double> overrideAtStart; // the override in force then, for undo

        friend bool operator==(const Handle &, const Handle &) = default;
    };

    CutBoundary::Span segment;      // the stretch being adjusted
    CutBoundary::Span resizeSpace;  // how far its ends may go
    std::optional<Handle> inHandle; // the start handle, if it has a word edge
    std::optional<Handle> outHandle;
    CutBoundary::Side active = CutBoundary::Side::in;
    bool restoreShowsCuts = false; // the show-cuts view to go back to at the end
    bool isCut = false;            // a cut, not a kept segment

    friend bool operator==(const CutAdjustSession &, const CutAdjustSession &) = default;

    // The handle of one side, if that side has a word edge.
    const std::optional<Handle> &handle(CutBoundary::Side side) const
    {
        return side == CutBoundary::Side::in ? inHandle : outHandle;
    }
    std::optional<Handle> &handle(CutBoundary::Side side)
    {
        return side == CutBoundary::Side::in ? inHandle : outHandle;
    }
};

} // namespace velum

namespace velum::json {

template <>
struct EnumTexts<CutBoundary::Side> {
    static constexpr std::array values{
        std::pair{CutBoundary::Side::in, "in"},
        std::pair{CutBoundary::Side::out, "out"},
    };
};

} // namespace velum::json
