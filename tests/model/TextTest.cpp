#include "model/SentenceBoundary.h"
#include "model/TextDirection.h"

#include <gtest/gtest.h>

#include <QList>

using namespace velum;

namespace {

// --- Language direction -----------------------------------------------------

TEST(LanguageDirection, CodesThatNameNoLanguageGiveNoDirection)
{
    EXPECT_EQ(TextDirection::isRightToLeft(std::nullopt), std::nullopt);
    for (const char *code : {"", "  \n", "und", "UND", " mul ", "zxx", "mis", "zxx-x-none", "ZXX-X-NONE"})
        EXPECT_EQ(TextDirection::isRightToLeft(QString::fromUtf8(code)), std::nullopt) << code;
}

TEST(LanguageDirection, UnknownOrMissingLanguagePartGivesNoDirection)
{
    // No language part, not an ISO code, or not a language tag at all.
    for (const char *code : {"und-Arab", "x-private", "xx", "qaa", "123", "-", "_he"})
        EXPECT_EQ(TextDirection::isRightToLeft(QString::fromUtf8(code)), std::nullopt) << code;
    // An ISO code the locale data hold no direction for.
    EXPECT_EQ(TextDirection::isRightToLeft(QStringLiteral("tlh")), std::nullopt);
}

TEST(LanguageDirection, RightToLeftLanguagesInEveryWritingOfTheCode)
{
    for (const char *code : {"he", "HE", "he-IL", "he_IL", " he_IL ", "he-IL-u-nu-latn", "ar", "ar-EG", "fa-IR", "ur",
             "yi", "ps", "ckb", "ug", "dv", "syr", "nqo"})
        EXPECT_EQ(TextDirection::isRightToLeft(QString::fromUtf8(code)), true) << code;
    // Legacy and three-letter codes read as the code in use.
    for (const char *code : {"iw", "iw-IL", "ji", "heb", "ara"})
        EXPECT_EQ(TextDirection::isRightToLeft(QString::fromUtf8(code)), true) << code;
}

TEST(LanguageDirection, LeftToRightLanguagesAndScriptSubtags)
{
    for (const char *code : {"en", "en-US", "en_US.UTF-8", "de_DE", "ja", "zh-Hant-TW", "ru", "hi", "in", "eng"})
        EXPECT_EQ(TextDirection::isRightToLeft(QString::fromUtf8(code)), false) << code;
    // The script of the identifier wins over the language's usual one.
    EXPECT_EQ(TextDirection::isRightToLeft(QStringLiteral("az")), false);
    EXPECT_EQ(TextDirection::isRightToLeft(QStringLiteral("az-Arab")), true);
    EXPECT_EQ(TextDirection::isRightToLeft(QStringLiteral("pa-Arab")), true);
    EXPECT_EQ(TextDirection::isRightToLeft(QStringLiteral("sd-Deva")), false);
}

TEST(LanguageDirection, IsoLanguagePartOfAnIdentifier)
{
    EXPECT_EQ(TextDirection::isoLanguage(QStringLiteral("he-IL")), QStringLiteral("he"));
    EXPECT_EQ(TextDirection::isoLanguage(QStringLiteral(" he_IL ")), QStringLiteral("he"));
    EXPECT_EQ(TextDirection::isoLanguage(QStringLiteral("iw")), QStringLiteral("he"));
    EXPECT_EQ(TextDirection::isoLanguage(QStringLiteral("zh-Hant-TW")), QStringLiteral("zh"));
    EXPECT_EQ(TextDirection::isoLanguage(QStringLiteral("en_US.UTF-8")), QStringLiteral("en"));
    EXPECT_EQ(TextDirection::isoLanguage(QStringLiteral("fil")), QStringLiteral("fil"));
    EXPECT_EQ(TextDirection::isoLanguage(QStringLiteral("und")), std::nullopt);
    EXPECT_EQ(TextDirection::isoLanguage(QStringLiteral("xx-YY")), std::nullopt);
    EXPECT_EQ(TextDirection::isoLanguage(QString()), std::nullopt);
}

// --- Script direction ---------------------------------------------------------

TEST(ScriptDirection, RightToLeftLettersMustStrictlyOutnumberOtherLetters)
{
    using V = std::vector<QString>;
    EXPECT_TRUE(TextDirection::isRightToLeftScript(V{"שלום", "לכם", "OK"}));
    EXPECT_TRUE(TextDirection::isRightToLeftScript(V{"مرحبا", "بكم", "2024", "!"}));
    EXPECT_FALSE(TextDirection::isRightToLeftScript(V{"שלום", "hello"}));
    EXPECT_FALSE(TextDirection::isRightToLeftScript(V{"abc", "אבג"}));
    EXPECT_FALSE(TextDirection::isRightToLeftScript(V{"123", "...", "—"}));
    EXPECT_FALSE(TextDirection::isRightToLeftScript(V{}));
    // Digits and punctuation outside the blocks do not count against.
    EXPECT_TRUE(TextDirection::isRightToLeftScript(V{"שׁ", "1234567", "?!…"}));
    // Han and kana are letters too.
    EXPECT_FALSE(TextDirection::isRightToLeftScript(V{"שלום", "今日は晴れ"}));
}

TEST(ScriptDirection, CountsScalarsNotUtf16Units)
{
    // Three Phoenician letters take six UTF-16 units.
    const QString phoenician = QString::fromUtf8("𐤀𐤁𐤂");
    ASSERT_EQ(phoenician.size(), 6);
    EXPECT_FALSE(TextDirection::isRightToLeftScript(std::vector<QString>{phoenician, "abcd"}));
    EXPECT_FALSE(TextDirection::isRightToLeftScript(std::vector<QString>{phoenician, "abc"}));
    EXPECT_TRUE(TextDirection::isRightToLeftScript(std::vector<QString>{phoenician, "ab"}));
    // Adlam sits in the last block.
    EXPECT_TRUE(TextDirection::isRightToLeftScript(std::vector<QString>{QString::fromUtf8("𞤀𞤁"), "a"}));
}

TEST(ScriptDirection, OnlyTheFirstHundredStringsAreSampled)
{
    std::vector<QString> words(100, QStringLiteral("אב"));
    words.insert(words.end(), 500, QStringLiteral("hello"));
    EXPECT_TRUE(TextDirection::isRightToLeftScript(words));

    std::vector<QString> latinFirst(100, QStringLiteral("a"));
    latinFirst.insert(latinFirst.end(), 500, QStringLiteral("שלום"));
    EXPECT_FALSE(TextDirection::isRightToLeftScript(latinFirst));

    // The hundredth string counts and the hundred-and-first does not.
    std::vector<QString> tipping(99, QStringLiteral("ab"));
    tipping.push_back(QString(199, QChar(0x05D0)));
    tipping.push_back(QString(500, QLatin1Char('z')));
    EXPECT_TRUE(TextDirection::isRightToLeftScript(tipping));
    tipping[99].chop(1);
    EXPECT_FALSE(TextDirection::isRightToLeftScript(tipping));
}

TEST(TokenDirectionOfText, FirstStrongScalarDecides)
{
    using TextDirection::tokenDirection;
    EXPECT_EQ(tokenDirection(QStringLiteral("hello")), TokenDirection::leftToRight);
    EXPECT_EQ(tokenDirection(QStringLiteral("שלום")), TokenDirection::rightToLeft);
    EXPECT_EQ(tokenDirection(QStringLiteral("مرحبا")), TokenDirection::rightToLeft);
    EXPECT_EQ(tokenDirection(QStringLiteral("2024-שלום")), TokenDirection::rightToLeft);
    EXPECT_EQ(tokenDirection(QStringLiteral("(hello)")), TokenDirection::leftToRight);
    EXPECT_EQ(tokenDirection(QStringLiteral("abcשלום")), TokenDirection::leftToRight);
    EXPECT_EQ(tokenDirection(QStringLiteral("שלוםabc")), TokenDirection::rightToLeft);
    EXPECT_EQ(tokenDirection(QStringLiteral("晴れ")), TokenDirection::leftToRight);
    EXPECT_EQ(tokenDirection(QString::fromUtf8("«𞤀»")), TokenDirection::rightToLeft);
}

TEST(TokenDirectionOfText, DigitsPunctuationAndSymbolsAreNeutral)
{
    using TextDirection::tokenDirection;
    for (const char *text : {"", "42", "3.14", "...", "—", "!?", "👍", "$", " "})
        EXPECT_EQ(tokenDirection(QString::fromUtf8(text)), TokenDirection::neutral) << text;
    // A lone surrogate is no letter.
    EXPECT_EQ(tokenDirection(QString(QChar(0xD802))), TokenDirection::neutral);
    EXPECT_EQ(tokenDirection(QString(QChar(0xD802)) + QStringLiteral("a")), TokenDirection::leftToRight);
}

// --- Does a word end a sentence ---------------------------------------------------

TEST(EndsSentence, TerminalsAfterClosingQuotesAndBrackets)
{
    using SentenceBoundary::endsSentence;
    for (const char *word : {"end.", "right?", "wow!!", "said.\"", "said.”", "right?”", "(done.)", "done?)",
             "«vraiment?»", " end.\n", "!", "？", "晴れです。", "לכם.", "حالك؟", "ختم۔"})
        EXPECT_TRUE(endsSentence(QString::fromUtf8(word))) << word;
    for (const char *word : {"", "   ", "hello", "end,", "end:", "end;", "\"", "”)", "said”", "(aside)", "—"})
        EXPECT_FALSE(endsSentence(QString::fromUtf8(word))) << word;
}

TEST(EndsSentence, DotsTellAbbreviationsFromEllipses)
{
    using SentenceBoundary::endsSentence;
    // One trailing dot and no other: a plain last word.
    EXPECT_TRUE(endsSentence(QStringLiteral("today.")));
    EXPECT_TRUE(endsSentence(QStringLiteral(".")));
    // An inner dot and one trailing dot: an abbreviation.
    for (const char *word : {"e.g.", "i.e.", "U.S.", "p.m.", "3.5.", "\"U.S.\"", "(e.g.)"})
        EXPECT_FALSE(endsSentence(QString::fromUtf8(word))) << word;
    // Two or more trailing dots: an ellipsis.
    for (const char *word : {"wait...", "...", "so..", "U.S...", "well...”"})
        EXPECT_TRUE(endsSentence(QString::fromUtf8(word))) << word;
}

// --- Sentence starts --------------------------------------------------------------

std::vector<SentenceBoundary::Word> words(std::initializer_list<const char *> texts)
{
    std::vector<SentenceBoundary::Word> result;
    for (const char *t : texts)
        result.push_back({QString::fromUtf8(t), false});
    return result;
}

SentenceBoundary::Word pause()
{
    return {QString(), true};
}

TEST(SentenceStarts, EnglishWithAbbreviationsEllipsesAndQuotes)
{
    const auto w = words({"Hello", "world.", "We", "use", "tools,", "e.g.", "this", "one.", "She", "said", "\"right?\"",
        "Then", "she", "left."});
    const std::vector<int> expected{0, 2, 8, 11};
    EXPECT_EQ(SentenceBoundary::sentenceStarts(w), expected);
    EXPECT_EQ(SentenceBoundary::sentenceStarts(w, QStringLiteral("en-US")), expected);
    // A hint that names no known language falls back to the general rules.
    EXPECT_EQ(SentenceBoundary::sentenceStarts(w, QStringLiteral("xx")), expected);
}

TEST(SentenceStarts, HebrewArabicAndJapanese)
{
    const std::vector<int> expected{0, 2, 4};
    EXPECT_EQ(SentenceBoundary::sentenceStarts(words({"שלום", "לכם.", "מה", "שלומך?", "טוב"}), QStringLiteral("he_IL")),
        expected);
    EXPECT_EQ(SentenceBoundary::sentenceStarts(words({"مرحبا", "بكم.", "كيف", "حالك؟", "جيد"}), QStringLiteral("ar")),
        expected);
    EXPECT_EQ(SentenceBoundary::sentenceStarts(
                  words({"今日は", "晴れです。", "明日は", "雨でしょう。", "はい"}), QStringLiteral("ja")),
        expected);
}

TEST(SentenceStarts, IndicesAreIntoAllWordsSkippingPausesAndBlanks)
{
    auto w = words({"", "Hello", "world.", " ", "How", "are", "you?", "Fine."});
    w.insert(w.begin(), pause());
    w.insert(w.begin() + 4, pause());
    // pause, "", Hello, world., pause, " ", How, are, you?, Fine.
    EXPECT_EQ(SentenceBoundary::sentenceStarts(w), (std::vector<int>{2, 6, 9}));

    // A pause token's own text is never read.
    w[0].text = QStringLiteral("Ignored.");
    EXPECT_EQ(SentenceBoundary::sentenceStarts(w), (std::vector<int>{2, 6, 9}));

    EXPECT_TRUE(SentenceBoundary::sentenceStarts(std::vector<SentenceBoundary::Word>{}).empty());
    EXPECT_TRUE(SentenceBoundary::sentenceStarts(std::vector{pause(), SentenceBoundary::Word{" \n", false}}).empty());
}

TEST(SentenceStarts, BreaksInsideAWordStayStrictlyAscending)
{
    // The break after "Done." falls inside the first word, which already
    // starts the first sentence.
    EXPECT_EQ(SentenceBoundary::sentenceStarts(words({"Done. Then", "more."})), (std::vector<int>{0}));
    // Inside a later word, that word is the start.
    EXPECT_EQ(
        SentenceBoundary::sentenceStarts(words({"Yes", "done. Then", "more.", "Go."})), (std::vector<int>{0, 1, 3}));
}

struct TranscriptLikeWord {
    double start = 0;
    QString text;
    bool isPauseToken = false;
};

TEST(SentenceStarts, AcceptsAnyWordTypeWithTextAndPauseFlag)
{
    const QList<TranscriptLikeWord> w {
        {0.0, "First.", false}, {0.5, {}, true}, {1.0, "Second", false}, {1.4, "one.", false}};
    EXPECT_EQ(SentenceBoundary::sentenceStarts(w), (std::vector<int>{0, 2}));
    EXPECT_EQ(SentenceBoundary::sentenceRange(3, w), (SentenceBoundary::Range{2, 4}));
}

// --- Sentence range ---------------------------------------------------------------

TEST(SentenceRange, FromItsStartToTheNextOrTheEnd)
{
    using SentenceBoundary::Range;
    auto w = words({"Hello", "world.", "How", "are", "you?"});
    w.insert(w.begin() + 2, pause());
    // Hello, world., pause, How, are, you?  ->  starts 0 and 3
    EXPECT_EQ(SentenceBoundary::sentenceRange(0, w), (Range{0, 3}));
    EXPECT_EQ(SentenceBoundary::sentenceRange(1, w), (Range{0, 3}));
    EXPECT_EQ(SentenceBoundary::sentenceRange(2, w), (Range{0, 3})); // a pause stays with what it follows
    EXPECT_EQ(SentenceBoundary::sentenceRange(3, w), (Range{3, 6}));
    EXPECT_EQ(SentenceBoundary::sentenceRange(5, w), (Range{3, 6}));
}

TEST(SentenceRange, EmptyOutOfBoundsOrWithoutWords)
{
    const auto w = words({"One.", "Two."});
    EXPECT_TRUE(SentenceBoundary::sentenceRange(-1, w).isEmpty());
    EXPECT_TRUE(SentenceBoundary::sentenceRange(2, w).isEmpty());
    EXPECT_TRUE(SentenceBoundary::sentenceRange(0, std::vector<SentenceBoundary::Word>{}).isEmpty());
    EXPECT_TRUE(SentenceBoundary::sentenceRange(0, std::vector{pause(), pause()}).isEmpty());
    EXPECT_EQ(SentenceBoundary::sentenceRange(1, w).count(), 1);
}

TEST(SentenceRange, LeadingPausesMakeARangeOfTheirOwn)
{
    using SentenceBoundary::Range;
    auto w = words({"Hi.", "There", "we", "go."});
    w.insert(w.begin(), pause());
    w.insert(w.begin(), SentenceBoundary::Word{"  ", false});
    // "  ", pause, Hi., There, we, go.  ->  starts 2 and 3
    EXPECT_EQ(SentenceBoundary::sentenceStarts(w), (std::vector<int>{2, 3}));
    EXPECT_EQ(SentenceBoundary::sentenceRange(0, w), (Range{0, 2}));
    EXPECT_EQ(SentenceBoundary::sentenceRange(1, w), (Range{0, 2}));
    EXPECT_EQ(SentenceBoundary::sentenceRange(2, w), (Range{2, 3}));
    EXPECT_EQ(SentenceBoundary::sentenceRange(4, w), (Range{3, 6}));
}

} // namespace
