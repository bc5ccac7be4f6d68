#include "review/WordlessCuts.h"

#include <algorithm>
#include <cmath>

namespace velum::WordlessCuts {

namespace {

// The envelope sample at `seconds`: the index with the fraction cut off. No
// value when that lies outside the envelope or is not a number.
std::optional<std::size_t> sampleAt(double seconds, double rateHz, std::size_t count)
{
    const double index = std::trunc(rateHz * seconds);
    if (!(index >= 0) || index >= static_cast<double>(count))
        return std::nullopt;
    return static_cast<std::size_t>(index);
}

// The element at index count / 2 once sorted.
template <class T>
T middle(std::vector<T> &values)
{
    const auto mid = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), mid, values.end());
    return *mid;
}

WordBounds boundsOf(const TranscriptWord &word)
{
    return WordBounds{word.start, word.end, word.localStart, word.localEnd};
}

std::optional<std::size_t> indexOf(const QUuid &id, const std::vector<TranscriptWord> &words)
{
    const auto found = std::find_if(words.begin(), words.end(), [&](const TranscriptWord &w) { return w.id == id; });
    if (found == words.end())
        return std::nullopt;
    return static_cast<std::size_t>(found - words.begin());
}

Verdict gap(const TranscriptWord &earlier, const TranscriptWord &later, const TranscriptWord &neighbour)
{
    if (neighbour.cutReason)
        return AlreadyCut{};
    if (later.rawStart - earlier.rawEnd < minimumGapS - roundingSlackS)
        return NoAir{};
    return Air{earlier.rawEnd, later.rawStart, neighbour.id};
}

// Shown in a note as QString::number(double) writes it by default: up to six
// significant digits, "nan" and "inf" as such.
QString failureNote(const WordlessCut &cut)
{
    return QStringLiteral("review_edits: wordless cut ") + cut.clip + QLatin1Char('[') + QString::number(cut.startS)
        + QStringLiteral("…") + QString::number(cut.endS) + QStringLiteral("] no longer sits in a gap — skipped");
}

// Where `cut` goes in `words`: the index of the word after the gap, or none
// when the cut no longer sits in a gap between two kept words.
std::optional<std::size_t> placeOf(const WordlessCut &cut, const std::vector<TranscriptWord> &words)
{
    if (!(cut.endS - cut.startS >= minimumCutS - roundingSlackS))
        return std::nullopt;
    const auto next = std::find_if(words.begin(), words.end(),
                                   [&](const TranscriptWord &w) { return w.rawStart >= cut.endS - 1e-9; });
    if (next == words.end() || next == words.begin())
        return std::nullopt;
    const auto &after = *next;
    const auto &before = *(next - 1);
    if (before.cutReason || after.cutReason)
        return std::nullopt;
    if (!(before.rawEnd <= cut.startS + 1e-9 && cut.endS - 1e-9 <= after.rawStart))
        return std::nullopt;
    return static_cast<std::size_t>(next - words.begin());
}

} // namespace

std::optional<QString> message(const Verdict &verdict)
{
    if (std::holds_alternative<ClipEdge>(verdict))
        return QStringLiteral("Nothing recorded on that side");
    if (std::holds_alternative<AlreadyCut>(verdict))
        return QStringLiteral("There is already a cut here — resize it instead");
    if (std::holds_alternative<NoAir>(verdict))
        return QStringLiteral("No air between these words");
    return std::nullopt;
}

Verdict airBefore(const QUuid &id, const std::vector<TranscriptWord> &words)
{
    const auto i = indexOf(id, words);
    if (!i || *i == 0)
        return ClipEdge{};
    const auto &previous = words[*i - 1];
    return gap(previous, words[*i], previous);
}

Verdict airAfter(const QUuid &id, const std::vector<TranscriptWord> &words)
{
    const auto i = indexOf(id, words);
    if (!i || *i + 1 >= words.size())
        return ClipEdge{};
    const auto &next = words[*i + 1];
    return gap(words[*i], next, next);
}

float speechLevel(const Air &air, const std::vector<TranscriptWord> &words, const std::vector<float> &envelope,
                  double rateHz)
{
    const double count = static_cast<double>(envelope.size());
    std::vector<float> medians;
    std::vector<float> samples;
    for (const auto &word : words) {
        if (!word.wordIndex || !(word.localEnd > air.start - neighbourhoodS)
            || !(word.localStart < air.end + neighbourhoodS))
            continue;
        if (!(rateHz > 0) || !(word.localStart < word.localEnd))
            continue;
        const double from = std::max(std::trunc(rateHz * word.localStart), 0.0);
        const double to = std::min(std::trunc(rateHz * word.localEnd) + 1, count);
        if (!(from < to))
            continue;
        samples.assign(envelope.begin() + static_cast<std::ptrdiff_t>(from),
                       envelope.begin() + static_cast<std::ptrdiff_t>(to));
        medians.push_back(middle(samples));
    }
    if (medians.empty())
        return 0;
    return middle(medians);
}

