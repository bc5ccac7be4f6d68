#include "review/Suggestions.h"

#include "model/ProjectWorkspace.h"
#include "support/TempDir.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QFileInfo>

#include <gtest/gtest.h>

using namespace velum;

namespace {

TEST(SuggestionDecisions, AcceptingAndRejectingReplaceEachOther)
{
    SuggestionDecisions d;
    EXPECT_FALSE(d.isDecided("s1"));
    d.accept("s1");
    d.reject("s2");
    EXPECT_TRUE(d.isDecided("s1"));
    d.reject("s1");
    EXPECT_EQ(d.accepted, std::set<QString>{});
    EXPECT_EQ(d.rejected, (std::set<QString>{"s1", "s2"}));
    d.accept("s2");
    EXPECT_EQ(d.accepted, std::set<QString>{"s2"});
    EXPECT_EQ(d.rejected, std::set<QString>{"s1"});
}

TEST(SuggestionDecisionsCoding, SetsAreWrittenAsSortedArrays)
{
    const SuggestionDecisions d{{"sug-b", "sug-a", "Sug-c"}, {}};
    const QJsonObject written = json::parse(StageCoder::encode(d)).toObject();
    EXPECT_EQ(written.value("accepted").toArray(), (QJsonArray{"Sug-c", "sug-a", "sug-b"}));
    EXPECT_EQ(written.value("rejected"), QJsonValue(QJsonArray{}));
    EXPECT_EQ(written.size(), 2);
    EXPECT_EQ(StageCoder::decode<SuggestionDecisions>(StageCoder::encode(d)), d);
}

TEST(SuggestionDecisionsCoding, BothKeysAreRequired)
{
    EXPECT_EQ(StageCoder::decode<SuggestionDecisions>(R"({"accepted": ["a", "a"], "rejected": ["b"]})"),
              (SuggestionDecisions{{"a"}, {"b"}}));
    EXPECT_THROW(StageCoder::decode<SuggestionDecisions>(R"({"accepted": []})"), json::DecodingError);
    EXPECT_THROW(StageCoder::decode<SuggestionDecisions>(R"({"rejected": []})"), json::DecodingError);
    EXPECT_THROW(StageCoder::decode<SuggestionDecisions>(R"({"accepted": [1], "rejected": []})"),
                 json::DecodingError);
    EXPECT_THROW(StageCoder::decode<SuggestionDecisions>(R"(["a"])"), json::DecodingError);
}

TEST(SuggestionStore, SavesIntoAFolderItMakesAndReadsBack)
{
    test::TempDir dir;
    const auto store = SuggestionStore::in(dir.file("projects/P1"));
    EXPECT_EQ(QFileInfo(*store.path).fileName(), "suggestion_decisions.json");
    EXPECT_EQ(store.load(), SuggestionDecisions{});

    SuggestionDecisions d;
    d.accept("hook-1");
    d.reject("ramble-7");
    store.save(d);
    EXPECT_EQ(store.load(), d);

    // Undecided again: an empty record is written, not a deleted file.
    store.save({});
    EXPECT_TRUE(QFile::exists(*store.path));
    const QJsonObject written = json::parse(test::readBytes(*store.path)).toObject();
    EXPECT_EQ(written, (QJsonObject{{"accepted", QJsonArray{}}, {"rejected", QJsonArray{}}}));
}

TEST(SuggestionStore, AnUnreadableFileMeansNoDecisions)
{
    test::TempDir dir;
    const SuggestionStore store{dir.file("suggestion_decisions.json")};
    test::writeBytes(*store.path, "{\"accepted\": [\"a\"]");
    EXPECT_EQ(store.load(), SuggestionDecisions{});
    test::writeBytes(*store.path, "{\"accepted\": [\"a\"]}");
    EXPECT_EQ(store.load(), SuggestionDecisions{});
    test::writeBytes(*store.path, "{\"accepted\": [\"a\"], \"rejected\": [], \"later\": true}");
    EXPECT_EQ(store.load(), (SuggestionDecisions{{"a"}, {}}));
}

TEST(SuggestionStore, WithoutALocationOrWhenWritingFailsNothingHappens)
{
    SuggestionStore{}.save(SuggestionDecisions{{"a"}, {}});
    EXPECT_EQ(SuggestionStore{}.load(), SuggestionDecisions{});

    // The folder's place is taken by a file: the save is swallowed.
    test::TempDir dir;
    test::writeBytes(dir.file("blocked"), "not a folder");
    const SuggestionStore store{dir.file("blocked/suggestion_decisions.json")};
    EXPECT_NO_THROW(store.save(SuggestionDecisions{{"a"}, {}}));
    EXPECT_EQ(store.load(), SuggestionDecisions{});
}

} // namespace
