#include "model/Json.h"
#include "model/Project.h"
#include "support/TempDir.h"

#include <gtest/gtest.h>

#include <QFile>
#include <QJsonDocument>

using namespace velum;
using namespace velum::json;

namespace {

TEST(SnakeCase, FollowsWordBoundariesDigitsAndCapitalRuns)
{
    EXPECT_EQ(snakeCase(u"schemaVersion"), "schema_version");
    EXPECT_EQ(snakeCase(u"durationS"), "duration_s");
    EXPECT_EQ(snakeCase(u"removedMs"), "removed_ms");
    EXPECT_EQ(snakeCase(u"beforeP10Ms"), "before_p10_ms");
    EXPECT_EQ(snakeCase(u"afterP90Ms"), "after_p90_ms");
    EXPECT_EQ(snakeCase(u"profileID"), "profile_id");
    EXPECT_EQ(snakeCase(u"sourceURL"), "source_url");
    EXPECT_EQ(snakeCase(u"URLValue"), "url_value");
    EXPECT_EQ(snakeCase(u"clipId"), "clip_id");
    EXPECT_EQ(snakeCase(u"id"), "id");
}

TEST(Serialize, PrettySortedUnescapedSlashesShortestNumbers)
{
    QJsonObject inner{{"b", 2}, {"a", QJsonArray{1, 0.1, 1e21, -0.5}}};
    QJsonObject o{{"zeta", "a/b \"q\"\n"}, {"alpha", inner}, {"empty", QJsonArray{}}, {"obj", QJsonObject{}},
                  {"n", QJsonValue::Null}, {"t", true}, {"big", QJsonValue(qint64(9007199254740993))}};
    const QByteArray expected = "{\n"
                                "  \"alpha\" : {\n"
                                "    \"a\" : [\n"
                                "      1,\n"
                                "      0.1,\n"
                                "      1e+21,\n"
                                "      -0.5\n"
                                "    ],\n"
                                "    \"b\" : 2\n"
                                "  },\n"
                                "  \"big\" : 9007199254740993,\n"
                                "  \"empty\" : [],\n"
                                "  \"n\" : null,\n"
                                "  \"obj\" : {},\n"
                                "  \"t\" : true,\n"
                                "  \"zeta\" : \"a/b \\\"q\\\"\\n\"\n"
                                "}";
    EXPECT_EQ(serialize(o), expected);
}

TEST(Serialize, DoublesReadBackBitForBit)
{
    for (double d : {0.1, 1.0 / 3.0, 29.97002997002997, 1e-300, 123456.789, 5e-324, -2.5e17}) {
        const QByteArray text = serialize(QJsonArray{d});
        const auto back = parse(text).toArray().at(0).toDouble();
        EXPECT_EQ(back, d) << text.constData();
    }
    EXPECT_THROW(serialize(QJsonArray{std::numeric_limits<double>::quiet_NaN()}), EncodingError);
}

TEST(Parse, HostileTextThrowsInsteadOfCrashing)
{
    EXPECT_THROW(parse("{\"a\": 1"), DecodingError);
    EXPECT_THROW(parse(QByteArray(200000, '[')), DecodingError);
    EXPECT_THROW(parse("{\"a\":\"\xff\xfe\"}"), DecodingError);
    EXPECT_THROW(parse("{\"a\":1e400}"), DecodingError);
    EXPECT_THROW(parse(""), DecodingError);
    EXPECT_THROW(parse("\"just a string\""), DecodingError);
}

} // namespace

// A large document whose bulk is one array, as the state's projects are.
namespace velum::json::chunktest {
struct Item {
    QString w;
    int n = 0;
    friend bool operator==(const Item &, const Item &) = default;
};
struct Doc {
    std::vector<Item> items;
    QString after;
    friend bool operator==(const Doc &, const Doc &) = default;
};
} // namespace velum::json::chunktest

template <>
struct velum::json::Fields<velum::json::chunktest::Item> {
    static constexpr auto list = std::tuple{field("n", &chunktest::Item::n), field("w", &chunktest::Item::w)};
};
template <>
struct velum::json::Fields<velum::json::chunktest::Doc> {
    static constexpr auto list = std::tuple{field("after", &chunktest::Doc::after),
                                            field("items", &chunktest::Doc::items)};
};