std::optional<ClosedRange> extent(const Air &air, const std::vector<float> &envelope, double rateHz,
                                  float speechLevel)
{
    const ClosedRange estimate{air.start + marginS, air.end - marginS};
    if (!(estimate.upper - estimate.lower >= minimumCutS - roundingSlackS))
        return std::nullopt;
    if (envelope.empty() || !(rateHz > 0) || !(speechLevel > 0))
        return estimate;

    const double floor = static_cast<double>(speechLevel) * quietShare;
    const double step = 1 / rateHz;
    const auto loud = [&](double seconds) {
        const auto i = sampleAt(seconds, rateHz, envelope.size());
        return i && !(envelope[*i] < floor);
    };

    // Forward from the start to the first quiet sample after the word's tail.
    double a = air.start;
    while (a < air.end && loud(a)) {
        const double next = a + step;
        if (!(next > a))
            break;
        a = next;
    }
    // Back from the end to the first quiet sample before the next word.
    double b = air.end;
    while (true) {
        const double next = b - step;
        if (!(next < b))
            break;
        b = next;
        if (!(b > a) || !loud(b))
            break;
    }

    const double l = std::max(a, estimate.lower);
    const double h = std::max(std::min(b, estimate.upper), l);
    if (h - l >= minimumCutS - roundingSlackS)
        return ClosedRange{l, h};
    return estimate;
}

TranscriptWord token(const WordlessCut &cut, const TranscriptWord &neighbour, double timelineStart)
{
    TranscriptWord word;
    word.id = QUuid::createUuid();
    word.text = tokenText;
    word.start = timelineStart + cut.startS;
    word.end = timelineStart + cut.endS;
    word.localStart = cut.startS;
    word.localEnd = cut.endS;
    word.rawStart = cut.startS;
    word.rawEnd = cut.endS;
    word.sourceID = neighbour.sourceID;
    word.clipId = neighbour.clipId;
    word.clipIndex = -1;
    word.wordIndex = std::nullopt;
    word.cutReason = CutReason::manual;
    word.isPauseToken = false;
    word.isKeptTic = false;
    word.isHiddenTrim = false;
    word.isUserCut = true;
    return word;
}

void remove(const QUuid &id, std::vector<TranscriptWord> &words, const QHash<QUuid, WordBounds> &closed)
{
    std::erase_if(words, [&](const TranscriptWord &w) { return w.id == id; });
    for (auto &word : words) {
        const auto found = closed.constFind(word.id);
        if (found == closed.constEnd())
            continue;
        word.start = found->start;
        word.end = found->end;
        word.localStart = found->localStart;
        word.localEnd = found->localEnd;
    }
}

std::vector<Insertion> restore(std::vector<WordlessCut> cuts, std::vector<TranscriptWord> &words,
                               double timelineStart, std::vector<QString> &notes)
{
    // Earliest first; a start that is not a number goes last (and fails).
    std::stable_sort(cuts.begin(), cuts.end(), [](const WordlessCut &x, const WordlessCut &y) {
        const bool xNaN = std::isnan(x.startS);
        const bool yNaN = std::isnan(y.startS);
        if (xNaN || yNaN)
            return !xNaN && yNaN;
        return x.startS < y.startS;
    });

    std::vector<Insertion> insertions;
    for (const auto &cut : cuts) {
        const auto place = placeOf(cut, words);
        if (!place) {
            notes.push_back(failureNote(cut));
            continue;
        }
        auto &before = words[*place - 1];
        auto &after = words[*place];
        Insertion insertion{QUuid::createUuid(), cut, {}};
        insertion.closed.insert(before.id, boundsOf(before));
        insertion.closed.insert(after.id, boundsOf(after));

        before.localEnd = cut.startS;
        before.end = timelineStart + cut.startS;
        after.localStart = cut.endS;
        after.start = timelineStart + cut.endS;

        auto inserted = token(cut, after, timelineStart);
        inserted.id = insertion.tokenID;
        words.insert(words.begin() + static_cast<std::ptrdiff_t>(*place), std::move(inserted));
        insertions.push_back(std::move(insertion));
    }
    return insertions;
}

} // namespace velum::WordlessCuts
