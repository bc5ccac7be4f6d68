#include "model/Json.h"
#include "model/PersistedState.h"

#include <gtest/gtest.h>

using namespace velum;

namespace {

const QUuid profileA = QUuid::fromString(u"6ba7b810-9dad-11d1-80b4-00c04fd430c8");
const QUuid profileB = QUuid::fromString(u"1f0e3dad-9990-4e44-9b8c-aaaaaaaaaaaa");

QJsonObject asObject(const QByteArray &text)
{
    return json::parse(text).toObject();
}

TEST(StyleChoiceCoding, OneKeyNamingTheCaseWithPositionalPayload)
{
    const QByteArray profile = StateCoder::encode(StyleChoice::profile(profileA));
    EXPECT_EQ(asObject(profile),
              (QJsonObject{{"profile", QJsonObject{{"_0", "6BA7B810-9DAD-11D1-80B4-00C04FD430C8"}}}}));
    EXPECT_EQ(asObject(StateCoder::encode(StyleChoice::noProfile())), (QJsonObject{{"noProfile", QJsonObject{}}}));

    EXPECT_EQ(StateCoder::decode<StyleChoice>(profile), StyleChoice::profile(profileA));
    EXPECT_EQ(StateCoder::decode<StyleChoice>(R"({"noProfile":{}})"), StyleChoice::noProfile());
    EXPECT_EQ(StateCoder::decode<StyleChoice>(R"({"profile":{"_0":"6ba7b810-9dad-11d1-80b4-00c04fd430c8"}})")
                  .profileID(),
              profileA);
    EXPECT_FALSE(StyleChoice::noProfile().profileID());
}

TEST(StyleChoiceCoding, AnyOtherNumberOfCaseKeysFailsWithItsOwnText)
{
    for (const QByteArray &doc : {QByteArray(R"({})"), QByteArray(R"({"other":{}})"),
                                 QByteArray(R"({"noProfile":{},"profile":{"_0":"6BA7B810-9DAD-11D1-80B4-00C04FD430C8"}})")}) {
        try {
            (void)StateCoder::decode<StyleChoice>(doc);
            FAIL() << doc.constData();
        } catch (const json::DecodingError &e) {
            EXPECT_EQ(e.message(), "Invalid number of keys found, expected one.") << doc.constData();
        }
    }
    // Inside a record the location is named before the text.
    try {
        (void)StateCoder::decode<PersistedState>(R"({"newProjectStyle":{}})");
        FAIL();
    } catch (const json::DecodingError &e) {
        EXPECT_STREQ(e.what(), "newProjectStyle: Invalid number of keys found, expected one.");
    }
}

TEST(StyleChoiceCoding, MalformedPayloadsFail)
{
    EXPECT_THROW(StateCoder::decode<StyleChoice>(R"({"profile":{}})"), json::DecodingError);
    EXPECT_THROW(StateCoder::decode<StyleChoice>(R"({"profile":{"_0":"nope"}})"), json::DecodingError);
    EXPECT_THROW(StateCoder::decode<StyleChoice>(R"({"profile":"6BA7B810-9DAD-11D1-80B4-00C04FD430C8"})"),
                 json::DecodingError);
    EXPECT_THROW(StateCoder::decode<StyleChoice>(R"({"noProfile":true})"), json::DecodingError);
    EXPECT_THROW(StateCoder::decode<StyleChoice>(R"(["profile"])"), json::DecodingError);
}

TEST(PersistedStateCoding, EveryKeyMayBeAbsent)
{
    const auto state = StateCoder::decode<PersistedState>("{}");
    EXPECT_EQ(state.version, 1);
    EXPECT_TRUE(state.projects.empty());
    EXPECT_TRUE(state.styleVideos.empty());
    EXPECT_EQ(state.profileSnapshot, ProfileSnapshot{});
    EXPECT_EQ(state.videoDisplay, VideoDisplayCache{});
    EXPECT_FALSE(state.selectedProfileID);
    EXPECT_FALSE(state.newProjectStyle);
    EXPECT_EQ(PersistedState::fresh().version, 3);
}

TEST(PersistedStateCoding, FieldNamesAsKeysAndFullRoundTrip)
{
    PersistedState state = PersistedState::fresh();
    Project project;
    project.id = profileB;
    project.name = "Launch video";
    project.createdAt = QDateTime::fromSecsSinceEpoch(1700000000, Qt::UTC);
    project.profileID = profileA;
    ProjectFile file;
    file.id = profileA;
    file.url = QUrl::fromLocalFile("/Volumes/Card 1/A001.mov");
    file.state = ProjectFileState::ok;
    file.media = ClipMedia{.clipId = "abc123", .durationS = 61.5, .fps = 29.97};
    project.files.push_back(file);
    state.projects.push_back(project);
    StyleVideo video;
    video.id = profileB;
    video.filename = "talk.mp4";
    video.profileID = profileA;
    video.status = StyleVideoStatus::queued;
    state.styleVideos.push_back(video);
    state.profileSnapshot.fetchedAt = QDateTime::fromSecsSinceEpoch(1700000100, Qt::UTC);
    state.profileSnapshot.profiles.push_back(ProfileSnapshot::Entry{
        .id = profileA,
        .name = "Main",
        .createdAt = std::nullopt,
        .videos = {ProfileSnapshot::Video{.id = "v1", .filename = "one.mp4", .durationS = 12.25,
                                          .sourceURL = QUrl("https://example.com/watch?v=1")}},
    });
    state.videoDisplay.entries["v1"] = VideoDisplayCache::Entry{.url = QUrl::fromLocalFile("/tmp/one.mp4"), .youtubeID = "abc"};
    state.selectedProfileID = profileA;
    state.newProjectStyle = StyleChoice::profile(profileA);

    const QByteArray text = StateCoder::encode(state);
    EXPECT_TRUE(text.contains("\"selectedProfileID\" : \"6BA7B810-9DAD-11D1-80B4-00C04FD430C8\""));
    EXPECT_TRUE(text.contains("\"clipId\" : \"abc123\""));
    EXPECT_TRUE(text.contains("\"youtubeID\" : \"abc\""));
    EXPECT_TRUE(text.contains("\"fetchedAt\" : \"2023-11-14T22:15:00Z\""));
    EXPECT_FALSE(text.contains("clip_id"));
    EXPECT_FALSE(text.contains("null"));
    EXPECT_EQ(StateCoder::decode<PersistedState>(text), state);
}

TEST(PersistedStateCoding, SnapshotAndCacheRequireTheirOwnKeys)
{
    EXPECT_THROW(StateCoder::decode<PersistedState>(R"({"profileSnapshot":{}})"), json::DecodingError);
    EXPECT_THROW(StateCoder::decode<PersistedState>(R"({"videoDisplay":{}})"), json::DecodingError);
    EXPECT_NO_THROW(StateCoder::decode<PersistedState>(R"({"profileSnapshot":{"profiles":[]},"videoDisplay":{"entries":{}}})"));
    EXPECT_THROW(StateCoder::decode<PersistedState>(R"({"version":"3"})"), json::DecodingError);
}

TEST(ProfileSnapshotIdentity, StableNameBasedUuid)
{
    // SHA-256 of "yt_dQw4w9WgXcQ" begins ca17e9d117a6da863d7cbe10b43207c3;
    // byte 6 becomes 0x5a and byte 8 becomes 0xbd.
    const QUuid expected = QUuid::fromString(u"CA17E9D1-17A6-5A86-BD7C-BE10B43207C3");
    EXPECT_EQ(ProfileSnapshot::identity("yt_dQw4w9WgXcQ"), expected);
    EXPECT_EQ(ProfileSnapshot::identity("yt_dQw4w9WgXcQ"), ProfileSnapshot::identity(QString("yt_dQw4w9WgXcQ")));
    EXPECT_NE(ProfileSnapshot::identity("yt_dQw4w9WgXcR"), expected);
    const QUuid other = ProfileSnapshot::identity(QString::fromUtf8("vidéo-✓"));
    EXPECT_EQ(other.version(), QUuid::Sha1); // version nibble 5
    EXPECT_EQ(other.variant(), QUuid::DCE);
}

StyleVideo pendingVideo(const QString &filename, StyleVideoStatus status, std::optional<QUuid> profile,
                        std::optional<QString> serverID = std::nullopt)
{
    StyleVideo v;
    v.id = QUuid::createUuid();
    v.filename = filename;
    v.status = status;
    v.profileID = profile;
    v.serverVideoID = serverID;
    return v;
}

TEST(ProfileSnapshotStyleVideos, ServerVideosFirstWithLocalDisplayFacts)
{
    ProfileSnapshot snapshot;
    snapshot.profiles = {
        {.id = profileA, .name = "A", .videos = {{.id = "s1", .filename = "one.mp4",
                                                  .publishedAt = QDateTime::fromSecsSinceEpoch(1600000000, Qt::UTC),
                                                  .sourceURL = QUrl("https://youtu.be/one")},
                                                 {.id = "s2", .filename = "two.mp4"}}},
        {.id = profileB, .name = "B", .videos = {{.id = "s3", .filename = "three.mp4"}}},
    };
    VideoDisplayCache display;
    display.entries["s2"] = {.url = QUrl::fromLocalFile("/media/two.mp4"), .youtubeID = "yt2"};

    const auto rows = snapshot.styleVideos({}, display);
    ASSERT_EQ(rows.size(), 3u);
    EXPECT_EQ(rows[0].id, ProfileSnapshot::identity("s1"));
    EXPECT_EQ(rows[0].filename, "one.mp4");
    EXPECT_EQ(rows[0].profileID, profileA);
    EXPECT_EQ(rows[0].publishedAt, QDateTime::fromSecsSinceEpoch(1600000000, Qt::UTC));
    EXPECT_EQ(rows[0].sourceURL, QUrl("https://youtu.be/one"));
    EXPECT_EQ(rows[0].serverVideoID, "s1");
    EXPECT_EQ(rows[0].status, StyleVideoStatus::analyzed);
    EXPECT_FALSE(rows[0].url);
    EXPECT_EQ(rows[1].url, QUrl::fromLocalFile("/media/two.mp4"));
    EXPECT_EQ(rows[1].youtubeID, "yt2");
    EXPECT_EQ(rows[2].profileID, profileB);
}

TEST(ProfileSnapshotStyleVideos, PendingMergedByServerIdAndByProfileAndFilename)
{
    ProfileSnapshot snapshot;
    snapshot.profiles = {{.id = profileA, .name = "A", .videos = {{.id = "s1", .filename = "one.mp4"},
                                                                 {.id = "s2", .filename = "two.mp4"}}}};
    const std::vector<StyleVideo> pending{
        pendingVideo("renamed.mp4", StyleVideoStatus::analyzed, profileA, "s1"), // known by server id
        pendingVideo("two.mp4", StyleVideoStatus::analyzed, profileA),           // known by profile and name
        pendingVideo("two.mp4", StyleVideoStatus::analyzed, profileB),           // other profile: new
        pendingVideo("two.mp4", StyleVideoStatus::queued, profileA),             // not analyzed: kept
        pendingVideo("one.mp4", StyleVideoStatus::failed, profileA, "s1"),       // not analyzed: kept
        pendingVideo("three.mp4", StyleVideoStatus::analyzed, profileA, "s9"),   // not in the snapshot yet
        pendingVideo("two.mp4", StyleVideoStatus::analyzed, std::nullopt),       // no profile to match
    };
    const auto rows = snapshot.styleVideos(pending, {});
    ASSERT_EQ(rows.size(), 2u + 5u);
    EXPECT_EQ(rows[0].serverVideoID, "s1");
    EXPECT_EQ(rows[1].serverVideoID, "s2");
    const std::vector<StyleVideo> kept(rows.begin() + 2, rows.end());
    EXPECT_EQ(kept, (std::vector<StyleVideo>{pending[2], pending[3], pending[4], pending[5], pending[6]}));
}

TEST(ProfileSnapshotCreatorProfiles, OrderKeptAndMissingDatesInTheDistantPast)
{
    ProfileSnapshot snapshot;
    const QDateTime made = QDateTime::fromSecsSinceEpoch(1650000000, Qt::UTC);
    snapshot.profiles = {{.id = profileA, .name = "A", .createdAt = made}, {.id = profileB, .name = "B"}};
    const auto profiles = snapshot.creatorProfiles();
    ASSERT_EQ(profiles.size(), 2u);
    EXPECT_EQ(profiles[0], (CreatorProfile{profileA, "A", made}));
    EXPECT_EQ(profiles[1].createdAt, distantPast());
    // The distant past survives the profile index's coder.
    EXPECT_EQ(StageCoder::decode<std::vector<CreatorProfile>>(StageCoder::encode(profiles)), profiles);
}

TEST(VideoDisplayCacheRemember, FollowsTheUpdateRules)
{
    const QUrl one = QUrl::fromLocalFile("/media/one.mp4");
    const QUrl two = QUrl::fromLocalFile("/media/two.mp4");
    VideoDisplayCache cache;

    cache.remember("v", std::nullopt, std::nullopt);
    EXPECT_TRUE(cache.entries.empty());

    cache.remember("v", one, std::nullopt);
    EXPECT_EQ(cache.entries.at("v"), (VideoDisplayCache::Entry{one, std::nullopt}));

    cache.remember("v", std::nullopt, QString("yt1"));
    EXPECT_EQ(cache.entries.at("v"), (VideoDisplayCache::Entry{one, "yt1"})) << "a URL not given keeps the stored one";

    cache.remember("v", one, std::nullopt);
    EXPECT_EQ(cache.entries.at("v"), (VideoDisplayCache::Entry{one, "yt1"})) << "same URL, no YouTube id: no change";

    cache.remember("v", two, std::nullopt);
    EXPECT_EQ(cache.entries.at("v"), (VideoDisplayCache::Entry{two, std::nullopt}));

    cache.remember("w", std::nullopt, QString("yt2"));
    EXPECT_EQ(cache.entries.at("w"), (VideoDisplayCache::Entry{std::nullopt, "yt2"}));
    EXPECT_EQ(cache.entries.size(), 2u);
}

TEST(VideoDisplayCachePrune, KeepsOnlyTheGivenKeys)
{
    VideoDisplayCache cache;
    for (const char *id : {"a", "b", "c"})
        cache.remember(id, std::nullopt, QString(id));
    cache.prune({"b", "z"});
    ASSERT_EQ(cache.entries.size(), 1u);
    EXPECT_TRUE(cache.entries.contains("b"));
    cache.prune({});
    EXPECT_TRUE(cache.entries.empty());
}

} // namespace
