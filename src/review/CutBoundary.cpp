#include "review/CutBoundary.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace velum::CutBoundary {

namespace {

using Edge = ReviewEdits::BoundaryOverride::Edge;

// A word that can carry an anchor: kept, and with a place in its clip's cut
// list (a wordless cut's token has none).
bool anchorable(const TranscriptWord &word)
{
    return !word.cutReason && word.clipIndex >= 0;
}

Anchor anchorOf(const TranscriptWord &word, Edge edge)
{
    return Anchor{word.id, word.clipId, word.clipIndex, edge};
}

bool near(double a, double b)
{
    return std::abs(a - b) <= toleranceS;
}

} // namespace

std::vector<TranscriptSegment> presentationSegments(const std::vector<TranscriptSegment> &segments)
{
    std::vector<TranscriptSegment> shown;
    shown.reserve(segments.size());
    for (std::size_t i = 0; i < segments.size(); ++i) {
        const auto &segment = segments[i];
        if (!segment.isHiddenTrim) {
            if (!shown.empty() && !shown.back().cutReason && !segment.cutReason
                && shown.back().sourceID == segment.sourceID) {
                auto &last = shown.back();
                last.end = std::max(last.end, segment.end);
                last.localEnd = std::max(last.localEnd, segment.localEnd);
                last.wordBacked = last.wordBacked || segment.wordBacked;
            } else {
                shown.push_back(segment);
            }
            continue;
        }

        // A hidden trim belongs to the kept stretch of its own source right
        // before it; anywhere else it is not shown at all.
        if (shown.empty() || shown.back().cutReason || shown.back().sourceID != segment.sourceID)
            continue;
        double end = segment.end;
        double localEnd = segment.localEnd;
        std::size_t next = i + 1;
        while (next < segments.size() && segments[next].isHiddenTrim)
            ++next;
        if (next < segments.size() && segments[next].cutReason && segments[next].start < end) {
            end = segments[next].start;
            localEnd = segments[next].localStart;
        }
        auto &last = shown.back();
        last.end = std::max(last.end, end);
        last.localEnd = std::max(last.localEnd, localEnd);
    }
    return shown;
}

std::vector<Span> removedSpans(const std::vector<TranscriptSegment> &segments, double duration)
{
    std::vector<Span> removed;
    double cursor = 0;
    for (const auto &segment : presentationSegments(segments)) {
        if (segment.cutReason)
            continue;
        if (segment.start - cursor > toleranceS)
            removed.push_back({cursor, segment.start});
        cursor = std::max(cursor, segment.end);
    }
    if (duration - cursor > toleranceS)
        removed.push_back({cursor, duration});
    return removed;
}

std::vector<Span> keptSegments(const std::vector<TranscriptSegment> &segments, double duration)
{
    std::vector<Span> kept;
    double cursor = 0;
    for (const auto &span : removedSpans(segments, duration)) {
        if (span.start - cursor > toleranceS)
            kept.push_back({cursor, span.start});
        cursor = span.end;
    }
    if (duration - cursor > toleranceS)
        kept.push_back({cursor, duration});
    return kept;
}

double foldedEnd(int index, const std::vector<TranscriptWord> &words)
{
    if (index < 0 || static_cast<std::size_t>(index) >= words.size())
        return 0;
    const auto &word = words[static_cast<std::size_t>(index)];
    double end = word.end;
    std::size_t next = static_cast<std::size_t>(index) + 1;
    while (next < words.size() && words[next].isHiddenTrim && words[next].sourceID == word.sourceID) {
        end = std::max(end, words[next].end);
        ++next;
    }
    if (next < words.size() && words[next].sourceID == word.sourceID && words[next].cutReason)
        return std::min(end, words[next].start);
    return end;
}

Anchors anchors(const Span &span, const std::vector<TranscriptWord> &words)
{
    // The kept word reaching furthest among those that start by the span's
    // start; the first such word wins a tie.
    std::optional<std::size_t> before;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const auto &word = words[i];
        if (!anchorable(word) || !(word.start <= span.start + toleranceS))
            continue;
        if (!before || word.end > words[*before].end)
            before = i;
    }
    // The earliest starting kept word among the others that end by the
    // span's end.
    std::optional<std::size_t> after;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const auto &word = words[i];
        if (!anchorable(word) || i == before || !(word.end >= span.end - toleranceS))
            continue;
        if (!after || word.start < words[*after].start)
            after = i;
    }

    Anchors result;
    if (before && near(foldedEnd(static_cast<int>(*before), words), span.start))
        result.incoming = anchorOf(words[*before], Edge::out);
    if (after && near(words[*after].start, span.end))
        result.outgoing = anchorOf(words[*after], Edge::in);
    return result;
}

SegmentAnchors segmentAnchors(const Span &span, const std::vector<TranscriptWord> &words)
{
    std::optional<std::size_t> leading;
    std::optional<std::size_t> trailing;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const auto &word = words[i];
        if (!anchorable(word) || !(span.start + toleranceS < word.end && word.start < span.end - toleranceS))
            continue;
        if (!leading || word.start < words[*leading].start)
            leading = i;
        if (!trailing || word.end > words[*trailing].end)
            trailing = i;
    }

    SegmentAnchors result;
    if (leading)
        result.leading = anchorOf(words[*leading], Edge::in);
    if (trailing && near(foldedEnd(static_cast<int>(*trailing), words), span.end))
        result.trailing = anchorOf(words[*trailing], Edge::out);
    return result;
}

std::optional<ClosedRange> legalRange(Edge edge, int wordIndex, const std::vector<TranscriptWord> &words,
                                      std::optional<double> clipDurationS)
{
    if (wordIndex < 0 || static_cast<std::size_t>(wordIndex) >= words.size())
        return std::nullopt;
    const auto i = static_cast<std::size_t>(wordIndex);
    const auto &word = words[i];

    ClosedRange range;
    if (edge == Edge::out) {
        range.lower = word.localStart + minimumWordS;
        double reach = word.localEnd;
        std::optional<double> wall;
        for (std::size_t next = i + 1; next < words.size(); ++next) {
            const auto &other = words[next];
            if (!other.cutReason) {
                wall = std::max(reach, other.localStart);
                break;
            }
            reach = std::max(reach, other.localEnd);
        }
        if (wall)
            range.upper = *wall;
        else if (clipDurationS)
            range.upper = std::max(reach, *clipDurationS);
        else
            range.upper = std::numeric_limits<double>::max();
    } else {
        range.upper = word.localEnd - minimumWordS;
        double reach = word.localStart;
        range.lower = 0;
        for (std::size_t previous = i; previous-- > 0;) {
            const auto &other = words[previous];
            if (!other.cutReason) {
                range.lower = std::min(reach, other.localEnd);
                break;
            }
            reach = std::min(reach, other.localStart);
        }
    }

    // A limit that is not a number (a broken time on a word) bounds nothing.
    if (std::isnan(range.lower) || std::isnan(range.upper) || range.lower > range.upper)
        return std::nullopt;
    return range;
}

} // namespace velum::CutBoundary
