#include "model/PersistedState.h"

#include <QCryptographicHash>

#include <QSet>

namespace velum {

namespace {

const QString profileKey = QStringLiteral("profile");
const QString noProfileKey = QStringLiteral("noProfile");
const QString payloadKey = QStringLiteral("_0");

QString uuidText(const QUuid &id)
{
    return id.toString(QUuid::WithoutBraces).toUpper();
}

} // namespace

std::optional<QUuid> StyleChoice::profileID() const
{
    if (const auto *p = std::get_if<Profile>(&value))
        return p->id;
    return std::nullopt;
}

void VideoDisplayCache::remember(const QString &videoID, const std::optional<QUrl> &url,
                                 const std::optional<QString> &youtubeID)
{
    if (!url && !youtubeID)
        return;
    const auto found = entries.find(videoID);
    const std::optional<QUrl> stored = found != entries.end() ? found->second.url : std::nullopt;
    if (url && stored == url && !youtubeID)
        return;
    entries[videoID] = Entry{.url = url ? url : stored, .youtubeID = youtubeID};
}

void VideoDisplayCache::prune(const std::set<QString> &keeping)
{
    std::erase_if(entries, [&](const auto &entry) { return !keeping.contains(entry.first); });
}

QUuid ProfileSnapshot::identity(const QString &serverVideoID)
{
    QByteArray bytes = QCryptographicHash::hash(serverVideoID.toUtf8(), QCryptographicHash::Sha256).left(16);
    bytes[6] = static_cast<char>(0x50 | (static_cast<unsigned char>(bytes[6]) & 0x0F));
    bytes[8] = static_cast<char>(0x80 | (static_cast<unsigned char>(bytes[8]) & 0x3F));
    return QUuid::fromRfc4122(bytes);
}

std::vector<StyleVideo> ProfileSnapshot::styleVideos(const std::vector<StyleVideo> &pending,
                                                     const VideoDisplayCache &display) const
{
    std::vector<StyleVideo> result;
    QSet<QString> seenServerIDs;
    QSet<QString> seenProfileFiles;
    const auto profileFileKey = [](const QUuid &profile, const QString &filename) {
        return uuidText(profile) + QLatin1Char('|') + filename;
    };

    for (const auto &entry : profiles) {
        for (const auto &video : entry.videos) {
            StyleVideo row;
            row.id = identity(video.id);
            row.filename = video.filename;
            row.profileID = entry.id;
            row.publishedAt = video.publishedAt;
            row.sourceURL = video.sourceURL;
            row.serverVideoID = video.id;
            row.status = StyleVideoStatus::analyzed;
            if (const auto shown = display.entries.find(video.id); shown != display.entries.end()) {
                row.url = shown->second.url;
                row.youtubeID = shown->second.youtubeID;
            }
            result.push_back(std::move(row));
            seenServerIDs.insert(video.id);
            seenProfileFiles.insert(profileFileKey(entry.id, video.filename));
        }
    }

    for (const auto &video : pending) {
        if (video.status == StyleVideoStatus::analyzed) {
            const bool knownByID = video.serverVideoID && seenServerIDs.contains(*video.serverVideoID);
            const bool knownByName =
                video.profileID && seenProfileFiles.contains(profileFileKey(*video.profileID, video.filename));
            if (knownByID || knownByName)
                continue;
        }
        result.push_back(video);
    }
    return result;
}

std::vector<CreatorProfile> ProfileSnapshot::creatorProfiles() const
{
    std::vector<CreatorProfile> result;
    result.reserve(profiles.size());
    for (const auto &entry : profiles)
        result.push_back(CreatorProfile{.id = entry.id, .name = entry.name, .createdAt = entry.createdAt.value_or(distantPast())});
    return result;
}

PersistedState PersistedState::fresh()
{
    PersistedState state;
    state.version = currentVersion;
    return state;
}

QDateTime distantPast()
{
    return QDateTime(QDate(1, 1, 1), QTime(0, 0), Qt::UTC);
}

} // namespace velum

namespace velum::json {

QJsonValue Coding<StyleChoice>::encode(const StyleChoice &choice, KeyStyle style)
{
    QJsonObject object;
    if (const auto *p = std::get_if<StyleChoice::Profile>(&choice.value))
        object.insert(profileKey, QJsonObject{{payloadKey, json::encode(p->id, style)}});
    else
        object.insert(noProfileKey, QJsonObject{});
    return object;
}

StyleChoice Coding<StyleChoice>::decode(const QJsonValue &value, KeyStyle style)
{
    if (!value.isObject())
        detail::typeMismatch("an object", value);
    const QJsonObject object = value.toObject();
    // Only the keys that name a case count; anything else is ignored, as
    // unknown keys are everywhere else.
    const bool hasProfile = object.contains(profileKey);
    const bool hasNoProfile = object.contains(noProfileKey);
    if (hasProfile == hasNoProfile)
        throw DecodingError(QString::fromLatin1(styleChoiceKeyCountError));

    if (hasNoProfile) {
        const QJsonValue payload = object.value(noProfileKey);
        try {
            if (!payload.isObject())
                detail::typeMismatch("an object", payload);
        } catch (DecodingError &e) {
            e.within(noProfileKey);
            throw;
        }
        return StyleChoice::noProfile();
    }

    const QJsonValue payload = object.value(profileKey);
    try {
        if (!payload.isObject())
            detail::typeMismatch("an object", payload);
        const auto id = decodeKey<QUuid>(payload.toObject(), payloadKey, style);
        if (!id) {
            DecodingError e(QStringLiteral("required key is missing"));
            e.within(payloadKey);
            throw e;
        }
        return StyleChoice::profile(*id);
    } catch (DecodingError &e) {
        e.within(profileKey);
        throw;
    }
}

} // namespace velum::json