namespace {

// A large document's long array is decoded in chunks on a few threads; the
// values and every error must be those of decoding the whole parsed text.
TEST(DecodeText, LongArraysInChunksMatchTheWholeDocument)
{
    using chunktest::Doc;
    using chunktest::Item;
    constexpr auto style = KeyStyle::fieldNames;
    const auto outcome = [](auto decodeIt) -> std::string {
        try {
            const auto value = decodeIt();
            return serialize(encode(value, style)).toStdString();
        } catch (const DecodingError &e) {
            return e.what();
        }
    };
    const auto same = [&]<class T>(const QByteArray &text) {
        const std::string chunked = outcome([&] { return decodeText<T>(text, style); });
        EXPECT_EQ(chunked, outcome([&] { return decode<T>(parse(text), style); }));
        return chunked;
    };
    // Strings and ignored keys full of brackets, commas, quotes and
    // backslashes, and an escaped key for the array.
    QByteArrayList elements;
    for (int i = 0; i < 6000; ++i)
        elements += R"({"k\"],[": ")" + QByteArray::number(i) + R"( ]},{\\", "v": ["\\", {"}": "["}], "w": "\"\\\"]", "n": )" +
                    QByteArray::number(i) + "}";
    const auto document = [&](const QByteArrayList &items) {
        return R"({"before": {"a": [1, "]"]}, "it\u0065ms": [)" + items.join(",\n ") + R"(], "after": "x"})";
    };
    const QByteArray text = document(elements);
    const auto chunks = detail::ArrayChunks::find(text);
    ASSERT_TRUE(chunks);
    EXPECT_GT(chunks->count(), 4u);
    EXPECT_EQ(chunks->key(), "items");
    const auto decoded = detail::decodeInChunks<Doc>(text, style);
    ASSERT_TRUE(decoded);
    ASSERT_EQ(decoded->items.size(), 6000u);
    EXPECT_EQ(decoded->items[4321], (Item{.w = R"("\"])", .n = 4321}));
    EXPECT_EQ(decoded->after, "x");
    same.operator()<Doc>(text);

    // With the key written twice, the parser's choice stands.
    QByteArray twice = text;
    twice.insert(twice.size() - 1, R"(, "items": [])");
    EXPECT_FALSE(detail::decodeInChunks<Doc>(twice, style));
    EXPECT_TRUE(same.operator()<Doc>(twice).ends_with("[]\n}"));

    // Malformed text, an element nested one level past the parser's limit
    // only counting the brackets around the array, and a value of the wrong
    // type deep in the array.
    QByteArrayList malformed = elements;
    malformed[4000].replace(R"("v": [)", R"("v": [,)");
    EXPECT_TRUE(same.operator()<Doc>(document(malformed)).starts_with("not valid JSON"));
    QByteArrayList deep = elements;
    deep[3000] = QByteArray(1023, '[') + QByteArray(1023, ']');
    EXPECT_TRUE(same.operator()<Doc>(document(deep)).starts_with("not valid JSON"));
    // Two commas with only space between them, with a cut at each: that
    // piece parses to nothing, though the whole text does not parse.
    const QByteArray head = document({}).left(document({}).indexOf(R"(ms": [)") + 6);
    const QByteArray before = head + elements.mid(0, 100).join(",\n ") + ",\n ";
    QByteArray big = R"({"w": ")" + QByteArray(detail::ArrayChunks::bytesPerChunk + 100, 'a') + R"(", "n": 1})";
    const qsizetype firstComma = before.size() + big.size();
    const qsizetype share = detail::ArrayChunks::bytesPerChunk;
    big.insert(7, QByteArray((share - (firstComma + 1 - (head.size() - 1)) % share) % share, 'a'));
    const QByteArray holes = before + big + ", ," + elements.mid(100).join(",\n ") + R"(], "after": "x"})";
    const auto holeChunks = detail::ArrayChunks::find(holes);
    ASSERT_TRUE(holeChunks);
    std::size_t unparsed = 0;
    for (std::size_t c = 0; c < holeChunks->count(); ++c)
        unparsed += holeChunks->parse(c) ? 0 : 1;
    EXPECT_EQ(unparsed, 1u);
    EXPECT_TRUE(same.operator()<Doc>(holes).starts_with("not valid JSON"));
    QByteArrayList wrongType = elements;
    wrongType[5000].replace(R"("n": 5000)", R"("n": "5000")");
    EXPECT_TRUE(same.operator()<Doc>(document(wrongType)).starts_with("items[5000].n:"));

    // The document itself an array, whole and with text after it.
    const QByteArray array = "[" + elements.join(",") + "]";
    ASSERT_TRUE(detail::decodeInChunks<std::vector<Item>>(array, style));
    same.operator()<std::vector<Item>>(array);
    EXPECT_TRUE(same.operator()<std::vector<Item>>(array + " []").starts_with("not valid JSON"));
}

TEST(Dates, WholeSecondsInUtcAndZoneOffsetsOnReading)
{
    const QDateTime t = QDateTime::fromMSecsSinceEpoch(1700000000123, Qt::UTC);
    EXPECT_EQ(formatDate(t), "2023-11-14T22:13:20Z");
    EXPECT_EQ(parseDate(u"2023-11-14T22:13:20Z"), QDateTime::fromSecsSinceEpoch(1700000000, Qt::UTC));
    EXPECT_EQ(parseDate(u"2023-11-15T00:13:20+02:00"), QDateTime::fromSecsSinceEpoch(1700000000, Qt::UTC));
    EXPECT_EQ(parseDate(u"2023-11-14T22:13:20.789Z"), QDateTime::fromSecsSinceEpoch(1700000000, Qt::UTC));
    EXPECT_FALSE(parseDate(u"2023-11-14 22:13:20"));
    EXPECT_FALSE(parseDate(u"2023-02-30T00:00:00Z"));
    EXPECT_FALSE(parseDate(u"2023-11-14T22:13:20"));
}

TEST(Primitives, StrictTypesAndRanges)
{
    constexpr auto s = KeyStyle::snakeCase;
    EXPECT_EQ(decode<int>(QJsonValue(3.0), s), 3);
    EXPECT_THROW(decode<int>(QJsonValue(3.5), s), DecodingError);
    EXPECT_THROW(decode<int>(QJsonValue(qint64(1) << 40), s), DecodingError);
    EXPECT_THROW(decode<int>(QJsonValue("3"), s), DecodingError);
    EXPECT_THROW(decode<bool>(QJsonValue(1), s), DecodingError);
    EXPECT_EQ(decode<double>(QJsonValue(2), s), 2.0);
    EXPECT_THROW(decode<QUuid>(QJsonValue("not-a-uuid"), s), DecodingError);
    EXPECT_EQ(decode<QUuid>(QJsonValue("6ba7b810-9dad-11d1-80b4-00c04fd430c8"), s),
              QUuid::fromString(u"{6BA7B810-9DAD-11D1-80B4-00C04FD430C8}"));
    EXPECT_EQ(encode(QUuid::fromString(u"6ba7b810-9dad-11d1-80b4-00c04fd430c8"), s).toString(),
              "6BA7B810-9DAD-11D1-80B4-00C04FD430C8");
    EXPECT_EQ(encode(QUrl::fromLocalFile("/Volumes/Card 1/Día #2.mov"), s).toString(),
              "file:///Volumes/Card%201/D%C3%ADa%20%232.mov");
    EXPECT_THROW(decode<QUrl>(QJsonValue(""), s), DecodingError);
    EXPECT_THROW(decode<CutReason>(QJsonValue("boredom"), s), DecodingError);
    EXPECT_EQ(decode<CutReason>(QJsonValue("off_script"), s), CutReason::offScript);
}

TEST(DecodingErrors, NameTheLocation)
{
    const QByteArray doc = R"({"files":[{"id":"6BA7B810-9DAD-11D1-80B4-00C04FD430C8","url":"file:///a.mov",
        "role":"a_roll","state":"ok","media":{"clipId":"x","durationS":"long"}}]})";
    try {
        StateCoder::decode<std::vector<ProjectFile>>(StateCoder::encode(std::vector<ProjectFile>{}));
        (void)StateCoder::decode<Project>(doc);
        FAIL() << "decoded a project without its required keys";
    } catch (const DecodingError &e) {
        EXPECT_EQ(e.path(), "id");
    }
    try {
        (void)StateCoder::decode<std::map<QString, std::vector<ProjectFile>>>(R"({"k":)" + doc.mid(9, doc.size() - 10) + "}");
        FAIL();
    } catch (const DecodingError &e) {
        EXPECT_EQ(e.path(), "k[0].media.durationS");
        EXPECT_STREQ(e.what(), "k[0].media.durationS: expected a number, found a string");
    }
}

