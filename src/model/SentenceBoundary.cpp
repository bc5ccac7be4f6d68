#include "model/SentenceBoundary.h"

#include "model/TextDirection.h"

#include <unicode/brkiter.h>
#include <unicode/locid.h>
#include <unicode/uchar.h>
#include <unicode/unistr.h>

#include <algorithm>
#include <memory>

namespace velum::SentenceBoundary {

namespace {

// The Unicode scalars of a text; a lone surrogate reads as U+FFFD.
std::vector<char32_t> scalars(const QString &text)
{
    std::vector<char32_t> result;
    result.reserve(static_cast<std::size_t>(text.size()));
    const qsizetype n = text.size();
    for (qsizetype i = 0; i < n; ++i) {
        const char16_t unit = text.at(i).unicode();
        if (QChar::isHighSurrogate(unit) && i + 1 < n && QChar::isLowSurrogate(text.at(i + 1).unicode())) {
            result.push_back(QChar::surrogateToUcs4(unit, text.at(i + 1).unicode()));
            ++i;
        } else if (QChar::isSurrogate(unit)) {
            result.push_back(0xFFFD);
        } else {
            result.push_back(unit);
        }
    }
    return result;
}

// Quotes and brackets that may close a sentence after its terminal: "said.”"
// and "(done.)".
bool isClosing(char32_t scalar)
{
    const auto c = static_cast<UChar32>(scalar);
    if (u_hasBinaryProperty(c, UCHAR_QUOTATION_MARK))
        return true;
    const auto category = static_cast<UCharCategory>(u_charType(c));
    return category == U_END_PUNCTUATION || category == U_FINAL_PUNCTUATION;
}

// The sentence segmenter for a language hint: the language's own rules when
// the hint has a known ISO language, the root rules otherwise. Abbreviation
// suppression is left off: its lists also swallow real breaks ("Test. Ja."),
// and transcripts are short spoken sentences.
std::unique_ptr<icu::BreakIterator> sentenceSegmenter(const std::optional<QString> &language)
{
    icu::Locale locale = icu::Locale::getRoot();
    if (language) {
        if (const auto iso = TextDirection::isoLanguage(*language))
            locale = icu::Locale(iso->toLatin1().constData());
    }
    UErrorCode status = U_ZERO_ERROR;
    std::unique_ptr<icu::BreakIterator> iterator(icu::BreakIterator::createSentenceInstance(locale, status));
    if (U_FAILURE(status))
        iterator.reset();
    if (!iterator) {
        status = U_ZERO_ERROR;
        iterator.reset(icu::BreakIterator::createSentenceInstance(icu::Locale::getRoot(), status));
        if (U_FAILURE(status))
            iterator.reset();
    }
    return iterator;
}

} // namespace

bool endsSentence(const QString &text)
{
    std::vector<char32_t> s = scalars(text.trimmed());
    if (s.empty())
        return false;
    while (!s.empty() && isClosing(s.back()))
        s.pop_back();
    if (s.empty())
        return false;
    if (!u_hasBinaryProperty(static_cast<UChar32>(s.back()), UCHAR_S_TERM))
        return false;
    if (s.back() != U'.')
        return true;

    std::size_t dots = 0;
    while (!s.empty() && s.back() == U'.') {
        s.pop_back();
        ++dots;
    }
    if (dots >= 2)
        return true;
    // One full stop after a word with a dot inside is an abbreviation.
    return std::find(s.begin(), s.end(), U'.') == s.end();
}

std::vector<int> sentenceStarts(std::span<const Word> words, const std::optional<QString> &language)
{
    // The kept words joined by single blanks, with where each one ends in
    // UTF-16 units: the same units the segmenter reports its breaks in.
    struct Kept {
        int index;
        qsizetype end;
    };
    std::vector<Kept> kept;
    QString joined;
    for (std::size_t i = 0; i < words.size(); ++i) {
        const Word &word = words[i];
        if (word.isPauseToken)
            continue;
        const QString text = word.text.trimmed();
        if (text.isEmpty())
            continue;
        if (!kept.empty())
            joined += QLatin1Char(' ');
        joined += text;
        kept.push_back(Kept{static_cast<int>(i), joined.size()});
    }

    std::vector<int> starts;
    if (kept.empty())
        return starts;

    const std::unique_ptr<icu::BreakIterator> segmenter = sentenceSegmenter(language);
    if (!segmenter) {
        // Without segmentation data the whole text is one sentence.
        starts.push_back(kept.front().index);
        return starts;
    }
    const icu::UnicodeString unicode(false, QStringView(joined).utf16(), static_cast<int32_t>(joined.size()));
    segmenter->setText(unicode);

    // Every boundary but the last starts a sentence.
    for (int32_t start = segmenter->first(), next = segmenter->next(); next != icu::BreakIterator::DONE;
         start = next, next = segmenter->next()) {
        const auto word = std::find_if(kept.begin(), kept.end(), [start](const Kept &k) { return k.end > start; });
        if (word == kept.end())
            continue;
        if (starts.empty() || word->index > starts.back())
            starts.push_back(word->index);
    }
    return starts;
}

Range sentenceRange(int index, std::span<const Word> words, const std::optional<QString> &language)
{
    const auto count = static_cast<qsizetype>(words.size());
    if (index < 0 || index >= count)
        return {};
    const std::vector<int> starts = sentenceStarts(words, language);
    if (starts.empty())
        return {};

    // The first start after the index ends its sentence. Before the first
    // start there are only pauses and blanks: they make a range of their own,
    // so that the ranges of all indices tile the words.
    const auto next = std::upper_bound(starts.begin(), starts.end(), index);
    if (next == starts.begin())
        return Range{0, starts.front()};
    return Range{*std::prev(next), next == starts.end() ? static_cast<int>(count) : *next};
}

} // namespace velum::SentenceBoundary
