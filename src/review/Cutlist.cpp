#include "review/Cutlist.h"

#include <algorithm>
#include <map>
#include <set>

namespace velum::Cutlist {

bool Entry::isSilenceGlyph(const QString &text)
{
    return text == pauseGlyph || text == hiddenTrimGlyph || text == QLatin1String("...");
}

namespace {

bool isKeptWord(const Entry &e) { return e.wordIndex && !e.reason; }
bool isToken(const Entry &e) { return !e.wordIndex; }

IndexRange clamped(int lower, int upper, int count)
{
    const IndexRange range{std::max(lower, 0), std::min(upper, count)};
    if (range.lower > range.upper)
        throw BrokenDocumentError(QStringLiteral("a word range [%1, %2) is reversed against %3 words")
                                      .arg(lower)
                                      .arg(upper)
                                      .arg(count)
                                      .toStdString());
    return range;
}

void mark(Reasons &reasons, IndexRange range, CutReason reason, bool overwrite)
{
    const auto r = clamped(range.lower, range.upper, static_cast<int>(reasons.size()));
    for (int i = r.lower; i < r.upper; ++i) {
        auto &slot = reasons[static_cast<std::size_t>(i)];
        if (overwrite || !slot)
            slot = reason;
    }
}

// Seconds of the run of removed words that starts at `i`, forward.
double removedSpanFrom(int i, const std::vector<TimedWord> &words, const Reasons &reasons)
{
    int last = i;
    while (last + 1 < static_cast<int>(words.size()) && reasons[static_cast<std::size_t>(last + 1)])
        ++last;
    return std::max(words[static_cast<std::size_t>(last)].end - words[static_cast<std::size_t>(i)].start, 0.0);
}

// Seconds of the run of removed words that ends at `i`, backward.
double removedSpanEndingAt(int i, const std::vector<TimedWord> &words, const Reasons &reasons)
{
    int first = i;
    while (first - 1 >= 0 && reasons[static_cast<std::size_t>(first - 1)])
        --first;
    return std::max(words[static_cast<std::size_t>(i)].end - words[static_cast<std::size_t>(first)].start, 0.0);
}

// Reasons that receive seam air: cuts made for content do not.
bool getsSeam(const std::optional<CutReason> &reason)
{
    return reason
        && (*reason == CutReason::silence || *reason == CutReason::filler || *reason == CutReason::retake
            || *reason == CutReason::noise);
}

} // namespace

Reasons reasons(const C1Transcript::Clip &clip, const std::vector<IndexRange> &retakes,
                const std::vector<IndexRange> &userCuts, const C3Cuts::Clip *cleanup)
{
    Reasons result(clip.words.size());
    for (const auto &range : userCuts)
        mark(result, range, CutReason::manual, true);
    for (const auto &range : retakes)
        mark(result, range, CutReason::retake, false);
    if (!cleanup)
        return result;
    for (const auto &range : cleanup->chatterCuts)
        mark(result, {range.wordStart, range.wordEnd}, CutReason::offScript, false);
    for (const auto &range : cleanup->fillerCuts)
        mark(result, {range.wordStart, range.wordEnd}, CutReason::filler, false);
    for (const auto &gap : cleanup->mergedIslands) {
        const CutReason reason = gap.reason.value_or(CutReason::silence);
        for (std::size_t i = 0; i < clip.words.size(); ++i) {
            const auto &word = clip.words[i];
            if (!result[i] && gap.startS <= word.start && word.end <= gap.endS)
                result[i] = reason;
        }
    }
    return result;
}

std::vector<std::pair<double, double>> seamBounds(const std::vector<TimedWord> &words, const Reasons &reasons,
                                                  double seamS, const C3Seams::Clip *seams)
{
    std::vector<std::pair<double, double>> bounds;
    bounds.reserve(words.size());
    for (const auto &word : words)
        bounds.emplace_back(word.start, word.end);

    std::map<int, double> leading, trailing;
    if (seams) {
        for (const auto &seam : seams->seams)
            (seam.edge == C3Seams::Edge::leading ? leading : trailing)[seam.wordIndex] = seam.offsetS;
    }

    const double half = seamS * 0.5;
    const int count = static_cast<int>(words.size());
    for (int i = 0; i < count; ++i) {
        const auto ui = static_cast<std::size_t>(i);
        if (reasons[ui])
            continue;
        const auto &word = words[ui];
        if (i + 1 < count && getsSeam(reasons[ui + 1])) {
            if (const auto found = trailing.find(i); found != trailing.end()) {
                bounds[ui].second = word.end + std::max(found->second, 0.0);
            } else {
                const double gap = words[ui + 1].start - word.end;
                const double pad = std::min(half, std::max(gap, 0.0));
                const double extra = std::min(0.05, 0.4 * removedSpanFrom(i + 1, words, reasons));
                bounds[ui].second = word.end + pad + extra;
            }
        }
        if (i - 1 >= 0 && getsSeam(reasons[ui - 1])) {
            if (const auto found = leading.find(i); found != leading.end()) {
                bounds[ui].first = found->second < 0 ? word.start : word.start - found->second;
            } else {
                const double gap = word.start - words[ui - 1].end;
                const double pad = std::min(half, std::max(gap, 0.0));
                const double extra = std::min(0.05, 0.4 * removedSpanEndingAt(i - 1, words, reasons));
                bounds[ui].first = word.start - pad - extra;
            }
        }
    }
    return bounds;
}

void clipToRemovals(std::vector<Entry> &entries)
{
    const std::size_t n = entries.size();
    for (std::size_t j = 1; j < n; ++j) {
        const Entry &token = entries[j];
        Entry &w = entries[j - 1];
        if (!isToken(token) || !token.reason || !isKeptWord(w))
            continue;
        if (w.start < token.start && token.start < w.end) {
            const double floor = std::min(w.start + 0.01, w.end);
            w.end = std::max(token.start, floor);
        }
    }
    for (std::size_t j = n; j-- > 1;) {
        const Entry &token = entries[j - 1];
        Entry &w = entries[j];
        if (!isToken(token) || !token.reason || !isKeptWord(w))
            continue;
        if (w.start < token.end && token.end < w.end) {
            const double ceiling = std::max(w.end - 0.01, w.start);
            w.start = std::min(token.end, ceiling);
        }
    }
}

void closingGaps(std::vector<Entry> &entries)
{
    const std::size_t n = entries.size();
    for (std::size_t j = 0; j < n; ++j) {
        Entry &word = entries[j];
        if (!isKeptWord(word))
            continue;
        if (j > 0) {
            const Entry &before = entries[j - 1];
            if (isToken(before) && (before.reason || before.isPause))
                word.start = std::min(word.start, before.end);
        }
        if (j + 1 < n) {
            const Entry &after = entries[j + 1];
            if (isToken(after) && (after.reason || after.isPause))
                word.end = std::max(word.end, after.start);
        }
    }
}

std::vector<Entry> entries(const C1Transcript::Clip &clip, const std::vector<IndexRange> &retakes,
                           const std::vector<IndexRange> &userCuts, const C3Cuts::Clip *cleanup, double seamS,
                           const C3Seams::Clip *seams)
{
    const auto wordReasons = reasons(clip, retakes, userCuts, cleanup);
    const auto bounds = seamBounds(clip.words, wordReasons, seamS, seams);
    const int count = static_cast<int>(clip.words.size());

    // Tokens by the word they follow, each position in source order, then
    // stably by start.
    std::map<int, std::vector<Entry>> tokens;
    const auto token = [](QString text, double start, double end, std::optional<CutReason> reason, bool isPause,
                          bool isHiddenTrim) {
        return Entry{std::move(text), start, end, start, end, std::nullopt, reason, isPause, false, isHiddenTrim};
    };
    std::set<int> keptTics, microRepeats;
    if (cleanup) {
        for (const auto &gap : cleanup->silenceCuts)
            tokens[gap.afterWord].push_back(token(pauseGlyph, gap.startS, gap.endS, CutReason::silence, true, false));
        for (const auto &gap : cleanup->bandPauses)
            tokens[gap.afterWord].push_back(token(pauseGlyph, gap.startS, gap.endS, std::nullopt, true, false));
        for (const auto &gap : cleanup->hiddenSilenceCuts)
            tokens[gap.afterWord].push_back(
                token(hiddenTrimGlyph, gap.startS, gap.endS, CutReason::silence, false, true));
        for (const auto &noise : cleanup->noiseCuts)
            tokens[noise.afterWord].push_back(token(noise.label, noise.startS, noise.endS, CutReason::noise, false, false));
        for (const auto &sound : cleanup->keptAudioEvents)
            tokens[sound.afterWord].push_back(token(sound.label, sound.startS, sound.endS, std::nullopt, false, false));
        keptTics.insert(cleanup->keptTics.begin(), cleanup->keptTics.end());
        for (const auto &range : cleanup->keptMicroRepeats) {
            for (int i = std::max(range.wordStart, 0); i < std::min(range.wordEnd, count); ++i)
                microRepeats.insert(i);
        }
    }
    for (auto &[position, list] : tokens)
        std::stable_sort(list.begin(), list.end(), [](const Entry &a, const Entry &b) { return a.start < b.start; });

    std::vector<Entry> result;
    std::size_t tokenCount = 0;
    for (const auto &[position, list] : tokens)
        tokenCount += list.size();
    result.reserve(clip.words.size() + tokenCount);
    const auto appendTokens = [&](int after) {
        if (const auto found = tokens.find(after); found != tokens.end())
            result.insert(result.end(), found->second.begin(), found->second.end());
    };

    appendTokens(-1);
    for (int i = 0; i < count; ++i) {
        const auto ui = static_cast<std::size_t>(i);
        const auto &word = clip.words[ui];
        const bool tic = !wordReasons[ui] && (keptTics.count(i) || microRepeats.count(i));
        result.push_back(Entry{word.text, bounds[ui].first, bounds[ui].second, word.start, word.end, i,
                               wordReasons[ui], false, tic, false});
        appendTokens(i);
    }

    clipToRemovals(result);
    closingGaps(result);
    return result;
}

} // namespace velum::Cutlist
