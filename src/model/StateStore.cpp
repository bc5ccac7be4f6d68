#include "model/StateStore.h"

#include "model/AccountPartition.h"
#include "model/Json.h"
#include "model/Slices.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QHash>
#include <QJsonArray>
#include <QJsonObject>

#include <dirent.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <string_view>
#include <utility>
#include <vector>

namespace velum {

namespace {

const QString stateFileName = QStringLiteral("state.json");

QString localPath(const QUrl &url)
{
    return url.isLocalFile() ? url.toLocalFile() : url.path();
}

bool fileExists(const QUrl &url)
{
    const QString path = localPath(url);
    return !path.isEmpty() && QFileInfo::exists(path);
}

// Calls `entry` with the name of each entry of a folder that certainly
// exists: all but symbolic links (which may dangle) and entries of unknown
// type. Nothing when the folder cannot be listed, or when its entries cannot
// be looked up (no search permission), for then they do not count as existing.
template <class Entry>
void forEachExistingEntry(const QByteArray &folder, Entry entry)
{
    if (::access(folder.constData(), X_OK) != 0)
        return;
    DIR *dir = ::opendir(folder.constData());
    if (!dir)
        return;
    while (const dirent *found = ::readdir(dir)) {
        if (found->d_type != DT_LNK && found->d_type != DT_UNKNOWN)
            entry(std::string_view(found->d_name));
    }
    ::closedir(dir);
}

// Whether each URL's file exists. A large account has thousands of files,
// often on external or network volumes where every check waits on the
// device. Files mostly share a few folders: a folder with many of them is
// listed once, and only what the listing does not show is looked up one by
// one. The work is spread over a few threads, a folder at a time.
std::vector<char> filesExist(const std::vector<const QUrl *> &urls)
{
    constexpr std::size_t listingMinimum = 16;
    std::vector<QByteArray> paths(urls.size());
    Slices::forEach(urls.size(), Slices::count(urls.size()), [&](std::size_t, std::size_t begin, std::size_t end) {
        for (std::size_t i = begin; i < end; ++i)
            paths[i] = QFile::encodeName(localPath(*urls[i]));
    });

    // Indices of the files by folder; relative and empty paths each on their own.
    QHash<QByteArrayView, std::vector<std::size_t>> byFolder;
    std::vector<std::vector<std::size_t>> groups;
    for (std::size_t i = 0; i < paths.size(); ++i) {
        const QByteArrayView path(paths[i]);
        const qsizetype slash = path.lastIndexOf('/');
        if (!path.startsWith('/')) {
            groups.push_back({i});
            continue;
        }
        auto &group = byFolder[path.first(std::max<qsizetype>(slash, 1))];
        if (group.empty())
            group.reserve(listingMinimum);
        group.push_back(i);
    }
    for (auto it = byFolder.begin(); it != byFolder.end(); ++it)
        groups.push_back(std::move(it.value()));

    std::vector<char> found(urls.size(), 0);
    const auto nameOf = [&](std::size_t i) {
        const QByteArrayView path(paths[i]);
        const qsizetype start = path.lastIndexOf('/') + 1;
        return path.sliced(start);
    };
    const auto check = [&](const std::vector<std::size_t> &group) {
        if (group.size() >= listingMinimum) {
            // The folder is listed while the files are put in a table by
            // name (files of the same name chained by index); then the
            // listing is matched against the table, a few threads at a time
            // when there is no other folder to work on.
            QHash<QByteArrayView, std::size_t> byName;
            std::vector<std::size_t> sameName(group.size(), group.size());
            QByteArray listed;
            std::vector<std::pair<qsizetype, qsizetype>> entries; // offset and size in `listed`
            const QByteArrayView first(paths[group.front()]);
            const QByteArray folder = first.first(std::max<qsizetype>(first.lastIndexOf('/'), 1)).toByteArray();
            const auto list = [&] {
                forEachExistingEntry(folder, [&](std::string_view name) {
                    entries.emplace_back(listed.size(), static_cast<qsizetype>(name.size()));
                    listed.append(name.data(), static_cast<qsizetype>(name.size()));
                });
            };
            const auto tabulate = [&] {
                byName.reserve(static_cast<qsizetype>(group.size()));
                for (std::size_t g = 0; g < group.size(); ++g) {
                    const auto it = byName.find(nameOf(group[g]));
                    if (it == byName.end())
                        byName.insert(nameOf(group[g]), g);
                    else
                        sameName[g] = std::exchange(it.value(), g);
                }
            };
            Slices::forEach(2, Slices::count(2, 1), [&](std::size_t, std::size_t begin, std::size_t end) {
                for (std::size_t task = begin; task < end; ++task)
                    task == 0 ? tabulate() : list();
            });
            // Names in a folder differ, so each entry marks files of its own.
            Slices::forEach(entries.size(), Slices::count(entries.size(), 1024), [&](std::size_t, std::size_t begin, std::size_t end) {
                for (std::size_t e = begin; e < end; ++e) {
                    const auto match = byName.constFind(QByteArrayView(listed).sliced(entries[e].first, entries[e].second));
                    if (match == byName.constEnd())
                        continue;
                    for (std::size_t g = match.value(); g < group.size(); g = sameName[g])
                        found[group[g]] = 1;
                }
            });
        }
        for (const std::size_t i : group) {
            if (!found[i])
                found[i] = fileExists(*urls[i]) ? 1 : 0;
        }
    };
    Slices::forEach(groups.size(), Slices::count(groups.size()), [&](std::size_t, std::size_t begin, std::size_t end) {
        for (std::size_t g = begin; g < end; ++g)
            check(groups[g]);
    });
    return found;
}

} // namespace

QUrl StateStore::fileURL() const
{
    const QUrl folder = override ? *override : AccountPartition::storeRoot();
    return QUrl::fromLocalFile(QDir::cleanPath(localPath(folder) + QLatin1Char('/') + stateFileName));
}

PersistedState StateStore::load() const
{
    return load(localPath(fileURL()));
}

PersistedState StateStore::load(const QString &path)
{
    std::optional<PersistedState> stored = StateCoder::read<PersistedState>(path);
    if (!stored)
        return PersistedState::fresh();
    repair(*stored);
    return std::move(*stored);
}

void StateStore::repair(PersistedState &state)
{
    std::vector<const QUrl *> urls;
    for (auto &project : state.projects) {
        if (project.status == ProjectStatus::processing)
            project.status = ProjectStatus::draft;
        for (const auto &file : project.files)
            urls.push_back(&file.url);
    }
    const std::vector<char> exists = filesExist(urls);
    std::size_t next = 0;
    for (auto &project : state.projects) {
        for (auto &file : project.files) {
            if (!exists[next++])
                file.state = ProjectFileState::failed;
        }
    }
    for (auto &video : state.styleVideos) {
        if (video.status == StyleVideoStatus::analyzing) {
            video.status = StyleVideoStatus::queued;
            video.progress.reset();
        }
        if (video.url && !fileExists(*video.url))
            video.status = StyleVideoStatus::failed;
    }
}

void StateStore::save(const PersistedState &state) const
{
    const QString path = localPath(fileURL());
    try {
        const QByteArray bytes = StateCoder::encode(state);
        if (!QDir().mkpath(QFileInfo(path).absolutePath()))
            throw FileWriteError(QStringLiteral("cannot make the folder of %1").arg(path).toStdString());
        writeFileAtomically(path, bytes);
    } catch (const std::exception &e) {
        std::fprintf(stderr, "velum: error: state not saved: %s\n", e.what());
    }
}

} // namespace velum
