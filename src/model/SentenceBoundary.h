#pragma once

// Where sentences end and start in a run of transcript words.

#include "model/IndexRange.h"
#include <QString>

#include <concepts>
#include <optional>
#include <ranges>
#include <span>
#include <vector>

namespace velum::SentenceBoundary {

// What sentence finding needs of a word. Any word type with a text and a
// pause flag can be passed through the templates below.
struct Word {
    QString text;
    bool isPauseToken = false;

    friend bool operator==(const Word &, const Word &) = default;
};

// A half-open range of word indices, `lower` included and `upper` not.
using Range = IndexRange;

// Whether a word closes its sentence: it ends in a sentence terminal, perhaps
// followed by closing quotes or brackets. A single full stop after a word
// that has another full stop inside ("e.g.", "U.S.") is an abbreviation and
// does not; an ellipsis of dots does.
bool endsSentence(const QString &text);

// The indices of the words that begin a sentence, strictly ascending and
// always of words that are neither pause tokens nor blank. `language` is a
// hint for the segmenter; it is used when its language part is a known ISO
// language code.
std::vector<int> sentenceStarts(std::span<const Word> words, const std::optional<QString> &language = std::nullopt);

// The sentence that holds the word at `index`: from its start up to the next
// sentence's start, or to the end of the words for the last one. Pauses and
// blank words belong to the sentence before them; those before the first
// sentence make a range of their own, so the ranges tile the words. Empty
// when the index is out of bounds or no word has text.
Range sentenceRange(int index, std::span<const Word> words, const std::optional<QString> &language = std::nullopt);

// Any range of words with `.text` and `.isPauseToken`, such as the review
// transcript's words.
template <class R>
concept WordRange = std::ranges::input_range<const R &> && requires(std::ranges::range_reference_t<const R &> word) {
    { word.text } -> std::convertible_to<QString>;
    { word.isPauseToken } -> std::convertible_to<bool>;
};

namespace detail {
template <class R>
concept ForeignWordRange = WordRange<R> && !std::convertible_to<const R &, std::span<const Word>>;

template <ForeignWordRange R>
std::vector<Word> plainWords(const R &words)
{
    std::vector<Word> plain;
    if constexpr (std::ranges::sized_range<const R &>)
        plain.reserve(static_cast<std::size_t>(std::ranges::size(words)));
    for (const auto &word : words)
        plain.push_back(Word{QString(word.text), static_cast<bool>(word.isPauseToken)});
    return plain;
}
} // namespace detail

template <detail::ForeignWordRange R>
std::vector<int> sentenceStarts(const R &words, const std::optional<QString> &language = std::nullopt)
{
    const std::vector<Word> plain = detail::plainWords(words);
    return sentenceStarts(std::span<const Word>(plain), language);
}

template <detail::ForeignWordRange R>
Range sentenceRange(int index, const R &words, const std::optional<QString> &language = std::nullopt)
{
    const std::vector<Word> plain = detail::plainWords(words);
    return sentenceRange(index, std::span<const Word>(plain), language);
}

} // namespace velum::SentenceBoundary
