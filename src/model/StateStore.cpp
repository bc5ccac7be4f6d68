#include "model/StateStore.h"

#include "model/AccountPartition.h"
#include "model/Json.h"

#include <QDir>
#include <QFileInfo>

#include <algorithm>
#include <cstdio>
#include <thread>
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

// Whether each URL's file exists. A large account has thousands of files,
// often on external or network volumes where every check waits on the
// device, so the checks are spread over a few threads.
std::vector<char> filesExist(const std::vector<const QUrl *> &urls)
{
    std::vector<char> found(urls.size(), 0);
    constexpr std::size_t perThreadMinimum = 256;
    const std::size_t threads = std::clamp<std::size_t>(
        std::min<std::size_t>(std::thread::hardware_concurrency(), urls.size() / perThreadMinimum), 1, 8);
    const auto check = [&](std::size_t begin, std::size_t end) {
        for (std::size_t i = begin; i < end; ++i)
            found[i] = fileExists(*urls[i]) ? 1 : 0;
    };
    if (threads == 1) {
        check(0, urls.size());
        return found;
    }
    std::vector<std::thread> workers;
    const std::size_t chunk = (urls.size() + threads - 1) / threads;
    for (std::size_t t = 1; t < threads; ++t)
        workers.emplace_back(check, std::min(urls.size(), t * chunk), std::min(urls.size(), (t + 1) * chunk));
    check(0, std::min(urls.size(), chunk));
    for (auto &worker : workers)
        worker.join();
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
