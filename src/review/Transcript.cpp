#include "review/Transcript.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace velum {

KeptRanges KeptRanges::fromSegments(const std::vector<TranscriptSegment> &segments, double tolerance)
{
    struct Range {
        double start, end;
    };
    std::vector<Range> merged;
    bool decisionPassed = false;
    for (const auto &segment : segments) {
        if (!segment.cutReason) {
            if (!merged.empty() && !decisionPassed && segment.start - merged.back().end <= tolerance)
                merged.back().end = std::max(merged.back().end, segment.end);
            else
                merged.push_back({segment.start, segment.end});
            decisionPassed = false;
        } else if (*segment.cutReason == CutReason::offScript || *segment.cutReason == CutReason::manual) {
            decisionPassed = true;
        }
    }
    KeptRanges ranges;
    ranges.spans.reserve(merged.size());
    double kept = 0;
    for (const auto &r : merged) {
        ranges.spans.push_back({r.start, r.end, kept});
        kept += std::max(r.end - r.start, 0.0);
    }
    return ranges;
}

double KeptRanges::keptTime(double t) const
{
    if (spans.empty())
        return 0;
    for (const auto &span : spans) {
        if (t < span.timelineStart)
            return span.keptStart;
        if (t <= span.timelineEnd)
            return span.keptStart + (t - span.timelineStart);
    }
    const auto &last = spans.back();
    return last.keptStart + std::max(last.timelineEnd - last.timelineStart, 0.0);
}

double KeptRanges::timelineTime(double k) const
{
    if (spans.empty())
        return 0;
    for (const auto &span : spans) {
        if (k < span.keptStart + std::max(span.timelineEnd - span.timelineStart, 0.0))
            return span.timelineStart + std::max(k - span.keptStart, 0.0);
    }
    return spans.back().timelineEnd;
}

QHash<QString, double> ReviewMedia::clipStarts() const
{
    QHash<QString, double> starts;
    for (const auto &clip : clips)
        starts.insert(clip.clipId, clip.timelineStartS);
    return starts;
}

Transcript::Transcript(std::vector<SourceFile> sources, std::vector<TranscriptParagraph> paragraphs)
    : m_sources(std::move(sources))
    , m_paragraphs(std::move(paragraphs))
{
    rebuild();
}

void Transcript::rebuild()
{
    std::size_t total = 0;
    for (const auto &p : m_paragraphs)
        total += p.words.size();

    m_words.clear();
    m_words.reserve(total);
    m_locations.clear();
    m_locations.reserve(static_cast<qsizetype>(total));
    m_segments.clear();
    m_showingCuts.clear();
    m_hidingCuts.clear();

    for (int pi = 0; pi < static_cast<int>(m_paragraphs.size()); ++pi) {
        const auto &paragraph = m_paragraphs[static_cast<std::size_t>(pi)];
        bool anyShown = false;
        bool anyShownKept = false;
        for (int wi = 0; wi < static_cast<int>(paragraph.words.size()); ++wi) {
            const auto &word = paragraph.words[static_cast<std::size_t>(wi)];
            m_locations.insert(word.id, Location{pi, wi, static_cast<int>(m_words.size())});
            m_words.push_back(word);

            if (!word.isHiddenTrim) {
                anyShown = true;
                if (!word.cutReason)
                    anyShownKept = true;
            }

            const bool backed = !word.isPauseToken && !word.isHiddenTrim;
            if (!m_segments.empty() && m_segments.back().cutReason == word.cutReason
                && m_segments.back().sourceID == word.sourceID) {
                auto &segment = m_segments.back();
                segment.end = std::max(segment.end, word.end);
                segment.localEnd = std::max(segment.localEnd, word.localEnd);
                segment.isHiddenTrim = segment.isHiddenTrim && word.isHiddenTrim;
                segment.wordBacked = segment.wordBacked || backed;
            } else {
                m_segments.push_back(TranscriptSegment{word.start, word.end, word.localStart, word.localEnd,
                                                       word.sourceID, word.cutReason, word.isHiddenTrim, backed});
            }
        }
        if (anyShown)
            m_showingCuts.push_back(pi);
        if (anyShownKept)
            m_hidingCuts.push_back(pi);
    }

    ++m_revision;
    m_duration = m_words.empty() ? 0 : m_words.back().end;
    m_cutCount = 0;
    m_keptDuration = 0;
    for (const auto &segment : m_segments) {
        if (segment.cutReason && !segment.isHiddenTrim)
            ++m_cutCount;
        if (!segment.cutReason)
            m_keptDuration += segment.end - segment.start;
    }
    m_keptRanges = KeptRanges::fromSegments(m_segments, keptRangesTolerance);
    for (const auto &source : m_sources)
        m_colors.insert(source.id, SourceFile::color(source.colorIndex));
}

