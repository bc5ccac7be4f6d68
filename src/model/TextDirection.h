#pragma once

// Which way text runs: from a language code, from the letters of a sample of
// words, and for a single token.

#include "model/Project.h"

#include <QString>

#include <optional>
#include <span>

namespace velum::TextDirection {

// The language part of a language identifier, when it is a known ISO language
// code: "he-IL", "he_IL" and "HE" give "he". Identifiers are read as BCP 47
// tags first and as locale identifiers otherwise, and legacy or three-letter
// codes are read as the code in use today ("iw" and "heb" give "he"). No value
// for an empty code, an identifier without a language ("x-private",
// "und-Arab") or a code that names no known language ("xx").
std::optional<QString> isoLanguage(const QString &languageCode);

// Whether a language writes right to left. No value when there is no code,
// the code names no language ("und", "mul", "zxx", "mis", "zxx-x-none"), its
// language is not a known ISO code, or the locale data do not know the
// language's direction. A script subtag counts: "az-Arab" is right to left
// while "az" is not.
std::optional<bool> isRightToLeft(const std::optional<QString> &languageCode);

// Whether a sample of words is mostly in a right-to-left script: over the
// first 100 strings, the letters in right-to-left blocks must strictly
// outnumber the alphabetic letters outside them.
bool isRightToLeftScript(std::span<const QString> strings);

// The direction of a token from its first strong letter; `neutral` for
// digits, punctuation and symbols only.
TokenDirection tokenDirection(const QString &text);

} // namespace velum::TextDirection