TEST(DecodingErrors, LongArraysDecodeInOrderAndNameTheEarliestFailure)
{
    // Long enough to be decoded in slices on several threads.
    std::vector<MediaTimecode> codes;
    for (int i = 0; i < 1000; ++i)
        codes.push_back(MediaTimecode{.value = i, .timescale = 30000, .source = MediaTimecode::Source::timecodeTrack, .text = QString::number(i)});
    const QByteArray text = StateCoder::encode(codes);
    EXPECT_EQ(StateCoder::decode<std::vector<MediaTimecode>>(text), codes);

    QByteArray broken = text;
    for (const int bad : {937, 611, 702}) {
        const QByteArray key = "\"text\" : \"" + QByteArray::number(bad) + "\"";
        broken.replace(key, "\"text\" : " + QByteArray::number(bad));
    }
    try {
        (void)StateCoder::decode<std::vector<MediaTimecode>>(broken);
        FAIL() << "decoded numbers as texts";
    } catch (const DecodingError &e) {
        EXPECT_STREQ(e.what(), "[611].text: expected a string, found a number");
    }
}

TEST(Files, AtomicWriteReplacesWholeAndReadTreatsFailureAsAbsent)
{
    test::TempDir dir;
    const QString path = dir.file("media.json");
    ClipMedia media{.clipId = "abc", .durationS = 12.5, .fps = 25.0};
    StageCoder::write(media, path);
    EXPECT_EQ(StageCoder::read<ClipMedia>(path), media);
    EXPECT_TRUE(test::readBytes(path).contains("\"duration_s\" : 12.5"));
    // The state coder reads field names, so the stage document is not one.
    EXPECT_FALSE(StateCoder::read<ClipMedia>(path));
    EXPECT_FALSE(StageCoder::read<ClipMedia>(dir.file("missing.json")));
    EXPECT_FALSE(StageCoder::read<ClipMedia>(dir.path()));
    test::writeBytes(path, "{\"clip_id\": ");
    EXPECT_FALSE(StageCoder::read<ClipMedia>(path));
    EXPECT_THROW(StageCoder::write(media, dir.file("no/such/folder/x.json")), FileWriteError);
    // Only the target file is left behind.
    EXPECT_EQ(QDir(dir.path()).entryList(QDir::Files), QStringList{"media.json"});
}

} // namespace
