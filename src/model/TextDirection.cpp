#include "model/TextDirection.h"

#include <unicode/locid.h>
#include <unicode/uchar.h>
#include <unicode/uloc.h>
#include <unicode/uscript.h>

#include <algorithm>
#include <array>
#include <cstring>

namespace velum::TextDirection {

namespace {

// The blocks whose letters run right to left: Hebrew, Arabic, Syriac, Arabic
// Supplement, Thaana, NKo through Mandaic, Arabic Extended, the Hebrew and
// Arabic presentation forms, and the historic and Adlam planes of the SMP.
struct Block {
    char32_t first;
    char32_t last;
};
constexpr std::array<Block, 11> rightToLeftBlocks{{
    {0x0590, 0x05FF},
    {0x0600, 0x06FF},
    {0x0700, 0x074F},
    {0x0750, 0x077F},
    {0x0780, 0x07BF},
    {0x07C0, 0x085F},
    {0x0860, 0x08FF},
    {0xFB1D, 0xFDFF},
    {0xFE70, 0xFEFF},
    {0x10800, 0x10FFF},
    {0x1E800, 0x1EFFF},
}};

bool inRightToLeftBlock(char32_t scalar)
{
    return std::any_of(rightToLeftBlocks.begin(), rightToLeftBlocks.end(),
        [scalar](const Block &b) { return scalar >= b.first && scalar <= b.last; });
}

bool isAlphabetic(char32_t scalar)
{
    return u_hasBinaryProperty(static_cast<UChar32>(scalar), UCHAR_ALPHABETIC);
}

// Calls `visit` with each Unicode scalar of the text until it returns false.
// A lone surrogate reads as U+FFFD, which has no direction.
template <class Visit>
void forEachScalar(const QString &text, Visit visit)
{
    const qsizetype n = text.size();
    for (qsizetype i = 0; i < n; ++i) {
        const char16_t unit = text.at(i).unicode();
        char32_t scalar = unit;
        if (QChar::isHighSurrogate(unit) && i + 1 < n && QChar::isLowSurrogate(text.at(i + 1).unicode())) {
            scalar = QChar::surrogateToUcs4(unit, text.at(i + 1).unicode());
            ++i;
        } else if (QChar::isSurrogate(unit)) {
            scalar = 0xFFFD;
        }
        if (!visit(scalar))
            return;
    }
}

// Reads an identifier into a canonical ICU locale. BCP 47 first, with
// underscores taken as hyphens ("he_IL" is "he-IL"); what is not a valid tag
// ("en_US.UTF-8", "en_US@calendar=gregorian") is read as an ICU locale
// identifier. Canonicalisation maps legacy and three-letter codes onto the
// codes in use ("iw" is "he", "heb" is "he", "in" is "id").
icu::Locale canonicalLocale(const QString &code)
{
    QByteArray tag = code.toUtf8();
    tag.replace('_', '-');
    UErrorCode status = U_ZERO_ERROR;
    const icu::Locale fromTag
        = icu::Locale::forLanguageTag(icu::StringPiece(tag.constData(), int32_t(tag.size())), status);
    if (U_SUCCESS(status) && !fromTag.isBogus())
        return icu::Locale::createCanonical(fromTag.getName());
    return icu::Locale::createCanonical(code.toUtf8().constData());
}

bool isKnownIsoLanguage(const char *language)
{
    if (!language || !*language)
        return false;
    for (const char *const *known = uloc_getISOLanguages(); *known; ++known) {
        if (std::strcmp(*known, language) == 0)
            return true;
    }
    return false;
}

// The direction the locale data give for a locale. The script decides when
// it is written or likely for the language; otherwise the locale's layout
// data, which count as unknown when only the root locale's answer is found.
std::optional<bool> characterDirection(const icu::Locale &locale)
{
    icu::Locale maximal = locale;
    UErrorCode status = U_ZERO_ERROR;
    maximal.addLikelySubtags(status);
    const char *script = U_SUCCESS(status) ? maximal.getScript() : locale.getScript();
    if (script && *script) {
        const int32_t code = u_getPropertyValueEnum(UCHAR_SCRIPT, script);
        if (code != UCHAR_INVALID_CODE)
            return uscript_isRightToLeft(static_cast<UScriptCode>(code)) != 0;
    }

    status = U_ZERO_ERROR;
    const ULayoutType layout = uloc_getCharacterOrientation(locale.getName(), &status);
    if (U_FAILURE(status) || status == U_USING_DEFAULT_WARNING)
        return std::nullopt;
    switch (layout) {
    case ULOC_LAYOUT_RTL:
        return true;
    case ULOC_LAYOUT_UNKNOWN:
        return std::nullopt;
    case ULOC_LAYOUT_LTR:
    case ULOC_LAYOUT_TTB:
    case ULOC_LAYOUT_BTT:
        return false;
    }
    return std::nullopt;
}

} // namespace

std::optional<QString> isoLanguage(const QString &languageCode)
{
    const QString trimmed = languageCode.trimmed();
    if (trimmed.isEmpty())
        return std::nullopt;
    const icu::Locale locale = canonicalLocale(trimmed);
    if (locale.isBogus() || !isKnownIsoLanguage(locale.getLanguage()))
        return std::nullopt;
    return QString::fromLatin1(locale.getLanguage());
}

std::optional<bool> isRightToLeft(const std::optional<QString> &languageCode)
{
    if (!languageCode)
        return std::nullopt;
    const QString trimmed = languageCode->trimmed();
    if (trimmed.isEmpty())
        return std::nullopt;

    // Codes that name no language at all.
    static const std::array<QString, 5> noLanguage{
        QStringLiteral("und"),
        QStringLiteral("mul"),
        QStringLiteral("zxx"),
        QStringLiteral("mis"),
        QStringLiteral("zxx-x-none"),
    };
    const QString lower = trimmed.toLower();
    if (std::find(noLanguage.begin(), noLanguage.end(), lower) != noLanguage.end())
        return std::nullopt;

    const icu::Locale locale = canonicalLocale(trimmed);
    if (locale.isBogus() || !isKnownIsoLanguage(locale.getLanguage()))
        return std::nullopt;
    return characterDirection(locale);
}

bool isRightToLeftScript(std::span<const QString> strings)
{
    constexpr std::size_t sampleSize = 100;
    qint64 rightToLeft = 0;
    qint64 otherLetters = 0;
    for (const QString &s : strings.first(std::min(strings.size(), sampleSize))) {
        forEachScalar(s, [&](char32_t scalar) {
            if (inRightToLeftBlock(scalar))
                ++rightToLeft;
            else if (isAlphabetic(scalar))
                ++otherLetters;
            return true;
        });
    }
    return rightToLeft > otherLetters;
}

TokenDirection tokenDirection(const QString &text)
{
    TokenDirection direction = TokenDirection::neutral;
    forEachScalar(text, [&](char32_t scalar) {
        if (inRightToLeftBlock(scalar))
            direction = TokenDirection::rightToLeft;
        else if (isAlphabetic(scalar))
            direction = TokenDirection::leftToRight;
        return direction == TokenDirection::neutral;
    });
    return direction;
}

} // namespace velum::TextDirection