bool Transcript::setCutReason(std::optional<CutReason> reason, const QSet<QUuid> &ids)
{
    bool changed = false;
    for (const auto &id : ids) {
        const auto found = m_locations.constFind(id);
        if (found == m_locations.constEnd())
            continue;
        auto &word = m_paragraphs[static_cast<std::size_t>(found->paragraph)].words[static_cast<std::size_t>(found->word)];
        if (word.cutReason != reason) {
            word.cutReason = reason;
            changed = true;
        }
    }
    if (changed)
        rebuild();
    return changed;
}

bool Transcript::setBounds(const WordBounds &bounds, const QUuid &id)
{
    const auto found = m_locations.constFind(id);
    if (found == m_locations.constEnd())
        return false;
    auto &word = m_paragraphs[static_cast<std::size_t>(found->paragraph)].words[static_cast<std::size_t>(found->word)];
    if (WordBounds{word.start, word.end, word.localStart, word.localEnd} == bounds)
        return false;
    word.start = bounds.start;
    word.end = bounds.end;
    word.localStart = bounds.localStart;
    word.localEnd = bounds.localEnd;
    rebuild();
    return true;
}

void Transcript::setWords(const std::vector<TranscriptWord> &words, const QString &clipId)
{
    // Each new word goes to the paragraph of its identity; an unknown word
    // follows the word before it, and unknown words before the first known
    // one are dropped.
    std::vector<std::vector<TranscriptWord>> groups(m_paragraphs.size());
    int current = -1;
    for (const auto &word : words) {
        const auto found = m_locations.constFind(word.id);
        if (found != m_locations.constEnd())
            current = found->paragraph;
        if (current >= 0)
            groups[static_cast<std::size_t>(current)].push_back(word);
    }
    for (std::size_t i = 0; i < m_paragraphs.size(); ++i) {
        auto &paragraph = m_paragraphs[i];
        if (!paragraph.words.empty() && paragraph.words.front().clipId == clipId)
            paragraph.words = std::move(groups[i]);
    }
    rebuild();
}

std::optional<QUuid> Transcript::paragraph(const std::vector<int> &in, double seconds) const
{
    const auto firstStart = [this](int index) {
        const auto &words = m_paragraphs[static_cast<std::size_t>(index)].words;
        return words.empty() ? 0.0 : words.front().start;
    };
    // The last listed paragraph whose first start is at or before the time.
    const auto after = std::upper_bound(in.begin(), in.end(), seconds,
                                        [&](double t, int index) { return t < firstStart(index); });
    if (after == in.begin())
        return std::nullopt;
    const int index = *(after - 1);
    const auto &paragraph = m_paragraphs[static_cast<std::size_t>(index)];
    const double lastEnd = paragraph.words.empty() ? 0.0 : paragraph.words.back().end;
    if (seconds <= lastEnd)
        return paragraph.id;
    return std::nullopt;
}

std::optional<Transcript::Location> Transcript::location(const QUuid &wordID) const
{
    const auto found = m_locations.constFind(wordID);
    if (found == m_locations.constEnd())
        return std::nullopt;
    return *found;
}

const TranscriptWord *Transcript::word(const QUuid &id) const
{
    const auto found = m_locations.constFind(id);
    if (found == m_locations.constEnd())
        return nullptr;
    return &m_words[static_cast<std::size_t>(found->order)];
}

const SourceFile *Transcript::source(const QUuid &id) const
{
    for (const auto &source : m_sources) {
        if (source.id == id)
            return &source;
    }
    return nullptr;
}

std::optional<SourceFile::Color> Transcript::color(const QUuid &sourceID) const
{
    const auto found = m_colors.constFind(sourceID);
    if (found == m_colors.constEnd())
        return std::nullopt;
    return *found;
}

} // namespace velum
