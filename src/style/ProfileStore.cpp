#include "style/ProfileStore.h"

#include "model/AccountPartition.h"
#include "model/Json.h"

#include <QDir>
#include <QFileInfo>

#include <algorithm>
#include <cstdio>

namespace velum {

namespace {

const QString profilesFolder = QStringLiteral("profiles");
const QString indexFile = QStringLiteral("index.json");
const QString analysisFolder = QStringLiteral("analysis");
const QString profileFolder = QStringLiteral("profile");
const QString paramsFile = QStringLiteral("params.json");

void logError(const QString &text)
{
    std::fprintf(stderr, "velum: error: %s\n", qUtf8Printable(text));
}

QString pathOf(const QUrl &url)
{
    return url.isLocalFile() ? url.toLocalFile() : url.path();
}

QUrl under(const QUrl &folder, const QString &name)
{
    return QUrl::fromLocalFile(QDir::cleanPath(pathOf(folder) + QLatin1Char('/') + name));
}

QString idText(const QUuid &id)
{
    return id.toString(QUuid::WithoutBraces).toUpper();
}

bool entryExists(const QString &path)
{
    const QFileInfo info(path);
    return info.exists() || info.isSymLink();
}

// Writes the list; false when it could not be written (already logged).
bool writeList(const ProfileStore &store, const std::vector<CreatorProfile> &profiles)
{
    const QString folder = pathOf(store.root());
    try {
        if (!QDir().mkpath(folder))
            throw FileWriteError(QStringLiteral("cannot make the folder %1").arg(folder).toStdString());
        StageCoder::write(profiles, pathOf(store.indexURL()));
        return true;
    } catch (const std::exception &e) {
        logError(QStringLiteral("profile list not saved: %1").arg(QString::fromUtf8(e.what())));
        return false;
    }
}

// Moves a folder's content to another place: whole when the target is not
// there yet, entry by entry into it otherwise. An entry whose name is taken
// stays where it was. True when nothing was left behind.
bool moveFolder(const QString &from, const QString &to)
{
    if (!entryExists(to)) {
        QDir().mkpath(QFileInfo(to).absolutePath());
        if (QDir().rename(from, to))
            return true;
        logError(QStringLiteral("could not move %1 to %2 — left where it was").arg(from, to));
        return false;
    }
    QDir source(from);
    bool complete = true;
    const auto entries = source.entryList(QDir::AllEntries | QDir::NoDotAndDotDot | QDir::Hidden | QDir::System);
    for (const QString &name : entries) {
        const QString target = to + QLatin1Char('/') + name;
        if (entryExists(target)) {
            logError(QStringLiteral("%1 already exists in %2 — left in %3").arg(name, to, from));
            complete = false;
            continue;
        }
        if (!QDir().rename(source.filePath(name), target)) {
            logError(QStringLiteral("could not move %1 to %2 — left where it was").arg(source.filePath(name), to));
            complete = false;
        }
    }
    if (complete)
        QDir().rmdir(from);
    return complete;
}

} // namespace

QUrl ProfileStore::base() const
{
    return override ? *override : AccountPartition::storeRoot();
}

QUrl ProfileStore::root() const
{
    return under(base(), profilesFolder);
}

QUrl ProfileStore::indexURL() const
{
    return under(root(), indexFile);
}

QUrl ProfileStore::legacyAnalysisDirectory() const
{
    return under(base(), analysisFolder);
}

QUrl ProfileStore::legacyProfileDirectory() const
{
    return under(base(), profileFolder);
}

QUrl ProfileStore::profileDirectory(const QUuid &id) const
{
    return under(root(), idText(id));
}

QUrl ProfileStore::analysisDirectory(const QUuid &id) const
{
    return under(profileDirectory(id), analysisFolder);
}

QUrl ProfileStore::paramsURL(const QUuid &id) const
{
    return under(analysisDirectory(id), paramsFile);
}

std::vector<CreatorProfile> ProfileStore::profiles() const
{
    return StageCoder::read<std::vector<CreatorProfile>>(pathOf(indexURL())).value_or(std::vector<CreatorProfile>{});
}

void ProfileStore::write(const std::vector<CreatorProfile> &list) const
{
    writeList(*this, list);
}

CreatorProfile ProfileStore::create(const QString &name) const
{
    const QString trimmed = name.trimmed();
    CreatorProfile profile{
        .id = QUuid::createUuid(),
        .name = trimmed.isEmpty() ? QString::fromLatin1(defaultProfileName) : trimmed,
        .createdAt = json::nowWholeSeconds(),
    };
    auto list = profiles();
    list.push_back(profile);
    write(list);
    const QString folder = pathOf(analysisDirectory(profile.id));
    if (!QDir().mkpath(folder))
        logError(QStringLiteral("cannot make the folder %1").arg(folder));
    return profile;
}

void ProfileStore::deleteProfile(const QUuid &id) const
{
    auto list = profiles();
    std::erase_if(list, [&](const CreatorProfile &p) { return p.id == id; });
    write(list);
    QDir(pathOf(profileDirectory(id))).removeRecursively();
}

CreatorProfile ProfileStore::ensureDefault() const
{
    const auto list = profiles();
    if (!list.empty())
        return list.front();
    return create(QString::fromLatin1(defaultProfileName));
}

std::optional<CreatorProfile> ProfileStore::migrateLegacyLayout() const
{
    const QString legacyAnalysis = pathOf(legacyAnalysisDirectory());
    const QString legacyParams = pathOf(under(legacyProfileDirectory(), paramsFile));
    const bool hasAnalysis = QFileInfo(legacyAnalysis).isDir();
    const bool hasParams = QFileInfo(legacyParams).isFile();
    if (!hasAnalysis && !hasParams)
        return std::nullopt;

    const auto list = profiles();
    CreatorProfile target;
    if (!list.empty()) {
        target = list.front();
    } else {
        target = CreatorProfile{.id = QUuid::createUuid(),
                                .name = QString::fromLatin1(defaultProfileName),
                                .createdAt = json::nowWholeSeconds()};
        // Without a listed profile the documents would have no owner.
        if (!writeList(*this, {target}))
            return std::nullopt;
    }

    QDir().mkpath(pathOf(profileDirectory(target.id)));

    if (hasAnalysis)
        moveFolder(legacyAnalysis, pathOf(analysisDirectory(target.id)));

    bool paramsSettled = true;
    const QString params = pathOf(paramsURL(target.id));
    if (hasParams && !entryExists(params)) {
        QDir().mkpath(pathOf(analysisDirectory(target.id)));
        paramsSettled = QDir().rename(legacyParams, params);
        if (!paramsSettled)
            logError(QStringLiteral("could not move %1 to %2 — left where it was").arg(legacyParams, params));
    }
    if (paramsSettled)
        QDir(pathOf(legacyProfileDirectory())).removeRecursively();
    return target;
}

} // namespace velum
