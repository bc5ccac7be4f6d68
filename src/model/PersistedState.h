#pragma once

// What the application remembers about one account between runs: the content
// of its "state.json", and the small caches of what the server knows about
// style profiles, so that the style screens have something to show offline.

#include "model/CreatorProfile.h"
#include "model/Json.h"
#include "model/Project.h"

#include <QDateTime>
#include <QString>
#include <QUrl>
#include <QUuid>

#include <map>
#include <optional>
#include <set>
#include <variant>
#include <vector>

namespace velum {

// What the new-project sheet last used: a profile, or no profile at all.
//
// Stored as an object with exactly one key naming the case:
//   {"profile": {"_0": "<UUID>"}}   or   {"noProfile": {}}
struct StyleChoice {
    struct Profile {
        QUuid id;
        friend bool operator==(const Profile &, const Profile &) = default;
    };
    struct NoProfile {
        friend bool operator==(const NoProfile &, const NoProfile &) = default;
    };

    std::variant<Profile, NoProfile> value;

    friend bool operator==(const StyleChoice &, const StyleChoice &) = default;

    static StyleChoice profile(const QUuid &id) { return {Profile{id}}; }
    static StyleChoice noProfile() { return {NoProfile{}}; }

    // The profile's id for the `profile` case.
    std::optional<QUuid> profileID() const;
};

// The decoding error of a style choice whose object does not name exactly
// one case.
inline constexpr const char *styleChoiceKeyCountError = "Invalid number of keys found, expected one.";

// Local display facts of server videos, by the server's video identifier:
// what the server cannot know, such as where the file is on this machine.
struct VideoDisplayCache {
    struct Entry {
        std::optional<QUrl> url;
        std::optional<QString> youtubeID;

        friend bool operator==(const Entry &, const Entry &) = default;
    };

    std::map<QString, Entry> entries;

    friend bool operator==(const VideoDisplayCache &, const VideoDisplayCache &) = default;

    // Records where a server video's file is. A call with neither value, or
    // with the URL already stored and no YouTube id, changes nothing;
    // otherwise the entry is set to the given values, and a URL not given
    // keeps the stored one.
    void remember(const QString &videoID, const std::optional<QUrl> &url, const std::optional<QString> &youtubeID);
    // Removes every entry whose key is not in `keeping`.
    void prune(const std::set<QString> &keeping);
};

// What the server last said about the account's profiles.
struct ProfileSnapshot {
    struct Video {
        QString id; // the server's video identifier
        QString filename;
        std::optional<QDateTime> publishedAt;
        std::optional<QDateTime> ingestedAt;
        std::optional<double> durationS;
        std::optional<QUrl> sourceURL;

        friend bool operator==(const Video &, const Video &) = default;
    };

    struct Entry {
        QUuid id;
        QString name;
        std::optional<QDateTime> createdAt;
        std::vector<Video> videos;

        friend bool operator==(const Entry &, const Entry &) = default;
    };

    std::vector<Entry> profiles;
    std::optional<QDateTime> fetchedAt;

    friend bool operator==(const ProfileSnapshot &, const ProfileSnapshot &) = default;

    // A stable, name-based UUID for a server video: the same identifier
    // gives the same UUID on every machine and every fetch.
    static QUuid identity(const QString &serverVideoID);

    // The rows of the style screens: every video the server has, as
    // `analyzed`, followed by the pending videos the snapshot does not
    // already hold (matched by server id, or by profile and file name).
    std::vector<StyleVideo> styleVideos(const std::vector<StyleVideo> &pending, const VideoDisplayCache &display) const;

    // The profiles in the snapshot's order, as the profile index lists
    // them. A profile the server gave no date counts as made in the distant
    // past, which is also where it sorts.
    std::vector<CreatorProfile> creatorProfiles() const;
};

// The content of "state.json". Every key may be absent, so that a file from
// an older version still reads: an absent `version` is 1, everything else
// empty.
struct PersistedState {
    // The format written by this build.
    static constexpr int currentVersion = 3;

    int version = 1;
    std::vector<Project> projects;
    std::vector<StyleVideo> styleVideos;
    ProfileSnapshot profileSnapshot;
    VideoDisplayCache videoDisplay;
    std::optional<QUuid> selectedProfileID;
    std::optional<StyleChoice> newProjectStyle;

    friend bool operator==(const PersistedState &, const PersistedState &) = default;

    // The state of an account with nothing stored yet.
    static PersistedState fresh();
};

// The distant past: the date given to a profile the server sent without one.
QDateTime distantPast();

} // namespace velum

namespace velum::json {

template <>
struct Coding<StyleChoice> {
    static QJsonValue encode(const StyleChoice &choice, KeyStyle style);
    static StyleChoice decode(const QJsonValue &value, KeyStyle style);
};

template <>
struct Fields<VideoDisplayCache::Entry> {
    static constexpr auto list = std::tuple{
        field("url", &VideoDisplayCache::Entry::url),
        field("youtubeID", &VideoDisplayCache::Entry::youtubeID),
    };
};

template <>
struct Fields<VideoDisplayCache> {
    static constexpr auto list = std::tuple{
        field("entries", &VideoDisplayCache::entries),
    };
};

template <>
struct Fields<ProfileSnapshot::Video> {
    static constexpr auto list = std::tuple{
        field("id", &ProfileSnapshot::Video::id),
        field("filename", &ProfileSnapshot::Video::filename),
        field("publishedAt", &ProfileSnapshot::Video::publishedAt),
        field("ingestedAt", &ProfileSnapshot::Video::ingestedAt),
        field("durationS", &ProfileSnapshot::Video::durationS),
        field("sourceURL", &ProfileSnapshot::Video::sourceURL),
    };
};

template <>
struct Fields<ProfileSnapshot::Entry> {
    static constexpr auto list = std::tuple{
        field("id", &ProfileSnapshot::Entry::id),
        field("name", &ProfileSnapshot::Entry::name),
        field("createdAt", &ProfileSnapshot::Entry::createdAt),
        field("videos", &ProfileSnapshot::Entry::videos),
    };
};

template <>
struct Fields<ProfileSnapshot> {
    static constexpr auto list = std::tuple{
        field("profiles", &ProfileSnapshot::profiles),
        field("fetchedAt", &ProfileSnapshot::fetchedAt),
    };
};

template <>
struct Fields<PersistedState> {
    static constexpr auto list = std::tuple{
        field("version", &PersistedState::version, Absent::keepDefault),
        field("projects", &PersistedState::projects, Absent::keepDefault),
        field("styleVideos", &PersistedState::styleVideos, Absent::keepDefault),
        field("profileSnapshot", &PersistedState::profileSnapshot, Absent::keepDefault),
        field("videoDisplay", &PersistedState::videoDisplay, Absent::keepDefault),
        field("selectedProfileID", &PersistedState::selectedProfileID, Absent::keepDefault),
        field("newProjectStyle", &PersistedState::newProjectStyle, Absent::keepDefault),
    };
};

} // namespace velum::json
